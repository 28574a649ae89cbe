// Steps that switch one output. State thread.
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
  TSmtSwitchOutport(TCustomMotionState* ctrl, bool on) : TSmtAtomic(ctrl), FOn(on) {}

 private:
  const bool FOn;
};

// 172: on.
class TSmtOpenOutport : public TSmtSwitchOutport {
 public:
  static constexpr std::int32_t Cmd = 172;
  static constexpr std::string_view kClassName = "TSmtOpenOutport";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;

 protected:
  explicit TSmtOpenOutport(TCustomMotionState* ctrl) : TSmtSwitchOutport(ctrl, true) {}
};

// 173: off.
class TSmtCloseOutport : public TSmtSwitchOutport {
 public:
  static constexpr std::int32_t Cmd = 173;
  static constexpr std::string_view kClassName = "TSmtCloseOutport";
  std::int32_t GetID() override { return Cmd; }
  std::string GetDesc() override;

 protected:
  explicit TSmtCloseOutport(TCustomMotionState* ctrl) : TSmtSwitchOutport(ctrl, false) {}
};

}  // namespace ixocamglue
