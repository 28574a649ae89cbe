// Lists as text. Any thread. Nothing here fails.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ixocamglue {

// One more behind those that `list` has.
inline void AddToList(std::string& list, std::string_view more, std::string_view between = ", ") {
  if (!list.empty()) list += between;
  list += more;
}

// "a, b, c": what `nameOf` makes of each.
template <class TRange, class TName = std::identity>
[[nodiscard]] std::string Joined(const TRange& list, TName nameOf = {}, std::string_view between = ", ") {
  std::string text;
  for (const auto& each : list) AddToList(text, std::invoke(nameOf, each), between);
  return text;
}

// What stands between the marks, in front of the first and behind the last of them; the text where there is none.
[[nodiscard]] inline std::vector<std::string> SplitAt(std::string_view text, char mark) {
  std::vector<std::string> parts;
  for (std::size_t end = 0; (end = text.find(mark)) != std::string_view::npos; text.remove_prefix(end + 1))
    parts.emplace_back(text.substr(0, end));
  parts.emplace_back(text);
  return parts;
}

}  // namespace ixocamglue
