// `ixocut run`: one procedure, one motion command or a file of them, on the simulated machine.
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "controller/procedures/MotionTable.h"
#include "controller/procedures/Procedures.h"
#include "controller/procedures/RunReport.h"
#include "controller/procedures/SequenceFile.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Plot.h"
#include "ixocut/procedures/RunPlot.h"
#include "machines/simulated/Machine.h"

namespace ixocut {
namespace {

constexpr std::int32_t kRunId = 990;  // the list that holds what was asked for
constexpr std::uint64_t kStatusEveryMs = 1000;
constexpr std::uint64_t kTerminalEveryMs = 100;
constexpr std::uint64_t kShareOfStep = 10;
constexpr std::uint64_t kLongestMs = 86'400'000;  // a day

struct TRunOptions : TRunSettings {
  std::string Name;                          // of the procedure, or the file
  std::map<std::string, std::string> Texts;  // of the procedure's options
  std::string Variant;
  std::string Plot;
  std::uint64_t LimitMs = 600'000;
  bool Journal = false;
  bool SaveCalibration = false;
};

// What runs: calls of the table, or a procedure that is put together elsewhere.
struct TJob {
  std::string Title;
  std::string Name;
  std::vector<TMotionCall> Calls;
  const TProcedure* Procedure = nullptr;
};

// --- what was asked for ---

std::vector<std::string> KnownNames() {
  std::vector<std::string> names;
  for (const TMotionRow& row : MotionRows())
    if (std::ranges::find(names, row.Name) == names.end()) names.emplace_back(row.Name);
  return names;
}

[[noreturn]] void RefuseName(const std::string& name) {
  TNearestName nearest(name);
  std::vector<std::string> usages;
  for (const TMotionRow& row : MotionRows()) usages.push_back(row.Usage());
  for (const std::string& usage : usages) nearest.Consider(usage);
  for (const TProcedure& procedure : Procedures()) nearest.Consider(procedure.Name);
  throw EProblem(pbRequest, "\"" + name + "\" is neither a procedure nor a file; " +
                                (nearest.Found().empty() ? "`ixocut procedures` lists them"
                                                         : "did you mean \"" + std::string(nearest.Found()) + "\"?"));
}

const TMotionRow& RowOf(const TRunOptions& options) {
  const TMotionRow* const row =
      FindMotionRow(options.Variant.empty() ? options.Name : options.Name + "-" + options.Variant);
  if (row) return *row;
  std::string usages;
  for (const TMotionRow& r : MotionRows())
    if (r.Name == options.Name) usages += (usages.empty() ? "" : " and ") + r.Usage();
  throw EProblem(pbRequest, "one of " + usages + " is needed");
}

TMotionCall CallOf(const TRunOptions& options, const TMotionLimits& limits) {
  const TMotionRow& row = RowOf(options);
  TMotionCall call{&row, TMotionValues(row.Params.size()), {}};
  for (const auto& [name, text] : options.Texts) {
    const auto param =
        std::ranges::find(row.Params, name, [](const TMotionParam& p) { return std::string_view(p.Name); });
    if (param == row.Params.end()) throw EProblem(pbRequest, "--" + name + ": is no option of " + row.Usage());
    double value = 0.0;
    if (const std::string problem = limits.Parse(*param, text, value); !problem.empty())
      throw EProblem(pbRequest, "--" + name + ": " + problem);
    call.Values[static_cast<std::size_t>(param - row.Params.begin())] = value;
  }
  if (const std::string missing = TMotionLimits::CheckNeeds(row, call.Values, "--"); !missing.empty())
    throw EProblem(pbRequest, row.Usage() + ": " + missing);
  return call;
}

TJob JobOf(const TRunOptions& options, const TMotionLimits& limits) {
  const auto names = KnownNames();
  if (std::ranges::find(names, options.Name) != names.end()) {
    TMotionCall call = CallOf(options, limits);
    const std::string text = call.Text();
    return {text, call.Row->FullName(), {std::move(call)}, nullptr};
  }
  if (const TProcedure* const procedure = FindProcedure(options.Name))
    return {procedure->Name, procedure->Name, {}, procedure};
  const bool looksLikeFile = options.Name.ends_with(".json") || options.Name.find('/') != std::string::npos;
  if (std::error_code error; !looksLikeFile && !std::filesystem::exists(options.Name, error)) RefuseName(options.Name);
  TSequenceFile sequence = ReadSequenceFile(options.Name, limits);
  return {sequence.Name, sequence.Name, std::move(sequence.Calls), nullptr};
}

// --- the tree ---

TSequenceItem ItemOf(const TMotionCall& call) {
  TSequenceItem item;
  const TStepPtr sample = call.Make(nullptr);  // throws here what cannot be made, before anything moves
  item.Desc = call.Desc.empty() ? sample->GetDesc() : call.Desc;
  item.Command = call.Row->Command;
  if (call.Row->Make)
    item.Make = [call](TCustomMotionState* ctrl) { return call.Make(ctrl); };
  else
    item.Configure = [call](TStateMotion& step) { call.Configure(step); };
  return item;
}

// A procedure stands for itself; single commands become a list, whose leave protects the machine.
TStepPtr RootOf(const TJob& job) {
  if (job.Procedure) return job.Procedure->Make();
  if (job.Calls.size() == 1)
    if (TStepPtr step = job.Calls.front().Make(nullptr); !step->IsAtomic()) return step;
  std::vector<TSequenceItem> items;
  for (const TMotionCall& call : job.Calls) items.push_back(ItemOf(call));
  auto sequence = MakeStepOf<TSmtSequence>(nullptr);
  sequence->Define(kRunId, job.Name, std::move(items));
  return sequence;
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
  if (!options.Plot.empty()) {
    CheckPlotName("--plot", options.Plot);
    const auto folder = std::filesystem::absolute(options.Plot).parent_path();
    if (std::error_code error; !std::filesystem::is_directory(folder, error))
      throw EProblem(pbUnusable, "--plot: " + folder.string() + " is no folder");
  }
  const TJob job = JobOf(options, TMotionLimits::OfMachine(MachineFile(options.Machine, options.State)));
  TConsole console(out, options.Json, options.Trace);
  nlohmann::ordered_json document{{"command", "run"}, {"procedure", job.Name}, {"seed", options.Seed}};
  document["calls"] = nlohmann::ordered_json::array();
  for (const TMotionCall& call : job.Calls) document["calls"].push_back(call.Text());
  std::vector<std::string> lines;
  std::optional<EProblem> plotFailed;  // told behind the report
  const bool success = [&] {
    TProcedureRun run(options, console);
    TObserver observer(run, console, options);
    run.OnLook([&](std::uint64_t nowMs) { observer.Look(nowMs); });
    if (job.Procedure && job.Procedure->Prepare) job.Procedure->Prepare(Simulated(run.Controller().Machine()));
    const auto make = [&] {
      TStepPtr root = RootOf(job);
      if (TNcParams* const params = NcParams(); params && options.SaveCalibration)
        params->SetInt("AutoSaveCaliResult", 1);
      return root;
    };
    const TRunReport report = run.Run(job.Title, make, options.LimitMs);
    const TMachineSnapshot last = run.Controller().Machine().Snapshot();
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
    return report.Success();
  }();
  for (const std::string& line : lines) console.Say(line);
  if (options.Json) {
    document["log"] = console.Log();
    console.Print(document);
  }
  if (plotFailed) throw *plotFailed;
  return success ? kExitSuccess : kExitOtherwise;
}

// --- the command line ---

// What nobody expects on the command line of this procedure or file.
[[noreturn]] void RefuseExtra(const std::string& name, const std::string& extra) {
  const auto names = KnownNames();
  const bool known = std::ranges::find(names, name) != names.end();
  std::error_code error;
  if (!known && !name.empty() && !FindProcedure(name) && !std::filesystem::exists(name, error)) RefuseName(name);
  TNearestName nearest(extra);
  std::vector<std::string> candidates;
  for (const TMotionRow& row : MotionRows())
    if (row.Name == name)
      for (const TMotionParam& param : row.Params) candidates.push_back(std::string("--") + param.Name);
  for (const std::string& candidate : candidates) nearest.Consider(candidate);
  throw EProblem(pbRequest,
                 (known ? name + ": " : "") + extra + " was not expected" +
                     (nearest.Found().empty() ? "" : "; did you mean " + std::string(nearest.Found()) + "?"));
}

// The options of one name: those of all its variants.
void AddRows(CLI::App& run, const std::string& name, const std::shared_ptr<TRunOptions>& options) {
  std::string summary;
  std::vector<std::string> variants;
  std::vector<const TMotionRow*> rows;
  for (const TMotionRow& row : MotionRows()) {
    if (row.Name != name) continue;
    rows.push_back(&row);
    summary += (summary.empty() ? "" : "; ") + std::string(row.Summary);
    if (*row.Variant) variants.emplace_back(row.Variant);
  }
  CLI::App* const sub = run.add_subcommand(name, summary)->fallthrough();
  sub->group("Procedures");
  std::vector<std::string> known;
  for (const TMotionRow* row : rows) {
    for (const TMotionParam& param : row->Params) {
      if (std::ranges::find(known, param.Name) != known.end()) continue;
      known.emplace_back(param.Name);
      std::string text = param.Summary;
      if (param.Range == prFixed && param.Kind != pkSwitch)
        text += Format(", %s..%s", ParamText(param, param.Lowest).c_str(), ParamText(param, param.Highest).c_str());
      if (param.Need == TMotionParam::Optional && !std::isnan(param.Default))
        text += "; default " + ParamText(param, param.Default);
      sub->add_option_function<std::string>(
             "--" + known.back(),
             [options, key = known.back()](const std::string& value) { options->Texts[key] = value; }, text)
          ->type_name(param.Kind == pkSwitch ? "true|false"
                      : *param.Unit          ? param.Unit
                                             : "N");
    }
    if (*row->Variant && row->VariantIsFlag)
      sub->add_flag_callback(
          std::string("--") + row->Variant,
          [options, variant = std::string(row->Variant)] {
            if (!options->Variant.empty() && options->Variant != variant)
              throw EProblem(pbRequest, "--" + variant + " excludes --" + options->Variant);
            options->Variant = variant;
          },
          row->Summary);
  }
  if (!variants.empty() && !rows.front()->VariantIsFlag)
    sub->add_option("WHERE", options->Variant, "Where to")->check(CLI::IsMember(variants));
  sub->footer("The options of `ixocut run` hold here as well.");
}

}  // namespace

void AddRunCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TRunOptions>();
  CLI::App* const command = program.add_subcommand("run", "Run a procedure, a motion command or a file of them");
  command->require_subcommand(0, 1);
  command->add_option("FILE", options->Name, "A JSON file of motion commands, or a procedure of `ixocut tree`");
  AddRunSettings(*command, *options, "procedure");
  AddNumberOption(*command, "--limit", options->LimitMs, 1, kLongestMs, "ms",
                  "Machine time after which the procedure is stopped, 1 to 86400000")
      ->capture_default_str();
  command->add_option("--plot", options->Plot, "Draw XY path, Z and signals")->type_name("FILE.svg");
  command->add_flag("--journal", options->Journal, "Show the machine's journal: every command and what came of it");
  command->add_flag("--save-calibration", options->SaveCalibration,
                    "Save the results of height calibrations in the machine file");
  for (const std::string& name : KnownNames()) AddRows(*command, name, options);
  command->footer(
      "A file holds {\"name\": TEXT, \"commands\": [{\"command\": NUMBER or NAME, PARAMETER: VALUE, ...}, ...]}; it "
      "is\n"
      "checked as a whole before anything moves. `ixocut procedures` lists the commands with parameters, ranges, "
      "units.\n"
      "Times are those of the simulated machine, which run as fast as the computer can unless --realtime is given.\n"
      "\n"
      "Exit codes: 0 success, 1 it ended otherwise, 2 wrong command line, 3 a file or device problem.\n"
      "\n"
      "Examples:\n"
      "  ixocut run safe-move --x 100 --y 50 --speed 300\n"
      "  ixocut run lubricate --count 2 --plot lubricate.svg\n"
      "  ixocut run gas --on --branch 2 --pressure 1.5\n"
      "  ixocut run calibrate-head --realtime --lang en\n"
      "  ixocut run steps.json --journal\n"
      "\n"
      "Software is not the emergency stop.");
  command->allow_extras();  // told below, with the name that was probably meant
  command->callback([options, command, &run] {
    const auto chosen = command->get_subcommands();
    auto extras = command->remaining(true);
    if (!chosen.empty()) {
      if (!options->Name.empty()) extras.push_back(options->Name);
      options->Name = chosen.front()->get_name();
    }
    if (options->Name.empty() && extras.empty())
      throw EProblem(pbRequest, "a procedure or a file is needed; `ixocut procedures` lists the procedures");
    run = [options, extras] {
      const auto option = std::ranges::find_if(extras, [](const std::string& e) { return e.starts_with("--"); });
      if (!extras.empty()) RefuseExtra(options->Name, option != extras.end() ? *option : extras.front());
      return Run(*options, std::cout);
    };
  });
}

}  // namespace ixocut
