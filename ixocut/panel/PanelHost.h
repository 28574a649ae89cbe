// The key panel on a session: the manager with its guard and its forms, the alarms that can be raised by hand, the LED
// picture, and the names that people use.
//
// In virtual time the refresh and the watch are timers of the clock; in real time Start gives each a thread.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "controller/Controller.h"
#include "controller/panel/PanelGuard.h"
#include "ixocamglue/panel/Uknob.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

struct TDemoAlarm {
  std::int32_t Id;
  const TText* Name;
  TNcAlarmAttrs Attrs;
};
[[nodiscard]] std::span<const TDemoAlarm> DemoAlarms();
[[nodiscard]] const TDemoAlarm* FindDemoAlarm(std::int32_t id);
// "101 (Laser source fault), ..."
[[nodiscard]] std::string DemoAlarmList();

// "CK_LASER", "laser"
[[nodiscard]] std::optional<TKeyCode> ParseKey(std::string_view text);
[[nodiscard]] std::string KeyNames(TKeyMask keys);  // "CK_LASER CK_GAS"; "-" for none
// A state by number or name ("paused").
[[nodiscard]] std::optional<std::int32_t> ParseState(std::string_view text);

inline constexpr std::size_t kPanelColumns = 7;
// The panel as the operator sees it: a filled lamp for each lit key. With `hints`, the terminal's key beside it; seven
// columns of 19 characters then, or 15 without. Fewer columns for a narrow terminal.
[[nodiscard]] std::vector<std::string> DrawPanel(TKeyMask leds, bool hints, std::size_t columns = kPanelColumns);

class TPanelHost {
 public:
  // Enables the panel; the session has made its first pass.
  explicit TPanelHost(TController& session);
  ~TPanelHost();
  TPanelHost(const TPanelHost&) = delete;
  TPanelHost& operator=(const TPanelHost&) = delete;

  [[nodiscard]] TPanelGuard& Guard() { return FGuard; }
  [[nodiscard]] TFormTracker& Forms() { return FForms; }
  [[nodiscard]] TController& Controller() { return FController; }

  void RaiseAlarm(const TDemoAlarm& alarm);
  // A maintenance warning is pending, and alarms require the origin; or neither.
  void SetWarning(bool pending);
  // By hand: the emergency stop and what it latched.
  void ResetEmergencyStop() { FController.Keys().SetEmergencyStop(false); }
  // Applies a level of the knob; refused with a text for the operator when the speeds are not right.
  void SetKnob(TSpeedState level);
  // The next level, if the panel permits the knob's key.
  void TurnKnob();

 private:
  TController& FController;
  TPanelGuard FGuard;
  TFormTracker FForms;
  std::vector<std::size_t> FTimers;
  std::optional<TRoundThread> FRefreshThread;
  std::optional<TRoundThread> FWatchThread;
};

// Jog speeds in mm/s. Empty: they can be set; else the operator's text: low <= normal <= high <= the axis' maximum, and
// above 0.01.
[[nodiscard]] std::string CheckJogSpeeds(double low, double normal, double high, double most);
// Checks the knob's shown XY and Z speeds against the machine's axes.
[[nodiscard]] std::string CheckKnob();

// "low", "normal" or "high"; throws EProblem for another word.
[[nodiscard]] TSpeedState LevelOf(const std::string& word);

}  // namespace ixocut
