// The simulated machine's alarm package: the platform's own, and the shorthand with which the machine and its tests
// raise. It passes no gate: the laser's latch asks it every ms.
#pragma once

#include <cstdint>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"

namespace ixocamglue {

// What an alarm takes away, and what it requires.
struct TSimForbids {
  bool Cut = false;
  bool Laser = false;
  bool Follower = false;
  bool Homing = false;
  bool Move = false;  // the general move permission
  bool RequireStop = false;
  bool RequireOrg = false;
};

class TSimAlarms final : public TNcAlarmManager {
 public:
  using TNcAlarmManager::Raise;
  // The alarm stands from now on. Whoever raises it also tells the state framework (TSimMachine::RaiseAlarm does both).
  void Raise(TNcAlarmRecord record, const TSimForbids& forbids);
  // Forbids one direction of an axis, 0 to 11; other numbers have no effect.
  void ForbidAxis(std::int32_t axis, bool positive);
};

}  // namespace ixocamglue
