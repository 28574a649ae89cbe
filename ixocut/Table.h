// Tables: for the terminal, whose cells may hold Chinese (columns are aligned by what they take on the screen), and
// with commas for other programs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ixocut {

// The first row is the heading. The first and the last column are set left, the others right.
[[nodiscard]] std::vector<std::string> DrawTable(const std::vector<std::vector<std::string>>& rows);

// A field of a table with commas.
[[nodiscard]] std::string CsvField(std::string_view text);

}  // namespace ixocut
