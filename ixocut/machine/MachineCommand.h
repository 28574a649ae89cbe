// `ixocut machine`: the commands of who commissions a machine.
#pragma once

#include "ixocut/CommandLine.h"

namespace ixocut {

void AddMachineCheckCommand(TCommand machine);
void AddMachineTryCommand(TCommand machine);
void AddMachineOrderCommands(TCommand machine);  // arm and home

}  // namespace ixocut
