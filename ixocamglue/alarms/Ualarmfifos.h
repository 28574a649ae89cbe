// The queues of one alarm level: one per registered consumer, and what happened so far for those who come later.
//
// Every operation takes the lock for its whole length and calls nobody meanwhile. Any thread. Nothing fails: an unknown
// consumer has an empty queue.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/alarms/Ualarmlist.h"
#include "ixocamglue/alarms/Xmlist.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// Who consumes alarms: any object, known by its address.
using TAlarmConsumer = const void*;

class TIxoAlarmFifos {
 public:
  static constexpr std::int32_t kQueueCapacity = 300;

  struct TSizes {
    std::size_t Queue = 0;  // the longest queue
    std::size_t History = 0;
  };

  TIxoAlarmFifos() = default;
  TIxoAlarmFifos(const TIxoAlarmFifos&) = delete;
  TIxoAlarmFifos& operator=(const TIxoAlarmFifos&) = delete;

  // Into every queue, the history, and the lists. Returns the sizes afterwards.
  TSizes Push(const TNcAlarmMsg& msg);
  // False, leaving `msg` alone, for an unknown consumer and for an empty queue.
  [[nodiscard]] bool Pop(TAlarmConsumer consumer, TNcAlarmMsg& msg);
  // With `replay` the new queue starts with the active raises that are older than the history, and the whole history.
  // Registering twice changes nothing.
  void RegisterClient(TAlarmConsumer consumer, bool replay);
  void RemoveClient(TAlarmConsumer consumer);
  // A raise leaves the removed list and goes to the head of the active one, a clear the other way round, each by the
  // newest message of the identifier; other actions do nothing.
  void WriteNewAlarm(const TNcAlarmMsg& msg);
  // The active descriptions, newest first, joined by ", ".
  [[nodiscard]] std::string GetAlarmsDescPreview();

  // The lock may be held over several operations.
  void Lock() IXO_NO_ANALYSIS { FLock.lock(); }
  void UnLock() IXO_NO_ANALYSIS { FLock.unlock(); }

  // Messages that the history keeps, 0 for all; from the next push on.
  void SetHistoryCap(std::size_t messages);
  [[nodiscard]] bool IsActive(std::string_view id);
  [[nodiscard]] std::vector<TNcAlarmMsg> Active();   // newest first
  [[nodiscard]] std::vector<TNcAlarmMsg> Removed();  // newest first
  [[nodiscard]] TSizes Sizes();

 private:
  struct TQueue {
    TAlarmConsumer Consumer;
    std::unique_ptr<TLoopList<TNcAlarmMsg>> Items;
  };

  [[nodiscard]] TLoopList<TNcAlarmMsg>* FindLocked(TAlarmConsumer consumer) IXO_REQUIRES(FLock);
  void WriteLocked(const TNcAlarmMsg& msg) IXO_REQUIRES(FLock);
  [[nodiscard]] std::vector<TNcAlarmMsg> OlderLocked() const IXO_REQUIRES(FLock);

  TRecursiveSection FLock;
  std::vector<TQueue> FQueues IXO_GUARDED_BY(FLock);
  std::deque<TNcAlarmMsg> FHistory IXO_GUARDED_BY(FLock);
  std::size_t FHistoryCap IXO_GUARDED_BY(FLock) = 0;
  enum : std::size_t { kActive, kRemoved };
  TAlarmLists<2> FLists IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
