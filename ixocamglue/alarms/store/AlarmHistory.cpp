#include "ixocamglue/alarms/store/AlarmHistory.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <deque>
#include <map>
#include <set>

namespace ixocamglue {
namespace {

// "0000-00-00 00:00:00.000": a leading part of it may be given, ending behind a number.
constexpr std::string_view kTimeForm = "0000-00-00 00:00:00.000";
constexpr std::size_t kTimeEnds[] = {10, 16, 19, 23};

std::filesystem::path Existing(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) throw ESqlite(file, "there is no such file");
  return file;
}

TSqliteDb OpenHistory(const std::filesystem::path& file) {
  try {
    return {file, TSqliteDb::TMode::ReadWrite, kStoreBusyMs};  // a reader takes part in the write-ahead log
  } catch (const ESqlite&) {
    return {file, TSqliteDb::TMode::ReadOnly, kStoreBusyMs};
  }
}

}  // namespace

TAlarmHistory::TAlarmHistory(const std::filesystem::path& file) : FDb(OpenHistory(Existing(file))) {
  TSqliteStmt table(FDb, "SELECT count(*) FROM sqlite_master WHERE type='table' AND name IN('alarms','suppressions')");
  if (!table.Step() || table.Int(0) != 2) FDb.Fail("the file is no alarm store");
}

std::vector<TAlarmRow> TAlarmHistory::Rows(const TAlarmFilter& filter) {
  // Whether a row was first-out takes all rows: a raise is, when nothing that was raised before was open.
  TSqliteStmt stmt(FDb,
                   "SELECT row,identifier,code,module,type,description,reason,solution,level,raised,cleared,"
                   "acknowledged,by_whom,mark FROM alarms ORDER BY raised,row");
  std::vector<TAlarmRow> rows;
  std::multiset<std::string> open;  // when the rows so far were cleared; an empty text sorts first
  std::size_t neverCleared = 0;
  while (stmt.Step()) {
    TAlarmRow row;
    row.Row = stmt.Int(0);
    std::string* const texts[] = {&row.Identifier,  &row.Code,   &row.Module,  &row.Type,
                                  &row.Description, &row.Reason, &row.Solution};
    for (int i = 0; i < 7; ++i) *texts[i] = stmt.Text(i + 1);
    row.Level = stmt.Int(8);
    row.Raised = stmt.Text(9);
    row.Cleared = stmt.Text(10);
    row.Acknowledged = stmt.Text(11);
    row.ByWhom = stmt.Text(12);
    row.Mark = stmt.Text(13);
    open.erase(open.begin(), open.upper_bound(row.Raised));
    row.FirstOut = neverCleared == 0 && open.empty();
    if (row.Active())
      ++neverCleared;
    else
      open.insert(row.Cleared);
    if (filter.What == TAlarmFilter::TWhat::Active && !row.Active()) continue;
    if (filter.What == TAlarmFilter::TWhat::History && row.Active()) continue;
    if (filter.Level && row.Level != *filter.Level) continue;
    if (!filter.Identifier.empty() && row.Identifier != filter.Identifier) continue;
    if (row.Raised < filter.Since) continue;
    rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<TAlarmSuppression> TAlarmHistory::Suppressions(std::string_view now) {
  TSqliteStmt stmt(FDb, "SELECT identifier,until,reason FROM suppressions WHERE until>?1 ORDER BY identifier");
  stmt.Bind(1, now);
  std::vector<TAlarmSuppression> found;
  while (stmt.Step()) found.push_back({stmt.Text(0), stmt.Text(1), stmt.Text(2)});
  return found;
}

std::int64_t TAlarmHistory::DataVersion() {
  TSqliteStmt stmt(FDb, "PRAGMA data_version");
  return stmt.Step() ? stmt.Int(0) : 0;
}

bool TAlarmHistory::Acknowledge(std::string_view identifier, std::string_view who, std::string_view now) {
  TSqliteStmt stmt(FDb,
                   "UPDATE alarms SET acknowledged=?2, by_whom=?3 WHERE row=(SELECT row FROM alarms WHERE "
                   "identifier=?1 AND cleared IS NULL ORDER BY row DESC LIMIT 1)");
  stmt.Bind(1, identifier).Bind(2, now).Bind(3, who).Run();
  return FDb.Changes() > 0;
}

bool IsSuppressed(const TAlarmRow& row, const std::vector<TAlarmSuppression>& suppressions) {
  return row.Level == 0 &&
         std::ranges::find(suppressions, row.Identifier, &TAlarmSuppression::Identifier) != suppressions.end();
}

std::optional<std::int64_t> StoredTimeMs(std::string_view text) {
  if (std::ranges::find(kTimeEnds, text.size()) == std::end(kTimeEnds)) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kTimeForm[i] == '0' ? !digit : text[i] != kTimeForm[i]) return std::nullopt;
  }
  const auto part = [&](std::size_t at, std::size_t size) {
    int value = 0;
    if (at < text.size()) std::from_chars(text.data() + at, text.data() + at + size, value);
    return value;
  };
  const std::chrono::year_month_day date{std::chrono::year(part(0, 4)),
                                         std::chrono::month(static_cast<unsigned>(part(5, 2))),
                                         std::chrono::day(static_cast<unsigned>(part(8, 2)))};
  if (!date.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 59) return std::nullopt;
  const auto days = std::chrono::sys_days(date).time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(days).count() + part(11, 2) * 3'600'000 +
         part(14, 2) * 60'000 + part(17, 2) * 1000 + part(20, 3);
}

