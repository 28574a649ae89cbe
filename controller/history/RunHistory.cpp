#include "controller/history/RunHistory.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <pthread.h>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TSteady = std::chrono::steady_clock;
using TMs = std::chrono::milliseconds;

constexpr std::size_t kRunsPerTransaction = 500;
constexpr std::size_t kRunsAfterFailure = 10;  // a disk that is nearly full takes some
constexpr TMs kEndRetry{100};
constexpr const char* kSource = "TRunHistory";

constexpr const char* kTables = R"(
  CREATE TABLE IF NOT EXISTS runs(
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL, kind TEXT NOT NULL, params TEXT NOT NULL, who TEXT NOT NULL, detached INTEGER NOT NULL,
    started TEXT NOT NULL, ended TEXT, outcome TEXT NOT NULL, duration INTEGER NOT NULL, path TEXT NOT NULL,
    what TEXT NOT NULL, place TEXT NOT NULL, why TEXT NOT NULL, remedy TEXT NOT NULL, language TEXT NOT NULL,
    step_count INTEGER NOT NULL);
  CREATE INDEX IF NOT EXISTS runs_name ON runs(name, id);
  CREATE INDEX IF NOT EXISTS runs_open ON runs(id) WHERE ended IS NULL;
  CREATE TABLE IF NOT EXISTS steps(
    run INTEGER NOT NULL, ordinal INTEGER NOT NULL, level INTEGER NOT NULL, number INTEGER NOT NULL,
    count INTEGER NOT NULL, description TEXT NOT NULL, from_ms INTEGER NOT NULL, ms INTEGER NOT NULL,
    PRIMARY KEY(run, ordinal)) WITHOUT ROWID;
  CREATE TABLE IF NOT EXISTS alarms(
    run INTEGER NOT NULL, ordinal INTEGER NOT NULL, at_ms INTEGER NOT NULL, cleared_ms INTEGER, level INTEGER NOT NULL,
    identifier TEXT NOT NULL, message TEXT NOT NULL, PRIMARY KEY(run, ordinal)) WITHOUT ROWID;
)";

std::size_t RowsOf(const THistoryRun& run) { return 1 + run.Steps.size() + run.Alarms.size(); }

}  // namespace

std::int64_t MedianMs(std::vector<std::int64_t> values) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct TRunHistory::TStatements {
  explicit TStatements(TSqliteDb& db)
      : Forget(db, "DELETE FROM runs WHERE id=?1"),
        Put(db,
            "INSERT INTO runs(id,name,kind,params,who,detached,started,ended,outcome,duration,path,what,"
            "place,why,remedy,language,step_count) "
            "VALUES(?1,?2,?3,?4,?5,?6,?7,nullif(?8,''),?9,?10,?11,?12,?13,?14,?15,?16,?17)"),
        Clear(db, "DELETE FROM steps WHERE run=?1"),
        Step(
            db,
            "INSERT INTO steps(run,ordinal,level,number,count,description,from_ms,ms) VALUES(?1,?2,?3,?4,?5,?6,?7,?8)"),
        ClearAlarms(db, "DELETE FROM alarms WHERE run=?1"),
        Alarm(db,
              "INSERT INTO alarms(run,ordinal,at_ms,cleared_ms,level,identifier,message) "
              "VALUES(?1,?2,?3,nullif(?4,-1),?5,?6,?7)"),
        PruneSteps(db, "DELETE FROM steps WHERE run IN(SELECT id FROM runs ORDER BY id LIMIT ?1)"),
        PruneAlarms(db, "DELETE FROM alarms WHERE run IN(SELECT id FROM runs ORDER BY id LIMIT ?1)"),
        PruneRuns(db, "DELETE FROM runs WHERE id IN(SELECT id FROM runs ORDER BY id LIMIT ?1)") {}

  TSqliteStmt Forget, Put, Clear, Step, ClearAlarms, Alarm, PruneSteps, PruneAlarms, PruneRuns;
};

TRunHistory::TRunHistory(std::filesystem::path file, TRunHistoryOptions options)
    : FFile(std::move(file)), FOptions(std::move(options)) {}

TRunHistory::~TRunHistory() {
  if (!Close()) FThread.join();
}

TResult<> TRunHistory::Open() {
  const bool written = WriteAll();
  if (FFirstId == 0) {
    // Above whatever the file may hold, and above the numbers of a later start that can read it.
    TGuard guard(FLock);
    FLastId = std::max(FLastId, UnixMs(TSystemClock().Now()));
    FFirstId = FLastId + 1;
  }
  FThread = std::thread([this] {
    Work();
    FEnded.store(true);
  });
  if (written) return {};
  return Trouble();
}

