#include "machines/simulated/Gas.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr double kSettledBar = 1e-4;
constexpr double kLowShare = 0.8;  // of the set pressure
constexpr std::uint64_t kLowMs = 1000;
constexpr std::uint64_t kLowLags = 5;  // time constants, beside kLowMs

}  // namespace

TSimGas::TSimGas(TSimCore& core, const TSimConfig& config, std::uint64_t seed)
    : FCore(core),
      FBranches(config.GasBranches),
      FSwitchMs(static_cast<std::uint64_t>(config.Physics.SwitchTimeMs)),
      FLowAfterMs(kLowMs + kLowLags * static_cast<std::uint64_t>(config.Physics.GasTimeConstantMs)),
      FLag(1.0 / (config.Physics.GasTimeConstantMs + 1.0)),
      FBranch(FBranches.empty() ? 0 : FBranches.front().GasType) {
  for (const TSimGasBranch& branch : FBranches) {
    const TSimGasValve valve = config.GasValve(branch.GasType);
    FLines.emplace_back(valve.Params, seed + static_cast<std::uint64_t>(branch.GasType)).SetFault(valve.Fault);
  }
}

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
  Drive(TDrive::Ideal);
  FBranch = branch;
  FSwitchedAtMs = FCore.Now() + FSwitchMs;
  LimitPressure();
  if (FOn) ShowOn();
  FollowPressure();
}

void TSimGas::SetPressure(double bar) {
  if (!FCore.Gate.Enter("gas", "SetPressure", vkSet, Format("%.2f", bar))) return;
  const TSimScope scope(FCore);
  if (!std::isfinite(bar)) return FCore.Event("gas", "a pressure that is no number is not set");
  const double before = FSetBar;
  FSetBar = bar;
  LimitPressure();
  if (FOn && FSetBar != before) ShowOn();
  FollowPressure();
}

void TSimGas::OutputDA(double volt) {
  // 0 V shuts the valve.
  if (!FCore.Gate.Enter("gas", "OutputDA", volt > 0.0 ? vkSet : vkOff, Format("%.2f", volt))) return;
  const TSimScope scope(FCore);
  if (!std::isfinite(volt)) return FCore.Event("gas", "a voltage that is no number is not put out");
  const TSimGasBranch* const branch = Fitted(FBranch);
  if (!branch || branch->DAPort == 0) return FCore.Event("gas", Format("branch %d has no DA port", FBranch));
  const double limited = std::clamp(volt, 0.0, kFullScaleV);
  if (limited != volt) FCore.Event("gas", Format("%.2f V limited to %.2f", volt, limited));
  Drive(TDrive::Raw);
  Output(limited);
}

double TSimGas::ReadPressure() {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  if (!FCore.Gate.Enter("sensor", "GetRtGasPressure", vkRead)) return kNone;
  const auto slow = [&] {
    const TSimScope scope(FCore);
    const TLine* const line = Line(FBranch);
    return line && line->Fault == vfSlowUpdate;
  };
  if (slow()) Clock().Sleep(kSlowReadingMs);
  const TSimScope scope(FCore);
  TLine* const line = Line(FBranch);
  return line ? line->Sensor.Read(FCore.Now(), FBar) : kNone;
}

void TSimGas::SwitchOn() {
  if (!FCore.Gate.Enter("gas", "SwitchOn", vkStart)) return;
  NoteGasOn();
  const TSimScope scope(FCore);
  Switch(true);
}

void TSimGas::SwitchOff() {
  NoteGasOff();
  if (!FCore.Gate.Enter("gas", "SwitchOff", vkOff)) return;
  const TSimScope scope(FCore);
  Halt();
}

void TSimGas::Halt() {
  FCore.AssertLocked();
  Switch(false);
}

TSimGas::TFacts TSimGas::Facts() const {
  FCore.AssertLocked();
  const double volt = FDrive == TDrive::Ideal ? 0.0 : FLines[Index(FBranch)].Valve.Volt();
  return {FOn, FBranch, FSetBar, FBar, FCore.Now() < FSwitchedAtMs, volt};
}

