// Cleaning the nozzle on a brush: the curve over the brush, and the whole procedure by hand and automatic. State
// thread. Lengths mm; see motion/Umovesteps.h for what all of them share.
#pragma once

#include <cstdint>
#include <vector>

#include "ixocamglue/motion/Umovesteps.h"

namespace ixocamglue {

// 133: moves the nozzle over the brush. The height is the caller's business.
//   style 1        ellipses of 36 chords, `FCount` times round
//   any other      `FCount` strokes side by side across the width; every second one runs back
class TSmtCleanHeadCurve : public TSmtCommand<133, TSmtMoveStep> {
 public:
  static constexpr std::int32_t kMaxCount = 1000;
  static constexpr std::int32_t kEllipses = 1;
  static constexpr std::int32_t kChords = 36;
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  void AddWay(std::vector<TPoint2>& way) override;

  // Fills the fields from FNozzleCleanCfg, for the brush of the docked table; false, and nothing changed, without a
  // configuration or with a brush whose position was never configured.
  bool TakeConfig();

  bool FUseConfig = true;  // as TakeConfig has it, when the step runs
  TPoint2 FCentre;
  double FLength = 0.0;         // of a stroke, or the ellipse's first axis
  double FWidth = 0.0;          // across
  std::int32_t FDirection = 0;  // 0: the length lies along X, else along Y
  std::int32_t FStyle = 0;
  std::int32_t FCount = 0;  // 1 to 1000
  double FSpeed = 0.0;

 private:
  void CheckArrived(TPreCheck& check) override { check.ArrivedXY(MotionDriver(), FCurve.XYCurve().back()); }
  [[nodiscard]] std::vector<TPoint2> Curve(std::int32_t count) const;

  TMcCurveKeeper FCurve;
};

// The procedure: to the brush (139), gas on if configured (141), down (136), the curve (133), gas off (142), up, back.
// Built when it is entered; the brush is chosen then. However it ends, gas that it opened is off; only after success,
// and when the brush was really used, the pierce counter starts anew and is saved.
class TSmtCleanState : public TSmtComposite {
 public:
  void ResetParams() override;
  void DoBeforeStep(std::int32_t oldStep, std::int32_t newStep) override;
  void DoLeaveMotion() override;
  void DoLeaveError() override;

  bool FReturn = true;  // go back as "CleanReturnStyle" says

 protected:
  // The whole list; `calibrate` puts 152 before the way back. Nothing, with an error line, where it must not run.
  void AddCleaning(bool calibrate);

 private:
  void CloseGas();

  bool FGasToClose = false;  // not a parameter: stays until the gas has been told
};

// 513: by hand. Refused without an initialised brush and while no table is docked.
class TSmtManuCleanState : public TSmtCommand<513, TSmtCleanState> {
 public:
  void BuildMotionList() override { AddCleaning(false); }
};

// 514: automatic. Where cleaning is switched off or not possible it succeeds without doing anything.
class TSmtAutoCleanState : public TSmtCommand<514, TSmtCleanState> {
 public:
  void BuildMotionList() override;
};

// False when the machine has a pallet switch table and no table is docked.
[[nodiscard]] bool CanCleanHead();

}  // namespace ixocamglue
