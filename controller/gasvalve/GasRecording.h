// What a gas calibration measured, kept in a file with every sample: written by `gas calibrate --record`, read by
// `gas verdict`. One JSON document. V, bar, ms.
//
// {"format": "ixocut gas recording", "version": 1, "nozzle": {"type": "S", "size": 1.5}, "gases": [
//   {"gas": "O2", "type": 2, "maxPressure": 10, "points": [
//     {"volt": 1, "descending": false, "foreseen": false, "settled": 0.93, "samples": [[600, 0.92], [605, null], ...]},
//     ...],
//    "table": [[0, 0], [1, 0.93], ...]}]}
//
// Samples are [ms since the voltage was put out, bar], null where the sensor gave no number; "settled" is null for a
// point that never settled; a gas that was cut off by a stop has "stopped": true; points stand in the order in which
// they were measured; the table holds [V, bar]. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/gascal/Ugasdots.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr double kFlatBar = 0.1;  // a pressure that changes by no more does not answer to the voltage

struct TRecordedGasPoint {
  double Volt = 0.0;
  bool Descending = false;        // of the pass downwards
  bool Foreseen = false;          // settled: where the pressure will end, not where it rests
  std::optional<double> Settled;  // bar
  std::vector<TDot> Samples;      // X rising; Y is no number where the sensor gave none
};

struct TRecordedGas {
  std::int32_t GasType = 0;  // 1 "Air" ... 6 "H-N2"
  std::string Name;
  bool Stopped = false;        // cut off before its last point: nothing can be said of the valve
  double MaxPressure = 0.0;    // what the branch should reach; 0 unknown
  std::optional<double> Zero;  // bar; the reading with gas on and the valve shut, before the first voltage
  std::vector<TRecordedGasPoint> Points;
  std::vector<TDot> Table;  // the final curve; empty when there is none
};

struct TGasRecording {
  std::string NozzType;
  double NozzSize = 0.0;  // mm
  std::vector<TRecordedGas> Gases;
};

// The file's document. Does not fail.
[[nodiscard]] nlohmann::ordered_json GasRecordingJson(const TGasRecording& recording);
// Replaces the file as a whole. Throws EProblem (exit code 3) when it cannot be written.
void WriteGasRecording(const std::string& file, const TGasRecording& recording);

// Whether a file that begins so is one. Does not fail.
[[nodiscard]] bool IsGasRecording(std::string_view head);

// Throws EProblem (exit code 3), naming file, place and reason, for anything but a whole recording: unknown names are
// passed over, missing or impossible values are not.
[[nodiscard]] TGasRecording ReadGasRecording(const std::string& file);

}  // namespace ixocontroller
