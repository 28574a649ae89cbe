// The panel of a controller that stays up: its host, the keys that clients hold, and what is told of its LEDs and its
// knob. Interface thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "controller/panel/PanelHost.h"
#include "controller/service/Events.h"
#include "controller/service/HeldKeys.h"

namespace ixocontroller {

// Nothing but its constructor fails, as TPanelHost's.
class TPanelDesk {
 public:
  // Both outlive the desk; the machine has acknowledged standby.
  TPanelDesk(TController& controller, TEventRing& events);

  [[nodiscard]] TPanelHost& Host() { return FHost; }
  [[nodiscard]] THeldKeys& Keys() { return FKeys; }
  // What the alarms' sources have registered when the desk was made: asking them may wait for a device.
  [[nodiscard]] const std::vector<TNcAlarmRecord>& RegisteredAlarms() const { return FRegistered; }
  // A form is on screen, or is taken from it: held keys come up.
  void SetForm(const std::string& form, bool open, std::uint64_t realMs);
  // Every few ms of real time, and between any two passes in virtual time.
  void Watch(std::uint64_t realMs) { FKeys.Watch(realMs); }
  // What has changed of LEDs and knob is told.
  void Tell();

 private:
  static bool Press(TPanelHost& host, TKeyCode key, std::int32_t param);
  void KeyUp(const TKeyPress& press, TKeyUp why);

  TController& FController;
  TEventRing& FEvents;
  TPanelHost FHost;
  THeldKeys FKeys;
  const std::vector<TNcAlarmRecord> FRegistered;
  TKeyMask FToldLeds = 0;
  TSpeedState FToldLevel;
};

// Does not fail.
[[nodiscard]] nlohmann::ordered_json KeyList(TKeyMask keys);  // ["CK_LASER", ...]

}  // namespace ixocontroller
