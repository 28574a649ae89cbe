// Who a process belongs to. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace ixocamglue {

// The login name of a user's number; the number itself where the system knows none.
[[nodiscard]] std::string UserName(std::uint32_t user);

}  // namespace ixocamglue
