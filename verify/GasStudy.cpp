#include "verify/GasStudy.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "ixocamglue/gascal/Refine.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "verify/GasFamily.h"

namespace ixoverify {
namespace {

// As the calibration's state has them.
constexpr std::int64_t kGasOnMs = 500;
constexpr std::int64_t kSampleMs = 5;
constexpr std::int64_t kUnsettledMs = 15'000;

// What the machine's exact procedure does.
class TExactMethod : public IGasMethod {
 public:
  explicit TExactMethod(std::int32_t gasType) : FPauseMs(gasType == 2 ? 600 : 300) {
    FAdjust.SetBranch(gasType);
    FAdjust.Reset();
  }

  std::optional<double> NextVolt() override {
    double volt = 0.0;
    return FAdjust.GetNextAdjDA3P(volt) ? Begin(volt) : std::nullopt;
  }
  std::int64_t PauseMs() override { return FPauseMs; }
  std::optional<double> Sample(std::int64_t ms, double bar) override {
    FAdjust.AddSample(ms, bar);
    double press = 0.0;
    std::int32_t stableMs = 0, riseMs = 0;
    return FAdjust.CheckGasPressStable(press, stableMs, riseMs, true) ? Settled(press) : std::nullopt;
  }
  TIncList Table() override {
    TIncList table = FAdjust.CaliList();
    FAdjust.ReBuildGasAdjList(table);
    return table;
  }

 protected:
  std::optional<double> Begin(double volt) {
    FAdjust.ResetGasPressList();
    return FVolt = volt;
  }
  virtual std::optional<double> Settled(double press) {
    FAdjust.RecordPoint(FVolt, press);
    return press;
  }

  TQuickGasDAAdjust FAdjust;
  double FVolt = 0.0;  // being measured

 private:
  const std::int64_t FPauseMs;
};

// Even voltages, with the same test of settling.
class TUniformMethod final : public TExactMethod {
 public:
  using TExactMethod::TExactMethod;
  std::optional<double> NextVolt() override {
    const std::int32_t next = FAdjust.CaliList().Count() + 1;
    return next > kMaxAdjPoints ? std::nullopt : Begin(kFullScaleVolt * next / kMaxAdjPoints);
  }
};

// Goes on where the exact procedure ends.
class TRefinedMethod final : public TExactMethod {
 public:
  using TExactMethod::TExactMethod;
  std::optional<double> NextVolt() override {
    if (!FRefining) {
      if (const auto volt = TExactMethod::NextVolt()) return volt;
      FRefining = true;
    }
    double volt = 0.0;
    return FRefine.GetNextDA(volt) ? Begin(volt) : std::nullopt;
  }
  std::int64_t PauseMs() override { return FRefining ? TGasRefine::kPauseMs : TExactMethod::PauseMs(); }
  std::optional<double> Sample(std::int64_t ms, double bar) override {
    if (!FRefining) return TExactMethod::Sample(ms, bar);
    FAdjust.AddSample(ms, bar);
    double press = 0.0;
    return FRefine.CheckSettled(FAdjust.Samples(), press) ? Settled(press) : std::nullopt;
  }
  TIncList Table() override {
    TIncList table = FAdjust.CaliList();
    FRefine.BuildCurve(table);
    return table;
  }

 private:
  std::optional<double> Settled(double press) override {
    FRefine.Record(FVolt, FAdjust.Samples(), press);
    return TExactMethod::Settled(press);
  }

  TGasRefine FRefine;
  bool FRefining = false;  // the exact procedure has proposed its last voltage
};

template <class T>
TGasMethod MethodOf(const char* name) {
  return {name, [](std::int32_t gasType) { return std::make_unique<T>(gasType); }};
}

std::vector<TGasMethod> GAdded;

// A valve, its sensor and a clock.
class TBench {
 public:
  TBench(const TGasValveParams& params, std::uint64_t seed) : FValve(params), FSensor(params, seed) {
    FValve.SetOpen(true);
    Wait(kGasOnMs);
  }

  // False when the pressure does not settle.
  bool Measure(IGasMethod& method, double volt) {
    FValve.Output(volt);
    const std::int64_t limit = FNow + kUnsettledMs;
    for (Wait(method.PauseMs()); FNow < limit; Wait(kSampleMs))
      if (method.Sample(FNow, FSensor.Read(static_cast<std::uint64_t>(FNow), FValve.Bar()))) return true;
    return false;
  }
  [[nodiscard]] std::int64_t Now() const { return FNow; }

