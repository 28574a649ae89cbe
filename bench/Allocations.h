// Counts calls of operator new; Allocations.cpp replaces it for the whole program.
#pragma once

#include <cstdint>

namespace ixocamglue::bench {

// By the calling thread, since it started.
[[nodiscard]] std::uint64_t Allocations();

}  // namespace ixocamglue::bench
