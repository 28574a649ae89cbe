// The key panel on a session: the manager with its guard and its forms, its alarms and its knob.
//
// In virtual time the refresh and the watch are timers of the clock; in real time each has a thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/panel/PanelGuard.h"
#include "controller/process/RoundThread.h"
#include "ixocamglue/panel/Uknob.h"

namespace ixocontroller {
using namespace ixocamglue;

// The constructor throws what the devices and the knob throw; nothing else fails. What a key or the knob cannot do, and
// what a device throws that a key is for, stands in the log.
class TPanelHost {
 public:
  // Enables the panel, and makes the jog keys move at the speeds of the knob's level; the session has made its first
  // pass.
  explicit TPanelHost(TController& session);
  ~TPanelHost();
  TPanelHost(const TPanelHost&) = delete;
  TPanelHost& operator=(const TPanelHost&) = delete;

  [[nodiscard]] TPanelGuard& Guard() { return FGuard; }
  [[nodiscard]] TFormTracker& Forms() { return FForms; }
  [[nodiscard]] TController& Controller() { return FController; }

  // As the guard's; the knob's key turns the knob, and the log says why a key does nothing.
  bool Press(TKeyCode key, std::int32_t param = 0);
  // A press that may be a repeat of the one before: it counts where it switches something off.
  void PressAgain(TKeyCode key);
  // A maintenance warning is pending, and alarms require the origin; or neither.
  void SetWarning(bool pending);
  // By hand: the emergency stop and what it latched.
  void ResetEmergencyStop();
  // The keys that have another command (homing, resume, locating) do that one and blink, or no longer.
  void SetAlt(bool alt);
  [[nodiscard]] bool Alt() const;
  // Applies a level of the knob; refused with a line of the log when the speeds are not right.
  void SetKnob(TSpeedState level);

 private:
  void TurnKnob();

  TController& FController;
  TPanelGuard FGuard;
  TFormTracker FForms;
  std::vector<std::size_t> FTimers;
  std::uint64_t FWarning = 0;  // the alarm of a maintenance warning that stands; 0: none
  std::optional<TRoundThread> FRefreshThread;
  std::optional<TRoundThread> FWatchThread;
};

// Jog speeds in mm/s. Empty: they can be set; else the operator's text: low <= normal <= high <= the axis' maximum, and
// above 0.01.
[[nodiscard]] std::string CheckJogSpeeds(double low, double normal, double high, double most);
// Checks the knob's shown XY and Z speeds against the machine's axes. Empty: they are right.
[[nodiscard]] std::string CheckKnob();
// Sets the knob's level; where it is in force already, which the knob takes for no change, what follows from it is
// written all the same. The jog sections are not saved then. Throws as TKnob::SetSpeedState.
void ApplyKnob(TController& session, TSpeedState level);

// The same, where the knob's speeds are right; else refused with what is wrong with them.
TResult<> SetKnobLevel(TController& session, TSpeedState level);
// The shown speeds of a level, mm/s; saved in the machine file. Throws EProblem (pbRefused) for speeds that are not
// right: nothing has changed then.
void SetKnobSpeeds(TSpeedState level, std::optional<double> xy, std::optional<double> z);
// The levels, and the parameters and jog sections that follow from the one in force. Does not fail.
[[nodiscard]] nlohmann::ordered_json KnobJson(TController& session);

// "low", "normal" or "high"; throws EProblem for another word.
[[nodiscard]] TSpeedState LevelOf(const std::string& word);
[[nodiscard]] const char* LevelName(TSpeedState level);   // as LevelOf reads it; never null
[[nodiscard]] const char* ShownLevel(TSpeedState level);  // in the operator's language; never null

}  // namespace ixocontroller
