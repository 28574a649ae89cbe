// `ixocut gas ...`: the sub-commands. Each adds itself to the command, its options and what it runs; the table in
// GasCommand.cpp lists them in the order of the help page. Main thread; EProblem for what cannot be done.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "commandline/CommandLine.h"
#include "controller/gas/GasReport.h"

namespace ixocut {
using namespace ixocommandline;
using namespace ixocontroller;

void AddGasCalibrateCommand(TCommand gas);
void AddGasTableCommands(TCommand gas);  // load, show, diff
void AddGasPressureCommand(TCommand gas);
void AddGasVerdictCommand(TCommand gas);
void AddGasStudyCommand(TCommand gas);

// --- options that the sub-commands share ---

// "Air,O2" or "1,2" as gas types, each once and known; throws EProblem for the command line.
[[nodiscard]] std::vector<std::int32_t> AskedGases(const std::string& text);
void AddNozzleOptions(TCommand command, std::string& nozzle, double& size, bool required);

}  // namespace ixocut
