// Whether the machine is ready for what starts without a look at it: a job of the queue, a list that goes on. Nothing
// throws: what is in the way is answered.
#pragma once

#include <span>
#include <vector>

#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"

namespace ixocontroller {

// Everything that the machine is not ready for: an alarm forbids something, the axes have no references, the latch is
// tripped, a beam that is needed may not be lit, the head would strike the nozzle rack, a value is not within what the
// machine has: ports, branches, nozzles, ranges. What runs or has not acknowledged going off is TController::MayStart's
// to refuse. Any thread.
[[nodiscard]] std::vector<TProblem> FindUnready(TController& controller, std::span<const TMotionCall> calls);
// The first of them. Any thread.
[[nodiscard]] TResult<> CheckReady(TController& controller, std::span<const TMotionCall> calls);

}  // namespace ixocontroller
