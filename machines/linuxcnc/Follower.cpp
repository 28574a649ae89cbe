#include "machines/linuxcnc/Follower.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/linuxcnc/Axes.h"
#include "machines/linuxcnc/Pins.h"

namespace ixocamglue {
namespace {

constexpr double kBandMm = 0.05;            // within it a height counts as reached
constexpr double kBottomMm = 0.1;           // before the end of the axis
constexpr std::uint32_t kRestSamples = 20;  // one a frame: 200 ms
constexpr double kOutOfReach = 14.5;        // a gap beyond it is none
constexpr std::uint64_t kLostMs = 50;       // a plate that is not seen for so long has ended: the loop would dive

// As shares of what the sensor has shown; where it has shown nothing else than one value, all are too much.
TSensorJudgement::TLimits LimitsOf(const TSensorJudgement& judgement) {
  const double range = judgement.Range();
  if (!(range > 0.0)) return {-1.0, -1.0, -1.0};
  return {0.005 * range, 0.02 * range, 0.06 * range};
}

}  // namespace

bool TLncFollower::IsBusy() {
  const bool moves = FLink.Busy(luZ);
  TGuard guard(FLock);
  switch (FPhase) {
    case TPhase::Still: return moves;
    case TPhase::Following: return moves || !FReached;
    case TPhase::Down:
    case TPhase::Resting:
    case TPhase::Up: break;
  }
  return true;
}

void TLncFollower::MoveZ(double mm, double mmPerS) {
  const TLncConfig& config = FLink.Config();
  if (!FLink.Homed(laZ)) {
    const double way = config.ToTheirs(laZ, Inside(config, laZ, mm)) - FLink.Pos(laZ);
    return FLink.JogUnhomed(luZ, laZ, way, std::min(SpeedOf(config.Axes[laZ].Limits, mmPerS), kUnhomedSpeed));
  }
  TLncMove move = StraightMove(config, luZ, laZ, mm, mmPerS);
  move.ClearOffset = true;
  {
    TGuard guard(FLock);
    LetGo();
  }
  FLink.Move(std::move(move));
}

void TLncFollower::Follow(double heightMm) {
  if (!(heightMm >= 0.0 && heightMm <= kReach))
    throw std::runtime_error(Format(Tr("a height of %.3f cannot be followed"), heightMm));
  Begin(TPhase::Following, heightMm);
}

void TLncFollower::StartCalibrate() { Begin(TPhase::Down, FLink.Config().PlateTouch); }

// The loop needs LinuxCNC in a mode that coordinates its axes: a move without a line sees to it.
void TLncFollower::Begin(TPhase phase, double heightMm) {
  FLink.RequireHomed(laZ);
  const double from = GetZ();
  std::uint32_t order = 0;
  {
    TGuard guard(FLock);
    if (phase == TPhase::Down) LetGo();
    order = ++FOrder;
    FPhase = phase;
    FReached = false;
    FLoopOn = false;
    FHeight = heightMm;
    FFromZ = from;
    FJudgement.Begin();
    if (phase == TPhase::Down)
      FResult = {.Cap = 0.0, .CaliCapRange = 0.0, .ErrorType = TSensorJudgement::jeInterrupted};
  }
  const auto loop = [this, order] {
    TGuard guard(FLock);
    if (FOrder != order) return;
    FLink.Hal().Set(kPinFollowSpeed, FLink.Config().FollowSpeed);
    FLink.Hal().Set(kPinHeight, FHeight);
    FLink.Hal().Set(kPinFollow, 1.0);
    FLoopOn = true;
  };
  try {
    FLink.Move({.Unit = luZ, .ClearOffset = phase == TPhase::Down, .NeedsMdi = true, .Then = loop});
  } catch (...) {
    TGuard guard(FLock);
    LetGo();
    throw;
  }
}

void TLncFollower::Stop(std::int32_t) {
  {
    TGuard guard(FLock);
    LetGo();
  }
  FLink.Stop(luZ);
}

void TLncFollower::LetGo() {
  ++FOrder;
  if (FPhase == TPhase::Still) return;
  FLink.Hal().Set(kPinFollow, 0.0);
  FPhase = TPhase::Still;
  FReached = true;
  FLoopOn = false;
}

bool TLncFollower::IsFollowing() {
  static_cast<void>(FLink.Pos(laZ));  // throws where nobody knows
  TGuard guard(FLock);
  return FPhase == TPhase::Following;
}

TAxisLimits TLncFollower::GetZLimits() {
  const TAxisConfig& limits = FLink.Config().Axes[laZ].Limits;
  return {limits.SoftLimitNeg, limits.SoftLimitPos};
}

TNcCaliResult TLncFollower::GetCaliResult() {
  TGuard guard(FLock);
  return FResult;
}

bool TLncFollower::Calibrating() const {
  TGuard guard(FLock);
  return FPhase == TPhase::Down || FPhase == TPhase::Resting || FPhase == TPhase::Up;
}

bool TLncFollower::AtBottom() const {
  const TLncConfig& config = FLink.Config();
  return config.ToOurs(laZ, FLink.Hal().Value(config.Pin(laZ, kAxisPos)).value_or(0.0)) >=
         config.Axes[laZ].Limits.SoftLimitPos - kBottomMm;
}

// What the loop has come to is carried out under the lock: a stop that comes meanwhile comes after it.
void TLncFollower::Take(std::uint64_t nowMs) {
  const bool away = !FLink.WhyAway().empty();
  TGuard guard(FLock);
  if (FPhase == TPhase::Still) return;
  if (away) return LetGo();
  try {
    Look(nowMs);
  } catch (const std::exception&) {  // it failed, and says so to who asks for it
    LetGo();
  }
}

void TLncFollower::Look(std::uint64_t nowMs) {
  const THalClient& hal = FLink.Hal();
  const double sensor = hal.Value(kPinSensor).value_or(0.0);
  const double gap = hal.Value(kPinGap).value_or(-1.0);
  const bool there = FLoopOn && std::abs(gap - FHeight) <= kBandMm;
  const bool bottom = FLoopOn && !there && AtBottom();
  switch (FPhase) {
    case TPhase::Still: return;
    case TPhase::Following:
      FReached = FReached || there;
      if (!FReached || gap <= kOutOfReach) FSeenMs = nowMs;
      if (!bottom && nowMs - FSeenMs < kLostMs) return;
      LetGo();
      return NotePlateLost();
    case TPhase::Down:
      if (!FLoopOn) return;
      FJudgement.Approaching(sensor);
      if (there && !FLink.Moving(laZ)) FPhase = TPhase::Resting;
      if (bottom) Rise();
      return;
    case TPhase::Resting:
      FJudgement.Resting(sensor);
      if (FJudgement.Rested() >= kRestSamples) Rise();
      return;
    case TPhase::Up:
      if (FLink.Busy(luZ)) return;
      FPhase = TPhase::Still;
      FReached = true;
      FResult = FComing;
  }
}

void TLncFollower::Rise() {
  FComing = FJudgement.Result(FPhase == TPhase::Resting, LimitsOf(FJudgement));
  FPhase = TPhase::Up;
  FLoopOn = false;
  TLncMove up = StraightMove(FLink.Config(), luZ, laZ, FFromZ, 0.0);
  up.ClearOffset = true;
  FLink.Move(std::move(up));
}

}  // namespace ixocamglue
