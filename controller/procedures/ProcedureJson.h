// A row of the table of procedures for programs: with what its parameters may be on one machine. Any thread; nothing
// throws.
#pragma once

#include <nlohmann/json.hpp>

#include "controller/procedures/Procedures.h"

namespace ixocontroller {

// What a parameter of the row may be, whatever its other values are.
[[nodiscard]] TLimits ParamLimits(const TProcedure& row, const TMotionParam& param, const TMachineBounds& machine);
[[nodiscard]] nlohmann::ordered_json ProcedureJson(const TProcedure& row, const TMachineBounds& machine);

}  // namespace ixocontroller
