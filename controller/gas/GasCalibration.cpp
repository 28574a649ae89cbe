#include "controller/gas/GasCalibration.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "controller/HostTexts.h"
#include "controller/gas/GasRecording.h"
#include "controller/gas/GasTexts.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {
namespace {

constexpr std::int32_t kFewestPoints = 3;
constexpr std::uint32_t kWatchMs = 50;

// Where saturation begins.
std::optional<double> KneeOf(const TQuickGasDAAdjust& adjust, const TIncList& curve) {
  const std::int32_t top = adjust.KneeIndex(curve) + 1;
  if (top >= curve.Count() - 1) return std::nullopt;
  return curve[top].X;
}

}  // namespace

double TGasResult::MaxBar() const {
  double highest = 0.0;
  for (const TGasPoint& point : Points)
    if (point.Settled) highest = std::max(highest, point.Press);
  return highest;
}

TGasCalibration::TGasCalibration(TController& controller, std::vector<std::int32_t> gases, TGasNozzle nozzle)
    : FController(controller), FModel(*GZemGasAdjustModel()), FNozzle(std::move(nozzle)) {
  for (const std::int32_t gas : gases) {
    TGasResult result;
    result.Gas = gas;
    if (!FModel.CheckGasValid(gas)) {
      result.End = TGasEnd::Skipped;
      result.Why = Show(SGasNotFitted, GasDesc(gas).c_str());
    } else {
      KeepPrevious(gas);
    }
    FResults.push_back(std::move(result));
  }
  FModel.SetNozzType(FNozzle.Type, FNozzle.Size);
  FModel.SetObserver([this](const TGasAdjustEvent& event) {
    try {
      Observe(event);
    } catch (...) {  // no memory: the calibration goes on, its picture is incomplete
      ReportFault("gas calibration: what was measured could not be kept");
    }
  });
  if (TVirtualClock* const clock = controller.VirtualClock())
    FTimer = clock->Every(kWatchMs, [this](std::uint64_t nowMs) { Watch(nowMs); });
}

TGasCalibration::~TGasCalibration() {
  if (FTimer) FController.VirtualClock()->Remove(*FTimer);
  FModel.SetObserver({});
}

void TGasCalibration::KeepPrevious(std::int32_t gas) {
  const TGasBranchConfig& branch = *MachineConfig()->GetGasBranch(gas);
  TPrevious previous{branch.DAAdjustTable, branch.DAAdjustEnabled, std::nullopt};
  TGasCaliConfig stored;
  stored.Open();
  if (const TDAAdjustTable* const table = stored.GetDAAdjustTable(gas, FNozzle.Type, FNozzle.Size))
    previous.Backup = *table;
  FPrevious.insert_or_assign(gas, std::move(previous));
}

bool TGasCalibration::Start(std::string& reason) {
  if (FController.Running() || FController.Framework().CurrentState() != nsStandby) {
    reason = "the machine is busy";
    return false;
  }
  if (FController.Framework().SafePending()) {
    reason = "a device has not acknowledged switching off";
    return false;
  }
  std::vector<std::int32_t> gases;
  for (const TGasResult& result : FResults) gases.push_back(result.Gas);
  FStartMs = Clock().MonotonicMs();
  FGasStartMs = FStartMs;
  if (FModel.StartAjdust(std::move(gases))) return true;
  reason = "the calibration cannot be started";
  return false;
}

void TGasCalibration::RunToEnd() {
  while (Running()) FController.RunPass();
}

void TGasCalibration::Watch(std::uint64_t nowMs) {
  const std::uint64_t since = FVoltAtMs.load(std::memory_order_acquire);
  if (since == kNever || nowMs < since + kUnsettledMs || FUnsettled.exchange(true)) return;
  FModel.AddMsg(Show(SGasUnsettled, GasDesc(FGas.load()).c_str(), Format("%.2f", FVolt.load()).c_str(),
                     static_cast<int>(kUnsettledMs / 1000)));
  FModel.StopAjdust();
}

