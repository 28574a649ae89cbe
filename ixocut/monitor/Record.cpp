// `ixocut record`: runs a procedure on the simulated machine, in virtual time, and records it into a monitor file.
#include <exception>
#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/HostTexts.h"
#include "controller/StateFolder.h"
#include "controller/procedures/Procedures.h"
#include "controller/recordings/Recorder.h"
#include "ixocamglue/monitor/Statusmonitorsys.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Console.h"
#include "ixocut/Machines.h"
#include "machines/simulated/Machine.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::uint64_t kReadyWithinMs = 5'000;
constexpr std::uint64_t kLongestMs = 600'000;
constexpr std::uint64_t kTailMs = 200;  // recorded after the end

struct TRecordOptions {
  std::string Procedure;
  std::string Signals;  // empty: all
  std::string Out;
  bool Json = false;
  std::uint64_t Seed = 1;
  std::optional<std::filesystem::path> Machine, State;
  std::string Language = "zh";
};

struct TListenEnd {
  ~TListenEnd() { TLogService::Listen(0); }
};

// Samples with each step of the session's clock. A failure ends the sampling, not the procedure, and is kept.
class TSampling {
 public:
  TSampling(TController& session, TRecorder& recorder) : FClock(*session.VirtualClock()) {
    FHandle = FClock.OnStep([this, &session, &recorder](std::uint64_t) {
      if (FFailure) return;
      try {
        recorder.Sample(session.Machine().Snapshot());
      } catch (...) {
        FFailure = std::current_exception();
      }
    });
  }
  ~TSampling() { FClock.Remove(FHandle); }
  TSampling(const TSampling&) = delete;
  TSampling& operator=(const TSampling&) = delete;
  void Rethrow() const {
    if (FFailure) std::rethrow_exception(FFailure);
  }

 private:
  TVirtualClock& FClock;
  std::size_t FHandle = 0;
  std::exception_ptr FFailure;
};

std::string Words(const TController& session, bool ended, const TMotionOutcome& outcome) {
  if (!ended || session.Running()) return SEndNever.Get();
  switch (outcome.Type) {
    case metSuccess: return SEndSuccess.Get();
    case metStop: return SEndStopped.Get();
    case metPause: return SEndPaused.Get();
    case metAlarm: return SEndAlarm.Get();
    case metError: break;
  }
  const std::string why = outcome.Path + (outcome.Fault.empty() ? "" : ": " + outcome.Fault);
  return Show(SEndError, why.c_str());
}

std::string ProcedureNames() {
  std::string names;
  for (const TProcedure& procedure : Procedures()) names += (names.empty() ? "" : ", ") + std::string(procedure.Name);
  return names;
}

int RunRecord(const TRecordOptions& options, std::ostream& out) {
  const TProcedure* const procedure = FindProcedure(options.Procedure);
  if (!procedure)
    throw EProblem(pbRequest, (options.Procedure.empty() ? std::string("--procedure is missing")
                                                         : "\"" + options.Procedure + "\" is no procedure") +
                                  "; the procedures are: " + ProcedureNames());
  if (options.Out.empty()) throw EProblem(pbRequest, "--out is missing: the file to write");
  const auto signals = options.Signals.empty() ? AllSignals() : ParseSignals(options.Signals);

  const TListenEnd listenEnd;
  TConsole console(out, options.Json, false);
  TControllerOptions settings;
  settings.Machines = Machines();
  settings.MachineFile = MachineFile(options.Machine, options.State);
  settings.LocaleFolder = ShareFolder() / "locale";
  settings.Language = options.Language;
  settings.Seed = options.Seed;
  settings.Sinks = {&console};
  TController session(settings);
  TLogService::Listen(console.Mask());
  for (const std::string& notice : session.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  if (procedure->Prepare) procedure->Prepare(Simulated(session.Machine()));

  // Opened before anything moves: what cannot be written is not worth a run.
  TMonitorFileSink sink(options.Out);
  std::vector<std::string> motors;
  const TStatusMonitorSys status;
  status.GetMotorNames(motors, status.GetMotorCount() - 1);
  TMonitorWriter writer(sink, motors);
  TRecorder recorder(writer, signals);

  const std::uint64_t ready = session.VirtualClock()->MonotonicMs() + kReadyWithinMs;
  do session.RunPass();
  while (session.Framework().SafePending() && session.VirtualClock()->MonotonicMs() < ready);
  const TSampling sampling(session, recorder);
  const std::uint64_t start = session.VirtualClock()->MonotonicMs();
  if (std::string reason; !session.Start(ShareRoot(procedure->Make()), &reason)) throw EProblem(pbUnusable, reason);
  const bool ended = session.RunToEnd(kLongestMs);
  const std::uint64_t lasted = session.VirtualClock()->MonotonicMs() - start;
  if (!ended) {
    session.Framework().Stop();
    (void)session.RunToEnd(kReadyWithinMs);
  }
  session.RunFor(kTailMs);
  sampling.Rethrow();
  recorder.Finish();
  sink.Commit();

  const TMotionOutcome outcome = session.MotionState().Outcome();
  const bool success = ended && outcome.Type == metSuccess;
  const std::string words = Words(session, ended, outcome);
  console.Say("");
  console.Say(Show(SShotEnded, words.c_str(), ShownMs(lasted)));
  console.Say(options.Out);
  if (options.Json)
    console.Print({{"command", "record"},
                   {"procedure", procedure->Name},
                   {"seed", options.Seed},
                   {"success", success},
                   {"words", words},
                   {"durationMs", lasted},
                   {"file", options.Out},
                   {"signals", signals.size()},
                   {"samples", recorder.Samples()},
                   {"log", console.Log()}});
  return success ? kExitSuccess : kExitOtherwise;
}

}  // namespace

void AddRecordCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TRecordOptions>();
  CLI::App* const record = program.add_subcommand("record", "Record a procedure on the simulated machine");
  record->add_option("--procedure", options->Procedure, "The procedure: " + ProcedureNames())->type_name("NAME");
  record->add_option("--signals", options->Signals, "What to record, separated by commas (default: everything)")
      ->type_name("LIST");
  record->add_option("--out", options->Out, "The monitor file to write; a file that is there is replaced")
      ->type_name("FILE");
  record->add_flag("--json", options->Json, "Print one JSON document instead of text");
  AddSeedOption(*record, options->Seed);
  AddMachineOptions(*record, options->Machine, options->State);
  AddLanguageOption(*record, options->Language);
  std::string signals = "Signals (with .1 to .4 behind the name one axis: X, Y, Z, Focus):\n";
  for (const TMonitorSignal& signal : MonitorSignals())
    signals += Format("  %-16s %s%s%s\n", signal.Name, signal.PerAxis ? "per axis" : "one", *signal.Unit ? ", " : "",
                      signal.Unit);
  record->footer(signals +
                 "\n"
                 "One sample per ms of machine time, until 200 ms after the end. Speeds and accelerations are derived\n"
                 "from the positions through the moving-average filter.\n"
                 "\n"
                 "Exit codes: 0 the procedure succeeded, 1 it ended otherwise (the file is written all the same),\n"
                 "2 wrong command line, 3 a file or device problem.\n"
                 "\n"
                 "Examples:\n"
                 "  ixocut record --procedure square --out square.csv\n"
                 "  ixocut record --procedure gas-purge --signals gas-pressure,state --out gas.csv\n"
                 "  ixocut monitor plot square.csv --out square.svg\n"
                 "\n"
                 "Software is not the emergency stop.");
  record->callback([options, &run] { run = [options] { return RunRecord(*options, std::cout); }; });
}

}  // namespace ixocut
