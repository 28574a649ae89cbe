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

void Print(std::ostream& out, const TProcedure& row, const TMachineBounds& machine) {
  const std::string number = row.Command > 0 ? Format("%4d", row.Command) : "    ";
  out << number << "  " << Format("%-22s %s\n", row.Name, Tr(row.Summary));
  for (const TMotionParam& param : row.Params) {
    std::string range = param.At.Kind == pkSwitch ? "true, false" : ParamLimits(row, param, machine).Text();
    if (const std::string unit = UnitText(param.Unit); !unit.empty()) range += " " + unit;
    const std::string def = param.Need == TMotionParam::Required ? Tr("needed")
                            : std::isnan(param.Default)          ? "-"
                                                                 : ParamText(param, param.Default);
    out << Format("        --%-15s %-26s %s %s\n", param.Name, range.c_str(), Padded(def, kDefaultWidth).c_str(),
                  Tr(param.Summary));
  }
}

int ListFaults(const TProceduresOptions& options, std::ostream& out) {
  auto faults = nlohmann::ordered_json::array();
  for (const TMachineFault& fault : MachineFaults()) {
    if (options.Json)
      faults.push_back({{"name", fault.Name}, {"description", Tr(fault.Description)}});
    else
      out << Format("%-27s %s\n", fault.Name, Tr(fault.Description));
  }
  if (options.Json) PrintDocument(out, "procedures", {{"faults", std::move(faults)}});
  return kExitSuccess;
}

int RunProcedures(const TProceduresOptions& options, std::ostream& out) {
  if (options.Faults) return ListFaults(options, out);
  if (!options.Name.empty()) (void)AskProcedure(options.Name).OrThrow(pbRequest);
  const TMachineBounds machine = options.Limits().Bounds;
  auto document = nlohmann::ordered_json::array();
  for (const TProcedure* row : Procedures()) {
    if (!options.Name.empty() && options.Name != row->Name) continue;
    if (options.Json)
      document.push_back(ProcedureJson(*row, machine));
    else
      Print(out, *row, machine);
  }
  if (options.Json) PrintDocument(out, "procedures", {{"procedures", std::move(document)}});
  return kExitSuccess;
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
