#include "ixocamglue/alarms/store/AlarmHistory.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <set>

#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// A stored time as this version writes it: the first one wrote local times.
std::string Moment(std::string text) {
  if (text.empty() || text.ends_with("+00:00")) return text;
  const auto moment = ParseMoment(text);
  return moment ? FormatUtc(*moment) : text;
}

}  // namespace

TAlarmHistory::TAlarmHistory(const std::filesystem::path& file) : FDb(OpenStoreToRead(file, kStoreBusyMs)) {
  TSqliteStmt table(*FDb, "SELECT count(*) FROM sqlite_master WHERE type='table' AND name IN('alarms','suppressions')");
  if (!table.Step() || table.Int(0) != 2) FDb->Fail(Tr("the file is no alarm store"));
}

std::vector<TAlarmRow> TAlarmHistory::Rows(const TAlarmFilter& filter) {
  // Whether a row was first-out takes all rows: a raise is, when nothing that was raised before was open.
  TSqliteStmt stmt(*FDb,
                   "SELECT row,identifier,code,module,type,description,reason,solution,level,raised,cleared,"
                   "acknowledged,by_whom,mark FROM alarms WHERE ?1=0 OR row>(SELECT max(row) FROM alarms)-?1 "
                   "ORDER BY row");
  stmt.Bind(1, filter.Newest);
  std::vector<TAlarmRow> rows;
  std::multiset<std::string> open;  // when the rows so far were cleared; an empty text sorts first
  std::size_t neverCleared = 0;
  const std::string since = filter.Since ? FormatUtc(*filter.Since) : std::string();
  while (stmt.Step()) {
    TAlarmRow row;
    row.Row = stmt.Int(0);
    std::string* const texts[] = {&row.Identifier,  &row.Code,   &row.Module,  &row.Type,
                                  &row.Description, &row.Reason, &row.Solution};
    for (int i = 0; i < 7; ++i) *texts[i] = stmt.Text(i + 1);
    row.Level = stmt.Int(8);
    row.Raised = Moment(stmt.Text(9));
    row.Cleared = Moment(stmt.Text(10));
    row.Acknowledged = Moment(stmt.Text(11));
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
    if (row.Raised < since) continue;
    rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<TAlarmSuppression> TAlarmHistory::Suppressions(TDateTime now) {
  TSqliteStmt stmt(*FDb, "SELECT identifier,until,reason FROM suppressions ORDER BY identifier");
  const std::string present = FormatUtc(now);
  std::vector<TAlarmSuppression> found;
  while (stmt.Step())
    if (std::string until = Moment(stmt.Text(1)); until > present)
      found.push_back({stmt.Text(0), std::move(until), stmt.Text(2)});
  return found;
}

std::int64_t TAlarmHistory::DataVersion() {
  TSqliteStmt stmt(*FDb, "PRAGMA data_version");
  return stmt.Step() ? stmt.Int(0) : 0;
}

bool TAlarmHistory::Acknowledge(std::string_view identifier, std::string_view who, TDateTime now) {
  TSqliteStmt stmt(*FDb,
                   "UPDATE alarms SET acknowledged=?2, by_whom=?3 WHERE row=(SELECT row FROM alarms WHERE "
                   "identifier=?1 AND cleared IS NULL ORDER BY row DESC LIMIT 1)");
  stmt.Bind(1, identifier).Bind(2, FormatUtc(now)).Bind(3, who).Run();
  return FDb->Changes() > 0;
}

bool TAlarmHistory::Clear(std::string_view identifier, TDateTime now) {
  TSqliteStmt stmt(*FDb,
                   "UPDATE alarms SET cleared=?2 WHERE row=(SELECT row FROM alarms WHERE identifier=?1 AND "
                   "cleared IS NULL AND mark=?3 ORDER BY row DESC LIMIT 1)");
  stmt.Bind(1, identifier).Bind(2, FormatUtc(now)).Bind(3, kMarkOperator).Run();
  return FDb->Changes() > 0;
}

bool IsSuppressed(const TAlarmRow& row, const std::vector<TAlarmSuppression>& suppressions) {
  return row.Level == 0 &&
         std::ranges::find(suppressions, row.Identifier, &TAlarmSuppression::Identifier) != suppressions.end();
}

TAlarmStats StatsOf(const std::vector<TAlarmRow>& rows, TDateTime now) {
  TAlarmStats stats;
  const std::int64_t nowMs = UnixMs(now);
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
    const auto moment = ParseMoment(row.Raised);
    if (!moment) continue;
    const std::int64_t ms = UnixMs(*moment);
    firstMs = std::min(firstMs, ms);
    ++stats.Raises;
    stats.Active += row.Active() ? 1U : 0U;
    stats.LastSpan += nowMs - ms <= kRateSpanMs ? 1U : 0U;
    if (row.Active() && nowMs - ms > kStaleMs) stats.Stale.push_back(row);

    span.push_back({ms, &row});
    while (ms - span.front().Ms > kRateSpanMs) span.pop_front();
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
    recent.push_back(ms);
    while (ms - recent.front() > kChatterSpanMs) recent.pop_front();
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
