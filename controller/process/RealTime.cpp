#include "controller/process/RealTime.h"

#include <atomic>
#include <chrono>

#include "ixocamglue/platform/services/UtcTime.h"

namespace ixocontroller {
namespace {

std::atomic<std::uint64_t> GSkippedMs{0};

}  // namespace

std::uint64_t RealMs() {
  using namespace std::chrono;
  const auto now = duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
  return static_cast<std::uint64_t>(now) + GSkippedMs.load(std::memory_order_relaxed);
}

void SkipRealTime(std::uint64_t ms) { GSkippedMs.fetch_add(ms); }

std::int64_t RealUnixMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string UtcText(std::int64_t unixMs) { return ixocamglue::FormatUtc(ixocamglue::FromUnixMs(unixMs)); }

}  // namespace ixocontroller
