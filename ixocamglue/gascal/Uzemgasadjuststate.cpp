#include "ixocamglue/gascal/Uzemgasadjuststate.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "ixocamglue/gascal/Ugasadjusttexts.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kGasOnMs = 500;
constexpr std::uint64_t kSampleMs = 5;
constexpr std::uint32_t kPassMs = 5;  // the windows of the shortest branch need a sample this often
constexpr double kFlatBar = 0.1;
constexpr std::size_t kSeparatorDots = 40;

constexpr std::int64_t SettlePauseMs(std::int32_t gas) { return gas == 2 ? 600 : 300; }

bool RequireStop() {
  TNcAlarms* const alarms = NcAlarms();
  return alarms && alarms->RequireStop();
}

// Throws, for the guard of StepDone, when the machine has none.
TNcGas& GasDevice() {
  TNcGas* const gas = FittedGas();
  if (!gas) throw std::runtime_error("CutSystem.Gas = nil");
  return *gas;
}

}  // namespace

bool TZemGasAdjustState::CheckEnterAlarm(std::int32_t param) {
  return TNcStateCtrl::CheckEnterAlarm(param) || RequireStop();
}

bool TZemGasAdjustState::CheckStateAlarm() { return TNcStateCtrl::CheckStateAlarm() || RequireStop(); }

void TZemGasAdjustState::InitState(std::int32_t param) {
  TNcStateCtrl::InitState(param);
  TZemGasAdjustModel* const model = GZemGasAdjustModel();
  FGasTypes = model ? model->GasTypes() : std::vector<std::int32_t>();
  FGasIndex = -1;
  FSubState = TGasAdjustSub::NextGas;
  FVolt = 0.0;
  FStartMs = FSettledAtMs = FSampleAtMs = 0;
  FAdjust = {};
  FRefined = model && model->Refined();
  if (model) model->Begin();
}

void TZemGasAdjustState::LeaveState(std::int32_t param) {
  TNcStateCtrl::LeaveState(param);
  TTryAll tryAll;
  tryAll([] { GasDevice().OutputDA(0.0); })([] { GasDevice().SwitchOff(); });
  tryAll.Rethrow();  // the framework logs it, and tells the gas to switch off until it has
}

void TZemGasAdjustState::UpdateThread(std::uint32_t& loopDelay) {
  TNcStateCtrl::UpdateThread(loopDelay);
  loopDelay = std::min(loopDelay, kPassMs);
}

void TZemGasAdjustState::AddAdjustMsg(std::string text) {
  if (TZemGasAdjustModel* const model = GZemGasAdjustModel()) model->AddMsg(std::move(text));
}

bool TZemGasAdjustState::HasGas() const {
  return FGasIndex >= 0 && static_cast<std::size_t>(FGasIndex) < FGasTypes.size();
}

std::int32_t TZemGasAdjustState::Gas() const { return HasGas() ? FGasTypes[static_cast<std::size_t>(FGasIndex)] : -1; }

void TZemGasAdjustState::StepDone(std::int32_t result) {
  TNcStateCtrl::StepDone(result);
  if (result != srDone) {
    AddAdjustMsg((result == srStop ? SQAdjTermin : SQAdjFailed).Get());
    return ChangeState(nsStandby, 0);
  }
  try {
    Advance();
    EnsureBusySet();
  } catch (...) {  // a device failed: the framework's guard logs it and demands gas off
    AddAdjustMsg(SQAdjFailed.Get());
    throw;
  }
}

// One sub-state per tick.
void TZemGasAdjustState::Advance() {
  switch (FSubState) {
    case TGasAdjustSub::NextGas: return NextGas();
    case TGasAdjustSub::GasOnWait:
      if (Clock().MonotonicMs() - FStartMs >= kGasOnMs) FSubState = TGasAdjustSub::NextVolt;
      return;
    case TGasAdjustSub::NextVolt: return NextVolt();
    case TGasAdjustSub::Measuring: return Measure();
    case TGasAdjustSub::FinishGas: return FinishGas();
    case TGasAdjustSub::Finished: return ChangeState(nsStandby, 0);
  }
}

void TZemGasAdjustState::NextGas() {
  TNcGas& gas = GasDevice();
  if (gas.GetGas()) {
    if (HasGas()) gas.OutputDA(0.0);  // while the branch is still the selected one
    gas.SwitchOff();
  }
  ++FGasIndex;
  TZemGasAdjustModel* const model = GZemGasAdjustModel();
  if (!HasGas()) {
    SaveConfig();
    AddAdjustMsg(SQAdjAllSucc.Get());
    gas.SwitchOff();
    if (model) model->Progress(100.0);
    FSubState = TGasAdjustSub::Finished;
    return;
  }
  if (!model || !model->CheckGasValid(Gas())) return;
  FAdjust.SetBranch(Gas());
  FAdjust.Reset();
  FRefining = false;
  FRefine.Reset();
  AddAdjustMsg(SQAdjBegin.Get() + (" " + GasDesc(Gas())));
  gas.SelectBranch(Gas());
  gas.SwitchOn();
  FStartMs = Clock().MonotonicMs();
  FSubState = TGasAdjustSub::GasOnWait;
}

bool TZemGasAdjustState::ProposeVolt(double& volt) {
  if (!FRefining && FAdjust.GetNextAdjDA3P(volt)) return true;
  FRefining = FRefined;
  return FRefining && FRefine.GetNextDA(volt);
}

