#include "machines/simulated/Axes.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// "left right front back"; empty without a point.
std::string RectangleOf(std::span<const TPoint2> points) {
  if (points.empty()) return {};
  const auto [left, right] = std::ranges::minmax(points, {}, &TPoint2::X);
  const auto [front, back] = std::ranges::minmax(points, {}, &TPoint2::Y);
  return Format("%.3f %.3f %.3f %.3f", left.X, right.X, front.Y, back.Y);
}

constexpr double kSmoothCorner = 0.94;      // cosine of the angle (20 degrees) up to which a corner is run through
constexpr double kTurnAcceleration = 20.0;  // turns/s2
constexpr double kTurnSpeed = 1.0;          // turns/s

constexpr TAxisLimits kNowhere{1.0, -1.0};  // of a device that does not answer

double SpeedWithin(double wanted, double most) { return wanted > 0.0 && wanted < most ? wanted : most; }

}  // namespace

// --- TSimPath ---

TSimPath::TSimPath(TPoint2 from, std::span<const TPoint2> points, double speed, double acceleration)
    : FPoints{from}, FAt{0.0}, FSpeed(speed), FAcceleration(acceleration) {
  for (const TPoint2& point : points) {
    const TPoint2 last = FPoints.back();
    const double length = std::hypot(point.X - last.X, point.Y - last.Y);
    if (length == 0.0) continue;
    if (FPoints.size() > 1) {
      const TPoint2 before = FPoints[FPoints.size() - 2];
      const double lengthBefore = FAt.back() - FAt[FAt.size() - 2];
      const double scalar = (last.X - before.X) * (point.X - last.X) + (last.Y - before.Y) * (point.Y - last.Y);
      if (scalar < kSmoothCorner * length * lengthBefore) FStops.push_back(FAt.back());
    }
    FPoints.push_back(point);
    FAt.push_back(FAt.back() + length);
  }
  FStops.push_back(FAt.back());
  NextStretch();
}

void TSimPath::NextStretch() {
  if (FStretch < FStops.size()) FAlong.Start(FStops[FStretch++], FSpeed, FAcceleration);
}

bool TSimPath::Moving() const { return FAlong.Moving() || FStretch < FStops.size(); }

TPoint2 TSimPath::Pos() const {
  const double way = FAlong.Pos();
  const auto it = std::ranges::upper_bound(FAt, way);
  if (it == FAt.end()) return FPoints.back();
  if (it == FAt.begin()) return FPoints.front();
  const auto i = static_cast<std::size_t>(it - FAt.begin());
  const double share = (way - FAt[i - 1]) / (FAt[i] - FAt[i - 1]);
  const TPoint2& a = FPoints[i - 1];
  const TPoint2& b = FPoints[i];
  return {a.X + (b.X - a.X) * share, a.Y + (b.Y - a.Y) * share};
}

void TSimPath::Brake() {
  FStretch = FStops.size();
  FAlong.Brake();
}

void TSimPath::Step() {
  FAlong.Step();
  if (!FAlong.Moving()) NextStretch();
}

// --- TSimMotion ---

TSimMotion::TSimMotion(TSimCore& core, const TSimConfig& config)
    : FCore(core),
      FX(config.X),
      FY(config.Y),
      FZAxis(config.Z),
      FHasZ(!config.Physics.Follower),
      FSafeZ(config.SafeZ),
      FWorkArea(config.WorkArea),
      FWorkOrigin(config.WorkOrigin),
      FPath({std::clamp(0.0, FX.SoftLimitNeg, FX.SoftLimitPos), std::clamp(0.0, FY.SoftLimitNeg, FY.SoftLimitPos)}, {},
            1.0, 1.0) {
  FZ.Place(std::clamp(0.0, FZAxis.SoftLimitNeg, FZAxis.SoftLimitPos));
}

bool TSimMotion::IsBusy() {
  if (!FCore.Gate.Enter("axes", "IsBusy", vkRead)) return true;
  const TSimScope scope(FCore);
  return Moving();
}

void TSimMotion::MoveXY(TPoint2 target, double mmPerS) {
  if (!FCore.Gate.Enter("axes", "MoveXY", vkStart, Format("%.3f %.3f %.1f", target.X, target.Y, mmPerS))) return;
  const TSimScope scope(FCore);
  Start({target}, mmPerS);
}

void TSimMotion::MoveCurve(std::span<const TPoint2> points, double mmPerS) {
  const std::string within = RectangleOf(points);
  if (!FCore.Gate.Enter("axes", "MoveCurve", vkStart,
                        Format("%.1f %s %zu points", mmPerS, within.c_str(), points.size())))
    return;
  const TSimScope scope(FCore);
  Start({points.begin(), points.end()}, mmPerS);
}

