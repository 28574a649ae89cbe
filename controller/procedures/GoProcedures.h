// The procedures that send the head to a configured place. State thread.
#pragma once

#include "ixocamglue/motion/Usteptree.h"

namespace ixocontroller {
using namespace ixocamglue;

// Throw EProblem, exit code 3, when the place is not enabled or was never configured.
[[nodiscard]] TStepPtr MakeGoMaintenance(TCustomMotionState* ctrl);  // 422 to FCHMaintainCfg
[[nodiscard]] TStepPtr MakeGoBlanking(TCustomMotionState* ctrl);     // 137 to FBlankingCfg

}  // namespace ixocontroller
