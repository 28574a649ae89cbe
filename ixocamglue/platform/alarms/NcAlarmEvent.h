// An event of the alarm package. Handlers run on the package's event thread, one at a time, in the order of their
// subscription; what one throws is logged. Any thread subscribes and unsubscribes.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

class TNcAlarmEvent {
 public:
  using THandler = std::function<void(const TNcAlarmRecord& record)>;

  // Returns a handle for Unsubscribe, never 0.
  [[nodiscard]] std::uint64_t Subscribe(THandler handler);
  // Afterwards the handler does not run and never will again: waits for a call in flight, unless it comes from that
  // call. The caller holds no lock that a handler takes.
  void Unsubscribe(std::uint64_t handle) IXO_NO_ANALYSIS;
  void Fire(const TNcAlarmRecord& record) IXO_NO_ANALYSIS;  // the event thread

 private:
  struct TEntry {
    std::uint64_t Handle;
    THandler Handler;
    bool Live = true;  // guarded by FLock
  };
  using TEntries = std::vector<std::shared_ptr<TEntry>>;

  TCriticalSection FLock;
  std::condition_variable FCallEnded;
  std::shared_ptr<const TEntries> FEntries IXO_GUARDED_BY(FLock) = std::make_shared<TEntries>();
  std::uint64_t FHandles IXO_GUARDED_BY(FLock) = 0;
  const TEntry* FRunning IXO_GUARDED_BY(FLock) = nullptr;
  std::thread::id FRunner IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
