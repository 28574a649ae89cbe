// Whether the machine is ready for what starts without a look at it: a job of the queue, a list that goes on.
#pragma once

#include <span>

#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"

namespace ixocontroller {

// No alarm forbids anything, the latch is not tripped, the axes have their references, a beam that is needed may be
// lit, and every value is still within what the machine has: ports, branches, nozzles, ranges. What runs or has not
// acknowledged going off is TController::Start's to refuse. Any thread.
[[nodiscard]] TResult<> CheckReady(TController& controller, std::span<const TMotionCall> calls);

}  // namespace ixocontroller
