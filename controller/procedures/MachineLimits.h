// What one machine allows, read from its file without connecting to it: for command lines and files that are checked
// before anything moves.
#pragma once

#include <cstdint>
#include <limits>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/Bounds.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TMachineLimits {
  TMachineBounds Bounds;
  std::int32_t EmissionOnDelayMs = 5000;  // how long 516 waits for emission
  // Z at which a nozzle touches what lies on the table, and where the table is.
  double TableZ = std::numeric_limits<double>::infinity();
  TNcArea Table;
};

}  // namespace ixocontroller
