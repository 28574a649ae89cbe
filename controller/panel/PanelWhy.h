// Why a key of the panel does what it does: each mask, what the cutting system makes of the command, what would help.
// Interface thread. Of keys that the panel has; throws what a device throws that is asked whether it is on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/panel/PanelHost.h"
#include "ixocamglue/panel/Kbpmngr.h"

namespace ixocontroller {

struct TKeyReason {
  const char* Who;          // "client", "alarm", "state", "warning", "machine"; Tr shows it
  bool Permits = false;     // what the mask says
  bool Blocks = false;      // the press comes to nothing because of it
  std::string Because;      // in the operator's language
  std::string Change = {};  // what would have to change; empty where it permits
};

struct TKeyWhy {
  TPressVerdict Verdict = pvSent;
  std::int32_t Command = 0;
  bool Acts = false;  // the command is sent, and the cutting system carries it out; or the knob is turned
  bool Sent = false;
  std::string Conclusion;
  std::vector<TKeyReason> Reasons;
};

// What is taken to be otherwise than it is; what is left out is as it is.
struct TPanelSupposed {
  std::optional<std::string> Form;  // the only one on screen, one that the table knows; empty: none
  std::optional<std::int32_t> State;
  std::optional<std::vector<TNcAlarmRecord>> Alarms;  // all that stand
  std::optional<bool> Warning;                        // a maintenance warning is pending
};

// What a key meets: the four masks, the form on screen, the machine's state, the alarms. Made of the panel as it is, or
// as it would be, which changes nothing of panel and machine. Whether something is on, the laser's latch and the
// emergency stop are the machine's own in both. Interface thread.
class TPanelPicture {
 public:
  explicit TPanelPicture(TPanelHost& host, const TPanelSupposed& supposed = {});
  TPanelPicture(const TPanelPicture&) = delete;
  TPanelPicture& operator=(const TPanelPicture&) = delete;

  TKeyMask Client = 0, Alarm = 0, State = 0, Warning = 0;
  std::string Form;  // empty: none is on screen
  std::vector<TNcAlarmRecord> Alarms;
  TKeyCommands::TMet Met;

 private:
  TNcAlarmManager FAlarms;
  TNcForbidTypeRegistry FForbidden;
};

// By the manager's masks as they are.
[[nodiscard]] TPressVerdict Judge(TKeyCode key);
[[nodiscard]] TKeyWhy Why(TPanelHost& host, TKeyCode key, const TPanelPicture& picture);
[[nodiscard]] nlohmann::ordered_json JsonOf(TKeyCode key, const TKeyWhy& why);
// What keeps the press from having its effect, of what JsonOf has made of it; none where it has it. Throws
// nlohmann::json::exception for anything else.
[[nodiscard]] std::optional<TProblem> ProblemOf(const nlohmann::ordered_json& why);
// In short, for a press that has just been made: why the panel did not send it, or did so under an alarm. Empty: there
// is nothing to say.
[[nodiscard]] std::string WhyNothing(TPanelHost& host, TKeyCode key);

}  // namespace ixocontroller
