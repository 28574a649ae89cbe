// The application's alarm store in one SQLite file: a row per raise, closed by its clear.
//
// The alarm path never waits for the file. What the client hands over stays in memory until a commit has written it; a
// file that cannot be written is tried again every second, a file that is gone is made again with what stands. One
// program at a time writes a store: it holds the lock beside the file (FileLock.h) as long as it lives. Any thread; one
// lock guards the queue, another one the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ixocamglue/alarms/store/Sqlite.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

inline constexpr int kStoreBusyMs = 200;
inline constexpr std::uint64_t kStoreRetryMs = 1000;
inline constexpr std::uint32_t kStoreEndMs = 2000;        // how long the end tries to write what waits
inline constexpr std::size_t kStoreQueueLimit = 100'000;  // rows that wait in memory
inline constexpr const char* kMarkRestart = "restart";    // closed by the next start of a program
inline constexpr const char* kMarkOperator = "operator";  // raised by hand

// What may be hidden from lists for a while. Level 1 is never hidden.
struct TAlarmSuppression {
  std::string Identifier;
  std::string Until;  // as FormatUtc writes it
  std::string Reason;
};

// One thing that the store was told, on its way to the file.
struct TAlarmOp {
  enum class TKind : std::uint8_t { Raise, Clear, Acknowledge, Restart, Suppress, ByHand };
  TKind Kind = TKind::Raise;
  std::uint8_t Level = 0;
  bool Told = false;           // its fate was told: not stored yet
  std::uint64_t Serial = 0;    // of the raise; 0: not known
  std::string Id, Code, Desc;  // with Acknowledge: who in Desc; with Suppress: until in Code, reason in Desc
  std::string Module, Type, Reason, Solution;
  TDateTime Time;  // UTC
};

// Whether a raise or clear is in the file. One that is not was tried, and waits.
struct TAlarmFate {
  std::uint64_t Serial = 0;
  bool Cleared = false;
  bool Stored = false;
};

// Each is told on the thread that commits, without a lock of the store.
struct TAlarmStoreOptions {
  // Once per outage: what cannot be written waits in memory. `held`: by another program that writes the store.
  std::function<void(const TProblem& problem, bool held)> OnFailed;
  std::function<void()> OnWritten;    // the outage is over, and what waited is in the file
  std::function<void()> OnMadeAgain;  // the file was gone, and is there again with what stands
  // Once per outage, on the thread that hands an alarm over: the first one was lost, because too many wait.
  std::function<void(std::uint64_t lost)> OnLost;
  int RetentionDays = 0;  // closed rows older than this are deleted; 0: none
  std::size_t QueueLimit = kStoreQueueLimit;
};

// Nothing fails but what says so: what the file does not take waits, and counts as lost beyond kStoreQueueLimit.
class TAlarmStore final : public IAlarmSvcIntf, public IAlarmFactory {
 public:
  TAlarmStore(std::filesystem::path file, TAlarmStoreOptions options);
  ~TAlarmStore() override;  // as Close

  // Makes the file where there is none. Whatever fails, a program goes on: commits try again.
  TResult<> Open();
  // Writes what waits, and tries for kStoreEndMs, once; the last call. What Unstored names afterwards is not in the
  // file.
  void Close();

  std::shared_ptr<IAlarmItem> CreateAlarmItem() override;
  // Items of another factory are refused with std::invalid_argument.
  void AddAlarmItem(const std::shared_ptr<IAlarmItem>& item) override;
  // Closes the row of the raise; of an item without a serial the newest open row of its identifier and level.
  void RemoveAlarmItem(const std::shared_ptr<IAlarmItem>& item) override;
  void DeleteResidualAlarms() override;  // closes what is open, marked "restart"
  void Commit() override;

  // The newest open row of the identifier is acknowledged, with the next commit.
  void Acknowledge(std::string_view identifier, std::string_view who);
  void Suppress(const TAlarmSuppression& suppression);
  // The raise of this serial, which may come later, is an operator's.
  void MarkByHand(std::uint64_t serial);

