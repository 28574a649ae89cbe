// Machine state 205: calibrates the valves of the gases that the model names, one after the other.
//
// State thread only. Raw voltages between 0 and 10 V, never a set pressure; whatever ends the state leaves 0 V and gas
// off. A gas's table in the machine configuration is replaced as a whole or not at all; the configuration is saved
// once, after the last gas.
//
// With the refined method, further voltages follow when the exact one proposes none, and the curve is built from all.
// Points that are no curve are said in the model's message log, and the gas keeps its table; what the devices throw
// ends the state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ixocamglue/gascal/Refine.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/platform/states/NcState.h"

namespace ixocamglue {

// NextGas -> GasOnWait -> NextVolt <-> Measuring, NextVolt -> FinishGas -> NextGas; NextGas -> Finished after the last.
enum class TGasAdjustSub : std::uint8_t {
  NextGas = 0,
  GasOnWait = 1,
  NextVolt = 2,
  FinishGas = 3,
  Measuring = 4,
  Finished = 5
};

class TZemGasAdjustState : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;

  bool CheckEnterAlarm(std::int32_t param) override;
  bool CheckStateAlarm() override;
  void InitState(std::int32_t param) override;
  void LeaveState(std::int32_t param) override;
  void StepDone(std::int32_t result) override;
  void UpdateThread(std::uint32_t& loopDelay) override;
  std::string StateName() override { return "nsZemGasAdjust"; }

  void AddAdjustMsg(std::string text);  // a line of the model's message log; dropped without a model

  [[nodiscard]] TGasAdjustSub SubState() const { return FSubState; }
  [[nodiscard]] std::int32_t Gas() const;  // being calibrated; -1 before the first and after the last
  [[nodiscard]] const TQuickGasDAAdjust& Adjust() const { return FAdjust; }

 private:
  [[nodiscard]] bool HasGas() const;
  void Advance();
  void NextGas();
  void NextVolt();
  void Measure();
  void FinishGas();
  void StoreCurve(TGasBranchConfig& branch, const TIncList& curve);
  void SaveConfig();
  [[nodiscard]] bool ProposeVolt(double& volt);
  [[nodiscard]] bool Settled(TGasAdjustEvent& event) const;
  void ReportProgress();

  std::vector<std::int32_t> FGasTypes;
  std::int32_t FGasIndex = -1;
  TGasAdjustSub FSubState = TGasAdjustSub::NextGas;
  double FVolt = 0.0;              // being measured
  std::uint64_t FStartMs = 0;      // gas was switched on
  std::uint64_t FSettledAtMs = 0;  // end of the pause after a new voltage
  std::uint64_t FSampleAtMs = 0;   // end of the sampling interval
  TQuickGasDAAdjust FAdjust;
  bool FRefined = false;   // the method of this run
  bool FRefining = false;  // the exact method has proposed its last voltage
  TGasRefine FRefine;
};

}  // namespace ixocamglue
