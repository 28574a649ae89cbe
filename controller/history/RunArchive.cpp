#include "controller/history/RunArchive.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "controller/history/RunHistory.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr const char* kRun =
    "SELECT id,name,kind,params,who,detached,started,coalesce(ended,''),outcome,duration,path,what,place,why,remedy,"
    "language,step_count FROM runs ";

THistoryRun RunOf(const TSqliteStmt& row) {
  THistoryRun run;
  run.Id = row.Int(0);
  run.Name = row.Text(1);
  run.Kind = row.Text(2);
  run.Params = row.Text(3);
  run.Who = row.Text(4);
  run.Detached = row.Int(5) != 0;
  run.Started = row.Text(6);
  run.Ended = row.Text(7);
  run.Outcome = row.Text(8);
  run.DurationMs = row.Int(9);
  run.Path = row.Text(10);
  if (TProblem problem{row.Text(11), row.Text(12), row.Text(13), row.Text(14)}; problem != TProblem())
    run.Problem = std::move(problem);
  run.Language = row.Text(15);
  run.StepCount = row.Int(16);
  return run;
}

std::vector<THistoryRun> RunsOf(TSqliteStmt& rows) {
  std::vector<THistoryRun> runs;
  while (rows.Step()) runs.push_back(RunOf(rows));
  return runs;
}

// A step by its place and name, and of steps that are the same in both the how manieth.
using TStepKey = std::tuple<std::int32_t, std::int32_t, std::string, std::size_t>;

std::vector<TStepKey> KeysOf(std::span<const THistoryStep> steps) {
  std::map<std::tuple<std::int32_t, std::int32_t, std::string>, std::size_t> seen;
  std::vector<TStepKey> keys;
  for (const THistoryStep& step : steps)
    keys.emplace_back(step.Level, step.Number, step.Desc, seen[{step.Level, step.Number, step.Desc}]++);
  return keys;
}

}  // namespace

TRunArchive::TRunArchive(const std::filesystem::path& file) : FDb(OpenStoreToRead(file, kHistoryBusyMs)) {
  TSqliteStmt table(*FDb, "SELECT count(*) FROM sqlite_master WHERE type='table' AND name IN('runs','steps')");
  if (!table.Step() || table.Int(0) != 2) FDb->Fail(Tr("the file is no history of runs"));
}

std::vector<THistoryRun> TRunArchive::List(const THistoryFilter& filter) {
  TSqliteStmt rows(
      *FDb, std::string(kRun) +
                (filter.Name.empty() ? "WHERE (?1=0 OR id<?1) AND ?2='' " : "WHERE (?1=0 OR id<?1) AND name=?2 ") +
                "AND (?4='' OR outcome=?4) AND started>=?5 ORDER BY id DESC LIMIT ?3");
  rows.Bind(1, filter.Before).Bind(2, filter.Name).Bind(3, static_cast<std::int64_t>(filter.Limit));
  rows.Bind(4, filter.Outcome).Bind(5, filter.Since);
  return RunsOf(rows);
}

std::optional<THistoryRun> TRunArchive::Find(std::int64_t id) {
  TSqliteStmt row(*FDb, std::string(kRun) + "WHERE id=?1");
  row.Bind(1, id);
  if (!row.Step()) return std::nullopt;
  THistoryRun run = RunOf(row);
  TSqliteStmt steps(*FDb, "SELECT level,number,count,description,from_ms,ms FROM steps WHERE run=?1 ORDER BY ordinal");
  steps.Bind(1, id);
  while (steps.Step())
    run.Steps.push_back({static_cast<std::int32_t>(steps.Int(0)), static_cast<std::int32_t>(steps.Int(1)),
                         static_cast<std::int32_t>(steps.Int(2)), steps.Text(3), steps.Int(4), steps.Int(5)});
  if (TSqliteStmt kept(*FDb, "SELECT 1 FROM sqlite_master WHERE type='table' AND name='alarms'"); !kept.Step())
    return run;  // of an earlier version
  TSqliteStmt alarms(*FDb,
                     "SELECT at_ms,coalesce(cleared_ms,-1),level,identifier,message FROM alarms WHERE run=?1 "
                     "ORDER BY ordinal");
  alarms.Bind(1, id);
  while (alarms.Step()) {
    THistoryAlarm& alarm = run.Alarms.emplace_back();
    alarm = {alarms.Int(0), {}, static_cast<std::int32_t>(alarms.Int(2)), alarms.Text(3), alarms.Text(4)};
    if (alarms.Int(1) >= 0) alarm.ClearedMs = alarms.Int(1);
  }
  return run;
}

