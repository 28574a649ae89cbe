// The first port numbers of each kind. Set at run time, before any port is calculated; read at each call. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace ixocamglue {

inline constinit std::atomic<std::int32_t> PORT_DA_BASE{10000};
inline constinit std::atomic<std::int32_t> PORT_AD_BASE{20000};
inline constinit std::atomic<std::int32_t> PORT_PWM_BASE{30000};

}  // namespace ixocamglue
