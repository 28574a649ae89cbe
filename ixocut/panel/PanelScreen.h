// What the panel's terminal shows: the keys with their LEDs, the machine below, the alarms that stand, and the last
// messages with their times.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "controller/panel/PanelSeat.h"

namespace ixocut {
using namespace ixocontroller;

inline constexpr std::size_t kScreenColumns = 80;  // all keys are seen from this width on
// Text in lines of at most so many columns, broken at blanks where it has them; what could move the cursor is a blank.
[[nodiscard]] std::vector<std::string> Wrapped(std::string_view text, std::size_t columns);
// The whole screen, at most `rows` lines of at most `columns`. The notice that software is not the emergency stop is
// its last line; of messages and alarms there is what has room, the newest messages first.
[[nodiscard]] std::vector<std::string> PanelScreen(const TPanelView& view, std::size_t columns, std::size_t rows);

}  // namespace ixocut