void TSimGas::Step(std::uint64_t nowMs) {
  FCore.AssertLocked();
  FSupplyGood.store(FSupplyBar >= kLowShare * FSetBar, std::memory_order_release);
  WatchPressure(nowMs);
  const bool through = FOn && nowMs >= FSwitchedAtMs;
  if (FDrive != TDrive::Ideal) {
    TGasValve& valve = Line(FBranch)->Valve;
    valve.SetOpen(through);
    valve.Step();
    FBar = valve.Bar();
    return;
  }
  const double target = through ? std::min(FSetBar, FSupplyBar) : 0.0;
  if (FBar == target) return;
  FBar += (target - FBar) * FLag;
  if (std::abs(target - FBar) < kSettledBar) FBar = target;
}

void TSimGas::WatchPressure(std::uint64_t nowMs) {
  const bool enough = !FOn || FDrive == TDrive::Raw || FBar >= kLowShare * FSetBar;
  if (enough) FEnoughAtMs = nowMs;
  if (FLowBranch != 0 && (enough || FLowBranch != FBranch))
    FCore.DeviceAlarms.GasLow(std::exchange(FLowBranch, 0), false);
  if (enough || FLowBranch != 0 || nowMs - FEnoughAtMs <= FLowAfterMs) return;
  FLowBranch = FBranch;
  FCore.DeviceAlarms.GasLow(FLowBranch, true);
}

void TSimGas::SetSupply(double bar) {
  const TSimScope scope(FCore);
  if (!std::isfinite(bar) || bar < 0.0) return;
  FSupplyBar = bar;
  for (TLine& line : FLines) line.Valve.LimitSupply(bar);
}

bool TSimGas::SetFault(std::int32_t branch, TValveFault fault) {
  const TSimScope scope(FCore);
  TLine* const line = Line(branch);
  if (!line) return false;
  line->SetFault(fault);
  FCore.Event("gas", Format("valve %d: %s", branch, ValveFaultName(fault)));
  return true;
}

const TSimGasBranch* TSimGas::Fitted(std::int32_t branch) const {
  const auto it = std::ranges::find(FBranches, branch, &TSimGasBranch::GasType);
  return it == FBranches.end() ? nullptr : &*it;
}

TSimGas::TLine* TSimGas::Line(std::int32_t branch) {
  const std::size_t index = Index(branch);
  return index < FLines.size() ? &FLines[index] : nullptr;
}

std::size_t TSimGas::Index(std::int32_t branch) const {
  return static_cast<std::size_t>(std::ranges::find(FBranches, branch, &TSimGasBranch::GasType) - FBranches.begin());
}

void TSimGas::FollowPressure() {
  FTableVolt = Line(FBranch) ? TableVolt(FBranch, FSetBar) : std::nullopt;
  Drive(FTableVolt ? TDrive::Table : TDrive::Ideal);
  OutputTable();
}

void TSimGas::Drive(TDrive drive) {
  // The valve takes over the line as it is; one that has no part any more is shut.
  if (drive == TDrive::Ideal)
    Output(0.0);
  else if (FDrive == TDrive::Ideal)
    Line(FBranch)->Valve.TakeLine(FBar);
  FDrive = drive;
}

void TSimGas::OutputTable() {
  if (FDrive == TDrive::Table) Output(FOn ? *FTableVolt : 0.0);
}

void TSimGas::Output(double volt) {
  TLine* const line = Line(FBranch);
  if (!line) return;
  const double before = line->Valve.Volt();
  line->Valve.Output(volt);
  if (line->Valve.Volt() != before) FCore.Signal(sgGasVolt, line->Valve.Volt() != 0.0, FBranch, line->Valve.Volt());
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
    FCore.Signal(sgGas, false);
  OutputTable();
  TNcWatch* const watch = NcWatch();
  if (!watch) return;
  if (on)
    watch->GasOn.Begin(FCore.Now());
  else
    watch->GasOn.End();
}

void TSimGas::ShowOn() { FCore.Signal(sgGas, true, FBranch, FSetBar); }

}  // namespace ixocamglue
