// `ixocut gas study`.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Console.h"
#include "ixocut/Document.h"
#include "ixocut/Table.h"
#include "ixocut/gas/GasCommand.h"
#include "verify/GasStudy.h"

namespace ixocut {
using namespace ixoverify;
namespace {

constexpr std::uint64_t kMostValves = 10'000;

struct TStudyOptions {
  std::uint64_t Valves = 40;
  std::uint64_t Seed = 1;
  bool Json = false;
};

int RunStudy(const TStudyOptions& options, std::ostream& out) {
  TMachineConfig config;
  const TInstalled<TMachineConfig> installed(config);
  for (std::int32_t gas = 1; gas <= kStudyGases; ++gas) config.GasBranches().Items.AddNew().GasType = gas;

  TConsole console(out, options.Json, false);
  std::vector<std::vector<std::string>> table{
      {"method", "gas", "points", "time s", "median %", "90 %", "worst %", "unfinished"}};
  auto json = nlohmann::ordered_json::array();
  for (const TStudyRow& row : StudyGasMethods(static_cast<std::int32_t>(options.Valves), options.Seed)) {
    const char* const gas = row.GasType == 0 ? "all" : GasName(row.GasType);
    table.push_back({GasMethodName(row.Method), gas, Format("%.1f", row.Points), Format("%.1f", row.Seconds),
                     Format("%.2f", row.Median), Format("%.2f", row.Percent90), Format("%.2f", row.Worst),
                     std::to_string(row.Unfinished)});
    json.push_back({{"method", GasMethodName(row.Method)},
                    {"gas", gas},
                    {"points", row.Points},
                    {"seconds", row.Seconds},
                    {"medianPercent", row.Median},
                    {"percent90", row.Percent90},
                    {"worstPercent", row.Worst},
                    {"unfinished", row.Unfinished}});
  }
  console.Say(Format("%llu valves of each gas, seed %llu; errors in %% of the pressure at 10 V",
                     static_cast<unsigned long long>(options.Valves), static_cast<unsigned long long>(options.Seed)));
  for (const std::string& line : DrawTable(table)) console.Say(line);
  console.Print("gas study", {{"valves", options.Valves}, {"seed", options.Seed}, {"rows", std::move(json)}});
  return kExitSuccess;
}

}  // namespace

void AddGasStudyCommand(CLI::App& gas, TCommandRun& run) {
  const auto options = std::make_shared<TStudyOptions>();
  CLI::App* const command =
      gas.add_subcommand("study", "Compare the methods of calibration over many simulated valves");
  AddNumberOption(*command, "--valves", options->Valves, 1, kMostValves, "", "Valves of each gas")
      ->capture_default_str();
  AddSeedOption(*command, options->Seed);
  AddJsonOption(*command, options->Json);
  command->footer(
      "The error of a table is its largest difference from the valve's true pressure over 0 to 10 V, in % of the true\n"
      "pressure at 10 V. The time is the machine's, per valve.\n"
      "\n"
      "Example:\n"
      "  ixocut gas study --valves 40 --seed 1\n"
      "\n"
      "Software is not the emergency stop.");
  command->callback([options, &run] { run = [options] { return RunStudy(*options, std::cout); }; });
}

}  // namespace ixocut
