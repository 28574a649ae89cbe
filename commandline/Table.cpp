#include "commandline/Table.h"

#include <algorithm>
#include <cstddef>

#include "ixocamglue/support/DisplayWidth.h"

namespace ixocommandline {
using namespace ixocamglue;

std::vector<std::string> DrawTable(const TRows& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
  }
  std::vector<std::string> lines;
  for (const auto& row : rows) {
    std::string& line = lines.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) {
      const bool last = i + 1 == widths.size();
      line += i == 0 ? Padded(row[i], widths[i]) : "  " + (last ? row[i] : SetRight(row[i], widths[i]));
    }
  }
  return lines;
}

}  // namespace ixocommandline
