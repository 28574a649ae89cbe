// What a list of commands would strike, or wait for in vain, known before anything runs. Any thread, while the
// configuration stands still; mm. Nothing throws.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <utility>

#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// The first call, by its index, that breaks one of these, and why; none: the list is good.
//   - Where a command has sent a head is known until another one moves it. No Z goes below the table's surface, unless
//     the head is known to stand beside the table; 131 and 133 need the second head at its safe height, 350 both.
//   - An input wait with an output waits for the answer to it: the wait switches it on itself, or a command before it
//     has switched it.
[[nodiscard]] std::optional<std::pair<std::size_t, TProblem>> CheckList(std::span<const TMotionCall> calls,
                                                                        const TMachineLimits& machine);

}  // namespace ixocontroller
