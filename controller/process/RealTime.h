// The time of people and connections, which runs on whatever the machine's clock does: heartbeats, lease, time-outs,
// staleness, and the stamps of what is told. Any thread. Nothing here fails.
#pragma once

#include <cstdint>
#include <string>

namespace ixocontroller {

[[nodiscard]] std::uint64_t RealMs();  // steady; only differences mean something
// As if so much more had passed, for who does not want to wait for it.
void SkipRealTime(std::uint64_t ms);
[[nodiscard]] std::int64_t RealUnixMs();
[[nodiscard]] std::string UtcText(std::int64_t unixMs);  // "2026-05-01T07:00:00.000+00:00"

}  // namespace ixocontroller
