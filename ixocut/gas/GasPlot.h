// The picture of a gas calibration: per gas the measured points with the rebuilt curve, and the pressure over time at
// each voltage. Any thread.
#pragma once

#include <string>
#include <vector>

#include "controller/gas/GasCalibration.h"

namespace ixocut {
using namespace ixocontroller;

// Draws an SVG where `target` says. Throws EProblem when there is nothing to draw or gnuplot fails.
void DrawGasCalibration(const std::vector<TGasResult>& results, const TGasNozzle& nozzle, const std::string& target);

}  // namespace ixocut
