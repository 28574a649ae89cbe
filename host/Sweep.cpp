#include "host/Sweep.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "host/GasSweep.h"
#include "host/Procedures.h"
#include "host/Session.h"
#include "motion/Usequence.h"
#include "simulator/Oracle.h"
#include "simulator/Random.h"
#include "support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kReasons[] = {srStop, 2, srPause, srAlarm, srError};
constexpr std::uint64_t kCutMs = 10'000;    // machine time after which a procedure that still runs is stopped
constexpr std::uint64_t kSettleMs = 3'000;  // for axes to come to rest
constexpr std::size_t kShownViolations = 50;
constexpr std::int32_t kProbeId = 999;

enum class TEmission : std::uint8_t { Configured, AtOnce, AfterOnePoll, AfterEightPolls, Never };
constexpr TEmission kEmissions[] = {TEmission::Configured, TEmission::AtOnce, TEmission::AfterOnePoll,
                                    TEmission::AfterEightPolls, TEmission::Never};

enum class TCall : std::uint8_t { None, Stop, Alarm, SecondProcedure };

// One thing that goes wrong in one run.
struct TPoint {
  std::optional<std::uint32_t> AbortTick;  // after so many ticks
  std::int32_t Reason = srStop;
  TEmission Emission = TEmission::Configured;
  std::uint64_t DeviceCall = 0;  // counted from the start of the procedure; 0: none
  bool Sticky = false;
  bool Refused = false;  // the device ignores the call instead of throwing
  TCall Callback = TCall::None;
  std::uint64_t SinkCall = 0;
  bool SafeEntry = true;

  [[nodiscard]] std::string Text() const {
    std::string text;
    if (AbortTick) text += Format("reason %d at tick %u, ", Reason, *AbortTick);
    if (Emission != TEmission::Configured) text += Format("emission case %d, ", static_cast<int>(Emission));
    if (DeviceCall)
      text += Format("device call %llu%s", static_cast<unsigned long long>(DeviceCall), Sticky ? " sticky" : "");
    if (Refused) text += " refused";
    if (Callback != TCall::None) text += Format(" callback %d", static_cast<int>(Callback));
    if (SinkCall) text += Format("log line %llu", static_cast<unsigned long long>(SinkCall));
    if (!SafeEntry) text += " without safe entry";
    return text.empty() ? "undisturbed" : text;
  }
};

struct TRunFacts {
  std::vector<std::string> Violations;
  std::uint32_t Ticks = 0;
  std::uint64_t DeviceCalls = 0;
  std::uint64_t SinkCalls = 0;
};

struct TNullSink final : ILogSink {
  void Write(const TLogRecord&) override {}
};

// The diagnostic channel is listened to only where its sink is what is tried.
class TListening {
 public:
  explicit TListening(bool on) { TLogService::Listen(on ? kDiagAll : 0); }
  ~TListening() { TLogService::Listen(0); }
  TListening(const TListening&) = delete;
  TListening& operator=(const TListening&) = delete;
};

// One run of one procedure with one thing going wrong.
class TSweepRun {
 public:
  TSweepRun(const TProcedure& procedure, const TPoint& point, bool tracing)
      : FProcedure(procedure), FPoint(point), FListening(tracing), FSession(Options()) {
    if (procedure.Prepare) procedure.Prepare(FSession.Machine());
    ArrangeEmission();
    FSession.RunPass();  // power-up
    FDeviceBase = FSession.Gate().Calls();
    FSinkBase = FSession.LogGate().Calls();
    ArrangeFaults();
  }

  TRunFacts Run() {
    FTickBase = Watch().Tick.load();
    if (std::string reason; !FSession.Start(ShareRoot(FProcedure.Make()), &reason))
      Violation("cannot start: " + reason);
    RunProcedure();
    FFacts.Ticks = Watch().Tick.load() - FTickBase;
    FFacts.DeviceCalls = FSession.Gate().Calls() - FDeviceBase;
    FFacts.SinkCalls = FSession.LogGate().Calls() - FSinkBase;
    Settle();
    AskOracle();
    Probe();
    return std::move(FFacts);
  }

 private:
  TSessionOptions Options() {
    TSessionOptions options;
    options.SafeEntry = FPoint.SafeEntry;
    options.Supervisor = false;  // the procedures and the platform must be enough
    options.LogCapacity = 64;
    options.Sinks = {&FSink};
    options.Adjust = [](TSimConfig& config) {
      config.Physics.EmissionDelayMs = 30;
      config.Physics.EmissionJitterMs = 0;
    };
    return options;
  }

