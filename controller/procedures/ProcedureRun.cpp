#include "controller/procedures/ProcedureRun.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>

#include "controller/HostTexts.h"
#include "controller/StateFolder.h"
#include "controller/procedures/Timeline.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Machines.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kReadyWithinMs = 5'000;  // the machine acknowledges standby
constexpr std::uint64_t kTailMs = 50;            // shown after the end
constexpr std::uint32_t kLookEveryMs = 5;        // real time
constexpr std::uint64_t kTriggerLimitMs = 600'000;

TControllerOptions SessionOptions(const TRunSettings& settings, TConsole& console) {
  TControllerOptions session;
  session.Machines = Machines();
  session.MachineFile = MachineFile(settings.Machine, settings.State);
  session.LocaleFolder = ShareFolder() / "locale";
  session.AlarmFolder = ShareFolder() / "alarms";
  session.Language = settings.Language;
  session.Seed = settings.Seed;
  session.Realtime = settings.Realtime;
  session.Sinks = {&console};
  return session;
}

}  // namespace

TProcedureRun::TProcedureRun(const TRunSettings& settings, TConsole& console)
    : FSettings(settings), FConsole(console), FController(SessionOptions(settings, console)) {
  for (const std::string& name : settings.Faults) FController.Machine().Inject(name);
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
  if (FSettings.StopAt && lasted >= *FSettings.StopAt && !std::exchange(FStopSent, true))
    FController.Framework().Stop();
  if (FSettings.AlarmAt && lasted >= *FSettings.AlarmAt && !std::exchange(FAlarmSent, true))
    FController.RaiseAlarm({.IdPrefix = "TPHost", .Desc = SAskedAlarm.Get(), .Id = 1, .Attrs = naForbidMove});
}

void TProcedureRun::CheckSignal() {
  if (!FSignal || !FSignal->Asked() || std::exchange(FSignalled, true)) return;
  LogMsg(lkWarning, 0, SSignalStop.Get(), "TPHost");
  FController.Framework().Stop();
}

// True when `done` came within the limit.
template <class Done>
bool TProcedureRun::WaitFor(std::uint64_t limitMs, Done done) {
  const std::uint64_t end = Clock().MonotonicMs() + limitMs;
  while (!done()) {
    if (Clock().MonotonicMs() >= end) return false;
    if (FController.VirtualClock()) {
      FController.RunPass();
    } else {
      Clock().Sleep(kLookEveryMs);
      Watch(Clock().MonotonicMs());
      CheckSignal();
    }
  }
  return true;
}

TRunReport TProcedureRun::Run(const std::string& title, const std::function<TStepPtr()>& make, std::uint64_t limitMs) {
  FStartMs = Clock().MonotonicMs();
  FConsole.SetStart(FStartMs);
  TLogService::Listen(FConsole.Mask());
  for (const std::string& notice : FController.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  FController.OnState([this](std::int32_t from, std::int32_t to) { Entered(from, to); });
  FController.MotionState().AddObserver(FSteps);
  std::optional<TSignalStop> signal;
  if (TVirtualClock* clock = FController.VirtualClock()) {
    clock->OnStep([this](std::uint64_t nowMs) { Watch(nowMs); });
  } else {
    FSignal = &signal.emplace();
    FController.StartThreads();
  }
  FConsole.Say(title);

  TNcStateFramework& framework = FController.Framework();
  if (!WaitFor(kReadyWithinMs, [&] { return framework.Watch().Pass.load() > 0 && !framework.SafePending(); }))
    throw EProblem(pbUnusable, "the machine does not acknowledge standby: laser or emission stays on");
  if (FSignalled) return Report(true);
  if (std::string reason; !FController.Start(make(), &reason)) throw EProblem(pbUnusable, reason);

  const bool ended = WaitFor(limitMs, [&] { return !FController.Running(); });
  if (!ended) {
    framework.Stop();
    WaitFor(kReadyWithinMs, [&] { return !FController.Running(); });
  }
  WaitFor(kReadyWithinMs, [&] { return !framework.SafePending(); });
  WaitFor(kTailMs, [] { return false; });
  FSignal = nullptr;  // ends with this function
  return Report(ended);
}

TRunEnd TProcedureRun::HowItEnded(bool ended) {
  if (!ended) return {"unfinished", SEndNever.Get()};
  if (FEnteredAt.load() == kNever)
    return FSignalled ? TRunEnd{"stopped", SEndStopped.Get()} : TRunEnd{"refused", SEndRefused.Get()};
  const TMotionOutcome& outcome = FController.MotionState().Outcome();
  switch (outcome.Type) {
    case metSuccess: return {"success", SEndSuccess.Get()};
    case metStop: return {"stopped", SEndStopped.Get()};
    case metPause: return {"paused", SEndPaused.Get()};
    case metAlarm: return {"alarm", SEndAlarm.Get()};
    case metError: break;
  }
  const std::string why = outcome.Path + (outcome.Fault.empty() ? "" : ": " + outcome.Fault);
  return {"error", Show(SEndError, why.c_str())};
}

TRunReport TProcedureRun::Report(bool ended) {
  TRunReport report;
  report.End = HowItEnded(ended);
  const auto shown = FController.Machine().Snapshot();
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
    report.NextState = outcome.NextState;
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
  tooEarly("--stop-at", FSettings.StopAt, FStopSent);
  tooEarly("--alarm-at", FSettings.AlarmAt, FAlarmSent);
  if (const auto dropped = FController.Logs().Dropped(); dropped > 0)
    report.Notes.push_back(Show(SLinesDropped, ShownMs(dropped)));
  if (!report.Dark) report.Notes.emplace_back(SShotNotDark.Get());
  return report;
}

void AddRunSettings(CLI::App& command, TRunSettings& settings, const std::string& what) {
  const auto trigger = [&](const char* name, std::optional<std::uint64_t>& target, const char* text) {
    const auto value = std::make_shared<std::uint64_t>(0);
    AddNumberOption(command, name, *value, 0, kTriggerLimitMs, "ms", text)->each([&target, value](std::string s) {
      *value = std::stoull(s);
      target = *value;
    });
  };
  trigger("--stop-at", settings.StopAt, "Stop this long after the procedure was entered, 0 to 600000");
  trigger("--alarm-at", settings.AlarmAt,
          "Raise an alarm that forbids all motion this long after the procedure was entered, 0 to 600000");
  std::vector<std::string> faults;
  for (const TMachineFault& fault : MachineFaults()) faults.emplace_back(fault.Name);
  command.add_option("--fault", settings.Faults, "Something of the machine that fails; `ixocut procedures --faults`")
      ->check(CLI::IsMember(faults))
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("NAME");
  command.add_flag("--realtime", settings.Realtime, "Run on the real clock; Ctrl-C stops the " + what);
  command.add_flag("--json", settings.Json, "Print one JSON document instead of text");
  command.add_flag("--trace", settings.Trace, "Show the whole diagnostic channel");
  AddSeedOption(command, settings.Seed);
  AddMachineOptions(command, settings.Machine, settings.State);
  AddLanguageOption(command, settings.Language);
}

}  // namespace ixocontroller
