#include "ixocamglue/motion/Unozzlesteps.h"

#include <cmath>
#include <limits>

#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Umotiontexts.h"

namespace ixocamglue {
namespace {

// Kept: an input that is not fitted never stands in the way.
bool IsFitted(const TInportParamsConfig& input) { return input.Port >= 1; }

bool ReadsTrue(const TInportParamsConfig& input) {
  TNcDeviceManager* const devices = DeviceManager();
  TNcInputGroup* const inputs = devices ? devices->InputGroup() : nullptr;
  return inputs && inputs->GetInput(input.Port) == (input.Level != 0);
}

}  // namespace

bool InputIsMet(const TInportParamsConfig& input) { return !IsFitted(input) || ReadsTrue(input); }

void TSmtNozzleStep::ResetParams() {
  TSmtAtomic::ResetParams();
  FRow = -1;
  FCol = -1;
  FPhase = TPhase::Above;
}

TStepType TSmtNozzleStep::DoMotion(std::int32_t) {
  TNozzleChangeConfig* const config = FNozzleChangeCfg;
  TNcMotionDriver* const driver = MotionDriver();
  TNcDeviceManager* const devices = DeviceManager();
  const TZAxis axis(0);
  TPreCheck check(*this);
  check.Has(config, SNameConfig).Has(driver, SNameMotionDriver).Has(axis);
  if (!check.Has(devices ? devices->InputGroup() : nullptr, SNameInputs)) return Fail();
  const TNozzlePosItem* const slot = config->TryGetNozzlePosItem(FRow, FCol);
  if (!check.Require(slot, SCheckNoSlot, FRow + 1, FCol + 1)) return Fail();
  const TPlan plan = Plan(*config, *slot);
  const double above = plan.Z - config->ZDis;

  switch (FPhase) {
    case TPhase::Above:
      CheckStart(check, *driver, axis, *slot, plan);
      return check ? Go(axis, above, config->ZMoveHighSpeed, TPhase::Down) : Fail();
    case TPhase::Down:
      if (!check.Arrived(SNameZ, above, axis.GetZ())) return Fail();
      return Go(axis, plan.Z, config->ZMoveLowSpeed, plan.Align ? TPhase::Align : TPhase::Turn);
    case TPhase::Align:
      if (!check.Arrived(SNameZ, plan.Z, axis.GetZ())) return Fail();
      return Turn(*driver, plan.AlignTurn, plan.ScrewOn, TPhase::Turn);
    case TPhase::Turn:
      if (!check.Arrived(SNameZ, plan.Z, axis.GetZ())) return Fail();
      return Turn(*driver, plan.Turn, plan.ScrewOn, TPhase::Lift);
    case TPhase::Lift: return Go(axis, plan.LiftZ, config->ZMoveLowSpeed, TPhase::Verify);
    case TPhase::Verify: break;
  }
  check.Arrived(SNameZ, plan.LiftZ, axis.GetZ());
  check.Require(!IsFitted(slot->InReady) || ReadsTrue(slot->InReady) != plan.Occupied,
                plan.Occupied ? SCheckStillOccupied : SCheckStillFree, FRow + 1, FCol + 1);
  return check ? Await(csbtEnsure) : Fail();
}

void TSmtNozzleStep::CheckStart(TPreCheck& check, TNcMotionDriver& driver, const TZAxis& axis,
                                const TNozzlePosItem& slot, const TPlan& plan) const {
  const TNozzleChangeConfig& config = *FNozzleChangeCfg;
  constexpr double kMost = std::numeric_limits<double>::max();
  constexpr double kLeast = std::numeric_limits<double>::min();
  const TPoint2 over{static_cast<double>(slot.X), static_cast<double>(slot.Y)};
  const auto turn = [&check](const TTurn& t) {
    check.InRange(SNameTurns, t.Turns, {kLeast, kMost}).InRange(SNameTurnSpeed, t.Speed, {0.0, kMost});
  };
  check.Require(config.ChangeNozzleEnabled, SCheckRackDisabled);
  check.Require(IsConfigured(TPoint3{over.X, over.Y, plan.Z}), SCheckNoSlotPos, FRow + 1, FCol + 1);
  check.Require(InputIsMet(config.InCapOpenOK), SCheckCapNotOpen);
  check.Require(InputIsMet(config.InStageUpOK), SCheckStageNotUp);
  check.Require(!IsFitted(slot.InReady) || ReadsTrue(slot.InReady) == plan.Occupied,
                plan.Occupied ? SCheckSlotFree : SCheckSlotOccupied, FRow + 1, FCol + 1);
  check.Require(IsNear(GetXY(driver), over, kOverSlot), SCheckNotOverSlot, FRow + 1, FCol + 1, over.X, over.Y);
  check.InRange(SNameZDis, config.ZDis, {0.0, kMost}).Z(axis, plan.Z).Z(axis, plan.Z - config.ZDis);
  check.Z(axis, plan.LiftZ).InRange(SNameLiftZ, plan.LiftZ, {0.0, plan.Z});
  check.Speed(static_cast<double>(config.ZMoveHighSpeed)).Speed(static_cast<double>(config.ZMoveLowSpeed));
  check.InRange(SNameMotorAxis, config.MotorAxis, {kFirstFreeAxis, kMost});
  if (plan.Align) turn(plan.AlignTurn);
  turn(plan.Turn);
}

TStepType TSmtNozzleStep::Go(const TZAxis& axis, double z, long double speed, TPhase next) {
  FPhase = next;
  if (std::abs(axis.GetZ() - z) <= kAtTarget) return PollAgain(csbtEnsure);
  axis.MoveZ(z, static_cast<double>(speed));
  return PollAgain(axis.Busy());
}

TStepType TSmtNozzleStep::Turn(TNcMotionDriver& driver, const TTurn& turn, bool screwOn, TPhase next) {
  FPhase = next;
  const bool positive = screwOn != FNozzleChangeCfg->MotorDir;
  driver.TurnAxis(FNozzleChangeCfg->MotorAxis, positive ? turn.Turns : -turn.Turns, turn.Speed);
  return PollAgain(csbtMotion);
}

TSmtNozzleStep::TPlan TSmtUninstallNozzle::Plan(const TNozzleChangeConfig& config, const TNozzlePosItem& slot) const {
  TPlan plan;
  plan.Z = static_cast<double>(slot.UseDiffZ ? slot.UninstZ : slot.Z);
  plan.LiftZ = plan.Z - static_cast<double>(config.LiftHeightAfterUn);
  plan.Turn = {static_cast<double>(slot.UnInstCnt), static_cast<double>(slot.UnInstSpeed)};
  return plan;
}

TSmtNozzleStep::TPlan TSmtInstallNozzle::Plan(const TNozzleChangeConfig& config, const TNozzlePosItem& slot) const {
  TPlan plan;
  plan.Occupied = true;
  plan.Align = true;
  plan.ScrewOn = true;
  plan.Z = static_cast<double>(slot.Z);
  plan.LiftZ = static_cast<double>(config.LiftPosAfterIn);
  plan.AlignTurn = {static_cast<double>(slot.AlignCnt), static_cast<double>(slot.AlignSpeed)};
  plan.Turn = {static_cast<double>(slot.InstCnt), static_cast<double>(slot.InstSpeed)};
  return plan;
}

}  // namespace ixocamglue
