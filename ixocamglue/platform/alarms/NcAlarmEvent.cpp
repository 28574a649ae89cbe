#include "ixocamglue/platform/alarms/NcAlarmEvent.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {

std::uint64_t TNcAlarmEvent::Subscribe(THandler handler) {
  TGuard guard(FLock);
  auto entries = std::make_shared<TEntries>(*FEntries);
  entries->push_back(std::make_shared<TEntry>(TEntry{++FHandles, std::move(handler)}));
  FEntries = std::move(entries);
  return FHandles;
}

void TNcAlarmEvent::Unsubscribe(std::uint64_t handle) {
  std::unique_lock lock(FLock.Native());
  auto entries = std::make_shared<TEntries>(*FEntries);
  const auto found = std::ranges::find(*entries, handle, &TEntry::Handle);
  if (found == entries->end()) return;
  const std::shared_ptr<TEntry> entry = std::move(*found);
  entries->erase(found);
  entry->Live = false;
  FEntries = std::move(entries);
  while (FRunning == entry.get() && FRunner != std::this_thread::get_id()) FCallEnded.wait(lock);
}

void TNcAlarmEvent::Fire(const TNcAlarmRecord& record) {
  std::unique_lock lock(FLock.Native());
  const std::shared_ptr<const TEntries> entries = FEntries;
  for (const auto& entry : *entries) {
    if (!entry->Live) continue;
    FRunning = entry.get();
    FRunner = std::this_thread::get_id();
    lock.unlock();
    try {
      entry->Handler(record);
    } catch (...) {
      LogMsg(lkException, 0, "alarm event: " + DescribeException(std::current_exception()), "NcAlarms");
    }
    lock.lock();
    FRunning = nullptr;
    FCallEnded.notify_all();
  }
}

}  // namespace ixocamglue
