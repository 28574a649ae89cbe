#include "controller/gasvalve/GasDescent.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <stdexcept>

#include "ixocamglue/gascal/Ugasdaadjust.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kGasOnMs = 500;
constexpr std::uint64_t kPauseMs = 300;
constexpr std::uint64_t kMostMs = 6'000;  // at one voltage, settled or not
constexpr std::uint64_t kSampleMs = 5;

TNcGas& GasDevice() {
  TNcGas* const gas = FittedGas();
  if (!gas) throw std::runtime_error("the machine has no gas device");
  return *gas;
}

class TGasDescentState final : public TNcStateCtrl {
 public:
  TGasDescentState(TNcStateFramework& owner, std::shared_ptr<std::vector<TGasDescent>> descents)
      : TNcStateCtrl(owner), FDescents(std::move(descents)) {}

  bool CheckStateAlarm() override {
    TNcAlarms* const alarms = NcAlarms();
    return TNcStateCtrl::CheckStateAlarm() || (alarms && alarms->RequireStop());
  }
  void InitState(std::int32_t param) override {
    TNcStateCtrl::InitState(param);
    FGas = FVolt = 0;
    FSelected = FOut = false;
  }
  void LeaveState(std::int32_t param) override {
    TNcStateCtrl::LeaveState(param);
    TTryAll tryAll;
    tryAll([] { GasDevice().OutputDA(0.0); })([] { GasDevice().SwitchOff(); });
    tryAll.Rethrow();
  }
  void UpdateThread(std::uint32_t& loopDelay) override {
    TNcStateCtrl::UpdateThread(loopDelay);
    loopDelay = std::min(loopDelay, static_cast<std::uint32_t>(kSampleMs));
  }
  std::string StateName() override { return "nsGasDescent"; }

  void StepDone(std::int32_t reason) override {
    TNcStateCtrl::StepDone(reason);
    // A point that a stop cuts off did not fail to settle: it is none.
    if (reason != srDone && FOut) (*FDescents)[FGas].Points.pop_back();
    if (reason != srDone || FGas == FDescents->size()) return ChangeState(nsStandby, 0);
    Advance((*FDescents)[FGas]);
    EnsureBusySet();
  }

 private:
  void Advance(TGasDescent& descent) {
    const std::uint64_t now = Clock().MonotonicMs();
    TNcGas& gas = GasDevice();
    if (!FSelected) {
      FSelected = true;
      FAdjust.SetBranch(descent.Gas);
      FAdjust.Reset();
      gas.SelectBranch(descent.Gas);
      gas.SwitchOn();
      FReadyAtMs = now + kGasOnMs;
    } else if (now < FReadyAtMs) {
      return;
    } else if (FVolt == descent.Volts.size()) {
      gas.OutputDA(0.0);
      gas.SwitchOff();
      ++FGas;
      FVolt = 0;
      FSelected = false;
    } else if (!FOut) {
      FOut = true;
      gas.OutputDA(descent.Volts[FVolt]);
      descent.Points.push_back({.Volt = descent.Volts[FVolt], .AtMs = now});
      FAdjust.ResetGasPressList();
      FReadyAtMs = now + kPauseMs;
    } else {
      Measure(descent.Points.back(), now);
    }
  }

  void Measure(TGasPoint& point, std::uint64_t now) {
    FReadyAtMs = now + kSampleMs;
    const std::int32_t before = FAdjust.Samples().Count();
    FAdjust.SampleGasPress();
    const std::int32_t count = FAdjust.Samples().Count();
    const double press = count > before ? FAdjust.Samples()[count - 1].Y : std::numeric_limits<double>::quiet_NaN();
    point.Samples.push_back({static_cast<double>(Clock().MonotonicMs() - point.AtMs), press});
    point.Settled = FAdjust.CheckGasPressStable(point.Press, point.StableMs, point.RiseMs, true);
    if (!point.Settled && now - point.AtMs < kMostMs) return;
    ++FVolt;
    FOut = false;
  }

  const std::shared_ptr<std::vector<TGasDescent>> FDescents;
  TQuickGasDAAdjust FAdjust;
  std::size_t FGas = 0;
  std::size_t FVolt = 0;
  bool FSelected = false;
  bool FOut = false;
  std::uint64_t FReadyAtMs = 0;
};

}  // namespace

TGasDescents::TGasDescents(TNcRegistry& registry) : FRegistry(registry) {
  FRegistry.RegisterStateCtrl(nsGasDescent,
                              [descents = FDescents](TNcStateFramework& owner) -> std::unique_ptr<TNcStateCtrl> {
                                return std::make_unique<TGasDescentState>(owner, descents);
                              });
}

TGasDescents::~TGasDescents() { FRegistry.UnregisterStateCtrl(nsGasDescent); }

bool TGasDescents::Start(TNcStateFramework& framework, const std::vector<TGasResult>& results) {
  FDescents->clear();
  for (const TGasResult& result : results) {
    TGasDescent descent;
    descent.Gas = result.Gas;
    for (const TGasPoint& point : result.Points)
      if (point.Settled) descent.Volts.push_back(point.Volt);
    std::ranges::sort(descent.Volts, std::greater{});
    descent.Volts.erase(std::unique(descent.Volts.begin(), descent.Volts.end()), descent.Volts.end());
    if (!descent.Volts.empty()) FDescents->push_back(std::move(descent));
  }
  if (FDescents->empty()) return false;
  return framework.RequestState(nsGasDescent, 0).Ok();
}

}  // namespace ixocontroller
