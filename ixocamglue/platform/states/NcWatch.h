// Lock-free facts about the running machine, for the layers that watch it from outside: the laser's own latch and the
// supervisor. Written by the state framework and by the device adapters, read by anyone; nobody waits for anybody.
#pragma once

#include <atomic>
#include <cstdint>

#include "ixocamglue/platform/ports/Installed.h"

namespace ixocamglue {

// What the current state waits for.
enum class TNcBusyKind : std::uint8_t { bkNone, bkEnsure, bkDevice, bkMotion, bkGas, bkDelay };
using enum TNcBusyKind;

// Since when something lasts, in monotonic ms.
class TNcSince {
 public:
  static constexpr std::uint64_t kNot = ~std::uint64_t{0};

  // Starts the span unless it runs already.
  void Begin(std::uint64_t nowMs) {
    std::uint64_t expected = kNot;
    FSince.compare_exchange_strong(expected, nowMs, std::memory_order_acq_rel);
  }
  void Restart(std::uint64_t nowMs) { FSince.store(nowMs, std::memory_order_release); }
  void End() { FSince.store(kNot, std::memory_order_release); }
  [[nodiscard]] bool Runs() const { return FSince.load(std::memory_order_acquire) != kNot; }
  // How long it has lasted; 0 when it does not.
  [[nodiscard]] std::uint64_t LastedMs(std::uint64_t nowMs) const {
    const auto since = FSince.load(std::memory_order_acquire);
    return since == kNot || nowMs < since ? 0 : nowMs - since;
  }

 private:
  std::atomic<std::uint64_t> FSince{kNot};
};

struct TNcWatch {
  // The state thread's last sign of life: every pass, and every device call that it makes.
  std::atomic<std::uint64_t> BeatMs{0};
  std::atomic<std::uint32_t> Pass{0};  // passes of the state loop so far
  std::atomic<std::uint32_t> Tick{0};  // ticks (StepDone) that states were given so far
  // The pass in which the framework demanded laser and emission off; 0 once the device has acknowledged.
  std::atomic<std::uint32_t> DarkDemandedInPass{0};
  std::atomic<TNcBusyKind> Busy{bkNone};
  TNcSince BusySince;
  // Update threads of device objects that a fault has ended.
  std::atomic<std::uint32_t> DeadDeviceThreads{0};
  // Why nothing may be lit any more although the state still runs, a literal: a stop, an abort or an alarm that ends it
  // is posted and not yet carried out. Null: nothing of the kind.
  std::atomic<const char*> EndPosted{nullptr};
  // Kept by the laser's and the gas device's adapter. Asked: since the last command that no off call followed, whatever
  // the device did; a refusal, a lost emission and a tripped latch end neither. On: what the device does.
  TNcSince LaserOn, LaserAsked, EmissionAsked, EmissionOn, GasOn;
  std::atomic<bool> EmissionLost{false};  // it was confirmed and went, and has not been asked for since
  std::atomic<bool> BeamRefused{false};   // laser or emission was asked for and refused; until the watch has seen it
  // The step that a procedure stands in: its command number, and since when. Kept by who observes procedures; it does
  // not run where nobody does.
  std::atomic<std::int32_t> Leaf{0};
  TNcSince LeafSince;

  // --- for the laser's adapter; any thread, one at a time ---
  // With each EmissionOn and SwitchLaser(true) that reaches the device; `refused`: it does nothing.
  void AskEmission(std::uint64_t nowMs, bool refused) {
    if (EmissionLost.exchange(false, std::memory_order_acq_rel)) EmissionAsked.End();
    EmissionAsked.Begin(nowMs);
    if (refused) BeamRefused.store(true, std::memory_order_release);
  }
  void AskLaser(std::uint64_t nowMs, bool refused) {
    LaserAsked.Begin(nowMs);
    if (refused) BeamRefused.store(true, std::memory_order_release);
  }
  // With each change of what the source confirms; after an EmissionOff has ended EmissionAsked.
  void ShowEmission(bool on, std::uint64_t nowMs) {
    if (on) return EmissionOn.Begin(nowMs);
    if (EmissionOn.Runs() && EmissionAsked.Runs()) EmissionLost.store(true, std::memory_order_release);
    EmissionOn.End();
  }
};

IXO_DECLARE_SERVICE(TNcWatch, NcWatch);

// True on the thread that is inside a pass of the state loop.
[[nodiscard]] bool OnStateThread();

}  // namespace ixocamglue
