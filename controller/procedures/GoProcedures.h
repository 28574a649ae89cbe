// The procedures that send the head to a configured place. State thread. Throws EProblem for what cannot be made on
// this machine.
#pragma once

#include "ixocamglue/motion/Usteptree.h"

namespace ixocontroller {
using namespace ixocamglue;

// Throw EProblem, exit code 3, when the place is not enabled or was never configured.
[[nodiscard]] TStepPtr MakeGoMaintenance(TCustomMotionState* ctrl);  // 422 to FCHMaintainCfg
[[nodiscard]] TStepPtr MakeGoBlanking(TCustomMotionState* ctrl);     // 137 to FBlankingCfg

}  // namespace ixocontroller
