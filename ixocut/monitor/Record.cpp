// `ixocut record`: runs a procedure and records it into a monitor file.
#include "controller/recordings/LiveRecording.h"
#include "controller/runs/RunReport.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/ProblemAt.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/client/Attach.h"
#include "ixocut/monitor/MonitorCommands.h"
#include "ixocut/procedures/Asked.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kLongestMs = 600'000;
constexpr std::uint64_t kTailMs = 200;  // recorded after the end

struct TRecordOptions : TControllerSettings {
  std::string Procedure;
  std::vector<std::string> Params;
  std::string Signals;  // empty: all
  std::string Out;
};

void TellEnd(const TRunReport& report, const TRecordOptions& options, TConsole& console) {
  console.SayLines(report.Notes);
  console.Say("");
  console.Say(ClosingLine(report));
  console.Say(options.Out);
}

// On the controller that runs: it records, and its file is fetched.
int RecordThere(const TRecordOptions& options, const TProcedure& row, TWireClient& client, TConsole& console) {
  const TOperatorTexts texts(console);
  TWireRecording recording(client, options.Signals);
  const TWireRun run =
      RunOnConsole(client, {.Body = ProcedureBody(row.Name, ReadParams(row, options.Params))}, console, {});
  const std::uint64_t samples = recording.Stop();
  ReplaceOrThrow(options.Out, recording.File());
  TellEnd(run.Report, options, console);
  return console.Print({{"procedure", row.Name},
                        {"success", run.Report.Success()},
                        {"words", run.Report.End.Words},
                        {"durationMs", run.Report.DurationMs},
                        {"file", options.Out},
                        {"samples", samples},
                        {"log", console.Log()}},
                       run.Report.Problem);
}

int RunRecord(TRecordOptions options, TConsole& console) {
  if (options.Procedure.empty())
    throw EProblem(pbRequest, Format(Tr("--procedure is missing; the procedures are: %s"), ProcedureNames().c_str()));
  const TProcedure& row = *AskProcedure(options.Procedure).OrThrow(pbRequest);
  if (options.Out.empty()) throw EProblem(pbRequest, Tr("--out is missing: the file to write"));
  CheckMonitorTarget(options.Out);
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return RecordThere(options, row, *client, console);
  const auto signals = OrThrowAt(ParseSignals(options.Signals), pbRequest, "--signals");
  const TParamTexts texts = ReadParams(row, options.Params);
  const TMotionCall call = CallAlone(row, texts, options.Limits());

  const auto run = MakeRun(options, {}, console);
  // Opened before anything moves: what cannot be written is not worth a run.
  TLiveRecording recording(options.Out, signals, MotorNames());
  const auto sample = [&](std::uint64_t nowMs) { recording.Sample(nowMs, run->Controller().Machine().Snapshot()); };
  const auto make = [&] {
    TStepPtr root = MakeRoot(row.Name, {&call, 1});
    run->OnLook(sample);  // from standby on
    return root;
  };
  const TRunReport report = run->Run(make, kLongestMs, kTailMs);
  recording.Finish();

  TellEnd(report, options, console);
  return console.Print({{"procedure", row.Name},
                        {"seed", options.Seed},
                        {"success", report.Success()},
                        {"words", report.End.Words},
                        {"durationMs", report.DurationMs},
                        {"file", options.Out},
                        {"signals", recording.Signals()},
                        {"samples", recording.Samples()},
                        {"log", console.Log()}},
                       report.Problem);
}

}  // namespace

void AddRecordCommand(TCommand program) {
  auto [record, options] = AddOwn<TRecordOptions>(program, "record", Tr("Run a procedure and record it"), RunRecord);
  record.Text("--procedure", options.Procedure, Format(Tr("The procedure: %s"), ProcedureNames().c_str()), "NAME");
  record.Text("--signals", options.Signals, Tr("What to record, separated by commas (default: everything)"), "LIST");
  record.Text("--out", options.Out, Tr("The monitor file to write; a recording that is there is replaced"), "FILE");
  AddJsonOption(record, options.Json);
  AddControllerSettings(record, options);
  AddAttachOptions(record, options.Attach, true);
  std::string notes = Tr("Signals (with .1 to .4 behind the name one axis: X, Y, Z, Focus):\n");
  for (const TMonitorSignal& signal : MonitorSignals())
    notes += Format("  %-16s %s%s%s\n", signal.Name, signal.PerAxis ? Tr("per axis") : Tr("one"),
                    *signal.Unit ? ", " : "", signal.Unit);
  notes += '\n';
  notes +=
      Tr("The parameters of the procedure are given as for `ixocut run`.\n"
         "One sample per ms of machine time, until 200 ms after the end. Speeds and accelerations are derived\n"
         "from the positions through the moving-average filter.");
  record.Help({.Notes = notes,
               .ExitCodes = Tr("0 the procedure succeeded, 1 it ended otherwise (the file is written all the same),\n"
                               "2 wrong command line, 3 a file or device problem"),
               .Examples = {"ixocut record --procedure square --out square.csv",
                            "ixocut record --procedure safe-move --x 300 --y 200 --out move.csv",
                            "ixocut record --procedure gas-purge --signals gas-pressure,state --out gas.csv",
                            "ixocut monitor plot square.csv --out square.svg"}});
  record.TakeExtras(options.Params);
}

}  // namespace ixocut
