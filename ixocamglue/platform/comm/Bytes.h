// The byte array of every device frame and buffer; empty means that there is no data. A value of whoever has it.
#pragma once

#include <cstdint>
#include <vector>

namespace ixocamglue {

using TBytes = std::vector<std::uint8_t>;

}  // namespace ixocamglue
