// The key panel in a terminal, in real time. Main thread.
#pragma once

#include "ixocut/panel/PanelScreen.h"

namespace ixocut {
using namespace ixocamglue;

// Throws EProblem when standard input or output is no terminal.
void CheckTerminal();
// Until the operator quits or a signal ends it, and the seat is left; then the terminal is as it was. Throws as
// CheckTerminal, and when the controller has gone.
int RunPanelTerminal(IPanelSeat& seat);

}  // namespace ixocut
