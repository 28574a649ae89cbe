// Looks whether a procedure's steps have had their effect: the gas that 141 set is the gas that the device has when its
// wait is over, or the procedure ends with an error; a beam that was asked for was lit. One that lights the beam ends
// where it is entered with a laser that cannot be used. State thread, unless a line says otherwise.
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
  static constexpr std::uint64_t kLightOverMs = 50;  // the light of a shot may last longer by the passes between steps

  explicit TEffectWatch(TNcStateFramework& framework) : FFramework(framework) {}

  void Entered(IStateMotion& root) override;
  void Ticked(IStateMotion& root, TStepType answer) override;
  void Ended(const TMotionOutcome* outcome) override;

  // In the procedure that ended last the beam was asked for, or there is no laser to ask, and never was there light.
  // Any thread.
  [[nodiscard]] bool LightMissed() const { return FLightMissed.load(std::memory_order_acquire); }
  // How long the shot that was entered last lights; none: what was entered last is no shot. Any thread.
  [[nodiscard]] std::optional<std::uint64_t> ShotMs() const {
    const std::uint64_t ms = FShotMs.load(std::memory_order_acquire);
    return ms == kNoShot ? std::nullopt : std::optional(ms);
  }

 private:
  static constexpr std::uint64_t kNoShot = ~std::uint64_t{0};

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
  std::atomic<std::uint64_t> FShotMs{kNoShot};
};

}  // namespace ixocontroller
