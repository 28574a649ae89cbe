// What a controller remembers of runs and has before it: the history, the queue of jobs, the sequence files and the run
// that may go on. It follows the service's runner; without a state folder there is only what goes on. Which thread may
// call what stands in front of each group.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "controller/history/RunHistory.h"
#include "controller/service/Continue.h"
#include "controller/service/Queue.h"
#include "controller/service/Sequences.h"

namespace ixocontroller {

class TService;
struct TRunRecord;

// What is only asked does not fail where no line says so.
class TJobs {
 public:
  // The service outlives it, and has not started. A history that cannot be written keeps no controller from starting.
  explicit TJobs(TService& service);
  ~TJobs();
  TJobs(const TJobs&) = delete;
  TJobs& operator=(const TJobs&) = delete;

  // No job starts any more. Before Close, when the interface thread has ended.
  void StartNoMore();
  // What has run is written. Once, when nothing runs any more; false: the disk does not answer.
  [[nodiscard]] bool Close();

  // --- any thread; throw EProblem where there is no state folder ---
  [[nodiscard]] TRunHistory& History();
  [[nodiscard]] const TSequences& Sequences() const;

  // --- interface thread ---
  [[nodiscard]] TQueue& Queue();  // throws as History
  // The queue is not held: a job may start with the next round.
  [[nodiscard]] bool WillStart() const { return FQueue && !FQueue->Held(); }
  // What would be done again as the machine is now, and is ready for; or why nothing can go on.
  [[nodiscard]] TResult<TContinue::TOffer> OfferToContinue();
  // Starts what was offered under the token. The number of the new run.
  [[nodiscard]] TResult<std::uint64_t> Continue(std::string_view token, const TAsker& who);

 private:
  [[nodiscard]] TQueue::TSeam Seam();
  [[nodiscard]] std::vector<TMotionCall> CallsOf(const TJob& job) const;
  void TellQueue();

  TService& FService;
  std::unique_ptr<TRunHistory> FHistory;
  std::unique_ptr<TSequences> FSequences;
  std::unique_ptr<TQueue> FQueue;
  TContinue FContinue;
  std::uint64_t FLastId = 0;  // without a history
  std::string FToldQuestion;  // of the queue, that its followers know
};

}  // namespace ixocontroller
