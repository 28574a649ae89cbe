// `ixocut machine`: the commands of who commissions a machine.
#pragma once

#include "ixocut/CommandLine.h"

namespace ixocut {

void AddMachineCheckCommand(CLI::App& machine, TCommandRun& run);
void AddMachineTryCommand(CLI::App& machine, TCommandRun& run);
void AddMachineOrderCommands(CLI::App& machine, TCommandRun& run);  // arm and home

}  // namespace ixocut
