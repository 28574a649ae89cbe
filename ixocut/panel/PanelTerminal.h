// The key panel in a terminal, in real time.
#pragma once

#include "ixocut/panel/PanelScreen.h"
#include "ixocut/panel/TerminalKeys.h"

namespace ixocut {
using namespace ixocamglue;

// Throws EProblem when standard input or output is no terminal.
void CheckTerminal();
// Until the operator quits or a signal ends it, and the seat is left; then the terminal is as it was. Throws as
// CheckTerminal, and when the controller has gone.
int RunPanelTerminal(IPanelSeat& seat);

// The keys of a terminal, held as long as the seat's commands say, and what one of their events does; false: quit.
[[nodiscard]] TTerminalKeys KeysFor(const IPanelSeat& seat);
[[nodiscard]] bool Act(IPanelSeat& seat, const TTerminalEvent& event);

}  // namespace ixocut
