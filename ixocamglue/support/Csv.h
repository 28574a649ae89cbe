// Tables whose fields are parted by commas, for other programs (RFC 4180). Any thread. Nothing here fails.
#pragma once

#include <string>
#include <string_view>

namespace ixocamglue {

// A field as it stands there: in quotation marks where it needs them.
[[nodiscard]] inline std::string CsvField(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string field = "\"";
  for (const char c : text) field.append(c == '"' ? 2 : 1, c);
  return field + '"';
}

}  // namespace ixocamglue
