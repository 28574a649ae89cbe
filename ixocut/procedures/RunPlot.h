// The picture of a run. Any thread.
#pragma once

#include <string>

#include "controller/runs/RunReport.h"

namespace ixocut {
using namespace ixocontroller;

// XY path, Z over time and the signals over time as one SVG. Throws EProblem when it cannot be drawn.
void PlotRun(const TRunReport& report, const TMotionTrace& trace, const std::string& title, const std::string& target);

}  // namespace ixocut
