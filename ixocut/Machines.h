// The machines that the program can drive, by the name that a machine file gives ("Machine/Driver"); the first one
// stands where it gives none.
#pragma once

#include <vector>

#include "ixocamglue/platform/Machine.h"

namespace ixocut {
using namespace ixocamglue;

[[nodiscard]] std::vector<TMachineFactory> Machines();
// The faults that they have on request.
[[nodiscard]] std::vector<TMachineFault> MachineFaults();

}  // namespace ixocut
