// Lock-free facts about the running machine, for the layers that watch it from outside: the laser's own latch and the
// supervisor. Written by the state framework and by the device adapters, read by anyone; nobody waits for anybody. Any
// thread; nothing fails.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "ixocamglue/support/Installed.h"

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
    if (FSince.compare_exchange_strong(expected, nowMs, std::memory_order_acq_rel))
      FBegun.fetch_add(1, std::memory_order_acq_rel);
  }
  void Restart(std::uint64_t nowMs) { FSince.store(nowMs, std::memory_order_release); }
  void End() { FSince.store(kNot, std::memory_order_release); }
  [[nodiscard]] bool Runs() const { return FSince.load(std::memory_order_acquire) != kNot; }
  // How many times it has begun so far: also a span that nobody looked at in its life has left a trace.
  [[nodiscard]] std::uint32_t Begun() const { return FBegun.load(std::memory_order_acquire); }
  // How long it has lasted; 0 when it does not.
  [[nodiscard]] std::uint64_t LastedMs(std::uint64_t nowMs) const {
    const auto since = FSince.load(std::memory_order_acquire);
    return since == kNot || nowMs < since ? 0 : nowMs - since;
  }

 private:
  std::atomic<std::uint64_t> FSince{kNot};
  std::atomic<std::uint32_t> FBegun{0};
};

// What counts against the limit of a step that waits, and what it comes to.
enum class TNcLeafWait : std::uint8_t {
  lwPlain,       // the time since its start
  lwMoves,       // the time since its start, or since an axis last made way
  lwCalibrates,  // the time since its start; past the limit the calibration has failed
};
using enum TNcLeafWait;

enum TNcWatchAxis : std::uint8_t { waX, waY, waZ, waZ2, waFocus, kWatchAxes };

struct TNcWatch {
  static constexpr std::uint64_t kHeartbeatMs = 200;

  // The state thread's last sign of life, in monotonic ms: every pass, and every device call that it makes.
  std::atomic<std::uint64_t> BeatMs{0};
  // Whether it is no older than kHeartbeatMs; one that came behind `nowMs` is not.
  [[nodiscard]] bool Lives(std::uint64_t nowMs) const {
    const std::uint64_t beat = BeatMs.load(std::memory_order_acquire);
    return nowMs <= beat || nowMs - beat <= kHeartbeatMs;
  }
  std::atomic<std::uint32_t> Pass{0};  // passes of the state loop so far
  std::atomic<std::uint32_t> Tick{0};  // ticks (StepDone) that states were given so far
  // The pass in which the framework demanded laser and emission off; 0 once the device has acknowledged.
  std::atomic<std::uint32_t> DarkDemandedInPass{0};
  std::atomic<TNcBusyKind> Busy{bkNone};
  TNcSince BusySince;
  // Why nothing may be lit any more although the state still runs, a literal: a stop, an abort or an alarm that ends it
  // is posted and not yet carried out. Null: nothing of the kind.
  std::atomic<const char*> EndPosted{nullptr};
  // Kept by the laser's and the gas device's adapter. Asked: since the last command that no off call followed, whatever
  // the device did; a refusal, a lost emission and a tripped latch end neither. On: what the device does.
  TNcSince LaserOn, LaserAsked, EmissionAsked, EmissionOn, GasOn;
  // Confirmed emission went while it or the laser was asked for, and has not been asked for since.
  std::atomic<bool> EmissionLost{false};
  std::atomic<bool> BeamRefused{false};  // laser or emission was asked for and refused; until the watch has seen it

  // Gas was told to be off and not to be on since; kept by NoteGasOff and NoteGasOn.
  std::atomic<bool> GasToldOff{false};
  // It was, and is on all the same.
  [[nodiscard]] bool GasStays() const { return GasToldOff.load(std::memory_order_acquire) && GasOn.Runs(); }

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
    if (EmissionOn.Runs() && (EmissionAsked.Runs() || LaserAsked.Runs()))
      EmissionLost.store(true, std::memory_order_release);
    EmissionOn.End();
  }
  // Where the axes are, mm; of each head its Z. Kept by the adapters as they hear of it: an axis that nobody tells of
  // makes no way.
  std::array<std::atomic<double>, kWatchAxes> Pos{};
  // The step that a procedure stands in: its command number, since when, and how long it may. Kept by who observes
  // procedures; it does not run where nobody does. Written in this order and read from the kind upwards, so that
  // nobody holds what is new against an old start, nor a new kind against an old limit, which may be a shorter one.
  std::atomic<std::int32_t> Leaf{0};
  TNcSince LeafSince;
  std::atomic<std::uint64_t> LeafLimitMs{0};
  std::atomic<TNcLeafWait> LeafWait{lwPlain};
};

IXO_DECLARE_SERVICE(TNcWatch, NcWatch);

// True on the thread that is inside a pass of the state loop.
[[nodiscard]] bool OnStateThread();

}  // namespace ixocamglue
