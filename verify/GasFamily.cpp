#include "verify/GasFamily.h"

#include <cmath>

namespace ixoverify {
namespace {

struct TSpan {
  double Low = 0.0;
  double High = 0.0;
};

struct TFamily {
  TSpan U0, Uk, Psup, FillMs, BleedMs;
  TSpan NoisePercent;  // of the sensor's range
  double Ranges[2];    // bar
};

constexpr TFamily kFamilies[] = {
    {{0.1, 0.9}, {3.2, 9.4}, {5, 13}, {30, 160}, {50, 260}, {0.03, 0.14}, {16, 16}},
    {{0.03, 0.38}, {2.6, 9.4}, {4, 12}, {60, 260}, {90, 450}, {0.013, 0.04}, {10, 16}},
    {{0.15, 0.95}, {3.6, 9.4}, {12, 27}, {60, 260}, {100, 420}, {0.04, 0.18}, {25, 30}},
};
constexpr TSpan kUnreachedKnee{10.2, 13};  // of one valve in five: the knee lies beyond full scale
constexpr double kUnreachedShare = 0.2;
constexpr TSpan kGamma{0.85, 1.35};
constexpr TSpan kM{3.5, 24};
constexpr TSpan kPlay{0, 0.05};
constexpr TSpan kDeadMs{5, 45};
constexpr TSpan kVentMs{40, 120};
constexpr TSpan kCreep{0, 0.03};
constexpr TSpan kCreepMs{800, 3500};
constexpr TSpan kRippleShare{0.2, 1};  // of the noise
constexpr TSpan kRippleMs{10, 60};
constexpr double kOffsetShare = 0.001;  // of the range, either way

double Draw(TSimRandom& random, const TSpan& span) { return random.Between(span.Low, span.High); }

}  // namespace

TGasValveParams DrawGasValve(std::int32_t gasType, TSimRandom& random) {
  const TFamily& family = kFamilies[gasType >= 1 && gasType <= 3 ? gasType - 1 : 0];
  TGasValveParams p;
  p.U0 = Draw(random, family.U0);
  p.Uk = Draw(random, random.Share() < kUnreachedShare ? kUnreachedKnee : family.Uk);
  p.Psup = Draw(random, family.Psup);
  p.Gamma = Draw(random, kGamma);
  p.M = std::exp(random.Between(std::log(kM.Low), std::log(kM.High)));
  p.Play = Draw(random, kPlay);
  p.DeadMs = static_cast<std::int32_t>(std::lround(Draw(random, kDeadMs)));
  p.FillMs = Draw(random, family.FillMs);
  p.BleedMs = Draw(random, family.BleedMs);
  p.VentMs = Draw(random, kVentMs);
  p.Creep = Draw(random, kCreep);
  p.CreepMs = Draw(random, kCreepMs);
  p.Range = p.Psup < family.Ranges[0] ? family.Ranges[0] : family.Ranges[1];
  p.Noise = Draw(random, family.NoisePercent) / 100.0 * p.Range;
  p.Ripple = Draw(random, kRippleShare) * p.Noise;
  p.RippleMs = Draw(random, kRippleMs);
  p.Offset = random.Between(-kOffsetShare, kOffsetShare) * p.Range;
  return p;
}

}  // namespace ixoverify
