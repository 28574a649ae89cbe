// A controller that stays up, and whom everybody talks to: a TController with an interface thread, what it shows of
// itself, its events and its runs.
//
// In real time the controller has its own threads, and the interface thread `ixo-interface` runs beside them. In
// virtual time the interface thread runs everything: what was posted, then a pass, then it waits for the real time.
// Panel, configuration, gas model and locale are touched on the interface thread only.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "controller/Controller.h"
#include "controller/access/Access.h"
#include "controller/access/Asker.h"
#include "controller/service/AlarmDesk.h"
#include "controller/service/Desks.h"
#include "controller/service/Events.h"
#include "controller/service/GasDesk.h"
#include "controller/service/Jobs.h"
#include "controller/service/Lease.h"
#include "controller/service/LogLines.h"
#include "controller/service/Runner.h"
#include "controller/service/Status.h"
#include "controller/service/Stopper.h"
#include "controller/service/TaskThread.h"

namespace ixocontroller {

struct TServiceOptions {
  TControllerOptions Controller;  // Realtime: real threads; else virtual time
  double Speed = 1.0;             // virtual: machine time per real time, above 0
  std::filesystem::path StateFolder;
  bool ResetFromAfar = false;  // all-off may be reset from another machine
};

// What does not say how it fails does not. A stop, a pause and an all-off are posted whatever else is wrong.
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
  // The same on the thread `ixo-files`, for what waits for a disk.
  bool PostFiles(std::function<void()> task) { return FFiles.Post(std::move(task)); }
  // `work` on that thread, then `then` on the interface thread: what was asked for there, and waits for a disk. At the
  // end both are done on the thread that ends the service. What `work` throws is logged.
  void OnDisk(std::function<void()> work, std::function<void()> then);
  // The last one, never null; waits for nobody.
  [[nodiscard]] std::shared_ptr<const TStatus> Status() const;
  // Its JSON; `language` is the one of the thread's TLanguageScope.
  [[nodiscard]] std::shared_ptr<const std::string> StatusText(const std::string& language);
  [[nodiscard]] TEventRing& Events() { return FEvents; }
  [[nodiscard]] TAccess& Access() { return FAccess; }
  [[nodiscard]] TAlarmDesk& Alarms() { return *FAlarms; }
  [[nodiscard]] const TLogLines& LogLines() const { return FLogLines; }
  // Where the wire listens: for the console's links, and for who wants the machine file.
  void SetAddress(const std::string& url);
  [[nodiscard]] TJobs& Jobs() { return *FJobs; }  // what any thread may ask of it
  [[nodiscard]] const TServiceOptions& Options() const { return FOptions; }
  [[nodiscard]] TController& Controller() { return *FController; }  // its any-thread operations
  // Ends what runs; `who` is named as the cause.
  void Stop(const TAsker& who);
  void Pause(const TAsker& who);
  // Everything is stopped at once: the laser's latch is tripped on the caller's thread, IMachine::StopNow is called on
  // one that stands ready, what runs is stopped, and the state thread stops each device again in its next pass. It
  // waits for no device and works while the state thread hangs. Until it is reset an alarm keeps everything still. A
  // means against faults of software, not an emergency stop.
  void AllOff(const TAsker& who);
  [[nodiscard]] bool IsAllOff() const { return FAllOff.load(); }
  // How often a task or a round of the interface thread has thrown since the start. It is logged, and what comes again
  // and again only every 10 s; the thread goes on.
  [[nodiscard]] std::uint64_t Faults() const { return FFaults.load(); }
  // A connection of the wire has come, or has gone: who attends a run is there as long as its connection.
  void Connected(std::uint64_t connection);
  void Disconnected(std::uint64_t connection);

