// Port: what the standing alarms permit, and the record of one alarm. The permissions are read by the state thread and
// by the laser's own inhibit, so every reader is safe from any thread and never blocks.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Installed.h"

namespace ixocamglue {

// One raised alarm as the state framework hands it to the running state.
struct TNcAlarmRecord {
  std::string IdPrefix;  // the source's prefix, "TPSupervisor" for example
  std::string Desc;
  std::int32_t Id = 0;
};

class TNcAlarms {
 public:
  virtual ~TNcAlarms() = default;
  virtual bool AllowCut() = 0;
  virtual bool AllowLaser() = 0;
  virtual bool AllowFollower() = 0;
  virtual bool AllowHoming() = 0;
  virtual bool AllowMove() = 0;  // the general move permission
  virtual bool AllowMoveAxis(std::int32_t axis, bool positive) = 0;
  virtual bool RequireStop() = 0;
  virtual bool RequireOrg() = 0;
};

IXO_DECLARE_SERVICE(TNcAlarms, NcAlarms);

}  // namespace ixocamglue
