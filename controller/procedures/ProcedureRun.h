// One procedure on a controller of its own, from standby to its report: the one way in which anything is run. It prints
// nothing; what happens is told through the logs' sinks and callbacks, and left in a report.
//
// Main thread; with Realtime, SIGINT, SIGTERM, SIGHUP and SIGPIPE stop the procedure meanwhile and until the controller
// has ended.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/SignalStop.h"
#include "controller/alarms/RunAlarms.h"
#include "controller/procedures/StepWatch.h"

namespace ixocontroller {

// What disturbs a run on purpose.
struct TRunTriggers {
  std::optional<std::uint64_t> StopAt;   // ms after the procedure was entered
  std::optional<std::uint64_t> AlarmAt;  // the same
  std::vector<std::string> Faults;       // of the machine, by name
};

struct TRunEnd {
  // In JSON: success, no-light, gas-open, collision, stopped, paused, alarm, error, refused, unfinished.
  const char* Name = "";
  std::string Words;
};

// What is left of a run when its controller has ended.
struct TRunReport {
  TRunEnd End;
  bool Dark = false;  // laser and emission are off
  std::uint32_t Collisions = 0;
  std::string Path, Fault, Cause;  // of the outcome; empty when the procedure was never entered
  std::string At;                  // the step where it ended without success, for the operator
  std::int32_t NextState = nsStandby;
  std::uint64_t StartMs = 0;    // monotonic, when the run began
  std::uint64_t EnteredMs = 0;  // monotonic, when the procedure was entered; StartMs when it never was
  std::uint64_t EndMs = 0;      // monotonic, a moment after the end
  std::uint64_t DurationMs = 0;
  std::vector<TStepSpan> Steps;
  std::vector<std::string> Notes;  // for the operator
  std::vector<TRunAlarm> Alarms;
  std::vector<std::string> Timeline;
  nlohmann::ordered_json TimelineJson;
  std::vector<TSignal> Signals;
  std::vector<std::string> Journal;
  std::optional<TProblem> Problem;  // how it ended, at which step and why; none of a success

  [[nodiscard]] bool Success() const { return std::string_view(End.Name) == "success" && Dark; }
};

// Until the machine has acknowledged standby, in real time with `look` called every few ms; the controller's threads
// run then. Throws EProblem when it does not.
void WaitForStandby(TController& controller, const std::function<void()>& look = {});

class TProcedureRun {
 public:
  // `listen`: the levels of the diagnostic channel that the sinks get. Throws EProblem for files that cannot be used.
  explicit TProcedureRun(TControllerOptions options, TRunTriggers triggers = {}, TDiagMask listen = 0);
  ~TProcedureRun() { FOnLook = nullptr; }  // the controller's end still moves the virtual clock
  TProcedureRun(const TProcedureRun&) = delete;
  TProcedureRun& operator=(const TProcedureRun&) = delete;

  [[nodiscard]] TController& Controller() { return FController; }
  [[nodiscard]] const TStepSpans& Steps() const { return FSteps; }
  // Called with each ms of machine time (real time: every 5 ms) from then on; it must not wait.
  void OnLook(std::function<void(std::uint64_t nowMs)> look) { FOnLook = std::move(look); }
  // Virtual time: called before and after each pass of the state framework while the procedure runs.
  void OnPass(std::function<void()> before, std::function<void()> after);

  // Once, and first: until the machine has acknowledged standby. Throws EProblem when it does not.
  void Ready();
  // Once, after Ready. A procedure longer than `limitMs` is stopped and has `endWithinMs` to end. Throws EProblem when
  // the controller refuses the root.
  void Drive(std::shared_ptr<IStateMotion> root, std::uint64_t limitMs, std::uint64_t endWithinMs = kEndWithinMs);
  // Ready, then what `make` makes on the ready machine, its steps watched, and `tailMs` more of machine time.
  TRunReport Run(const std::function<TStepPtr()>& make, std::uint64_t limitMs, std::uint64_t tailMs = 50);

 private:
  // The diagnostic channel is the process's; whatever ends the run, it is silent afterwards.
  struct TListening {
    explicit TListening(TDiagMask mask) { TLogService::Listen(mask); }
    ~TListening() { TLogService::Listen(0); }
  };
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};
  static constexpr std::uint64_t kEndWithinMs = 5'000;

  void Entered(std::int32_t from, std::int32_t to);
  void Watch(std::uint64_t nowMs);
  void CheckSignal();
  template <class Done>
  bool WaitFor(std::uint64_t limitMs, Done done);
  [[nodiscard]] TRunEnd HowItEnded(const TMachineSnapshot& shown);
  TRunReport Report();

  const TListening FListening;
  const TRunTriggers FTriggers;
  std::function<void(std::uint64_t)> FOnLook;
  std::function<void()> FBeforePass, FAfterPass;
  TStepSpans FSteps;
  std::atomic<std::uint64_t> FEnteredAt{kNever};
  std::atomic<std::uint64_t> FLeftAt{kNever};
  std::uint64_t FStartMs = 0;
  bool FInTime = true;
  bool FStopSent = false;
  bool FAlarmSent = false;
  std::optional<std::uint64_t> FSignalled;  // when
  std::optional<TSignalStop> FSignal;
  TController FController;  // ends first: its clock and its threads call in here
  TRunAlarms FAlarms{FController.Alarms()};
};

}  // namespace ixocontroller
