// The runs of a controller that stays up: one at a time, each with its report; the last ones are at hand, at most kKept
// and kKeptBytes of them. Interface thread, unless a line says otherwise.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/access/Asker.h"
#include "controller/procedures/PlannedPath.h"
#include "controller/procedures/Procedures.h"
#include "controller/runs/MotionTrace.h"
#include "controller/runs/RunWatch.h"
#include "controller/service/Events.h"
#include "controller/service/RunJob.h"
#include "controller/service/Status.h"

namespace ixocontroller {

inline constexpr std::uint64_t kAttendMs = 10'000;  // how long a run may be without anybody who attends it

struct TRunRequest {
  std::string Procedure;  // its name, or the sequence's
  bool Sequence = false;
  std::vector<TMotionCall> Calls;   // checked
  std::uint64_t LimitMs = 600'000;  // machine time after which it is stopped
  TRunTriggers Triggers;
  bool SaveCalibration = false;  // a calibration of the height sensor is stored
  bool Detached = false;
  std::shared_ptr<IRunJob> Job;       // what runs instead of a procedure; null: none
  nlohmann::ordered_json JobParams;   // with which it was asked for
  std::optional<std::uint32_t> Ends;  // TNcStateFramework::EndsAsked when it was decided upon; none: now
  // The connection that attends it; 0: the starter's own. A run that is started without one is detached.
  std::uint64_t AttendedBy = 0;
};

// What is known of a run: with its report once it has ended, and never changed from then on.
struct TRunRecord {
  std::uint64_t Id = 0;
  std::string Procedure;
  bool Sequence = false;
  nlohmann::ordered_json Params;  // of a procedure an object, of a sequence a list of calls
  std::vector<TMotionCall> Calls;
  std::vector<TPoint2> Plan;  // where XY will be sent, as far as its steps have known until now
  TAsker Starter;
  bool Detached = false;
  std::string Language;  // of the report's words
  std::int64_t StartUnixMs = 0;
  std::int64_t EndUnixMs = 0;  // 0: it runs
  TRunReport Report;
  nlohmann::ordered_json Result;  // a job's; null: it was none
  TMotionTrace Trace{kTracePoints};
  TMachineSnapshot First, Last;  // the machine before it and at its end

  static constexpr std::size_t kTracePoints = 10'000;
  // Does not fail.
  [[nodiscard]] std::size_t Bytes() const;  // about
};
using TRunRecordPtr = std::shared_ptr<const TRunRecord>;

// Of a procedure an object, of a sequence a list of calls. Does not fail.
[[nodiscard]] nlohmann::ordered_json RunParams(bool sequence, const std::vector<TMotionCall>& calls);
// How a run ended, in the language of who asks as far as its texts are in the catalogue by themselves; else as it is.
// Any thread; does not fail.
[[nodiscard]] TProblem RetoldProblem(const TProblem& problem);
// What is known of it without its report; "outcome" is null while it runs.
[[nodiscard]] nlohmann::ordered_json RunHeadJson(const TRunRecord& record);
// With its report as `ixocut run --json` has it, and the lines that the command shows behind the log. Does not fail.
[[nodiscard]] nlohmann::ordered_json RunJson(const TRunRecord& record);
// [[ms from the start, x, y, z, focus], ...] Does not fail.
[[nodiscard]] nlohmann::ordered_json TraceJson(const TRunRecord& record);

// What goes wrong in a run stands in its report; what is only asked does not fail. What Pass throws is logged by the
// service.
class TRunner {
 public:
  static constexpr std::size_t kKept = 20;
  static constexpr std::size_t kKeptBytes = 16U << 20U;

  // All of them outlive it. Before the state thread runs.
  TRunner(TController& controller, TStepSpans& steps, TPlannedPath& path, TEventRing& events);
  TRunner(const TRunner&) = delete;
  TRunner& operator=(const TRunner&) = delete;

