// Why a key of the panel does what it does: each mask, what the cutting system makes of the command, what would help.
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
  bool Acts = false;  // the command is sent, and the cutting system carries it out
  bool Sent = false;
  std::string Conclusion;
  std::vector<TKeyReason> Reasons;
};

// By the manager's masks as they are.
[[nodiscard]] TPressVerdict Judge(TKeyCode key);
// The key in this machine state; the state mask of the manager is the one of that state.
[[nodiscard]] TKeyWhy Why(TPanelHost& host, TKeyCode key, std::int32_t state);
[[nodiscard]] nlohmann::ordered_json JsonOf(TKeyCode key, const TKeyWhy& why);
// What keeps the press from having its effect; none where it has it.
[[nodiscard]] std::optional<TProblem> ProblemOf(TKeyCode key, const TKeyWhy& why);
// In short, for a press that has just been made: why the panel did not send it, or did so under an alarm. Empty: there
// is nothing to say.
[[nodiscard]] std::string WhyNothing(TPanelHost& host, TKeyCode key);

}  // namespace ixocontroller
