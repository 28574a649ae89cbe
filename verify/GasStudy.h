// How well the methods of calibrating a gas valve do over many valves: each is run on every valve of a family, straight
// on the simulated valve with the pauses and sampling intervals of the machine's procedure.
//
// Needs a machine configuration that has the gas's branch. V, bar, ms. One thread. What does not settle or come to an
// end is a run that is not finished; what a method throws passes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/gascal/Ugasdots.h"
#include "machines/simulated/GasValve.h"

namespace ixoverify {
using namespace ixocamglue;

inline constexpr std::int32_t kStudyGases = 3;  // Air, O2, N2: types 1 to 3
inline constexpr std::int32_t kMostStudyPoints = 100;

// A method of calibration, made anew for each valve: which voltages are measured, when the pressure has settled, and
// the table that comes of it. One thread.
class IGasMethod {
 public:
  virtual ~IGasMethod() = default;
  // The voltage to measure next, V; limited to 0..10. None: that was the last. Asked when the one before has settled.
  virtual std::optional<double> NextVolt() = 0;
  // How long to wait behind it before the first reading, ms.
  virtual std::int64_t PauseMs() = 0;
  // A reading at this voltage, every 5 ms for 15 s at most: the pressure that counts, once it has settled.
  virtual std::optional<double> Sample(std::int64_t ms, double bar) = 0;
  // Pressure by voltage, in rising order of V: what the machine would interpolate in.
  virtual TIncList Table() = 0;
};

struct TGasMethod {
  std::string Name;  // "exact"
  std::function<std::unique_ptr<IGasMethod>(std::int32_t gasType)> Make;
};

// "exact", "refined", "uniform-15", and behind them those of an application.
[[nodiscard]] std::vector<TGasMethod> GasMethods();
// Throws std::out_of_range for another name.
[[nodiscard]] TGasMethod GasMethod(std::string_view name);

// The methods of an application, for the life of this object.
class TAddedGasMethods {
 public:
  explicit TAddedGasMethods(std::vector<TGasMethod> methods);
  ~TAddedGasMethods();
  TAddedGasMethods(const TAddedGasMethods&) = delete;
  TAddedGasMethods& operator=(const TAddedGasMethods&) = delete;
};

struct TStudyRun {
  std::int32_t Points = 0;    // measured
  double MachineMs = 0.0;     // from gas on to the last point
  double ErrorPercent = 0.0;  // largest |table - true| over 0..10 V in steps of 0.01 V, of the true pressure at 10 V
  double AtVolt = 0.0;        // where
  bool Finished = false;      // every voltage settled within its time, and there were not more than kMostStudyPoints
  TIncList Table;
};

// One calibration of a valve. The same seed, the same run.
[[nodiscard]] TStudyRun StudyGasValve(const TGasMethod& method, std::int32_t gasType, const TGasValveParams& valve,
                                      std::uint64_t seed);

// The table against the valve; play is left out.
[[nodiscard]] double TableErrorPercent(const TIncList& table, const TGasValveParams& valve, double* atVolt = nullptr);

struct TStudyRow {
  std::string Method;
  std::int32_t GasType = 0;  // 0: all gases
  double Points = 0.0;       // mean
  double Seconds = 0.0;      // mean
  double Median = 0.0, Percent90 = 0.0, Worst = 0.0;
  std::int32_t Unfinished = 0;
};

// `valves` of each of the gases Air, O2, N2 (1 to 3), each method on the same ones: a row per method and gas, then one
// per method over all.
[[nodiscard]] std::vector<TStudyRow> StudyGasMethods(std::int32_t valves, std::uint64_t seed);

}  // namespace ixoverify
