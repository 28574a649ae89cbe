// Reading an alarm store, also while another process writes it: rows, statistics, and what an operator may write from
// outside. One thread per object. Failures are ESqlite.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/alarms/store/AlarmStore.h"

namespace ixocamglue {

// Times as FormatUtc writes them, whatever the store's version; empty for "not yet".
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
  std::optional<TDateTime> Since;  // of the raise, UTC
  std::optional<std::int64_t> Level;
  std::string Identifier;
  // Only so many of the last rows are looked at, and an alarm is then first among these; 0: all.
  std::int64_t Newest = 0;
};

class TAlarmHistory {
 public:
  // Throws when there is no such file, or it is no alarm store.
  explicit TAlarmHistory(const std::filesystem::path& file);

  [[nodiscard]] std::vector<TAlarmRow> Rows(const TAlarmFilter& filter);     // in the order of their raises
  [[nodiscard]] std::vector<TAlarmSuppression> Suppressions(TDateTime now);  // those in force
  [[nodiscard]] bool InPlace() const { return FDb->InPlace(); }  // false: the store was deleted, or made again
  // Counts every change that another connection has committed.
  [[nodiscard]] std::int64_t DataVersion();
  // False when no row of the identifier is open.
  [[nodiscard]] bool Acknowledge(std::string_view identifier, std::string_view who, TDateTime now);
  // Closes the newest open row of the identifier that an operator raised. The caller holds the store's lock.
  [[nodiscard]] bool Clear(std::string_view identifier, TDateTime now);

 private:
  const std::unique_ptr<TSqliteDb> FDb;
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

// `rows` in the order of their raises.
[[nodiscard]] TAlarmStats StatsOf(const std::vector<TAlarmRow>& rows, TDateTime now);

}  // namespace ixocamglue
