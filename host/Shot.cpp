#include "host/Shot.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "host/CommandLine.h"
#include "host/Console.h"
#include "host/HostTexts.h"
#include "host/Procedures.h"
#include "host/Session.h"
#include "host/SignalStop.h"
#include "host/StateFolder.h"
#include "host/Timeline.h"
#include "motion/Umotiontexts.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kNever = ~std::uint64_t{0};
constexpr std::uint64_t kReadyWithinMs = 5'000;  // the machine acknowledges standby
constexpr std::uint64_t kSpareMs = 120'000;      // beyond the beam: emission, the supervisor's three steps
constexpr std::uint64_t kTailMs = 50;            // shown after the end
constexpr std::uint32_t kLookEveryMs = 5;        // real time
constexpr std::uint64_t kTriggerLimitMs = 600'000;

struct TEnd {
  const char* Name;  // in JSON
  std::string Words;
};

// What is left of a shot when its session has ended.
struct TReport {
  TEnd End;
  bool ExecOK = false;
  bool Dark = false;
  std::string Path, Fault;
  std::int32_t NextState = nsStandby;
  std::uint64_t DurationMs = 0;
  std::vector<std::string> Lines;  // for the operator, behind the log
  nlohmann::ordered_json Timeline;
  std::vector<std::string> Journal;
};

class TShot {
 public:
  TShot(const TShotOptions& options, TConsole& console)
      : FOptions(options), FConsole(console), FSession(SessionOptions(options, console)) {}

  TReport Run();

 private:
  static TSessionOptions SessionOptions(const TShotOptions& options, TConsole& console);
  void Entered(std::int32_t from, std::int32_t to);
  void AnnounceFirst();
  void Watch(std::uint64_t nowMs);
  void RaiseAlarm();
  template <class Done>
  bool WaitFor(std::uint64_t limitMs, Done done);
  void CheckSignal();
  [[nodiscard]] TEnd HowItEnded(bool ended);
  TReport Report(bool ended);

  const TShotOptions& FOptions;
  TConsole& FConsole;
  std::weak_ptr<IStateMotion> FRoot;  // the controller owns it
  std::atomic<std::uint64_t> FEnteredAt{kNever};
  std::atomic<std::uint64_t> FLeftAt{kNever};
  std::uint64_t FStartMs = 0;
  bool FStopSent = false;
  bool FAlarmSent = false;
  bool FSignalled = false;
  const TSignalStop* FSignal = nullptr;
  TSession FSession;  // ends first: its clock and its threads call in here
};

TSessionOptions TShot::SessionOptions(const TShotOptions& options, TConsole& console) {
  TSessionOptions session;
  session.MachineFile = MachineFile(options.Machine, options.State);
  session.LocaleFolder = FindDataFolders().Locale;
  session.AlarmFolder = FindDataFolders().Data / "alarms";
  session.Language = options.Language;
  session.Seed = options.Seed;
  session.Realtime = options.Realtime;
  session.Sinks = {&console};
  return session;
}

// --- on the state thread ---

void TShot::Entered(std::int32_t from, std::int32_t to) {
  if (to == nsCustomMotion) {
    FEnteredAt.store(Clock().MonotonicMs(), std::memory_order_release);
    AnnounceFirst();
  } else if (from == nsCustomMotion) {
    FLeftAt.store(Clock().MonotonicMs(), std::memory_order_release);
  }
}

// The steps report each advance; nobody advances to the first.
void TShot::AnnounceFirst() {
  const auto root = FRoot.lock();
  const auto* const composite = dynamic_cast<const TSmtComposite*>(root.get());
  if (!composite || composite->Descs().empty()) return;
  if (TDiag d{dlProgress})
    d("%d/%d: %s", 1, static_cast<int>(composite->Descs().size()), composite->Descs().front().c_str());
}

// --- the main thread; in virtual time from within each step of the clock ---

void TShot::Watch(std::uint64_t nowMs) {
  const std::uint64_t entered = FEnteredAt.load(std::memory_order_acquire);
  if (entered == kNever || FLeftAt.load(std::memory_order_acquire) != kNever || nowMs < entered) return;
  const std::uint64_t lasted = nowMs - entered;
  if (FOptions.StopAt && lasted >= *FOptions.StopAt && !std::exchange(FStopSent, true)) FSession.Framework().Stop();
  if (FOptions.AlarmAt && lasted >= *FOptions.AlarmAt && !std::exchange(FAlarmSent, true)) RaiseAlarm();
}

void TShot::RaiseAlarm() { FSession.Machine().RaiseAlarm({"TPHost", SAskedAlarm.Get(), 1}, TSimForbids{.Move = true}); }