  TNcWatch& Watch() { return FSession.Framework().Watch(); }
  void Violation(std::string text) { FFacts.Violations.push_back(std::move(text)); }

  void ArrangeEmission() {
    TSimLaser& laser = *FSession.Machine().Laser();
    switch (FPoint.Emission) {
      case TEmission::Configured: break;
      case TEmission::AtOnce: laser.SetEmissionScript(TEmissionScript::AfterPolls(0)); break;
      case TEmission::AfterOnePoll: laser.SetEmissionScript(TEmissionScript::AfterPolls(1)); break;
      case TEmission::AfterEightPolls: laser.SetEmissionScript(TEmissionScript::AfterPolls(8)); break;
      case TEmission::Never: laser.SetEmissionScript(TEmissionScript::Never()); break;
    }
  }

  void ArrangeFaults() {
    if (FPoint.DeviceCall) {
      TGatePlan plan{.Call = FDeviceBase + FPoint.DeviceCall,
                     .Fault = FPoint.Refused ? gfRefuse : gfThrow,
                     .Sticky = FPoint.Sticky,
                     .HangMs = 0,
                     .Callback = {}};
      if (FPoint.Callback != TCall::None) {
        plan.Fault = gfCallback;
        plan.Callback = [this] { CallBack(); };
      }
      FSession.Gate().PlanSet(std::move(plan));
    }
    if (FPoint.SinkCall)
      FSession.LogGate().PlanSet(
          {.Call = FSinkBase + FPoint.SinkCall, .Fault = gfThrow, .Sticky = false, .HangMs = 0, .Callback = {}});
  }

  void CallBack() {
    switch (FPoint.Callback) {
      case TCall::None: break;
      case TCall::Stop: FSession.Framework().Stop(); break;
      case TCall::Alarm:
        FSession.Machine().RaiseAlarm({"TPSweep", "alarm out of a device call", 1}, {.Move = true});
        break;
      case TCall::SecondProcedure:
        if (FSession.Running() && FSession.Start(ShareRoot(MakeShot(1)))) Violation("a second procedure was started");
        break;
    }
  }

  void RunProcedure() {
    const std::uint64_t start = Clock().MonotonicMs();
    bool cut = false;
    while (FSession.Running()) {
      if (FPoint.AbortTick && !FAbortedAt && Watch().Tick.load() - FTickBase >= *FPoint.AbortTick &&
          FSession.Framework().CurrentState() == nsCustomMotion) {
        FAbortedAt = FSession.Gate().Journal().Size();
        FSession.Framework().Abort(FPoint.Reason);
      }
      FLastPass = FSession.Gate().Journal().Size();
      FSession.RunPass();
      const auto& framework = FSession.Framework();
      if (framework.CurrentState() == nsCustomMotion && framework.Busy() == bkNone && !framework.ChangePending())
        Violation("a tick left neither a busy condition nor a change of state");
      const std::uint64_t lasted = Clock().MonotonicMs() - start;
      if (lasted > kCutMs && !cut) {
        cut = true;
        if (!FAbortedAt) FAbortedAt = FSession.Gate().Journal().Size();
        FSession.Framework().Stop();
      } else if (lasted > kCutMs + kSettleMs) {
        return Violation("the procedure does not end");
      }
    }
  }

  [[nodiscard]] bool Moving() {
    const TSimSnapshot now = FSession.Machine().Snapshot();
    return now.AxesMoving || now.ZMoving || now.FocusMoving;
  }

  void Settle() {
    FSession.RunFor(200);
    for (std::uint64_t ms = 0; Moving() && ms < kSettleMs; ms += 100) FSession.RunFor(100);
  }

  void AskOracle() {
    const TMotionOutcome& outcome = FSession.Controller().Outcome();
    const auto entries = FSession.Gate().Journal().Entries();
    TExpectations expected;
    expected.Success = TCustomMotionState::GetExecOK(RootId(), false);
    expected.GasMayStayOn = expected.Success && FProcedure.LeavesGasOn;
    if (expected.Success != (outcome.Type == metSuccess)) Violation("the success flag contradicts the outcome");
    if (FPoint.AbortTick && FAbortedAt && expected.Success) Violation("aborted, and yet it ended with success");
    if (!expected.Success) expected.AbortIndex = AbortIndex(entries);
    if (const auto stuck = FSession.Gate().Stuck()) expected.ExemptDevice = stuck->first;
    for (std::string& text : CheckRun(entries, FSession.Machine().Snapshot(), expected)) Violation(std::move(text));
  }

