#include "ixocamglue/monitor/Statusmonitorsys.h"

#include <algorithm>

#include "ixocamglue/monitor/Umonitortexts.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

TStatusMonitorSys::TStatusMonitorSys() {
  TNcDeviceManager* const devices = DeviceManager();
  const std::int32_t count = devices ? devices->GetAxisCount() : 0;
  const auto axes = ConfigSection("Axes").Children("Axis");
  for (std::int32_t i = 1; i <= count; ++i) {
    std::string name;
    if (static_cast<std::size_t>(i) <= axes.size()) name = axes[static_cast<std::size_t>(i - 1)].GetText("Name", "");
    FNames.push_back(name.empty() ? SAxis.Get() + std::to_string(i) : name);
  }
}

void TStatusMonitorSys::GetMotorNames(std::vector<std::string>& names, std::int32_t high) const {
  const std::int64_t count = std::clamp<std::int64_t>(std::int64_t{high} + 1, 0, GetMotorCount());
  names.assign(FNames.begin(), FNames.begin() + count);
}

std::string TStatusMonitorSys::GetMotorName(std::int32_t index) const {
  if (index < 0) return {};
  if (index < GetMotorCount()) return FNames[static_cast<std::size_t>(index)];
  return "A" + std::to_string(std::int64_t{index} + 1);
}

}  // namespace ixocamglue
