#include "controller/gas/GasCalibration.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "controller/gasvalve/GasRecording.h"
#include "controller/texts/GasTexts.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

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

TRecordedGasPoint Recorded(const TGasPoint& point, bool descending) {
  TRecordedGasPoint recorded{.Volt = point.Volt,
                             .Descending = descending,
                             .Foreseen = point.Foreseen,
                             .Settled = {},
                             .Samples = point.Samples};
  if (point.Settled) recorded.Settled = point.Press;
  return recorded;
}

TRecordedGas Recorded(const TGasResult& result) {
  TRecordedGas gas{.GasType = result.Gas,
                   .Name = GasTypeName(result.Gas),
                   .Stopped = result.Stopped,
                   .Zero = result.Zero,
                   .Points = {},
                   .Table = result.Curve};
  if (const TGasBranchConfig* const branch = MachineConfig()->GetGasBranch(result.Gas))
    gas.MaxPressure = branch->GetMaxPressure();
  for (const TGasPoint& point : result.Points) gas.Points.push_back(Recorded(point, false));
  for (const TGasPoint& point : result.Downwards) gas.Points.push_back(Recorded(point, true));
  return gas;
}

}  // namespace

TGasCalibration::TGasCalibration(TController& controller, const std::vector<std::int32_t>& gases, TGasNozzle nozzle,
                                 bool keep)
    : FController(controller), FModel(*GZemGasAdjustModel()), FNozzle(std::move(nozzle)), FKeep(keep) {
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

TResult<> TGasCalibration::Start() {
  if (FController.Running() || FController.Framework().CurrentState() != nsStandby)
    return TProblem{.What = Tr("the machine is busy"), .Remedy = Tr("stop what runs")};
  if (FController.Framework().SafePending())
    return TProblem{.What = Tr("a device has not acknowledged switching off"),
                    .Remedy = Tr("wait until it has, or repair it")};
  std::vector<std::int32_t> gases;
  for (const TGasResult& result : FResults) gases.push_back(result.Gas);
  FStartMs = Clock().MonotonicMs();
  FGasStartMs = FStartMs;
  if (FModel.StartAjdust(std::move(gases))) return {};
  return TProblem{.What = Tr("the calibration cannot be started"), .Remedy = Tr("try again")};
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

bool TGasCalibration::Unsaved() const {
  return std::ranges::any_of(FResults, [](const TGasResult& r) { return r.End == TGasEnd::Unsaved; });
}

TGasRecording TGasCalibration::Recording() const {
  TGasRecording recording{.NozzType = FNozzle.Type, .NozzSize = FNozzle.Size, .Gases = {}};
  for (const TGasResult& result : FResults)
    if (!result.Points.empty()) recording.Gases.push_back(Recorded(result));
  return recording;
}

void TGasCalibration::Conclude(std::int32_t gas, std::vector<TGasPoint> downwards) {
  Result(gas).Downwards = std::move(downwards);
}

void TGasCalibration::Conclude() {
  std::vector<TGasResult*> putBack;
  for (TGasResult& result : FResults) {
    // A pressure that did not settle is the valve's, and judged; any other stop says nothing of it.
    result.Stopped = result.End == TGasEnd::Unfinished && !result.Points.empty() && !FUnsettled.load();
    const bool good = Good(result);
    if (good || result.End != TGasEnd::Stored) continue;
    Refuse(result, TGasEnd::Restored,
           Show(SGasBadVerdict, GasDesc(result.Gas).c_str(), FirstBad(result.Findings)->Sentence.c_str()));
    putBack.push_back(&result);
  }
  if (putBack.empty()) return;
  const auto saved = MachineConfig()->Save();
  if (saved) return;
  FModel.AddMsg(saved.Problem().Text());
  for (TGasResult* const result : putBack) result->End = TGasEnd::Unsaved;  // the file has the new table
}

// --- on the state thread ---

TGasResult& TGasCalibration::Result(std::int32_t gas) { return *std::ranges::find(FResults, gas, &TGasResult::Gas); }

void TGasCalibration::Observe(const TGasAdjustEvent& event) {
  const auto now = static_cast<std::uint64_t>(event.TimeMs);
  switch (event.Kind) {
    case TGasAdjustEvent::TKind::Voltage: {
      TGasResult& result = Result(event.Gas);
      if (result.Points.empty()) {
        FGasStartMs = now;
        ReadZero(result);
      }
      result.Points.push_back({.Volt = event.Volt, .AtMs = now - FStartMs});
      FGas.store(event.Gas);
      FVolt.store(event.Volt);
      FVoltAtMs.store(now, std::memory_order_release);
      break;
    }
    case TGasAdjustEvent::TKind::Sample: {
      if (std::isfinite(event.Press)) FPress.store(event.Press);
      TGasPoint& point = Result(event.Gas).Points.back();
      point.Samples.push_back({static_cast<double>(now - FStartMs - point.AtMs), event.Press});
      break;
    }
    case TGasAdjustEvent::TKind::Settled: {
      FVoltAtMs.store(kNever, std::memory_order_release);
      TGasPoint& point = Result(event.Gas).Points.back();
      point.Settled = true;
      point.Foreseen = event.Foreseen;
      point.Press = event.Press;
      point.StableMs = event.StableMs;
      point.RiseMs = event.RiseMs;
      break;
    }
    case TGasAdjustEvent::TKind::Rebuilt: {
      TGasResult& result = Result(event.Gas);
      result.DurationMs = now - FGasStartMs;
      Judge(event, result);
      break;
    }
    case TGasAdjustEvent::TKind::Saved:  // of no gas alone
      if (event.Unsaved) Saved(*event.Unsaved);
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
  const bool good = Good(result);
  const bool curve = result.Why.empty();
  if (!curve) result.Curve.clear();
  if (curve && !good) result.Why = Show(SGasBadVerdict, gas.c_str(), FirstBad(result.Findings)->Sentence.c_str());
  const bool stored = result.Why.empty() && event.Good;
  if (stored && event.Unsaved) {
    result.End = TGasEnd::Unsaved;
    result.Why = Show(SGasNotSaved, gas.c_str(), event.Unsaved->Text().c_str());
    PutBackTable(event.Gas);  // its backup is as it was
    FModel.AddMsg(result.Why);
    return;
  }
  if (result.Why.empty()) {
    TQuickGasDAAdjust adjust;
    adjust.SetBranch(event.Gas);
    adjust.Reset();
    result.Knee = KneeOf(adjust, *event.Curve);
    result.End = event.Good ? TGasEnd::Stored : TGasEnd::Failed;
    return;
  }
  result.End = TGasEnd::Restored;
  if (event.Good) PutBack(event.Gas);
  FModel.AddMsg(result.Why);
}

// The valve has not heard of its voltage yet.
void TGasCalibration::ReadZero(TGasResult& result) {
  try {
    TNcDeviceManager* const devices = DeviceManager();
    const double press = devices ? devices->GetRtGasPressure() : std::numeric_limits<double>::quiet_NaN();
    if (std::isfinite(press)) result.Zero = press;
  } catch (...) {  // the next reading is the state's own, which says so
    result.Zero.reset();
  }
}

bool TGasCalibration::Good(TGasResult& result) {
  if (result.Points.empty()) return true;  // nothing was seen of it
  result.Findings = JudgeGas(Recorded(result));
  return FKeep || !FirstBad(result.Findings);
}

// One message for all of them.
void TGasCalibration::Saved(const TProblem& unsaved) {
  const std::string reason = unsaved.Text();
  std::string names;
  for (TGasResult& result : FResults) {
    if (result.End != TGasEnd::Stored) continue;
    const std::string gas = GasDesc(result.Gas);
    AddToList(names, gas);
    result.End = TGasEnd::Unsaved;
    result.Why = Show(SGasNotSaved, gas.c_str(), reason.c_str());
    PutBack(result.Gas);
  }
  FModel.AddMsg(names.empty() ? reason : Show(SGasNotSaved, names.c_str(), reason.c_str()));
}

void TGasCalibration::Refuse(TGasResult& result, TGasEnd end, std::string why) {
  result.End = end;
  result.Why = std::move(why);
  PutBack(result.Gas);
  FModel.AddMsg(result.Why);
}

void TGasCalibration::PutBackTable(std::int32_t gas) {
  const TPrevious& previous = FPrevious.at(gas);
  TGasBranchConfig& branch = *MachineConfig()->GetGasBranch(gas);
  CopyTable(previous.Table, branch.DAAdjustTable);
  branch.DAAdjustEnabled = previous.Enabled;
}

void TGasCalibration::PutBack(std::int32_t gas) {
  PutBackTable(gas);
  const TPrevious& previous = FPrevious.at(gas);
  TGasCaliConfig stored;
  stored.Open();
  TGasBraCaliConfig* const tables = stored.GetGasConfig(gas);
  if (!tables) return;
  if (previous.Backup)
    tables->AddOrSetTable(FNozzle.Type, FNozzle.Size, *previous.Backup);
  else
    tables->DeleteTable(FNozzle.Type, FNozzle.Size);
  std::string problem;
  if (stored.SaveTables(&problem)) return;
  TGasResult& result = Result(gas);
  result.End = TGasEnd::Unsaved;  // whatever made it come back
  if (result.Why.find(problem) == std::string::npos) FModel.AddMsg(std::move(problem));
}

}  // namespace ixocontroller