  [[nodiscard]] std::int32_t RootId() const { return FProcedure.Make()->GetID(); }

  // Where the run stopped being normal: the abort, or the call that failed in the pass that ended it.
  [[nodiscard]] std::optional<std::size_t> AbortIndex(const std::vector<TJournalEntry>& entries) const {
    if (FAbortedAt) return FAbortedAt;
    const auto last = entries.begin() + static_cast<std::ptrdiff_t>(FLastPass);
    const auto threw = std::ranges::find(last, entries.end(), toThrew, &TJournalEntry::Outcome);
    if (threw == entries.end()) return std::nullopt;
    return static_cast<std::size_t>(threw - entries.begin()) + 1;
  }

  // The machine is repaired; the next procedure must run.
  void Probe() {
    FSession.Gate().PlanSet({});
    FSession.LogGate().PlanSet({});
    FSession.Machine().Alarms().ClearAll();
    FSession.Machine().Laser()->ResetLatch();
    FSession.RunFor(50);
    auto probe = MakeStepOf<TSmtSequence>(nullptr);
    probe->Define(kProbeId, "probe", {{612, "delay", nullptr}});
    if (std::string reason; !FSession.Start(ShareRoot(std::move(probe)), &reason))
      return Violation("not ready for the next procedure: " + reason);
    if (!FSession.RunToEnd(1000) || !TCustomMotionState::GetExecOK(kProbeId, false))
      Violation("the next procedure did not succeed");
  }

  const TProcedure& FProcedure;
  const TPoint& FPoint;
  TListening FListening;
  TNullSink FSink;
  TSession FSession;
  TRunFacts FFacts;
  std::uint64_t FDeviceBase = 0;
  std::uint64_t FSinkBase = 0;
  std::uint32_t FTickBase = 0;
  std::optional<std::size_t> FAbortedAt;
  std::size_t FLastPass = 0;  // where in the journal the last pass of the procedure begins
};

TRunFacts RunPoint(const TProcedure& procedure, const TPoint& point, bool tracing = false) {
  return TSweepRun(procedure, point, tracing).Run();
}

struct TDimension {
  const char* Name;
  bool Tracing;
  std::vector<TPoint> (*Points)(const TProcedure&);
};

std::vector<TPoint> TickPoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  const std::uint32_t ticks = RunPoint(procedure, {}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kReasons) points.push_back({.AbortTick = tick, .Reason = reason});
  return points;
}

// Emission comes at once: the shot's leave switches off only emission that is confirmed, and what was asked for and not
// yet confirmed is the safe entry's.
std::vector<TPoint> BarePoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  const std::uint32_t ticks = RunPoint(procedure, {.Emission = TEmission::AtOnce}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kReasons)
      points.push_back({.AbortTick = tick, .Reason = reason, .Emission = TEmission::AtOnce, .SafeEntry = false});
  return points;
}

std::vector<TPoint> EmissionPoints(const TProcedure&) {
  std::vector<TPoint> points;
  for (const TEmission emission : kEmissions) points.push_back({.Emission = emission});
  return points;
}

template <bool Sticky, bool Refused>
std::vector<TPoint> FaultPoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  const std::uint64_t calls = RunPoint(procedure, {}).DeviceCalls;
  for (std::uint64_t call = 1; call <= calls; ++call)
    points.push_back({.DeviceCall = call, .Sticky = Sticky, .Refused = Refused});
  return points;
}

std::vector<TPoint> CombinedPoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  if (!procedure.UsesLaser) return points;
  for (const TEmission emission : kEmissions) {
    const std::uint32_t ticks = RunPoint(procedure, {.Emission = emission}).Ticks;
    for (std::uint32_t tick = 0; tick < ticks; ++tick)
      for (const std::int32_t reason : kReasons)
        points.push_back({.AbortTick = tick, .Reason = reason, .Emission = emission});
  }
  return points;
}

std::vector<TPoint> SinkPoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  const std::uint64_t calls = RunPoint(procedure, {}, true).SinkCalls;
  for (std::uint64_t call = 1; call <= calls; ++call) points.push_back({.SinkCall = call});
  return points;
}

