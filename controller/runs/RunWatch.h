// One run on a controller that lives, seen from outside: when the procedure was entered and left, what disturbs it on
// purpose, how it ended, and its report. It serves one run after the other, for the program that makes a controller
// for each and for the one that stays up.
//
// One thread, the one that starts procedures, unless a line says otherwise.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/alarms/RunAlarms.h"
#include "controller/runs/StepWatch.h"

namespace ixocontroller {

class TTimeline;

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

// What is left of a run when it has ended.
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

  // False: why stands in Problem.
  [[nodiscard]] bool Success() const { return std::string_view(End.Name) == "success" && Dark; }
};

// Nothing of it fails: how a run has failed stands in its report.
class TRunWatch {
 public:
  // Controller and steps outlive it; who watches steps has made them the controller's observer.
  TRunWatch(TController& controller, TStepSpans& steps) : FController(controller), FSteps(steps) {}

  // With each change of state; the state thread.
  void Changed(std::int32_t from, std::int32_t to);

  // A run begins, and the one before is forgotten: before its procedure is started, and while none runs.
  void Begin(TRunTriggers triggers);
  // Lets happen what is due. In virtual time also from within a step of the clock.
  void Look(std::uint64_t nowMs);
  void TimeIsOver() { FInTime = false; }  // it has had all its time
  // Everything was stopped past the procedure, asked for at that time of the clock: that is why it ended, whatever its
  // step says of it, unless it had been stopped or had ended before.
  void CutOff(std::string cause, std::uint64_t askedMs);
  // Also one that was not entered any more was stopped: then because of this, the first that is told.
  void StopAsked(std::string cause = {});
  [[nodiscard]] std::uint64_t StartMs() const { return FStartMs; }
  void Forget() { FAlarms.reset(); }  // it has not begun after all
  // What it has come to. Alarms are not counted for it from then on.
  TRunReport Report();

 private:
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};

  [[nodiscard]] TRunEnd HowItEnded(const TRunReport& report) const;
  void FindCollisions(TRunReport& report, TMachineSnapshot& shown) const;
  void Note(TRunReport& report, const TMachineSnapshot& shown) const;
  void NoteLight(TRunReport& report, const TTimeline& timeline) const;

  TController& FController;
  TStepSpans& FSteps;
  TRunTriggers FTriggers;
  std::atomic<std::uint64_t> FEnteredAt{kNever};
  std::atomic<std::uint64_t> FLeftAt{kNever};
  std::uint64_t FStartMs = 0;
  std::uint32_t FCollisionsBefore = 0;
  std::uint64_t FDroppedBefore = 0;
  bool FInTime = true;
  bool FStopAsked = false;
  std::string FStopCause;
  std::string FCutOff;
  bool FStopSent = false;
  bool FAlarmSent = false;
  std::optional<TRunAlarms> FAlarms;
};

}  // namespace ixocontroller
