// `ixocut gas calibrate`.
#include <algorithm>
#include <unistd.h>

#include "commandline/OutputFile.h"
#include "controller/client/WireGas.h"
#include "controller/gas/GasRun.h"
#include "controller/gasvalve/GasRecording.h"
#include "controller/texts/GasTexts.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/Plot.h"
#include "ixocut/client/Attach.h"
#include "ixocut/gas/GasCommand.h"
#include "ixocut/gas/GasPlot.h"

namespace ixocut {
namespace {

constexpr int kBarWidth = 24;
constexpr std::size_t kGasWidth = 8;
constexpr double kBarLineEvery = 10.0;  // %, where the bar cannot be drawn over itself

struct TCalibrateOptions : TControllerSettings {
  std::string Gases;
  TGasNozzle Nozzle;
  std::string Plot, Record;
  std::string Method = "exact";
  bool Descend = false;
  bool Keep = false;
  bool Journal = false;
  std::vector<std::string> Faults;
};

// The progress on one line: drawn over itself on a terminal, else a line now and then.
class TProgressBar {
 public:
  TProgressBar(TConsole& console, bool shown)
      : FConsole(console), FShown(shown), FLine(std::cerr, isatty(STDERR_FILENO) != 0) {}

  void Show(double percent, const TGasCalibration::TNow& now, std::uint64_t ms) {
    if (!FShown || now.Gas == 0) return;
    if (!FLine.OnTerminal() && percent < FNext) return;
    FNext = (static_cast<int>(percent / kBarLineEvery) + 1) * kBarLineEvery;
    const int done = static_cast<int>(percent / 100 * kBarWidth);
    const std::string bar =
        std::string(static_cast<std::size_t>(done), '#') + std::string(static_cast<std::size_t>(kBarWidth - done), '.');
    const std::string gas = Padded(ShownGas(now.Gas), kGasWidth);
    const std::string line = Format("[%s] %3.0f %%  %s %5.2f V  %7.3f bar  %6.1f s", bar.c_str(), percent, gas.c_str(),
                                    now.Volt, now.Press, static_cast<double>(ms) / 1000);
    if (!FLine.OnTerminal()) return FConsole.Say(line);
    FLine.Draw(line);
  }
  // Makes room for other lines.
  void Clear() { FLine.Clear(); }

