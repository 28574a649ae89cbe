#include "ixocamglue/config/Ucleanconfig.h"

#include <algorithm>
#include <cmath>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue {

void TAutoCleanConfig::Publish(TPublisher& p) {
  p.Field("CleanBrushHeight", CleanBrushHeight)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Height of the brush's bristles, for the interface's teaching of the position"));
  p.Field("CleanCount", CleanCount)
      .Within(bdRange(1, 1000).Or(0))
      .Text(TrMark("How many strokes or ellipses clean the nozzle; cleaning needs at least 1"));
  p.Field("CleanCurveStyle", CleanCurveStyle)
      .Text(TrMark("Form of the way over the brush: 1 ellipses, otherwise strokes"));
  p.Field("CleanCurveLength", CleanCurveLength)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Length of one stroke over the brush"));
  p.Field("CleanCurveWidth", CleanCurveWidth)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Width that the strokes cover across the brush"));
  p.Field("CleanCurveDir", CleanCurveDir).Within(0, 1).Text(TrMark("Direction of the strokes: 0 along X, 1 along Y"));
  p.Field("CleanHeadEnabled", CleanHeadEnabled)
      .Text(TrMark("Whether a job cleans the nozzle by itself; without it automatic cleaning does nothing"));
  p.Field("CleanGasBranch", CleanGasBranch)
      .Within(bdFittedBranch.Or(0))
      .Text(TrMark("Branch of the gas that blows while the nozzle is cleaned"));
  p.Field("CleanGasOpen", CleanGasOpen).Text(TrMark("Whether gas blows while the nozzle is cleaned"));
  p.Field("CleanGasPressure", CleanGasPressure)
      .Unit(uBar)
      .Within(bdPressureOf("CleanGasBranch"))
      .Text(TrMark("Pressure of the gas that blows while the nozzle is cleaned"));
  p.Field("CleanRefPtX", CleanRefPtX)
      .Unit(uMm)
      .Within(bdAxisX.Or(0))
      .Text(TrMark("X of the middle of the first brush"));
  p.Field("CleanRefPtY", CleanRefPtY)
      .Unit(uMm)
      .Within(bdAxisY.Or(0))
      .Text(TrMark("Y of the middle of the first brush"));
  p.Field("CleanRefPtX2", CleanRefPtX2)
      .Unit(uMm)
      .Within(bdAxisX.Or(0))
      .Text(TrMark("X of the middle of the second brush"));
  p.Field("CleanRefPtY2", CleanRefPtY2)
      .Unit(uMm)
      .Within(bdAxisY.Or(0))
      .Text(TrMark("Y of the middle of the second brush"));
  p.Field("CleanReturnXPos", CleanReturnXPos)
      .Unit(uMm)
      .Within(bdAxisX.Or(0))
      .Text(TrMark("X to which the head goes after cleaning, with CleanReturnStyle 2"));
  p.Field("CleanReturnYPos", CleanReturnYPos)
      .Unit(uMm)
      .Within(bdAxisY.Or(0))
      .Text(TrMark("Y to which the head goes after cleaning, with CleanReturnStyle 2"));
  p.Field("CleanSpeed", CleanSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("Speed over the brush; 0: the machine's default"));
  p.Field("CleanZPos", CleanZPos)
      .Unit(uMm)
      .Within(bdAxisZ.Or(0))
      .Text(TrMark("Z at which the nozzle is cleaned on the first brush"));
  p.Field("CleanZPos2", CleanZPos2)
      .Unit(uMm)
      .Within(bdAxisZ.Or(0))
      .Text(TrMark("Z at which the nozzle is cleaned on the second brush"));
  p.Field("CleanZReturn0", CleanZReturn0)
      .Text(TrMark("Whether Z goes up to 0 after cleaning, otherwise to the safe height"));
  p.Field("CleanReturnStyle", CleanReturnStyle)
      .Within(0, 2)
      .Text(TrMark("Where the head goes after cleaning: 0 it stays, 1 back to the start, 2 to CleanReturnXPos and "
                   "CleanReturnYPos"));
  p.Field("Initialized", Initialized)
      .Text(TrMark("Whether the brushes' positions have been taught; nothing is cleaned without"));
  p.Field("UseDoubleBrushes", UseDoubleBrushes)
      .Text(TrMark("Whether there is a second brush, used while pallet 2 is docked"));
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
  p.Field("Enabled", Enabled).Text(TrMark("Whether the way to the maintenance position is offered"));
  p.Field("PosX", FPosX).Unit(uMm).Within(bdAxisX.Or(0)).Text(TrMark("X of the place where the head is worked on"));
  p.Field("PosY", FPosY).Unit(uMm).Within(bdAxisY.Or(0)).Text(TrMark("Y of the place where the head is worked on"));
  p.Field("PosZ", FPosZ).Unit(uMm).Within(bdAxisZ.Or(0)).Text(TrMark("Z at which the head is worked on"));
  p.Field("Focus", FFocus).Unit(uMm).Within(bdFocus.Or(0)).Text(TrMark("Focus at which the head is worked on"));
}

