#include "controller/safety/LaserLatch.h"

#include "controller/texts/HostTexts.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/BeamWatch.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {
namespace {

TProblem Stays(const char* why, const char* remedy) {
  return {.What = Tr("the laser stays latched"), .Why = why, .Remedy = remedy};
}

// Why the latch may not be reset now.
TResult<> MayReset(const TNcStateFramework& framework, const TNcWatch& watch) {
  TNcEmergencyStop* const emergency = EmergencyStop();
  if (emergency && emergency->IsActive()) return Stays(Tr("the emergency stop is active"), Tr("release it"));
  if (!LaserAllowed()) return Stays(Tr("an alarm forbids the laser"), Tr("clear the alarm"));
  if (framework.ChangePending() || framework.CurrentState() != nsStandby)
    return Stays(Tr("the machine is not in standby"), Tr("stop what runs"));
  if (watch.LaserAsked.Runs() || watch.EmissionAsked.Runs())
    return Stays(Tr("laser or emission is asked for"), Tr("switch both off"));
  if (watch.LaserOn.Runs())
    return Stays(Tr("the laser still reads as lit"), Tr("switch the laser source off by its own switch"));
  if (framework.SafePending())
    return Stays(Tr("a device has not acknowledged switching off"), Tr("wait until it has, or repair it"));
  if (!watch.Lives(Clock().MonotonicMs()))
    return Stays(Tr("the state thread gives no sign of life"), Tr("restart the program"));
  return {};
}

TProblem NotReached() {
  return {.What = Tr("the laser cannot be reached"), .Why = DescribeException(std::current_exception())};
}

}  // namespace

const char* LatchReason() {
  TNcLaser* const laser = FittedLaser();
  return laser ? laser->LatchReason() : nullptr;
}

TResult<> LaserUsable() try {
  if (!FittedLaser()) return TProblem{.What = Tr("the machine has no laser")};
  if (const char* const why = LatchReason())
    return TProblem{.What = Tr("the laser is latched"),
                    .Where = {},
                    .Why = Tr(why),
                    .Remedy = Tr("remove the cause, then hold the stop key for 3 s in standby")};
  if (!LaserAllowed())
    return TProblem{.What = Tr("an alarm forbids the laser"), .Where = {}, .Why = {}, .Remedy = Tr("clear the alarm")};
  return {};
} catch (...) {
  return NotReached();
}

TResult<> ResetLatch(TNcStateFramework& framework, std::optional<std::string> lasts) try {
  if (!LatchReason()) return {};
  if (lasts) return Stays(lasts->c_str(), Tr("end what lasts too long"));
  if (TResult<> may = MayReset(framework, framework.Watch()); !may) return may;
  FittedLaser()->ResetLatch();
  // One that was pressed meanwhile trips after it has become active.
  if (TNcEmergencyStop* const emergency = EmergencyStop(); emergency && emergency->IsActive()) {
    FittedLaser()->Trip(kEmergencyTrip);
    return Stays(Tr("the emergency stop is active"), Tr("release it"));
  }
  LogMsg(lkInfo, 0, SLatchReset.Get(), TLatchAlarm::kPrefix);
  return {};
} catch (...) {
  return NotReached();
}

void TLatchAlarm::UpdateAlarms(INcAlarmReport20& report) {
  const char* const reason = LatchReason();
  if (reason != FReason) report.ClearAlarm(kId);  // also reset and tripped anew between two rounds
  FReason = reason;
  if (reason) report.RaiseAlarm(kId);
}

std::string TLatchAlarm::GetAlarmDesc(std::int32_t) { return Show(SLaserLatched, FReason ? Tr(FReason) : ""); }

}  // namespace ixocontroller
