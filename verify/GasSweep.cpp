#include "verify/GasSweep.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "controller/Controller.h"
#include "controller/gas/GasCalibration.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/gascal/Ugasadjusttexts.h"
#include "ixocamglue/gascal/Uzemgasadjuststate.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Machine.h"
#include "machines/simulated/Random.h"
#include "verify/Oracle.h"
#include "verify/Sampler.h"
#include "verify/SweepCase.h"

namespace ixoverify {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;

using TGases = std::vector<std::int32_t>;
struct TGasCase {
  const char* Name;
  TGases Gases;
  bool All = true;  // all dimensions, else undisturbed runs
};
const TGasCase kCases[] = {
    {"calibrate-air", {1}}, {"calibrate-o2", {2}}, {"calibrate-n2", {3}}, {"calibrate-two", {1, 3}, false}};
constexpr TValveFault kFaults[] = {vfStuck,    vfNoSupply,   vfLowSupply,      vfDeadSensor,  vfNonFinite,
                                   vfSlowLine, vfSlowUpdate, vfNegativeOffset, vfWideDeadBand};
constexpr int kDrawnTicks = 50;
constexpr std::uint64_t kLongestMs = 300'000;  // per gas: 15 points of 15 s and what lies between them
constexpr const char* kNozzle = "S";
constexpr double kNozzleMm = 1.5;
// The table that each gas has before: bar, V.
constexpr const char* kOldTable =
    "<DAAdjustTable><Item Press='0' Volt='0'/><Item Press='7' Volt='10'/></DAAdjustTable>";

using TEntries = std::vector<std::pair<double, double>>;
const TEntries kOld = {{0, 0}, {7, 10}};

// A folder with the two files as they are before each run.
class TFiles {
 public:
  [[nodiscard]] fs::path Machine() const { return FFolder.Path() / "machine.xml"; }
  void Reset() const {
    std::string machine = "<MachineConfig><GasBranches>";
    std::string tables = "<GasCalibration>";
    for (const char* const gas : {"Air", "O2", "N2"}) {
      const auto type = GetGasTypeFromStr(gas);
      machine += Format("<GasBranch GasType='%d' Name='%s' DAPort='%d' MaxPressure='12'>%s</GasBranch>", type, gas,
                        32 + type, kOldTable);
      tables += Format("<Gas%s><GasCaliItem NozzType='%s' NozzSize='%.1f'>%s</GasCaliItem></Gas%s>", gas, kNozzle,
                       kNozzleMm, kOldTable, gas);
    }
    std::ofstream(Machine()) << machine << "</GasBranches></MachineConfig>";
    std::ofstream(FFolder.Path() / "GasCalibration.config") << tables << "</GasCalibration>";
  }

 private:
  const TTempFolder FFolder{"ixocut-sweep"};
};

TEntries EntriesOf(const TDAAdjustTable& table) {
  TEntries entries;
  for (std::int32_t i = 0; i < table.GetCount(); ++i)
    entries.emplace_back(table.GetItem(i)->Press, table.GetItem(i)->Volt);
  return entries;
}

// From (0, 0) up to full scale, strictly rising.
bool Complete(const TEntries& entries) {
  if (entries.size() < 4 || entries.front() != std::pair(0.0, 0.0) || entries.back().second < 9.9) return false;
  for (std::size_t i = 1; i < entries.size(); ++i)
    if (entries[i].first <= entries[i - 1].first || entries[i].second <= entries[i - 1].second) return false;
  return true;
}

struct TGasPointSpec {
  TGases Gases;
  std::optional<std::uint32_t> AbortTick;
  std::int32_t Reason = srStop;
  TValveFault Fault = vfNone;
  bool SafeEntry = true;
  // Where the clock starts; 0: as usual.
  std::uint32_t FirstTick = 0;
  std::uint64_t FirstMs = 0;
};

// One run of one gas with one thing going wrong.
class TGasSweepRun {
 public:
  TGasSweepRun(const TFiles& files, const TGasPointSpec& point) : FFiles(files), FPoint(point), FController(Options()) {
    FSampler.Attach(FController);
    if (point.Fault != vfNone) Simulated(FController.Machine()).Gas()->SetFault(point.Gases.front(), point.Fault);
    FController.RunPass();  // power-up
    FController.RunPass();
  }

  TSweepVerdict Run() {
    TGasCalibration calibration(FController, FPoint.Gases, {kNozzle, kNozzleMm});
    Watch(calibration);
    FEndedMs = Clock().MonotonicMs() - FPoint.FirstMs;
    FController.RunFor(200);
    FCompleted = calibration.Completed();
    AskOracle();
    CheckMessages(calibration);
    CheckTables();
    Probe();
    return std::move(FVerdict);
  }