bool TRunHistory::Close() {
  if (!FThread.joinable()) return true;
  {
    TGuard guard(FLock);
    FEnding = true;
  }
  FWork.notify_all();
  for (auto end = TSteady::now() + TMs(kHistoryEndMs + kHistoryAnswerMs); !FEnded.load();) {
    if (TSteady::now() > end) return false;
    std::this_thread::sleep_for(TMs(1));
  }
  FThread.join();
  FStatements.reset();
  FDb.reset();
  FWriter.Release();
  return true;
}

// --- any thread ---

std::int64_t TRunHistory::Begin(THistoryRun run) {
  std::int64_t id = 0;
  {
    TGuard guard(FLock);
    id = run.Id = ++FLastId;
    FRunning.insert_or_assign(id, run);
  }
  Enqueue(std::move(run));
  return id;
}

void TRunHistory::End(THistoryRun run) {
  run.StepCount = std::max(run.StepCount, static_cast<std::int64_t>(run.Steps.size()));
  if (run.Steps.size() > kMostStepsKept) run.Steps.resize(kMostStepsKept);
  {
    TGuard guard(FLock);
    FRunning.erase(run.Id);
    if (run.Outcome == kOutcomeSuccess) Learn(run.Name, {run.Params, run.DurationMs});
  }
  Enqueue(std::move(run));
}

void TRunHistory::Enqueue(THistoryRun run) {
  std::uint64_t tell = 0;
  {
    TGuard guard(FLock);
    FQueued += RowsOf(run);
    const auto begun = std::ranges::find(FQueue, run.Id, &THistoryRun::Id);
    if (begun != FQueue.end()) {
      FQueued -= RowsOf(*begun);
      *begun = std::move(run);
    } else {
      FQueue.push_back(std::move(run));
    }
    const std::uint64_t before = FLost;
    TrimQueue();
    if (FLost > before && !std::exchange(FLossTold, true)) tell = FLost;
  }
  FWork.notify_all();
  if (tell == 0) return;
  LogMsg(lkWarning, 0, "runs are lost: too many wait for their file", kSource);
  if (FOptions.OnLost) FOptions.OnLost(tell);
}

void TRunHistory::TrimQueue() {
  while (FQueued > FOptions.QueueLimit && FQueue.size() > 1) {
    FQueued -= RowsOf(FQueue.front());
    FQueue.pop_front();
    ++FLost;
  }
}

void TRunHistory::Learn(std::string_view name, TTook took) {
  auto known = FTook.find(name);
  if (known == FTook.end()) {
    if (FTook.size() >= kNamesForEstimate) FTook.erase(FTook.begin());
    known = FTook.emplace(name, std::deque<TTook>()).first;
  }
  known->second.push_back(std::move(took));
  if (known->second.size() > kRunsForEstimate) known->second.pop_front();
}

std::optional<std::int64_t> TRunHistory::EstimateMs(std::string_view name, std::string_view params) const {
  TGuard guard(FLock);
  const auto known = FTook.find(name);
  if (known == FTook.end()) return std::nullopt;
  std::vector<std::int64_t> same, all;
  for (const TTook& took : known->second) {
    all.push_back(took.Ms);
    if (took.Params == params) same.push_back(took.Ms);
  }
  return MedianMs(same.empty() ? std::move(all) : std::move(same));
}

std::vector<THistoryRun> TRunHistory::Waiting() const {
  TGuard guard(FLock);
  std::vector<THistoryRun> runs(FTaken.begin(), FTaken.end());
  runs.insert(runs.end(), FQueue.begin(), FQueue.end());
  return runs;
}

std::vector<THistoryRun> TRunHistory::Running() const {
  TGuard guard(FLock);
  std::vector<THistoryRun> runs;
  for (const auto& [id, run] : FRunning) runs.push_back(run);
  return runs;
}

std::uint64_t TRunHistory::Lost() const {
  TGuard guard(FLock);
  return FLost;
}

bool TRunHistory::Failing() const {
  TGuard guard(FLock);
  return FFailing;
}

TProblem TRunHistory::Trouble() const {
  TGuard guard(FLock);
  return FTrouble;
}

// --- the thread that writes ---

