// A run in the controller that is asked, on the console: its progress is shown there, and Ctrl-C stops it. Main thread.
#pragma once

#include "controller/client/WireRun.h"
#include "ixocut/Console.h"

namespace ixocut {

// As RunOnController; what is only started is left to itself by Ctrl-C.
[[nodiscard]] ixocontroller::TWireRun RunOnConsole(ixocontroller::TWireClient& client,
                                                   const ixocontroller::TWireOrder& order, TConsole& console,
                                                   decltype(ixocontroller::TWireFollower::Look) look = {},
                                                   decltype(ixocontroller::TWireFollower::Event) event = {});

}  // namespace ixocut