void TShot::CheckSignal() {
  if (!FSignal || !FSignal->Asked() || std::exchange(FSignalled, true)) return;
  LogMsg(lkWarning, 0, SSignalStop.Get(), "TPHost");
  FSession.Framework().Stop();
}

// True when `done` came within the limit.
template <class Done>
bool TShot::WaitFor(std::uint64_t limitMs, Done done) {
  const std::uint64_t end = Clock().MonotonicMs() + limitMs;
  while (!done()) {
    if (Clock().MonotonicMs() >= end) return false;
    if (FSession.VirtualClock()) {
      FSession.RunPass();
    } else {
      Clock().Sleep(kLookEveryMs);
      Watch(Clock().MonotonicMs());
      CheckSignal();
    }
  }
  return true;
}

TReport TShot::Run() {
  FStartMs = Clock().MonotonicMs();
  FConsole.SetStart(FStartMs);
  TLogService::Listen(FConsole.Mask());
  for (const std::string& notice : FSession.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  FSession.OnState([this](std::int32_t from, std::int32_t to) { Entered(from, to); });
  std::optional<TSignalStop> signal;
  if (TVirtualClock* clock = FSession.VirtualClock()) {
    clock->OnStep([this](std::uint64_t nowMs) { Watch(nowMs); });
  } else {
    FSignal = &signal.emplace();
    FSession.StartThreads();
  }
  FConsole.Say(Show(SShotTitle, SLaserOnTimeDesc.Get(), ShownMs(FOptions.Ms)));

  TNcStateFramework& framework = FSession.Framework();
  if (!WaitFor(kReadyWithinMs, [&] { return framework.Watch().Pass.load() > 0 && !framework.SafePending(); }))
    throw THostError(kExitDevice, "the machine does not acknowledge standby: laser or emission stays on");
  if (FSignalled) return Report(true);
  auto root = ShareRoot(MakeShot(static_cast<std::uint32_t>(FOptions.Ms)));
  FRoot = root;
  if (std::string reason; !FSession.Start(std::move(root), &reason)) throw THostError(kExitDevice, reason);

  const bool ended = WaitFor(FOptions.Ms + kSpareMs, [&] { return !FSession.Running(); });
  if (!ended) {
    framework.Stop();
    WaitFor(kReadyWithinMs, [&] { return !FSession.Running(); });
  }
  WaitFor(kReadyWithinMs, [&] { return !framework.SafePending(); });
  WaitFor(kTailMs, [] { return false; });
  return Report(ended);
}

TEnd TShot::HowItEnded(bool ended) {
  if (!ended) return {"unfinished", SEndNever.Get()};
  if (FEnteredAt.load() == kNever)
    return FSignalled ? TEnd{"stopped", SEndStopped.Get()} : TEnd{"refused", SEndRefused.Get()};
  const TMotionOutcome& outcome = FSession.Controller().Outcome();
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

TReport TShot::Report(bool ended) {
  TReport report;
  report.End = HowItEnded(ended);
  report.ExecOK = TCustomMotionState::GetExecOK(TSmtLaserOnTimeState::Cmd, false);
  const auto shown = FSession.Machine().Snapshot();
  report.Dark = !shown.Laser && !shown.Emission;

  const std::uint64_t now = Clock().MonotonicMs();
  const std::uint64_t entered = FEnteredAt.load();
  const std::uint64_t left = std::min(FLeftAt.load(), now);
  if (entered != kNever) {
    report.DurationMs = left - entered;
    const TMotionOutcome& outcome = FSession.Controller().Outcome();
    report.Path = outcome.Path;
    report.Fault = outcome.Fault;
    report.NextState = outcome.NextState;
  }
  const TSignals signals = FSession.Gate().Journal().Signals();
  const TTimeline timeline(signals.Items(), FStartMs, now);
  report.Timeline = timeline.Json();
  report.Journal = FSession.Gate().Journal().Lines();

  auto& lines = report.Lines;
  if (FOptions.StopAt && !FStopSent) lines.push_back(Show(SShotTooEarly, "--stop-at", ShownMs(*FOptions.StopAt)));
  if (FOptions.AlarmAt && !FAlarmSent) lines.push_back(Show(SShotTooEarly, "--alarm-at", ShownMs(*FOptions.AlarmAt)));
  if (const auto dropped = FSession.Logs().Dropped(); dropped > 0)
    lines.push_back(Show(SLinesDropped, ShownMs(dropped)));
  if (!report.Dark) lines.emplace_back(SShotNotDark.Get());
  lines.emplace_back();
  for (std::string& line : timeline.Draw()) lines.push_back(std::move(line));
  lines.emplace_back();
  lines.push_back(Format("CustomMotionStateExecOK515 = %s", report.ExecOK ? "true" : "false"));
  lines.push_back(Show(SShotEnded, report.End.Words.c_str(), ShownMs(report.DurationMs)));
  return report;
}

// The diagnostic channel is the process's; whatever ends the shot, it is silent afterwards.
struct TListenEnd {
  ~TListenEnd() { TLogService::Listen(0); }
};

}  // namespace

int RunShot(const TShotOptions& options, std::ostream& out) {
  if (options.Ms > kShotLongestMs) throw THostError(kExitCommandLine, "a shot of this length is not possible");
  const TListenEnd listenEnd;
  TConsole console(out, options.Json, options.Trace);
  const TReport report = TShot(options, console).Run();  // the session's end writes the last lines of the log
  for (const std::string& line : report.Lines) console.Say(line);
  if (options.Json) {
    console.Print({{"command", "shot"},
                   {"ms", options.Ms},
                   {"seed", options.Seed},
                   {"outcome", report.End.Name},
                   {"words", report.End.Words},
                   {"execOK", report.ExecOK},
                   {"durationMs", report.DurationMs},
                   {"dark", report.Dark},
                   {"path", report.Path},
                   {"fault", report.Fault},
                   {"nextState", report.NextState},
                   {"log", console.Log()},
                   {"timeline", report.Timeline},
                   {"journal", report.Journal}});
  }
  return report.ExecOK && report.Dark ? kExitSuccess : kExitOtherwise;
}

void AddShotCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TShotOptions>();
  CLI::App* const shot = program.add_subcommand("shot", "Run one timed laser shot on the simulated machine");
  // Its upper bound is another option's value, so it is judged when all are known.
  const auto ms = std::make_shared<std::string>(std::to_string(options->Ms));
  shot->add_option("--ms", *ms, "How long the beam is on, 0 to --limit")->type_name("MS")->capture_default_str();
  AddNumberOption(*shot, "--limit", options->LimitMs, 1, kShotLongestMs, "ms",
                  "The longest shot accepted, 1 to 64000; the supervisor (LaserOnLimitMs of the machine file) and the "
                  "latch (65 s) end a beam")
      ->capture_default_str();
  const auto trigger = [&](const char* name, std::optional<std::uint64_t> TShotOptions::*member, const char* text) {
    const auto value = std::make_shared<std::uint64_t>(0);
    AddNumberOption(*shot, name, *value, 0, kTriggerLimitMs, "ms", text)->each([options, member, value](std::string s) {
      *value = std::stoull(s);
      (*options).*member = *value;
    });
  };
  trigger("--stop-at", &TShotOptions::StopAt, "Stop this long after the procedure was entered, 0 to 600000");
  trigger("--alarm-at", &TShotOptions::AlarmAt,
          "Raise an alarm that forbids all motion this long after the procedure was entered, 0 to 600000");
  shot->add_flag("--realtime", options->Realtime, "Run on the real clock; Ctrl-C stops the shot");
  shot->add_flag("--json", options->Json, "Print one JSON document instead of text");
  shot->add_flag("--trace", options->Trace, "Show the whole diagnostic channel");
  AddSeedOption(*shot, options->Seed);
  AddMachineOptions(*shot, options->Machine, options->State);
  AddLanguageOption(*shot, options->Language);
  shot->footer(
      "Times are those of the simulated machine, which run as fast as the computer can unless --realtime is given.\n"
      "\n"
      "Exit codes: 0 the shot succeeded, 1 it ended otherwise, 2 wrong command line, 3 a file or device problem.\n"
      "\n"
      "Examples:\n"
      "  ixocut shot\n"
      "  ixocut shot --ms 500 --stop-at 300\n"
      "  ixocut shot --ms 2000 --realtime --lang en\n"
      "  ixocut shot --json --seed 7 > shot.json\n"
      "\n"
      "Software is not the emergency stop.");
  shot->callback([options, ms, &run] {
    run = [options, ms] {
      if (const std::string problem = CheckNumber(*ms, 0, options->LimitMs, "ms"); !problem.empty())
        throw THostError(kExitCommandLine, "--ms: " + problem +
                                               Format("; --limit raises the upper bound to at most %llu ms",
                                                      static_cast<unsigned long long>(kShotLongestMs)));
      options->Ms = std::stoull(*ms);
      return RunShot(*options, std::cout);
    };
  });
}

}  // namespace ixocamglue
