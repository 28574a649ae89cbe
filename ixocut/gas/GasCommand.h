// `ixocut gas ...`: the sub-commands. Each adds itself to the command, its options and what it runs; the table in
// GasCommand.cpp lists them in the order of the help page. Main thread; EProblem for what cannot be done.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/gas/GasVerdict.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocut/CommandLine.h"

namespace ixocut {

void AddGasCalibrateCommand(CLI::App& gas, TCommandRun& run);
void AddGasTableCommands(CLI::App& gas, TCommandRun& run);  // load, show, diff
void AddGasPressureCommand(CLI::App& gas, TCommandRun& run);
void AddGasVerdictCommand(CLI::App& gas, TCommandRun& run);
void AddGasStudyCommand(CLI::App& gas, TCommandRun& run);

// --- options that the sub-commands share ---

// "Air,O2" or "1,2" as gas types, each once and known; throws EProblem for the command line.
[[nodiscard]] std::vector<std::int32_t> ParseGases(std::string_view text);
// "Oxygen", as the machine or the language calls it; for text only.
[[nodiscard]] std::string ShownGas(std::int32_t gasType);
// "Air"; "?" for a number that is no gas type. For JSON and what people type.
[[nodiscard]] inline const char* GasName(std::int32_t gasType) { return GasTypeName(gasType); }
[[nodiscard]] nlohmann::ordered_json FindingsJson(const std::vector<ixocontroller::TGasFinding>& findings);
void AddNozzleOptions(CLI::App& command, std::string& nozzle, double& size, bool required);
inline constexpr const char* kGasHelp = TrMark("Air, O2, N2, H-Air, H-O2 or H-N2, or its number from 1");

}  // namespace ixocut