void TSimMotion::Start(std::vector<TPoint2> points, double mmPerS) {
  for (const TPoint2& point : points)
    if (!Inside(point)) {
      TellLimits(point);
      return FCore.Event("axes", Format("target %.3f %.3f is outside the limits", point.X, point.Y));
    }
  if (FLimitPressed) {
    FCore.DeviceAlarms.AxisLimit(TSimDeviceAlarms::axX, true);
    return FCore.Event("axes", "the limit switch X+ is pressed");
  }
  FCore.DeviceAlarms.AxisWithin(TSimDeviceAlarms::axX);
  FCore.DeviceAlarms.AxisWithin(TSimDeviceAlarms::axY);
  // Both axes' limits hold along any direction when the path keeps to the smaller one.
  const double speed = SpeedWithin(mmPerS, std::min(FX.MaxSpeed, FY.MaxSpeed));
  if (!FPath.Moving()) {
    FPath = TSimPath(FPath.Pos(), points, speed, std::min(FX.Acceleration, FY.Acceleration));
  } else {
    FPath.Brake();
    FNextPoints = std::move(points);
    FNextSpeed = speed;
  }
  Show();
}

void TSimMotion::Show() {
  const bool moving = Moving();
  if (moving == FShownMoving) return;
  FShownMoving = moving;
  FCore.Event("axes", moving ? "moving" : "at rest");
}

void TSimMotion::TellLimits(const TPoint2& point) {
  TellLimit(TSimDeviceAlarms::axX, point.X, FX);
  TellLimit(TSimDeviceAlarms::axY, point.Y, FY);
}

void TSimMotion::TellLimit(TSimDeviceAlarms::TAxis axis, double target, const TSimAxisConfig& limits) {
  if (target < limits.SoftLimitNeg) FCore.DeviceAlarms.AxisLimit(axis, false);
  if (target > limits.SoftLimitPos) FCore.DeviceAlarms.AxisLimit(axis, true);
}

bool TSimMotion::Inside(const TPoint2& point) const {  // false for what is no number
  return point.X >= FX.SoftLimitNeg && point.X <= FX.SoftLimitPos && point.Y >= FY.SoftLimitNeg &&
         point.Y <= FY.SoftLimitPos;
}

void TSimMotion::TurnAxis(std::int32_t axis, double turns, double turnsPerS) {
  if (!FCore.Gate.Enter("axes", "TurnAxis", vkStart, Format("%d %.3f %.3f", axis, turns, turnsPerS))) return;
  const TSimScope scope(FCore);
  if (axis < kFirstTurnAxis || axis >= kAxes || !std::isfinite(turns) || !std::isfinite(turnsPerS))
    return FCore.Event("axes", Format("axis %d cannot turn by %g", axis, turns));
  TTrapezoid& turn = FTurns[static_cast<std::size_t>(axis)];
  turn.Start(turn.Pos() + turns, turnsPerS > 0.0 ? turnsPerS : kTurnSpeed, kTurnAcceleration);
  Show();
}

void TSimMotion::StopAll(std::int32_t mode) {
  if (!FCore.Gate.Enter("axes", "StopAll", vkStop, Format("%d", mode))) return;
  const TSimScope scope(FCore);
  Halt();
}

void TSimMotion::Halt() {
  FCore.AssertLocked();
  FNextPoints.clear();
  FPath.Brake();
  FZ.Brake();
  for (TTrapezoid& turn : FTurns) turn.Brake();
  Show();
}

double TSimMotion::GetPos(std::int32_t axis) {
  if (!FCore.Gate.Enter("axes", "GetPos", vkRead) || axis < 0 || axis >= kAxes) return 0.0;
  const TSimScope scope(FCore);
  return axis == 0 ? Pos().X : axis == 1 ? Pos().Y : FTurns[static_cast<std::size_t>(axis)].Pos();
}

TAxisLimits TSimMotion::GetLimits(std::int32_t axis) {
  if (!FCore.Gate.Enter("axes", "GetLimits", vkRead)) return {};
  if (axis == 0) return {FX.SoftLimitNeg, FX.SoftLimitPos};
  if (axis == 1) return {FY.SoftLimitNeg, FY.SoftLimitPos};
  return {};
}

bool TSimMotion::GetWorkOrigin(TPoint2& origin) {
  if (!FCore.Gate.Enter("axes", "GetWorkOrigin", vkRead)) return false;
  const TSimScope scope(FCore);
  if (FWorkOrigin) origin = *FWorkOrigin;
  return FWorkOrigin.has_value();
}

