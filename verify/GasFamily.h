// Valves that never were, within the spread of real ones: what a method of calibration is judged by. One thread;
// nothing fails.
#pragma once

#include <cstdint>

#include "machines/simulated/GasValve.h"

namespace ixoverify {
using namespace ixocamglue;

// A valve of the family of a gas (1 "Air", 2 "O2", 3 "N2"), drawn with the next numbers of `random`. Its sensor's range
// is the smallest of the usual ones that holds the supply pressure.
[[nodiscard]] TGasValveParams DrawGasValve(std::int32_t gasType, TSimRandom& random);

}  // namespace ixoverify
