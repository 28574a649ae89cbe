// The built-in consumer: a thread that writes every raised and cleared alarm into the application's alarm store. What
// the store throws is logged, and the message is lost to it.
#pragma once

#include <memory>
#include <optional>
#include <thread>

#include "ixocamglue/platform/alarms/Uqxncalarmsmanager.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/ThreadTable.h"

namespace ixocamglue {

class TAlarmManager;
class TAlarmClient;

// A shell around TAlarmClient::RunPass, every 20 ms.
class TAlarmThread {
 public:
  static constexpr std::uint32_t kPassMs = 20;

  explicit TAlarmThread(TAlarmClient& client) : FClient(client) {}
  ~TAlarmThread() { Stop(); }
  TAlarmThread(const TAlarmThread&) = delete;
  TAlarmThread& operator=(const TAlarmThread&) = delete;

  void Start();
  void Stop();  // wakes the thread, and returns when it has ended
  [[nodiscard]] bool Terminated() const { return FStop.Asked(); }
  void Beat() {
    if (FSign) FSign->Beat();
  }

 private:
  void Execute();

  TAlarmClient& FClient;
  std::optional<TThreadSign> FSign;
  TStop FStop;
  std::thread FThread;
};

class TAlarmClient {
 public:
  static constexpr int kCommitEvery = 500;  // messages

  // Registers with replay before the thread starts, so that its first pass sees every alarm so far. The manager
  // outlives the client's thread. Without a thread of its own its passes are somebody else's to run.
  explicit TAlarmClient(TAlarmManager& manager, bool ownThread = true);
  ~TAlarmClient();
  TAlarmClient(const TAlarmClient&) = delete;
  TAlarmClient& operator=(const TAlarmClient&) = delete;

  void Stop() { FThread.Stop(); }  // what is queued then is dropped

  // One pass of the thread: everything that is queued goes into the store. What a message throws is logged. False when
  // the manager no longer runs.
  bool RunPass();
  // Nothing happens while the application offers no store or no factory.
  void AddToDAO(const TNcAlarmMsg& msg);
  void RemoveFromDAO(const TNcAlarmMsg& msg);

 private:
  using TStore = std::shared_ptr<IAlarmSvcIntf>;
  [[nodiscard]] static TStore Store();
  [[nodiscard]] static std::shared_ptr<IAlarmItem> MakeItem(const TNcAlarmMsg& msg);
  void Write(const TNcAlarmMsg& msg);
  void Commit();

  TAlarmManager& FManager;
  TAlarmThread FThread;
};

}  // namespace ixocamglue
