// One controller process in one object: clock, services, state framework, simulated machine, library and supervisor,
// made in that order and ended in reverse. The shot, the sweep and the tests all run on this.
//
// In virtual time everything runs on the caller's thread, pass by pass. In real time the state loop, the log and the
// supervisor have threads of their own; the caller then only starts, stops and waits.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "controller/Supervisor.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/CallGate.h"
#include "machines/simulated/Machine.h"

namespace ixocontroller {

struct TControllerOptions {
  std::filesystem::path MachineFile;  // empty: every value has its default
  std::filesystem::path LocaleFolder;
  std::string Language = "zh";
  std::uint64_t Seed = 1;
  bool Realtime = false;
  bool SafeEntry = true;
  bool Supervisor = true;
  std::size_t LogCapacity = 1024;     // lines
  std::filesystem::path AlarmFolder;  // holds <language>.json; empty: no alarm is defined
  // Runs the alarm manager, its client and this store. Real time only. Empty: alarms end in the permissions.
  std::filesystem::path AlarmDb;
  int AlarmRetentionDays = 0;  // 0: closed rows stay
  TSimParts Parts;
  std::function<void(TSimConfig&)> Adjust;  // changes the machine after its file was read; may be empty
  std::vector<ILogSink*> Sinks;             // not owned, outlive the session
};

class TController {
 public:
  // Throws EProblem, exit code 3, when the machine file cannot be used.
  explicit TController(TControllerOptions options);
  ~TController();
  TController(const TController&) = delete;
  TController& operator=(const TController&) = delete;

  // Hands the root to the controller and requests its state. False, with the reason, while a procedure or a key
  // command's state runs or a device has not acknowledged switching off. Any thread but the one that is inside a tick
  // of a running procedure.
  [[nodiscard]] bool Start(std::shared_ptr<IStateMotion> root, std::string* reason = nullptr);
  [[nodiscard]] bool Running() const;

  // Virtual time: one pass, the logs drained, the clock moved on by what the pass asked for.
  void RunPass();
  // Virtual time: passes until no procedure runs, or `limitMs` of machine time are over (then false).
  bool RunToEnd(std::uint64_t limitMs);
  // Virtual time: passes for this long.
  void RunFor(std::uint64_t ms);

  // Real time: starts the threads.
  void StartThreads();
  // Ends the state thread; the others end with the session.
  void StopThreads() { FStateThread.reset(); }

  TVirtualClock* VirtualClock() { return FVirtual ? &*FVirtual : nullptr; }
  TNcStateFramework& Framework() { return *FFramework; }
  TSimMachine& Machine() { return *FMachine; }
  TCallGate& Gate() { return FGate; }
  TCallGate& LogGate() { return FLogGate; }
  TLogService& Logs() { return FLogs; }
  TNcParams& Params() { return FParams; }
  TNcForbidTypeRegistry& Forbidden() { return FForbidden; }
  TWindowTable& Windows() { return FWindows; }
  TNcSysInts& SysInts() { return FSysInts; }
  TJogSections& Jog() { return FJog; }
  TLibrary& Library() { return *FLibrary; }
  TAlarmStore* AlarmStore() { return FAlarmStore.get(); }  // null without AlarmDb
  // True when no alarm event is on its way to a consumer or to the store.
  [[nodiscard]] bool AlarmsSettled();
  TSupervisor* Supervisor() { return FSupervisor ? &*FSupervisor : nullptr; }
  TCustomMotionState& MotionState();
  // Called on the state thread after each change of state. Set before the loop runs.
  void OnState(TNcStateFramework::TObserver observer) { FOnState = std::move(observer); }
  // Locale entries that were refused, and why the language could not be selected.
  [[nodiscard]] const std::vector<std::string>& Notices() const { return FNotices; }

 private:
  void LoadMachine();
  void MakeSupervisor();
  void MakeAlarms();

  const TControllerOptions FOptions;
  std::vector<std::string> FNotices;
  TNcStateFramework::TObserver FOnState;

  std::optional<TVirtualClock> FVirtual;
  TSystemClock FReal;
  TInstalled<IClock> FClockInstalled;
  // Before the logs, which write their last lines when they end.
  TCallGate FLogGate{false};
  std::vector<std::unique_ptr<TGatedSink>> FGatedSinks;
  TLogService FLogs{FOptions.LogCapacity};
  TInstalled<TLogService> FLogsInstalled{FLogs};
  TAppSys FApp;
  TInstalled<TAppSys> FAppInstalled{FApp};
  TNcParams FParams;
  TInstalled<TNcParams> FParamsInstalled{FParams};
  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FConfigInstalled{FConfig};
  TJogSections FJog;
  TInstalled<TJogSections> FJogInstalled{FJog};
  TNcForbidTypeRegistry FForbidden;
  TInstalled<TNcForbidTypeRegistry> FForbiddenInstalled{FForbidden};
  TWindowTable FWindows;
  TInstalled<TNcWindows> FWindowsInstalled{FWindows};
  TNcSysInts FSysInts;
  TInstalled<TNcSysInts> FSysIntsInstalled{FSysInts};
  TLocaleReader FLocale;
  TInstalled<TLocaleReader> FLocaleInstalled{FLocale};
  TLocaleManager FLocaleManager{FOptions.Language};
  TInstalled<TLocaleManager> FLocaleManagerInstalled{FLocaleManager};
  TNcRegistry FRegistry;
  TInstalled<TNcRegistry> FRegistryInstalled{FRegistry};
  TCallGate FGate;

  TSimConfig FSimConfig;
  TSupervisorLimits FLimits;
  std::shared_ptr<TAlarmStore> FAlarmStore;
  std::optional<TLibrary> FLibrary;
  std::optional<TNcStateFramework> FFramework;
  std::optional<TSimMachine> FMachine;
  std::optional<TSupervisor> FSupervisor;
  std::optional<TRoundThread> FMachineThread;
  std::optional<TSupervisorThread> FSupervisorThread;
  std::optional<TNcStateThread> FStateThread;
};

}  // namespace ixocontroller
