// How long a list of commands may keep the beam lit, known before anything runs. Any thread, while the configuration
// stands still; times ms. Nothing throws.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <utility>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// From 516 or 520 to 517, 522 or the end of the list the beam counts as lit. Only what has a known longest duration may
// stand in between: delays and input waits with their limits, 516 with its wait for emission, moves of XY, Z and focus
// with the longest way that they can have, XY at most at the machine file's CutSpeedLimit. All of it together lasts no
// longer than a shot may. A follow that began before the beam goes on.
//
// The first call that breaks this, by its index, and why; none: the list is good. The supervisor and the laser's latch
// would end a longer beam as well; it never starts here.
[[nodiscard]] std::optional<std::pair<std::size_t, TProblem>> CheckBeam(std::span<const TMotionCall> calls,
                                                                        const TMachineLimits& machine);

}  // namespace ixocontroller
