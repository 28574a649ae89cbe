// `ixocut run`: one procedure, one motion command or a file of them.
#include <algorithm>

#include "controller/procedures/SequenceFile.h"
#include "controller/runs/RunReport.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/Plot.h"
#include "ixocut/client/Attach.h"
#include "ixocut/procedures/Asked.h"
#include "ixocut/procedures/RunPlot.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kStatusEveryMs = 1000;
constexpr std::uint64_t kTerminalEveryMs = 100;
constexpr std::uint64_t kShareOfStep = 10;
constexpr std::uint64_t kLongestLimitMs = 86'400'000;  // a day

struct TRunOptions : TRunSettings {
  std::string Name;       // of the procedure, or the file
  std::string Procedure;  // as it is named in the place of a command; empty: none is
  std::vector<std::string> Extras;
  TParamTexts Texts;  // of the procedure's options
  std::string Plot;
  std::uint64_t LimitMs = 600'000;
  bool Journal = false;
  bool SaveCalibration = false;
  bool Detach = false;
};

// What runs.
struct TJob {
  std::string Title;
  std::string Name;
  std::vector<TMotionCall> Calls;
};

// Throws unless the name is a file's.
void RequireFile(const std::string& name) {
  const bool looksLikeFile = name.ends_with(".json") || name.find('/') != std::string::npos;
  if (std::error_code error; looksLikeFile || std::filesystem::exists(name, error)) return;
  TProblem problem = AskProcedure(name).Problem();
  problem.What = Format(Tr("\"%s\" is neither a procedure nor a file"), name.c_str());
  throw EProblem(pbRequest, std::move(problem));
}

TJob JobOf(const TRunOptions& options, const TMachineLimits& machine) {
  if (const TProcedure* const row = FindProcedure(options.Name)) {
    TMotionCall call = CallAlone(*row, options.Texts, machine);
    const std::string text = call.Text();
    return {text, row->Name, {std::move(call)}};
  }
  RequireFile(options.Name);
  TSequenceFile sequence = ReadSequenceFile(options.Name, machine);
  return {sequence.Name, sequence.Name, std::move(sequence.Calls)};
}

// --- while it runs ---

// Told of each ms of machine time that somebody has looked at.
class TObserver {
 public:
  TObserver(TConsole& console, const TRunOptions& options)
      : FConsole(console), FQuiet(options.Json), FEveryMs(console.OnTerminal() ? kTerminalEveryMs : kStatusEveryMs) {}

  // `begun` rises with each step that begins.
  void Look(std::uint64_t nowMs, const TMachineSnapshot& now, std::uint64_t begun) {
    const bool stepped = begun != FBegun;
    if (stepped) FSteppedMs = nowMs;
    // A step of an hour does not fill the screen.
    const std::uint64_t pause = std::max(FEveryMs, FConsole.OnTerminal() ? 0 : (nowMs - FSteppedMs) / kShareOfStep);
    if (FQuiet || begun == 0 || (!stepped && nowMs < FShownMs + pause)) return;
    FBegun = begun;
    FShownMs = nowMs;
    std::string text = StatusText(now);
    if (!stepped && text == FShown) return;
    FShown = std::move(text);
    FConsole.Status(nowMs, FShown);
  }

 private:
  TConsole& FConsole;
  const bool FQuiet;
  const std::uint64_t FEveryMs;
  std::uint64_t FBegun = 0;
  std::uint64_t FShownMs = 0;
  std::uint64_t FSteppedMs = 0;
  std::string FShown;
};

// The report's lines, and the picture where one is wanted; why that could not be drawn is told behind the report.
struct TShown {
  std::vector<std::string> Lines;
  std::optional<EProblem> PlotFailed;

  void Plot(const TRunOptions& options, const TRunReport& report, const TMotionTrace& trace, const std::string& title) {
    if (options.Plot.empty()) return;
    try {
      PlotRun(report, trace, title, options.Plot);
      Lines.push_back(options.Plot);
    } catch (const EProblem& e) {
      PlotFailed = e;
    }
  }
};

