#include "controller/service/PanelDesk.h"

namespace ixocontroller {

TPanelDesk::TPanelDesk(TController& controller, TEventRing& events)
    : FController(controller),
      FEvents(events),
      FHost(controller),
      FKeys(
          FHost.Guard(), [this](TKeyCode key, std::int32_t param) { return Press(FHost, key, param); },
          [this](const TKeyPress& press, TKeyUp why) { KeyUp(press, why); }),
      FRegistered(controller.Alarms().Registered()),
      FToldLevel(Knob().GetSpeedState()) {}

bool TPanelDesk::Press(TPanelHost& host, TKeyCode key, std::int32_t param) {
  const TLanguageScope own("");  // what the log is told is read by others
  return host.Press(key, param);
}

void TPanelDesk::KeyUp(const TKeyPress& press, TKeyUp why) {
  FEvents.Add(evKey, [key = press.Key, id = press.Id, why] {
    return nlohmann::ordered_json{{"key", KeyName(key)}, {"press", id}, {"up", KeyUpWord(why)}};
  });
}

void TPanelDesk::SetForm(const std::string& form, bool open, std::uint64_t realMs) {
  FKeys.ReleaseAll(kuForm, realMs);
  if (open)
    FHost.Forms().Show(form);
  else
    FHost.Forms().Hide(form);
  FHost.Guard().Refresh();
}

void TPanelDesk::Tell() {
  const TKeyMask leds = FHost.Guard().Leds();
  const TSpeedState level = Knob().GetSpeedState();
  if (leds == FToldLeds && level == FToldLevel) return;
  FToldLeds = leds;
  FToldLevel = level;
  FEvents.Add(evLed, [leds, level] {
    return nlohmann::ordered_json{{"leds", KeyList(leds)}, {"knob", LevelName(level)}};
  });
}

nlohmann::ordered_json KeyList(TKeyMask keys) {
  auto list = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((keys & KeyBit(i)) != 0) list.push_back(kKeyTable[i].Name);
  return list;
}

}  // namespace ixocontroller
