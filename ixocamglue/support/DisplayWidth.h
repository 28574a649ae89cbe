// How wide a text is on a terminal. UTF-8; any thread; cannot fail.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ixocamglue {

// Columns that a terminal needs for the text: two for a Chinese character.
[[nodiscard]] std::size_t DisplayWidth(std::string_view text);
// With blanks behind it, up to so many columns.
[[nodiscard]] std::string Padded(std::string text, std::size_t width);
// The same with the blanks in front of it.
[[nodiscard]] std::string SetRight(const std::string& text, std::size_t width);

}  // namespace ixocamglue