int Finish(TConsole& console, const TShown& shown, nlohmann::ordered_json document,
           const std::optional<TProblem>& problem) {
  console.SayLines(shown.Lines);
  document["log"] = console.Log();
  const int exitCode = console.Print(document, problem);
  if (shown.PlotFailed) throw EProblem(*shown.PlotFailed);
  return exitCode;
}

nlohmann::ordered_json Document(const TRunOptions& options, const TJob& job) {
  nlohmann::ordered_json document{{"procedure", job.Name}, {"seed", options.Seed}};
  document["calls"] = nlohmann::ordered_json::array();
  for (const TMotionCall& call : job.Calls) document["calls"].push_back(call.Text());
  return document;
}

int RunHere(const TRunOptions& options, TConsole& console) {
  const TJob job = JobOf(options, options.Limits());
  nlohmann::ordered_json document = Document(options, job);
  TShown shown;
  const std::optional<TProblem> problem = [&] {
    const auto run = MakeRun(options, options, console);
    console.Say(job.Title);
    TMotionTrace trace;
    TObserver observer(console, options);
    run->OnLook([&](std::uint64_t nowMs) {
      const TMachineSnapshot now = run->Controller().Machine().Snapshot();
      trace.Sample(now);
      observer.Look(nowMs, now, run->Steps().Begun());
    });
    const auto make = [&] {
      TStepPtr root = MakeRoot(job.Name, job.Calls);
      if (TNcParams* const params = NcParams(); params && options.SaveCalibration)
        params->SetInt("AutoSaveCaliResult", 1);
      return root;
    };
    const TRunReport report = run->Run(make, options.LimitMs);
    const TMachineSnapshot last = run->Controller().Machine().Snapshot();
    shown.Lines = ReportLines(report, trace, last, options.Journal);
    if (options.Json) document.update(ReportJson(report, trace, last));
    shown.Plot(options, report, trace, job.Title);
    return report.Problem;
  }();
  return Finish(console, shown, std::move(document), problem);
}

std::string WireTitle(const TRunOptions& options) {
  std::string title = options.Name;
  for (const auto& [name, text] : options.Texts) title.append(" --").append(name).append(" ").append(text);
  return title;
}

// In the controller that runs.
int RunThere(const TRunOptions& options, TWireClient& client, TConsole& console) {
  const bool isProcedure = FindProcedure(options.Name) != nullptr;
  if (!isProcedure) RequireFile(options.Name);
  nlohmann::ordered_json body =
      isProcedure ? ProcedureBody(options.Name, options.Texts, options) : SequenceBody(options.Name, options);
  body["limitMs"] = options.LimitMs;
  if (options.SaveCalibration) body["saveCalibration"] = true;
  const TOperatorTexts texts(console);
  console.Say(WireTitle(options));
  TObserver observer(console, options);
  const TWireRun run = RunOnConsole(
      client, {.Body = body, .Detach = options.Detach}, console,
      [&](std::uint64_t ms, const TMachineSnapshot& now, std::uint64_t begun) { observer.Look(ms, now, begun); });
  nlohmann::ordered_json document{{"run", run.Id}};
  TShown shown;
  if (options.Detach) {
    shown.Lines = {Format(Tr("run %llu goes on in the controller"), static_cast<unsigned long long>(run.Id))};
    return Finish(console, shown, std::move(document), {});
  }
  if (options.Journal) shown.Lines = run.Report.Journal;
  for (const auto& line : run.Json.at("lines")) shown.Lines.push_back(line);
  document.update(run.Json);
  document.erase("lines");
  if (!options.Plot.empty()) shown.Plot(options, run.Report, TraceOf(client, run.Id), WireTitle(options));
  return Finish(console, shown, std::move(document), run.Report.Problem);
}

int Run(TRunOptions options, TConsole& console) {
  if (!options.Plot.empty()) CheckPlotFile("--plot", options.Plot);
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return RunThere(options, *client, console);
  if (options.Detach) (void)attachment.Controller();
  return RunHere(options, console);
}

