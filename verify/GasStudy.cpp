#include "verify/GasStudy.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "ixocamglue/gascal/Refine.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "verify/GasFamily.h"

namespace ixoverify {
namespace {

// As the calibration's state has them.
constexpr std::int64_t kGasOnMs = 500;
constexpr std::int64_t kSampleMs = 5;
constexpr std::int64_t kUnsettledMs = 15'000;
constexpr std::int64_t PauseMs(std::int32_t gasType) { return gasType == 2 ? 600 : 300; }

// A valve, its sensor and a clock.
class TBench {
 public:
  TBench(const TGasValveParams& params, std::uint64_t seed) : FValve(params), FSensor(params, seed) {
    FValve.SetOpen(true);
    Wait(kGasOnMs);
  }

  void Wait(std::int64_t ms) {
    for (; ms > 0; --ms, ++FNow) FValve.Step();
  }
  void Output(double volt) { FValve.Output(volt); }
  void Sample(TQuickGasDAAdjust& adjust) {
    adjust.AddSample(FNow, FSensor.Read(static_cast<std::uint64_t>(FNow), FValve.Bar()));
  }
  [[nodiscard]] std::int64_t Now() const { return FNow; }

 private:
  TGasValve FValve;
  TPressureSensor FSensor;
  std::int64_t FNow = 0;
};

// Measures one voltage; none when it does not settle. `settled` answers the pressure.
template <class Settled>
std::optional<double> Measure(TBench& bench, TQuickGasDAAdjust& adjust, double volt, std::int64_t pauseMs,
                              Settled settled) {
  bench.Output(volt);
  adjust.ResetGasPressList();
  const std::int64_t limit = bench.Now() + kUnsettledMs;
  for (bench.Wait(pauseMs); bench.Now() < limit; bench.Wait(kSampleMs)) {
    bench.Sample(adjust);
    if (const std::optional<double> press = settled()) return press;
  }
  return std::nullopt;
}

}  // namespace

const char* GasMethodName(TGasMethod method) {
  switch (method) {
    case gmExact: return "exact";
    case gmRefined: return "refined";
    case gmUniform: return "uniform-15";
  }
  return "";
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

TStudyRun StudyGasValve(TGasMethod method, std::int32_t gasType, const TGasValveParams& valve, std::uint64_t seed) {
  TBench bench(valve, seed);
  TQuickGasDAAdjust adjust;
  adjust.SetBranch(gasType);
  adjust.Reset();
  TGasRefine refine;
  const auto stable = [&]() -> std::optional<double> {
    double press = 0.0;
    std::int32_t stableMs = 0, riseMs = 0;
    return adjust.CheckGasPressStable(press, stableMs, riseMs, true) ? std::optional(press) : std::nullopt;
  };
  const auto foreseen = [&]() -> std::optional<double> {
    double press = 0.0;
    return refine.CheckSettled(adjust.Samples(), press) ? std::optional(press) : std::nullopt;
  };

  TStudyRun run;
  const auto measure = [&](double volt, std::int64_t pauseMs, const auto& settled) {
    const std::optional<double> press = Measure(bench, adjust, volt, pauseMs, settled);
    if (!press) return false;
    adjust.RecordPoint(volt, *press);
    refine.Record(volt, adjust.Samples(), *press);
    ++run.Points;
    return true;
  };
  const auto procedure = [&] {
    double volt = 0.0;
    if (method == gmUniform) {
      for (int i = 1; i <= kMaxAdjPoints; ++i)
        if (!measure(kFullScaleVolt * i / kMaxAdjPoints, PauseMs(gasType), stable)) return false;
      return true;
    }
    while (adjust.GetNextAdjDA3P(volt))
      if (!measure(volt, PauseMs(gasType), stable)) return false;
    while (method == gmRefined && refine.GetNextDA(volt))
      if (!measure(volt, TGasRefine::kPauseMs, foreseen)) return false;
    return true;
  };
  run.Finished = procedure();
  run.MachineMs = static_cast<double>(bench.Now());
  run.Table = adjust.CaliList();
  if (method == gmRefined)
    refine.BuildCurve(run.Table);
  else
    adjust.ReBuildGasAdjList(run.Table);
  run.ErrorPercent = TableErrorPercent(run.Table, valve, &run.AtVolt);
  return run;
}

namespace {

TStudyRow RowOf(TGasMethod method, std::int32_t gasType, const std::vector<TStudyRun>& runs) {
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
  for (const TGasMethod method : {gmExact, gmRefined, gmUniform}) {
    std::vector<TStudyRun> all;
    for (std::int32_t gas = 1; gas <= kStudyGases; ++gas) {
      TSimRandom random(seed + static_cast<std::uint64_t>(gas));
      std::vector<TStudyRun> runs;
      for (std::int32_t i = 0; i < valves; ++i) {
        const TGasValveParams valve = DrawGasValve(gas, random);
        runs.push_back(StudyGasValve(method, gas, valve, random.Next()));
      }
      rows.push_back(RowOf(method, gas, runs));
      all.insert(all.end(), runs.begin(), runs.end());
    }
    rows.push_back(RowOf(method, 0, all));
  }
  return rows;
}

}  // namespace ixoverify