TAlarmStats StatsOf(const std::vector<TAlarmRow>& rows, std::string_view now) {
  TAlarmStats stats;
  const std::int64_t nowMs = StoredTimeMs(now).value_or(0);
  struct TRaise {
    std::int64_t Ms;
    const TAlarmRow* Row;
  };
  std::deque<TRaise> span;  // the last 10 minutes before each raise
  std::map<std::string, std::pair<std::size_t, std::deque<std::int64_t>>, std::less<>> byId;
  std::map<std::string, std::size_t> chattering;
  bool inFlood = false;
  std::int64_t firstMs = nowMs;
  for (const TAlarmRow& row : rows) {
    const auto ms = StoredTimeMs(row.Raised);
    if (!ms) continue;
    firstMs = std::min(firstMs, *ms);
    ++stats.Raises;
    stats.Active += row.Active() ? 1U : 0U;
    stats.LastSpan += nowMs - *ms <= kRateSpanMs ? 1U : 0U;
    if (row.Active() && nowMs - *ms > kStaleMs) stats.Stale.push_back(row);

    span.push_back({*ms, &row});
    while (*ms - span.front().Ms > kRateSpanMs) span.pop_front();
    stats.BusiestSpan = std::max(stats.BusiestSpan, span.size());
    if (span.size() <= kFloodRaises) {
      inFlood = false;
    } else if (!inFlood) {
      inFlood = true;
      stats.Floods.push_back({span.front().Row->Raised, row.Raised, span.size()});
    } else {
      stats.Floods.back().To = row.Raised;
      ++stats.Floods.back().Raises;
    }

    auto& [count, recent] = byId[row.Identifier];
    ++count;
    recent.push_back(*ms);
    while (*ms - recent.front() > kChatterSpanMs) recent.pop_front();
    if (recent.size() >= kChatterRaises) {
      std::size_t& most = chattering[row.Identifier];
      most = std::max(most, recent.size());
    }
  }
  const double spans = static_cast<double>(nowMs - firstMs) / static_cast<double>(kRateSpanMs);
  stats.PerSpan = static_cast<double>(stats.Raises) / std::max(spans, 1.0);
  for (const auto& [id, most] : chattering) stats.Chattering.push_back({id, most});
  for (const auto& [id, counted] : byId) stats.Frequent.push_back({id, counted.first});
  std::ranges::stable_sort(stats.Frequent, std::greater<>{}, &TAlarmStats::TCount::Raises);
  if (stats.Frequent.size() > kMostFrequent) stats.Frequent.resize(kMostFrequent);
  return stats;
}

}  // namespace ixocamglue
