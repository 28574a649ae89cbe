#include "ixocamglue/motion/Umotionchecks.h"

#include <cmath>
#include <limits>
#include <string>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue {

TZAxis::TZAxis(std::int32_t followerIndex) : FIndex(followerIndex) {
  TNcCutSystem* const cut = CutSystem();
  TNcMultiFollower* const followers = cut ? cut->MultiFollower() : nullptr;
  if (FIndex != 0 && FIndex != 1) return;
  FFollower = followers ? followers->GetFollower(FIndex) : nullptr;
  if (FFollower) return;
  TNcMotionDriver* const driver = MotionDriver();
  if (driver && driver->HasZ()) FDriver = driver;
}

TCustomBusyType TZAxis::Busy() const {
  if (!FFollower) return csbtMotion;
  return FIndex == 0 ? csbtFollower : csbtFollower2;
}

TPreCheck::TPreCheck(TStateMotion& step, TWhen when) : FStep(step) {
  if (when == AfterMove) return;
  if (FStep.StopAsked()) Refuse(SCheckStopped, SCheckStopped.Get());
  // A composite that is built asks as well, and nobody waits for it.
  if (FStep.IsAtomic()) Require(FStep.StateCtrl(), SCheckNoController);
}

void TPreCheck::Refuse(const TText& reason, std::string_view why) {
  FPassed = false;
  if (TCustomMotionState* const ctrl = FStep.StateCtrl()) ctrl->NoteRefusal(reason, why);
  if (TDiag d{dlError})
    d("%s(%d): %.*s", FStep.GetDesc().c_str(), FStep.GetID(), static_cast<int>(why.size()), why.data());
}

TPreCheck& TPreCheck::Has(const void* device, const TText& name) {
  if (FPassed && !device) Refuse(SCheckNoDevice, Format(SCheckNoDevice.Get(), name.Get()));
  return *this;
}

TPreCheck& TPreCheck::Has(const TZAxis& axis) {
  if (FPassed && !axis) Refuse(SCheckNoDevice, Format(SCheckNoDevice.Get(), SNameZAxis.Get()));
  return *this;
}

TPreCheck& TPreCheck::InRange(const TText& what, double value, TAxisLimits limits) {
  if (FPassed && !(std::isfinite(value) && value >= limits.Neg && value <= limits.Pos))
    Refuse(SCheckOutOfRange, Format(SCheckOutOfRange.Get(), what.Get(), value, limits.Neg, limits.Pos));
  return *this;
}

TPreCheck& TPreCheck::Speed(double mmPerS) {
  return InRange(SNameSpeed, mmPerS, {0.0, std::numeric_limits<double>::infinity()});
}

TPreCheck& TPreCheck::XY(TNcMotionDriver* driver, TPoint2 target) {
  if (!Has(driver, SNameMotionDriver)) return *this;
  return InRange(SNameX, target.X, driver->GetLimits(0)).InRange(SNameY, target.Y, driver->GetLimits(1));
}

TPreCheck& TPreCheck::Z(const TZAxis& axis, double target) {
  if (!Has(axis)) return *this;
  return InRange(SNameZ, target, axis.GetLimits());
}

TPreCheck& TPreCheck::Raised(std::int32_t first, std::int32_t end) {
  for (std::int32_t head = first; head < end && FPassed; ++head) {
    if (head > 0 && !HasSecondHead()) break;
    const TZAxis axis(head);
    if (Has(axis)) Require(axis.GetZ() <= axis.GetSafeZ() + kAtTarget, SCheckNotRaised, head + 1);
  }
  return *this;
}

TPreCheck& TPreCheck::Arrived(const TText& what, double target, double actual) {
  if (FPassed && !(std::abs(actual - target) <= kArrived))
    Refuse(SCheckNotArrived, Format(SCheckNotArrived.Get(), what.Get(), actual, target));
  return *this;
}

TPreCheck& TPreCheck::ArrivedXY(TNcMotionDriver* driver, TPoint2 target) {
  if (!Has(driver, SNameMotionDriver)) return *this;
  return Arrived(SNameX, target.X, driver->GetPos(0)).Arrived(SNameY, target.Y, driver->GetPos(1));
}

void TSmtMoveStep::DoBeforeStep(std::int32_t, std::int32_t newStep) {
  if (newStep != mstpEnd) return;
  TPreCheck check(*this, TPreCheck::AfterMove);
  CheckArrived(check);
  if (!check) SetStep(mstpError);
}

bool HasSecondHead() { return TZAxis(1).Follower(); }

bool IsNear(TPoint2 a, TPoint2 b, double tolerance) {
  return std::abs(a.X - b.X) <= tolerance && std::abs(a.Y - b.Y) <= tolerance;
}

TPoint2 GetXY(TNcMotionDriver& driver) { return {driver.GetPos(0), driver.GetPos(1)}; }

}  // namespace ixocamglue
