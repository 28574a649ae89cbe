#include "machines/simulated/Core.h"

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

TSimCore::TSimCore(TCallGate& gate, IMachineObserver& observer)
    : Gate(gate), FObserver(observer), FNow(Clock().MonotonicMs()) {}

void TSimCore::CatchUp(std::uint64_t nowMs) {
  while (FNow < nowMs) {
    ++FNow;
    for (ISimPart* const part : FParts) part->Step(FNow);
  }
}

void TSimCore::Collide(std::string_view device, std::string_view text, std::string_view shown) {
  if (FCollisions++ == 0)
    FFirstCollision =
        Format(Tr("%s: collision: %s"), std::string(device).c_str(), std::string(shown.empty() ? text : shown).c_str());
  Event(device, std::string(kCollision) += text);
}

TSimScope::TSimScope(TSimCore& core) : TSimScope(core, Clock().MonotonicMs()) {}

TSimScope::TSimScope(TSimCore& core, std::uint64_t nowMs) : FCore(core) {
  FCore.Lock.lock();
  try {
    FCore.CatchUp(nowMs);
  } catch (...) {
    FCore.Lock.unlock();
    throw;
  }
}

TSimScope::~TSimScope() { FCore.Lock.unlock(); }

}  // namespace ixocamglue
