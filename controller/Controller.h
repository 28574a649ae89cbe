// One controller process in one object: clock, services, state framework, alarms, machine, library and supervisor, made
// in that order and ended in reverse. The shot, the sweep and the tests all run on this.
//
// In virtual time everything runs on the caller's thread, pass by pass. In real time the state loop, the log and the
// supervisor have threads of their own; the caller then only starts, stops and waits.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "controller/Journal.h"
#include "controller/keys/KeyCommands.h"
#include "controller/safety/EffectWatch.h"
#include "controller/safety/Supervisor.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/motion/Ustatemotionbase.h"
#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {
class TAlarmStore;
}

namespace ixocontroller {

class TGasDescents;

// What a process whose thread hangs exits with: as for any device that cannot be used.
inline constexpr int kExitHangs = 3;

struct TControllerOptions {
  std::vector<TMachineFactory> Machines;  // what the machine file may name; at least one
  std::filesystem::path MachineFile;      // empty: every value has its default
  std::filesystem::path LocaleFolder;
  std::string Language = "zh";
  std::uint64_t Seed = 1;
  bool Realtime = false;
  // Virtual time: this controller will save the machine file. It keeps the file to itself while it lives, as every
  // controller in real time does (TXmlConfig::Hold).
  bool SavesMachineFile = false;
  // Where the virtual clock's two counts start.
  std::uint32_t FirstTick = TVirtualClock::kFirstTick;
  std::uint64_t FirstMs = 0;
  bool SafeEntry = true;
  bool Supervisor = true;
  std::size_t LogCapacity = 1024;     // lines
  std::filesystem::path AlarmFolder;  // holds <language>.json; empty: no alarm is defined
  // Runs the alarm manager, its client and this store. Empty: alarms end in the package's events.
  std::filesystem::path AlarmDb;
  // Told when the store cannot be written, is another program's or had to be made again, and at the end what it does
  // not have; any thread. What is not stored then goes to EndFailed too. Null: logged only.
  std::function<void(const TProblem& problem)> AlarmsTold;
  int AlarmRetentionDays = 0;    // 0: closed rows stay
  std::vector<ILogSink*> Sinks;  // not owned, outlive the controller
  // Told when a device has not gone off at the end, and the laser was latched for it, and when alarms are not stored;
  // null: it is logged only. With `processEnds` the state thread has not come back from the device: the process ends
  // with exit code 3 at once.
  std::function<void(const TProblem& problem, bool processEnds)> EndFailed;
};

// The thread that has made it calls, unless a line says otherwise. What a step or a device throws ends the procedure
// and comes out of no pass; what is only asked for does not fail.
class TController {
 public:
  // Throws EProblem (pbUnusable) when a file or the machine cannot be used, and (pbRefused) when another process has
  // kept the machine file to itself for 2 s; then nothing is installed. An alarm store keeps no machine from starting.
  explicit TController(TControllerOptions options);
  ~TController();
  TController(const TController&) = delete;
  TController& operator=(const TController&) = delete;

  // Hands the root to the controller and requests its state. Refused while a procedure or a key command's state runs, a
  // stop has not come to its end, or a device has not acknowledged switching off; and what needs the laser while that
  // is not fitted, latched or forbidden. A refused start sets its success flag to false, unless the procedure that runs
  // has the same. Any thread but the one that is inside a tick of a running procedure; of two that start at once one
  // is refused. Throws what making a step throws.
  [[nodiscard]] TResult<> Start(std::shared_ptr<IStateMotion> root);
  // Whether Start would take the root now. Any thread.
  [[nodiscard]] TResult<> MayStart(IStateMotion& root) const;
  [[nodiscard]] bool Running() const;
  // Whether the steps of the procedure that ended last had their effect.
  [[nodiscard]] const TEffectWatch& Effects() const;
  // Resets the laser's latch (LaserLatch.h); refused also while the supervisor's reason to trip it lasts. Any thread.
  TResult<> ResetLatch();

  // Virtual time: one pass, the logs drained, the clock moved on by what the pass asked for.
  void RunPass();
  // Virtual time: passes until no procedure runs, or `limitMs` of machine time are over (then false).
  bool RunToEnd(std::uint64_t limitMs);
  // Virtual time: passes for this long.
  void RunFor(std::uint64_t ms);

  // Real time: starts the threads.
  void StartThreads();
  // Ends the state thread as the controller's end does (see controller/safety/SafeEnd.h); the others end with the
  // controller.
  void StopThreads();

  // With a line of the journal, and the laser's latch looks at it at once. Any thread.
  void RaiseAlarm(TNcAlarmRecord record);
  // Those that RaiseAlarm has raised; what a device reports ends with its cause. Any thread.
  void ClearAlarms();

  [[nodiscard]] TVirtualClock* VirtualClock();  // null: real time
  [[nodiscard]] TNcStateFramework& Framework();
  [[nodiscard]] IMachine& Machine();
  // What the machine allows, as its file said when it was made.
  [[nodiscard]] const TMachineLimits& Limits() const;
  [[nodiscard]] const std::string& Driver() const;  // the machine's name
  [[nodiscard]] TJournal& Journal();
  [[nodiscard]] TKeyCommands& Keys();
  [[nodiscard]] TNcAlarmManager& Alarms();
  [[nodiscard]] TLogService& Logs();
  [[nodiscard]] TNcParams& Params();
  [[nodiscard]] TNcForbidTypeRegistry& Forbidden();
  [[nodiscard]] TWindowTable& Windows();
  [[nodiscard]] TNcSysInts& SysInts();
  [[nodiscard]] TJogSections& Jog();
  [[nodiscard]] TLibrary& Library();
  [[nodiscard]] TGasDescents& Descents();   // controller/gasvalve/GasDescent.h
  [[nodiscard]] TAlarmStore* AlarmStore();  // null without AlarmDb
  // True when no alarm event is on its way to a consumer or to the store.
  [[nodiscard]] bool AlarmsSettled();
  [[nodiscard]] TSupervisor* Supervisor();  // null: there is none
  [[nodiscard]] TCustomMotionState& MotionState();
  // What others are told who want the machine file for themselves, beside this process's number. Any thread.
  void NoteAddress(const std::string& url);
  // Called on the state thread after each change of state. Set before the loop runs.
  void OnState(TNcStateFramework::TObserver observer);
  // Locale entries that were refused, why the language could not be selected, and why the machine file cannot be saved.
  [[nodiscard]] const std::vector<std::string>& Notices() const;

 private:
  struct TParts;

  void LoadConfig();
  void LoadTexts();
  void MakeMachine();
  void MakeSupervisor();

  const TControllerOptions FOptions;
  const std::unique_ptr<TParts> FParts;
};

}  // namespace ixocontroller
