#include "machines/simulated/Core.h"

#include <utility>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

TSimCore::TSimCore(TCallGate& gate, TNcStateFramework& framework)
    : Gate(gate), FFramework(framework), FNow(Clock().MonotonicMs()) {}

void TSimCore::CatchUp(std::uint64_t nowMs) {
  while (FNow < nowMs) {
    ++FNow;
    for (ISimPart* const part : FParts) part->Step(FNow);
  }
}

void TSimCore::Release() noexcept {
  std::vector<TNcAlarmRecord> alarms;
  alarms.swap(FAlarms);
  Lock.unlock();
  try {
    for (TNcAlarmRecord& alarm : alarms) FFramework.PostAlarm(std::move(alarm));
  } catch (...) {  // no memory for the record: the permissions that it took away stand all the same
  }
}

TSimScope::TSimScope(TSimCore& core) : TSimScope(core, Clock().MonotonicMs()) {}

TSimScope::TSimScope(TSimCore& core, std::uint64_t nowMs) : FCore(core) {
  FCore.Lock.lock();
  try {
    FCore.CatchUp(nowMs);
  } catch (...) {
    FCore.Release();
    throw;
  }
}

TSimScope::~TSimScope() { FCore.Release(); }

}  // namespace ixocamglue
