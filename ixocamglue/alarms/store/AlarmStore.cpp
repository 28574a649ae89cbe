#include "ixocamglue/alarms/store/AlarmStore.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kPruneEveryMs = 3'600'000;
constexpr std::size_t kRowsPerTransaction = 5000;

// The last two columns of the first table: who acknowledged, and what closed the row if no clear did.
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

}  // namespace

void PrepareAlarmTables(TSqliteDb& db) {
  {
    TSqliteStmt version(db, "PRAGMA user_version");
    if (version.Step() && version.Int(0) > 1) db.Fail("the alarm store was written by a newer version");
    TSqliteStmt foreign(db,
                        "SELECT count(*) FROM sqlite_master WHERE NOT EXISTS(SELECT 1 FROM sqlite_master WHERE "
                        "type='table' AND name='alarms')");
    if (foreign.Step() && foreign.Int(0) > 0) db.Fail("the file is another program's database");
  }
  db.Exec("PRAGMA journal_mode=WAL");
  db.Exec("PRAGMA synchronous=FULL");
  db.Exec(kTables);
  // Fails here, and not in the middle of a run, when a table of this name belongs to somebody else.
  (void)TSqliteStmt(db,
                    "SELECT identifier,code,module,type,description,reason,solution,level,raised,cleared,acknowledged,"
                    "by_whom,mark FROM alarms");
  db.Exec("PRAGMA user_version=1");
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
  void SetDefinition(std::string_view module, std::string_view type, std::string_view reason,
                     std::string_view solution) override {
    Op.Module = module;
    Op.Type = type;
    Op.Reason = reason;
    Op.Solution = solution;
  }

  [[nodiscard]] static TOp OpOf(const std::shared_ptr<IAlarmItem>& item, TKind kind) {
    const auto* const own = dynamic_cast<const TItem*>(item.get());
    if (!own) throw std::invalid_argument("an alarm item that another factory has made");
    TOp op = own->Op;
    op.Kind = kind;
    return op;
  }

  TOp Op;
};

struct TAlarmStore::TStatements {
  explicit TStatements(TSqliteDb& db)
      : Raise(db,
              "INSERT INTO alarms(identifier,code,module,type,description,reason,solution,level,raised) "
              "VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9)"),
        Clear(db,
              "UPDATE alarms SET cleared=?2 WHERE row=(SELECT row FROM alarms WHERE identifier=?1 AND cleared IS NULL "
              "ORDER BY row DESC LIMIT 1)"),
        Acknowledge(db,
                    "UPDATE alarms SET acknowledged=?2, by_whom=?3 WHERE row=(SELECT row FROM alarms WHERE "
                    "identifier=?1 AND cleared IS NULL ORDER BY row DESC LIMIT 1)"),
        Restart(db, "UPDATE alarms SET cleared=?1, mark='restart' WHERE cleared IS NULL"),
        Suppress(db, "INSERT OR REPLACE INTO suppressions(identifier,until,reason) VALUES(?1,?2,?3)") {}

  TSqliteStmt Raise, Clear, Acknowledge, Restart, Suppress;
};

// --- the queue ---

TAlarmStore::TAlarmStore(std::filesystem::path file, TAlarmStoreOptions options)
    : FFile(std::move(file)), FOptions(std::move(options)) {}

TAlarmStore::~TAlarmStore() {
  {
    TGuard guard(FFileLock);
    FFailed = false;
  }
  try {
    Commit();
  } catch (...) {  // nobody is left to be told
  }
  TGuard guard(FFileLock);
  FStatements.reset();
}

std::shared_ptr<IAlarmItem> TAlarmStore::CreateAlarmItem() { return std::make_shared<TItem>(); }

void TAlarmStore::AddAlarmItem(const std::shared_ptr<IAlarmItem>& item) { Enqueue(TItem::OpOf(item, TKind::Raise)); }

void TAlarmStore::RemoveAlarmItem(const std::shared_ptr<IAlarmItem>& item) { Enqueue(TItem::OpOf(item, TKind::Clear)); }

void TAlarmStore::DeleteResidualAlarms() {
  TOp op;
  op.Kind = TKind::Restart;
  op.Time = Clock().Now();
  Enqueue(std::move(op));
  Commit();
}

void TAlarmStore::Acknowledge(std::string_view identifier, std::string_view who) {
  TOp op;
  op.Kind = TKind::Acknowledge;
  op.Id = identifier;
  op.Desc = who;
  op.Time = Clock().Now();
  Enqueue(std::move(op));
}

void TAlarmStore::Suppress(const TAlarmSuppression& suppression) {
  TOp op;
  op.Kind = TKind::Suppress;
  op.Id = suppression.Identifier;
  op.Code = suppression.Until;
  op.Desc = suppression.Reason;
  Enqueue(std::move(op));
}

