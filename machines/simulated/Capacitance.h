// The nozzle's capacitance over the plate. Heights mm, capacitances pF.
//
// C(h) falls with the distance, steeply near the plate and hardly beyond kReach. Each measurement carries noise that
// the seed decides, bounded so that an undisturbed sensor never misjudges a height by chance. Used with the core's lock
// held. Nothing here fails.
#pragma once

#include <cstdint>

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

}  // namespace ixocamglue
