// The states of the cutting system by number (TNcCutSystem::GetState), and what each means to who asks.
#pragma once

#include <cstdint>

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

[[nodiscard]] constexpr TCutState ClassifyCutState(std::int32_t number) {
  return number >= 0 && number < kCutStates ? static_cast<TCutState>(number) : csOther;
}
// "standby", "working" ...; a literal.
[[nodiscard]] constexpr const char* CutStateName(TCutState state) {
  switch (state) {
    case csStandby: return "standby";
    case csWorking: return "working";
    case csPaused: return "paused";
    case csReturnOrg: return "return to origin";
    case csJogging: return "jogging";
    case csDryRun: return "dry run";
    case csCalibration: return "follower calibration";
    case csWalkAround: return "walk-around";
    case csOther: break;
  }
  return "another state";
}

}  // namespace ixocamglue
