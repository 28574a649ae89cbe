// A pressure that is set by the table in use, on a controller whose passes the caller makes (virtual time), on the
// thread that has made it. V, bar.
#pragma once

#include <cstdint>
#include <optional>

#include "controller/Controller.h"

namespace ixocontroller {

// The voltage that the gas's table gives for the pressure; nothing where no table is in use. Throws EProblem, for what
// (`where`), for a gas without a branch, and for a pressure that the branch may not have or that its table does not
// reach.
[[nodiscard]] std::optional<double> TableVolt(std::int32_t gas, double bar, const char* where);

struct TReachedPressure {
  double Volt = 0.0;
  double Bar = 0.0;        // at the nozzle
  double SensorBar = 0.0;  // mean of its readings
};
// Sets the pressure, lets it come to rest and switches the gas off again: 24 s of machine time. What the devices throw
// passes.
[[nodiscard]] TReachedPressure ReachPressure(TController& controller, std::int32_t gas, double bar);

}  // namespace ixocontroller
