// Steps that switch the laser and its emission (shutter), and the timed laser shot. State thread. A step without its
// controller answers -2 where it would switch something on; a device's exception passes through.
#pragma once

#include <cstdint>

#include "ixocamglue/motion/Usteptree.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue {

// When the laser was switched; shared by the laser steps of the program, because only one procedure runs at a time.
struct TLaserTimes {
  TDateTime LaserOn;                 // last switched on by 516 or 520
  TDateTime LaserOff;                // first switched off by 517 since ClearTimeStamps
  TDateTime DetectBegin, DetectEnd;  // of the paper-detection test
};
[[nodiscard]] TLaserTimes& LaserTimes();
void ClearTimeStamps();  // all but LaserOn

// 516: emission on, wait for it up to the configuration's "EmissionOnDelay" (ms, section "Laser", default 5000), laser
// on. Emission that never comes is no error here: the laser device holds the beam back, and the next step decides.
class TSmtLaserOn : public TSmtCommand<516> {
 public:
  TStepType DoMotion(std::int32_t reason) override;

 private:
  void PollEmission(TNcLaser& laser, std::uint32_t startTick, std::uint32_t limitMs);
};

// 517: laser off, then emission off.
class TSmtLaserOff : public TSmtCommand<517> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 518: asks for emission; -2 without laser.
class TSmtEmissionOn : public TSmtCommand<518> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 519: polls until emission is on, without a limit; -2 without laser.
class TSmtWaitForEmissionOn : public TSmtCommand<519> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 520: laser on, emission untouched; -2 without laser.
class TSmtLaserOnOnly : public TSmtCommand<520> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 522: laser off, emission untouched.
class TSmtLaserOffOnly : public TSmtCommand<522> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
};

// 515, a root that the step factory does not make: the timed laser shot. However it ends, its leave switches laser and
// emission off.
class TSmtLaserOnTimeState : public TSmtCommand<515, TSmtComposite> {
 public:
  static constexpr std::string_view kClassName = "TSmtLaserOnTimeState";
  std::string GetDesc() override;
  void BuildMotionList() override;
  void DoLeaveMotion() override;
  // Any number, though beyond 65 s the latch trips. Survives ResetParams.
  void SetDuration(std::uint32_t ms) { FDuration = ms; }
  [[nodiscard]] std::uint32_t GetDuration() const { return FDuration; }

 private:
  std::uint32_t FDuration = 0;
};

// Laser off and, when it is on, emission off, under the cutting system's lock: what a composite that switches the
// laser does on leaving. Each action is tried whatever the others throw; the first failure is thrown at the end.
void SwitchLaserDark();

}  // namespace ixocamglue
