#include "machines/simulated/Follower.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

// A sound sensor's spread is twice its noise.
constexpr TSensorJudgement::TLimits kSpreads{3.0 * TCapacitance::kNoise, 10.0 * TCapacitance::kNoise,
                                             30.0 * TCapacitance::kNoise};
constexpr double kFollowBand = 0.02;         // mm; a height error within is left alone
constexpr double kSearchSpeed = 100.0;       // mm/s, while the plate is out of the sensor's reach
constexpr double kProbeSpeed = 20.0;         // mm/s
constexpr std::uint32_t kRestSamples = 200;  // ms at rest on the plate

}  // namespace

bool TSimFollower::IsBusy() {
  if (!FCore.Gate.Enter(FDevice, "IsBusy", vkRead)) return true;
  const TSimScope scope(FCore);
  if (FCali != TCali::Idle) return true;
  return FFollowing ? !FReached : FZ.Moving();
}

void TSimFollower::MoveZ(double mm, double mmPerS) {
  if (!FCore.Gate.Enter(FDevice, "MoveZ", vkStart, Format("%.3f %.1f", mm, mmPerS))) return;
  const TSimScope scope(FCore);
  if (!FZ.Start(mm, mmPerS)) return;
  SetFollowing(false);
  Interrupt();
}

void TSimFollower::Follow(double heightMm) {
  if (!FCore.Gate.Enter(FDevice, "Follow", vkStart, Format("%.3f", heightMm))) return;
  const TSimScope scope(FCore);
  if (!(heightMm >= 0.0 && heightMm <= TCapacitance::kReach))
    return FCore.Event(FDevice, Format("a height of %.3f cannot be followed", heightMm));
  Interrupt();
  FHeight = heightMm;
  FReached = false;
  SetFollowing(true);
}

void TSimFollower::SetFollowing(bool on) {
  if (FFollowing == on) return;
  FFollowing = on;
  FCore.Event(FDevice, on ? "following" : "follow ended");
}

void TSimFollower::Stop(std::int32_t mode) {
  if (!FCore.Gate.Enter(FDevice, "Stop", vkStop, Format("%d", mode))) return;
  const TSimScope scope(FCore);
  Halt();
}

void TSimFollower::Halt() {
  FCore.AssertLocked();
  SetFollowing(false);
  Interrupt();
  FZ.Brake();
}

double TSimFollower::GetZ() {
  const bool answers = FCore.Gate.Enter(FDevice, "GetZ", vkRead);
  const TSimScope scope(FCore);
  return answers ? FZ.Pos() : FZ.Config().SoftLimitPos;
}

bool TSimFollower::IsFollowing() {
  if (!FCore.Gate.Enter(FDevice, "IsFollowing", vkRead)) return false;
  const TSimScope scope(FCore);
  return FFollowing;
}

TAxisLimits TSimFollower::GetZLimits() {
  if (!FCore.Gate.Enter(FDevice, "GetZLimits", vkRead)) return {1.0, -1.0};
  const TSimScope scope(FCore);
  return {FZ.Config().SoftLimitNeg, FZ.Config().SoftLimitPos};
}

double TSimFollower::GetSafeZ() { return FCore.Gate.Enter(FDevice, "GetSafeZ", vkRead) ? FSafeZ : 0.0; }

void TSimFollower::StartCalibrate() {
  if (!FCore.Gate.Enter(FDevice, "StartCalibrate", vkStart)) return;
  const TSimScope scope(FCore);
  SetFollowing(false);
  Interrupt();
  FCali = TCali::Down;
  FCaliFromZ = FZ.Pos();
  FJudgement.Begin();
  FResult = {.Cap = 0.0, .CaliCapRange = 0.0, .ErrorType = TSensorJudgement::jeInterrupted};
  FCore.Event(FDevice, "calibrating");
  GoDown();
}

TNcCaliResult TSimFollower::GetCaliResult() {
  if (!FCore.Gate.Enter(FDevice, "GetCaliResult", vkRead))
    return {.Cap = 0.0, .CaliCapRange = 0.0, .ErrorType = TSensorJudgement::jeInterrupted};
  const TSimScope scope(FCore);
  return FResult;
}

void TSimFollower::PlaceZ(double mm) {
  const TSimScope scope(FCore);
  SetFollowing(false);
  Interrupt();
  FZ.Place(mm);
}

