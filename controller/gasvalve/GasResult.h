// What the calibration of one gas has measured and come to. Values; any thread. Nothing here fails. V, bar.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "controller/gasvalve/GasVerdict.h"
#include "ixocamglue/gascal/Ugasdots.h"

namespace ixocontroller {
using namespace ixocamglue;

// What was measured at one voltage.
struct TGasPoint {
  double Volt = 0.0;
  std::uint64_t AtMs = 0;  // when it was put out, from the start of the run
  bool Settled = false;
  bool Foreseen = false;  // Press is where the pressure will end, not where it rests
  double Press = 0.0;
  std::int32_t StableMs = 0, RiseMs = 0;
  std::vector<TDot> Samples;  // ms since the voltage was put out, bar
};

enum class TGasEnd : std::uint8_t {
  Unfinished,  // not begun, or cut off
  Skipped,     // the machine has no such branch, or no output for it
  Failed,      // flat: the state kept the old table
  Restored,    // the old table was put back
  Unsaved,     // a file could not be saved, and the old table was put back
  Stored,
};

struct TGasResult {
  std::int32_t Gas = 0;
  TGasEnd End = TGasEnd::Unfinished;
  bool Stopped = false;  // cut off while it was measured
  std::string Why;       // for the operator; empty when stored
  std::uint64_t DurationMs = 0;
  std::vector<TGasPoint> Points;
  std::vector<TDot> Curve;     // final; empty when there is none
  std::optional<double> Knee;  // V; none when the pressure rises up to full scale
  std::optional<double> Zero;  // bar; the reading before the first voltage
  std::vector<TGasPoint> Downwards;
  std::vector<TGasFinding> Findings;  // the verdict
  // 0 where none has settled.
  [[nodiscard]] double MaxBar() const;
};

}  // namespace ixocontroller
