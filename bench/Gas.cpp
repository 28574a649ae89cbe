// The gas calibration: a whole one of three gases on the simulated machine in virtual time, the question whether the
// pressure has settled, and the final curve.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "bench/Rows.h"
#include "controller/Journal.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::bench {
namespace {

constexpr std::uint64_t kSeed = 1;
constexpr std::uint64_t kTooLongMs = 120'000;
constexpr double kMachineS = 26.4;  // that the three gases take with this seed; checked

class TThreeGases {
 public:
  TThreeGases() {
    for (const std::int32_t gas : {1, 2, 3}) {
      TGasBranchConfig& branch = FConfig.GasBranches().Items.AddNew();
      branch.GasType = gas;
      branch.DAPort = 32 + gas;
      FMachine.GasBranches.push_back({gas, "", branch.DAPort, 25.0});
    }
  }

  // A machine of its own for each run, so that all runs are the same. No file is written: the configuration has none.
  void Run() {
    for (const auto& branch : FConfig.GasBranches().Items) {
      branch->DAAdjustTable.Clear();
      branch->DAAdjustEnabled = false;
    }
    TVirtualClock clock;
    const TInstalled<IClock> clockInstalled(clock);
    TNcRegistry registry;
    const TInstalled<TNcRegistry> registryInstalled(registry);
    TLibrary library;
    TNcStateFramework framework;
    TNcAlarmManager alarms;
    const TInstalled<TNcAlarms> alarmsInstalled(alarms);
    ixocontroller::TJournal journal;
    TSimMachine machine({framework, FConfig, alarms, journal, &clock, kSeed}, FMachine);
    machine.Connect().OrThrow(pbUnusable);
    clock.Sleep(framework.RunOnce());
    TZemGasAdjustModel& model = *GZemGasAdjustModel();
    const std::uint64_t start = clock.MonotonicMs();
    if (!model.StartAjdust({1, 2, 3})) std::abort();
    while (model.AjdustIsBusy() && clock.MonotonicMs() < start + kTooLongMs) clock.Sleep(framework.RunOnce());
    const double seconds = static_cast<double>(clock.MonotonicMs() - start) / 1000;
    if (model.GetProgess() < 100 || std::abs(seconds - kMachineS) > 0.1) std::abort();
  }

 private:
  TSimConfig FMachine;
  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FConfigInstalled{FConfig};
};

// A noisy pressure that has settled, one sample per 5 ms.
template <int Count>
class TSettled {
 public:
  TSettled() {
    for (const std::int32_t gas : {1, 2, 3}) FConfig.GasBranches().Items.AddNew().GasType = gas;
    FAdjust.SetBranch(1);
    FAdjust.Reset();
    for (int i = 0; i < Count; ++i) FAdjust.AddSample(5 * i, 4.0 + 0.01 * std::sin(i * 0.7));
  }

 protected:
  TMachineConfig FConfig;
  TInstalled<TMachineConfig> FConfigInstalled{FConfig};
  TQuickGasDAAdjust FAdjust;
};

template <int Count>
class TStable : public TSettled<Count> {
 public:
  void Run() {
    double press = 0.0;
    std::int32_t stable = 0;
    std::int32_t rise = 0;
    if (!this->FAdjust.CheckGasPressStable(press, stable, rise, true)) std::abort();
    benchmark::DoNotOptimize(press);
  }
};

// The four means by asking every sample in which window it lies, and the six comparisons.
template <int Count>
class TNaiveStable : public TSettled<Count> {
 public:
  void Run() {
    const auto& samples = this->FAdjust.Samples().Dots();
    const double end = samples.back().X;
    const double width = this->FAdjust.WindowMs();
    double sums[4] = {};
    int counts[4] = {};
    for (const TDot& sample : samples) {
      if (sample.X <= end - 4 * width) continue;
      const auto window = static_cast<std::size_t>(3 - std::min(3, static_cast<int>((end - sample.X) / width)));
      sums[window] += sample.Y;
      ++counts[window];
    }
    double means[4];
    for (std::size_t window = 0; window < 4; ++window) means[window] = sums[window] / counts[window];
    bool agree = true;
    for (int a = 1; a < 4; ++a)
      for (int b = 0; b < a; ++b)
        agree =
            agree && std::abs(means[a] - means[b]) < this->FAdjust.ErrorPercent() / 100 * std::min(means[a], means[b]);
    if (!agree) std::abort();
    benchmark::DoNotOptimize(means);
  }
};

class TRebuild {
 public:
  TRebuild() {
    for (int i = 0; i < 15; ++i) {
      const double volt = 0.4 + i * 9.6 / 14;
      FMeasured.Append({volt, 8.0 * std::tanh(volt / 4.0)});
    }
  }
  void Run() {
    FList = FMeasured;
    FAdjust.ReBuildGasAdjList(FList);
    benchmark::DoNotOptimize(FList);
  }

 private:
  TQuickGasDAAdjust FAdjust;
  TIncList FMeasured, FList;
};

}  // namespace

std::vector<TRow> GasRows() {
  return {Measure<TThreeGases>({.Id = "gas_calibration",
                                .Name = "gas calibration of 3 gases, simulated, per s of machine time",
                                .Parts = kMachineS}),
          Measure<TStable<200>>({.Id = "gas_stable_200",
                                 .Name = "CheckGasPressStable, 200 samples",
                                 .Peer = "gas_naive_200",
                                 .PeerName = "four plain means",
                                 .MaxAllocations = 0}),
          Measure<TNaiveStable<200>>({.Id = "gas_naive_200"}),
          Measure<TStable<1000>>({.Id = "gas_stable_1000",
                                  .Name = "CheckGasPressStable, 1000 samples",
                                  .Peer = "gas_naive_1000",
                                  .PeerName = "four plain means",
                                  .MaxAllocations = 0}),
          Measure<TNaiveStable<1000>>({.Id = "gas_naive_1000"}),
          Measure<TRebuild>({.Id = "gas_rebuild", .Name = "ReBuildGasAdjList, 15 points"})};
}

}  // namespace ixocamglue::bench