 private:
  TConsole& FConsole;
  const bool FShown;
  TStatusLine FLine;
  double FNext = 0.0;
};

std::size_t Settled(const TGasResult& result) {
  return static_cast<std::size_t>(std::ranges::count_if(result.Points, &TGasPoint::Settled));
}

TRows Table(const std::vector<TGasResult>& results) {
  TRows rows{{SGasColGas.Get(), SGasColPoints.Get(), SGasColTime.Get(), SGasColKnee.Get(), SGasColMax.Get(),
              SGasColResult.Get()}};
  for (const TGasResult& result : results) {
    const bool stored = result.End == TGasEnd::Stored;
    rows.push_back({ShownGas(result.Gas), std::to_string(Settled(result)),
                    result.DurationMs > 0 ? Format("%.1f", static_cast<double>(result.DurationMs) / 1000) : "-",
                    stored && result.Knee ? Format("%.2f", *result.Knee) : "-",
                    Settled(result) > 0 ? Format("%.3f", result.MaxBar()) : "-", TextOf(result.End).Get()});
  }
  return rows;
}

// What came of it, gas by gas.
void ShowResults(TConsole& console, const std::vector<TGasResult>& results) {
  console.Say("");
  console.SayTable(Table(results));
  for (const TGasResult& result : results) {
    if (result.Findings.empty()) continue;
    console.Say(Show(SGasVerdict, ShownGas(result.Gas).c_str()));
    console.SayLines(FindingLines(result.Findings));
  }
}

TGasOrder OrderOf(const TCalibrateOptions& options) {
  return {.Gases = AskedGases(options.Gases),
          .Nozzle = options.Nozzle,
          .Refined = options.Method == "refined",
          .Keep = options.Keep,
          .Descend = options.Descend};
}

void SayTitle(TConsole& console, const TGasOrder& order, std::string (*nameOf)(std::int32_t gas)) {
  const std::string names = Joined(order.Gases, nameOf);
  console.Say(Show(SGasTitle, names.c_str(), order.Nozzle.Type.c_str(), ValueText(order.Nozzle.Size).c_str()));
}

// On a controller of its own.
int CalibrateHere(const TCalibrateOptions& options, const TGasOrder& order, TConsole& console) {
  TProgressBar bar(console, !options.Json);
  TGasRun run(options.Options(&console), order, options.Faults, [&](std::uint64_t ms, const std::string& text) {
    bar.Clear();
    console.Say(Format("%8llu ms  %s", static_cast<unsigned long long>(ms), text.c_str()));
  });
  const TGasJob& job = run.Job();
  console.SetStart(Clock().MonotonicMs());
  run.Ready();
  SayTitle(console, order, GasDesc);
  bool descending = false;
  run.Drive([&] {
    if (job.Descending() && !std::exchange(descending, true)) {
      bar.Clear();
      console.Say(SGasDescent.Get());
    }
    bar.Show(job.Progress(), job.Now(), job.LastedMs());
  });
  bar.Clear();

  const TGasCalibration& calibration = job.Calibration();
  if (options.Journal) console.SayLines(run.Controller().Journal().Lines());
  ShowResults(console, calibration.Results());
  if (!calibration.Completed()) console.Say(SGasKeptFile.Get());
  if (!options.Plot.empty()) {
    DrawGasCalibration(calibration.Results(), options.Nozzle, options.Plot);
    console.Say(options.Plot);
  }
  if (!options.Record.empty()) {
    WriteGasRecording(options.Record, calibration.Recording());
    console.Say(options.Record);
  }
  nlohmann::ordered_json result = job.Json();
  result["seed"] = options.Seed;
  result["log"] = console.Log();
  console.Print(result, job.Problem());
  if (calibration.Unsaved()) return kExitUnusable;
  return calibration.Success() ? kExitSuccess : kExitOtherwise;
}

// On the controller that runs.
int CalibrateThere(const TCalibrateOptions& options, const TGasOrder& order, TWireClient& client, TConsole& console) {
  if (!options.Faults.empty())
    throw EProblem(pbRequest, TProblem{.What = Tr("a controller that runs is given no fault for a calibration"),
                                       .Where = "--fault",
                                       .Remedy = Tr("--local works on a copy")});
  const TOperatorTexts texts(console);
  TProgressBar bar(console, !options.Json);
  SayTitle(console, order, ShownGas);
  const auto tell = [&](const nlohmann::ordered_json& event) {
    if (event.value("event", "") == "progress") {
      TGasCalibration::TNow now;
      now.Gas = AskedGasType(event.value("gas", ""));
      now.Volt = event.value("volt", 0.0);
      now.Press = event.value("bar", 0.0);
      bar.Show(event.value("percent", 0.0), now, event.value("ms", std::uint64_t{0}));
    } else if (const std::string text = event.value("text", ""); !text.empty()) {
      bar.Clear();
      console.Say(text);
    }
  };
  const TWireRun run =
      RunOnConsole(client, {.Path = "/api/v1/gas/calibrate", .Body = JsonOf(order)}, console, {}, tell);
  bar.Clear();
  if (options.Journal) console.SayLines(run.Report.Journal);
  TWireGas gas = GasResultsOf(client, run);
  ShowResults(console, gas.Results);
  if (!options.Plot.empty() || !options.Record.empty()) {
    const TTempFolder folder("ixocut-gas");
    FetchGasSamples(client, run, options.Record.empty() ? (folder.Path() / "gas.json").string() : options.Record,
                    gas.Results);
    if (!options.Record.empty()) console.Say(options.Record);
    if (!options.Plot.empty()) {
      DrawGasCalibration(gas.Results, options.Nozzle, options.Plot);
      console.Say(options.Plot);
    }
  }
  return console.Print(gas.Json, run.Report.Problem);
}

int RunCalibrate(TCalibrateOptions options, TConsole& console) {
  const TGasOrder order = OrderOf(options);  // judged before anything is opened
  if (!options.Plot.empty()) CheckPlotFile("--plot", options.Plot);
  if (!options.Record.empty()) CheckOutputFile("--record", options.Record, IsGasRecording);
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return CalibrateThere(options, order, *client, console);
  return CalibrateHere(options, order, console);
}

}  // namespace

void AddGasCalibrateCommand(TCommand gas) {
  auto [command, options] = AddOwn<TCalibrateOptions>(gas, "calibrate", Tr("Measure the valves' curves"), RunCalibrate);
  options.Saves = true;
  command.Text("--gas", options.Gases, std::string(Tr("The gases, separated by commas: ")) + Tr(kGasHelp), "LIST")
      .Required();
  AddNozzleOptions(command, options.Nozzle.Type, options.Nozzle.Size, true);
  command.Text("--plot", options.Plot, Tr("Draw the points, the curve and the pressures over time (.svg)"), "FILE");
  command
      .Text("--method", options.Method,
            Tr("exact, or refined: more points where the curve bends, the settling extrapolated"), "NAME")
      .OneOf({"exact", "refined"})
      .ShowDefault();
  const TOption record = command.Text("--record", options.Record,
                                      Tr("Keep every sample in this file, for \"gas verdict\" (.json)"), "FILE");
  command.Flag("--descend", options.Descend, Tr("Measure the same voltages once more downwards, for the record"))
      .Needs(record);
  command.Flag("--keep", options.Keep, Tr("Store a calibration all the same whose verdict is bad"));
  command.Flag("--journal", options.Journal, Tr("Show the machine's journal: every command and what came of it"));
  std::vector<std::string> faults;
  for (const TMachineFault& fault : MachineFaults())
    if (std::string_view(fault.Name).starts_with("gas.")) faults.emplace_back(fault.Name);
  command.Texts("--fault", options.Faults, Tr("Something of the simulated machine's gas that fails"), "NAME")
      .OneOf(faults)
      .Several();
  command.Flag("--realtime", options.Realtime, Tr("Run on the real clock; Ctrl-C stops the calibration"));
  AddJsonOption(command, options.Json);
  AddControllerSettings(command, options);
  AddAttachOptions(command, options.Attach, true);
  command.Help(
      {.Notes =
           Tr("The curves go into the machine file, once all gases are done, and into GasCalibration.config beside it "
              "under\nthe nozzle. A pressure that does not settle within 15 s stops the calibration. Where the "
              "pressure does not change\nwith the voltage, or the verdict at the end is bad, the gas keeps its "
              "previous table. The exact method can leave\nthe curve wrong by more than 5 percent between its points; "
              "--method refined measures more of them."),
       .ExitCodes = Tr("0 all gases were calibrated, 1 otherwise, 2 wrong command line, 3 a file or device problem"),
       .Examples = {"ixocut gas calibrate --gas Air,O2,N2 --nozzle S --size 1.5",
                    "ixocut gas calibrate --gas O2 --nozzle D --size 2 --plot o2.svg --lang en",
                    "ixocut gas calibrate --gas N2 --nozzle S --size 1.5 --method refined --record n2.json --descend",
                    "ixocut gas calibrate --gas O2 --nozzle S --size 1.5 --fault gas.weak-supply"}});
}

}  // namespace ixocut
