// The simulated alarm package: which alarms stand, and what they permit. Any thread; reads are lock-free.
// It passes no gate: the laser's latch asks it every ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/NcAlarms.h"
#include "support/Locks.h"

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

class TSimAlarms final : public TNcAlarms {
 public:
  bool AllowCut() override { return !Has(kCut); }
  bool AllowLaser() override { return !Has(kLaser); }
  bool AllowFollower() override { return !Has(kFollower); }
  bool AllowHoming() override { return !Has(kHoming); }
  bool AllowMove() override { return !Has(kMove); }
  bool AllowMoveAxis(std::int32_t axis, bool positive) override { return AllowMove() && !Has(AxisBit(axis, positive)); }
  bool RequireStop() override { return Has(kStop); }
  bool RequireOrg() override { return Has(kOrg); }

  // The alarm stands from now on. Whoever raises it also tells the state framework (TSimMachine::RaiseAlarm does both).
  void Raise(TNcAlarmRecord record, const TSimForbids& forbids);
  // Forbids one direction of an axis, 0 to 11; other numbers have no effect.
  void ForbidAxis(std::int32_t axis, bool positive);
  void ClearAll();
  [[nodiscard]] std::vector<TNcAlarmRecord> Standing() const;

 private:
  enum TBit : std::uint32_t { kCut = 1, kLaser = 2, kFollower = 4, kHoming = 8, kMove = 16, kStop = 32, kOrg = 64 };
  static constexpr std::int32_t kAxes = 12;  // two bits each, from bit 8 on

  [[nodiscard]] static std::uint32_t AxisBit(std::int32_t axis, bool positive) {
    return axis < 0 || axis >= kAxes ? 0U : 1U << (8U + 2U * static_cast<std::uint32_t>(axis) + (positive ? 1U : 0U));
  }
  [[nodiscard]] bool Has(std::uint32_t bits) const { return (FEffects.load(std::memory_order_acquire) & bits) != 0; }

  std::atomic<std::uint32_t> FEffects{0};
  mutable TCriticalSection FLock;
  std::vector<TNcAlarmRecord> FStanding IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
