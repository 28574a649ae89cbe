// How a run that did not succeed is told to the operator: what, at which step, why and what to do. Any thread; nothing
// throws.
#pragma once

#include <span>
#include <string>

#include "controller/runs/RunWatch.h"

namespace ixocontroller {

// "Nozzle change, 9/25 Check: raise the stage". `path`: of the outcome; its first name is the procedure's.
[[nodiscard]] std::string StepOf(const std::string& path, std::span<const TStepSpan> standing);
// Of a report that is no success; `shown`: the machine at its end.
[[nodiscard]] TProblem FailureOf(const TRunReport& report, const TMachineSnapshot& shown,
                                 const TMotionOutcome& outcome);

}  // namespace ixocontroller
