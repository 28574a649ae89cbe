#include "controller/gas/GasPressure.h"

#include <algorithm>

#include "controller/gas/GasReport.h"
#include "controller/runs/ProcedureRun.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kRestsMs = 20'000;  // longer than any valve creeps noticeably
constexpr std::uint64_t kVentMs = 2'000;
constexpr int kReadings = 40;
constexpr std::uint64_t kReadingMs = 50;

double LeastBar(const TDAAdjustTable& table) {
  const std::vector<TDot> dots = DotsOf(table);
  return std::ranges::min_element(dots, {}, &TDot::Y)->Y;
}

}  // namespace

std::optional<double> TableVolt(std::int32_t gas, double bar, const char* where) {
  const std::string name = ShownGas(gas), asked = ValueText(bar);
  const TGasBranchConfig* const branch = MachineConfig()->GetGasBranch(gas);
  if (!branch) throw EProblem(pbUnusable, Format(Tr("the machine has no branch for %s"), name.c_str()));
  if (bar > branch->GetMaxPressure())
    throw EProblem(pbRequest,
                   TProblem{.What = Format(Tr("%s is above the %s bar that the branch of %s may have"), asked.c_str(),
                                           ValueText(branch->GetMaxPressure()).c_str(), name.c_str()),
                            .Where = where});
  const auto volt = branch->DAAdjustTable.GetVolt(bar);
  if (!branch->DAAdjustEnabled || !volt) return std::nullopt;
  const auto beyond = [&](const char* what, double end, const char* remedy) {
    return EProblem(pbRefused, {.What = Format(what, asked.c_str(), name.c_str(), Format("%.3f", end).c_str()),
                                .Where = where,
                                .Why = {},
                                .Remedy = remedy});
  };
  if (const double most = GZemGasAdjustModel()->GetMaxPress(gas); bar > most)
    throw beyond(Tr("%s bar of %s is beyond the reach of its calibration curve, which ends at %s bar"), most,
                 Tr("ask for less, or calibrate the gas again"));
  if (const double least = LeastBar(branch->DAAdjustTable); bar < least)
    throw beyond(Tr("%s bar of %s is beyond the reach of its calibration curve, which begins at %s bar"), least,
                 Tr("ask for more, or calibrate the gas again"));
  return *volt;
}

TReachedPressure ReachPressure(TController& controller, std::int32_t gas, double bar) {
  WaitForStandby(controller);
  TNcGas* const device = CutSystem()->Gas();
  device->SelectBranch(gas);
  device->SetPressure(bar);
  device->SwitchOn();
  controller.RunFor(kRestsMs);
  TReachedPressure reached;
  for (int i = 0; i < kReadings; ++i) {
    controller.RunFor(kReadingMs);
    reached.SensorBar += DeviceManager()->GetRtGasPressure() / kReadings;
  }
  const TMachineSnapshot now = controller.Machine().Snapshot();
  reached.Volt = now.GasVolt;
  reached.Bar = now.GasBar;
  device->SwitchOff();
  controller.RunFor(kVentMs);
  return reached;
}

}  // namespace ixocontroller