TNcArea TSimMotion::GetWorkArea() {
  if (!FCore.Gate.Enter("axes", "GetWorkArea", vkRead)) return {};
  return FWorkArea;
}

bool TSimMotion::HasZ() { return FCore.Gate.Enter("axes", "HasZ", vkRead) && FHasZ; }

void TSimMotion::MoveZ(double mm, double mmPerS) {
  if (!FCore.Gate.Enter("axes", "MoveZ", vkStart, Format("%.3f %.1f", mm, mmPerS))) return;
  const TSimScope scope(FCore);
  if (!FHasZ) return FCore.Event("axes", "the driver has no Z axis");
  if (!(mm >= FZAxis.SoftLimitNeg && mm <= FZAxis.SoftLimitPos)) {
    TellLimit(TSimDeviceAlarms::axZ, mm, FZAxis);
    return FCore.Collide("axes", Format("Z target %.3f is outside the limits", mm),
                         Format(Tr("Z target %.3f is outside the limits"), mm));
  }
  FCore.DeviceAlarms.AxisWithin(TSimDeviceAlarms::axZ);
  FZ.Start(mm, SpeedWithin(mmPerS, FZAxis.MaxSpeed), FZAxis.Acceleration);
  Show();
}

double TSimMotion::GetZ() {
  if (!FCore.Gate.Enter("axes", "GetZ", vkRead)) return FZAxis.SoftLimitPos;
  const TSimScope scope(FCore);
  return FZ.Pos();
}

TAxisLimits TSimMotion::GetZLimits() {
  if (!FCore.Gate.Enter("axes", "GetZLimits", vkRead)) return kNowhere;
  return {FZAxis.SoftLimitNeg, FZAxis.SoftLimitPos};
}

double TSimMotion::GetSafeZ() { return FCore.Gate.Enter("axes", "GetSafeZ", vkRead) ? FSafeZ : 0.0; }

void TSimMotion::Place(TPoint2 pos) {
  const TSimScope scope(FCore);
  FNextPoints.clear();
  FPath = TSimPath(
      {std::clamp(pos.X, FX.SoftLimitNeg, FX.SoftLimitPos), std::clamp(pos.Y, FY.SoftLimitNeg, FY.SoftLimitPos)}, {},
      1.0, 1.0);
  Show();
}

void TSimMotion::PlaceZ(double mm) {
  const TSimScope scope(FCore);
  FZ.Place(std::clamp(mm, FZAxis.SoftLimitNeg, FZAxis.SoftLimitPos));
  Show();
}

void TSimMotion::SetWorkOrigin(std::optional<TPoint2> origin) {
  const TSimScope scope(FCore);
  FWorkOrigin = origin;
}

void TSimMotion::SaveFlagPos(std::int32_t flag) {
  if (!FCore.Gate.Enter("axes", "SaveFlagPos", vkSet, Format("%d", flag))) return;
  const TSimScope scope(FCore);
  FFlags[flag] = Pos();
}

void TSimMotion::SaveFlagPos(std::int32_t flag, TPoint2 pos) {
  if (!FCore.Gate.Enter("axes", "SaveFlagPos", vkSet, Format("%d %.3f %.3f", flag, pos.X, pos.Y))) return;
  const TSimScope scope(FCore);
  FFlags[flag] = pos;
}

void TSimMotion::SetLimitPressed(bool pressed) {
  const TSimScope scope(FCore);
  FLimitPressed = pressed;
}

double TSimMotion::TurnPos(std::int32_t axis) const {
  FCore.AssertLocked();
  return axis < kFirstTurnAxis || axis >= kAxes ? 0.0 : FTurns[static_cast<std::size_t>(axis)].Pos();
}

double TSimMotion::Turns() const {
  FCore.AssertLocked();
  double turns = 0.0;
  for (const TTrapezoid& turn : FTurns) turns += turn.Pos();
  return turns;
}

bool TSimMotion::Turning() const {
  FCore.AssertLocked();
  return std::ranges::any_of(FTurns, &TTrapezoid::Moving);
}

TPoint2 TSimMotion::Pos() const {
  FCore.AssertLocked();
  return FPath.Pos();
}

TPoint2 TSimMotion::Speed() const {
  FCore.AssertLocked();
  return FSpeed;
}

bool TSimMotion::Moving() const {
  FCore.AssertLocked();
  return FPath.Moving() || !FNextPoints.empty() || FZ.Moving() || std::ranges::any_of(FTurns, &TTrapezoid::Moving);
}

double TSimMotion::Z() const {
  FCore.AssertLocked();
  return FZ.Pos();
}

double TSimMotion::ZSpeed() const {
  FCore.AssertLocked();
  return FZ.Speed();
}

