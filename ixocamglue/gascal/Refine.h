// The refined method of calibrating a gas valve: goes on where the exact procedure ends, with up to as many points as
// that may have.
//
// Three things make its curve better. Each further voltage is put where the polyline through the points can be most
// wrong. The pressure at the end of settling is extrapolated, so that a voltage takes less time and a slow line leaves
// less error. One voltage is measured a second time from the other side, which shows the valve's play; every point is
// then moved to where it would stand without. No locks; V, bar, ms; nothing throws. What is recorded has finite
// numbers, of which no range is checked; a pressure below 0 counts as 0.
//
// One gas: Reset; Record after every voltage of the exact procedure, in the order measured; then GetNextDA, kPauseMs,
// samples until CheckSettled, Record, until no voltage is proposed; BuildCurve in place of ReBuildGasAdjList.
#pragma once

#include <cstdint>
#include <vector>

#include "ixocamglue/gascal/Ugasdots.h"

namespace ixocamglue {

class TGasRefine {
 public:
  static constexpr std::int64_t kPauseMs = 200;  // from the voltage to the first sample

  void Reset() { *this = {}; }
  // What was measured: the samples (ms, bar) at this voltage, and the pressure that counts as settled.
  void Record(double volt, const TIncList& samples, double settled);

  // The next voltage; the same again until Record. False: the curve is good enough, all points are used, or there is no
  // pressure to speak of.
  [[nodiscard]] bool GetNextDA(double& volt) const;
  // Whether the samples since the voltage was put out tell where the pressure will end; `press` then says where, and
  // stays as it is otherwise. Looks at every tenth sample.
  [[nodiscard]] bool CheckSettled(const TIncList& samples, double& press) const;
  // Replaces the list by the final curve: strictly increasing, from (0, 0), with a point more where the curve bends.
  void BuildCurve(TIncList& list) const;

  [[nodiscard]] double Play() const { return FPlay; }  // V, half the width; 0 while not known

 private:
  struct TPoint {
    double Volt = 0.0;
    double Bar = 0.0;
    bool Falling = false;  // the voltage before was higher
  };

  [[nodiscard]] double HighestBar() const;
  // The origin and the points where they would stand without play.
  [[nodiscard]] std::vector<TDot> Knots() const;
  // The voltage whose second measurement from above shows the play best.
  [[nodiscard]] bool PlayVolt(double& volt) const;
  [[nodiscard]] const TPoint* Partner(const TPoint& point) const;  // the same voltage, from the other side
  void LearnPlay();

  std::vector<TPoint> FPoints;  // in the order measured
  double FPlay = 0.0;
};

// Where a curve through these knots, (0, 0) first, can be most wrong between two of them.
struct TCurveDoubt {
  double Bar = 0.0;  // by so much; 0 for fewer than three knots
  double FromVolt = 0.0, ToVolt = 0.0;
};
[[nodiscard]] TCurveDoubt LargestDoubt(const std::vector<TDot>& knots);

}  // namespace ixocamglue
