// The simulated machine as a driver of a composed one: its devices, and its inputs and outputs as points.
//
// Points: "in:4" and "out:4" by the numbers of the section "Ports"; "valve:2", "bar:2", "set:2" (a pressure controller)
// and, by its DAPort, "da:34" of a gas branch; "laser:emission", "laser:beam", "laser:aiming", "laser:trip" and
// "laser:rearm" as outputs, and "laser:confirmed", "laser:lit" and "laser:ok" as inputs of the source. A gas or laser
// of points has the same physics as the simulated one's own. Any thread makes one.
#pragma once

#include "ixocamglue/platform/Driver.h"
#include "machines/simulated/Config.h"

namespace ixocamglue {

class TSimMachine;

// "simulated". `adjust`: the configuration, after its file was read; may be empty.
[[nodiscard]] TDriverFactory SimulatedDriver(std::function<void(TSimConfig&)> adjust = {});

// The machine inside, for who knows that it is one; throws std::bad_cast.
[[nodiscard]] TSimMachine& Simulated(IMachineDriver& driver);

}  // namespace ixocamglue