 private:
  void Wait(std::int64_t ms) {
    for (; ms > 0; --ms, ++FNow) FValve.Step();
  }

  TGasValve FValve;
  TPressureSensor FSensor;
  std::int64_t FNow = 0;
};

}  // namespace

TAddedGasMethods::TAddedGasMethods(std::vector<TGasMethod> methods) { GAdded = std::move(methods); }
TAddedGasMethods::~TAddedGasMethods() { GAdded.clear(); }

std::vector<TGasMethod> GasMethods() {
  std::vector<TGasMethod> methods{MethodOf<TExactMethod>("exact"), MethodOf<TRefinedMethod>("refined"),
                                  MethodOf<TUniformMethod>("uniform-15")};
  methods.insert(methods.end(), GAdded.begin(), GAdded.end());
  return methods;
}

TGasMethod GasMethod(std::string_view name) {
  for (TGasMethod& method : GasMethods())
    if (method.Name == name) return std::move(method);
  throw std::out_of_range("no method of calibration is called " + std::string(name));
}

double TableErrorPercent(const TIncList& table, const TGasValveParams& valve, double* atVolt) {
  double largest = 0.0;
  for (int i = 0; i <= 1000; ++i) {
    const double volt = i / 100.0;
    const double error = std::abs(table.GetY(volt) - StaticBar(valve, volt));
    if (error <= largest) continue;
    largest = error;
    if (atVolt) *atVolt = volt;
  }
  return 100.0 * largest / StaticBar(valve, kFullScaleVolt);
}

TStudyRun StudyGasValve(const TGasMethod& method, std::int32_t gasType, const TGasValveParams& valve,
                        std::uint64_t seed) {
  TBench bench(valve, seed);
  const std::unique_ptr<IGasMethod> calibration = method.Make(gasType);
  TStudyRun run{.Finished = true};
  while (const std::optional<double> volt = calibration->NextVolt()) {
    run.Finished = run.Points < kMostStudyPoints && bench.Measure(*calibration, *volt);
    if (!run.Finished) break;
    ++run.Points;
  }
  run.MachineMs = static_cast<double>(bench.Now());
  run.Table = calibration->Table();
  run.ErrorPercent = TableErrorPercent(run.Table, valve, &run.AtVolt);
  return run;
}

namespace {

TStudyRow RowOf(const std::string& method, std::int32_t gasType, const std::vector<TStudyRun>& runs) {
  TStudyRow row{.Method = method, .GasType = gasType};
  std::vector<double> errors;
  const double count = static_cast<double>(runs.size());
  for (const TStudyRun& run : runs) {
    row.Points += run.Points / count;
    row.Seconds += run.MachineMs / 1000.0 / count;
    row.Unfinished += run.Finished ? 0 : 1;
    errors.push_back(run.ErrorPercent);
  }
  if (errors.empty()) return row;
  std::ranges::sort(errors);
  // The value that this share of the valves does not exceed.
  const auto quantile = [&](double share) {
    return errors[static_cast<std::size_t>(std::max(std::ceil(share * count), 1.0)) - 1];
  };
  row.Median = quantile(0.5);
  row.Percent90 = quantile(0.9);
  row.Worst = errors.back();
  return row;
}

}  // namespace

std::vector<TStudyRow> StudyGasMethods(std::int32_t valves, std::uint64_t seed) {
  std::vector<TStudyRow> rows;
  for (const TGasMethod& method : GasMethods()) {
    std::vector<TStudyRun> all;
    for (std::int32_t gas = 1; gas <= kStudyGases; ++gas) {
      TSimRandom random(seed + static_cast<std::uint64_t>(gas));
      std::vector<TStudyRun> runs;
      for (std::int32_t i = 0; i < valves; ++i) {
        const TGasValveParams valve = DrawGasValve(gas, random);
        runs.push_back(StudyGasValve(method, gas, valve, random.Next()));
      }
      rows.push_back(RowOf(method.Name, gas, runs));
      all.insert(all.end(), runs.begin(), runs.end());
    }
    rows.push_back(RowOf(method.Name, 0, all));
  }
  return rows;
}

}  // namespace ixoverify