void TRunHistory::Work() {
  pthread_setname_np(pthread_self(), "ixo-history");
  TThreadSign sign("ixo-history", tkLog);
  for (;;) {
    WaitForWork(sign);
    sign.Beat();
    const bool written = WriteAll();
    TGuard guard(FLock);
    if (FEnding && (written || FQueue.empty())) return;
    if (FEnding) break;
  }
  for (const auto end = TSteady::now() + TMs(kHistoryEndMs); TSteady::now() < end;) {
    std::this_thread::sleep_for(kEndRetry);
    sign.Beat();
    if (WriteAll()) return;
  }
}

// While an outage lasts, until the next try is due.
void TRunHistory::WaitForWork(TThreadSign& sign) IXO_NO_ANALYSIS {
  std::unique_lock lock(FLock.Native());
  sign.Park();
  const auto due = TSteady::now() + TMs(kHistoryRetryMs);
  while (!FEnding) {
    if (FFailing) {
      if (FWork.wait_until(lock, due) == std::cv_status::timeout) return;
    } else if (FQueue.empty()) {
      FWork.wait(lock);
    } else {
      return;
    }
  }
}

bool TRunHistory::WriteAll() {
  std::size_t most = Failing() ? kRunsAfterFailure : kRunsPerTransaction;
  try {
    for (;; most = std::min(2 * most, kRunsPerTransaction)) {
      OpenFile();
      if (Take(most) == 0) break;
      WriteTaken();
    }
  } catch (...) {
    PutBack();
    Fail();
    return false;
  }
  bool over = false;
  {
    TGuard guard(FLock);
    FLossTold = false;
    over = std::exchange(FFailing, false);
  }
  if (!over) return true;
  LogMsg(lkInfo, 0, "the history of runs can be written again", kSource);
  if (FOptions.OnWritten) FOptions.OnWritten();
  return true;
}

void TRunHistory::Fail() {
  TProblem problem;
  try {
    throw;
  } catch (const EProblem& e) {
    problem = e.Problem;
  } catch (...) {
    problem.What = DescribeException(std::current_exception());
  }
  if (FDb && FDb->Broken()) {
    FStatements.reset();
    FDb.reset();
  }
  {
    TGuard guard(FLock);
    FTrouble = problem;
    if (std::exchange(FFailing, true)) return;
  }
  LogMsg(lkWarning, 0, "runs wait in memory: " + problem.Text() + "; tried again every second", kSource);
  if (FOptions.OnFailed) FOptions.OnFailed(problem);
}

void TRunHistory::OpenFile() {
  if (FDb && FDb->InPlace()) return;
  FStatements.reset();
  FDb.reset();
  std::error_code error;
  if (FFile.has_parent_path()) std::filesystem::create_directories(FFile.parent_path(), error);  // fails again below
  if (!FWriter.Held() && FWriter.Take(FFile.string(), 0) != lsHeld) throw EProblem(pbUnusable, FWriter.Problem());
  auto db = std::make_unique<TSqliteDb>(FFile, TSqliteDb::TMode::Create, kHistoryBusyMs);
  PrepareStore(*db, {.Version = 1,
                     .Table = "runs",
                     .Tables = kTables,
                     .Columns = "SELECT r.id,r.name,kind,params,who,detached,started,ended,outcome,duration,path,what,"
                                "place,why,remedy,language,step_count,s.run,s.ordinal,s.level,number,count,"
                                "description,from_ms,ms,at_ms,cleared_ms,identifier,message FROM runs r, steps s, "
                                "alarms a",
                     .TooNew = TrMark("the history of runs was written by a newer version")});
  FDb = std::move(db);
  FStatements = std::make_unique<TStatements>(*FDb);
  LearnAll();
}

// What an earlier program has left.
void TRunHistory::LearnAll() {
  TSqliteStmt rows(*FDb, "SELECT count(*),coalesce(max(id),0) FROM runs");
  (void)rows.Step();
  FRows = rows.Int(0);
  if (FFirstId == 0) {
    FFirstId = rows.Int(1) + 1;
    TSqliteStmt took(*FDb, "SELECT name,params,duration FROM runs WHERE outcome='success' ORDER BY id DESC LIMIT ?1");
    took.Bind(1, kRunsLearnt);
    std::vector<std::pair<std::string, TTook>> found;
    while (took.Step()) found.emplace_back(took.Text(0), TTook{took.Text(1), took.Int(2)});
    TGuard guard(FLock);
    for (auto one = found.rbegin(); one != found.rend(); ++one) Learn(one->first, std::move(one->second));
  }
  {
    TGuard guard(FLock);
    FLastId = std::max(FLastId, rows.Int(1));
  }
  TSqliteStmt lost(*FDb, "UPDATE runs SET outcome=?1,ended=?2 WHERE ended IS NULL AND id<?3");
  lost.Bind(1, kOutcomeLost).Bind(2, FormatUtc(UtcNow())).Bind(3, FFirstId);
  FDb->Transact([&] { lost.Run(); });
}

