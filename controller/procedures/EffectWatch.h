// Looks whether a procedure's steps have had their effect: the gas that 141 set is the gas that the device has when its
// wait is over, or the procedure ends with an error; a beam that was asked for was lit. One that lights the beam ends
// where it is entered with a laser that cannot be used. State thread, but for LightMissed.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "ixocamglue/motion/Umotioncontroller.h"

namespace ixocontroller {
using namespace ixocamglue;

class TEffectWatch final : public IMotionObserver {
 public:
  static constexpr double kSameBar = 0.01;

  explicit TEffectWatch(TNcStateFramework& framework) : FFramework(framework) {}

  void Entered(IStateMotion& root) override;
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome* outcome) override;

  // In the procedure that ended last the beam was asked for, or there is no laser to ask, and never was there light.
  // Any thread.
  [[nodiscard]] bool LightMissed() const { return FLightMissed.load(std::memory_order_acquire); }

 private:
  struct TGas {
    std::int32_t Branch = 0;
    double Bar = 0.0;
  };
  void CheckGas(const TGas& set);

  TNcStateFramework& FFramework;
  std::optional<TGas> FSet;  // by a 141 whose wait is not over
  bool FNeedsLaser = false;
  bool FFitted = false;
  bool FLights = false;  // a step that switches the beam on has stood
  // Before the procedure.
  std::uint32_t FAsked = 0;
  std::uint32_t FLit = 0;
  std::atomic<bool> FLightMissed{false};
};

}  // namespace ixocontroller
