#include "ixocamglue/config/Ucleanconfig.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

void TAutoCleanConfig::Publish(TPublisher& p) {
  p.Field("CleanBrushHeight", CleanBrushHeight);
  p.Field("CleanCount", CleanCount);
  p.Field("CleanCurveStyle", CleanCurveStyle);
  p.Field("CleanCurveLength", CleanCurveLength);
  p.Field("CleanCurveWidth", CleanCurveWidth);
  p.Field("CleanCurveDir", CleanCurveDir);
  p.Field("CleanHeadEnabled", CleanHeadEnabled);
  p.Field("CleanGasBranch", CleanGasBranch);
  p.Field("CleanGasOpen", CleanGasOpen);
  p.Field("CleanGasPressure", CleanGasPressure);
  p.Field("CleanRefPtX", CleanRefPtX);
  p.Field("CleanRefPtY", CleanRefPtY);
  p.Field("CleanRefPtX2", CleanRefPtX2);
  p.Field("CleanRefPtY2", CleanRefPtY2);
  p.Field("CleanReturnXPos", CleanReturnXPos);
  p.Field("CleanReturnYPos", CleanReturnYPos);
  p.Field("CleanSpeed", CleanSpeed);
  p.Field("CleanZPos", CleanZPos);
  p.Field("CleanZPos2", CleanZPos2);
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
  p.Field("PosX", FPosX);
  p.Field("PosY", FPosY);
  p.Field("PosZ", FPosZ);
  p.Field("Focus", FFocus);
}

void TCutHeadMaintainConfig::SetMaintainPos(const TPoint4& pos) {
  FPosX = pos.X;
  FPosY = pos.Y;
  FPosZ = pos.Z;
  FFocus = pos.A;
}

void TFloatCalibrationConfig::Publish(TPublisher& p) {
  p.Field("AutoCailEnabled", AutoCailEnabled);
  p.Field("AdjustCapPermitHeight", AdjustCapPermitHeight);
  p.Field("FinishFirstCali", FinishFirstCali);
  p.Field("PosX", PosX);
  p.Field("PosY", PosY);
  p.Field("PosZ", PosZ);
}

void TFloatCalibrationConfig::SetFloatCaliPos(const TPoint3& pos) {
  PosX = pos.X;
  PosY = pos.Y;
  PosZ = pos.Z;
}

void TBlankingConfig::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled);
  p.Field("PosX", PosX);
  p.Field("PosY", PosY);
}

void TStrokeMeasurement::Publish(TPublisher& p) {
  p.Field("XNeg", XNeg);
  p.Field("XPos", XPos);
  p.Field("YNeg", YNeg);
  p.Field("YPos", YPos);
  p.Field("XMaxNeg", XMaxNeg);
  p.Field("XMaxPos", XMaxPos);
  p.Field("YMaxNeg", YMaxNeg);
  p.Field("YMaxPos", YMaxPos);
  p.Field("XNegativeRange", XNegativeRange);
  p.Field("XPositiveRange", XPositiveRange);
  p.Field("YNegativeRange", YNegativeRange);
  p.Field("YPositiveRange", YPositiveRange);
  p.Field("IsFinished", IsFinished);
}

void TStrokeMeasurement::CheckRange(TMachineConfig& config) {
  constexpr long double kMisfit = 0.001L;  // mm
  const auto check = [&](const char* name, long double negative, long double positive) {
    const TAxisConfig* const axis = config.Axes().Find(name);
    if (!axis) return;
    const bool forward = axis->MotorDir == 0;
    const long double limit = forward ? axis->SoftLimitPos : std::abs(axis->SoftLimitNeg);
    if (std::abs(limit - (forward ? positive : negative)) > kMisfit) IsFinished = false;
  };
  check("X", XNegativeRange, XPositiveRange);
  check("Y", YNegativeRange, YPositiveRange);
}

void TSysDelayConfig::Publish(TPublisher& p) {
  p.Field("IsFinished", IsFinished);
  p.Field("SysDelayX", SysDelayX);
  p.Field("SysDelayY", SysDelayY);
  p.Field("LastTime", LastTime);
  p.Field("MoveDis", MoveDis);
  p.Field("MoveSpeed", MoveSpeed);
}

}  // namespace ixocamglue
