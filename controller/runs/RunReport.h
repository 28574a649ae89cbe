// What is shown of a run: the line of position and signals while it runs, and the report at its end. In the language of
// the controller, which still lives; the thread that has made the controller. Nothing throws but reading a report that
// is none (EProblem).
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/runs/MotionTrace.h"
#include "controller/runs/RunWatch.h"
#include "ixocamglue/platform/Machine.h"

namespace ixocontroller {

// "X 100.00 Y 50.00 Z 10.00 F 0.00  Laser, Gas O2 1.50 bar, Output 4 (Nozzle cover)"; what is off is left out.
[[nodiscard]] std::string StatusText(const TMachineSnapshot& now);
// What is on, as in StatusText; empty: nothing.
[[nodiscard]] std::string WhatIsOn(const TMachineSnapshot& now);

// The lines behind the log: notes, steps, timeline, path, and how it ended.
[[nodiscard]] std::vector<std::string> ReportLines(const TRunReport& report, const TMotionTrace& trace,
                                                   const TMachineSnapshot& last, bool withJournal);
// The last line: how it ended and when, and of a failure at which step, why and what to do.
[[nodiscard]] std::string ClosingLine(const TRunReport& report);
// Times count from startMs.
[[nodiscard]] nlohmann::ordered_json StepsJson(const std::vector<TStepSpan>& steps, std::uint64_t startMs);
[[nodiscard]] nlohmann::ordered_json ReportJson(const TRunReport& report, const TMotionTrace& trace,
                                                const TMachineSnapshot& last);
// What ReportJson has made of a report, with the problem that stands beside it (null: none). Times count from 0, the
// run's start; of the signals those of the timeline. Throws EProblem (pbUnusable) for anything else.
[[nodiscard]] TRunReport ReportFromJson(const nlohmann::ordered_json& json, const nlohmann::ordered_json& problem);

}  // namespace ixocontroller