bool TGasCalibration::Success() const {
  return Completed() && std::ranges::all_of(FResults, [](const TGasResult& r) { return r.End == TGasEnd::Stored; });
}

// --- on the state thread ---

TGasResult& TGasCalibration::Result(std::int32_t gas) { return *std::ranges::find(FResults, gas, &TGasResult::Gas); }

void TGasCalibration::Observe(const TGasAdjustEvent& event) {
  const auto now = static_cast<std::uint64_t>(event.TimeMs);
  TGasResult& result = Result(event.Gas);
  switch (event.Kind) {
    case TGasAdjustEvent::TKind::Voltage:
      if (result.Points.empty()) FGasStartMs = now;
      result.Points.push_back({.Volt = event.Volt, .AtMs = now - FStartMs});
      FGas.store(event.Gas);
      FVolt.store(event.Volt);
      FVoltAtMs.store(now, std::memory_order_release);
      break;
    case TGasAdjustEvent::TKind::Sample:
      if (std::isfinite(event.Press)) FPress.store(event.Press);
      result.Points.back().Samples.push_back(
          {static_cast<double>(now - FStartMs - result.Points.back().AtMs), event.Press});
      break;
    case TGasAdjustEvent::TKind::Settled: {
      FVoltAtMs.store(kNever, std::memory_order_release);
      TGasPoint& point = result.Points.back();
      point.Settled = true;
      point.Foreseen = event.Foreseen;
      point.Press = event.Press;
      point.StableMs = event.StableMs;
      point.RiseMs = event.RiseMs;
      break;
    }
    case TGasAdjustEvent::TKind::Rebuilt:
      result.DurationMs = now - FGasStartMs;
      Judge(event, result);
      break;
  }
}

void TGasCalibration::Judge(const TGasAdjustEvent& event, TGasResult& result) {
  result.Curve = event.Curve->Dots();
  const TIncList& measured = *event.Measured;
  const std::string gas = GasDesc(event.Gas);
  double mean = 0.0;
  const bool any = measured.Average(0, measured.Count() - 1, mean);
  const bool flat =
      any && std::ranges::all_of(measured.Dots(), [&](const TDot& dot) { return std::abs(dot.Y - mean) <= kFlatBar; });
  if (measured.Count() < kFewestPoints)
    result.Why = Show(SGasFewPoints, gas.c_str(), static_cast<int>(measured.Count()));
  else if (flat)
    result.Why = Show(SGasFlatPoints, gas.c_str(), Format("%.2f", mean).c_str());
  if (result.Why.empty()) {
    TQuickGasDAAdjust adjust;
    adjust.SetBranch(event.Gas);
    adjust.Reset();
    result.Knee = KneeOf(adjust, *event.Curve);
    result.End = event.Good ? TGasEnd::Stored : TGasEnd::Failed;
    return;
  }
  result.End = TGasEnd::Restored;
  result.Curve.clear();
  if (event.Good) PutBack(event.Gas);
  FModel.AddMsg(result.Why);
}

void TGasCalibration::PutBack(std::int32_t gas) {
  const TPrevious& previous = FPrevious.at(gas);
  TGasBranchConfig& branch = *MachineConfig()->GetGasBranch(gas);
  CopyTable(previous.Table, branch.DAAdjustTable);
  branch.DAAdjustEnabled = previous.Enabled;
  TGasCaliConfig stored;
  stored.Open();
  TGasBraCaliConfig* const tables = stored.GetGasConfig(gas);
  if (!tables) return;
  if (previous.Backup)
    tables->AddOrSetTable(FNozzle.Type, FNozzle.Size, *previous.Backup);
  else
    tables->DeleteTable(FNozzle.Type, FNozzle.Size);
  if (std::string problem; !stored.SaveTables(&problem)) FModel.AddMsg(std::move(problem));
}

}  // namespace ixocontroller
