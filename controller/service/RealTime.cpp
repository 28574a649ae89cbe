#include "controller/service/RealTime.h"

#include <chrono>

#include "ixocamglue/platform/services/UtcTime.h"

namespace ixocontroller {

std::uint64_t RealMs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

std::int64_t RealUnixMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string UtcText(std::int64_t unixMs) { return ixocamglue::FormatUtc(ixocamglue::FromUnixMs(unixMs)); }

}  // namespace ixocontroller
