// How much one client, and all of them, may take of a controller. A value of whoever has it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ixocontroller {

struct TWireLimits {
  static constexpr std::uint64_t kMostBody = 1U << 20U;     // bytes
  static constexpr std::uint32_t kMostHeader = 16U << 10U;  // bytes

  std::size_t Connections = 512;
  std::size_t Feeds = 128;           // connections that follow events
  std::uint64_t RequestMs = 15'000;  // from a request's first byte to its last; to TLS that is agreed
  std::uint64_t WriteMs = 15'000;    // an answer of which nothing more is taken
  std::uint64_t LingerMs = 2000;     // what is still sent to a connection that ends
  std::uint64_t BeatMs = 5000;       // between two signs of life to who follows events
};

}  // namespace ixocontroller
