// `ixocut procedures`: what `ixocut run` runs, with parameters, ranges and units.
#include "controller/procedures/ProcedureJson.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/procedures/Asked.h"

namespace ixocut {
namespace {

constexpr std::size_t kDefaultWidth = 8;

struct TProceduresOptions : TControllerSettings {
  std::string Name;  // empty: all
  bool Faults = false;
};

void Say(TConsole& console, const TProcedure& row, const TMachineBounds& machine) {
  const std::string number = row.Command > 0 ? Format("%4d", row.Command) : "    ";
  console.Say(number + "  " + Format("%-22s %s", row.Name, Tr(row.Summary)));
  for (const TMotionParam& param : row.Params) {
    std::string range = param.At.Kind == pkSwitch ? "true, false" : ParamLimits(row, param, machine).Text();
    if (const std::string unit = UnitText(param.Unit); !unit.empty()) range += " " + unit;
    const std::string def = param.Need == TMotionParam::Required ? Tr("needed")
                            : std::isnan(param.Default)          ? "-"
                                                                 : ParamText(param, param.Default);
    console.Say(Format("        --%-15s %-26s %s %s", param.Name, range.c_str(), Padded(def, kDefaultWidth).c_str(),
                       Tr(param.Summary)));
  }
}

int ListFaults(TConsole& console) {
  auto faults = nlohmann::ordered_json::array();
  for (const TMachineFault& fault : MachineFaults()) {
    faults.push_back({{"name", fault.Name}, {"description", Tr(fault.Description)}});
    console.Say(Format("%-27s %s", fault.Name, Tr(fault.Description)));
  }
  return console.Print({{"faults", std::move(faults)}});
}

int RunProcedures(const TProceduresOptions& options, TConsole& console) {
  if (options.Faults) return ListFaults(console);
  if (!options.Name.empty()) (void)AskProcedure(options.Name).OrThrow(pbRequest);
  const TMachineBounds machine = options.Limits().Bounds;
  auto document = nlohmann::ordered_json::array();
  for (const TProcedure* row : Procedures()) {
    if (!options.Name.empty() && options.Name != row->Name) continue;
    document.push_back(ProcedureJson(*row, machine));
    Say(console, *row, machine);
  }
  return console.Print({{"procedures", std::move(document)}});
}

}  // namespace

void AddProceduresCommand(TCommand program) {
  auto [command, options] = AddOwn<TProceduresOptions>(
      program, "procedures", Tr("List what can be run, with parameters, ranges and units"), RunProcedures);
  command.Text("NAME", options.Name, Tr("Only this one"), "TEXT");
  AddJsonOption(command, options.Json);
  command.Flag("--faults", options.Faults, Tr("List what --fault of `ixocut run` makes fail instead"));
  AddMachineSettings(command, options);
  command.Help(
      {.Notes =
           Tr("Number, name as `ixocut run` takes it, and what it does; then each parameter with its range on this "
              "machine, its\n"
              "unit and its default. In a file for `ixocut run` the parameters have the same names without \"--\"."),
       .Examples = {"ixocut procedures", "ixocut procedures lubricate", "ixocut procedures --faults",
                    "ixocut procedures --json"}});
}

}  // namespace ixocut
