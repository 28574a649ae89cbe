#include "ixocamglue/motion/Uheadsteps.h"

#include <cmath>
#include <limits>

#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

// --- 421 ---

namespace {

TNcCutHeadCtrl* FindHead() {
  TNcCutSystem* const cut = CutSystem();
  return cut ? cut->CutHeadCtrl() : nullptr;
}

}  // namespace

void TSmtMoveToF::ResetParams() {
  TSmtMoveStep::ResetParams();
  FFocus = 0.0;
  FSpeed = 0.0;
}

void TSmtMoveToF::CheckArrived(TPreCheck& check) {
  TNcCutHeadCtrl* const head = FindHead();
  if (check.Has(head, SNameCutHead)) check.Arrived(SNameFocus, FFocus, head->GetFocus());
}

TStepType TSmtMoveToF::DoMotion(std::int32_t) {
  TNcCutHeadCtrl* const head = FindHead();
  TPreCheck check(*this);
  if (!check.Has(head, SNameCutHead)) return Fail();
  if (!check.InRange(SNameFocus, FFocus, head->GetFocusLimits()).Speed(FSpeed)) return Fail();
  if (std::abs(head->GetFocus() - FFocus) <= kAtTarget) return Await(csbtEnsure);
  head->MoveFocus(FFocus, FSpeed);
  return Await(csbtFocus);
}

// --- 154 ---

namespace {

bool FollowerAllowed() {
  TNcAlarms* const alarms = NcAlarms();
  return !alarms || alarms->AllowFollower();
}

}  // namespace

void TSmtFollow::ResetParams() {
  TSmtFollowerStep::ResetParams();
  FHeight = 1.0;
}

void TSmtFollow::CheckArrived(TPreCheck& check) {
  TNcFollower* const follower = TZAxis(FFollowerIndex).Follower();
  check.Require(follower && follower->IsFollowing(), SCheckNotFollowing);
}

TStepType TSmtFollow::DoMotion(std::int32_t) {
  const TZAxis axis(FFollowerIndex);
  TPreCheck check(*this);
  check.Has(axis.Follower(), SNameFollower).Require(FollowerAllowed(), SCheckFollowerForbidden);
  constexpr TAxisLimits kHeights{std::numeric_limits<double>::min(), std::numeric_limits<double>::max()};
  if (!check.InRange(SNameHeight, FHeight, kHeights)) return Fail();
  axis.Follower()->Follow(FHeight);
  return Await(axis.Busy());
}

// --- 151 ---

void TSmtCapCaliMotion::ResetParams() {
  TSmtFollowerStep::ResetParams();
  FPhase = TPhase::Calibrate;
}

TStepType TSmtCapCaliMotion::DoMotion(std::int32_t) {
  const TZAxis axis(FFollowerIndex);
  TPreCheck check(*this);
  if (!check.Has(axis.Follower(), SNameFollower).Require(FollowerAllowed(), SCheckFollowerForbidden)) return Fail();
  if (FPhase == TPhase::Read) return Finish(*axis.Follower());
  FPhase = TPhase::Read;
  axis.Follower()->StartCalibrate();
  // Else the result is an earlier one's.
  if (!check.Require(axis.Follower()->IsBusy(), SCheckCaliNotStarted)) return Fail();
  return PollAgain(axis.Busy());
}

TStepType TSmtCapCaliMotion::Finish(TNcFollower& follower) {
  const TNcCaliResult read = follower.GetCaliResult();
  TCaliRst result;
  result.SetTime(Clock().Now());
  result.Cap = read.Cap;
  result.SteadyLv = read.SteadyLv;
  result.SmoothLv = read.SmoothLv;
  result.CaliCapRange = read.CaliCapRange;
  result.ErrorType = read.ErrorType;
  // Kept: a bad result as well, before it fails the step.
  if (TCaliRstCfg* const results = FFollowerIndex == 0 ? FCaliRstCfg : FCaliRstCfg2) results->Add(result);

  const TNcParams* const params = NcParams();
  TMachineConfig* const config = MachineConfig();
  if (config && params && params->GetInt("AutoSaveCaliResult", 0) == 1)
    if (const auto saved = config->Save(); !saved)  // the calibration itself stands; the follower has it
      if (TDiag d{dlError}) d("%s", Format(SCheckNotSaved.Get(), saved.Problem().Text().c_str()).c_str());
  TPreCheck check(*this);
  if (read.ErrorType != 0)
    if (const std::string meaning = follower.CaliErrorText(read.ErrorType); !meaning.empty())
      check.Require(false, SCheckCaliFailedBy, meaning.c_str());
  if (!check.Require(read.ErrorType == 0, SCheckCaliFailed, read.ErrorType)) return Fail();
  return Await(csbtEnsure);
}

// --- 153, 152 ---

void TSmtSimpleAutoCaliState::ResetParams() {
  TSmtComposite::ResetParams();
  FFollowerIndex = 0;
}

void TSmtSimpleAutoCaliState::BuildMotionList() {
  Add<TSmtCapCaliMotion>(151, SCapCaliDesc).FFollowerIndex = FFollowerIndex;
  Add<TSmtSafeMoveToZ>(134, SSafeMoveToZDesc).FFollowerIndex = FFollowerIndex;
}

void TSmtAutoCaliState::ResetParams() {
  TSmtComposite::ResetParams();
  FReturn = true;
  FBuildFirst = false;
}

// A list that stays empty fails the step.
void TSmtAutoCaliState::BuildMotionList() {
  TNcMotionDriver* const driver = MotionDriver();
  const TFloatCalibrationConfig* const config = FFloatCailCfg;
  TPreCheck check(*this);
  check.Has(driver, SNameMotionDriver).Has(config, SNameConfig).Has(TZAxis(0).Follower(), SNameFollower);
  if (!check || !check.Require(config->FinishFirstCali, SCheckFirstCali)) return;
  const TPoint3 place = config->GetFloatCaliPos();
  if (!check.Require(IsConfigured(place), SCheckNoCaliPos)) return;

  Add<TSmtSafeMoveToAssistXY>(139, SSafeMoveToAssistXYDesc).FTarget = {place.X, place.Y};
  Add<TSmtSafeMoveToZ>(136, SMoveToZDesc).FTargetZ = place.Z;
  Add(151, SCapCaliDesc);
  Add(134, SSafeMoveToZDesc);
  if (FReturn) Add<TSmtSafeMoveToXY>(137, SSafeMoveToXYDesc).FTarget = GetXY(*driver);
}

}  // namespace ixocamglue
