// The history of runs in one SQLite file: a row per run, written when it begins and again when it ends.
//
// Nobody waits for the file: what is told goes into memory, and a thread of its own (ixo-history) writes it. A file
// that cannot be written is tried again every second; meanwhile so much is kept in memory and the oldest is lost, both
// told once per outage. One program at a time writes a history: it holds the lock beside the file as long as it lives.
// All waits count real time, whatever clock the machine has.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "controller/history/HistoryRun.h"
#include "ixocamglue/alarms/store/Sqlite.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

inline constexpr int kHistoryBusyMs = 200;
inline constexpr std::uint32_t kHistoryRetryMs = 1000;
inline constexpr std::uint32_t kHistoryEndMs = 500;        // how long the end tries to write what waits
inline constexpr std::uint32_t kHistoryAnswerMs = 300;     // and how long the last try may take
inline constexpr std::size_t kHistoryQueueLimit = 20'000;  // rows that wait in memory: runs with their steps
inline constexpr std::int64_t kRunsKept = 100'000;         // in the file
inline constexpr std::size_t kRunsForEstimate = 20;        // the last successful ones of a name
inline constexpr std::size_t kNamesForEstimate = 500;
inline constexpr std::int64_t kRunsLearnt = 2000;  // of an earlier program's runs the last ones serve estimates

struct TRunHistoryOptions {
  // Each is told on the thread that writes, without a lock of the history.
  std::function<void(const TProblem& problem)> OnFailed;  // once per outage
  std::function<void()> OnWritten;                        // the outage is over
  // Once per outage, on the thread that tells of a run: the first one was lost, because too many wait.
  std::function<void(std::uint64_t lost)> OnLost;
  std::int64_t Kept = kRunsKept;
  std::size_t QueueLimit = kHistoryQueueLimit;
};

// Begin and End never fail: what the file does not take waits in memory, or is counted as lost.
class TRunHistory {
 public:
  TRunHistory(std::filesystem::path file, TRunHistoryOptions options = {});
  ~TRunHistory();  // as Close
  TRunHistory(const TRunHistory&) = delete;
  TRunHistory& operator=(const TRunHistory&) = delete;

  // Once, first: makes the file where there is none, closes what an earlier program left open, learns what estimates
  // need, and starts the thread. Whatever fails, runs are kept in memory and the file is tried again.
  TResult<> Open();
  // Writes what waits, and tries for kHistoryEndMs; the last call. A run that has not ended stays open in the file.
  // False: the disk does not answer, and the history may not be destroyed.
  bool Close();

  // --- any thread; no wait for a file ---
  // The run's number, above those of all runs before; `run` has no end yet.
  std::int64_t Begin(THistoryRun run);
  // The whole run, with its number.
  void End(THistoryRun run);
  // How long it will take, by the median of its last successes, those with the same parameters before the others; none:
  // it has not succeeded yet.
  [[nodiscard]] std::optional<std::int64_t> EstimateMs(std::string_view name, std::string_view params) const;
  // What is not in the file yet, oldest first. A run that is in the file too is newer here.
  [[nodiscard]] std::vector<THistoryRun> Waiting() const;
  // Began in this program and have not ended.
  [[nodiscard]] std::vector<THistoryRun> Running() const;
  [[nodiscard]] std::uint64_t Lost() const;
  [[nodiscard]] bool Failing() const;
  [[nodiscard]] TProblem Trouble() const;  // why the last write of an outage failed
  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }

 private:
  struct TStatements;
  struct TTook {
    std::string Params;
    std::int64_t Ms = 0;
  };

  void Enqueue(THistoryRun run);
  void Learn(std::string_view name, TTook took) IXO_REQUIRES(FLock);
  void TrimQueue() IXO_REQUIRES(FLock);
  void Work();
  void WaitForWork(TThreadSign& sign);

  // --- the thread that writes; before it starts and after its end the owner's ---
  [[nodiscard]] bool WriteAll();  // false: an outage lasts
  void OpenFile();
  void LearnAll();
  [[nodiscard]] std::size_t Take(std::size_t most);
  void PutBack();
  void WriteTaken();
  void WriteRun(const THistoryRun& run);
  void Prune();
  void Fail();  // inside a handler

  const std::filesystem::path FFile;
  const TRunHistoryOptions FOptions;

  mutable TCriticalSection FLock;
  std::condition_variable FWork;
  std::deque<THistoryRun> FQueue IXO_GUARDED_BY(FLock);
  std::deque<THistoryRun> FTaken IXO_GUARDED_BY(FLock);  // from the queue, not in the file yet
  std::size_t FQueued IXO_GUARDED_BY(FLock) = 0;         // rows of the queue
  std::map<std::int64_t, THistoryRun> FRunning IXO_GUARDED_BY(FLock);
  std::map<std::string, std::deque<TTook>, std::less<>> FTook IXO_GUARDED_BY(FLock);
  std::int64_t FLastId IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FLost IXO_GUARDED_BY(FLock) = 0;
  bool FLossTold IXO_GUARDED_BY(FLock) = false;
  bool FFailing IXO_GUARDED_BY(FLock) = false;
  bool FEnding IXO_GUARDED_BY(FLock) = false;
  TProblem FTrouble IXO_GUARDED_BY(FLock);

  // the thread's that writes
  TFileLock FWriter;
  std::unique_ptr<TSqliteDb> FDb;
  std::unique_ptr<TStatements> FStatements;
  std::int64_t FRows = 0;     // in the file
  std::int64_t FFirstId = 0;  // of this program's runs; 0: not known yet
  std::atomic<bool> FEnded{false};
  std::thread FThread;
};

// The one in the middle, of an even count the mean of both; of none 0.
[[nodiscard]] std::int64_t MedianMs(std::vector<std::int64_t> values);

}  // namespace ixocontroller