void TCutHeadMaintainConfig::SetMaintainPos(const TPoint4& pos) {
  FPosX = pos.X;
  FPosY = pos.Y;
  FPosZ = pos.Z;
  FFocus = pos.A;
}

void TFloatCalibrationConfig::Publish(TPublisher& p) {
  p.Field("AutoCailEnabled", AutoCailEnabled)
      .Text(TrMark("Whether the height sensor is calibrated by itself, for instance after automatic cleaning"));
  p.Field("AdjustCapPermitHeight", AdjustCapPermitHeight)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("Height up to which the capacitance may be adjusted; 0: it is not adjusted"));
  p.Field("FinishFirstCali", FinishFirstCali)
      .Text(TrMark("Whether the first calibration has been done by hand; automatic calibration needs it"));
  p.Field("PosX", PosX)
      .Unit(uMm)
      .Within(bdAxisX.Or(0))
      .Text(TrMark("X of the place over the plate where the height sensor is calibrated"));
  p.Field("PosY", PosY)
      .Unit(uMm)
      .Within(bdAxisY.Or(0))
      .Text(TrMark("Y of the place over the plate where the height sensor is calibrated"));
  p.Field("PosZ", PosZ)
      .Unit(uMm)
      .Within(bdAxisZ.Or(0))
      .Text(TrMark("Z from which the calibration of the height sensor starts"));
}

void TFloatCalibrationConfig::SetFloatCaliPos(const TPoint3& pos) {
  PosX = pos.X;
  PosY = pos.Y;
  PosZ = pos.Z;
}

void TBlankingConfig::Publish(TPublisher& p) {
  p.Field("Enabled", Enabled).Text(TrMark("Whether finished parts are dropped at a place of their own"));
  p.Field("PosX", PosX)
      .Unit(uMm)
      .Within(bdAxisX.Or(0))
      .Text(TrMark("X of the blanking position, which is flag position 104"));
  p.Field("PosY", PosY)
      .Unit(uMm)
      .Within(bdAxisY.Or(0))
      .Text(TrMark("Y of the blanking position, which is flag position 104"));
}

void TStrokeMeasurement::Publish(TPublisher& p) {
  p.Field("XNeg", XNeg).Unit(uMm).Text(TrMark("X at which the measurement of the stroke met the negative end"));
  p.Field("XPos", XPos).Unit(uMm).Text(TrMark("X at which the measurement of the stroke met the positive end"));
  p.Field("YNeg", YNeg).Unit(uMm).Text(TrMark("Y at which the measurement of the stroke met the negative end"));
  p.Field("YPos", YPos).Unit(uMm).Text(TrMark("Y at which the measurement of the stroke met the positive end"));
  p.Field("XMaxNeg", XMaxNeg).Unit(uMm).Text(TrMark("Furthest X beyond the negative end that the mechanics allow"));
  p.Field("XMaxPos", XMaxPos).Unit(uMm).Text(TrMark("Furthest X beyond the positive end that the mechanics allow"));
  p.Field("YMaxNeg", YMaxNeg).Unit(uMm).Text(TrMark("Furthest Y beyond the negative end that the mechanics allow"));
  p.Field("YMaxPos", YMaxPos).Unit(uMm).Text(TrMark("Furthest Y beyond the positive end that the mechanics allow"));
  p.Field("XNegativeRange", XNegativeRange)
      .Unit(uMm)
      .Text(TrMark("Usable stroke of X on the negative side; held against the soft limit where the motor is reversed"));
  p.Field("XPositiveRange", XPositiveRange)
      .Unit(uMm)
      .Text(TrMark(
          "Usable stroke of X on the positive side; held against the soft limit where the motor is not reversed"));
  p.Field("YNegativeRange", YNegativeRange)
      .Unit(uMm)
      .Text(TrMark("Usable stroke of Y on the negative side; held against the soft limit where the motor is reversed"));
  p.Field("YPositiveRange", YPositiveRange)
      .Unit(uMm)
      .Text(TrMark(
          "Usable stroke of Y on the positive side; held against the soft limit where the motor is not reversed"));
  p.Field("IsFinished", IsFinished)
      .Text(TrMark("Whether the strokes have been measured and still fit the soft limits"));
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
  p.Field("IsFinished", IsFinished).Text(TrMark("Whether the delay between motion and laser has been measured"));
  p.Field("SysDelayX", SysDelayX)
      .Text(TrMark("Measured delay between motion and laser along X, in the interface's own unit"));
  p.Field("SysDelayY", SysDelayY)
      .Text(TrMark("Measured delay between motion and laser along Y, in the interface's own unit"));
  p.Field("LastTime", LastTime).Text(TrMark("When the delay was last measured, as the interface counts it"));
  p.Field("MoveDis", MoveDis)
      .Unit(uMm)
      .Within(bdAtLeast(0))
      .Text(TrMark("How far the axis moves while the delay is measured"));
  p.Field("MoveSpeed", MoveSpeed)
      .Unit(uMmPerS)
      .Within(bdXYSpeed)
      .Text(TrMark("How fast the axis moves while the delay is measured"));
}

}  // namespace ixocamglue
