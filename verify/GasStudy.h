// How well the methods of calibrating a gas valve do over many valves: each is run on every valve of a family, straight
// on the simulated valve with the pauses and sampling intervals of the machine's procedure.
//
// Needs a machine configuration that has the gas's branch. V, bar, ms.
#pragma once

#include <cstdint>
#include <vector>

#include "ixocamglue/gascal/Ugasdots.h"
#include "machines/simulated/GasValve.h"

namespace ixoverify {
using namespace ixocamglue;

inline constexpr std::int32_t kStudyGases = 3;  // Air, O2, N2: types 1 to 3

enum class TGasMethod : std::uint8_t { gmExact, gmRefined, gmUniform };
using enum TGasMethod;

[[nodiscard]] const char* GasMethodName(TGasMethod method);

struct TStudyRun {
  std::int32_t Points = 0;    // measured
  double MachineMs = 0.0;     // from gas on to the last point
  double ErrorPercent = 0.0;  // largest |table - true| over 0..10 V in steps of 0.01 V, of the true pressure at 10 V
  double AtVolt = 0.0;        // where
  bool Finished = false;      // every voltage settled within its time
  TIncList Table;
};

// One calibration of a valve. The same seed, the same run.
[[nodiscard]] TStudyRun StudyGasValve(TGasMethod method, std::int32_t gasType, const TGasValveParams& valve,
                                      std::uint64_t seed);

// The table against the valve; play is left out.
[[nodiscard]] double TableErrorPercent(const TIncList& table, const TGasValveParams& valve, double* atVolt = nullptr);

struct TStudyRow {
  TGasMethod Method = gmExact;
  std::int32_t GasType = 0;  // 0: all gases
  double Points = 0.0;       // mean
  double Seconds = 0.0;      // mean
  double Median = 0.0, Percent90 = 0.0, Worst = 0.0;
  std::int32_t Unfinished = 0;
};

// `valves` of each of the gases Air, O2, N2 (1 to 3): a row per method and gas, then one per method over all.
[[nodiscard]] std::vector<TStudyRow> StudyGasMethods(std::int32_t valves, std::uint64_t seed);

}  // namespace ixoverify
