#include "machines/simulated/GasValve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "ixocamglue/support/Lists.h"

namespace ixocamglue {
namespace {

constexpr double kConverterStepV = kFullScaleV / 32767.0;
constexpr double kSensorSteps = 4096.0;
constexpr double kValveRestsBar = 1e-6;

constexpr double kLowSupplyShare = 0.3;
constexpr double kSlowLineFactor = 20.0;
constexpr double kFaultOffsetBar = -0.5;
constexpr double kFaultDeadBandV = 3.0;
constexpr double kLeastFaultRiseV = 0.5;  // of the rise that a wide dead band leaves

constexpr std::array<std::pair<TValveFault, const char*>, 10> kValveFaults{{
    {vfNone, "none"},
    {vfStuck, "stuck"},
    {vfNoSupply, "no-supply"},
    {vfLowSupply, "low-supply"},
    {vfDeadSensor, "dead-sensor"},
    {vfNonFinite, "non-finite"},
    {vfSlowLine, "slow-line"},
    {vfSlowUpdate, "slow-update"},
    {vfNegativeOffset, "negative-offset"},
    {vfWideDeadBand, "wide-dead-band"},
}};

double SharePerMs(double timeConstantMs) { return -std::expm1(-1.0 / timeConstantMs); }

}  // namespace

TGasValveParams GasValveParams(std::int32_t gasType) {
  switch (gasType) {
    case 2:
    case 5:
      return {.U0 = 0.18,
              .Uk = 8.6,
              .Psup = 9.5,
              .Gamma = 1.12,
              .M = 14.0,
              .Play = 0.008,
              .DeadMs = 30,
              .FillMs = 160.0,
              .BleedMs = 300.0,
              .VentMs = 90.0,
              .Creep = 0.015,
              .CreepMs = 2000.0,
              .Noise = 0.003,
              .Ripple = 0.002,
              .RippleMs = 40.0,
              .Offset = 0.004,
              .Range = 10.0};
    case 3:
    case 6:
      return {.U0 = 0.55,
              .Uk = 6.4,
              .Psup = 21.0,
              .Gamma = 1.04,
              .M = 7.0,
              .Play = 0.030,
              .DeadMs = 25,
              .FillMs = 130.0,
              .BleedMs = 240.0,
              .VentMs = 80.0,
              .Creep = 0.020,
              .CreepMs = 2500.0,
              .Noise = 0.030,
              .Ripple = 0.020,
              .RippleMs = 30.0,
              .Offset = -0.020,
              .Range = 25.0};
    default: return {};
  }
}

double StaticBar(const TGasValveParams& params, double volt) {
  if (volt <= params.U0) return 0.0;
  const double q = std::pow((volt - params.U0) / (params.Uk - params.U0), params.Gamma);
  // q / (1 + q^m)^(1/m), written so that a high power does not overflow.
  const double share = q <= 1.0 ? q / std::pow(1.0 + std::pow(q, params.M), 1.0 / params.M)
                                : 1.0 / std::pow(1.0 + std::pow(q, -params.M), 1.0 / params.M);
  return params.Psup * share;
}

std::optional<TValveFault> ValveFaultByName(std::string_view name) {
  const auto it = std::ranges::find(kValveFaults, name, [](const auto& row) { return std::string_view(row.second); });
  return it == kValveFaults.end() ? std::nullopt : std::optional(it->first);
}

const char* ValveFaultName(TValveFault fault) {
  return std::ranges::find(kValveFaults, fault, [](const auto& row) { return row.first; })->second;
}

std::string ValveFaultNames() { return Joined(kValveFaults, &decltype(kValveFaults)::value_type::second); }

// --- TGasValve ---

TGasValve::TGasValve(const TGasValveParams& params) : FGiven(params), FParams(params) { Derive(); }

void TGasValve::Output(double volt) {
  if (!std::isfinite(volt)) return;
  const double put = std::round(std::clamp(volt, 0.0, kFullScaleV) / kConverterStepV) * kConverterStepV;
  if (put == FVolt) return;
  FVolt = put;
  FDue.push_back({FStep + static_cast<std::uint64_t>(FParams.DeadMs), put});
  Wake();
}

void TGasValve::SetOpen(bool open) {
  if (std::exchange(FOpen, open) != open) Wake();
}

void TGasValve::LimitSupply(double bar) {
  FSupplyLimit = bar;
  Derive();
}

void TGasValve::SetFault(TValveFault fault) {
  FFault = fault;
  Derive();
}

void TGasValve::TakeLine(double bar) {
  FFast = FSlow = bar;
  Wake();
}

void TGasValve::Step() {
  if (FRests) return;
  ++FStep;
  for (; !FDue.empty() && FDue.front().AtStep <= FStep; FDue.pop_front()) {
    const double heard = FDue.front().Volt;
    if (FFault != vfStuck) FSpool = std::clamp(FSpool, heard - FParams.Play, heard + FParams.Play);
    SetStatic();
  }
  const double target = FOpen ? FStatic : 0.0;
  FFast += (target - FFast) * (!FOpen ? FVent : target > FFast ? FFill : FBleed);
  FSlow += (target - FSlow) * (FOpen ? FCreep : FVent);
  if (FDue.empty() && std::abs(target - FFast) < kValveRestsBar &&
      FParams.Creep * std::abs(target - FSlow) < kValveRestsBar) {
    FFast = FSlow = target;
    FRests = true;
  }
}

double TGasValve::Bar() const { return (1.0 - FParams.Creep) * FFast + FParams.Creep * FSlow; }

void TGasValve::Derive() {
  FParams = FGiven;
  if (FFault == vfNoSupply) FParams.Psup = 0.0;
  if (FFault == vfLowSupply) FParams.Psup *= kLowSupplyShare;
  FParams.Psup = std::min(FParams.Psup, FSupplyLimit);
  if (FFault == vfWideDeadBand)
    FParams.U0 = std::max(FParams.U0, std::min(FParams.U0 + kFaultDeadBandV, FParams.Uk - kLeastFaultRiseV));
  const double slow = FFault == vfSlowLine ? kSlowLineFactor : 1.0;
  FFill = SharePerMs(FParams.FillMs * slow);
  FBleed = SharePerMs(FParams.BleedMs * slow);
  FVent = SharePerMs(FParams.VentMs);
  FCreep = SharePerMs(FParams.CreepMs);
  SetStatic();
  Wake();
}

void TGasValve::SetStatic() { FStatic = StaticBar(FParams, FSpool); }

// --- TPressureSensor ---

TPressureSensor::TPressureSensor(const TGasValveParams& params, std::uint64_t seed) : FParams(params), FRandom(seed) {}

double TPressureSensor::Read(std::uint64_t nowMs, double bar) {
  if (FReadMs == nowMs) return FReading;
  // The shared part has the same statistics however often it is read.
  const double kept = FReadMs ? std::exp(-static_cast<double>(nowMs - *FReadMs) / FParams.RippleMs) : 0.0;
  FReadMs = nowMs;
  FRipple = kept * FRipple + std::sqrt(1.0 - kept * kept) * FParams.Ripple * FRandom.Normal();
  const double step = FParams.Range / kSensorSteps;
  const double offset = FParams.Offset + (FFault == vfNegativeOffset ? kFaultOffsetBar : 0.0);
  const double seen = bar + offset + FRipple + FParams.Noise * FRandom.Normal();
  FReading = std::min(std::round(seen / step) * step, FParams.Range);
  ++FCount;
  if (FFault == vfDeadSensor) FReading = 0.0;
  if (FFault == vfNonFinite && FCount % 2 == 0) FReading = std::numeric_limits<double>::quiet_NaN();
  return FReading;
}

}  // namespace ixocamglue
