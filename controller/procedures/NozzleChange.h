// The nozzle change: puts the head's nozzle into its slot of the rack and takes another one. State thread. Throws
// EProblem for what cannot be made on this machine.
#pragma once

#include <cstdint>

#include "ixocamglue/config/Unozzleconfig.h"
#include "ixocamglue/motion/Usteptree.h"

namespace ixocontroller {
using namespace ixocamglue;

inline constexpr std::int32_t kNozzleChangeId = 921;

// The sequence, on FNozzleChangeCfg as it is now:
//   139 over the slot of `from`; open the cap, raise the stage
//   163 in the slot, 134
//   139 over the slot of `to`, 164 in it, 134
//   lower the stage, close the cap
//   152, when the configuration has CapCaliAfterChange
// Cap and stage each switch the opposite output off (173) and their own on (172), wait for their input (176), and go no
// further without it. Outputs are off after success. After any other ending they stay as they are, so that neither cap
// nor stage moves while the head may still be between the slots.
//
// `from` and `to` are nozzle numbers. Throws EProblem with the reason when the change is not possible: exit code 2
// for a nozzle that the machine does not have, 3 for a configuration that cannot be used.
[[nodiscard]] TStepPtr MakeNozzleChange(TCustomMotionState* ctrl, std::int32_t from, std::int32_t to);
// From UninstallID to InstallID, the ones chosen last.
[[nodiscard]] TStepPtr MakeNozzleChange(TCustomMotionState* ctrl);

// -2, with an error line, while an input does not have the level that the configuration names; one that is not fitted
// counts as met.
class TSmtInputCheck : public TSmtAtomic {
 public:
  static constexpr std::int32_t Cmd = 922;
  static constexpr std::string_view kClassName = "TSmtInputCheck";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;
  TStepType DoMotion(std::int32_t reason) override;
  void SetInput(std::int32_t port, bool level);  // survives ResetParams

 protected:
  using TSmtAtomic::TSmtAtomic;

 private:
  std::int32_t FPort = 0;
  bool FLevel = true;
};

}  // namespace ixocontroller
