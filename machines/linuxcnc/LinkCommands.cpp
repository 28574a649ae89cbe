// The commanding thread of TLncLink.
#include <algorithm>
#include <chrono>
#include <cmath>

#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/linuxcnc/Link.h"
#include "machines/linuxcnc/Pins.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kSetLimitMs = 320;        // a `set` holds its connection for 100 ms
constexpr std::uint64_t kLifeAfterMs = 70;        // with the 100 ms that it takes, one in 200 ms
constexpr std::uint64_t kIdleLifeAfterMs = 1000;  // in standby
constexpr std::uint64_t kModeLimitMs = 1000;
constexpr std::uint64_t kClearLimitMs = 5000;
constexpr std::uint64_t kRestLimitMs = 5000;
constexpr std::uint64_t kSettleMs = 200;  // idle for so long and not there: it was ended by somebody else
constexpr std::uint64_t kTheftPauseMs = 2000;
constexpr double kClearMm = 0.001;
constexpr std::chrono::milliseconds kSlice{5};

}  // namespace

void TLncLink::CommandRound() {
  if (!FCommands.IsOpen()) {
    FActive.reset();
    {
      TGuard guard(FLock);
      FActiveUnit = kLncUnits;
      FCommandsOpen = false;
    }
    return Reopen(FCommands, FCommandsTriedMs, true);
  }
  if (AbortDue()) return CarryOutAbort();
  if (FActive) {
    StepJob();
  } else {
    TGuard guard(FLock);
    if (!FWaiting.empty()) {
      FActive = std::move(FWaiting.front());
      FWaiting.pop_front();
      FActiveUnit = FActive->Move.Unit;
      return;
    }
  }
  SignOfLife(Clock().MonotonicMs());
  TGuard guard(FLock);
  if (!FAbortDue && (FActive || FWaiting.empty())) FWake.wait_for(FLock, kSlice);
}

bool TLncLink::AbortDue() const {
  TGuard guard(FLock);
  return FAbortDue || FStop.Asked();
}

// What LinuxCNC refuses has a reason that can be asked for. It refuses everything from a connection that is not the
// enabled one, and most of it while its machine is off.
TResult<> TLncLink::Command(const std::string& what) {
  const TRshOutcome outcome = FCommands.Set(what, kSetLimitMs);
  FLifeMs = Clock().MonotonicMs();
  std::string enabled;
  if (outcome == roAck) return {};
  if (outcome == roNak && FCommands.Get("enable", kSetLimitMs, enabled) == roAck && enabled == "ON")
    return TProblem{.What = Format(Tr("LinuxCNC refuses \"%s\""), what.c_str())};
  if (FStop.Asked()) return TProblem{};
  if (!enabled.empty()) FCommandsTriedMs = Clock().MonotonicMs() + kTheftPauseMs;
  TProblem problem{.What = !enabled.empty()      ? Tr("another client commands LinuxCNC now")
                           : outcome == roClosed ? Tr("LinuxCNC has closed its text interface")
                                                 : Tr("LinuxCNC's task is silent")};
  CloseCommands();
  Lose(problem.What);
  return problem;
}

// While something runs the task is asked by what it has to answer; in standby only whether the connection still
// commands.
void TLncLink::SignOfLife(std::uint64_t now) {
  const TLncStatus status = Status();
  const bool runs = FActive || FState.load(std::memory_order_acquire) != StateNumber(csStandby);
  if (runs && status.On && status.FeedOverride >= 0) {
    if (now - FLifeMs < kLifeAfterMs) return;
    const TResult<> told = Command(Format("feed_override %d", status.FeedOverride));
    if (!told && FActive) Fail(told.Problem().What);
    return;
  }
  if (now - FLifeMs < kIdleLifeAfterMs) return;
  FLifeMs = now;
  std::string enabled;
  const TRshOutcome outcome = FCommands.Get("enable", kSetLimitMs, enabled);
  if (outcome == roAck && enabled == "ON") return;
  CloseCommands();
  if (outcome == roAck) FCommandsTriedMs = now + kTheftPauseMs;
  Lose(outcome == roAck      ? Tr("another client commands LinuxCNC now")
       : outcome == roClosed ? Tr("LinuxCNC has closed its text interface")
                             : Tr("LinuxCNC's text interface is silent"));
}

void TLncLink::CarryOutAbort() {
  std::uint64_t stops = 0;
  {
    TGuard guard(FLock);
    stops = FStops;
    FActiveUnit = kLncUnits;
  }
  FActive.reset();
  // It refuses an abort only while its machine is off, and nothing moves then; else once more, with the axes held.
  if (!Command("abort") && (!FCommands.IsOpen() || Status().On)) {
    Clock().Pause(FStop, 5);
    return;
  }
  const std::uint64_t end = Clock().MonotonicMs() + kRestLimitMs;
  bool rests = AllRest();
  for (; !rests && Clock().MonotonicMs() < end && !Clock().Pause(FStop, 5); rests = AllRest())
    SignOfLife(Clock().MonotonicMs());
  if (FStop.Asked()) return;
  // Nobody knows what moves them. They stay held, it is aborted once more, and nothing is back before they rest.
  if (!rests) return Lose(Tr("the axes of LinuxCNC do not come to rest after a stop"));
  TGuard guard(FLock);
  if (FStops != stops) return;  // once more
  FAbortDue = false;
  FStopping = 0;
  FHal.Set(kPinStop, 0.0);
  Mark(false);
  if (FRearmDue) FHal.Rearm();
  FRearmDue = false;
}

