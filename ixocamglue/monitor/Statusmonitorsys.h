// The machine's motor names, as a monitor file records them. Read once, at creation; any thread afterwards. Nothing
// fails.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ixocamglue {

class TStatusMonitorSys {
 public:
  // Asks the device manager for the number of axes and the machine configuration for their names; without a device
  // manager there are none.
  TStatusMonitorSys();

  [[nodiscard]] std::int32_t GetMotorCount() const { return static_cast<std::int32_t>(FNames.size()); }
  // The first High+1 names, no more than there are; a negative `high` gives none.
  void GetMotorNames(std::vector<std::string>& names, std::int32_t high) const;
  // `index` from 0. At or beyond the count "A" and index+1; negative: empty.
  [[nodiscard]] std::string GetMotorName(std::int32_t index) const;

 private:
  std::vector<std::string> FNames;
};

}  // namespace ixocamglue