  // After Run: the ticks at which the sub-state has changed, and the last tick.
  [[nodiscard]] const std::vector<std::uint32_t>& Changes() const { return FChanges; }
  [[nodiscard]] std::uint32_t Ticks() const { return FTicks; }
  // When the calibration ended, since the clock's start.
  [[nodiscard]] std::uint64_t EndedMs() const { return FEndedMs; }

 private:
  TControllerOptions Options() {
    FFiles.Reset();
    TControllerOptions options;
    options.Machines = {SimulatedMachine()};
    options.MachineFile = FFiles.Machine();
    options.SafeEntry = FPoint.SafeEntry;
    if (FPoint.FirstTick != 0) options.FirstTick = FPoint.FirstTick;
    options.FirstMs = FPoint.FirstMs;
    options.Supervisor = false;
    options.LogCapacity = 64;
    return options;
  }
  void Violation(std::string text) { FVerdict.Violations.push_back(std::move(text)); }
  void Require(bool holds, const char* otherwise) {
    if (!holds) Violation(otherwise);
  }

  void Watch(TGasCalibration& calibration) {
    const TNcWatch& watch = FController.Framework().Watch();
    const std::uint32_t base = watch.Tick.load();
    const std::uint64_t end = Clock().MonotonicMs() + kLongestMs * FPoint.Gases.size();
    if (const auto started = calibration.Start(); !started)
      return Violation(Format(Tr("cannot start: %s"), started.Problem().Text().c_str()));
    auto& state = dynamic_cast<TZemGasAdjustState&>(*FController.Framework().State(nsZemGasAdjust));
    TGasAdjustSub before = TGasAdjustSub::Finished;
    while (calibration.Running()) {
      FTicks = watch.Tick.load() - base;
      if (FController.Framework().CurrentState() == nsZemGasAdjust) {
        if (std::exchange(before, state.SubState()) != state.SubState()) FChanges.push_back(FTicks);
        if (FPoint.AbortTick && !FAborted && FTicks >= *FPoint.AbortTick) {
          FAborted = true;
          FSampler.Note(kCause, Format("reason %d", FPoint.Reason));
          FController.Framework().Abort(FPoint.Reason);
        }
      }
      FController.RunPass();
      if (Clock().MonotonicMs() > end) {
        Violation(Tr("the calibration does not end"));
        return calibration.Stop();
      }
    }
  }

  void AskOracle() {
    const auto entries = FController.Journal().Entries();
    TExpectations expected;
    expected.Success = FCompleted;
    expected.ProcedureState = nsZemGasAdjust;
    FVerdict.Take(
        CheckRun(entries, FController.Journal().Samples(), expected, Simulated(FController.Machine()).Config()));
  }

  void CheckMessages(TGasCalibration& calibration) {
    std::size_t ends = 0;
    std::string last;
    for (std::string text; calibration.GetMsg(text); last = text) ends += text == SQAdjTermin.Get() ? 1U : 0U;
    if (FPoint.AbortTick && FAborted) {
      const bool stopped = FPoint.Reason == srStop;
      Require(last == (stopped ? SQAdjTermin : SQAdjFailed).Get(), Tr("the message log does not end with the ending"));
      Require(ends == (stopped ? 1U : 0U), Tr("the stop is told another number of times"));
    } else if (FPoint.Fault == vfNone && !FCompleted) {
      Violation(Tr("undisturbed, and yet it failed: ") + last);
    }
  }

  // In memory and in both files.
  void CheckTables() {
    for (const std::int32_t gas : FPoint.Gases) CheckTable(gas);
  }
  void CheckTable(std::int32_t gas) {
    const auto whole = [](const TEntries& entries) { return entries == kOld || Complete(entries); };
    const TEntries now = EntriesOf(MachineConfig()->GetGasBranch(gas)->DAAdjustTable);
    Require(whole(now), Tr("the table is neither the old one nor complete"));
    TMachineConfig file;
    Require(file.Load(FFiles.Machine()).Ok(), Tr("the machine file cannot be read"));
    const TGasBranchConfig* const branch = file.GetGasBranch(gas);
    Require(branch && EntriesOf(branch->DAAdjustTable) == (FCompleted ? now : kOld),
            Tr("the machine file does not hold what it should"));
    TGasCaliConfig stored;
    Require(stored.Load(GasCaliConfigFile()).Ok(), Tr("the stored tables cannot be read"));
    const TDAAdjustTable* const table = stored.GetDAAdjustTable(gas, kNozzle, kNozzleMm);
    Require(table && whole(EntriesOf(*table)), Tr("the stored table is neither the old one nor complete"));
    if (table && FCompleted) Require(EntriesOf(*table) == now, Tr("the stored table is not the one in use"));
  }

