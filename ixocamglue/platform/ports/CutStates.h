// The states of the cutting system by number (TNcCutSystem::GetState), and what each means to who asks. Constants; any
// thread. Nothing fails: an unknown number is another state.
#pragma once

#include <cstdint>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

enum class TCutState : std::uint8_t {
  csStandby,
  csWorking,
  csPaused,
  csReturnOrg,
  csJogging,
  csDryRun,
  csCalibration,  // of the follower
  csWalkAround,
  csOther,  // a state that the platform does not classify: a procedure's, for example
};
using enum TCutState;

[[nodiscard]] constexpr std::int32_t StateNumber(TCutState state) { return static_cast<std::int32_t>(state); }
inline constexpr std::int32_t kCutStates = StateNumber(csOther);  // 0 to 7 are classified

// csOther outside 0 to 7.
[[nodiscard]] constexpr TCutState ClassifyCutState(std::int32_t number) {
  return number >= 0 && number < kCutStates ? static_cast<TCutState>(number) : csOther;
}
// "standby", "working" ...; a literal. Tr shows it to the operator.
[[nodiscard]] constexpr const char* CutStateName(TCutState state) {
  switch (state) {
    case csStandby: return TrMark("standby");
    case csWorking: return TrMark("working");
    case csPaused: return TrMark("paused");
    case csReturnOrg: return TrMark("return to origin");
    case csJogging: return TrMark("jogging");
    case csDryRun: return TrMark("dry run");
    case csCalibration: return TrMark("follower calibration");
    case csWalkAround: return TrMark("walk-around");
    case csOther: break;
  }
  return TrMark("another state");
}

}  // namespace ixocamglue
