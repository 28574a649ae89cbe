// The panel as a picture of characters.
#pragma once

#include <string>
#include <vector>

#include "ixocamglue/panel/Kbpkeys.h"

namespace ixocut {
using namespace ixocamglue;

inline constexpr std::size_t kPanelColumns = 7;
// The panel as the operator sees it: a filled lamp for each lit key. With `hints`, the terminal's key beside it; seven
// columns of 19 characters then, or 15 without. Fewer columns for a narrow terminal.
[[nodiscard]] std::vector<std::string> DrawPanel(TKeyMask leds, bool hints, std::size_t columns = kPanelColumns);

}  // namespace ixocut