  void Probe() {
    FController.Alarms().ClearAll();
    FController.RunFor(50);
    if (const TResult<> ran = RunNext(FController); !ran) Violation(ran.Problem().What);
  }

  const TFiles& FFiles;
  const TGasPointSpec FPoint;
  TSampler FSampler;
  TController FController;
  TSweepVerdict FVerdict;
  std::vector<std::uint32_t> FChanges;
  std::uint32_t FTicks = 0;
  std::uint64_t FEndedMs = 0;
  bool FAborted = false;
  bool FCompleted = false;
};

std::string TextOf(const TGasPointSpec& point) {
  if (point.Fault != vfNone) return ValveFaultName(point.Fault);
  if (point.FirstTick || point.FirstMs)
    return Format(Tr(" clock from %llu ms, tick %u"), static_cast<unsigned long long>(point.FirstMs), point.FirstTick);
  if (!point.AbortTick) return Tr("undisturbed");
  return Format(Tr("reason %d at tick %u%s"), point.Reason, point.AbortTick.value_or(0),
                point.SafeEntry ? "" : Tr(" without safe entry"));
}

using TSpecs = std::vector<TGasPointSpec>;

TSpecs AtTicks(const TGases& gases, const std::vector<std::uint32_t>& ticks, bool safeEntry) {
  TSpecs specs;
  for (const std::uint32_t tick : ticks)
    for (const std::int32_t reason : kAbortReasons)
      specs.push_back({.Gases = gases, .AbortTick = tick, .Reason = reason, .SafeEntry = safeEntry});
  return specs;
}

}  // namespace

std::vector<std::string> GasSweepNames() {
  std::vector<std::string> names;
  for (const TGasCase& gas : kCases) names.emplace_back(gas.Name);
  return names;
}

std::vector<TSweepTask> GasSweepTasks(std::uint64_t seed) {
  const auto files = std::make_shared<TFiles>();
  std::vector<TSweepTask> tasks;
  for (const TGasCase& gas : kCases) {
    const auto add = [&](const char* dimension, std::function<TSpecs()> specs) {
      const auto points = [files, specs = std::move(specs)] {
        std::vector<TSweepTrial> made;
        for (const TGasPointSpec& spec : specs())
          made.push_back({[spec] { return TextOf(spec); }, [files, spec] { return TGasSweepRun(*files, spec).Run(); }});
        return made;
      };
      tasks.push_back({gas.Name, dimension, points});
    };
    if (!gas.All) {
      add("clock", [=, gases = gas.Gases] {
        TGasSweepRun run(*files, {.Gases = gases});
        (void)run.Run();
        const std::uint64_t middle = run.EndedMs() / 2;
        return TSpecs{{.Gases = gases},
                      {.Gases = gases, .FirstTick = 0U - static_cast<std::uint32_t>(middle)},
                      {.Gases = gases, .FirstMs = kWrapMs - middle}};
      });
      continue;
    }
    // What an undisturbed run does is the same for all dimensions.
    struct TUndisturbed {
      std::vector<std::uint32_t> Changes;
      std::uint32_t Ticks = 0;
    };
    const auto undisturbed = [files, gases = gas.Gases, kept = std::make_shared<std::optional<TUndisturbed>>()] {
      if (!*kept) {
        TGasSweepRun run(*files, {.Gases = gases});
        (void)run.Run();  // what is wrong with it, the points show as well
        *kept = TUndisturbed{run.Changes(), run.Ticks()};
      }
      return **kept;
    };
    add("states", [=, gases = gas.Gases] { return AtTicks(gases, undisturbed().Changes, true); });
    add("bare", [=, gases = gas.Gases] { return AtTicks(gases, undisturbed().Changes, false); });
    add("drawn", [=, gases = gas.Gases] {
      TSimRandom random(seed + static_cast<std::uint64_t>(gases.front()));
      std::vector<std::uint32_t> ticks;
      ticks.reserve(kDrawnTicks);
      for (int i = 0; i < kDrawnTicks; ++i)
        ticks.push_back(static_cast<std::uint32_t>(random.Next() % std::max(undisturbed().Ticks, 1U)));
      return AtTicks(gases, ticks, true);
    });
    add("faults", [gases = gas.Gases] {
      TSpecs specs{{.Gases = gases}};
      for (const TValveFault fault : kFaults) specs.push_back({.Gases = gases, .Fault = fault});
      return specs;
    });
  }
  return tasks;
}

}  // namespace ixoverify
