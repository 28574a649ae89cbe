// Where a run will send XY, known before anything moves.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/ports/MotionDriver.h"

namespace ixocontroller {

// The targets in machine coordinates, mm, in their order; without what the steps know only when they are entered: a
// target in work coordinates, a curve, a way back, and what is built late. Any thread; throws what MakeRoot throws.
[[nodiscard]] std::vector<TPoint2> PlannedPath(const std::string& name, std::span<const TMotionCall> calls);

}  // namespace ixocontroller
