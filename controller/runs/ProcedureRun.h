// One procedure on a controller of its own, from standby to its report: the one way in which anything is run. It prints
// nothing; what happens is told through the logs' sinks and callbacks, and left in a report.
//
// Main thread; with Realtime, SIGINT, SIGTERM, SIGHUP and SIGPIPE stop the procedure meanwhile and until the controller
// has ended.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "controller/Controller.h"
#include "controller/process/SignalStop.h"
#include "controller/runs/RunWatch.h"

namespace ixocontroller {

// Until the machine has acknowledged standby, in real time with `look` called every few ms; the controller's threads
// run then. Throws EProblem when it does not.
void WaitForStandby(TController& controller, const std::function<void()>& look = {});

// A failure of the machine or of a step ends the procedure, and stands in its report.
class TProcedureRun {
 public:
  // `listen`: the levels of the diagnostic channel that the sinks get. Throws EProblem for files that cannot be used.
  explicit TProcedureRun(TControllerOptions options, TRunTriggers triggers = {}, TDiagMask listen = 0);
  ~TProcedureRun();
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
  static constexpr std::uint64_t kEndWithinMs = 5'000;

  void Watch(std::uint64_t nowMs);
  void CheckSignal();
  void SetLatch();
  template <class Done>
  bool WaitFor(std::uint64_t limitMs, Done done);

  const TListening FListening;
  std::function<void(std::uint64_t)> FOnLook;
  std::function<void()> FBeforePass, FAfterPass;
  TStepSpans FSteps;
  std::optional<std::uint64_t> FSignalled;  // when
  std::optional<TSignalStop> FSignal;
  TController FController;
  TRunWatch FWatch{FController, FSteps};
};

}  // namespace ixocontroller