  // Called when a run begins, and gives it its number; without one, or with 0, they count from 1. Set before the first
  // run.
  void OnBegin(std::function<std::uint64_t(const TRunRecord&)> told) { FBegun = std::move(told); }
  // Called when another run is under way, or none, before an event tells of it; set before the first run. Throws
  // nothing.
  void OnCurrent(std::function<void()> told) { FCurrentTold = std::move(told); }
  // Called with each run that has ended, when the next one may begin; set before the first run.
  void OnEnd(std::function<void(const TRunRecordPtr&)> told) { FEnded.push_back(std::move(told)); }

  // The number of the run that begins. Refused while another one runs, and as TController::Start does. Throws what
  // making its steps throws.
  [[nodiscard]] TResult<std::uint64_t> Start(TRunRequest request, const TAsker& who);
  // Whether Start would take it now; throws as it does.
  [[nodiscard]] TResult<> MayStart(const TRunRequest& request) const;
  [[nodiscard]] bool Busy() const { return FPhase != TPhase::Idle; }
  [[nodiscard]] const TRunRecord* Current() const { return FRun.get(); }  // null: none
  [[nodiscard]] nlohmann::ordered_json CurrentJson() const;  // what is known of it, and its steps until now
  // That have ended, the newest last.
  [[nodiscard]] const std::deque<TRunRecordPtr>& Records() const { return FRecords; }
  [[nodiscard]] TRunRecordPtr Find(std::uint64_t id) const;  // that has ended; null: gone, or never was
  // From now on this connection attends the run.
  void Attend(std::uint64_t connection);
  // Who has the lease has given a sign of life then, and so attends as well; real time.
  void Attended(std::uint64_t realMs) { FSignAt = realMs; }
  void Connected(std::uint64_t connection) { FConnections.insert(connection); }
  void Disconnected(std::uint64_t connection);
  [[nodiscard]] bool AnyConnected() const { return !FConnections.empty(); }
  // Somebody asked to stop.
  void StopAsked(std::string cause) { FWatch.StopAsked(std::move(cause)); }
  void CutOff(std::string cause, std::uint64_t askedMs) { FWatch.CutOff(std::move(cause), askedMs); }

  // --- for the service ---
  void Changed(std::int32_t from, std::int32_t to) { FWatch.Changed(from, to); }  // the state thread
  // Looks at the machine: in virtual time with each ms of the clock, else with each Pass.
  void Sample(std::uint64_t nowMs);
  // At least every 20 ms of real time, and in virtual time behind each pass.
  void Pass();
  void Show(TStatus& status) const;
  // The service ends: what has not ended is closed as it stands.
  void Close();

 private:
  enum class TPhase : std::uint8_t { Idle, Runs, Settles, Ends };

  [[nodiscard]] TResult<> NothingRuns() const;
  void Step(std::uint64_t nowMs);
  void TellSteps();
  void TellPlan();
  void WatchAttendance();
  void Finish();
  void Keep(const TRunRecordPtr& record);
  [[nodiscard]] std::optional<std::uint64_t> AloneMs() const;  // how long nobody has attended

  TController& FController;
  TStepSpans& FSteps;
  TPlannedPath& FPath;
  TEventRing& FEvents;
  TRunWatch FWatch;
  std::function<std::uint64_t(const TRunRecord&)> FBegun;
  std::function<void()> FCurrentTold;
  std::vector<std::function<void(const TRunRecordPtr&)>> FEnded;
  std::uint64_t FIds = 0;
  std::deque<TRunRecordPtr> FRecords;

  TPhase FPhase = TPhase::Idle;
  std::shared_ptr<TRunRecord> FRun;
  std::shared_ptr<IRunJob> FJob;
  std::uint64_t FLimitMs = 0;
  bool FTimeOver = false;
  std::uint64_t FUntilMs = 0;  // of the phase
  std::uint64_t FToldSteps = 0;
  std::uint64_t FToldPath = 0;

  std::set<std::uint64_t> FConnections;
  std::uint64_t FAttender = 0;  // 0: it needs none
  std::uint64_t FSignAt = 0;    // the lease's last sign of life, real time
  std::uint64_t FAloneAt = 0;   // real time, since when the attender's connection is gone; 0: it is there
};

}  // namespace ixocontroller
