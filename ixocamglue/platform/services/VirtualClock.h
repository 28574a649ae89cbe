// A clock for runs that repeat exactly: time moves only when somebody sleeps, in steps of 1 ms.
//
// One thread moves the clock, and uses everything that hangs on it; any thread may read the time. Sleeping from within
// a listener or timer advances nothing: the step that called it is not over yet. Both counts start anywhere; by default
// the tick count wraps 5 minutes after the start, so that every longer run passes over the wrap. Nothing of it fails;
// what a listener or a timer throws passes to whoever moves the clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

class TVirtualClock final : public IClock {
 public:
  using TListener = std::function<void(std::uint64_t nowMs)>;

  static constexpr std::uint32_t kFirstTick = 0U - 300'000U;

  explicit TVirtualClock(std::uint32_t firstTick = kFirstTick, std::uint64_t firstMs = 0)
      : FFirstTick(firstTick), FFirstMs(firstMs), FNow(firstMs) {}

  std::uint32_t TickMs() override { return FFirstTick + static_cast<std::uint32_t>(MonotonicMs() - FFirstMs); }
  std::uint64_t MonotonicMs() override { return FNow.load(std::memory_order_acquire); }  // starts at `firstMs`
  TDateTime Now() override;                                                              // starts at 2026-01-01 08:00
  void Sleep(std::uint32_t ms) override;
  void Spin() override { Sleep(1); }
  bool Pause(TStop& stop, std::uint32_t ms) override;
  // A pause of any number of ms in which nobody does anything: time moves on at once, as one step.
  void Skip(std::uint64_t ms) {
    if (!FStepping && ms > 0) StepTo(MonotonicMs() + ms);
  }
  // The wall time alone is set, by so many days; a negative number sets it back.
  void SetWall(double days) { FWallDays.store(FWallDays.load() + days); }

  // Called after each step, in the order of registration, before the timers. Returns a handle for Remove; neither is
  // called from within a listener.
  std::size_t OnStep(TListener listener);
  // Called every `periodMs` (at least 1, as which 0 counts), first one period from now, in the order of registration.
  std::size_t Every(std::uint32_t periodMs, TListener timer);
  void Remove(std::size_t handle);

 private:
  struct TTimer {
    std::size_t Handle = 0;
    std::uint64_t PeriodMs = 0;
    std::uint64_t DueMs = 0;
    TListener Call;
  };

  void StepTo(std::uint64_t nowMs);

  const std::uint32_t FFirstTick;
  const std::uint64_t FFirstMs;
  std::atomic<std::uint64_t> FNow;
  std::atomic<double> FWallDays{0.0};
  bool FStepping = false;
  std::size_t FHandles = 0;
  std::vector<TTimer> FListeners;
  std::vector<TTimer> FTimers;
};

}  // namespace ixocamglue