void TZemGasAdjustState::NextVolt() {
  double volt = 0.0;
  if (!ProposeVolt(volt)) {
    FSubState = TGasAdjustSub::FinishGas;
    return;
  }
  FVolt = std::clamp(volt, 0.0, kFullScaleVolt);
  TNcGas& gas = GasDevice();
  if (!gas.GetGas()) gas.SwitchOn();
  gas.OutputDA(FVolt);
  ReportProgress();
  FAdjust.ResetGasPressList();
  const std::int64_t pause = FRefining ? TGasRefine::kPauseMs : SettlePauseMs(Gas());
  FSettledAtMs = Clock().MonotonicMs() + static_cast<std::uint64_t>(pause);
  FSubState = TGasAdjustSub::Measuring;
  if (TZemGasAdjustModel* const model = GZemGasAdjustModel())
    model->Tell({.Kind = TGasAdjustEvent::TKind::Voltage,
                 .Gas = Gas(),
                 .Volt = FVolt,
                 .TimeMs = static_cast<std::int64_t>(Clock().MonotonicMs())});
}

bool TZemGasAdjustState::Settled(TGasAdjustEvent& event) const {
  if (!FRefining) return FAdjust.CheckGasPressStable(event.Press, event.StableMs, event.RiseMs, true);
  const TIncList& samples = FAdjust.Samples();
  if (!FRefine.CheckSettled(samples, event.Press)) return false;
  event.StableMs = event.RiseMs = static_cast<std::int32_t>(samples[samples.Count() - 1].X - samples[0].X);
  return true;
}

void TZemGasAdjustState::Measure() {
  const std::uint64_t now = Clock().MonotonicMs();
  if (now < FSettledAtMs || now < FSampleAtMs) return;
  FSampleAtMs = now + kSampleMs;
  TZemGasAdjustModel* const model = GZemGasAdjustModel();
  TGasAdjustEvent event{.Kind = TGasAdjustEvent::TKind::Sample, .Gas = Gas(), .Volt = FVolt};
  const std::int32_t before = FAdjust.Samples().Count();
  FAdjust.SampleGasPress();
  const std::int32_t count = FAdjust.Samples().Count();
  event.TimeMs = static_cast<std::int64_t>(Clock().MonotonicMs());
  event.Press = count > before ? FAdjust.Samples()[count - 1].Y : std::numeric_limits<double>::quiet_NaN();
  if (model) model->Tell(event);
  if (!Settled(event)) return;
  AddAdjustMsg(AdjustPointText(FVolt, event.Press));
  FAdjust.RecordPoint(FVolt, event.Press);
  if (FRefined) FRefine.Record(FVolt, FAdjust.Samples(), event.Press);
  event.Kind = TGasAdjustEvent::TKind::Settled;
  event.Foreseen = FRefining;
  if (model) model->Tell(event);
  FSubState = TGasAdjustSub::NextVolt;
}

void TZemGasAdjustState::FinishGas() {
  FSubState = TGasAdjustSub::NextGas;
  const TIncList measured = FAdjust.CaliList();
  TIncList& curve = FAdjust.CaliList();
  if (FRefined)
    FRefine.BuildCurve(curve);
  else
    FAdjust.ReBuildGasAdjList(curve);
  TMachineConfig* const config = MachineConfig();
  TGasBranchConfig* const branch = config ? config->GetGasBranch(Gas()) : nullptr;
  if (!branch) return;

  // Kept: the curve has its origin, so that one pressure at all voltages is flat only when it is low itself.
  double mean = 0.0;
  const auto flat = [&](const TDot& dot) { return std::abs(dot.Y - mean) <= kFlatBar; };
  const std::int32_t last = curve.Count() - 1;
  const bool good = curve.Average(0, last, mean) && !(flat(curve[0]) && flat(curve[last]));
  TZemGasAdjustModel* const model = GZemGasAdjustModel();
  TResult<> backup;
  if (good) {
    StoreCurve(*branch, curve);
    if (model) backup = model->BackupCaliInfo(Gas());
  } else {
    AddAdjustMsg(SQAdjAllSameValue.Get());
    AddAdjustMsg(SQAdjFailed.Get());
  }
  if (model)
    model->Tell({.Kind = TGasAdjustEvent::TKind::Rebuilt,
                 .Gas = Gas(),
                 .TimeMs = static_cast<std::int64_t>(Clock().MonotonicMs()),
                 .Good = good,
                 .Measured = &measured,
                 .Curve = &curve,
                 .Unsaved = backup ? nullptr : &backup.Problem()});
}

void TZemGasAdjustState::SaveConfig() {
  TMachineConfig* const config = MachineConfig();
  if (!config) return;
  const auto saved = config->Save();
  if (TZemGasAdjustModel* const model = GZemGasAdjustModel())
    model->Tell({.Kind = TGasAdjustEvent::TKind::Saved,
                 .TimeMs = static_cast<std::int64_t>(Clock().MonotonicMs()),
                 .Unsaved = saved ? nullptr : &saved.Problem()});
}

void TZemGasAdjustState::StoreCurve(TGasBranchConfig& branch, const TIncList& curve) {
  AddAdjustMsg(SQAdjSucc.Get());
  branch.DAAdjustTable.Clear();
  for (const TDot& dot : curve.Dots()) {
    branch.DAAdjustTable.Add(dot.Y, dot.X);
    AddAdjustMsg(AdjustPointText(dot.X, dot.Y));
  }
  branch.DAAdjustEnabled = true;
  AddAdjustMsg(std::string(kSeparatorDots, '.'));
}

void TZemGasAdjustState::ReportProgress() {
  const double points = std::min(FAdjust.CaliList().Count(), kMaxAdjPoints);
  const double gases = static_cast<double>(FGasTypes.size());
  if (TZemGasAdjustModel* const model = GZemGasAdjustModel())
    model->Progress(100.0 * (FGasIndex + points / kMaxAdjPoints) / gases);
}

}  // namespace ixocamglue
