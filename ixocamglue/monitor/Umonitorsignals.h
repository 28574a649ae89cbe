// The signals that a recording of this machine may hold: one table for recording, showing, plotting and comparing. The
// table is constant: any thread, and nothing throws. What is not found is null; an unknown signal has its numbers as
// its name.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/monitor/Usystemmonitordef.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

enum class TMonitorSignalKind : std::uint8_t {
  skPosition,
  skSpeed,
  skAcceleration,
  skFollowingError,
  skGasPressure,
  skLaser,
  skEmission,
  skState,
  skGasBranch,
};
using enum TMonitorSignalKind;

struct TMonitorSignal {
  TMonitorSignalKind Kind;
  std::uint16_t MainType;
  std::uint16_t SubType;
  bool PerAxis;          // Param1 is the axis, from 1; otherwise Param1 is 0
  bool Integer;          // as the frame's types say, see TMonitorDataFrame::IsInteger
  const char* Name;      // on the command line and in JSON
  const char* Unit;      // empty: none
  const TText* Caption;  // for the operator
};

[[nodiscard]] std::span<const TMonitorSignal> MonitorSignals();
// Null: unknown.
[[nodiscard]] const TMonitorSignal* FindMonitorSignal(std::uint16_t mainType, std::uint16_t subType);
[[nodiscard]] const TMonitorSignal* FindMonitorSignal(std::string_view name);

// Which signal a frame belongs to.
struct TMonitorSignalKey {
  std::uint16_t MainType = 0;
  std::uint16_t SubType = 0;
  std::uint16_t Param1 = 0;
  std::uint16_t Param2 = 0;
  friend auto operator<=>(const TMonitorSignalKey&, const TMonitorSignalKey&) = default;
};
[[nodiscard]] TMonitorSignalKey KeyOf(const TMonitorDataFrame& frame);
// "position.1", "laser"; "2/77.1" or "2/77.1.3" for a signal that the table does not know.
[[nodiscard]] std::string SignalName(const TMonitorSignalKey& key);
// "Position X (mm)": the operator's caption, the file's name of the axis and the unit.
[[nodiscard]] std::string SignalCaption(const TMonitorSignalKey& key, std::span<const std::string> motors);

}  // namespace ixocamglue
