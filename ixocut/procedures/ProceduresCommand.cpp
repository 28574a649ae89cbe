// `ixocut procedures`: what `ixocut run` runs, with parameters, ranges and units.
#include <iostream>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "controller/procedures/MotionTable.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Machines.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

struct TProceduresOptions {
  std::string Name;  // empty: all
  bool Json = false;
  bool Faults = false;
  std::optional<std::filesystem::path> Machine, State;
};

const char* KindName(TParamKind kind) {
  switch (kind) {
    case pkNumber: return "number";
    case pkWhole: return "integer";
    case pkSwitch: return "boolean";
  }
  return "";
}

bool Asked(const TProceduresOptions& options, const TMotionRow& row) {
  return options.Name.empty() || options.Name == row.Name || options.Name == row.FullName();
}

void Print(std::ostream& out, const TMotionRow& row, const TMotionLimits& limits) {
  const std::string number = row.Command > 0 ? Format("%4d", row.Command) : "    ";
  out << number << "  " << Format("%-22s %s\n", row.Usage().c_str(), row.Summary);
  for (const TMotionParam& param : row.Params) {
    std::string range = param.Kind == pkSwitch ? "true, false" : limits.Of(param).Text();
    if (*param.Unit) range += std::string(" ") + param.Unit;
    const std::string def = param.Need == TMotionParam::Required ? "needed"
                            : std::isnan(param.Default)          ? "-"
                                                                 : ParamText(param, param.Default);
    out << Format("        --%-15s %-26s %-8s %s\n", param.Name, range.c_str(), def.c_str(), param.Summary);
  }
}

nlohmann::ordered_json JsonOf(const TMotionRow& row, const TMotionLimits& limits) {
  auto params = nlohmann::ordered_json::array();
  for (const TMotionParam& param : row.Params) {
    nlohmann::ordered_json item{{"name", param.Name},
                                {"type", KindName(param.Kind)},
                                {"unit", param.Unit},
                                {"summary", param.Summary},
                                {"required", param.Need == TMotionParam::Required}};
    if (param.Kind != pkSwitch) {
      const TLimits range = limits.Of(param);
      if (range.Numbers.empty()) {
        item["lowest"] = range.Lowest;
        item["highest"] = range.Highest;
      } else {
        item["numbers"] = range.Numbers;
      }
    }
    if (param.Need != TMotionParam::Required && !std::isnan(param.Default)) {
      if (param.Kind == pkSwitch)
        item["default"] = param.Default != 0.0;
      else
        item["default"] = param.Default;
    }
    params.push_back(std::move(item));
  }
  nlohmann::ordered_json item{{"name", row.FullName()}, {"usage", row.Usage()}, {"summary", row.Summary}};
  if (row.Command > 0) item["command"] = row.Command;
  item["parameters"] = std::move(params);
  return item;
}

int ListFaults(const TProceduresOptions& options, std::ostream& out) {
  auto faults = nlohmann::ordered_json::array();
  for (const TMachineFault& fault : MachineFaults()) {
    if (options.Json)
      faults.push_back({{"name", fault.Name}, {"description", fault.Description}});
    else
      out << Format("%-27s %s\n", fault.Name, fault.Description);
  }
  if (options.Json)
    out << nlohmann::ordered_json{{"command", "procedures"}, {"faults", std::move(faults)}}.dump(2) << '\n';
  return kExitSuccess;
}

int Run(const TProceduresOptions& options, std::ostream& out) {
  if (options.Faults) return ListFaults(options, out);
  const TMotionLimits limits = TMotionLimits::OfMachine(MachineFile(options.Machine, options.State));
  auto document = nlohmann::ordered_json::array();
  std::size_t shown = 0;
  for (const TMotionRow& row : MotionRows()) {
    if (!Asked(options, row)) continue;
    ++shown;
    if (options.Json)
      document.push_back(JsonOf(row, limits));
    else
      Print(out, row, limits);
  }
  bool headed = options.Json || !options.Name.empty();
  for (const TProcedure& procedure : Procedures()) {
    if (FindMotionRow(std::string_view(procedure.Name)) || (!options.Name.empty() && options.Name != procedure.Name))
      continue;
    ++shown;
    if (!std::exchange(headed, true)) out << "\nThose of `ixocut sweep`, without parameters:\n";
    if (options.Json)
      document.push_back({{"name", procedure.Name},
                          {"usage", procedure.Name},
                          {"summary", procedure.Summary},
                          {"parameters", nlohmann::ordered_json::array()}});
    else
      out << "      " << Format("%-22s %s\n", procedure.Name, procedure.Summary);
  }
  if (shown == 0) throw EProblem(pbRequest, "\"" + options.Name + "\" is no procedure");
  if (options.Json)
    out << nlohmann::ordered_json{{"command", "procedures"}, {"procedures", std::move(document)}}.dump(2) << '\n';
  return kExitSuccess;
}

}  // namespace

void AddProceduresCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TProceduresOptions>();
  CLI::App* const command =
      program.add_subcommand("procedures", "List what can be run, with parameters, ranges and units");
  command->add_option("NAME", options->Name, "Only this one");
  command->add_flag("--json", options->Json, "Print one JSON document instead of text");
  command->add_flag("--faults", options->Faults, "List what --fault of `ixocut run` makes fail instead");
  AddMachineOptions(*command, options->Machine, options->State);
  command->footer(
      "Number, name as `ixocut run` takes it, and what it does; then each parameter with its range on this machine, "
      "its\n"
      "unit and its default. In a file for `ixocut run` the parameters have the same names without \"--\".\n"
      "\n"
      "Exit codes: 0 success, 2 wrong command line, 3 a machine file that cannot be used.\n"
      "\n"
      "Examples:\n"
      "  ixocut procedures\n"
      "  ixocut procedures lubricate\n"
      "  ixocut procedures --json");
  command->callback([options, &run] { run = [options] { return Run(*options, std::cout); }; });
}

}  // namespace ixocut
