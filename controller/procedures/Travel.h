// A step of the host's own procedures: XY to a point. State thread.
#pragma once

#include "ixocamglue/motion/Usteptree.h"
#include "ixocamglue/platform/ports/MotionDriver.h"

namespace ixocontroller {
using namespace ixocamglue;

// -2 without a motion driver.
class TSmtTravel : public TSmtAtomic {
 public:
  static constexpr std::int32_t Cmd = 911;
  static constexpr std::string_view kClassName = "TSmtTravel";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override { return "travel"; }
  TStepType DoMotion(std::int32_t reason) override;
  void SetTarget(TPoint2 target, double mmPerS) {  // survives ResetParams
    FTarget = target;
    FSpeed = mmPerS;
  }

 protected:
  using TSmtAtomic::TSmtAtomic;

 private:
  TPoint2 FTarget;
  double FSpeed = 0.0;
};

}  // namespace ixocontroller
