// The gas calibration's part of the abort sweep, per gas:
//   states   every change of sub-state x every reason
//   drawn    50 ticks drawn by seed x every reason
//   bare     the changes of sub-state without the platform's safe entry
//   faults   every fault of valve and sensor, with the controller's protections: it ends within bounded machine time
//   clock    two gases in one run: undisturbed, and across the wraps of the clock's two counts
// After any ending: gas off and 0 V, the table as it was or complete, both files whole, the next procedure runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "verify/SweepTask.h"

namespace ixoverify {

// "calibrate-air", "calibrate-o2", "calibrate-n2", and two gases in one run: "calibrate-two". Any thread.
[[nodiscard]] std::vector<std::string> GasSweepNames();
[[nodiscard]] std::vector<TSweepTask> GasSweepTasks(std::uint64_t seed);  // any thread

}  // namespace ixoverify
