// The nozzle's capacitance over the plate, and what a height calibration makes of it. Heights mm, capacitances pF.
//
// C(h) falls with the distance, steeply near the plate and hardly beyond kReach. Each measurement carries noise that
// the seed decides, bounded so that an undisturbed sensor never misjudges a height by chance. Used with the core's lock
// held.
#pragma once

#include <cstdint>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "machines/simulated/Random.h"

namespace ixocamglue {

class TCapacitance {
 public:
  static constexpr double kReach = 25.0;    // beyond this distance the plate is not seen
  static constexpr double kNoise = 0.0004;  // to either side, of a sound sensor

  explicit TCapacitance(std::uint64_t seed) : FRandom(seed) {}

  [[nodiscard]] static double Curve(double height);
  [[nodiscard]] static double HeightOf(double capacitance);  // infinite where the curve never falls so low
  [[nodiscard]] double Measure(double height);
  // How far a sound sensor may misjudge this height.
  [[nodiscard]] static double Uncertainty(double height);

  void SetNoise(double amplitude) { FNoise = amplitude; }
  // Dirt on the nozzle: the curve gets waves of this amplitude.
  void SetRipple(double amplitude) { FRipple = amplitude; }

 private:
  TSimRandom FRandom;
  double FNoise = kNoise;
  double FRipple = 0.0;
};

// Judges the samples of one calibration: first those of the way down, then those at rest on the plate.
class TCapJudgement {
 public:
  enum TError : std::int32_t { ceGood, ceNoPlate, ceNoisy, ceNotSmooth, ceInterrupted };

  void Begin() { *this = {}; }
  void Approaching(double capacitance);
  void Resting(double capacitance);

  [[nodiscard]] std::uint32_t Rested() const { return FRested; }  // samples at rest
  [[nodiscard]] TNcCaliResult Result(bool plateFound) const;
  [[nodiscard]] static const char* ErrorText(std::int32_t error);

 private:
  void See(double capacitance);

  double FLeast = 0.0, FMost = 0.0;  // of all samples
  double FWorstDrop = 0.0;           // below the highest so far, on the way down
  double FRestLeast = 0.0, FRestMost = 0.0, FRestSum = 0.0;
  std::uint32_t FSeen = 0;
  std::uint32_t FRested = 0;
};

}  // namespace ixocamglue
