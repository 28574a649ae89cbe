// `ixocut gas load`, `gas show`, `gas diff`: the stored tables.
#include <algorithm>

#include "controller/Controller.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/Command.h"
#include "ixocut/gas/GasCommand.h"

namespace ixocut {
namespace {

struct TTablesOptions : TControllerSettings {
  std::string Gases;
  std::string Nozzle;
  double Size = 0.0;  // 0: not given
};

// In the place of a machine whose devices nothing is wanted of: they need not be there.
struct TNoMachine final : IMachine {
  TResult<> Connect() override { return {}; }
};

// The machine file with the tables beside it; no machine runs.
class TTables {
 public:
  TTables(const TTablesOptions& options, TConsole& console, bool saves = false)
      : FController(Options(options, console, saves)) {
    FRead = FStored.Load(GasCaliConfigFile(), mfDefaults);
    FController.Logs().DrainOnce();
  }
  [[nodiscard]] bool Read() const { return FRead.Ok(); }  // false: there is a file, and it cannot be read
  void RequireRead() const {
    if (!FRead) throw EProblem(pbUnusable, FRead.Problem());
  }
  TGasCaliConfig& Stored() { return FStored; }
  TController& Controller() { return FController; }

 private:
  static TControllerOptions Options(const TTablesOptions& options, TConsole& console, bool saves) {
    TControllerOptions session = options.Options(&console);
    session.SavesMachineFile = saves;
    session.Supervisor = false;
    for (TMachineFactory& machine : session.Machines)
      machine.Make = [](const TMachineContext&) -> TResult<std::unique_ptr<IMachine>> {
        return std::unique_ptr<IMachine>(std::make_unique<TNoMachine>());
      };
    return session;
  }

