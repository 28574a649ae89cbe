#include "ixocamglue/motion/Uwaitsteps.h"

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr const char* SNoInportCtrl = "无法找到输出设备";
constexpr std::int32_t kTimeOutEndsWait = 0;
constexpr std::int32_t kTimeOutRaisesAlarm = 3;

}  // namespace

void SwitchGasOff() {
  TNcGas* const gas = FittedGas();
  if (!gas) return;
  try {
    gas->SwitchOff();
  } catch (...) {
    gas->SwitchOff();
  }
}

TStepType TSmtDelay::DoMotion(std::int32_t) {
  if (!StateCtrl()) return Fail();
  StateCtrl()->Delay(FDelay);
  return Await(csbtDelay);
}

void TSmtGasOnState::ResetParams() {
  TSmtCommand::ResetParams();
  FGasBranch = 0;
  FGasPressure = 0.0;
}

TStepType TSmtGasOnState::DoMotion(std::int32_t) {
  if (TDiag d{dlMessage}) d("GasOn: Branch(%d);Pressure(%f)", FGasBranch, FGasPressure);
  TNcGas* const gas = FittedGas();
  if (!gas) return FailWithout(SNameGas);
  if (!StateCtrl()) return Fail();
  gas->SelectBranch(FGasBranch);
  gas->SetPressure(FGasPressure);
  gas->SwitchOn();
  return Await(csbtGas);
}

TStepType TSmtGasOffState::DoMotion(std::int32_t) {
  TNcGas* const gas = FittedGas();
  if (!gas) return Await(csbtEnsure);
  if (gas->GetGas()) {
    if (TDiag d{dlMessage}) d("Shut off Gas");
    gas->SwitchOff();
  } else {
    if (TDiag d{dlMessage}) d("Gas had been off");
  }
  return Await(csbtGas);
}

void TSmtWaitInport::ResetParams() {
  TSmtCommand::ResetParams();
  FOutport = -1;
  FWaitInport = -1;
  FWaitTime = 1;
  FNeedOutport = false;
  FTimeOutAlarm = false;
}

TStepType TSmtWaitInport::DoMotion(std::int32_t) {
  if (TDiag d{dlMessage}) d("打開輸出口 = %d, 等待輸入口 = %d，超時等待時間 = %d", FOutport, FWaitInport, FWaitTime);
  if (FOutport == -1) {  // Kept: without an output nothing is waited for, whatever the input
    FNeedOutport = false;
    return Await(csbtEnsure);
  }
  if (!StateCtrl()) return Fail();
  if (FNeedOutport) {
    TNcMotionCard* const card = MotionCard();
    if (!card) return FailWithout(SNameMotionCard);
    card->SwitchOutport(FOutport, true);
  }
  TNcCutSystem* const cut = CutSystem();
  TNcInportCtrl* const inport = cut ? cut->InportCtrl() : nullptr;
  if (!inport) return FaultOr(mstpError, SNoInportCtrl);
  inport->SetTimeOutMode(FTimeOutAlarm ? kTimeOutRaisesAlarm : kTimeOutEndsWait);
  TNcDeviceManager* const devices = DeviceManager();
  if (TNcInputGroup* inputs = devices ? devices->InputGroup() : nullptr)
    inputs->SetInputLogic(FWaitInport, FInportLogic);
  if (TDiag d{dlMessage}) d("%s 开始等待输入口%d ", FormatDateTime(Clock().Now()).c_str(), FWaitInport);
  inport->StartWait(FWaitInport, FWaitTime);
  return Await(csbtInput);
}

// A card that throws leaves the step loaded, so that the forced leave at its release tries once more.
void TSmtWaitInport::DoLeaveMotion() {
  if (FNeedOutport)
    if (TNcMotionCard* card = MotionCard()) card->SwitchOutport(FOutport, false);
  TSmtCommand::DoLeaveMotion();
}

}  // namespace ixocamglue
