// What a recorded gas calibration says about the valve, its line, its supply and its sensor. V, bar, ms.
#pragma once

#include <string>
#include <vector>

#include "controller/gas/GasRecording.h"

namespace ixocontroller {

struct TGasFinding {
  const char* Kind = "";  // "noise", "drift", "dead-band", "saturation", "hysteresis", "supply", "response", ...
  bool Bad = false;
  double Figure = 0.0;
  const char* Unit = "";
  std::string Sentence;  // for the operator, with the figure
};

// In a fixed order. Where the pressure does not answer to the voltage, nothing is said about the curve; hysteresis is
// judged where voltages were measured a second time on the way down.
[[nodiscard]] std::vector<TGasFinding> JudgeGas(const TRecordedGas& gas);

}  // namespace ixocontroller
