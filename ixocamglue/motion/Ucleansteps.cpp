#include "ixocamglue/motion/Ucleansteps.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Uheadsteps.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/motion/Uwaitsteps.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {

// --- 133 ---

void TSmtCleanHeadCurve::ResetParams() {
  TSmtMoveStep::ResetParams();
  FUseConfig = true;
  FCentre = {};
  FLength = FWidth = FSpeed = 0.0;
  FDirection = FStyle = FCount = 0;
}

bool TSmtCleanHeadCurve::TakeConfig() {
  const TAutoCleanConfig* const config = FNozzleCleanCfg;
  if (!config) return false;
  const TPoint4 brush = config->GetCurPos();
  if (!IsConfigured(brush)) return false;
  FCentre = {brush.X, brush.Y};
  FLength = config->CleanCurveLength;
  FWidth = config->CleanCurveWidth;
  FDirection = config->CleanCurveDir;
  FStyle = config->CleanCurveStyle;
  FCount = config->CleanCount;
  FSpeed = config->CleanSpeed;
  return true;
}

TStepType TSmtCleanHeadCurve::DoMotion(std::int32_t) {
  TNcMotionDriver* const driver = MotionDriver();
  TPreCheck check(*this);
  if (!check.Has(driver, SNameMotionDriver)) return Fail();
  if (FUseConfig && !check.Require(TakeConfig(), SCheckNoBrushPos)) return Fail();
  constexpr TAxisLimits kSizes{0.0, std::numeric_limits<double>::max()};
  check.InRange(SNameLength, FLength, kSizes).InRange(SNameWidth, FWidth, kSizes);
  check.InRange(SNameCount, FCount, {1.0, kMaxCount}).XY(driver, FCentre).Speed(FSpeed);
  if (!check.Raised(1)) return Fail();
  const std::vector<TPoint2> points = Curve(FCount);
  FCurve.SetDynPoints(points, static_cast<std::int32_t>(points.size()));
  if (!check.XY(driver, FCurve.Range().Min).XY(driver, FCurve.Range().Max)) return Fail();
  driver->MoveCurve(FCurve.XYCurve(), FSpeed);
  return Await(csbtMotion);
}

void TSmtCleanHeadCurve::AddWay(std::vector<TPoint2>& way) {
  if (FUseConfig && !TakeConfig()) return;
  const std::vector<TPoint2> points = Curve(FStyle == kEllipses ? 1 : std::min(FCount, kMaxCount));
  way.insert(way.end(), points.begin(), points.end());
}

std::vector<TPoint2> TSmtCleanHeadCurve::Curve(std::int32_t count) const {
  std::vector<TPoint2> points;
  const auto add = [&](double along, double across) {
    const TPoint2 offset = FDirection == 0 ? TPoint2{along, across} : TPoint2{across, along};
    points.push_back({FCentre.X + offset.X, FCentre.Y + offset.Y});
  };
  const double end = FLength / 2.0;
  const double side = FWidth / 2.0;
  if (FStyle == kEllipses) {
    for (std::int32_t i = 0; i <= count * kChords; ++i) {
      const double angle = 2.0 * std::numbers::pi * (i % kChords) / kChords;
      add(end * std::cos(angle), side * std::sin(angle));
    }
  } else {  // Kept: an unknown style too
    for (std::int32_t i = 0; i < count; ++i) {
      const double across = count == 1 ? 0.0 : -side + FWidth * i / (count - 1);
      const double start = i % 2 == 0 ? -end : end;
      add(start, across);
      add(-start, across);
    }
  }
  return points;
}

// --- 513, 514 ---

bool CanCleanHead() {
  TNcCutSystem* const cut = CutSystem();
  TNcSwitchTable* const table = cut ? cut->SwitchTable() : nullptr;
  if (!table) return true;
  const std::int32_t docked = table->GetValue("DockedTable", 0);
  return docked == 1 || docked == 2;
}

void TSmtCleanState::ResetParams() {
  TSmtComposite::ResetParams();
  FReturn = true;
  FBuildFirst = false;
}