std::vector<TPoint> CallbackPoints(const TProcedure& procedure) {
  std::vector<TPoint> points;
  const std::uint64_t calls = RunPoint(procedure, {}).DeviceCalls;
  for (std::uint64_t call = 1; call <= calls; ++call)
    for (const TCall callback : {TCall::Stop, TCall::Alarm, TCall::SecondProcedure})
      points.push_back({.DeviceCall = call, .Callback = callback});
  return points;
}

constexpr const char* kLargeDimension = "combined";

constexpr TDimension kDimensions[] = {
    {"emission", false, EmissionPoints},
    {"ticks", false, TickPoints},
    {"bare", false, BarePoints},
    {"once", false, FaultPoints<false, false>},
    {"sticky", false, FaultPoints<true, false>},
    {"refused", false, FaultPoints<true, true>},
    {"callback", false, CallbackPoints},
    {"sink", true, SinkPoints},
    {kLargeDimension, false, CombinedPoints},
};

void Shuffle(std::vector<TSweepPoint>& points, TSimRandom& random) {
  for (std::size_t i = points.size(); i > 1; --i) std::swap(points[i - 1], points[random.Next() % i]);
}

std::vector<TSweepTask> ProcedureTasks() {
  std::vector<TSweepTask> tasks;
  // The largest dimension last, so that what the others leave of the budget is its.
  for (const TDimension& dimension : kDimensions) {
    for (const TProcedure& procedure : Procedures()) {
      const auto points = [&procedure, &dimension] {
        std::vector<TSweepPoint> made;
        for (const TPoint& point : dimension.Points(procedure))
          made.push_back(
              {[point] { return point.Text(); },
               [&procedure, &dimension, point] { return RunPoint(procedure, point, dimension.Tracing).Violations; }});
        return made;
      };
      tasks.push_back({procedure.Name, dimension.Name, points});
    }
  }
  return tasks;
}

std::uint64_t Sum(const std::vector<TSweepRow>& rows, std::uint64_t TSweepRow::*member) {
  std::uint64_t sum = 0;
  for (const TSweepRow& row : rows) sum += row.*member;
  return sum;
}

}  // namespace

std::uint64_t TSweepResult::Enumerated() const { return Sum(Rows, &TSweepRow::Enumerated); }
std::uint64_t TSweepResult::Run() const { return Sum(Rows, &TSweepRow::Run); }
std::uint64_t TSweepResult::Survived() const { return Sum(Rows, &TSweepRow::Survived); }

TSweepResult RunSweep(const TSweepOptions& options, const std::function<void(const TSweepRow&)>& progress) {
  TSystemClock wall;  // the budget is the user's time, not the machine's
  const std::uint64_t start = wall.MonotonicMs();
  TSweepResult result;
  TSimRandom random(options.Seed);

  std::vector<TSweepTask> tasks = ProcedureTasks();
  const auto firstLarge = std::ranges::find(tasks, kLargeDimension, &TSweepTask::Dimension);
  auto gas = GasSweepTasks(options.Seed);
  tasks.insert(firstLarge, std::make_move_iterator(gas.begin()), std::make_move_iterator(gas.end()));
  if (!options.Procedure.empty())
    std::erase_if(tasks, [&](const TSweepTask& task) { return task.Procedure != options.Procedure; });

  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const TSweepTask& task = tasks[i];
    auto points = task.Points();
    if (points.empty()) continue;
    Shuffle(points, random);
    const std::uint64_t now = wall.MonotonicMs();
    const std::uint64_t left = options.BudgetMs - std::min(options.BudgetMs, now - start);
    const std::uint64_t until = now + left / (tasks.size() - i);
    TSweepRow row{task.Procedure, task.Dimension, points.size(), 0, 0};
    for (const TSweepPoint& point : points) {
      if (!options.Full && row.Run > 0 && wall.MonotonicMs() > until) break;
      const auto violations = point.Run();
      ++row.Run;
      if (violations.empty()) ++row.Survived;
      result.ViolationCount += violations.size();
      for (const std::string& text : violations)
        if (result.Violations.size() < kShownViolations)
          result.Violations.push_back(Format("%s, %s, %s: %s", task.Procedure.c_str(), task.Dimension.c_str(),
                                             point.Text().c_str(), text.c_str()));
    }
    if (progress) progress(row);
    result.Rows.push_back(std::move(row));
  }
  return result;
}

}  // namespace ixocamglue
