#include "ixocamglue/alarms/store/AlarmStore.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kPruneEveryMs = 3'600'000;
constexpr std::size_t kRowsPerTransaction = 5000;
constexpr std::size_t kRowsAfterFailure = 50;  // a disk that is nearly full takes some
constexpr std::uint32_t kEndRetryMs = 100;

// The last two columns of the first table: who acknowledged, and who raised the row or closed it if no clear did.
constexpr const char* kTables = R"(
  CREATE TABLE IF NOT EXISTS alarms(
    row INTEGER PRIMARY KEY,
    identifier TEXT NOT NULL, code TEXT NOT NULL, module TEXT NOT NULL, type TEXT NOT NULL,
    description TEXT NOT NULL, reason TEXT NOT NULL, solution TEXT NOT NULL, level INTEGER NOT NULL,
    raised TEXT NOT NULL, cleared TEXT, acknowledged TEXT, by_whom TEXT, mark TEXT);
  CREATE INDEX IF NOT EXISTS alarms_open ON alarms(identifier, row) WHERE cleared IS NULL;
  CREATE INDEX IF NOT EXISTS alarms_raised ON alarms(raised);
  CREATE TABLE IF NOT EXISTS suppressions(
    identifier TEXT PRIMARY KEY, until TEXT NOT NULL, reason TEXT NOT NULL);
)";

// Another program writes the store.
class EStoreHeld : public EProblem {
 public:
  explicit EStoreHeld(TProblem problem) : EProblem(pbRefused, std::move(problem)) {}
};

TProblem ProblemOf(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const EProblem& e) {
    return e.Problem;
  } catch (...) {
    return {.What = DescribeException(error)};
  }
}

