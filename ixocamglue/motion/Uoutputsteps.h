// Steps that switch one output. State thread. A missing card or a number below -1 is one error line and -2; a device's
// exception passes through.
#pragma once

#include <cstdint>

#include "ixocamglue/motion/Usteptree.h"

namespace ixocamglue {

// Switches its output and waits for nothing. Port -1 switches nothing; any other needs a motion card.
class TSmtSwitchOutport : public TSmtAtomic {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  std::int32_t FPort = -1;

 protected:
  bool FOn = false;
};

// 172: on.
class TSmtOpenOutport : public TSmtCommand<172, TSmtSwitchOutport> {
 public:
  TSmtOpenOutport() { FOn = true; }
};

// 173: off.
class TSmtCloseOutport : public TSmtCommand<173, TSmtSwitchOutport> {};

}  // namespace ixocamglue
