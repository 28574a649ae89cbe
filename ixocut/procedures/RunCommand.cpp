// `ixocut run`: one procedure, one motion command or a file of them, on the simulated machine.
#include <algorithm>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/procedures/RunReport.h"
#include "controller/procedures/SequenceFile.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Plot.h"
#include "ixocut/procedures/Asked.h"
#include "ixocut/procedures/RunPlot.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kStatusEveryMs = 1000;
constexpr std::uint64_t kTerminalEveryMs = 100;
constexpr std::uint64_t kShareOfStep = 10;
constexpr std::uint64_t kLongestMs = 86'400'000;  // a day

struct TRunOptions : TRunSettings {
  std::string Name;   // of the procedure, or the file
  TParamTexts Texts;  // of the procedure's options
  std::string Plot;
  std::uint64_t LimitMs = 600'000;
  bool Journal = false;
  bool SaveCalibration = false;
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

// In virtual time within each ms of the clock, else every few ms on the main thread.
class TObserver {
 public:
  TObserver(TProcedureRun& run, TConsole& console, const TRunOptions& options)
      : FRun(run),
        FConsole(console),
        FQuiet(options.Json),
        FEveryMs(console.OnTerminal() ? kTerminalEveryMs : kStatusEveryMs) {}

  void Look(std::uint64_t nowMs) {
    const TMachineSnapshot now = FRun.Controller().Machine().Snapshot();
    FTrace.Sample(now);
    const std::uint64_t begun = FRun.Steps().Begun();
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
  [[nodiscard]] const TMotionTrace& Trace() const { return FTrace; }

 private:
  TProcedureRun& FRun;
  TConsole& FConsole;
  const bool FQuiet;
  const std::uint64_t FEveryMs;
  TMotionTrace FTrace;
  std::uint64_t FBegun = 0;
  std::uint64_t FShownMs = 0;
  std::uint64_t FSteppedMs = 0;
  std::string FShown;
};

int Run(const TRunOptions& options, std::ostream& out) {
  if (!options.Plot.empty()) CheckPlotFile("--plot", options.Plot);
  const TJob job = JobOf(options, options.Limits());
  TConsole console(out, options.Json, options.Trace);
  nlohmann::ordered_json document{{"procedure", job.Name}, {"seed", options.Seed}};
  document["calls"] = nlohmann::ordered_json::array();
  for (const TMotionCall& call : job.Calls) document["calls"].push_back(call.Text());
  std::vector<std::string> lines;
  std::optional<EProblem> plotFailed;  // told behind the report
  const std::optional<TProblem> problem = [&] {
    const auto run = MakeRun(options, options, console);
    console.Say(job.Title);
    TObserver observer(*run, console, options);
    run->OnLook([&](std::uint64_t nowMs) { observer.Look(nowMs); });
    const auto make = [&] {
      TStepPtr root = MakeRoot(job.Name, job.Calls);
      if (TNcParams* const params = NcParams(); params && options.SaveCalibration)
        params->SetInt("AutoSaveCaliResult", 1);
      return root;
    };
    const TRunReport report = run->Run(make, options.LimitMs);
    const TMachineSnapshot last = run->Controller().Machine().Snapshot();
    lines = ReportLines(report, observer.Trace(), last, options.Journal);
    if (options.Json) document.update(ReportJson(report, observer.Trace(), last));
    if (!options.Plot.empty()) {
      try {
        PlotRun(report, observer.Trace(), job.Title, options.Plot);
        lines.push_back(options.Plot);
      } catch (const EProblem& e) {
        plotFailed = e;
      }
    }
    return report.Problem;
  }();
  for (const std::string& line : lines) console.Say(line);
  if (options.Json) {
    document["log"] = console.Log();
    console.Print("run", document, problem);
  }
  if (plotFailed) throw *plotFailed;
  return problem ? kExitOtherwise : kExitSuccess;
}

// --- the command line ---

void AddRow(CLI::App& run, const TProcedure& row, const std::shared_ptr<TRunOptions>& options) {
  CLI::App* const sub = run.add_subcommand(row.Name, Tr(row.Summary))->fallthrough()->group(Tr("Procedures"));
  for (const TMotionParam& param : row.Params) {
    std::string text = Tr(param.Summary);
    if (param.Bound.Kind == bkFixed) text += ", " + BoundText(param.Bound);
    if (param.Need == TMotionParam::Optional && !std::isnan(param.Default))
      text += Format(Tr("; default %s"), ParamText(param, param.Default).c_str());
    const std::string unit = UnitText(param.Unit);
    sub->add_option_function<std::string>(
           std::string("--") + param.Name,
           [options, key = param.Name](const std::string& value) { options->Texts[key] = value; }, text)
        ->type_name(param.At.Kind == pkSwitch ? "true|false"
                    : unit.empty()            ? "N"
                                              : unit);
  }
  const std::string example = "ixocut run " + TMotionCall{&row, row.SampleValues(), {}}.Text();
  SetHelp(
      *sub,
      {.Notes = Tr("The options of `ixocut run` hold here as well."), .ExitCodes = {}, .Examples = {example.c_str()}});
}

}  // namespace

void AddRunCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TRunOptions>();
  CLI::App* const command = program.add_subcommand("run", Tr("Run a procedure, a motion command or a file of them"));
  command->require_subcommand(0, 1);
  command->add_option("FILE", options->Name, Tr("A JSON file of motion commands"));
  AddRunSettings(*command, *options);
  AddNumberOption(*command, "--limit", options->LimitMs, 1, kLongestMs, "ms",
                  Tr("Machine time after which the procedure is stopped, 1 to 86400000"))
      ->capture_default_str();
  command->add_option("--plot", options->Plot, Tr("Draw XY path, Z and signals"))->type_name("FILE.svg");
  command->add_flag("--journal", options->Journal, Tr("Show the machine's journal: every command and what came of it"));
  command
      ->add_flag("--save-calibration", options->SaveCalibration,
                 Tr("Save the results of height calibrations in the machine file"))
      ->each([options](const std::string&) { options->Saves = true; });
  for (const TProcedure* row : Procedures()) AddRow(*command, *row, options);
  SetHelp(
      *command,
      {.Notes = Tr("A file holds {\"name\": TEXT, \"commands\": [{\"command\": NUMBER or NAME, PARAMETER: VALUE, ...}, "
                   "...]}; it is\n"
                   "checked as a whole before anything moves. `ixocut procedures` lists the commands with parameters, "
                   "ranges, units.") +
                std::string("\n") + Tr(kTimesNote),
       .ExitCodes = {},
       .Examples = {"ixocut run safe-move --x 100 --y 50 --speed 300",
                    "ixocut run lubricate --count 2 --plot lubricate.svg",
                    "ixocut run gas-on --branch 2 --pressure 1.5", "ixocut run calibrate-head --realtime --lang en",
                    "ixocut run steps.json --journal"}});
  command->allow_extras();  // told below, with the name that was probably meant
  command->callback([options, command, &run] {
    const auto chosen = command->get_subcommands();
    auto extras = command->remaining(true);
    if (!chosen.empty()) {
      if (!options->Name.empty()) extras.push_back(options->Name);
      options->Name = chosen.front()->get_name();
    }
    if (options->Name.empty() && extras.empty())
      throw EProblem(pbRequest, Tr("a procedure or a file is needed; `ixocut procedures` lists the procedures"));
    run = [options, extras] {
      const auto option = std::ranges::find_if(extras, [](const std::string& e) { return e.starts_with("--"); });
      if (!extras.empty()) {
        const std::string extra = option != extras.end() ? *option : extras.front();
        if (const TProcedure* const row = FindProcedure(options->Name)) RefuseExtra(*row, extra);
        if (!options->Name.empty()) RequireFile(options->Name);
        throw EProblem(pbRequest, Format(Tr("%s was not expected"), extra.c_str()));
      }
      return Run(*options, std::cout);
    };
  });
}

}  // namespace ixocut
