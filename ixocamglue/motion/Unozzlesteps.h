// Taking a nozzle off in a slot of the nozzle rack, and screwing one on. State thread. On FNozzleChangeCfg; mm, turns.
#pragma once

#include <cstdint>

#include "ixocamglue/config/Unozzleconfig.h"
#include "ixocamglue/motion/Umovesteps.h"

namespace ixocamglue {

// What 163 and 164 share. Everything is checked before anything moves: the rack is enabled and ready, the slot exists
// and is as it must be, the head stands over it (within 0.1 mm), and what the configuration asks for is possible. Then,
// one command per tick: fast to "ZDis" above the slot, slowly down, turn, lift; at last the slot's input must have
// changed. An input whose port is below 1 is not fitted and counts as met.
class TSmtNozzleStep : public TSmtAtomic {
 public:
  static constexpr double kOverSlot = 0.1;           // mm
  static constexpr std::int32_t kFirstFreeAxis = 2;  // X and Y turn no nozzle
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  std::int32_t FRow = -1;
  std::int32_t FCol = -1;

 protected:
  struct TTurn {
    double Turns = 0.0;  // above 0
    double Speed = 0.0;  // turns/s; 0: the platform's default
  };
  // What is done in the slot. "MotorDir" false: a nozzle is screwed on by positive turns.
  struct TPlan {
    bool Occupied = false;  // the slot before; the other way round after
    bool Align = false;     // with the aligning turn
    bool ScrewOn = false;
    double Z = 0.0;
    double LiftZ = 0.0;
    TTurn AlignTurn, Turn;
  };

 private:
  enum class TPhase : std::uint8_t { Above, Down, Align, Turn, Lift, Verify };

  [[nodiscard]] virtual TPlan Plan(const TNozzleChangeConfig& config, const TNozzlePosItem& slot) const = 0;
  void CheckStart(TPreCheck& check, TNcMotionDriver& driver, const TZAxis& axis, const TNozzlePosItem& slot,
                  const TPlan& plan) const;
  TStepType Go(const TZAxis& axis, double z, long double speed, TPhase next);
  TStepType Turn(TNcMotionDriver& driver, const TTurn& turn, bool screwOn, TPhase next);

  TPhase FPhase = TPhase::Above;
};

// 163: leaves the head's nozzle in the slot.
class TSmtUninstallNozzle : public TSmtCommand<163, TSmtNozzleStep> {
 private:
  [[nodiscard]] TPlan Plan(const TNozzleChangeConfig& config, const TNozzlePosItem& slot) const override;
};

// 164: takes the slot's nozzle.
class TSmtInstallNozzle : public TSmtCommand<164, TSmtNozzleStep> {
 private:
  [[nodiscard]] TPlan Plan(const TNozzleChangeConfig& config, const TNozzlePosItem& slot) const override;
};

// Whether the input has the level that the configuration names; one that is not fitted, always. False without inputs.
[[nodiscard]] bool InputIsMet(const TInportParamsConfig& input);

}  // namespace ixocamglue
