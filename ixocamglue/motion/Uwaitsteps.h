// Steps for the assist gas, a fixed delay, and an output with the input that answers it. State thread. Times ms,
// pressures bar. What a step needs and has not (its device, its controller) makes it answer -2; a device's exception
// passes through.
#pragma once

#include <algorithm>
#include <cstdint>

#include "ixocamglue/motion/Usteptree.h"

namespace ixocamglue {

// 612: waits.
class TSmtDelay : public TSmtCommand<612> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  [[nodiscard]] std::int64_t OwnWaitMs() const override { return FDelay; }
  void SetDelay(std::uint32_t ms) { FDelay = ms; }  // any number; survives ResetParams
  [[nodiscard]] std::uint32_t GetDelay() const { return FDelay; }

 private:
  std::uint32_t FDelay = 0;
};

// 141: selects a branch, sets its pressure, switches the gas on; -2 without a gas device.
class TSmtGasOnState : public TSmtCommand<141> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  std::int32_t FGasBranch = 0;  // a gas type number
  double FGasPressure = 0.0;    // bar
};

// 142: switches the gas off.
class TSmtGasOffState : public TSmtCommand<142> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 176: switches an output on if asked to, and waits for an input. A time-out ends the wait; with FTimeOutAlarm the
// input controller also raises an alarm. However the step is left, an output that it switched on is switched off.
class TSmtWaitInport : public TSmtCommand<176> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  void DoLeaveMotion() override;
  [[nodiscard]] std::int64_t OwnWaitMs() const override { return std::max(FWaitTime, 0); }

  std::int32_t FOutport = -1;     // -1: none, and then nothing is waited for
  std::int32_t FWaitTime = 1;     // ms
  std::int32_t FWaitInport = -1;  // -1 counts as met
  bool FNeedOutport = false;      // the step switches FOutport on, and off when it leaves
  bool FTimeOutAlarm = false;
  bool FInportLogic = false;  // the level that counts as reached
};

// What a composite that opens the gas does on leaving: off, and once more when the first time throws, because nobody
// else closes the gas after a procedure's own failure.
void SwitchGasOff();

}  // namespace ixocamglue