bool IsHeld(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const EStoreHeld&) {
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

void PrepareAlarmTables(TSqliteDb& db) {
  PrepareStore(
      db,
      {.Version = 2,  // 1 had local times without an offset
       .Table = "alarms",
       .Tables = kTables,
       .Columns = "SELECT identifier,code,module,type,description,reason,solution,level,raised,cleared,acknowledged,"
                  "by_whom,mark FROM alarms",
       .TooNew = TrMark("the alarm store was written by a newer version")});
}

// --- items and statements ---

class TAlarmStore::TItem final : public IAlarmItem {
 public:
  void SetAlarmId(std::string_view identifier) override { Op.Id = identifier; }
  void SetCode(std::string_view code) override { Op.Code = code; }
  void SetDesc(std::string_view desc) override { Op.Desc = desc; }
  void SetTime(TDateTime time) override { Op.Time = time; }
  void SetFinal(bool) override {}
  void SetLevel(std::uint8_t level) override { Op.Level = level; }
  void SetSerial(std::uint64_t serial) override { Op.Serial = serial; }
  void SetDefinition(std::string_view module, std::string_view type, std::string_view reason,
                     std::string_view solution) override {
    Op.Module = module;
    Op.Type = type;
    Op.Reason = reason;
    Op.Solution = solution;
  }

  [[nodiscard]] static TAlarmOp OpOf(const std::shared_ptr<IAlarmItem>& item, TAlarmOp::TKind kind) {
    const auto* const own = dynamic_cast<const TItem*>(item.get());
    if (!own) throw std::invalid_argument("an alarm item that another factory has made");
    TAlarmOp op = own->Op;
    op.Kind = kind;
    return op;
  }

  TAlarmOp Op;
};

struct TAlarmStore::TStatements {
  explicit TStatements(TSqliteDb& db)
      : Raise(db,
              "INSERT INTO alarms(identifier,code,module,type,description,reason,solution,level,raised,mark) "
              "VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,nullif(?10,''))"),
        Clear(db, "UPDATE alarms SET cleared=?2 WHERE row=?1 AND cleared IS NULL"),
        ClearNewest(db,
                    "UPDATE alarms SET cleared=?2 WHERE row=(SELECT row FROM alarms WHERE identifier=?1 AND level=?3 "
                    "AND cleared IS NULL ORDER BY row DESC LIMIT 1)"),
        Acknowledge(db,
                    "UPDATE alarms SET acknowledged=?2, by_whom=?3 WHERE row=(SELECT row FROM alarms WHERE "
                    "identifier=?1 AND cleared IS NULL ORDER BY row DESC LIMIT 1)"),
        Restart(db, "UPDATE alarms SET cleared=?1, mark='restart' WHERE cleared IS NULL"),
        Suppress(db, "INSERT OR REPLACE INTO suppressions(identifier,until,reason) VALUES(?1,?2,?3)"),
        Mark(db, "UPDATE alarms SET mark=?2 WHERE row=?1") {}

  TSqliteStmt Raise, Clear, ClearNewest, Acknowledge, Restart, Suppress, Mark;
};

// --- the queue ---

TAlarmStore::TAlarmStore(std::filesystem::path file, TAlarmStoreOptions options)
    : FFile(std::move(file)), FOptions(std::move(options)) {}

TAlarmStore::~TAlarmStore() {
  try {
    Close();
  } catch (...) {  // nobody is left to be told
  }
}

std::shared_ptr<IAlarmItem> TAlarmStore::CreateAlarmItem() { return std::make_shared<TItem>(); }

void TAlarmStore::AddAlarmItem(const std::shared_ptr<IAlarmItem>& item) {
  Enqueue(TItem::OpOf(item, TAlarmOp::TKind::Raise));
}

void TAlarmStore::RemoveAlarmItem(const std::shared_ptr<IAlarmItem>& item) {
  Enqueue(TItem::OpOf(item, TAlarmOp::TKind::Clear));
}

void TAlarmStore::DeleteResidualAlarms() {
  TAlarmOp op;
  op.Kind = TAlarmOp::TKind::Restart;
  Enqueue(std::move(op));
  Commit();
}

void TAlarmStore::Acknowledge(std::string_view identifier, std::string_view who) {
  TAlarmOp op;
  op.Kind = TAlarmOp::TKind::Acknowledge;
  op.Id = identifier;
  op.Desc = who;
  op.Time = UtcNow();
  Enqueue(std::move(op));
}

void TAlarmStore::Suppress(const TAlarmSuppression& suppression) {
  TAlarmOp op;
  op.Kind = TAlarmOp::TKind::Suppress;
  op.Id = suppression.Identifier;
  op.Code = suppression.Until;
  op.Desc = suppression.Reason;
  Enqueue(std::move(op));
}

void TAlarmStore::MarkByHand(std::uint64_t serial) {
  TAlarmOp op;
  op.Kind = TAlarmOp::TKind::ByHand;
  op.Serial = serial;
  Enqueue(std::move(op));
}

void TAlarmStore::Enqueue(TAlarmOp op) {
  std::uint64_t tell = 0;
  {
    TGuard guard(FQueueLock);
    FQueue.push_back(std::move(op));
    if (FQueue.size() > FOptions.QueueLimit) {
      // What an earlier run left open is closed in any case.
      FQueue.erase(FQueue.begin() + (FQueue.front().Kind == TAlarmOp::TKind::Restart && FQueue.size() > 1 ? 1 : 0));
      ++FLost;
      if (!std::exchange(FLossTold, true)) tell = FLost;
    }
  }
  if (tell != 0 && FOptions.OnLost) FOptions.OnLost(tell);
}

// The client hands all of level 1 over before any of level 0; rows are in the order in which things happened. Each
// level keeps its own order, whatever the clock did meanwhile.
std::deque<TAlarmOp> TAlarmStore::Take(std::size_t most) {
  std::deque<TAlarmOp> high, rest;
  {
    TGuard guard(FQueueLock);
    const auto end = FQueue.begin() + static_cast<std::ptrdiff_t>(std::min(FQueue.size(), most));
    for (auto op = FQueue.begin(); op != end; ++op) (op->Level > 0 ? high : rest).push_back(std::move(*op));
    FQueue.erase(FQueue.begin(), end);
  }
  std::deque<TAlarmOp> ops;
  std::merge(std::make_move_iterator(high.begin()), std::make_move_iterator(high.end()),
             std::make_move_iterator(rest.begin()), std::make_move_iterator(rest.end()), std::back_inserter(ops),
             [](const TAlarmOp& a, const TAlarmOp& b) { return a.Time.Days < b.Time.Days; });
  return ops;
}

void TAlarmStore::PutBack(std::deque<TAlarmOp>& ops) {
  TGuard guard(FQueueLock);
  FQueue.insert(FQueue.begin(), std::make_move_iterator(ops.begin()), std::make_move_iterator(ops.end()));
  ops.clear();
}

// Of what has come last nobody has been told.
void TAlarmStore::TellWaiting(TNews& news) {
  TGuard guard(FQueueLock);
  auto first = FQueue.end();
  while (first != FQueue.begin() && !std::prev(first)->Told) --first;
  for (; first != FQueue.end(); ++first) {
    first->Told = true;
    if (first->Kind <= TAlarmOp::TKind::Clear)
      news.Fates.push_back({first->Serial, first->Kind == TAlarmOp::TKind::Clear, false});
  }
}

void TAlarmStore::Tell(const TNews& news) {
  if (news.Failed && FOptions.OnFailed) FOptions.OnFailed(*news.Failed, news.Held);
  if (news.MadeAgain && FOptions.OnMadeAgain) FOptions.OnMadeAgain();
  if (news.Written && FOptions.OnWritten) FOptions.OnWritten();
  TGuard guard(FFateLock);
  if (FOnFate) std::ranges::for_each(news.Fates, FOnFate);
}

void TAlarmStore::OnFate(std::function<void(const TAlarmFate&)> told) {
  TGuard guard(FFateLock);
  FOnFate = std::move(told);
}

std::uint64_t TAlarmStore::Lost() const {
  TGuard guard(FQueueLock);
  return FLost;
}

std::size_t TAlarmStore::Waiting() const {
  TGuard guard(FQueueLock);
  return FQueue.size();
}

bool TAlarmStore::Failing() const {
  TGuard guard(FQueueLock);
  return FFailing;
}

TProblem TAlarmStore::Trouble() const {
  TGuard guard(FQueueLock);
  return FTrouble;
}

std::vector<TAlarmOp> TAlarmStore::Unstored() const {
  TGuard guard(FQueueLock);
  std::vector<TAlarmOp> ops;
  std::ranges::copy_if(FQueue, std::back_inserter(ops),
                       [](const TAlarmOp& op) { return op.Kind <= TAlarmOp::TKind::Acknowledge; });
  return ops;
}

// --- the file ---

// A lock whose file was deleted keeps nobody out.
void TAlarmStore::LockLocked() {
  const std::string file = FFile.string();
  if (FWriter.Held() && IdentityOf(file + ".lock") == FWriterFile) return;
  switch (FWriter.Take(file, 0)) {
    case lsHeld: FWriterFile = IdentityOf(file + ".lock"); return;
    case lsBusy: throw EStoreHeld(FWriter.Problem());
    case lsFree:
    case lsImpossible: throw EProblem(pbUnusable, FWriter.Problem());
  }
}

void TAlarmStore::OpenLocked(TNews& news) {
  if (FDb && !FDb->InPlace()) {
    try {
      FDb->Exec("PRAGMA wal_checkpoint(TRUNCATE)");  // a file that was moved away has all its rows
    } catch (...) {                                  // it has what it had
    }
    FStatements.reset();
    FDb.reset();
    FGone = true;
  }
  if (FFile.has_parent_path()) {
    std::error_code error;
    std::filesystem::create_directories(FFile.parent_path(), error);  // what fails here fails again below
  }
  LockLocked();
  if (!FDb) {
    if (FOpened && IdentityOf(FFile.string()) != *FOpened) FGone = true;  // deleted or moved while it was closed
    auto db = std::make_unique<TSqliteDb>(FFile, TSqliteDb::TMode::Create, kStoreBusyMs);
    PrepareAlarmTables(*db);
    FStatements = std::make_unique<TStatements>(*db);
    FDb = std::move(db);
    FOpened.reset();
  }
  if (!FGone) return;
  // Somebody may have put another store there: what is open in it is none of this program's.
  std::deque<TAlarmOp> ops(1);
  ops.front().Kind = TAlarmOp::TKind::Restart;
  for (const auto& [serial, standing] : FStanding) ops.push_back(standing.Op);
  if (!WriteLocked(ops)) FDb->Fail(Tr("the alarm store was deleted again"));
  FGone = false;
  news.MadeAgain = true;
}

TResult<> TAlarmStore::Open() {
  TNews news;
  TResult<> opened;
  {
    TGuard guard(FFileLock);
    try {
      OpenLocked(news);
    } catch (...) {
      FailLocked(news);
      opened = ProblemOf(std::current_exception());
    }
  }
  Tell(news);
  return opened;
}

void TAlarmStore::FailLocked(TNews& news) {
  const std::exception_ptr error = std::current_exception();
  TProblem problem = ProblemOf(error);
  FFailedAtMs = Clock().MonotonicMs();
  {
    TGuard guard(FQueueLock);
    FTrouble = problem;
    FHeld = IsHeld(error);
    if (std::exchange(FFailing, true)) return;
    news.Held = FHeld;
  }
  LogMsg(lkWarning, 0, "alarms wait in memory: " + problem.Text() + "; tried again every second", "TAlarmStore");
  news.Failed = std::move(problem);
}

void TAlarmStore::Commit() {
  TNews news;
  {
    TGuard guard(FFileLock);
    CommitLocked(news);
  }
  Tell(news);
}

void TAlarmStore::CommitLocked(TNews& news) {
  const std::uint64_t nowMs = Clock().MonotonicMs();
  const bool failing = Failing();
  if (failing && nowMs - FFailedAtMs < kStoreRetryMs) return TellWaiting(news);
  if (!failing && Waiting() == 0 && nowMs < FLookAtMs) return;  // else: whether the file is still there
  std::deque<TAlarmOp> ops;
  std::size_t most = failing ? kRowsAfterFailure : kRowsPerTransaction;
  try {
    for (;; most = std::min(2 * most, kRowsPerTransaction)) {
      OpenLocked(news);
      ops = Take(most);
      if (ops.empty()) break;
      if (!WriteLocked(ops)) {
        PutBack(ops);
        continue;
      }
      for (const TAlarmOp& op : ops) {
        const bool cleared = op.Kind == TAlarmOp::TKind::Clear;
        if (cleared) FByHand.erase(op.Serial);
        if (!op.Told && (cleared || op.Kind == TAlarmOp::TKind::Raise))
          news.Fates.push_back({op.Serial, cleared, true});
      }
    }
  } catch (...) {
    PutBack(ops);
    FailLocked(news);
    return TellWaiting(news);
  }
  FLookAtMs = nowMs + kStoreRetryMs;
  {
    TGuard guard(FQueueLock);
    FLossTold = FHeld = false;
    news.Written = std::exchange(FFailing, false);
  }
  if (news.Written) LogMsg(lkInfo, 0, "the alarm store can be written again", "TAlarmStore");
}

void TAlarmStore::Close() {
  {
    TGuard guard(FFileLock);
    if (std::exchange(FClosed, true)) return;
  }
  for (const std::uint64_t end = Clock().MonotonicMs() + kStoreEndMs; Waiting() > 0; Clock().Sleep(kEndRetryMs)) {
    {
      TGuard guard(FFileLock);
      FFailedAtMs = Clock().MonotonicMs() - kStoreRetryMs;
    }
    Commit();
    TGuard guard(FQueueLock);
    if (FQueue.empty() || FHeld || Clock().MonotonicMs() >= end) break;
  }
  TGuard guard(FFileLock);
  FStatements.reset();
  FDb.reset();
  FWriter.Release();
}

// Changes what stands in memory together with the rows: all of it, or nothing. False: the file was deleted meanwhile.
bool TAlarmStore::WriteLocked(const std::deque<TAlarmOp>& ops) {
  FBefore.clear();
  try {
    FDb->Transact([&]() IXO_REQUIRES(FFileLock) {
      for (const TAlarmOp& op : ops) WriteOpLocked(op);
      PruneLocked();
    });
  } catch (...) {
    UndoLocked();
    if (FDb->Broken()) {
      FOpened = FDb->Identity();
      FStatements.reset();
      FDb.reset();
    }
    throw;
  }
  if (FDb->InPlace()) return true;
  UndoLocked();
  return false;
}

void TAlarmStore::WriteOpLocked(const TAlarmOp& op) {
  TStatements& to = *FStatements;
  switch (op.Kind) {
    case TAlarmOp::TKind::Raise: return InsertLocked(op);
    case TAlarmOp::TKind::Clear:
      if (op.Serial == 0) {
        to.ClearNewest.Bind(1, op.Id).Bind(2, FormatUtc(op.Time)).Bind(3, std::int64_t{op.Level}).Run();
      } else if (const auto row = FStanding.find(op.Serial); row != FStanding.end()) {  // else its raise was lost
        to.Clear.Bind(1, row->second.Row).Bind(2, FormatUtc(op.Time)).Run();
        StandingLocked(op.Serial, std::nullopt);
      }
      return;
    case TAlarmOp::TKind::Acknowledge:
      return to.Acknowledge.Bind(1, op.Id).Bind(2, FormatUtc(op.Time)).Bind(3, op.Desc).Run();
    case TAlarmOp::TKind::Restart: return to.Restart.Bind(1, FormatUtc(UtcNow())).Run();
    case TAlarmOp::TKind::Suppress: return to.Suppress.Bind(1, op.Id).Bind(2, op.Code).Bind(3, op.Desc).Run();
    case TAlarmOp::TKind::ByHand:
      if (const auto row = FStanding.find(op.Serial); row != FStanding.end())
        to.Mark.Bind(1, row->second.Row).Bind(2, kMarkOperator).Run();
      FByHand.insert(op.Serial);
  }
}

void TAlarmStore::InsertLocked(const TAlarmOp& op) {
  const bool byHand = op.Serial != 0 && FByHand.contains(op.Serial);
  TSqliteStmt& raise = FStatements->Raise;
  raise.Bind(1, op.Id).Bind(2, op.Code).Bind(3, op.Module).Bind(4, op.Type).Bind(5, op.Desc).Bind(6, op.Reason);
  raise.Bind(7, op.Solution).Bind(8, std::int64_t{op.Level}).Bind(9, FormatUtc(op.Time));
  raise.Bind(10, byHand ? kMarkOperator : "").Run();
  if (op.Serial != 0) StandingLocked(op.Serial, TStanding{FDb->LastRow(), op});
}

void TAlarmStore::StandingLocked(std::uint64_t serial, std::optional<TStanding> now) {
  const auto found = FStanding.find(serial);
  FBefore.emplace_back(serial, found == FStanding.end() ? std::nullopt : std::optional(std::move(found->second)));
  if (now)
    FStanding.insert_or_assign(serial, *std::move(now));
  else
    FStanding.erase(serial);
}

void TAlarmStore::UndoLocked() {
  for (; !FBefore.empty(); FBefore.pop_back()) {
    auto& [serial, before] = FBefore.back();
    if (before)
      FStanding.insert_or_assign(serial, *std::move(before));
    else
      FStanding.erase(serial);
  }
}

void TAlarmStore::PruneLocked() {
  if (FOptions.RetentionDays <= 0 || Clock().MonotonicMs() < FPruneAtMs) return;
  FPruneAtMs = Clock().MonotonicMs() + kPruneEveryMs;
  const double before = UtcNow().Days - FOptions.RetentionDays;
  // Rows of the first version have local times: a day more covers every offset.
  TSqliteStmt(*FDb,
              "DELETE FROM alarms WHERE cleared IS NOT NULL AND raised<?1 AND (raised<?2 OR raised LIKE '%+00:00')")
      .Bind(1, FormatUtc({before}))
      .Bind(2, FormatUtc({before - 1.0}))
      .Run();
}

}  // namespace ixocamglue