std::size_t TRunHistory::Take(std::size_t most) {
  TGuard guard(FLock);
  const auto end = FQueue.begin() + static_cast<std::ptrdiff_t>(std::min(FQueue.size(), most));
  FTaken.assign(std::make_move_iterator(FQueue.begin()), std::make_move_iterator(end));
  FQueue.erase(FQueue.begin(), end);
  for (const THistoryRun& run : FTaken) FQueued -= RowsOf(run);
  return FTaken.size();
}

void TRunHistory::PutBack() {
  TGuard guard(FLock);
  for (const THistoryRun& ended : FQueue)  // meanwhile: it waits as it ended
    std::erase_if(FTaken, [&ended](const THistoryRun& begun) { return begun.Id == ended.Id; });
  for (const THistoryRun& run : FTaken) FQueued += RowsOf(run);
  FQueue.insert(FQueue.begin(), std::make_move_iterator(FTaken.begin()), std::make_move_iterator(FTaken.end()));
  FTaken.clear();
  TrimQueue();
}

// Only this thread changes what was taken, so that it is read without the lock.
void TRunHistory::WriteTaken() IXO_NO_ANALYSIS {
  const std::int64_t before = FRows;
  try {
    FDb->Transact([this]() IXO_NO_ANALYSIS {
      for (const THistoryRun& run : FTaken) WriteRun(run);
      Prune();
    });
  } catch (...) {
    FRows = before;
    throw;
  }
  if (!FDb->InPlace()) throw ESqlite(FFile, Tr("the file was deleted while it was written"));
  TGuard guard(FLock);
  FTaken.clear();
}

void TRunHistory::WriteRun(const THistoryRun& run) {
  TStatements& to = *FStatements;
  to.Forget.Bind(1, run.Id).Run();  // what was written when it began
  FRows += 1 - FDb->Changes();
  const TProblem problem = run.Problem.value_or(TProblem());
  to.Put.Bind(1, run.Id).Bind(2, run.Name).Bind(3, run.Kind).Bind(4, run.Params).Bind(5, run.Who);
  to.Put.Bind(6, std::int64_t{run.Detached}).Bind(7, run.Started).Bind(8, run.Ended).Bind(9, run.Outcome);
  to.Put.Bind(10, run.DurationMs).Bind(11, run.Path).Bind(12, problem.What).Bind(13, problem.Where);
  to.Put.Bind(14, problem.Why).Bind(15, problem.Remedy).Bind(16, run.Language).Bind(17, run.StepCount).Run();
  to.Clear.Bind(1, run.Id).Run();
  std::int64_t ordinal = 0;
  for (const THistoryStep& step : run.Steps) {
    to.Step.Bind(1, run.Id).Bind(2, ++ordinal).Bind(3, std::int64_t{step.Level}).Bind(4, std::int64_t{step.Number});
    to.Step.Bind(5, std::int64_t{step.Count}).Bind(6, step.Desc).Bind(7, step.FromMs).Bind(8, step.Ms).Run();
  }
  to.ClearAlarms.Bind(1, run.Id).Run();
  ordinal = 0;
  for (const THistoryAlarm& alarm : run.Alarms) {
    to.Alarm.Bind(1, run.Id).Bind(2, ++ordinal).Bind(3, alarm.AtMs).Bind(4, alarm.ClearedMs.value_or(-1));
    to.Alarm.Bind(5, std::int64_t{alarm.Level}).Bind(6, alarm.Identifier).Bind(7, alarm.Desc).Run();
  }
}

void TRunHistory::Prune() {
  if (FRows <= FOptions.Kept) return;
  FStatements->PruneSteps.Bind(1, FRows - FOptions.Kept).Run();
  FStatements->PruneAlarms.Bind(1, FRows - FOptions.Kept).Run();
  FStatements->PruneRuns.Bind(1, FRows - FOptions.Kept).Run();
  FRows = FOptions.Kept;
}

}  // namespace ixocontroller