// --- the command line ---

int RunAsked(TRunOptions options, TConsole& console) {
  std::vector<std::string> extras = options.Extras;
  if (!options.Procedure.empty()) {
    if (!options.Name.empty()) extras.push_back(options.Name);
    options.Name = options.Procedure;
  }
  if (options.Name.empty() && extras.empty())
    throw EProblem(pbRequest, Tr("a procedure or a file is needed; `ixocut procedures` lists the procedures"));
  if (!extras.empty()) {
    const auto option = std::ranges::find_if(extras, [](const std::string& e) { return e.starts_with("--"); });
    const std::string extra = option != extras.end() ? *option : extras.front();
    if (const TProcedure* const row = FindProcedure(options.Name)) RefuseExtra(*row, extra);
    if (!options.Name.empty()) RequireFile(options.Name);
    throw EProblem(pbRequest, Format(Tr("%s was not expected"), extra.c_str()));
  }
  options.Saves = options.SaveCalibration;
  return Run(options, console);
}

void AddRow(TCommand run, const TProcedure& row, TRunOptions& options) {
  const TCommand sub = run.AddVariant(row.Name, Tr(row.Summary), Tr("Procedures"), options.Procedure);
  for (const TMotionParam& param : row.Params) {
    std::string text = Tr(param.Summary);
    if (param.Bound.Kind == bkFixed) text += ", " + BoundText(param.Bound);
    if (param.Need == TMotionParam::Optional && !std::isnan(param.Default))
      text += Format(Tr("; default %s"), ParamText(param, param.Default).c_str());
    const std::string unit = UnitText(param.Unit);
    sub.Text(
        std::string("--") + param.Name,
        [&options, key = param.Name](const std::string& value) { options.Texts[key] = value; }, text,
        param.At.Kind == pkSwitch ? "true|false"
        : unit.empty()            ? "N"
                                  : unit);
  }
  const std::string example = "ixocut run " + TMotionCall{&row, row.SampleValues(), {}}.Text();
  sub.Help({.Notes = Tr("The options of `ixocut run` hold here as well."), .Examples = {example.c_str()}});
}

}  // namespace

void AddRunCommand(TCommand program) {
  auto [command, options] =
      AddOwn<TRunOptions>(program, "run", Tr("Run a procedure, a motion command or a file of them"), RunAsked);
  command.Text("FILE", options.Name, Tr("A JSON file of motion commands"), "TEXT");
  AddRunSettings(command, options);
  command
      .Number("--limit", options.LimitMs, 1, kLongestLimitMs, "ms",
              Tr("Machine time after which the procedure is stopped, 1 to 86400000"))
      .ShowDefault();
  command.Text("--plot", options.Plot, Tr("Draw XY path, Z and signals"), "FILE.svg");
  command.Flag("--journal", options.Journal, Tr("Show the machine's journal: every command and what came of it"));
  command.Flag("--save-calibration", options.SaveCalibration,
               Tr("Save the results of height calibrations in the machine file"));
  command.Flag("--detach", options.Detach,
               Tr("Return once it runs; nobody has to attend it then. Only with a controller that runs"));
  for (const TProcedure* row : Procedures()) AddRow(command, *row, options);
  command.Help(
      {.Notes = Tr("A file holds {\"name\": TEXT, \"commands\": [{\"command\": NUMBER or NAME, PARAMETER: VALUE, ...}, "
                   "...]}; it is\n"
                   "checked as a whole before anything moves. `ixocut procedures` lists the commands with parameters, "
                   "ranges, units.") +
                std::string("\n") + Tr(kTimesNote),
       .Examples = {"ixocut run safe-move --x 100 --y 50 --speed 300",
                    "ixocut run lubricate --count 2 --plot lubricate.svg",
                    "ixocut run gas-on --branch 2 --pressure 1.5", "ixocut run calibrate-head --realtime --lang en",
                    "ixocut run steps.json --journal"}});
  command.TakeExtras(options.Extras);  // told below, with the name that was probably meant
}

}  // namespace ixocut
