// The machine states 1 to 7, which the key commands request: the demonstration part in its three modes, paused, return
// to origin, jogging and the calibration of the follower. Main thread, while no loop runs.
#pragma once

#include "ixocamglue/platform/states/NcState.h"

namespace ixocontroller {
using namespace ixocamglue;

class TKeyCommands;

// The states use `keys`, which outlive every pass of a framework in one of them. Does not fail: a number that is taken
// already keeps its state, and a fault is reported.
void RegisterKeyStates(TNcRegistry& registry, TKeyCommands& keys);
// Does not fail.
void UnregisterKeyStates(TNcRegistry& registry);

}  // namespace ixocontroller
