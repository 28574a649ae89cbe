// Steps of the cutting head: focus, following the plate, calibration of the height sensor. State thread. Lengths mm;
// see motion/Umovesteps.h for what all of them share.
#pragma once

#include <cstdint>

#include "ixocamglue/motion/Umovesteps.h"

namespace ixocamglue {

// 421: moves the focus axis.
class TSmtMoveToF : public TSmtCommand<421, TSmtMoveStep> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  double FFocus = 0.0;
  double FSpeed = 0.0;

 private:
  void CheckArrived(TPreCheck& check) override;
};

// 154: follows the plate at a height, and leaves the head following. Refused while an alarm forbids it.
class TSmtFollow : public TSmtCommand<154, TSmtFollowerStep> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  double FHeight = 1.0;  // above 0

 private:
  void CheckArrived(TPreCheck& check) override;
};

// 151: calibrates the height sensor over the plate under the nozzle. Every result, a bad one too, is appended to
// FCaliRstCfg (second follower: FCaliRstCfg2), and the configuration is saved when the NC parameter
// "AutoSaveCaliResult" is 1. A result whose error type is not 0 answers -2.
class TSmtCapCaliMotion : public TSmtCommand<151, TSmtFollowerStep> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

 private:
  void CheckArrived(TPreCheck&) override {}  // the result has told
  TStepType Finish(TNcFollower& follower);

  enum class TPhase : std::uint8_t { Calibrate, Read };
  TPhase FPhase = TPhase::Calibrate;
};

// 153: calibrates where the head stands (151), then raises it (134).
class TSmtSimpleAutoCaliState : public TSmtCommand<153, TSmtComposite> {
 public:
  void ResetParams() override;
  void BuildMotionList() override;

  std::int32_t FFollowerIndex = 0;
};

// 152: calibrates at the configured position: goes there (139, 136), 151, raises the head (134) and returns to where it
// started (137). Built when it is entered. Refused before the first calibration by hand ("FinishFirstCali"), without a
// follower, and while the position was never configured.
class TSmtAutoCaliState : public TSmtCommand<152, TSmtComposite> {
 public:
  void ResetParams() override;
  void BuildMotionList() override;

  bool FReturn = true;
};

}  // namespace ixocamglue
