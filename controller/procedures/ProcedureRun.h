// One procedure on a session of its own, from the first pass to its report: what `ixocut shot` and `ixocut run` share.
// Main thread; with Realtime, SIGINT and SIGTERM stop the procedure meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/SignalStop.h"
#include "controller/alarms/RunAlarms.h"
#include "controller/procedures/StepWatch.h"
#include "ixocut/Console.h"

namespace CLI {
class App;
}

namespace ixocontroller {
using namespace ixocut;

// What the command line says about a run, whatever runs.
struct TRunSettings {
  std::optional<std::uint64_t> StopAt;   // ms after the procedure was entered
  std::optional<std::uint64_t> AlarmAt;  // the same
  std::vector<std::string> Faults;       // of the machine, by name
  bool Realtime = false;
  bool Json = false;
  bool Trace = false;
  std::uint64_t Seed = 1;
  std::optional<std::filesystem::path> Machine, State;
  std::string Language = "zh";
};

// `what` is what the help calls a run: "shot".
void AddRunSettings(CLI::App& command, TRunSettings& settings, const std::string& what);

struct TRunEnd {
  const char* Name = "";  // in JSON: success, stopped, paused, alarm, error, refused, unfinished
  std::string Words;
};

// What is left of a run when its session has ended.
struct TRunReport {
  TRunEnd End;
  bool Dark = false;        // laser and emission are off
  std::string Path, Fault;  // of the outcome; empty when the procedure was never entered
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

  [[nodiscard]] bool Success() const { return std::string_view(End.Name) == "success" && Dark; }
};

class TProcedureRun {
 public:
  // Throws EProblem for files that cannot be used. `console` outlives the run.
  TProcedureRun(const TRunSettings& settings, TConsole& console);
  TProcedureRun(const TProcedureRun&) = delete;
  TProcedureRun& operator=(const TProcedureRun&) = delete;

  [[nodiscard]] TController& Controller() { return FController; }
  [[nodiscard]] const TStepSpans& Steps() const { return FSteps; }
  // Called with each ms of machine time (real time: every 5 ms). Set before Run; it must not wait.
  void OnLook(std::function<void(std::uint64_t nowMs)> look) { FOnLook = std::move(look); }

  // Once. `make` is asked when the machine is ready; `title` is said before. A run longer than `limitMs` is stopped.
  TRunReport Run(const std::string& title, const std::function<TStepPtr()>& make, std::uint64_t limitMs);

 private:
  // The diagnostic channel is the process's; whatever ends the run, it is silent afterwards.
  struct TListenEnd {
    ~TListenEnd() { TLogService::Listen(0); }
  };
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};

  void Entered(std::int32_t from, std::int32_t to);
  void Watch(std::uint64_t nowMs);
  void CheckSignal();
  template <class Done>
  bool WaitFor(std::uint64_t limitMs, Done done);
  [[nodiscard]] TRunEnd HowItEnded(bool ended);
  TRunReport Report(bool ended);

  const TListenEnd FListenEnd;
  const TRunSettings& FSettings;
  TConsole& FConsole;
  std::function<void(std::uint64_t)> FOnLook;
  TStepSpans FSteps;
  std::atomic<std::uint64_t> FEnteredAt{kNever};
  std::atomic<std::uint64_t> FLeftAt{kNever};
  std::uint64_t FStartMs = 0;
  bool FStopSent = false;
  bool FAlarmSent = false;
  bool FSignalled = false;
  const TSignalStop* FSignal = nullptr;
  TController FController;  // ends first: its clock and its threads call in here
  TRunAlarms FAlarms{FController.Alarms()};
};

}  // namespace ixocontroller
