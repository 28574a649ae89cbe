#include "ixocamglue/platform/services/Clock.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

#include "ixocamglue/platform/services/DayParts.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

std::int64_t ToMs(TDateTime t) { return std::llround(t.Days * static_cast<double>(kMsPerDay)); }

}  // namespace

std::string FormatSpan(TDateTime a, TDateTime b) {
  const std::int64_t span = ((ToMs(b) - ToMs(a)) % kMsPerDay + kMsPerDay) % kMsPerDay;
  const auto part = [&](std::int64_t unit, std::int64_t wrap) { return static_cast<int>(span / unit % wrap); };
  return Format("%02d:%02d:%02d-%03d", part(3'600'000, 24), part(60'000, 60), part(1000, 60), part(1, 1000));
}

std::string FormatDateTime(TDateTime t) {
  const std::int64_t unixMs = ToMs(t) - kDaysToUnixEpoch * kMsPerDay;
  const std::chrono::sys_time<std::chrono::milliseconds> time{std::chrono::milliseconds(unixMs)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  return Format("%04d-%02u-%02u %02d:%02d:%02d.%03d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
}

bool TStop::WaitFor(std::uint32_t ms) {
  std::unique_lock lock(FMutex);
  return FAsking.wait_for(lock, std::chrono::milliseconds(ms), [this] { return Asked(); });
}

std::uint32_t TSystemClock::TickMs() { return static_cast<std::uint32_t>(MonotonicMs()); }

std::uint64_t TSystemClock::MonotonicMs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

std::uint64_t TSystemClock::MonotonicUs() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
}

TDateTime TSystemClock::Now() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  const std::int64_t unixMs = duration_cast<milliseconds>(now.time_since_epoch()).count() + local.tm_gmtoff * 1000;
  return {static_cast<double>(kDaysToUnixEpoch) + static_cast<double>(unixMs) / static_cast<double>(kMsPerDay)};
}

void TSystemClock::Sleep(std::uint32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// With the timer's slack at most 200 us: a wait that polls a device takes no core, and sees it in time.
void TSystemClock::Spin() { std::this_thread::sleep_for(std::chrono::microseconds(100)); }

bool TSystemClock::Pause(TStop& stop, std::uint32_t ms) { return stop.WaitFor(ms); }

IXO_DEFINE_SERVICE(IClock, InstalledClock)

IClock& Clock() {
  static TSystemClock real;
  IClock* const installed = InstalledClock();
  return installed ? *installed : real;
}

}  // namespace ixocamglue
