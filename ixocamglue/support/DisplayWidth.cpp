#include "ixocamglue/support/DisplayWidth.h"

namespace ixocamglue {

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) == 0x80U) continue;         // a further byte of a character
    width += byte >= 0xE3 && byte < 0xF0 ? 2 : 1;  // U+3000 and up, the Chinese ones
  }
  return width;
}

std::string Padded(std::string text, std::size_t width) {
  const std::size_t shown = DisplayWidth(text);
  if (shown < width) text.append(width - shown, ' ');
  return text;
}

std::string SetRight(const std::string& text, std::size_t width) {
  const std::size_t shown = DisplayWidth(text);
  return shown < width ? std::string(width - shown, ' ') + text : text;
}

}  // namespace ixocamglue
