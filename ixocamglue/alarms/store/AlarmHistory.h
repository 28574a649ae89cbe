// Reading an alarm store, also while another process writes it: rows, statistics, and the two things that an operator
// may write from outside. Nothing here closes a row. One thread per object. Failures are ESqlite.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/alarms/store/AlarmStore.h"

namespace ixocamglue {

// As stored; times are local, "YYYY-MM-DD hh:mm:ss.zzz", empty for "not yet".
struct TAlarmRow {
  std::int64_t Row = 0;
  std::string Identifier, Code, Module, Type, Description, Reason, Solution;
  std::int64_t Level = 0;
  std::string Raised, Cleared, Acknowledged, ByWhom, Mark;
  bool FirstOut = false;  // nothing else was active when it was raised

  [[nodiscard]] bool Active() const { return Cleared.empty(); }
};

struct TAlarmFilter {
  enum class TWhat { All, Active, History };  // history: closed rows
  TWhat What = TWhat::All;
  std::string Since;  // of the raise; a leading part of a stored time
  std::optional<std::int64_t> Level;
  std::string Identifier;
};

class TAlarmHistory {
 public:
  // Throws when there is no such file, or it is no alarm store.
  explicit TAlarmHistory(const std::filesystem::path& file);

  [[nodiscard]] std::vector<TAlarmRow> Rows(const TAlarmFilter& filter);  // oldest first
  [[nodiscard]] std::vector<TAlarmSuppression> Suppressions(std::string_view now);
  // Counts every change that another connection has committed.
  [[nodiscard]] std::int64_t DataVersion();
  // False when no row of the identifier is open.
  [[nodiscard]] bool Acknowledge(std::string_view identifier, std::string_view who, std::string_view now);

 private:
  TSqliteDb FDb;
};

// True when the row is hidden by one of the suppressions, which are in force. Level 1 never is.
[[nodiscard]] bool IsSuppressed(const TAlarmRow& row, const std::vector<TAlarmSuppression>& suppressions);

inline constexpr std::int64_t kRateSpanMs = 600'000;
inline constexpr std::size_t kFloodRaises = 10;  // more than this in kRateSpanMs
inline constexpr std::int64_t kChatterSpanMs = 60'000;
inline constexpr std::size_t kChatterRaises = 3;  // this many of one identifier in kChatterSpanMs
inline constexpr std::int64_t kStaleMs = 86'400'000;
inline constexpr std::size_t kMostFrequent = 10;

struct TAlarmStats {
  struct TFlood {
    std::string From, To;    // first and last raise
    std::size_t Raises = 0;  // between them
  };
  struct TCount {
    std::string Identifier;
    std::size_t Raises = 0;  // frequent: all; chattering: the most within the span
  };

  std::size_t Raises = 0;
  std::size_t Active = 0;
  std::size_t LastSpan = 0;     // raises in the last 10 minutes
  double PerSpan = 0.0;         // mean, from the first raise until now
  std::size_t BusiestSpan = 0;  // the most in any 10 minutes
  std::vector<TFlood> Floods;
  std::vector<TCount> Chattering;
  std::vector<TAlarmRow> Stale;
  std::vector<TCount> Frequent;
};

// `rows` oldest first. `now` in the stored form.
[[nodiscard]] TAlarmStats StatsOf(const std::vector<TAlarmRow>& rows, std::string_view now);

// Milliseconds of a stored time, or of a leading part of one down to the day; nothing for anything else.
[[nodiscard]] std::optional<std::int64_t> StoredTimeMs(std::string_view text);

}  // namespace ixocamglue
