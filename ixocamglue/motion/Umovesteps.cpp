#include "ixocamglue/motion/Umovesteps.h"

#include <array>
#include <cmath>
#include <vector>

#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Ustatemotion.h"

namespace ixocamglue {

// --- 131 ---

void TSmtMoveToXY::CheckArrived(TPreCheck& check) { check.ArrivedXY(MotionDriver(), FTarget); }

void TSmtMoveToXY::ResetParams() {
  TSmtMoveStep::ResetParams();
  FTarget = {};
  FSpeed = 0.0;
}

TStepType TSmtMoveToXY::DoMotion(std::int32_t) {
  TNcMotionDriver* const driver = MotionDriver();
  if (!TPreCheck(*this).XY(driver, FTarget).Speed(FSpeed).Raised(1)) return Fail();
  if (IsNear(GetXY(*driver), FTarget, kAtTarget)) return Await(csbtEnsure);
  driver->MoveXY(FTarget, FSpeed);
  return Await(csbtMotion);
}

// --- 134, 136 ---

void TSmtFollowerStep::ResetParams() {
  TSmtMoveStep::ResetParams();
  FFollowerIndex = 0;
}

void TSmtSafeMoveToZ::ResetParams() {
  TSmtFollowerStep::ResetParams();
  FTargetZ = 0.0;
  FUseSafeZ = true;
  FOnlyUp = true;
  FSpeed = 0.0;
}

void TSmtSafeMoveToZ::BecomeMoveToZ() {
  FCommand = kMoveToZ;
  FTargetZ = 0.0;
  FUseSafeZ = false;
  FOnlyUp = false;
}

TStepType TSmtSafeMoveToZ::DoMotion(std::int32_t) {
  const TZAxis axis(FFollowerIndex);
  TPreCheck check(*this);
  if (!check.Has(axis)) return Fail();
  const double target = Target(axis);
  if (!check.Z(axis, target).Speed(FSpeed)) return Fail();
  const double way = target - axis.GetZ();
  if (std::abs(way) <= kAtTarget || (FOnlyUp && way > 0.0)) return Await(csbtEnsure);
  axis.MoveZ(target, FSpeed);
  return Await(axis.Busy());
}

void TSmtSafeMoveToZ::CheckArrived(TPreCheck& check) {
  const TZAxis axis(FFollowerIndex);
  if (!check.Has(axis)) return;
  const double target = Target(axis);
  const double z = axis.GetZ();
  if (!FOnlyUp || z > target) check.Arrived(SNameZ, target, z);
}

// --- 138, 139 ---

void TSmtRaisedMove::CheckArrived(TPreCheck& check) { check.ArrivedXY(MotionDriver(), FEnd); }

void TSmtRaisedMove::ResetParams() {
  TSmtMoveStep::ResetParams();
  FTarget = {};
  FSpeed = 0.0;
  FRaised = 0;
}

// Everything is checked before a head rises, and again before the next one does and before they travel.
TStepType TSmtRaisedMove::DoMotion(std::int32_t) {
  TNcMotionDriver* const driver = MotionDriver();
  TPreCheck check(*this);
  if (!check.Has(driver, SNameMotionDriver).Has(TZAxis(0))) return Fail();
  const TPoint2 target = Resolve(check, *driver);
  if (!check.XY(driver, target).Speed(FSpeed).Raised(0, FRaised)) return Fail();
  for (const std::int32_t heads = HasSecondHead() ? kHeads : 1; FRaised < heads;) {
    const TZAxis axis(FRaised);
    if (!check.Has(axis)) return Fail();
    const double safeZ = axis.GetSafeZ();
    const bool below = axis.GetZ() > safeZ + kAtTarget;
    if (!check.Z(axis, safeZ)) return Fail();
    ++FRaised;
    if (!below) continue;
    axis.MoveZ(safeZ, 0.0);
    return PollAgain(axis.Busy());
  }
  FEnd = target;
  if (IsNear(GetXY(*driver), target, kAtTarget)) return Await(csbtEnsure);
  driver->MoveXY(target, FSpeed);
  return Await(csbtMotion);
}

TPoint2 TSmtSafeMoveToWorkXY::Resolve(TPreCheck& check, TNcMotionDriver& driver) {
  TPoint2 origin;
  if (!check.Require(driver.GetWorkOrigin(origin), SCheckNoWorkOrigin)) return {};
  const TNcArea area = driver.GetWorkArea();
  const TPoint2 target{origin.X + FTarget.X, origin.Y + FTarget.Y};
  check.InRange(SNameWorkX, target.X, {area.Min.X, area.Max.X}).InRange(SNameWorkY, target.Y, {area.Min.Y, area.Max.Y});
  return target;
}

void TSmtSafeMoveToWorkXY::AddWay(std::vector<TPoint2>& way) {
  TNcMotionDriver* const driver = MotionDriver();
  if (TPoint2 origin; driver && driver->GetWorkOrigin(origin))
    way.push_back({origin.X + FTarget.X, origin.Y + FTarget.Y});
}

TPoint2 TSmtSafeMoveToAssistXY::Resolve(TPreCheck& check, TNcMotionDriver&) {
  TNcLaser* const laser = FittedLaser();
  check.Require(!laser || !laser->GetLaser(), SCheckLaserOn);
  return FTarget;
}

// --- 350 ---

namespace {

// Round the edges, up one diagonal, along the right edge, up the other and along the left edge back to the start.
std::array<TPoint2, 8> LubricateRound(const TRange2& range) {
  const TPoint2 corner{range.Max.X, range.Min.Y};
  const TPoint2 opposite{range.Min.X, range.Max.Y};
  return {range.Min, corner, range.Max, opposite, range.Min, range.Max, corner, opposite};
}

}  // namespace

void TSmtLubricateCurve::CheckArrived(TPreCheck& check) { check.ArrivedXY(MotionDriver(), FEnd); }

void TSmtLubricateCurve::ResetParams() {
  TSmtMoveStep::ResetParams();
  FRange.reset();
  FCount = 1;
  FSpeed = 0.0;
}

TStepType TSmtLubricateCurve::DoMotion(std::int32_t) {
  TNcMotionDriver* const driver = MotionDriver();
  TPreCheck check(*this);
  if (!check.Has(driver, SNameMotionDriver).Has(TZAxis(0))) return Fail();
  const TRange2 range = Range(*driver);
  check.Require(range.Max.X > range.Min.X && range.Max.Y > range.Min.Y, SCheckEmptyRange);
  check.XY(driver, range.Min).XY(driver, range.Max).Speed(FSpeed);
  check.InRange(SNameCount, FCount, {1.0, kMaxCount});
  if (!check.Raised(0)) return Fail();

  const std::array round = LubricateRound(range);
  std::vector<TPoint2> points;
  points.reserve(round.size() * static_cast<std::size_t>(FCount) + 1);
  for (std::int32_t i = 0; i < FCount; ++i) points.insert(points.end(), round.begin(), round.end());
  points.push_back(range.Min);
  FEnd = points.back();
  driver->MoveCurve(points, FSpeed);
  return Await(csbtMotion);
}

void TSmtLubricateCurve::AddWay(std::vector<TPoint2>& way) {
  TNcMotionDriver* const driver = MotionDriver();
  if (!driver) return;
  const std::array round = LubricateRound(Range(*driver));
  way.insert(way.end(), round.begin(), round.end());
  way.push_back(round.front());
}

TRange2 TSmtLubricateCurve::Range(TNcMotionDriver& driver) const {
  if (FRange) return *FRange;
  const TAxisLimits x = driver.GetLimits(0);
  const TAxisLimits y = driver.GetLimits(1);
  return {{x.Neg + kInset, y.Neg + kInset}, {x.Pos - kInset, y.Pos - kInset}};
}

// --- 137, 181, 422 ---

void TSmtSafeMoveToXY::ResetParams() {
  TSmtComposite::ResetParams();
  FTarget = {};
  FSpeed = 0.0;
}

void TSmtSafeMoveToXY::AddXY() {
  Add(134, SSafeMoveToZDesc);
  if (HasSecondHead()) Add<TSmtSafeMoveToZ>(134, SSafeMoveToZDesc).FFollowerIndex = 1;
  auto& xy = Add<TSmtMoveToXY>(131, SMoveToXYDesc);
  xy.FTarget = FTarget;
  xy.FSpeed = FSpeed;
}

void TSmtSafeMoveToXYZ::ResetParams() {
  TSmtSafeMoveToXY::ResetParams();
  FTargetZ = 0.0;
}

void TSmtSafeMoveToXYZ::BuildMotionList() {
  AddXY();
  Add<TSmtSafeMoveToZ>(136, SMoveToZDesc).FTargetZ = FTargetZ;
}

void TSmtSafeMoveToXYZF::ResetParams() {
  TSmtSafeMoveToXYZ::ResetParams();
  FFocus = 0.0;
}

void TSmtSafeMoveToXYZF::BuildMotionList() {
  AddXY();
  Add<TSmtMoveToF>(421, SMoveToFDesc).FFocus = FFocus;
  Add<TSmtSafeMoveToZ>(136, SMoveToZDesc).FTargetZ = FTargetZ;
}

}  // namespace ixocamglue
