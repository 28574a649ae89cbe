// A controller that stays up, and whom everybody talks to: a TController with an interface thread, what it shows of
// itself, its events and its runs.
//
// In real time the controller has its own threads, and the interface thread `ixo-interface` runs beside them. In
// virtual time the interface thread runs everything: what was posted, then a pass, then it waits for the real time.
// Panel, configuration, gas model and locale are touched on the interface thread only.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "controller/Controller.h"
#include "controller/service/AlarmDesk.h"
#include "controller/service/Asker.h"
#include "controller/service/Events.h"
#include "controller/service/Lease.h"
#include "controller/service/Runner.h"
#include "controller/service/Status.h"
#include "controller/wire/Access.h"

namespace ixocontroller {

struct TServiceOptions {
  TControllerOptions Controller;  // Realtime: real threads; else virtual time
  double Speed = 1.0;             // virtual: machine time per real time, above 0
  std::filesystem::path StateFolder;
};

class TService {
 public:
  explicit TService(TServiceOptions options);  // throws EProblem as TController
  ~TService();                                 // End()
  TService(const TService&) = delete;
  TService& operator=(const TService&) = delete;

  // The threads. Returns when the machine has acknowledged standby; throws EProblem when it does not.
  void Start();
  // Dark and in order, within 3 s; what was posted before is done first. Once; nothing runs afterwards, and the
  // controller is there until the service ends.
  void End();

  // --- any thread ---
  // Done on the interface thread, in order. False: the service has ended, and the task is not done. What a task throws
  // is logged.
  bool Post(std::function<void()> task);
  // The last one, never null; waits for nobody.
  [[nodiscard]] std::shared_ptr<const TStatus> Status() const;
  [[nodiscard]] TEventRing& Events() { return FEvents; }
  [[nodiscard]] TAccess& Access() { return FAccess; }
  [[nodiscard]] TAlarmDesk& Alarms() { return *FAlarms; }
  // Where the wire listens: for the console's links, and for who wants the machine file.
  void SetAddress(const std::string& url);
  [[nodiscard]] const TServiceOptions& Options() const { return FOptions; }
  [[nodiscard]] TController& Controller() { return *FController; }  // its any-thread operations
  // Ends what runs; `who` is named as the cause.
  void Stop(const TAsker& who);

  // --- interface thread; before Start also the thread that made the service ---
  [[nodiscard]] TRunner& Runner() { return FRunner; }
  [[nodiscard]] TLease& Lease() { return FLease; }
  // Called behind each change of the lease. Before Start.
  void OnLease(std::function<void(const TLeaseEvent&)> changed) { FLeaseTold.push_back(std::move(changed)); }
  // Refused while a procedure runs, with its name: configuration changes take effect at rest.
  [[nodiscard]] TResult<> AtRest();
  // Called every kStatusEveryMs of real time, before the status is made. Before Start.
  void OnRound(std::function<void(std::uint64_t realMs)> round) { FRounds.push_back(std::move(round)); }

 private:
  class TLogEvents;

  void Run();
  void RunReal();
  void RunVirtual();
  bool RunTasks();  // false: none, and the end was asked for
  void Round();
  void Publish();
  void LeaseChanged(const TLeaseEvent& event);
  void Wake();
  // Waits until something is posted or asked for, `micros` of real time at most.
  void WaitForWork(std::uint64_t micros);

  const TServiceOptions FOptions;
  TEventRing FEvents;
  TAccess FAccess;
  const std::unique_ptr<TLogEvents> FLogEvents;
  std::unique_ptr<TController> FController;
  std::optional<TAlarmDesk> FAlarms;

  // interface thread
  TRunner FRunner;
  std::vector<std::function<void(std::uint64_t)>> FRounds;
  std::uint64_t FRoundAt = 0;  // real time
  TLease FLease;
  std::vector<std::function<void(const TLeaseEvent&)>> FLeaseTold;

  // guarded by FLock
  TCriticalSection FLock;
  std::condition_variable FWork;
  std::vector<std::function<void()>> FTasks IXO_GUARDED_BY(FLock);
  bool FWoken IXO_GUARDED_BY(FLock) = false;
  bool FEnding IXO_GUARDED_BY(FLock) = false;  // nothing is taken any more
  // guarded by FStatusLock
  mutable TCriticalSection FStatusLock;
  std::shared_ptr<const TStatus> FStatus IXO_GUARDED_BY(FStatusLock);

  std::atomic<bool> FStopped{false};  // the interface thread has come to its end
  std::thread FThread;
};

}  // namespace ixocontroller
