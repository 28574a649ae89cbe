// The key panel in a terminal, in real time.
#pragma once

#include <string>

#include "ixocut/panel/PanelScreen.h"
#include "ixocut/panel/TerminalKeys.h"

namespace ixocut {
using namespace ixocamglue;
using namespace ixocontroller;

struct TPanelTerminalOptions {
  std::string Form = "Work";  // shown at the start
};

// Throws EProblem when standard input or output is no terminal.
void CheckTerminal();
// Until the operator quits or a signal ends it; then everything is stopped and the terminal is as it was. Throws as
// CheckTerminal. The session's threads run.
int RunPanelTerminal(TController& session, const TLastLines& log, const TPanelTerminalOptions& options);

// The keys of a terminal, held as long as the panel's commands say, and what one of their events does; false: quit.
[[nodiscard]] TTerminalKeys KeysFor();
[[nodiscard]] bool Act(TPanelHost& host, const TTerminalEvent& event);

}  // namespace ixocut
