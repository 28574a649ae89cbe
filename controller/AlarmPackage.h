// The controller's alarms: the package that every alarm goes through, and, where there is a database, the alarm manager
// with its client and its store. Any thread, unless a line says otherwise.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {
class TAlarmStore;
}

namespace ixocontroller {
using namespace ixocamglue;

// What stands from an all-off to its reset.
inline constexpr const char* kAllOffAlarm = "TPAllOff";
inline constexpr TNcAlarmAttrs kAllOffForbids =
    naForbidMove | naForbidLaser | naForbidFollower | naForbidCut | naForbidHoming | naRequireStop;

// What a person is told of the alarm store; any thread.
using TStoreTold = std::function<void(const TProblem&)>;

// Raising and clearing do not fail: what the store cannot write waits, and is told.
class TAlarmPackage {
 public:
  // Installs the package for its own life. The framework hears of each alarm once, in the moment in which it is raised.
  // `clock`: what fires the events in virtual time; null: Start does. Framework, journal and clock outlive the package.
  TAlarmPackage(TNcStateFramework& framework, IMachineObserver& journal, TVirtualClock* clock);
  ~TAlarmPackage() { (void)Close(); }
  TAlarmPackage(const TAlarmPackage&) = delete;
  TAlarmPackage& operator=(const TAlarmPackage&) = delete;

  // The alarm manager, its client and the store run until Close. A store that cannot be written, or is another
  // program's, keeps nobody from going on: it is told, also as an alarm, and tried again every second. Main thread,
  // before the other threads start.
  void OpenStore(const std::filesystem::path& file, int retentionDays, TStoreTold told);
  void Start() { FManager.Start(); }  // real time: the package's event thread
  // Main thread, after the other threads have ended. What waits for the store is written first; the problem counts what
  // is not stored after all, when each of it has been told.
  [[nodiscard]] std::optional<TProblem> Close();

  [[nodiscard]] TNcAlarmManager& Manager() { return FManager; }
  // With a line of the journal.
  void Raise(TNcAlarmRecord record);
  // Ends what Raise has raised. What a source reports ends with its cause.
  void ClearRaised();

  [[nodiscard]] TAlarmStore* Store() { return FStore.get(); }  // null: there is none
  // True when no alarm event is on its way to a consumer or to the store. One that the store cannot write has arrived.
  [[nodiscard]] bool Settled() const;

 private:
  void StoreFailed(const TProblem& why, bool held);
  void StoreSays(std::int32_t id, std::string desc);
  void DrainOnce();
  void Drain();
  [[nodiscard]] std::optional<TProblem> TellUnstored();

  IMachineObserver& FJournal;
  TVirtualClock* FClock;  // null: real time, or closed
  std::size_t FTimer = 0;
  TNcAlarmManager FManager;
  TInstalled<TNcAlarms> FInstalled{FManager};
  TNcSimpleAlarmSource FStoreAlarms;
  TStoreTold FTold;
  std::filesystem::path FStoreFile;
  std::shared_ptr<TAlarmStore> FStore;

  TCriticalSection FLock;
  std::vector<std::uint64_t> FRaised IXO_GUARDED_BY(FLock);  // serials
};

}  // namespace ixocontroller