void TAlarmStore::Enqueue(TOp op) {
  std::uint64_t tell = 0;
  {
    TGuard guard(FQueueLock);
    FQueue.push_back(std::move(op));
    if (FQueue.size() > FOptions.QueueLimit) {
      FQueue.pop_front();
      ++FLost;
      if (!std::exchange(FLossTold, true)) tell = FLost;
    }
  }
  if (tell != 0 && FOptions.OnLost) FOptions.OnLost(tell);
}

std::uint64_t TAlarmStore::Lost() const {
  TGuard guard(FQueueLock);
  return FLost;
}

std::size_t TAlarmStore::Waiting() const {
  TGuard guard(FQueueLock);
  return FQueue.size();
}

// --- the file ---

TResult<> TAlarmStore::Open() {
  TGuard guard(FFileLock);
  try {
    OpenLocked();
    return {};
  } catch (const ESqlite& e) {
    return e.Problem;
  }
}

void TAlarmStore::OpenLocked() {
  if (FDb) return;
  auto db = std::make_unique<TSqliteDb>(FFile, TSqliteDb::TMode::Create, kStoreBusyMs);
  PrepareAlarmTables(*db);
  FStatements = std::make_unique<TStatements>(*db);
  FDb = std::move(db);
}

void TAlarmStore::Commit() {
  TGuard file(FFileLock);
  if (FFailed && Clock().MonotonicMs() - FFailedAtMs < kStoreRetryMs) return;
  std::deque<TOp> ops;
  for (;;) {
    ops.clear();
    {
      TGuard guard(FQueueLock);
      if (FQueue.empty()) return;
      const auto end = FQueue.begin() + static_cast<std::ptrdiff_t>(std::min(FQueue.size(), kRowsPerTransaction));
      std::move(FQueue.begin(), end, std::back_inserter(ops));
      FQueue.erase(FQueue.begin(), end);
    }
    try {
      OpenLocked();
      WriteLocked(ops);
    } catch (...) {
      {
        TGuard guard(FQueueLock);
        FQueue.insert(FQueue.begin(), std::make_move_iterator(ops.begin()), std::make_move_iterator(ops.end()));
      }
      FFailedAtMs = Clock().MonotonicMs();
      if (!std::exchange(FFailed, true))
        LogMsg(lkWarning, 0,
               "alarms wait in memory: " + DescribeException(std::current_exception()) + "; tried again every second",
               "TAlarmStore");
      return;
    }
    if (std::exchange(FFailed, false)) LogMsg(lkInfo, 0, "the alarm store can be written again", "TAlarmStore");
    TGuard guard(FQueueLock);
    FLossTold = false;
  }
}

void TAlarmStore::WriteLocked(const std::deque<TOp>& ops) {
  FDb->Exec("BEGIN IMMEDIATE");
  try {
    TStatements& to = *FStatements;
    for (const TOp& op : ops) {
      const std::string time = FormatDateTime(op.Time);
      switch (op.Kind) {
        case TKind::Raise:
          to.Raise.Bind(1, op.Id).Bind(2, op.Code).Bind(3, op.Module).Bind(4, op.Type).Bind(5, op.Desc);
          to.Raise.Bind(6, op.Reason).Bind(7, op.Solution).Bind(8, std::int64_t{op.Level}).Bind(9, time).Run();
          break;
        case TKind::Clear: to.Clear.Bind(1, op.Id).Bind(2, time).Run(); break;
        case TKind::Acknowledge: to.Acknowledge.Bind(1, op.Id).Bind(2, time).Bind(3, op.Desc).Run(); break;
        case TKind::Restart: to.Restart.Bind(1, time).Run(); break;
        case TKind::Suppress: to.Suppress.Bind(1, op.Id).Bind(2, op.Code).Bind(3, op.Desc).Run(); break;
      }
    }
    PruneLocked();
    FDb->Exec("COMMIT");
  } catch (...) {
    try {
      FDb->Exec("ROLLBACK");
    } catch (...) {  // SQLite has rolled back by itself; a broken connection is opened anew
      FStatements.reset();
      FDb.reset();
    }
    throw;
  }
}

void TAlarmStore::PruneLocked() {
  if (FOptions.RetentionDays <= 0 || Clock().MonotonicMs() < FPruneAtMs) return;
  FPruneAtMs = Clock().MonotonicMs() + kPruneEveryMs;
  const TDateTime before{Clock().Now().Days - FOptions.RetentionDays};
  TSqliteStmt(*FDb, "DELETE FROM alarms WHERE cleared IS NOT NULL AND raised<?1").Bind(1, FormatDateTime(before)).Run();
}

}  // namespace ixocamglue
