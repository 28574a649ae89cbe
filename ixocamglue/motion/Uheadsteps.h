// Steps of the cutting head: focus, following the plate, calibration of the height sensor. State thread. Lengths mm;
// see motion/Umovesteps.h for what all of them share.
#pragma once

#include <cstdint>

#include "ixocamglue/motion/Umovesteps.h"

namespace ixocamglue {

// 421: moves the focus axis.
class TSmtMoveToF : public TSmtMoveStep {
 public:
  static constexpr std::int32_t Cmd = 421;
  static constexpr std::string_view kClassName = "TSmtMoveToF";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  double FFocus = 0.0;
  double FSpeed = 0.0;

 protected:
  using TSmtMoveStep::TSmtMoveStep;

 private:
  void CheckArrived(TPreCheck& check) override;
};

// 154: follows the plate at a height, and leaves the head following. Refused while an alarm forbids it.
class TSmtFollow : public TSmtFollowerStep {
 public:
  static constexpr std::int32_t Cmd = 154;
  static constexpr std::string_view kClassName = "TSmtFollow";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  double FHeight = 1.0;  // above 0

 protected:
  using TSmtFollowerStep::TSmtFollowerStep;

 private:
  void CheckArrived(TPreCheck& check) override;
};

// 151: calibrates the height sensor over the plate under the nozzle. Every result, a bad one too, is appended to
// FCaliRstCfg (second follower: FCaliRstCfg2), and the configuration is saved when the NC parameter
// "AutoSaveCaliResult" is 1. A result whose error type is not 0 answers -2.
class TSmtCapCaliMotion : public TSmtFollowerStep {
 public:
  static constexpr std::int32_t Cmd = 151;
  static constexpr std::string_view kClassName = "TSmtCapCaliMotion";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

 protected:
  using TSmtFollowerStep::TSmtFollowerStep;

 private:
  void CheckArrived(TPreCheck&) override {}  // the result has told
  TStepType Finish(TNcFollower& follower);

  enum class TPhase : std::uint8_t { Calibrate, Read };
  TPhase FPhase = TPhase::Calibrate;
};

// 153: calibrates where the head stands (151), then raises it (134).
class TSmtSimpleAutoCaliState : public TSmtComposite {
 public:
  static constexpr std::int32_t Cmd = 153;
  static constexpr std::string_view kClassName = "TSmtSimpleAutoCaliState";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  void ResetParams() override;
  void BuildMotionList() override;

  std::int32_t FFollowerIndex = 0;

 protected:
  using TSmtComposite::TSmtComposite;
};

// 152: calibrates at the configured position: goes there (139, 136), 151, raises the head (134) and returns to where it
// started (137). Built when it is entered. Refused before the first calibration by hand ("FinishFirstCali"), without a
// follower, and while the position was never configured.
class TSmtAutoCaliState : public TSmtComposite {
 public:
  static constexpr std::int32_t Cmd = 152;
  static constexpr std::string_view kClassName = "TSmtAutoCaliState";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  void ResetParams() override;
  void BuildMotionList() override;

  bool FReturn = true;

 protected:
  using TSmtComposite::TSmtComposite;
};

}  // namespace ixocamglue
