#include "ixocamglue/platform/services/VirtualClock.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/platform/services/DayParts.h"

namespace ixocamglue {
namespace {

constexpr double kStartDays = 46'023.0 + 8.0 / 24.0;  // 2026-01-01 08:00

class TFlag {
 public:
  explicit TFlag(bool& flag) : FFlag(flag) { FFlag = true; }
  ~TFlag() { FFlag = false; }
  TFlag(const TFlag&) = delete;
  TFlag& operator=(const TFlag&) = delete;

 private:
  bool& FFlag;
};

}  // namespace

TDateTime TVirtualClock::Now() {
  return {kStartDays + FWallDays.load() +
          static_cast<double>(MonotonicMs() - FFirstMs) / static_cast<double>(kMsPerDay)};
}

void TVirtualClock::Sleep(std::uint32_t ms) {
  if (FStepping) return;
  for (; ms > 0; --ms) StepTo(MonotonicMs() + 1);
}

bool TVirtualClock::Pause(TStop& stop, std::uint32_t ms) {
  if (FStepping) return stop.Asked();
  for (; ms > 0 && !stop.Asked(); --ms) StepTo(MonotonicMs() + 1);
  return stop.Asked();
}

std::size_t TVirtualClock::OnStep(TListener listener) {
  FListeners.push_back({++FHandles, 1, 0, std::move(listener)});
  return FHandles;
}

std::size_t TVirtualClock::Every(std::uint32_t periodMs, TListener timer) {
  const std::uint64_t period = std::max<std::uint32_t>(periodMs, 1);
  FTimers.push_back({++FHandles, period, MonotonicMs() + period, std::move(timer)});
  return FHandles;
}

void TVirtualClock::Remove(std::size_t handle) {
  const auto same = [handle](const TTimer& timer) { return timer.Handle == handle; };
  std::erase_if(FListeners, same);
  std::erase_if(FTimers, same);
}

void TVirtualClock::StepTo(std::uint64_t nowMs) {
  FNow.store(nowMs, std::memory_order_release);
  const TFlag stepping(FStepping);
  for (const TTimer& listener : FListeners) listener.Call(nowMs);
  for (TTimer& timer : FTimers) {
    if (nowMs < timer.DueMs) continue;
    timer.DueMs = nowMs + timer.PeriodMs;
    timer.Call(nowMs);
  }
}

}  // namespace ixocamglue
