#include "simulator/Gas.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/NcWatch.h"
#include "support/Format.h"

namespace ixocamglue {
namespace {

constexpr double kSettledBar = 1e-4;
constexpr double kLowShare = 0.8;  // of the set pressure
constexpr std::uint64_t kLowMs = 1000;
constexpr std::uint64_t kLowLags = 5;  // time constants, beside kLowMs

}  // namespace

TSimGas::TSimGas(TSimCore& core, const TSimConfig& config)
    : FCore(core),
      FBranches(config.GasBranches),
      FSwitchMs(static_cast<std::uint64_t>(config.Physics.SwitchTimeMs)),
      FLowAfterMs(kLowMs + kLowLags * static_cast<std::uint64_t>(config.Physics.GasTimeConstantMs)),
      FLag(1.0 / (config.Physics.GasTimeConstantMs + 1.0)),
      FBranch(FBranches.empty() ? 0 : FBranches.front().GasType) {}

TSimGas::~TSimGas() {
  if (TNcWatch* const watch = NcWatch()) watch->GasOn.End();
}

bool TSimGas::IsBusy() {
  if (!FCore.Gate.Enter("gas", "IsBusy", vkRead)) return true;
  const TSimScope scope(FCore);
  return FCore.Now() < FSwitchedAtMs;
}

bool TSimGas::GetGas() {
  if (!FCore.Gate.Enter("gas", "GetGas", vkRead)) return true;
  const TSimScope scope(FCore);
  return FOn;
}

std::int32_t TSimGas::GetBranch() {
  if (!FCore.Gate.Enter("gas", "GetBranch", vkRead)) return 0;
  const TSimScope scope(FCore);
  return FBranch;
}

double TSimGas::GetPressure() {
  if (!FCore.Gate.Enter("gas", "GetPressure", vkRead)) return 0.0;
  const TSimScope scope(FCore);
  return FSetBar;
}

void TSimGas::SelectBranch(std::int32_t branch) {
  if (!FCore.Gate.Enter("gas", "SelectBranch", vkSet, Format("%d", branch))) return;
  const TSimScope scope(FCore);
  if (!Fitted(branch)) return FCore.Event("gas", Format("branch %d is not fitted", branch));
  if (branch == FBranch) return;
  FBranch = branch;
  FSwitchedAtMs = FCore.Now() + FSwitchMs;
  LimitPressure();
  if (FOn) ShowOn();
}

void TSimGas::SetPressure(double bar) {
  if (!FCore.Gate.Enter("gas", "SetPressure", vkSet, Format("%.2f", bar))) return;
  const TSimScope scope(FCore);
  if (!std::isfinite(bar)) return FCore.Event("gas", "a pressure that is no number is not set");
  const double before = FSetBar;
  FSetBar = bar;
  LimitPressure();
  if (FOn && FSetBar != before) ShowOn();
}

void TSimGas::SwitchOn() {
  if (!FCore.Gate.Enter("gas", "SwitchOn", vkStart)) return;
  const TSimScope scope(FCore);
  Switch(true);
}

void TSimGas::SwitchOff() {
  if (!FCore.Gate.Enter("gas", "SwitchOff", vkOff)) return;
  const TSimScope scope(FCore);
  Switch(false);
}

TSimGas::TFacts TSimGas::Facts() const {
  FCore.AssertLocked();
  return {FOn, FBranch, FSetBar, FBar, FCore.Now() < FSwitchedAtMs};
}

void TSimGas::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  WatchPressure(nowMs);
  const double target = FOn && nowMs >= FSwitchedAtMs ? std::min(FSetBar, FSupplyBar) : 0.0;
  if (FBar == target) return;
  FBar += (target - FBar) * FLag;
  if (std::abs(target - FBar) < kSettledBar) FBar = target;
}

void TSimGas::WatchPressure(std::uint64_t nowMs) {
  const bool enough = !FOn || FBar >= kLowShare * FSetBar;
  if (enough) FEnoughAtMs = nowMs;
  if (FLowBranch != 0 && (enough || FLowBranch != FBranch))
    FCore.DeviceAlarms.GasLow(std::exchange(FLowBranch, 0), false);
  if (enough || FLowBranch != 0 || nowMs - FEnoughAtMs <= FLowAfterMs) return;
  FLowBranch = FBranch;
  FCore.DeviceAlarms.GasLow(FLowBranch, true);
}

void TSimGas::SetSupply(double bar) {
  const TSimScope scope(FCore);
  if (std::isfinite(bar) && bar >= 0.0) FSupplyBar = bar;
}

const TSimGasBranch* TSimGas::Fitted(std::int32_t branch) const {
  const auto it = std::ranges::find(FBranches, branch, &TSimGasBranch::GasType);
  return it == FBranches.end() ? nullptr : &*it;
}

void TSimGas::LimitPressure() {
  const TSimGasBranch* const branch = Fitted(FBranch);
  const double limited = std::clamp(FSetBar, 0.0, branch ? branch->MaxPressure : 0.0);
  if (limited == FSetBar) return;
  FCore.Event("gas", Format("%.2f bar limited to %.2f", FSetBar, limited));
  FSetBar = limited;
}

void TSimGas::Switch(bool on) {
  if (FOn == on) return;
  FOn = on;
  FSwitchedAtMs = FCore.Now() + FSwitchMs;
  if (on)
    ShowOn();
  else
    FCore.Signal("gas off");
  TNcWatch* const watch = NcWatch();
  if (!watch) return;
  if (on)
    watch->GasOn.Begin(FCore.Now());
  else
    watch->GasOn.End();
}

void TSimGas::ShowOn() { FCore.Signal(Format("gas on %d %.2f", FBranch, FSetBar)); }

}  // namespace ixocamglue
