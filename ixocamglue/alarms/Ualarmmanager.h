// The alarm manager: turns the alarm package's events into messages, counts them per level and queues them for every
// registered consumer. Level 1 forbids or stops something, level 0 tells.
//
// The event handlers run on the alarm package's thread; everything else may be called from any thread. No lock is held
// while anything else of ours, a log or a service is called. Nothing here fails: what the store throws is logged.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/alarms/Ualarmclient.h"
#include "ixocamglue/alarms/Ualarmfifos.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

inline constexpr std::size_t kAlarmLevels = 2;

// What may be limited or reported; everything is off by default.
struct TAlarmLimits {
  bool ClientThread = true;             // false: RunClient does what the client's thread would do, every 20 ms
  std::size_t HistoryCap = 0;           // messages per level; active alarms are kept beyond it
  std::size_t QueueThreshold = 0;       // a queue that grows to this is reported, once per growth
  std::size_t HistoryThreshold = 0;     // the same for the history
  std::uint32_t LogLinesPerSecond = 0;  // of the application log only; what is left out is counted there
};

class TAlarmManager {
 public:
  using TGetNcAlarmManager = std::function<TNcAlarmManager*()>;  // null: there is none

  explicit TAlarmManager(TGetNcAlarmManager provider, TAlarmLimits limits = {});
  ~TAlarmManager();
  TAlarmManager(const TAlarmManager&) = delete;
  TAlarmManager& operator=(const TAlarmManager&) = delete;

  // Once, after construction: subscribes to the alarm package, takes over what stands there, and creates the client.
  // Without an alarm package nothing of this happens.
  void Initialize();

  // Registers with level 0 first. An alarm between the two levels' registering is not lost with `replay`.
  void RegisterClient(TAlarmConsumer client, bool replay);
  void RemoveClient(TAlarmConsumer client);
  // The consumer's next message; all of level 1 come before any of level 0.
  [[nodiscard]] bool Pop(TAlarmConsumer client, TNcAlarmMsg& msg);

  // Of the highest active level, or of one below kAlarmLevels, which nobody checks. Valid as long as the manager.
  [[nodiscard]] TIxoAlarmFifos& GetAlarmFifos() { return *FFifos[GetHighestLevel()]; }
  [[nodiscard]] TIxoAlarmFifos& GetAlarmFifos(std::size_t level) { return *FFifos[level]; }  // below kAlarmLevels
  // The active descriptions of all levels, level 1 first, newest first within a level.
  [[nodiscard]] std::string GetAllAlarmsDescPreview();
  [[nodiscard]] TAlarmLv GetHighestLevel() const { return FHighest.load(std::memory_order_acquire); }
  // Of a level below kAlarmLevels, which nobody checks.
  [[nodiscard]] std::int32_t GetActiveCount(std::size_t level) const {
    return FCounters[level].load(std::memory_order_acquire);
  }
  [[nodiscard]] std::vector<TNcAlarmMsg> GetRemovedAlarms();  // in order of removal
  // One pass of a client that has no thread of its own; one thread.
  void RunClient() {
    if (FClient && !FLimits.ClientThread) (void)FClient->RunPass();
  }
  [[nodiscard]] bool Running() const { return FRunning.load(std::memory_order_acquire); }

  // --- the alarm package's thread ---
  void NcAlarmAdded(const TNcAlarmRecord& rec);
  void NcAlarmRemoved(const TNcAlarmRecord& rec);
  // Both push into the fifo set of the message's level.
  void AddToFifo(const TNcAlarmMsg& msg) { PushMsg(msg); }
  void RemoveFromFifo(const TNcAlarmMsg& msg) { PushMsg(msg); }

  // Tells every consumer that somebody has seen the alarm; changes no list and no counter.
  void Acknowledge(std::string_view identifier, TDateTime time);
  // Asks the application's store to close what an earlier run left active. Always true.
  bool RemoveResidualAlarmRecord();

 private:
  [[nodiscard]] static std::size_t IndexOf(TAlarmLv level) { return level < kAlarmLevels ? level : kAlarmLevels - 1; }
  void PushMsg(const TNcAlarmMsg& msg);
  void LogLine(std::int32_t kind, std::int32_t colour, const TText& prefix, const std::string& desc);
  static void ReportSize(const char* what, std::size_t size, std::size_t threshold, std::atomic<bool>& reported);

  const TGetNcAlarmManager FProvider;
  const TAlarmLimits FLimits;
  TCriticalSection FLock;
  TAlarmLists<1> FRemovedAlarms IXO_GUARDED_BY(FLock);
  std::vector<std::unique_ptr<TIxoAlarmFifos>> FFifos;  // by level; constant until the destructor
  std::array<std::atomic<std::int32_t>, kAlarmLevels> FCounters{};
  std::atomic<TAlarmLv> FHighest{0};
  std::atomic<bool> FRunning{false};
  std::unique_ptr<TAlarmClient> FClient;

  TNcAlarmManager* FSubscribedTo = nullptr;
  std::uint64_t FAddedHandle = 0;
  std::uint64_t FRemovedHandle = 0;
  struct TReported {
    std::atomic<bool> Queue{false};
    std::atomic<bool> History{false};
  };
  std::array<TReported, kAlarmLevels> FReported;
  std::uint64_t FLogSecond = 0;  // the event thread's
  std::uint32_t FLogLines = 0;
  std::uint32_t FLogLeftOut = 0;
};

// The one manager. The first call after the library's start creates and initialises it on the installed NcAlarms; null
// before the library's start and after its end.
TAlarmManager* AlarmManager();
// For the next manager that AlarmManager creates.
void SetAlarmLimits(const TAlarmLimits& limits);

// The unit's life; see library/Library.h. The start creates the manager where the alarm package is there already; an
// application whose package comes later calls AlarmManager() then. Freeing twice is harmless.
void StartAlarmManager();
void FreeAlarmManager();

}  // namespace ixocamglue