  TController FController;
  TGasCaliConfig FStored;
  TResult<> FRead;
};

std::vector<std::int32_t> GasesOf(const TTablesOptions& options) {
  if (options.Gases.empty()) return {std::begin(kTableGases), std::end(kTableGases)};
  auto gases = AskedGases(options.Gases);
  for (const std::int32_t gas : gases)
    if (std::ranges::find(kTableGases, gas) == std::end(kTableGases))
      throw EProblem(pbRequest,
                     TProblem{.What = Format(Tr("tables are stored for Air, O2 and N2 only, not for %s"), GasName(gas)),
                              .Where = "--gas"});
  return gases;
}

int RunShow(const TTablesOptions& options, TConsole& console) {
  const auto gases = GasesOf(options);
  TTables tables(options, console);
  tables.RequireRead();
  auto json = nlohmann::ordered_json::array();
  for (const TStoredTable& table : StoredTables(tables.Stored(), gases, options.Nozzle, options.Size)) {
    const TGasCaliItem& item = *table.Item;
    const auto dots = DotsOf(item.DAAdjustTable);
    json.push_back(JsonOf(table));
    console.Say(Format(Tr("%s %s %s mm: %zu points%s%s"), ShownGas(table.Gas).c_str(), item.NozzType.c_str(),
                       ValueText(item.NozzSize).c_str(), dots.size(), item.RecordData.empty() ? "" : ", ",
                       item.RecordData.c_str()));
    for (const TDot& dot : dots) console.Say("  " + AdjustPointText(dot.X, dot.Y));
  }
  std::optional<TProblem> problem;
  if (json.empty())
    problem = {.What = Tr("no such table"),
               .Where = GasCaliConfigFile().string(),
               .Remedy = Tr("\"ixocut gas calibrate\" measures a gas and stores its table")};
  if (problem) console.Say(problem->Text());
  return console.Print({{"file", GasCaliConfigFile().string()}, {"tables", json}}, problem);
}

int RunLoad(const TTablesOptions& options, TConsole& console) {
  const auto gases = GasesOf(options);
  TTables tables(options, console, true);
  TZemGasAdjustModel& model = *GZemGasAdjustModel();
  std::optional<TProblem> problem;  // the first
  bool unusable = false;
  auto messages = nlohmann::ordered_json::array();
  for (const std::int32_t gas : gases) {
    const auto loaded = model.LoadGasData(gas, options.Nozzle, options.Size);
    if (!loaded && !problem) problem = loaded.Problem();
    const TDAAdjustTable* const table = tables.Stored().GetDAAdjustTable(gas, options.Nozzle, options.Size);
    const bool any = !tables.Read() || (table && table->GetCount() > 0 && MachineConfig()->GetGasBranch(gas));
    unusable = unusable || (!loaded && any);
    tables.Controller().Logs().DrainOnce();
    for (std::string text; model.GetMsg(text);) {
      console.Say(text);
      messages.push_back(text);
    }
  }
  const int exitCode = console.Print({{"messages", messages}, {"log", console.Log()}}, problem);
  return unusable ? kExitUnusable : exitCode;
}

int RunDiff(const TTablesOptions& options, TConsole& console) {
  const auto gases = GasesOf(options);
  TTables tables(options, console);
  tables.RequireRead();
  bool same = true;
  auto json = nlohmann::ordered_json::array();
  for (const std::int32_t gas : gases) {
    const std::string nozzle = options.Nozzle + " " + ValueText(options.Size) + " mm";
    const TDAAdjustTable* const table = tables.Stored().GetDAAdjustTable(gas, options.Nozzle, options.Size);
    const TGasBranchConfig* const branch = MachineConfig()->GetGasBranch(gas);
    const bool present = branch && branch->DAAdjustTable.GetCount() > 0;
    if (!table || !present) {
      same = false;
      const std::string why =
          !table ? Format(Tr("no table is stored for %s"), nozzle.c_str()) : Tr("the machine file has no table");
      console.Say(ShownGas(gas) + ": " + why);
      json.push_back({{"gas", GasName(gas)}, {"problem", why}});
      continue;
    }
    const TTableDifference difference = CompareTables(*table, branch->DAAdjustTable);
    TRows rows{{"V", Tr("stored bar"), Tr("in use bar"), Tr("difference bar")}};
    auto points = nlohmann::ordered_json::array();
    for (const auto& point : difference.Points) {
      rows.push_back({Format("%.3f", point.Volt), Format("%.4f", point.StoredBar), Format("%.4f", point.UsedBar),
                      Format("%+.4f", point.Bar())});
      points.push_back({{"volt", point.Volt}, {"stored", point.StoredBar}, {"used", point.UsedBar}});
    }
    same = same && difference.Equal;
    console.Say(Format("%s %s: %s", ShownGas(gas).c_str(), nozzle.c_str(),
                       difference.Equal
                           ? Tr("the stored table is in use")
                           : Format(Tr("the tables differ, by %.4f bar at most"), difference.LargestBar).c_str()));
    if (!difference.Equal)
      for (const std::string& line : DrawTable(rows)) console.Say("  " + line);
    json.push_back({{"gas", GasName(gas)},
                    {"equal", difference.Equal},
                    {"largestBar", difference.LargestBar},
                    {"points", points}});
  }
  std::optional<TProblem> problem;
  if (!same) problem = {.What = Tr("the tables differ")};
  return console.Print({{"same", same}, {"gases", json}}, problem);
}

}  // namespace

void AddGasTableCommands(TCommand gas) {
  const auto options = std::make_shared<TTablesOptions>();
  const auto add = [&](const char* name, const char* description, bool nozzle,
                       int (*call)(const TTablesOptions&, TConsole&), const THelp& help) {
    const TCommand command = AddWith(gas, name, description, options, call);
    command.Text("--gas", options->Gases, Tr("Air, O2, N2, separated by commas (default all three)"), "LIST");
    AddNozzleOptions(command, options->Nozzle, options->Size, nozzle);
    AddJsonOption(command, options->Json);
    AddMachineSettings(command, *options);
    command.Help(help);
  };
  add("load", Tr("Put a nozzle's stored tables into the machine file"), true, RunLoad,
      {.Notes =
           Tr("A table is not loaded that is empty, has one point or a number that cannot be read, a voltage outside 0 "
              "to 10 V, a\npressure that falls or never rises, or that is there twice."),
       .ExitCodes =
           Tr("0 all were loaded, 1 there is no such table, 2 wrong command line, 3 a table or file cannot be used"),
       .Examples = {"ixocut gas load --gas O2 --nozzle S --size 1.5"}});
  add("show", Tr("Show the stored tables"), false, RunShow,
      {.ExitCodes = Tr("0 done, 1 there is no such table, 2 wrong command line, 3 a file cannot be used"),
       .Examples = {"ixocut gas show --gas O2"}});
  add("diff", Tr("Compare a nozzle's stored tables with those of the machine file"), true, RunDiff,
      {.ExitCodes =
           Tr("0 they are the same, 1 they differ or one is missing, 2 wrong command line, 3 a file cannot be used"),
       .Examples = {"ixocut gas diff --gas O2 --nozzle S --size 1.5"}});
}

}  // namespace ixocut
