// Lets maps keyed by text be searched without making a string. Any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace ixocamglue {

struct TTextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

}  // namespace ixocamglue
