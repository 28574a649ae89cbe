#include "verify/Soak.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"
#include "controller/runs/ProcedureRun.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Machine.h"
#include "machines/simulated/Random.h"
#include "verify/JournalFile.h"
#include "verify/Sampler.h"
#include "verify/SweepRun.h"

namespace ixoverify {
namespace {

constexpr std::uint64_t kEveryMs = 300'000;  // between two pieces of work
constexpr std::uint64_t kSoakLongestMs = 20'000;
constexpr std::uint64_t kSoakSettleMs = 500;
constexpr std::size_t kShownViolations = 50;

// What a day's work is mixed from: whatever runs wherever the head stands.
constexpr std::string_view kWork[] = {
    "safe-z",
    "safe-move",
    "move-work",
    "move-assist",
    "gas-on",
    "calibrate-head",
    "auto-calibrate",
    "follow",
    "output-on",
    "lubricate",
    "focus",
    "safe-move-xyzf",
    "clean-nozzle-auto",
    "shot",
    "laser-on",
    "emission-on",
    "laser-test",
    "gas-purge",
    "pierce",
    "square",
    "delay",
    "go-maintenance",
    "go-blanking",
};

std::uint64_t HashOf(std::uint64_t hash, std::string_view bytes) {  // FNV-1a
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  return hash;
}

std::uint64_t ResidentKiB() {
  std::ifstream in("/proc/self/statm");
  std::uint64_t size = 0;
  std::uint64_t resident = 0;
  in >> size >> resident;
  return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

class TSoakRun {
 public:
  explicit TSoakRun(const TSoakOptions& options) : FOptions(options), FRandom(options.Seed), FController(Options()) {
    FSampler.Attach(FController);
    WaitForStandby(FController);
  }

  void Day() {
    const std::uint64_t end = FDay.Day * FOptions.DayMs + FOptions.DayMs;
    while (Now() < end) {
      if (FRandom.Below(20) == 0) SetClock();
      const std::uint64_t next = std::min(Now() + kEveryMs, end);
      Work(*FindProcedure(kWork[FRandom.Below(std::size(kWork))]));
      if (Now() < next) FController.VirtualClock()->Skip(next - Now());
    }
    ++FDay.Day;
    FDay.ResidentKiB = ResidentKiB();
  }

  [[nodiscard]] const TSoakDay& Today() const { return FDay; }
  [[nodiscard]] TSoakResult& Result() { return FResult; }

 private:
  enum TDisturbance : std::uint8_t { diAbort, diAlarm, diLostEmission, diNone };

  TControllerOptions Options() {
    TControllerOptions options;
    options.Machines = {SimulatedMachine()};
    options.MachineFile = FMachine.Fresh();
    options.LogCapacity = 64;
    return options;
  }
  [[nodiscard]] std::uint64_t Now() { return FController.VirtualClock()->MonotonicMs(); }

  void SetClock() {
    constexpr double kHour = 1.0 / 24.0;
    constexpr double kSteps[] = {kHour, -kHour, 1.0, -1.0, 1.0 / 86'400.0};
    FController.VirtualClock()->SetWall(kSteps[FRandom.Below(std::size(kSteps))]);
    ++FDay.ClockSteps;
  }

  // One procedure, disturbed or not, judged; then the machine is put in order for the next one.
  void Work(const TProcedure& row) {
    ++FDay.Runs;
    FSampler.Sample();
    const auto disturbance = static_cast<TDisturbance>(std::min<std::uint64_t>(FRandom.Below(12), diNone));
    const std::uint64_t at = Now() + FRandom.Below(1500);
    const TMotionCall call{&row, row.SampleValues(), {}};
    const TMotionCall single[] = {call};
    const TResult<> started = FController.Start(ShareRoot(MakeRoot(row.Name, single)));
    if (started)
      Drive(disturbance, at);
    else
      SayNotReady(started.Problem());
    FController.RunFor(kSoakSettleMs);
    FSampler.Note(kMended);
    FController.ClearAlarms();
    Simulated(FController.Machine()).Laser()->ResetLatch();
    FController.RunFor(50);
    FSampler.Sample();
    const bool success = started.Ok() && FController.MotionState().Outcome().Type == metSuccess;
    if (success) ++FDay.Succeeded;
    Judge(row, success);
    Tidy();
  }

  void Drive(TDisturbance disturbance, std::uint64_t atMs) {
    const std::uint64_t end = Now() + kSoakLongestMs;
    while (FController.Running()) {
      if (disturbance != diNone && Now() >= atMs && FController.Framework().CurrentState() == nsCustomMotion)
        Disturb(std::exchange(disturbance, diNone));
      if (Now() >= end) {
        FSampler.Note(kCause, "cut");
        FController.Framework().Stop();
        if (!FController.RunToEnd(kSoakSettleMs)) return Say(Tr("the procedure does not end"));
      }
      FController.RunPass();
    }
  }

  void Disturb(TDisturbance disturbance) {
    constexpr std::int32_t kEndReasons[] = {srStop, srPause, srAlarm, srError};
    constexpr TNcAlarmAttrs kAlarms[] = {naForbidLaser, naForbidMove, naRequireStop};
    if (disturbance == diLostEmission) return Simulated(FController.Machine()).Laser()->LoseEmission();
    if (disturbance == diAbort) {
      ++FDay.Aborts;
      FSampler.Note(kCause, "abort");
      return FController.Framework().Abort(kEndReasons[FRandom.Below(std::size(kEndReasons))]);
    }
    ++FDay.Alarms;
    const TNcAlarmAttrs attrs = kAlarms[FRandom.Below(std::size(kAlarms))];
    if (attrs != naForbidLaser) FSampler.Note(kCause, "alarm");
    FController.RaiseAlarm({.IdPrefix = "TPSoak", .Desc = "an alarm of the soak", .Id = 1, .Attrs = attrs});
  }

  void Judge(const TProcedure& row, bool success) {
    TJournalFile journal;
    journal.Entries = FController.Journal().Entries();
    journal.Samples = FController.Journal().Samples();
    journal.Expected.Success = success;
    journal.Expected.GasMayStayOn = row.Flags.LeavesGasOn;
    journal.Expected.MayFollow = row.Flags.LeavesFollowing;
    journal.Expected.OutputsMayStayOn = row.Flags.Outputs != TProcedureFlags::otOff;
    for (const TFinding& finding :
         CheckRun(journal.Entries, journal.Samples, journal.Expected, Simulated(FController.Machine()).Config()))
      Say(Format("day %llu, %s: ", static_cast<unsigned long long>(FDay.Day) + 1, row.Name) + finding.Line());
    std::ostringstream text;
    WriteJournal(text, journal);
    FDay.Hash = HashOf(FDay.Hash, text.view());
    FController.Journal().Clear();
  }

  // Gas and output off, the head up: also what a run left as it may.
  void Tidy() {
    const TMotionCall calls[] = {{FindProcedure("gas-off"), {}, {}},
                                 {FindProcedure("output-off"), FindProcedure("output-off")->SampleValues(), {}},
                                 {FindProcedure("safe-z"), FindProcedure("safe-z")->SampleValues(), {}}};
    if (const TResult<> started = FController.Start(ShareRoot(MakeRoot("tidy", calls))); !started)
      SayNotReady(started.Problem());
    else if (!FController.RunToEnd(kSoakLongestMs) || FController.MotionState().Outcome().Type != metSuccess)
      Say(Tr("the machine cannot be put in order"));
    FController.RunFor(100);
    FController.Journal().Clear();
  }

  void SayNotReady(const TProblem& why) { Say(Tr("not ready for the next procedure: ") + why.Text()); }
  void Say(std::string text) {
    ++FResult.ViolationCount;
    if (FResult.Violations.size() < kShownViolations) FResult.Violations.push_back(std::move(text));
  }

  const TSoakOptions FOptions;
  TSimRandom FRandom;
  TSweepMachine FMachine;
  TSampler FSampler;
  TController FController;
  TSoakDay FDay{.Hash = 0xCBF29CE484222325U};
  TSoakResult FResult;
};

}  // namespace

TSoakResult RunSoak(const TSoakOptions& options, const std::function<void(const TSoakDay&)>& progress) {
  TSystemClock wall;
  const std::uint64_t start = wall.MonotonicMs();
  TSoakRun run(options);
  TSoakResult& result = run.Result();
  std::uint64_t warmKiB = 0;
  for (std::uint64_t day = 1;; ++day) {
    run.Day();
    result.Last = run.Today();
    if (progress) progress(result.Last);
    if (day == kSoakWarmDays) warmKiB = result.Last.ResidentKiB;
    if (day > kSoakWarmDays)
      result.GrowthKiB = std::max(
          result.GrowthKiB, static_cast<std::int64_t>(result.Last.ResidentKiB) - static_cast<std::int64_t>(warmKiB));
    const std::uint64_t spent = wall.MonotonicMs() - start;
    // Another day takes about as long as one has taken so far.
    if (options.Seconds > 0 ? spent + spent / day > options.Seconds * 1000 : day >= options.Days) break;
  }
  return std::move(result);
}

nlohmann::ordered_json JsonOf(const TSoakResult& result, std::uint64_t seed) {
  const TSoakDay& day = result.Last;
  return {{"seed", seed},
          {"days", day.Day},
          {"runs", day.Runs},
          {"succeeded", day.Succeeded},
          {"aborts", day.Aborts},
          {"alarms", day.Alarms},
          {"clockSteps", day.ClockSteps},
          {"hash", Format("%016llx", static_cast<unsigned long long>(day.Hash))},
          {"residentKiB", day.ResidentKiB},
          {"memoryJudged", result.MemoryJudged()},
          {"growthKiB", result.GrowthKiB},
          {"violations", result.ViolationCount},
          {"firstViolations", result.Violations}};
}

std::optional<TProblem> ProblemOf(const TSoakResult& result) {
  if (result.ViolationCount != 0) return TProblem{.What = Tr("the machine was not safe; the violations say where")};
  if (result.Grows()) return TProblem{.What = Tr("the memory grows")};
  return {};
}

}  // namespace ixoverify
