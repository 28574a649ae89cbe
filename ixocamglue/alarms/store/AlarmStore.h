// The application's alarm store in one SQLite file: a row per raise, closed by its clear.
//
// The alarm path never waits for the file. What the client hands over stays in memory until a commit has written it; a
// file that cannot be written is tried again every second. Any thread; one lock guards the queue, another one the file.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/alarms/store/Sqlite.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

inline constexpr int kStoreBusyMs = 200;
inline constexpr std::uint64_t kStoreRetryMs = 1000;
inline constexpr std::size_t kStoreQueueLimit = 100'000;  // rows that wait in memory
inline constexpr const char* kMarkRestart = "restart";

// What may be hidden from lists for a while. Level 1 is never hidden.
struct TAlarmSuppression {
  std::string Identifier;
  std::string Until;  // "YYYY-MM-DD hh:mm:ss.zzz", local time
  std::string Reason;
};

struct TAlarmStoreOptions {
  // Told once per outage, on the thread that hands an alarm over, when the first row was lost.
  std::function<void(std::uint64_t lost)> OnLost;
  int RetentionDays = 0;  // closed rows older than this are deleted; 0: none
  std::size_t QueueLimit = kStoreQueueLimit;
};

class TAlarmStore final : public IAlarmSvcIntf, public IAlarmFactory {
 public:
  TAlarmStore(std::filesystem::path file, TAlarmStoreOptions options);
  ~TAlarmStore() override;  // tries once more to write what waits

  // Creates the file where there is none. After a failure commits try again all the same.
  TResult<> Open();

  std::shared_ptr<IAlarmItem> CreateAlarmItem() override;
  // Items of another factory are refused with std::invalid_argument.
  void AddAlarmItem(const std::shared_ptr<IAlarmItem>& item) override;
  void RemoveAlarmItem(const std::shared_ptr<IAlarmItem>& item) override;
  void DeleteResidualAlarms() override;  // closes what is open, marked "restart"
  void Commit() override;

  // The newest open row of the identifier is acknowledged, with the next commit.
  void Acknowledge(std::string_view identifier, std::string_view who);
  void Suppress(const TAlarmSuppression& suppression);

  [[nodiscard]] std::uint64_t Lost() const;
  [[nodiscard]] std::size_t Waiting() const;

 private:
  enum class TKind : std::uint8_t { Raise, Clear, Acknowledge, Restart, Suppress };
  struct TOp {
    TKind Kind = TKind::Raise;
    std::uint8_t Level = 0;
    std::string Id, Code, Desc;  // with Acknowledge: who in Desc; with Suppress: until in Code, reason in Desc
    std::string Module, Type, Reason, Solution;
    TDateTime Time;
  };
  class TItem;
  struct TStatements;

  void Enqueue(TOp op);
  void OpenLocked() IXO_REQUIRES(FFileLock);
  void WriteLocked(const std::deque<TOp>& ops) IXO_REQUIRES(FFileLock);
  void PruneLocked() IXO_REQUIRES(FFileLock);

  const std::filesystem::path FFile;
  const TAlarmStoreOptions FOptions;

  mutable TCriticalSection FQueueLock;
  std::deque<TOp> FQueue IXO_GUARDED_BY(FQueueLock);
  std::uint64_t FLost IXO_GUARDED_BY(FQueueLock) = 0;
  bool FLossTold IXO_GUARDED_BY(FQueueLock) = false;

  TCriticalSection FFileLock;
  std::unique_ptr<TSqliteDb> FDb IXO_GUARDED_BY(FFileLock);
  std::unique_ptr<TStatements> FStatements IXO_GUARDED_BY(FFileLock);
  bool FFailed IXO_GUARDED_BY(FFileLock) = false;
  std::uint64_t FFailedAtMs IXO_GUARDED_BY(FFileLock) = 0;
  std::uint64_t FPruneAtMs IXO_GUARDED_BY(FFileLock) = 0;
};

// Makes the tables where they are missing; throws ESqlite for a file that is no database or another program's.
void PrepareAlarmTables(TSqliteDb& db);

}  // namespace ixocamglue
