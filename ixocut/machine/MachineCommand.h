// `ixocut machine`: the commands of who commissions a machine. Main thread.
#pragma once

#include "commandline/CommandLine.h"

namespace ixocut {
using namespace ixocommandline;

void AddMachineCheckCommand(TCommand machine);
void AddMachineTryCommand(TCommand machine);
void AddMachineOrderCommands(TCommand machine);  // arm and home

}  // namespace ixocut
