#include "controller/procedures/ProcedureRun.h"

#include <algorithm>
#include <utility>

#include "controller/HostTexts.h"
#include "controller/procedures/Failure.h"
#include "controller/procedures/ProcedureTexts.h"
#include "controller/procedures/Procedures.h"
#include "controller/procedures/Timeline.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kReadyWithinMs = 5'000;  // the machine acknowledges standby
constexpr std::uint32_t kLookEveryMs = 5;        // real time

}  // namespace

void WaitForStandby(TController& controller, const std::function<void()>& look) {
  TNcStateFramework& framework = controller.Framework();
  const std::uint64_t until = Clock().MonotonicMs() + kReadyWithinMs;
  while (framework.Watch().Pass.load() == 0 || framework.SafePending()) {
    if (Clock().MonotonicMs() >= until)
      throw EProblem(pbUnusable, Tr("the machine does not acknowledge standby: laser or emission stays on"));
    if (controller.VirtualClock()) {
      controller.RunPass();
      continue;
    }
    Clock().Sleep(kLookEveryMs);
    if (look) look();
  }
}

TProcedureRun::TProcedureRun(TControllerOptions options, TRunTriggers triggers, TDiagMask listen)
    : FListening(listen), FTriggers(std::move(triggers)), FController(std::move(options)) {
  FStartMs = Clock().MonotonicMs();
  for (const std::string& name : FTriggers.Faults) FController.Machine().Inject(name);
}

void TProcedureRun::OnPass(std::function<void()> before, std::function<void()> after) {
  FBeforePass = std::move(before);
  FAfterPass = std::move(after);
}

// --- on the state thread ---

void TProcedureRun::Entered(std::int32_t from, std::int32_t to) {
  if (to == nsCustomMotion) {
    FEnteredAt.store(Clock().MonotonicMs(), std::memory_order_release);
  } else if (from == nsCustomMotion) {
    FLeftAt.store(Clock().MonotonicMs(), std::memory_order_release);
  }
}

// --- the main thread; in virtual time from within each step of the clock ---

void TProcedureRun::Watch(std::uint64_t nowMs) {
  if (FOnLook) FOnLook(nowMs);
  const std::uint64_t entered = FEnteredAt.load(std::memory_order_acquire);
  if (entered == kNever || FLeftAt.load(std::memory_order_acquire) != kNever || nowMs < entered) return;
  const std::uint64_t lasted = nowMs - entered;
  if (FTriggers.StopAt && lasted >= *FTriggers.StopAt && !std::exchange(FStopSent, true))
    FController.Framework().Stop();
  if (FTriggers.AlarmAt && lasted >= *FTriggers.AlarmAt && !std::exchange(FAlarmSent, true))
    FController.RaiseAlarm({.IdPrefix = "TPHost", .Desc = SAskedAlarm.Get(), .Id = 1, .Attrs = naForbidMove});
}

void TProcedureRun::CheckSignal() {
  if (!FSignal || !FSignal->Asked() || FSignalled) return;
  FSignalled = Clock().MonotonicMs();
  LogMsg(lkWarning, 0, SSignalStop.Get(), "TPHost");
  FController.Framework().Stop();
}

// True when `done` came within the limit.
template <class Done>
bool TProcedureRun::WaitFor(std::uint64_t limitMs, Done done) {
  const std::uint64_t end = Clock().MonotonicMs() + limitMs;
  while (!done()) {
    if (Clock().MonotonicMs() >= (FSignalled ? std::min(end, *FSignalled + kSignalEndsWithinMs) : end)) return false;
    if (FController.VirtualClock()) {
      if (FBeforePass) FBeforePass();
      FController.RunPass();
      if (FAfterPass) FAfterPass();
    } else {
      Clock().Sleep(kLookEveryMs);
      Watch(Clock().MonotonicMs());
      CheckSignal();
    }
  }
  return true;
}

