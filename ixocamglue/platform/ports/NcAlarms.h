// Port: what the standing alarms permit, and the record of one alarm. The permissions are read by the state thread and
// by the laser's own inhibit, so every reader is safe from any thread and never blocks. Nothing of it fails.
#pragma once

#include <cstdint>
#include <string>

#include "ixocamglue/platform/ports/NcAlarmSource.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

// Members of an alarm's attribute set. Any of the first six, or an axis direction, makes it an alarm of level 1.
enum TNcAlarmAttr : TNcAlarmAttrs {
  naForbidCut = 1U << 0,
  naForbidLaser = 1U << 1,
  naForbidFollower = 1U << 2,
  naForbidHoming = 1U << 3,
  naForbidMove = 1U << 4,  // all motion; NcAlarmAxis gives one axis and direction
  naRequireStop = 1U << 5,
  naRequireOrg = 1U << 6,
  naShownOnly = 1U << 7,  // beside other members it takes nothing from them
};

inline constexpr std::int32_t kNcAlarmAxes = 12;
// Motion of one axis in one direction; the empty set for an axis outside 0 to 11.
[[nodiscard]] constexpr TNcAlarmAttrs NcAlarmAxis(std::int32_t axis, bool positive) {
  return axis < 0 || axis >= kNcAlarmAxes ? 0U
                                          : 1U << (8U + 2U * static_cast<std::uint32_t>(axis) + (positive ? 1U : 0U));
}
// 1 for an alarm that forbids something or requires a stop, else 0.
[[nodiscard]] constexpr std::uint8_t NcAlarmLevel(TNcAlarmAttrs attrs) {
  return (attrs & ~TNcAlarmAttrs{naRequireOrg | naShownOnly}) != 0 ? 1 : 0;
}

// One raised alarm as the alarm package hands it to its subscribers and the state framework to the running state.
struct TNcAlarmRecord {
  std::string IdPrefix;  // the source's prefix, "TPSupervisor" for example
  std::string Desc;
  std::int32_t Id = 0;
  TNcAlarmAttrs Attrs = 0;
  TDateTime Time;            // of the raise, UTC; in an alarm-removed event of the clear
  std::uint64_t Serial = 0;  // the package's number of this raise

  [[nodiscard]] std::string Identifier() const { return IdPrefix + "#" + std::to_string(Id); }  // "TPModbusPLC1#2"
  [[nodiscard]] std::uint8_t Level() const { return NcAlarmLevel(Attrs); }
  [[nodiscard]] TNcAlarmRecord SnapShot() const { return *this; }
};

class TNcAlarms {
 public:
  virtual ~TNcAlarms() = default;
  virtual bool AllowCut() = 0;
  virtual bool AllowLaser() = 0;
  virtual bool AllowFollower() = 0;
  virtual bool AllowHoming() = 0;
  virtual bool AllowMove() = 0;                                      // the general move permission
  virtual bool AllowMoveAxis(std::int32_t axis, bool positive) = 0;  // outside 0 to 11: AllowMove alone
  virtual bool RequireStop() = 0;
  virtual bool RequireOrg() = 0;
};

IXO_DECLARE_SERVICE(TNcAlarms, NcAlarms);

}  // namespace ixocamglue
