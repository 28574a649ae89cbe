// The machine states 1 to 7 of the simulated cutting system: the demonstration part in its three modes, paused, return
// to origin, jogging and the calibration of the follower.
#pragma once

#include "ixocamglue/platform/states/NcState.h"

namespace ixocamglue {

class TSimDemo;

// The states use `demo`, which outlives every pass of a framework in one of them.
void RegisterDemoStates(TNcRegistry& registry, TSimDemo& demo);
void UnregisterDemoStates(TNcRegistry& registry);

}  // namespace ixocamglue
