#include "verify/Sweep.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Random.h"
#include "verify/GasSweep.h"
#include "verify/SweepCase.h"
#include "verify/SweepRun.h"

namespace ixoverify {
namespace {

constexpr TSweepEmission kEmissions[] = {TSweepEmission::Configured, TSweepEmission::AtOnce,
                                         TSweepEmission::AfterOnePoll, TSweepEmission::AfterEightPolls,
                                         TSweepEmission::Never};
constexpr std::uint64_t kShownOfKind = 5;
constexpr std::uint32_t kHangMs = 300;   // longer than the latch stands
constexpr std::size_t kDrawnAborts = 4;  // whose calls a sweep with a budget looks at, per procedure

using TPoints = std::vector<TSweepPoint>;

// What the points of one procedure are made from.
struct TScope {
  const TSweepCase& Case;
  TSweepMachine& Machine;
  bool Full;
  std::uint64_t Seed;  // of what is drawn here

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
    for (const std::int32_t reason : kAbortReasons) points.push_back({.AbortTick = tick, .Reason = reason});
  return points;
}

// Emission comes at once: the shot's leave switches off only emission that is confirmed, and what was asked for and not
// yet confirmed is the safe entry's.
TPoints BarePoints(const TScope& scope) {
  TPoints points;
  const std::uint32_t ticks = scope.Try({.Emission = TSweepEmission::AtOnce}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const std::int32_t reason : kAbortReasons)
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
      for (const std::int32_t reason : kAbortReasons)
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
    for (const std::int32_t reason : kAbortReasons) aborts.push_back({.AbortTick = tick, .Reason = reason});
  if (!scope.Full) {
    TSimRandom random(scope.Seed);
    Shuffle(aborts, random);
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

TPoints HangPoints(const TScope& scope) {
  TPoints points;
  const std::uint64_t calls = scope.Try({}).DeviceCalls;
  for (std::uint64_t call = 1; call <= calls; ++call) points.push_back({.DeviceCall = call, .HangMs = kHangMs});
  return points;
}

template <TSweepEvent... Events>
TPoints EventPoints(const TScope& scope) {
  TPoints points;
  const std::uint32_t ticks = scope.Try({}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick)
    for (const TSweepEvent event : {Events...}) points.push_back({.AbortTick = tick, .Event = event});
  return points;
}

TPoints BeamLostPoints(const TScope& scope) {
  if (!scope.Case.Flags().LightsBeam && !scope.Case.Flags().NeedsEmission) return {};
  return EventPoints<TSweepEvent::LaserAlarm, TSweepEvent::LostEmission>(scope);
}

TPoints SupervisedPoints(const TScope& scope) {
  TPoints points{{.Supervisor = true}};
  const std::uint32_t ticks = scope.Try({}).Ticks;
  for (std::uint32_t tick = 0; tick < ticks; ++tick) points.push_back({.AbortTick = tick, .Supervisor = true});
  return points;
}

// Undisturbed; a count passes its wrap in the middle of the procedure, or has passed it long ago.
TPoints ClockPoints(const TScope& scope) {
  const TSweepFacts usual = scope.Try({});
  const std::uint64_t middle = usual.EnteredMs + std::max<std::uint64_t>(usual.LastedMs / 2, 1);
  return {{.FirstTick = 0U - static_cast<std::uint32_t>(middle)},
          {.FirstMs = kWrapMs - middle},
          {.FirstTick = 1, .FirstMs = kWrapMs + kWrapMs / 2}};
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
    {"hang", false, HangPoints},
    {"beam-lost", false, BeamLostPoints},
    {"supervised", false, SupervisedPoints},
    {"end", false, EventPoints<TSweepEvent::End>},
    {"pallet", false, EventPoints<TSweepEvent::PalletExchange>},
    {"clock", false, ClockPoints},
    {kFirstLarge, false, PairPoints},
    {"combined", false, CombinedPoints},
};

// A seed of its own for each task: what is drawn does not depend on which others run.
std::uint64_t SeedOf(const TSweepOptions& options, std::string_view procedure, std::string_view dimension) {
  std::uint64_t seed = options.Seed;
  for (const std::string_view text : {procedure, dimension})
    for (const char c : text) seed = seed * 0x100000001B3U + static_cast<unsigned char>(c);
  return seed;
}

// The largest dimensions last, so that what the others leave of the budget is theirs.
std::vector<TSweepTask> Tasks(const TSweepOptions& options, const std::vector<TSweepCase>& cases,
                              TSweepMachine& machine) {
  std::vector<TSweepTask> tasks;
  for (const TDimension& dimension : kDimensions) {
    if (dimension.Name == std::string_view(kFirstLarge))
      std::ranges::move(GasSweepTasks(options.Seed), std::back_inserter(tasks));
    for (const TSweepCase& what : cases) {
      const TScope scope{what, machine, options.Full, SeedOf(options, what.Name, dimension.Name)};
      tasks.push_back({what.Name, dimension.Name, [&dimension, scope] {
                         std::vector<TSweepTrial> trials;
                         for (const TSweepPoint& point : dimension.Points(scope))
                           trials.push_back(
                               {[point] { return point.Text(); },
                                [&dimension, scope, point] { return scope.Try(point, dimension.Tracing); }});
                         return trials;
                       }});
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
std::uint64_t TSweepResult::SavedByLatch() const { return Sum(Rows, &TSweepRow::SavedByLatch); }

TResult<> CheckSweepName(const std::string& name) {
  std::vector<std::string> known = GasSweepNames();
  for (const TSweepCase& what : SweepCases()) known.push_back(what.Name);
  if (std::ranges::find(known, name) != known.end()) return {};
  if (WasProcedure(name)) return AskProcedure(name).Problem();
  const std::string names = Joined(known);
  return TProblem{.What = Format(Tr("\"%s\" is no procedure"), name.c_str()),
                  .Remedy = Format(Tr("the procedures are: %s"), names.c_str())};
}

TSweepResult RunSweep(const TSweepOptions& options, const std::function<void(const TSweepRow&)>& progress) {
  TSweepResult result;
  TSweepMachine machine;
  const std::vector<TSweepCase> cases = SweepCases();

  std::vector<TSweepTask> tasks = Tasks(options, cases, machine);
  if (!options.Procedure.empty())
    std::erase_if(tasks, [&](const TSweepTask& task) { return task.Procedure != options.Procedure; });

  std::uint64_t left = options.Points;
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const TSweepTask& task = tasks[i];
    auto trials = task.Trials();
    if (trials.empty()) continue;
    TSweepRow row{task.Procedure, task.Dimension, trials.size()};
    if (!options.Full) {
      TSimRandom random(SeedOf(options, task.Dimension, task.Procedure));
      Shuffle(trials, random);
      const std::uint64_t share = std::max<std::uint64_t>(left / (tasks.size() - i), 1);
      trials.resize(std::min<std::uint64_t>(trials.size(), share));
      left -= std::min<std::uint64_t>(left, trials.size());
    }
    for (const TSweepTrial& trial : trials) {
      const TSweepVerdict verdict = trial.Run();
      ++row.Run;
      if (verdict.Violations.empty()) ++row.Survived;
      if (verdict.SavedByLatch) ++row.SavedByLatch;
      result.ViolationCount += verdict.Violations.size();
      for (const std::string& text : verdict.Violations)
        if (++result.Kinds[text.substr(0, text.find(':'))] <= kShownOfKind)
          result.Violations.push_back(Format("%s, %s, %s: %s", task.Procedure.c_str(), task.Dimension.c_str(),
                                             trial.Text().c_str(), text.c_str()));
    }
    if (progress) progress(row);
    result.Rows.push_back(std::move(row));
  }
  return result;
}

nlohmann::ordered_json JsonOf(const TSweepResult& result, std::uint64_t seed) {
  auto rows = nlohmann::ordered_json::array();
  for (const TSweepRow& row : result.Rows)
    rows.push_back({{"procedure", row.Procedure},
                    {"dimension", row.Dimension},
                    {"enumerated", row.Enumerated},
                    {"run", row.Run},
                    {"survived", row.Survived},
                    {"savedByLatch", row.SavedByLatch}});
  return {{"seed", seed},
          {"enumerated", result.Enumerated()},
          {"run", result.Run()},
          {"survived", result.Survived()},
          {"savedByLatch", result.SavedByLatch()},
          {"violations", result.ViolationCount},
          {"kinds", result.Kinds},
          {"firstViolations", result.Violations},
          {"rows", std::move(rows)}};
}

std::optional<TProblem> ProblemOf(const TSweepResult& result) {
  if (result.ViolationCount == 0) return {};
  return TProblem{.What = Tr("the machine was not safe; the violations say where")};
}

}  // namespace ixoverify