double TSimMotion::PathSpeed() const {
  FCore.AssertLocked();
  return FPath.Speed();
}

const TPoint2* TSimMotion::FlagPos(std::int32_t flag) const {
  FCore.AssertLocked();
  const auto it = FFlags.find(flag);
  return it == FFlags.end() ? nullptr : &it->second;
}

void TSimMotion::Step(std::uint64_t) {
  FCore.AssertLocked();
  FSpeed = {};
  if (!FShownMoving) return;
  const TPoint2 before = FPath.Pos();
  FPath.Step();
  const TPoint2 after = FPath.Pos();
  FSpeed = {(after.X - before.X) / TTrapezoid::kStepS, (after.Y - before.Y) / TTrapezoid::kStepS};
  FZ.Step();
  for (TTrapezoid& turn : FTurns) turn.Step();
  if (!FPath.Moving() && !FNextPoints.empty()) {
    FPath = TSimPath(FPath.Pos(), FNextPoints, FNextSpeed, std::min(FX.Acceleration, FY.Acceleration));
    FNextPoints.clear();
  }
  Show();
}

// --- TSimAxis ---

bool TSimAxis::Start(double mm, double mmPerS) {
  FCore.AssertLocked();
  if (!(mm >= FConfig.SoftLimitNeg && mm <= FConfig.SoftLimitPos)) {
    const std::string text = Format("target %.3f is outside the limits", mm);
    FAxis == TSimDeviceAlarms::axZ ? FCore.Collide(FDevice, text, Format(Tr("target %.3f is outside the limits"), mm))
                                   : FCore.Event(FDevice, text);
    if (mm < FConfig.SoftLimitNeg || mm > FConfig.SoftLimitPos)
      FCore.DeviceAlarms.AxisLimit(FAxis, mm > FConfig.SoftLimitPos);
    return false;
  }
  FCore.DeviceAlarms.AxisWithin(FAxis);
  FMotion.Start(mm, SpeedWithin(mmPerS, FConfig.MaxSpeed), FConfig.Acceleration);
  Show();
  return true;
}

void TSimAxis::Brake() {
  FMotion.Brake();
  Show();
}

void TSimAxis::Place(double mm) {
  FMotion.Place(Clamped(mm));
  Show();
}

void TSimAxis::Step() {
  if (!FShownMoving) return;
  FMotion.Step();
  Show();
}

void TSimAxis::Show() {
  if (Moving() == FShownMoving) return;
  FShownMoving = Moving();
  FCore.AssertLocked();
  FCore.Event(FDevice, FShownMoving ? "moving" : "at rest");
}

double TSimAxis::Clamped(double mm) const { return std::clamp(mm, FConfig.SoftLimitNeg, FConfig.SoftLimitPos); }

// --- TSimCutHead ---

bool TSimCutHead::IsBusy() {
  if (!FCore.Gate.Enter("head", "IsBusy", vkRead)) return true;
  const TSimScope scope(FCore);
  return FFocus.Moving();
}

void TSimCutHead::MoveFocus(double mm, double mmPerS) {
  if (!FCore.Gate.Enter("head", "MoveFocus", vkStart, Format("%.3f %.1f", mm, mmPerS))) return;
  const TSimScope scope(FCore);
  FFocus.Start(mm, mmPerS);
}

void TSimCutHead::Stop(std::int32_t mode) {
  if (!FCore.Gate.Enter("head", "Stop", vkStop, Format("%d", mode))) return;
  const TSimScope scope(FCore);
  Halt();
}

void TSimCutHead::Halt() {
  FCore.AssertLocked();
  FFocus.Brake();
}

double TSimCutHead::GetFocus() {
  if (!FCore.Gate.Enter("head", "GetFocus", vkRead)) return 0.0;
  const TSimScope scope(FCore);
  return FFocus.Pos();
}

TAxisLimits TSimCutHead::GetFocusLimits() {
  if (!FCore.Gate.Enter("head", "GetFocusLimits", vkRead)) return kNowhere;
  const TSimScope scope(FCore);
  return {FFocus.Config().SoftLimitNeg, FFocus.Config().SoftLimitPos};
}

double TSimCutHead::Focus() const {
  FCore.AssertLocked();
  return FFocus.Pos();
}

double TSimCutHead::Speed() const {
  FCore.AssertLocked();
  return FFocus.Speed();
}

bool TSimCutHead::Moving() const {
  FCore.AssertLocked();
  return FFocus.Moving();
}

void TSimCutHead::Step(std::uint64_t) {
  FCore.AssertLocked();
  FFocus.Step();
}

}  // namespace ixocamglue