void TSimFollower::SetPlate(double z) {
  const TSimScope scope(FCore);
  if (std::isfinite(z)) FPlateZ = z;
}

void TSimFollower::RemovePlate() {
  const TSimScope scope(FCore);
  FPlateZ = std::numeric_limits<double>::infinity();
}

void TSimFollower::SetNoise(double picofarad) {
  const TSimScope scope(FCore);
  FSensor.SetNoise(picofarad);
}

void TSimFollower::SetRipple(double picofarad) {
  const TSimScope scope(FCore);
  FSensor.SetRipple(picofarad);
}

void TSimFollower::SetCalibrationStuck(bool stuck) {
  const TSimScope scope(FCore);
  FCaliStuck = stuck;
}

double TSimFollower::Z() const {
  FCore.AssertLocked();
  return FZ.Pos();
}

double TSimFollower::Speed() const {
  FCore.AssertLocked();
  return FZ.Speed();
}

bool TSimFollower::Moving() const {
  FCore.AssertLocked();
  return FZ.Moving();
}

bool TSimFollower::Following() const {
  FCore.AssertLocked();
  return FFollowing;
}

bool TSimFollower::Calibrating() const {
  FCore.AssertLocked();
  return FCali != TCali::Idle;
}

double TSimFollower::PlateZ() const {
  FCore.AssertLocked();
  return FPlateZ;
}

void TSimFollower::Step(std::uint64_t) {
  FCore.AssertLocked();
  if (FFollowing)
    KeepHeight();
  else if (FCali != TCali::Idle)
    Probe();
  FZ.Step();
}

// Out of reach Z goes down until the sensor sees the plate; at the end of the axis there is none.
void TSimFollower::KeepHeight() {
  const double seen = TCapacitance::HeightOf(FSensor.Measure(Gap()));
  double target = FZ.Config().SoftLimitPos;
  double band = 0.0;
  if (seen <= TCapacitance::kReach) {
    target = FZ.Clamped(FZ.Pos() + seen - FHeight);
    band = kFollowBand + 2.0 * TCapacitance::Uncertainty(seen);
  } else if (FZ.Pos() >= target) {
    SetFollowing(false);
    FCore.Event(FDevice, "no plate to follow");
    NotePlateLost();
    return FCore.DeviceAlarms.AxisLimit(TSimDeviceAlarms::axZ, true);
  }
  if (std::abs(target - FZ.Target()) > band) FZ.Start(target, 0.0);
  if (!FZ.Moving()) FReached = true;
}

void TSimFollower::Probe() {
  switch (FCali) {
    case TCali::Idle: break;
    case TCali::Down:
      if (Gap() <= TCapacitance::kReach) FJudgement.Approaching(FSensor.Measure(Gap()));
      if (Gap() <= 0.0) {
        FZ.Brake();
        FCali = TCali::Resting;
      } else if (!FZ.Moving()) {
        Return(false);
      } else {
        GoDown();
      }
      break;
    case TCali::Resting:
      if (FZ.Moving() || FCaliStuck) break;
      FJudgement.Resting(FSensor.Measure(Gap()));
      if (FJudgement.Rested() >= kRestSamples) Return(true);
      break;
    case TCali::Up:
      if (!FZ.Moving()) EndCalibration();
      break;
  }
}

void TSimFollower::GoDown() {
  FZ.Start(FZ.Config().SoftLimitPos, Gap() > TCapacitance::kReach ? kSearchSpeed : kProbeSpeed);
}

void TSimFollower::Return(bool plateFound) {
  FComing = FJudgement.Result(plateFound, kSpreads);
  FCali = TCali::Up;
  FZ.Start(FCaliFromZ, kSearchSpeed);
}

void TSimFollower::EndCalibration() {
  FCali = TCali::Idle;
  FResult = FComing;
  FCore.Event(FDevice, Format("calibration ended: cap %.3f, range %.3f, steady %d, smooth %d, error %d %s", FResult.Cap,
                              FResult.CaliCapRange, FResult.SteadyLv, FResult.SmoothLv, FResult.ErrorType,
                              TSensorJudgement::ErrorText(FResult.ErrorType)));
}

void TSimFollower::Interrupt() {
  if (FCali == TCali::Idle) return;
  FCali = TCali::Idle;
  FCore.Event(FDevice, "calibration ended: interrupted");
}

}  // namespace ixocamglue
