// A composite of any commands, for procedures that an application puts together from a list. State thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ixocamglue/motion/Usteptree.h"

namespace ixocamglue {

// One position of a sequence.
struct TSequenceItem {
  std::int32_t Command = 0;                                     // a command of the step factory; ignored with Make
  std::string Desc;                                             // the progress line
  std::function<void(TStateMotion&)> Configure;                 // may be empty
  std::function<TStepPtr(TCustomMotionState*)> Make = nullptr;  // a step that no command makes, a sequence for example
};

// Its leave protects the machine: with a 516, 518 or 520 among its own commands it switches laser and emission off,
// with a 141 the gas, unless it ends with success. What it is made of survives ResetParams, so that it can run again.
class TSmtSequence : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TSmtSequence";
  std::int32_t GetID() override { return FId; }
  std::string GetDesc() override { return FDesc; }
  void ResetParams() override;
  void BuildMotionList() override;
  void DoLeaveMotion() override;
  void DoLeaveError() override;
  bool NeedsLaser() override;  // makes those of its steps that no command makes, and throws what that throws

  // `buildLate`: the children are made when the sequence is entered. Does not fail: a command that the factory does not
  // know fails the build.
  void Define(std::int32_t id, std::string desc, std::vector<TSequenceItem> items, bool buildLate = false);

 private:
  [[nodiscard]] bool Has(std::int32_t command) const;
  [[nodiscard]] bool MayOpenGas() const;

  std::int32_t FId = 0;
  std::string FDesc;
  std::vector<TSequenceItem> FItems;
  bool FBuildLate = false;
};

}  // namespace ixocamglue