void TSmtCleanState::AddCleaning(bool calibrate) {
  TNcMotionDriver* const driver = MotionDriver();
  const TAutoCleanConfig* const config = FNozzleCleanCfg;
  TPreCheck check(*this);
  if (!check.Has(driver, SNameMotionDriver).Has(config, SNameConfig)) return;
  check.Require(config->Initialized, SCheckBrushNotSet).Require(CanCleanHead(), SCheckNoTable);
  const TPoint4 brush = config->GetCurPos();
  if (!check.Require(IsConfigured(brush), SCheckNoBrushPos)) return;

  Add<TSmtSafeMoveToAssistXY>(139, SSafeMoveToAssistXYDesc).FTarget = {brush.X, brush.Y};
  if (config->CleanGasOpen) {
    auto& gas = Add<TSmtGasOnState>(141, SGasOnDesc);
    gas.FGasBranch = config->CleanGasBranch;
    gas.FGasPressure = config->CleanGasPressure;
  }
  Add<TSmtSafeMoveToZ>(136, SMoveToZDesc).FTargetZ = brush.Z;
  auto& curve = Add<TSmtCleanHeadCurve>(133, SCleanCurveDesc);
  curve.TakeConfig();
  curve.FUseConfig = false;  // a table that docks meanwhile does not move the curve to the other brush
  if (config->CleanGasOpen) Add(142, SGasOffDesc);
  if (config->CleanZReturn0)
    Add<TSmtSafeMoveToZ>(136, SMoveToZDesc).FTargetZ = 0.0;
  else
    Add(134, SSafeMoveToZDesc);
  if (calibrate) Add<TSmtAutoCaliState>(152, SAutoCaliDesc).FReturn = false;

  enum TReturnStyle : std::int32_t { rsNone, rsStart, rsConfigured };
  if (!FReturn) return;
  if (config->CleanReturnStyle == rsStart)
    Add<TSmtSafeMoveToXY>(137, SSafeMoveToXYDesc).FTarget = GetXY(*driver);
  else if (config->CleanReturnStyle == rsConfigured)
    Add<TSmtSafeMoveToXY>(137, SSafeMoveToXYDesc).FTarget = {config->CleanReturnXPos, config->CleanReturnYPos};
}

void TSmtCleanState::DoBeforeStep(std::int32_t, std::int32_t newStep) {
  if (newStep == GetStepByType(TSmtGasOnState::Cmd)) FGasToClose = true;
}

void TSmtCleanState::DoLeaveMotion() {
  const bool cleaned = GetStep() == mstpExit && GetStepByType(TSmtCleanHeadCurve::Cmd) >= 0;
  TTryAll tryAll;
  tryAll([this] { TSmtComposite::DoLeaveMotion(); })([this] { CloseGas(); });
  tryAll.Rethrow();
  if (!cleaned || !FWorkPierceCounter) return;
  FWorkPierceCounter->ResetPierceCount();
  if (FWorkPierceCounter->SaveParam()) return;
  if (TDiag d{dlError}) d("%s(%d): %s", GetDesc().c_str(), GetID(), SCheckCounterNotSaved.Get());
}

// An abort between the leave and the end of the procedure comes this way only.
void TSmtCleanState::DoLeaveError() {
  TTryAll tryAll;
  tryAll([this] { TSmtComposite::DoLeaveError(); })([this] { CloseGas(); });
  tryAll.Rethrow();
}

void TSmtCleanState::CloseGas() {
  if (!FGasToClose) return;
  SwitchGasOff();
  FGasToClose = false;
}

void TSmtAutoCleanState::BuildMotionList() {
  const TAutoCleanConfig* const clean = FNozzleCleanCfg;
  // Kept: success, because a job that cleans between its parts must go on where cleaning is switched off.
  if (!clean || !clean->CleanHeadEnabled || !clean->Initialized || !CanCleanHead()) {
    Add<TSmtDelay>(612, SDelay).SetDelay(0);
    return;
  }
  AddCleaning(FIxoCutCfg && FFloatCailCfg && FIxoCutCfg->ClientWork.AutoCleanHeadConfig.AutoCailAfterClean &&
              FFloatCailCfg->AutoCailEnabled);
}

}  // namespace ixocamglue
