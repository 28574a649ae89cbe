// `ixocut gas study`.
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/gas/GasCommand.h"
#include "verify/GasStudy.h"

namespace ixocut {
using namespace ixoverify;
namespace {

constexpr std::uint64_t kMostValves = 10'000;

struct TStudyOptions : TOutputSettings {
  std::uint64_t Valves = 40;
  std::uint64_t Seed = 1;
};

int RunStudy(const TStudyOptions& options, TConsole& console) {
  const TOperatorTexts texts(console);
  TMachineConfig config;
  const TInstalled<TMachineConfig> installed(config);
  for (std::int32_t gas = 1; gas <= kStudyGases; ++gas) config.GasBranches().Items.AddNew().GasType = gas;

  TRows table{
      {Tr("method"), Tr("gas"), Tr("points"), Tr("time s"), Tr("median"), "90 %", Tr("worst"), Tr("unfinished")}};
  auto json = nlohmann::ordered_json::array();
  for (const TStudyRow& row : StudyGasMethods(static_cast<std::int32_t>(options.Valves), options.Seed)) {
    const bool all = row.GasType == 0;
    table.push_back({row.Method, all ? Tr("all gases") : ShownGas(row.GasType), Format("%.1f", row.Points),
                     Format("%.1f", row.Seconds), Format("%.2f", row.Median), Format("%.2f", row.Percent90),
                     Format("%.2f", row.Worst), std::to_string(row.Unfinished)});
    json.push_back({{"method", row.Method},
                    {"gas", all ? "all" : GasName(row.GasType)},
                    {"points", row.Points},
                    {"seconds", row.Seconds},
                    {"medianPercent", row.Median},
                    {"percent90", row.Percent90},
                    {"worstPercent", row.Worst},
                    {"unfinished", row.Unfinished}});
  }
  console.Say(Format(Tr("%llu valves of each gas, seed %llu; errors in %% of the pressure at 10 V"),
                     static_cast<unsigned long long>(options.Valves), static_cast<unsigned long long>(options.Seed)));
  console.SayTable(table);
  return console.Print({{"valves", options.Valves}, {"seed", options.Seed}, {"rows", std::move(json)}});
}

}  // namespace

void AddGasStudyCommand(TCommand gas) {
  auto [command, options] = AddOwn<TStudyOptions>(
      gas, "study", Tr("Compare the methods of calibration over many simulated valves"), RunStudy);
  command.Number("--valves", options.Valves, 1, kMostValves, "", Tr("Valves of each gas")).ShowDefault();
  AddSeedOption(command, options.Seed);
  AddJsonOption(command, options.Json);
  AddLanguageOption(command, options.Language);
  command.Help({.Notes = Tr("The error of a table is its largest difference from the valve's true pressure over 0 "
                            "to 10 V, in percent of "
                            "the true\npressure at 10 V. The time is the machine's, per valve."),
                .Examples = {"ixocut gas study --valves 40 --seed 1"}});
}

}  // namespace ixocut