void TLncLink::Fail(std::string why) {
  FActive.reset();
  TGuard guard(FLock);
  if (FActiveUnit == kLncUnits) return;
  const TLncUnit unit = FActiveUnit;
  BeginStop(1U << unit);
  FFailed[unit] = std::move(why);
  FActiveUnit = kLncUnits;
}

void TLncLink::StepJob() {
  TJob& job = *FActive;
  if (!job.Begun && !Begin(job)) return;
  if (job.NextLine < job.Move.Lines.size()) {
    if (const TResult<> told = Command("mdi " + job.Move.Lines[job.NextLine]); !told) return Fail(told.Problem().What);
    ++job.NextLine;
    job.AckMs = Clock().MonotonicMs();
    return;
  }
  if (const std::string reason = NotReady(); !reason.empty()) return Fail(reason);
  if (!Arrived(job)) return;
  if (AbortDue()) return;
  if (job.Move.Then) job.Move.Then();
  FActive.reset();
  TGuard guard(FLock);
  FActiveUnit = kLncUnits;
}

// What comes before the first line.
bool TLncLink::Begin(TJob& job) {
  if (job.BeganMs == 0) job.BeganMs = Clock().MonotonicMs();
  if (job.Move.ClearOffset && !OffsetCleared(job)) return false;
  const bool jogs = job.JogAxis != kLncAxes;
  if ((jogs || job.Move.NeedsMdi || !job.Move.Lines.empty()) && !EnsureMode(jogs ? "MANUAL" : "MDI")) return false;
  job.Begun = true;
  if (!jogs) return true;
  const TResult<> told = Command(Format("jog_incr %d %.3f %.4f", static_cast<int>(job.JogAxis),
                                        std::copysign(job.JogSpeed * 60.0, job.JogWay), std::abs(job.JogWay)));
  if (!told) {
    Fail(told.Problem().What);
    return false;
  }
  job.AckMs = Clock().MonotonicMs();
  return true;
}

// The height loop adds an offset to Z that would shift every line; it is given back first.
bool TLncLink::OffsetCleared(TJob& job) {
  const double offset = FHal.Value(kPinOffset).value_or(0.0);
  if (!job.Clearing) {
    FHal.Set(kPinFollow, 0.0);
    if (std::abs(offset) <= kClearMm) return true;
    FHal.Set(kPinClear, 1.0);
    job.Clearing = true;
    return false;
  }
  if (std::abs(offset) <= kClearMm && !Moving(laZ)) {
    FHal.Set(kPinClear, 0.0);
    job.Clearing = false;
    return true;
  }
  if (Clock().MonotonicMs() - job.BeganMs > kClearLimitMs) {
    FHal.Set(kPinClear, 0.0);
    Fail(Tr("LinuxCNC does not take back the offset of the height loop"));
  }
  return false;
}

bool TLncLink::EnsureMode(const char* mode) {
  if (Status().Mode == mode) return true;
  {
    TGuard guard(FLock);
    FModeSet = mode;
  }
  if (const TResult<> told = Command(Format("mode %s", mode)); !told) {
    Fail(told.Problem().What);
    return false;
  }
  for (const std::uint64_t end = Clock().MonotonicMs() + kModeLimitMs; Clock().MonotonicMs() < end;) {
    if (Status().Mode == mode) return true;
    if (AbortDue()) return false;
    Clock().Pause(FStop, 5);
    SignOfLife(Clock().MonotonicMs());
    if (!FActive) return false;  // it has failed
  }
  Fail(Format(Tr("LinuxCNC does not change to the mode %s"), mode));
  return false;
}

bool TLncLink::Arrived(TJob& job) {
  const TLncStatus status = Status();
  const std::uint64_t now = Clock().MonotonicMs();
  const auto frame = FHal.FrameAt();
  if (status.AskedMs <= job.AckMs || !frame || *frame <= job.AckMs) return false;
  const bool resting = AllRest();
  if (job.JogAxis != kLncAxes) return resting && now - job.AckMs > kSettleMs;
  if (job.Move.Lines.empty()) return true;
  const auto away = std::ranges::find_if(job.Move.Targets, [&](const TLncMove::TTarget& target) {
    return !(std::abs(At(target.Axis) - target.At) <= kArrivedMm);
  });
  if (!status.Idle) {
    job.ElsewhereMs = 0;
    return false;
  }
  if (away == job.Move.Targets.end()) return resting;
  if (!resting || job.ElsewhereMs == 0) {
    job.ElsewhereMs = now;
  } else if (now - job.ElsewhereMs > kSettleMs) {
    std::string said;
    const bool told = FCommands.Get("error", kSetLimitMs, said) == roAck && said != "OK";
    Fail(Format(Tr("LinuxCNC has ended the move with %s at %.3f, not at %.3f"), AxisName(away->Axis),
                FConfig.ToOurs(away->Axis, At(away->Axis)), FConfig.ToOurs(away->Axis, away->At)) +
         (told ? ": " + said : ""));
  }
  return false;
}

}  // namespace ixocamglue