void TProcedureRun::Ready() {
  for (const std::string& notice : FController.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  FController.OnState([this](std::int32_t from, std::int32_t to) { Entered(from, to); });
  if (TVirtualClock* clock = FController.VirtualClock()) {
    clock->OnStep([this](std::uint64_t nowMs) { Watch(nowMs); });
  } else {
    FSignal.emplace();
    FController.StartThreads();
  }
  WaitForStandby(FController, [this] {
    Watch(Clock().MonotonicMs());
    CheckSignal();
  });
}

void TProcedureRun::Drive(std::shared_ptr<IStateMotion> root, std::uint64_t limitMs, std::uint64_t endWithinMs) {
  FController.Start(std::move(root)).OrThrow(pbUnusable);
  FInTime = WaitFor(limitMs, [&] { return !FController.Running(); });
  if (FInTime) return;
  FController.Framework().Stop();
  WaitFor(endWithinMs, [&] { return !FController.Running(); });
}

TRunReport TProcedureRun::Run(const std::function<TStepPtr()>& make, std::uint64_t limitMs, std::uint64_t tailMs) {
  FController.MotionState().AddObserver(FSteps);
  Ready();
  if (!FSignalled) {
    Drive(ShareRoot(make()), limitMs);
    WaitFor(kReadyWithinMs, [&] { return !FController.Framework().SafePending(); });
    WaitFor(tailMs, [] { return false; });
  }
  return Report();
}

TRunEnd TProcedureRun::HowItEnded(const TMachineSnapshot& shown) {
  if (!FInTime) return {"unfinished", SEndNever.Get()};
  if (FEnteredAt.load() == kNever)
    return FSignalled ? TRunEnd{"stopped", SEndStopped.Get()} : TRunEnd{"refused", SEndRefused.Get()};
  const TMotionOutcome& outcome = FController.MotionState().Outcome();
  switch (outcome.Type) {
    case metSuccess:
      if (shown.Collisions > 0) return {"collision", SEndCollided.Get()};
      if (FController.Framework().Watch().GasStays()) return {"gas-open", SEndGasOpen.Get()};
      return FController.Effects().LightMissed() ? TRunEnd{"no-light", SEndNoLight.Get()}
                                                 : TRunEnd{"success", SEndSuccess.Get()};
    case metStop: return {"stopped", SEndStopped.Get()};
    case metPause: return {"paused", SEndPaused.Get()};
    case metAlarm: return {"alarm", SEndAlarm.Get()};
    case metError: break;
  }
  return {"error", SRunFailed.Get()};
}

TRunReport TProcedureRun::Report() {
  TRunReport report;
  const auto shown = FController.Machine().Snapshot();
  report.End = HowItEnded(shown);
  report.Collisions = shown.Collisions;
  report.Dark = !shown.Laser && !shown.Emission;

  const std::uint64_t entered = FEnteredAt.load();
  report.StartMs = report.EnteredMs = FStartMs;
  report.EndMs = Clock().MonotonicMs();
  if (entered != kNever) {
    report.EnteredMs = entered;
    report.DurationMs = std::min(FLeftAt.load(), report.EndMs) - entered;
    const TMotionOutcome& outcome = FController.MotionState().Outcome();
    report.Path = outcome.Path;
    report.Fault = outcome.Fault;
    report.Cause = outcome.Cause.empty() ? BeamCauseText(FController.Framework().LateBeamCause()) : outcome.Cause;
    report.NextState = outcome.NextState;
    report.At = StepOf(outcome.Path, FSteps.Standing());
  }
  report.Steps = FSteps.Items();
  report.Alarms = FAlarms.Items();
  report.Signals = FController.Journal().Signals().Items();
  const TTimeline timeline(report.Signals, FStartMs, report.EndMs);
  report.Timeline = timeline.Draw();
  report.TimelineJson = timeline.Json();
  report.Journal = FController.Journal().Lines();

  const auto tooEarly = [&](const char* option, const std::optional<std::uint64_t>& at, bool sent) {
    if (at && !sent) report.Notes.push_back(Show(SShotTooEarly, option, ShownMs(*at)));
  };
  tooEarly("--stop-at", FTriggers.StopAt, FStopSent);
  tooEarly("--alarm-at", FTriggers.AlarmAt, FAlarmSent);
  if (const auto dropped = FController.Logs().Dropped(); dropped > 0)
    report.Notes.push_back(Show(SLinesDropped, ShownMs(dropped)));
  if (shown.Collisions > 0)
    report.Notes.push_back(Show(SRunCollided, ShownMs(shown.Collisions), shown.FirstCollision.c_str()));
  if (!report.Dark) report.Notes.emplace_back(SShotNotDark.Get());
  if (!report.Success())
    report.Problem =
        FailureOf(report, shown, entered != kNever ? FController.MotionState().Outcome() : TMotionOutcome());
  return report;
}

}  // namespace ixocontroller
