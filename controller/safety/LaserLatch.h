// The laser's latch as the controller sees it: why the laser cannot be used, who may reset the latch and when, and the
// message that stands while it is tripped. Any thread; nothing here waits for a device but the reset itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr const char* kEmergencyTrip = TrMark("emergency stop");  // the reason of the emergency stop's own trip

// Why the latch is tripped, a literal that Tr shows; null: it is not, or there is none. Throws when the laser cannot be
// reached.
[[nodiscard]] const char* LatchReason();
// What keeps the laser from being used: not fitted, latched, forbidden by an alarm.
[[nodiscard]] TResult<> LaserUsable();

// Resets a tripped latch; without one nothing happens. Refused while its cause stands, outside standby, and while laser
// or emission is asked for, so that no light comes back with it. `lasts`: what lasts too long by the supervisor's
// rules.
TResult<> ResetLatch(TNcStateFramework& framework, std::optional<std::string> lasts = {});

// The shown-only alarm "TPLatch#1", which stands as long as the latch is tripped, says why, and how to reset it. No
// reset of the alarms ends it.
class TLatchAlarm final : public INcAlarmSource20 {
 public:
  static constexpr const char* kPrefix = "TPLatch";

  std::string GetAlarmIDPrefix() override { return kPrefix; }
  void RegisterAlarms(INcAlarmTable20& table) override { table.RegisterAlarm(kId, naShownOnly); }
  void UpdateAlarms(INcAlarmReport20& report) override;
  void ResetAlarm(std::int32_t) override {}
  std::string GetAlarmDesc(std::int32_t id) override;

 private:
  static constexpr std::int32_t kId = 1;
  const char* FReason = nullptr;  // as last reported; the package's thread
};

}  // namespace ixocontroller
