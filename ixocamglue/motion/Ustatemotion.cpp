#include "ixocamglue/motion/Ustatemotion.h"

#include <algorithm>

namespace ixocamglue {
namespace {

template <class Step>
constexpr TMotionCommand Row{Step::Cmd, &MakeStep<Step>};

// Kept: two commands are one class; 136 differs by its first parameters.
TStepPtr MakeMoveToZ(TCustomMotionState* ctrl) {
  auto step = MakeStepOf<TSmtSafeMoveToZ>(ctrl);
  step->BecomeMoveToZ();
  return step;
}

constexpr TMotionCommand kCommands[] = {
    Row<TSmtMoveToXY>,
    Row<TSmtCleanHeadCurve>,
    Row<TSmtSafeMoveToZ>,
    {TSmtSafeMoveToZ::kMoveToZ, &MakeMoveToZ},
    Row<TSmtSafeMoveToXY>,
    Row<TSmtSafeMoveToWorkXY>,
    Row<TSmtSafeMoveToAssistXY>,
    Row<TSmtGasOnState>,
    Row<TSmtGasOffState>,
    Row<TSmtCapCaliMotion>,
    Row<TSmtAutoCaliState>,
    Row<TSmtSimpleAutoCaliState>,
    Row<TSmtFollow>,
    Row<TSmtUninstallNozzle>,
    Row<TSmtInstallNozzle>,
    Row<TSmtOpenOutport>,
    Row<TSmtCloseOutport>,
    Row<TSmtWaitInport>,
    Row<TSmtSafeMoveToXYZ>,
    Row<TSmtLubricateCurve>,
    Row<TSmtMoveToF>,
    Row<TSmtSafeMoveToXYZF>,
    Row<TSmtManuCleanState>,
    Row<TSmtAutoCleanState>,
    Row<TSmtLaserOn>,
    Row<TSmtLaserOff>,
    Row<TSmtEmissionOn>,
    Row<TSmtWaitForEmissionOn>,
    Row<TSmtLaserOnOnly>,
    Row<TSmtLaserOffOnly>,
    Row<TSmtDelay>,
};
static_assert(std::ranges::adjacent_find(kCommands, std::ranges::greater_equal{}, &TMotionCommand::Command) ==
              std::ranges::end(kCommands));

}  // namespace

std::span<const TMotionCommand> MotionCommands() { return kCommands; }

bool AddMotionByCmd(std::int32_t command, TSmtComposite& composite, bool build) {
  const auto* const row = std::ranges::lower_bound(kCommands, command, {}, &TMotionCommand::Command);
  if (row == std::end(kCommands) || row->Command != command) return false;
  if (composite.AddMotion(row->Make(composite.StateCtrl())) < 0) return false;
  composite.FIDList.push_back(command);
  if (build) composite.FMotionList.back()->BuildData();
  return true;
}

}  // namespace ixocamglue
