// The key commands that the cutting system understands (TNcCutSystem::KeyDown, KeyUp). Constants; any thread, and
// nothing fails.
#pragma once

#include <cstdint>

namespace ixocamglue {

inline constexpr std::int32_t kcNone = 0;  // no command; the forbidden-key registry always forbids it
inline constexpr std::int32_t kcStart = 1;
inline constexpr std::int32_t kcPause = 3;
inline constexpr std::int32_t kcStop = 4;
inline constexpr std::int32_t kcWalkAround = 5;
inline constexpr std::int32_t kcDryCut = 6;
inline constexpr std::int32_t kcReturnOrg = 11;
inline constexpr std::int32_t kcReturnOrgAlt = 13;  // without asking for the general move permission
inline constexpr std::int32_t kcResume = 14;
inline constexpr std::int32_t kcEmergencyStop = 15;
// Held: they act from the press to the release.
inline constexpr std::int32_t kcJogLeft = 33;     // X -
inline constexpr std::int32_t kcJogRight = 34;    // X +
inline constexpr std::int32_t kcJogForward = 35;  // Y +
inline constexpr std::int32_t kcJogBack = 36;     // Y -
inline constexpr std::int32_t kcJogLaser = 51;
inline constexpr std::int32_t kcJogZDown = 101;
inline constexpr std::int32_t kcJogZUp = 102;
// Switches: each press changes over.
inline constexpr std::int32_t kcLaser = 67;
inline constexpr std::int32_t kcAiming = 84;
inline constexpr std::int32_t kcShutter = 88;
inline constexpr std::int32_t kcFollow = 100;
inline constexpr std::int32_t kcGas = 148;

inline constexpr std::int32_t kcCalibration = 103;
inline constexpr std::int32_t kcCurPosCalibration = 104;
inline constexpr std::int32_t kcBreakLocate = 65550;

// Stop, pause and emergency stop: nothing ever forbids them.
[[nodiscard]] constexpr bool IsStopCommand(std::int32_t command) {
  return command == kcPause || command == kcStop || command == kcEmergencyStop;
}
[[nodiscard]] constexpr bool IsJogCommand(std::int32_t command) {
  return (command >= kcJogLeft && command <= kcJogBack) || command == kcJogZDown || command == kcJogZUp;
}
// What acts only as long as its key is held.
[[nodiscard]] constexpr bool IsHeldCommand(std::int32_t command) {
  return IsJogCommand(command) || command == kcJogLaser;
}

}  // namespace ixocamglue
