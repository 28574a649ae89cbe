// Tables for the terminal, whose cells may hold Chinese: columns are aligned by what they take on the screen.
// Values; any thread. Nothing here fails.
#pragma once

#include <string>
#include <vector>

namespace ixocommandline {

using TRows = std::vector<std::vector<std::string>>;

// The first row is the heading. The first and the last column are set left, the others right.
[[nodiscard]] std::vector<std::string> DrawTable(const TRows& rows);

}  // namespace ixocommandline
