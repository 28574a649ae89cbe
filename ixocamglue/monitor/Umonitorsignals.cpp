#include "ixocamglue/monitor/Umonitorsignals.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/monitor/Umonitortexts.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// Groups 1/258 and 1/260 stay unused: the writer drops them.
constexpr TMonitorSignal kSignals[] = {
    {skPosition, 2, 1, true, false, "position", "mm", &SSignalPosition},
    {skSpeed, 2, 2, true, false, "speed", "mm/s", &SSignalSpeed},
    {skAcceleration, 2, 3, true, false, "acceleration", "mm/s2", &SSignalAcceleration},
    {skFollowingError, 2, 4, true, false, "following-error", "mm", &SSignalFollowingError},
    {skGasPressure, 4, 1, false, false, "gas-pressure", "bar", &SSignalGasPressure},
    {skLaser, 3, 1, false, true, "laser", "", &SSignalLaser},
    {skEmission, 3, 2, false, true, "emission", "", &SSignalEmission},
    {skState, 3, 5, false, true, "state", "", &SSignalState},
    {skGasBranch, 3, 8, false, true, "gas-branch", "", &SSignalGasBranch},
};

constexpr bool TypesAgree() {
  for (const TMonitorSignal& signal : kSignals) {
    TMonitorDataFrame frame;
    frame.MainType = signal.MainType;
    frame.SubType = signal.SubType;
    if (frame.IsInteger() != signal.Integer || !IsSaved(frame)) return false;
  }
  return true;
}
static_assert(TypesAgree());

}  // namespace

std::span<const TMonitorSignal> MonitorSignals() { return kSignals; }

const TMonitorSignal* FindMonitorSignal(std::uint16_t mainType, std::uint16_t subType) {
  const auto* const row = std::ranges::find_if(
      kSignals, [&](const TMonitorSignal& s) { return s.MainType == mainType && s.SubType == subType; });
  return row == std::end(kSignals) ? nullptr : row;
}

const TMonitorSignal* FindMonitorSignal(std::string_view name) {
  const auto* const row =
      std::ranges::find(kSignals, name, [](const TMonitorSignal& s) { return std::string_view(s.Name); });
  return row == std::end(kSignals) ? nullptr : row;
}

TMonitorSignalKey KeyOf(const TMonitorDataFrame& frame) {
  return {frame.MainType, frame.SubType, frame.Param1, frame.Param2};
}

std::string SignalName(const TMonitorSignalKey& key) {
  const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
  std::string name = signal ? signal->Name : std::to_string(key.MainType) + "/" + std::to_string(key.SubType);
  if (key.Param1 != 0 || key.Param2 != 0) name += "." + std::to_string(key.Param1);
  if (key.Param2 != 0) name += "." + std::to_string(key.Param2);
  return name;
}

std::string SignalCaption(const TMonitorSignalKey& key, std::span<const std::string> motors) {
  const TMonitorSignal* const signal = FindMonitorSignal(key.MainType, key.SubType);
  if (!signal || key.Param2 != 0) return SignalName(key);
  std::string caption = signal->Caption->Get();
  if (key.Param1 != 0) {
    const bool named = signal->PerAxis && key.Param1 <= motors.size() && !motors[key.Param1 - 1U].empty();
    caption += " " + (named ? Tr(motors[key.Param1 - 1U].c_str()) : std::to_string(key.Param1));
  }
  if (*signal->Unit) caption += std::string(" (") + signal->Unit + ")";
  return caption;
}

}  // namespace ixocamglue
