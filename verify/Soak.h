// The soak: one controller with the example's machine lives through many virtual days of mixed work, with aborts,
// alarms, lost emission and a wall clock that is set. Whatever grows with time shows in the process's memory; each run
// is judged by the oracle; and the same seed gives the same journal to the last line. One thread; what fails in a run
// is a violation.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/support/Problem.h"

namespace ixoverify {
using namespace ixocamglue;

struct TSoakOptions {
  std::uint64_t Days = 3;
  std::uint64_t Seconds = 0;  // of real time: as many days as these hold, at least one; 0: Days
  std::uint64_t Seed = 1;
  std::uint64_t DayMs = 86'400'000;  // shorter for who looks at the journal only
};

// At the end of a day, and since the start.
struct TSoakDay {
  std::uint64_t Day = 0;  // from 1
  std::uint64_t Runs = 0;
  std::uint64_t Succeeded = 0;
  std::uint64_t Aborts = 0;
  std::uint64_t Alarms = 0;
  std::uint64_t ClockSteps = 0;
  std::uint64_t Hash = 0;  // of the journal
  std::uint64_t ResidentKiB = 0;
};

inline constexpr std::uint64_t kSoakWarmDays = 2;         // until everything has been used once
inline constexpr std::int64_t kSoakMostGrowthKiB = 1024;  // of the resident memory from then on

struct TSoakResult {
  TSoakDay Last;
  std::int64_t GrowthKiB = 0;           // the most by which the memory was above that of the second day
  std::vector<std::string> Violations;  // the first 50
  std::uint64_t ViolationCount = 0;

  // False also for a soak that is too short to judge: there is nothing to compare.
  [[nodiscard]] bool Grows() const { return GrowthKiB > kSoakMostGrowthKiB; }
  [[nodiscard]] bool MemoryJudged() const { return Last.Day > kSoakWarmDays; }
};

// On the calling thread. `progress` (may be empty) is told each day.
[[nodiscard]] TSoakResult RunSoak(const TSoakOptions& options,
                                  const std::function<void(const TSoakDay&)>& progress = {});
// What a program is told of it. Any thread; does not fail.
[[nodiscard]] nlohmann::ordered_json JsonOf(const TSoakResult& result, std::uint64_t seed);
// The problem that it is, in the language of the thread; none of a safe machine.
[[nodiscard]] std::optional<TProblem> ProblemOf(const TSoakResult& result);

}  // namespace ixoverify
