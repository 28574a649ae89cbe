// What `ixocut run` shows: the line of position and signals while it runs, and the report at its end.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/procedures/MotionTrace.h"
#include "controller/procedures/RunWatch.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// "X 100.00 Y 50.00 Z 10.00 F 0.00  laser, gas 2 1.50 bar, output 4"; what is off is left out.
[[nodiscard]] std::string StatusText(const TMachineSnapshot& now);
// What is on, as in StatusText; empty: nothing.
[[nodiscard]] std::string WhatIsOn(const TMachineSnapshot& now);

// The lines behind the log, in the language of the controller, which still lives: notes, steps, timeline, path, and how
// it ended.
[[nodiscard]] std::vector<std::string> ReportLines(const TRunReport& report, const TMotionTrace& trace,
                                                   const TMachineSnapshot& last, bool withJournal);
// The last line: how it ended and when, and of a failure at which step, why and what to do.
[[nodiscard]] std::string ClosingLine(const TRunReport& report);
[[nodiscard]] nlohmann::ordered_json ReportJson(const TRunReport& report, const TMotionTrace& trace,
                                                const TMachineSnapshot& last);

}  // namespace ixocontroller
