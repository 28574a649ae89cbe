#include "verify/Sweep.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "machines/simulated/Random.h"
#include "verify/GasSweep.h"
#include "verify/SweepCase.h"
#include "verify/SweepRun.h"

namespace ixoverify {
namespace {

constexpr std::int32_t kReasons[] = {srStop, 2, srPause, srAlarm, srError};
constexpr TSweepEmission kEmissions[] = {TSweepEmission::Configured, TSweepEmission::AtOnce,
                                         TSweepEmission::AfterOnePoll, TSweepEmission::AfterEightPolls,
                                         TSweepEmission::Never};
constexpr std::size_t kShownViolations = 50;
constexpr std::size_t kDrawnAborts = 4;  // whose calls a sweep with a budget looks at, per procedure

using TPoints = std::vector<TSweepPoint>;

// What the points of one procedure are made from.
struct TScope {
  const TSweepCase& Case;
  TSweepMachine& Machine;
  bool Full;
  TSimRandom& Random;

  [[nodiscard]] TSweepFacts Try(const TSweepPoint& point, bool tracing = false) const {
    return RunSweepPoint(Case, point, Machine, tracing);
  }
};

template <class Items>
void Shuffle(Items& items, TSimRandom& random) {
  for (std::size_t i = items.size(); i > 1; --i) std::swap(items[i - 1], items[random.Next() % i]);
}

struct TDimension {
  const char* Name;
  bool Tracing;
  TPoints (*Points)(const TScope&);
};

TPoints TickPoints(const TScope& scope) {
  TPoints points;
  const std::uint32_t ticks = scope.Try({}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kReasons) points.push_back({.AbortTick = tick, .Reason = reason});
  return points;
}

// Emission comes at once: the shot's leave switches off only emission that is confirmed, and what was asked for and not
// yet confirmed is the safe entry's.
TPoints BarePoints(const TScope& scope) {
  TPoints points;
  const std::uint32_t ticks = scope.Try({.Emission = TSweepEmission::AtOnce}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kReasons)
      points.push_back({.AbortTick = tick, .Reason = reason, .Emission = TSweepEmission::AtOnce, .SafeEntry = false});
  return points;
}

TPoints EmissionPoints(const TScope&) {
  TPoints points;
  for (const TSweepEmission emission : kEmissions) points.push_back({.Emission = emission});
  return points;
}

template <bool Sticky, bool Refused>
TPoints FaultPoints(const TScope& scope) {
  TPoints points;
  const std::uint64_t calls = scope.Try({}).DeviceCalls;
  for (std::uint64_t call = 1; call <= calls; ++call)
    points.push_back({.DeviceCall = call, .Sticky = Sticky, .Refused = Refused});
  return points;
}

TPoints CombinedPoints(const TScope& scope) {
  TPoints points;
  if (!scope.Case.Flags().LightsBeam) return points;
  for (const TSweepEmission emission : kEmissions) {
    const std::uint32_t ticks = scope.Try({.Emission = emission}).Ticks;
    for (std::uint32_t tick = 0; tick < ticks; ++tick)
      for (const std::int32_t reason : kReasons)
        points.push_back({.AbortTick = tick, .Reason = reason, .Emission = emission});
  }
  return points;
}

TPoints SinkPoints(const TScope& scope) {
  TPoints points;
  const std::uint64_t calls = scope.Try({}, true).SinkCalls;
  for (std::uint64_t call = 1; call <= calls; ++call) points.push_back({.SinkCall = call});
  return points;
}

TPoints CallbackPoints(const TScope& scope) {
  TPoints points;
  const std::uint64_t calls = scope.Try({}).DeviceCalls;
  for (std::uint64_t call = 1; call <= calls; ++call)
    for (const TSweepCall callback : {TSweepCall::Stop, TSweepCall::Alarm, TSweepCall::SecondProcedure})
      points.push_back({.DeviceCall = call, .Callback = callback});
  return points;
}

// An abort, and then one device fault at one of the calls that follow it. How many follow, a run without the fault
// tells.
TPoints PairPoints(const TScope& scope) {
  TPoints aborts;
  const std::uint32_t ticks = scope.Try({}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kReasons) aborts.push_back({.AbortTick = tick, .Reason = reason});
  if (!scope.Full) {
    Shuffle(aborts, scope.Random);
    aborts.resize(std::min(aborts.size(), kDrawnAborts));
  }
  TPoints points;
  for (const TSweepPoint& abort : aborts) {
    const std::uint64_t calls = scope.Try(abort).CallsAfterAbort;
    for (std::uint64_t call = 1; call <= calls; ++call)
      for (const auto& [sticky, refused] : {std::pair(false, false), {true, false}, {true, true}}) {
        TSweepPoint& point = points.emplace_back(abort);
        point.DeviceCall = call;
        point.FromAbort = true;
        point.Sticky = sticky;
        point.Refused = refused;
      }
  }
  return points;
}

constexpr const char* kFirstLarge = "pair";

constexpr TDimension kDimensions[] = {
    {"emission", false, EmissionPoints},
    {"ticks", false, TickPoints},
    {"bare", false, BarePoints},
    {"once", false, FaultPoints<false, false>},
    {"sticky", false, FaultPoints<true, false>},
    {"refused", false, FaultPoints<true, true>},
    {"callback", false, CallbackPoints},
    {"sink", true, SinkPoints},
    {kFirstLarge, false, PairPoints},
    {"combined", false, CombinedPoints},
};

// The largest dimensions last, so that what the others leave of the budget is theirs.
std::vector<TSweepTask> Tasks(const TSweepOptions& options, const std::vector<TSweepCase>& cases,
                              TSweepMachine& machine, TSimRandom& random) {
  std::vector<TSweepTask> tasks;
  for (const TDimension& dimension : kDimensions) {
    if (dimension.Name == std::string_view(kFirstLarge))
      std::ranges::move(GasSweepTasks(options.Seed), std::back_inserter(tasks));
    for (const TSweepCase& what : cases)
      tasks.push_back({what.Name, dimension.Name, [&what, &dimension, &machine, &random, full = options.Full] {
                         std::vector<TSweepTrial> trials;
                         for (const TSweepPoint& point : dimension.Points({what, machine, full, random}))
                           trials.push_back({[point] { return point.Text(); },
                                             [&what, &dimension, &machine, point] {
                                               return RunSweepPoint(what, point, machine, dimension.Tracing).Violations;
                                             }});
                         return trials;
                       }});
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

TResult<> CheckSweepName(const std::string& name) {
  std::vector<std::string> known = GasSweepNames();
  for (const TSweepCase& what : SweepCases()) known.push_back(what.Name);
  if (std::ranges::find(known, name) != known.end()) return {};
  if (WasProcedure(name)) return AskProcedure(name).Problem();
  std::string names;
  for (const std::string& each : known) names += (names.empty() ? "" : ", ") + each;
  return TProblem{.What = "\"" + name + "\" is no procedure", .Remedy = "the procedures are: " + names};
}

TSweepResult RunSweep(const TSweepOptions& options, const std::function<void(const TSweepRow&)>& progress) {
  TSystemClock wall;  // the budget is the user's time, not the machine's
  const std::uint64_t start = wall.MonotonicMs();
  TSweepResult result;
  TSimRandom random(options.Seed);
  TSweepMachine machine;
  const std::vector<TSweepCase> cases = SweepCases();

  std::vector<TSweepTask> tasks = Tasks(options, cases, machine, random);
  if (!options.Procedure.empty())
    std::erase_if(tasks, [&](const TSweepTask& task) { return task.Procedure != options.Procedure; });

  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const TSweepTask& task = tasks[i];
    auto trials = task.Trials();
    if (trials.empty()) continue;
    Shuffle(trials, random);
    const std::uint64_t now = wall.MonotonicMs();
    const std::uint64_t left = options.BudgetMs - std::min(options.BudgetMs, now - start);
    const std::uint64_t until = now + left / (tasks.size() - i);
    TSweepRow row{task.Procedure, task.Dimension, trials.size(), 0, 0};
    for (const TSweepTrial& trial : trials) {
      if (!options.Full && row.Run > 0 && wall.MonotonicMs() > until) break;
      const std::vector<std::string> violations = trial.Run();
      ++row.Run;
      if (violations.empty()) ++row.Survived;
      result.ViolationCount += violations.size();
      for (const std::string& text : violations)
        if (result.Violations.size() < kShownViolations)
          result.Violations.push_back(Format("%s, %s, %s: %s", task.Procedure.c_str(), task.Dimension.c_str(),
                                             trial.Text().c_str(), text.c_str()));
    }
    if (progress) progress(row);
    result.Rows.push_back(std::move(row));
  }
  return result;
}

}  // namespace ixoverify
