// What a recorded gas calibration says about the valve, its line, its supply and its sensor. V, bar, ms. Any thread;
// nothing throws, and what cannot be judged is left out.
#pragma once

#include <string>
#include <vector>

#include "controller/gasvalve/GasRecording.h"

namespace ixocontroller {

struct TGasFinding {
  const char* Kind = "";  // "zero", "noise", "slow", "drift", "dead-band", "saturation", "hysteresis", "supply", ...
  bool Bad = false;
  bool Doubt = false;  // neither bad nor well: something cannot be said, or may be wrong
  double Figure = 0.0;
  const char* Unit = "";
  std::string Sentence;  // for the operator, with the figure
};

// In a fixed order. Of a gas that was cut off by a stop nothing is said but that ("stopped"). Where the pressure does
// not answer to the voltage, nothing is said about the curve; hysteresis is judged where voltages were measured a
// second time on the way down. Of a slow line neither drift nor hysteresis is said: they are its slowness.
[[nodiscard]] std::vector<TGasFinding> JudgeGas(const TRecordedGas& gas);

// The first finding that is bad; null when none is.
[[nodiscard]] const TGasFinding* FirstBad(const std::vector<TGasFinding>& findings);
// "  !! supply     ...": a line for each; "ok" for what is well, " ?" for a doubt.
[[nodiscard]] std::vector<std::string> FindingLines(const std::vector<TGasFinding>& findings);

}  // namespace ixocontroller