std::vector<THistoryRun> TRunArchive::Trend(const std::string& name, std::size_t last) {
  TSqliteStmt rows(*FDb, std::string(kRun) + "WHERE name=?1 AND outcome='success' ORDER BY id DESC LIMIT ?2");
  rows.Bind(1, name).Bind(2, static_cast<std::int64_t>(last));
  return RunsOf(rows);
}

std::vector<TStepFigures> TRunArchive::Steps(const std::string& name, std::size_t last) {
  TSqliteStmt rows(*FDb,
                   "SELECT s.level,s.number,s.description,s.ms,s.run FROM steps s WHERE s.run IN(SELECT id FROM runs "
                   "WHERE name=?1 AND outcome='success' ORDER BY id DESC LIMIT ?2) AND NOT EXISTS(SELECT 1 FROM steps "
                   "own WHERE own.run=s.run AND own.ordinal=s.ordinal+1 AND own.level>s.level)");
  rows.Bind(1, name).Bind(2, static_cast<std::int64_t>(last));
  std::map<std::tuple<std::int64_t, std::int64_t, std::string>, std::pair<TStepFigures, std::vector<std::int64_t>>>
      found;
  while (rows.Step()) {
    auto& [figures, times] = found[{rows.Int(0), rows.Int(1), rows.Text(2)}];
    times.push_back(rows.Int(3));
    if (times.size() > 1 && rows.Int(3) <= figures.WorstMs) continue;
    figures.WorstMs = rows.Int(3);
    figures.WorstRun = rows.Int(4);
  }
  std::vector<TStepFigures> steps;
  for (auto& [key, one] : found) {
    auto& [figures, times] = one;
    figures.Level = static_cast<std::int32_t>(std::get<0>(key));
    figures.Number = static_cast<std::int32_t>(std::get<1>(key));
    figures.Desc = std::get<2>(key);
    figures.Times = static_cast<std::int64_t>(times.size());
    figures.MedianMs = MedianMs(std::move(times));
    steps.push_back(std::move(figures));
  }
  std::ranges::stable_sort(steps, std::greater<>{}, &TStepFigures::MedianMs);
  return steps;
}

std::vector<TStepPair> CompareSteps(std::span<const THistoryStep> a, std::span<const THistoryStep> b) {
  const std::vector<TStepKey> aKeys = KeysOf(a);
  const std::vector<TStepKey> bKeys = KeysOf(b);
  std::map<TStepKey, std::size_t> inA, inB;
  for (std::size_t i = 0; i < aKeys.size(); ++i) inA[aKeys[i]] = i;
  for (std::size_t i = 0; i < bKeys.size(); ++i) inB[bKeys[i]] = i;
  std::vector<TStepPair> pairs;
  std::size_t next = 0;  // of b
  const auto addOwnOfB = [&] {
    for (; next < b.size() && !inA.contains(bKeys[next]); ++next) pairs.push_back({b[next], std::nullopt, b[next].Ms});
  };
  addOwnOfB();
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto same = inB.find(aKeys[i]);
    if (same == inB.end()) {
      pairs.push_back({a[i], a[i].Ms, std::nullopt});
      continue;
    }
    pairs.push_back({a[i], a[i].Ms, b[same->second].Ms});
    if (same->second < next) continue;
    next = same->second + 1;
    addOwnOfB();
  }
  return pairs;
}

}  // namespace ixocontroller