  // --- interface thread; before Start also the thread that made the service ---
  [[nodiscard]] TRunner& Runner() { return FRunner; }
  [[nodiscard]] TLease& Lease() { return FLease; }
  // Called behind each change of the lease. Before Start.
  void OnLease(std::function<void(const TLeaseEvent&)> changed) { FLeaseTold.push_back(std::move(changed)); }
  // From Start on.
  [[nodiscard]] TPanelDesk& Panel() { return FDesks->Panel; }
  [[nodiscard]] TGasDesk& Gas() { return FGas; }
  [[nodiscard]] TRecordings& Recordings() { return FDesks->Recordings; }
  [[nodiscard]] TLinkDesk& Links() { return FDesks->Links; }
  // Refused while a procedure runs, with its name: configuration changes take effect at rest.
  [[nodiscard]] TResult<> AtRest();
  // Starts a run; refused also while everything is off and, but for what only darkens, while the emergency stop is
  // active. One that an end was asked for meanwhile is stopped. Throws what TRunner::Start throws.
  [[nodiscard]] TResult<std::uint64_t> Run(TRunRequest request, const TAsker& who);
  // Whether Run would take it now; throws as it does.
  [[nodiscard]] TResult<> MayRun(const TRunRequest& request);
  // Clears the alarms that stay until they are reset, then what AllOff has done, then the laser's latch. Refused while
  // the cause of one of them stands, which then stays as it is, and where AllOff comes meanwhile.
  [[nodiscard]] TResult<> Reset(const TAsker& who);
  // Called with each round, before the status is made: every kStatusEveryMs of real time, and every kIdleEveryMs while
  // nothing runs, no job waits and nobody is connected. Before Start.
  void OnRound(std::function<void(std::uint64_t realMs)> round) { FRounds.push_back(std::move(round)); }

 private:
  class TLogEvents;

  void RunThread(std::promise<void>& ready);
  void RunReal();
  // What is to end while the state thread does not come back from a step is stopped past it.
  [[nodiscard]] bool StopPastTheStep();
  void RunVirtual();
  bool RunTasks();  // false: none, and the end was asked for
  void Round();
  [[nodiscard]] bool RoundIsDue(std::uint64_t nowMs);
  [[nodiscard]] std::uint64_t RoundEveryMs();
  // What it throws is told; false then.
  template <class F>
  bool Carefully(F action);
  void RunLate();
  void RoundFailed(const std::exception_ptr& error);
  void Publish();
  void PublishBeforeEvent();  // throws nothing
  void LeaseChanged(const TLeaseEvent& event);
  void Wake();
  // Waits until something is posted or asked for, `micros` of real time at most.
  void WaitForWork(std::uint64_t micros);
  void KeepStill(std::string why);
  [[nodiscard]] std::string WhyAllOff() const;
  [[nodiscard]] TResult<> NotAllOff() const;
  [[nodiscard]] TResult<> NoEmergency(const TRunRequest& request) const;
  [[nodiscard]] TResult<> StandsStill();
  [[nodiscard]] TResult<> NoOtherAlarm();
  void EndOrExit(bool ended, const char* what);

  const TServiceOptions FOptions;
  TEventRing FEvents;
  TAccess FAccess;
  const std::unique_ptr<TLogEvents> FLogEvents;
  TLogLines FLogLines;
  TStepSpans FSteps;
  TPlannedPath FPath;
  const std::unique_ptr<TController> FController;
  std::optional<TAlarmDesk> FAlarms;
  std::size_t FClockHandle = 0;
  std::optional<TStopper> FStopper;

  // any thread
  std::atomic<bool> FAllOff{false};
  std::atomic<std::uint32_t> FAllOffsBegun{0};
  std::atomic<std::uint32_t> FAllOffsDone{0};
  std::atomic<std::uint64_t> FAllOffAlarm{0};  // its serial; 0: none stands
  std::atomic<std::uint64_t> FFaults{0};

  // interface thread
  TGasDesk FGas;
  TRunner FRunner;
  std::vector<std::function<void(std::uint64_t)>> FRounds;
  std::uint64_t FRoundedMs = 0;  // real time, as FToldMs
  std::string FToldFault;        // of a round
  std::uint64_t FToldMs = 0;
  std::uint32_t FEndingPass = 0;  // of the state loop, when what is to end was seen first; and since when
  std::uint64_t FEndingMs = 0;
  bool FStoppedPast = false;
  std::optional<TDesks> FDesks;
  TLease FLease;
  std::vector<std::function<void(const TLeaseEvent&)>> FLeaseTold;
  std::optional<TJobs> FJobs;

  // guarded by FLock
  TCriticalSection FLock;
  std::condition_variable FWork;
  std::vector<std::function<void()>> FTasks IXO_GUARDED_BY(FLock);
  bool FWoken IXO_GUARDED_BY(FLock) = false;
  bool FEnding IXO_GUARDED_BY(FLock) = false;                      // nothing is taken any more
  std::vector<std::function<void()>> FLate IXO_GUARDED_BY(FLock);  // what OnDisk has to call then
  // guarded by FStatusLock
  mutable TCriticalSection FStatusLock;
  std::shared_ptr<const TStatus> FStatus IXO_GUARDED_BY(FStatusLock);

  TStatusTexts FStatusTexts;

  std::atomic<bool> FStopped{false};  // the interface thread has come to its end
  std::thread FThread;
  TTaskThread FFiles{"ixo-files"};
};

}  // namespace ixocontroller
