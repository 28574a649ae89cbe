// The laser's own inhibit. It knows nothing of the machine logic: it looks at lock-free facts only and waits for
// nobody.
//
// While laser or emission is on or asked for, it trips when the state thread gives no sign of life for 200 ms, when an
// alarm forbids the laser, when the beam has been on for more than 65 s, or when a demand to be dark is still not
// fulfilled one pass later. Tripped, it keeps laser and emission off until it is reset by hand. Any thread.
// A means against faults of software, not an emergency stop.
#pragma once

#include <atomic>
#include <cstdint>

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TLaserLatch {
 public:
  static constexpr std::uint64_t kLaserOnMs = 65'000;

  // `active`: laser or emission is on or asked for; `lit`: the beam is on.
  void Evaluate(std::uint64_t nowMs, bool active, bool lit) {
    if (lit)
      FLit.Begin(nowMs);
    else
      FLit.End();
    if (!active || Tripped()) return;
    const TNcWatch* const watch = NcWatch();
    if (!watch) return Trip(TrMark("nobody gives a heartbeat"));
    if (!watch->Lives(nowMs)) return Trip(TrMark("the heartbeat is older than 200 ms"));
    if (TNcAlarms* const alarms = NcAlarms(); alarms && !alarms->AllowLaser())
      return Trip(TrMark("an alarm forbids the laser"));
    if (FLit.LastedMs(nowMs) > kLaserOnMs) return Trip(TrMark("the laser was on for more than 65 s"));
    const std::uint32_t demanded = watch->DarkDemandedInPass.load(std::memory_order_acquire);
    if (demanded != 0 && watch->Pass.load(std::memory_order_acquire) > demanded)
      return Trip(TrMark("not dark one pass after a stop"));
  }

  // `reason` is a literal, shown through Tr; the first one stays until the reset.
  void Trip(const char* reason) {
    const char* none = nullptr;
    FReason.compare_exchange_strong(none, reason, std::memory_order_acq_rel);
  }
  void Reset() {
    FLit.End();
    FReason.store(nullptr, std::memory_order_release);
  }
  [[nodiscard]] bool Tripped() const { return Reason() != nullptr; }
  [[nodiscard]] const char* Reason() const { return FReason.load(std::memory_order_acquire); }  // null: not tripped

 private:
  std::atomic<const char*> FReason{nullptr};
  TNcSince FLit;
};

}  // namespace ixocamglue
