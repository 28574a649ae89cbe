// `ixocut gas ...`: the sub-commands. Each adds itself to the command, its options and what it runs; the table in
// GasCommand.cpp lists them in the order of the help page. Main thread; EProblem for what cannot be done.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "controller/gas/GasReport.h"
#include "ixocut/CommandLine.h"

namespace ixocut {
using namespace ixocontroller;

void AddGasCalibrateCommand(CLI::App& gas, TCommandRun& run);
void AddGasTableCommands(CLI::App& gas, TCommandRun& run);  // load, show, diff
void AddGasPressureCommand(CLI::App& gas, TCommandRun& run);
void AddGasVerdictCommand(CLI::App& gas, TCommandRun& run);
void AddGasStudyCommand(CLI::App& gas, TCommandRun& run);

// --- options that the sub-commands share ---

// "Air,O2" or "1,2" as gas types, each once and known; throws EProblem for the command line.
[[nodiscard]] std::vector<std::int32_t> AskedGases(const std::string& text);
void AddNozzleOptions(CLI::App& command, std::string& nozzle, double& size, bool required);

}  // namespace ixocut
