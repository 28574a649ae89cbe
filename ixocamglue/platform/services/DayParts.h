// Constants: what a TDateTime counts, in ms, and where it begins.
#pragma once

#include <cstdint>

namespace ixocamglue {

inline constexpr std::int64_t kMsPerDay = 86'400'000;
inline constexpr std::int64_t kDaysToUnixEpoch = 25'569;  // 1899-12-30 to 1970-01-01

}  // namespace ixocamglue
