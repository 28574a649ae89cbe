// The controller's alarms: the package that every alarm goes through, and, where there is a database, the alarm manager
// with its client and its store. Any thread, unless a line says otherwise.
#pragma once

#include <filesystem>
#include <memory>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/NcState.h"

namespace ixocamglue {
class TAlarmStore;
}

namespace ixocontroller {
using namespace ixocamglue;

class TAlarmPackage {
 public:
  // Installs the package for its own life. The framework hears of each alarm once, in the moment in which it is raised.
  // `clock`: what fires the events in virtual time; null: Start does. Framework, journal and clock outlive the package.
  TAlarmPackage(TNcStateFramework& framework, IMachineObserver& journal, TVirtualClock* clock);
  ~TAlarmPackage() { Close(); }
  TAlarmPackage(const TAlarmPackage&) = delete;
  TAlarmPackage& operator=(const TAlarmPackage&) = delete;

  // The alarm manager, its client and the store run until Close. Main thread, before the other threads start.
  TResult<> OpenStore(const std::filesystem::path& file, int retentionDays);
  void Start() { FManager.Start(); }  // real time: the package's event thread
  // Main thread, after the other threads have ended. What waits for the store is written first.
  void Close();

  [[nodiscard]] TNcAlarmManager& Manager() { return FManager; }
  // With a line of the journal.
  void Raise(TNcAlarmRecord record);
  void ClearAll();

  [[nodiscard]] TAlarmStore* Store() { return FStore.get(); }  // null: none is open
  // True when no alarm event is on its way, to a consumer or to the store either.
  [[nodiscard]] bool Settled() const;

 private:
  IMachineObserver& FJournal;
  TVirtualClock* FClock;  // null: real time, or closed
  std::size_t FTimer = 0;
  TNcAlarmManager FManager;
  TInstalled<TNcAlarms> FInstalled{FManager};
  std::shared_ptr<TAlarmStore> FStore;
};

}  // namespace ixocontroller
