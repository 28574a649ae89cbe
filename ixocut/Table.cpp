#include "ixocut/Table.h"

#include <algorithm>
#include <cstddef>

namespace ixocut {
namespace {

// Characters of three bytes and more are those of CJK, two columns wide; the texts hold no others.
std::size_t Width(const std::string& text) {
  std::size_t width = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) width += byte >= 0xE0 ? 2 : 1;
  }
  return width;
}

}  // namespace

std::string CsvField(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string field = "\"";
  for (const char c : text) field.append(c == '"' ? 2 : 1, c);
  return field + '"';
}

std::vector<std::string> DrawTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  }
  std::vector<std::string> lines;
  for (const auto& row : rows) {
    std::string& line = lines.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string pad(widths[i] - Width(row[i]), ' ');
      const bool last = i + 1 == widths.size();
      line += (i == 0 ? "" : "  ") + (i == 0 ? row[i] + pad : last ? row[i] : pad + row[i]);
    }
  }
  return lines;
}

}  // namespace ixocut
