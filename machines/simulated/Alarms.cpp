#include "machines/simulated/Alarms.h"

#include <utility>

namespace ixocamglue {

void TSimAlarms::Raise(TNcAlarmRecord record, const TSimForbids& forbids) {
  record.Attrs |= (forbids.Cut ? naForbidCut : 0U) | (forbids.Laser ? naForbidLaser : 0U) |
                  (forbids.Follower ? naForbidFollower : 0U) | (forbids.Homing ? naForbidHoming : 0U) |
                  (forbids.Move ? naForbidMove : 0U) | (forbids.RequireStop ? naRequireStop : 0U) |
                  (forbids.RequireOrg ? naRequireOrg : 0U);
  Raise(std::move(record));
}

void TSimAlarms::ForbidAxis(std::int32_t axis, bool positive) {
  if (const TNcAlarmAttrs attrs = NcAlarmAxis(axis, positive); attrs != 0)
    Raise({.IdPrefix = "TPSimAxis", .Desc = "axis forbidden", .Id = 2 * axis + (positive ? 1 : 0), .Attrs = attrs});
}

}  // namespace ixocamglue
