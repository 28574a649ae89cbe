#include "simulator/Alarms.h"

#include <utility>

namespace ixocamglue {

void TSimAlarms::Raise(TNcAlarmRecord record, const TSimForbids& forbids) {
  const std::uint32_t effects = (forbids.Cut ? kCut : 0U) | (forbids.Laser ? kLaser : 0U) |
                                (forbids.Follower ? kFollower : 0U) | (forbids.Homing ? kHoming : 0U) |
                                (forbids.Move ? kMove : 0U) | (forbids.RequireStop ? kStop : 0U) |
                                (forbids.RequireOrg ? kOrg : 0U);
  TGuard guard(FLock);
  FEffects.fetch_or(effects, std::memory_order_acq_rel);
  FStanding.push_back(std::move(record));
}

void TSimAlarms::ForbidAxis(std::int32_t axis, bool positive) {
  FEffects.fetch_or(AxisBit(axis, positive), std::memory_order_acq_rel);
}

void TSimAlarms::ClearAll() {
  TGuard guard(FLock);
  FEffects.store(0, std::memory_order_release);
  FStanding.clear();
}

std::vector<TNcAlarmRecord> TSimAlarms::Standing() const {
  TGuard guard(FLock);
  return FStanding;
}

}  // namespace ixocamglue
