#include "ixocamglue/config/Ucleanconfig.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

void TAutoCleanConfig::Publish(TPublisher& p) {
  p.Field("CleanBrushHeight", CleanBrushHeight).Unit(uMm);
  p.Field("CleanCount", CleanCount);
  p.Field("CleanCurveStyle", CleanCurveStyle);
  p.Field("CleanCurveLength", CleanCurveLength).Unit(uMm);
  p.Field("CleanCurveWidth", CleanCurveWidth).Unit(uMm);
  p.Field("CleanCurveDir", CleanCurveDir);
  p.Field("CleanHeadEnabled", CleanHeadEnabled);
  p.Field("CleanGasBranch", CleanGasBranch).Within(bdFittedBranch.Or(0));
  p.Field("CleanGasOpen", CleanGasOpen);
  p.Field("CleanGasPressure", CleanGasPressure).Unit(uBar).Within(bdPressureOf("CleanGasBranch"));
  p.Field("CleanRefPtX", CleanRefPtX).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("CleanRefPtY", CleanRefPtY).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("CleanRefPtX2", CleanRefPtX2).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("CleanRefPtY2", CleanRefPtY2).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("CleanReturnXPos", CleanReturnXPos).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("CleanReturnYPos", CleanReturnYPos).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("CleanSpeed", CleanSpeed).Unit(uMmPerS).Within(bdXYSpeed);
  p.Field("CleanZPos", CleanZPos).Unit(uMm).Within(bdAxisZ.Or(0));
  p.Field("CleanZPos2", CleanZPos2).Unit(uMm).Within(bdAxisZ.Or(0));
  p.Field("CleanZReturn0", CleanZReturn0);
  p.Field("CleanReturnStyle", CleanReturnStyle);
  p.Field("Initialized", Initialized);
  p.Field("UseDoubleBrushes", UseDoubleBrushes);
}

void TAutoCleanConfig::SetCleanPos(const TPoint3& pos) {
  CleanRefPtX = pos.X;
  CleanRefPtY = pos.Y;
  CleanZPos = pos.Z;
}

void TAutoCleanConfig::SetCleanPos2(const TPoint3& pos) {
  CleanRefPtX2 = pos.X;
  CleanRefPtY2 = pos.Y;
  CleanZPos2 = pos.Z;
}

TPoint4 TAutoCleanConfig::GetCurPos() const {
  const auto docked = [] {
    TNcCutSystem* const cut = CutSystem();
    TNcSwitchTable* const table = cut ? cut->SwitchTable() : nullptr;
    return table ? table->GetValue("DockedTable", 0) : 0;
  };
  const TPoint3 pos = UseDoubleBrushes && docked() == 2 ? GetCleanPos2() : GetCleanPos();
  return {pos.X, pos.Y, pos.Z, 0.0};
}

void TCutHeadMaintainConfig::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled);
  p.Field("PosX", FPosX).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("PosY", FPosY).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("PosZ", FPosZ).Unit(uMm).Within(bdAxisZ.Or(0));
  p.Field("Focus", FFocus).Unit(uMm).Within(bdFocus.Or(0));
}

void TCutHeadMaintainConfig::SetMaintainPos(const TPoint4& pos) {
  FPosX = pos.X;
  FPosY = pos.Y;
  FPosZ = pos.Z;
  FFocus = pos.A;
}

void TFloatCalibrationConfig::Publish(TPublisher& p) {
  p.Field("AutoCailEnabled", AutoCailEnabled);
  p.Field("AdjustCapPermitHeight", AdjustCapPermitHeight).Unit(uMm);
  p.Field("FinishFirstCali", FinishFirstCali);
  p.Field("PosX", PosX).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("PosY", PosY).Unit(uMm).Within(bdAxisY.Or(0));
  p.Field("PosZ", PosZ).Unit(uMm).Within(bdAxisZ.Or(0));
}

void TFloatCalibrationConfig::SetFloatCaliPos(const TPoint3& pos) {
  PosX = pos.X;
  PosY = pos.Y;
  PosZ = pos.Z;
}

void TBlankingConfig::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled);
  p.Field("PosX", PosX).Unit(uMm).Within(bdAxisX.Or(0));
  p.Field("PosY", PosY).Unit(uMm).Within(bdAxisY.Or(0));
}

void TStrokeMeasurement::Publish(TPublisher& p) {
  p.Field("XNeg", XNeg).Unit(uMm);
  p.Field("XPos", XPos).Unit(uMm);
  p.Field("YNeg", YNeg).Unit(uMm);
  p.Field("YPos", YPos).Unit(uMm);
  p.Field("XMaxNeg", XMaxNeg).Unit(uMm);
  p.Field("XMaxPos", XMaxPos).Unit(uMm);
  p.Field("YMaxNeg", YMaxNeg).Unit(uMm);
  p.Field("YMaxPos", YMaxPos).Unit(uMm);
  p.Field("XNegativeRange", XNegativeRange).Unit(uMm);
  p.Field("XPositiveRange", XPositiveRange).Unit(uMm);
  p.Field("YNegativeRange", YNegativeRange).Unit(uMm);
  p.Field("YPositiveRange", YPositiveRange).Unit(uMm);
  p.Field("IsFinished", IsFinished);
}

std::vector<TStrokeMeasurement::TMisfit> TStrokeMeasurement::Misfits(TMachineConfig& config) const {
  constexpr long double kMisfit = 0.001L;  // mm
  std::vector<TMisfit> misfits;
  const auto check = [&](const char* name, const TMisfit& negative, const TMisfit& positive) {
    const TAxisConfig* const axis = config.Axes().Find(name);
    if (!axis) return;
    const bool forward = axis->MotorDir == 0;
    TMisfit side = forward ? positive : negative;
    side.Limit = forward ? axis->SoftLimitPos : std::abs(axis->SoftLimitNeg);
    if (side.Limit - side.Measured > kMisfit) misfits.push_back(side);
  };
  check("X", {"XNegativeRange", XNegativeRange, 0}, {"XPositiveRange", XPositiveRange, 0});
  check("Y", {"YNegativeRange", YNegativeRange, 0}, {"YPositiveRange", YPositiveRange, 0});
  return misfits;
}

void TStrokeMeasurement::CheckRange(TMachineConfig& config) {
  if (!Misfits(config).empty()) IsFinished = false;
}

void TSysDelayConfig::Publish(TPublisher& p) {
  p.Field("IsFinished", IsFinished);
  p.Field("SysDelayX", SysDelayX);
  p.Field("SysDelayY", SysDelayY);
  p.Field("LastTime", LastTime);
  p.Field("MoveDis", MoveDis).Unit(uMm);
  p.Field("MoveSpeed", MoveSpeed).Unit(uMmPerS);
}

}  // namespace ixocamglue