  // Told the fate of every raise and clear from now on, once each, on the thread that commits. Null: nobody; afterwards
  // the one before is not called any more.
  void OnFate(std::function<void(const TAlarmFate&)> told);

  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }
  [[nodiscard]] std::uint64_t Lost() const;
  [[nodiscard]] std::size_t Waiting() const;
  [[nodiscard]] bool Failing() const;  // an outage lasts
  // The raises, clears and acknowledgements that wait, oldest first.
  [[nodiscard]] std::vector<TAlarmOp> Unstored() const;
  // Why the last commit of an outage failed.
  [[nodiscard]] TProblem Trouble() const;

 private:
  class TItem;
  struct TStatements;
  struct TStanding {
    std::int64_t Row = 0;
    TAlarmOp Op;
  };
  struct TNews {  // what a commit has to tell when it has let go of the file
    std::optional<TProblem> Failed;
    bool Held = false, Written = false, MadeAgain = false;
    std::vector<TAlarmFate> Fates;
  };

  void Enqueue(TAlarmOp op);
  [[nodiscard]] std::deque<TAlarmOp> Take(std::size_t most);
  void PutBack(std::deque<TAlarmOp>& ops);
  void TellWaiting(TNews& news);
  void Tell(const TNews& news);

  void LockLocked() IXO_REQUIRES(FFileLock);
  void OpenLocked(TNews& news) IXO_REQUIRES(FFileLock);
  void CommitLocked(TNews& news) IXO_REQUIRES(FFileLock);
  void FailLocked(TNews& news) IXO_REQUIRES(FFileLock);  // inside a handler
  [[nodiscard]] bool WriteLocked(const std::deque<TAlarmOp>& ops) IXO_REQUIRES(FFileLock);
  void WriteOpLocked(const TAlarmOp& op) IXO_REQUIRES(FFileLock);
  void InsertLocked(const TAlarmOp& op) IXO_REQUIRES(FFileLock);
  void StandingLocked(std::uint64_t serial, std::optional<TStanding> now) IXO_REQUIRES(FFileLock);
  void UndoLocked() IXO_REQUIRES(FFileLock);
  void PruneLocked() IXO_REQUIRES(FFileLock);

  const std::filesystem::path FFile;
  const TAlarmStoreOptions FOptions;

  TCriticalSection FFateLock;  // held while it is told
  std::function<void(const TAlarmFate&)> FOnFate IXO_GUARDED_BY(FFateLock);

  mutable TCriticalSection FQueueLock;
  std::deque<TAlarmOp> FQueue IXO_GUARDED_BY(FQueueLock);
  std::uint64_t FLost IXO_GUARDED_BY(FQueueLock) = 0;
  bool FLossTold IXO_GUARDED_BY(FQueueLock) = false;
  bool FFailing IXO_GUARDED_BY(FQueueLock) = false;
  bool FHeld IXO_GUARDED_BY(FQueueLock) = false;  // by another program
  TProblem FTrouble IXO_GUARDED_BY(FQueueLock);

  TCriticalSection FFileLock;
  TFileLock FWriter IXO_GUARDED_BY(FFileLock);
  TFileIdentity FWriterFile IXO_GUARDED_BY(FFileLock);
  std::unique_ptr<TSqliteDb> FDb IXO_GUARDED_BY(FFileLock);
  std::unique_ptr<TStatements> FStatements IXO_GUARDED_BY(FFileLock);
  std::optional<TFileIdentity> FOpened IXO_GUARDED_BY(FFileLock);  // the file of a connection that was given up
  bool FGone IXO_GUARDED_BY(FFileLock) = false;                    // the file was, and is to be made again
  // The open rows of this program by serial, and what the present transaction has changed of them.
  std::map<std::uint64_t, TStanding> FStanding IXO_GUARDED_BY(FFileLock);
  std::vector<std::pair<std::uint64_t, std::optional<TStanding>>> FBefore IXO_GUARDED_BY(FFileLock);
  std::set<std::uint64_t> FByHand IXO_GUARDED_BY(FFileLock);  // marked before their raise came
  bool FClosed IXO_GUARDED_BY(FFileLock) = false;
  std::uint64_t FFailedAtMs IXO_GUARDED_BY(FFileLock) = 0;
  std::uint64_t FLookAtMs IXO_GUARDED_BY(FFileLock) = 0;
  std::uint64_t FPruneAtMs IXO_GUARDED_BY(FFileLock) = 0;
};

// Makes the tables where they are missing; throws ESqlite for a file that is no database or another program's.
void PrepareAlarmTables(TSqliteDb& db);

}  // namespace ixocamglue
