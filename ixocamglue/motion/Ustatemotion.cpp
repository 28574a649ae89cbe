#include "ixocamglue/motion/Ustatemotion.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/support/Faults.h"

namespace ixocamglue {
namespace {

constexpr const char* SNoRow = "a step without a row in the command table and without words of its own";

template <class Step>
constexpr TMotionCommand Row(std::string_view name, const TText& desc) {
  return {Step::Cmd, name, &desc, &MakeStep<Step>};
}

// Kept: two commands are one class; 136 differs by its first parameters.
TStepPtr MakeMoveToZ(TCustomMotionState* ctrl) {
  auto step = MakeStepOf<TSmtSafeMoveToZ>(ctrl);
  step->BecomeMoveToZ();
  return step;
}

constexpr TMotionCommand kCommands[] = {
    Row<TSmtMoveToXY>("TSmtMoveToXY", SMoveToXYDesc),
    Row<TSmtCleanHeadCurve>("TSmtCleanHeadCurve", SCleanCurveDesc),
    Row<TSmtSafeMoveToZ>("TSmtSafeMoveToZ", SSafeMoveToZDesc),
    {TSmtSafeMoveToZ::kMoveToZ, "TSmtSafeMoveToZ", &SMoveToZDesc, &MakeMoveToZ},
    Row<TSmtSafeMoveToXY>("TSmtSafeMoveToXY", SSafeMoveToXYDesc),
    Row<TSmtSafeMoveToWorkXY>("TSmtSafeMoveToWorkXY", SSafeMoveToWorkXYDesc),
    Row<TSmtSafeMoveToAssistXY>("TSmtSafeMoveToAssistXY", SSafeMoveToAssistXYDesc),
    Row<TSmtGasOnState>("TSmtGasOnState", SGasOnDesc),
    Row<TSmtGasOffState>("TSmtGasOffState", SGasOffDesc),
    Row<TSmtCapCaliMotion>("TSmtCapCaliMotion", SCapCaliDesc),
    Row<TSmtAutoCaliState>("TSmtAutoCaliState", SAutoCaliDesc),
    Row<TSmtSimpleAutoCaliState>("TSmtSimpleAutoCaliState", SSimpleAutoCaliDesc),
    Row<TSmtFollow>("TSmtFollow", SFollowDesc),
    Row<TSmtUninstallNozzle>("TSmtUninstallNozzle", SUninstallNozzleDesc),
    Row<TSmtInstallNozzle>("TSmtInstallNozzle", SInstallNozzleDesc),
    Row<TSmtOpenOutport>("TSmtOpenOutport", SOpenOutportDesc),
    Row<TSmtCloseOutport>("TSmtCloseOutport", SCloseOutportDesc),
    Row<TSmtWaitInport>("TSmtWaitInport", SWaitInportDesc),
    Row<TSmtSafeMoveToXYZ>("TSmtSafeMoveToXYZ", SSafeMoveToXYZDesc),
    Row<TSmtLubricateCurve>("TSmtLubricateCurve", SLubricateDesc),
    Row<TSmtMoveToF>("TSmtMoveToF", SMoveToFDesc),
    Row<TSmtSafeMoveToXYZF>("TSmtSafeMoveToXYZF", SSafeMoveToXYZFDesc),
    Row<TSmtManuCleanState>("TSmtManuCleanState", SManuCleanDesc),
    Row<TSmtAutoCleanState>("TSmtAutoCleanState", SAutoCleanDesc),
    Row<TSmtLaserOn>("TSmtLaserOn", SLaserOnDesc),
    Row<TSmtLaserOff>("TSmtLaserOff", SLaserOff),
    Row<TSmtEmissionOn>("TSmtEmissionOn", SOpenShutter),
    Row<TSmtWaitForEmissionOn>("TSmtWaitForEmissionOn", SWaitShutter),
    Row<TSmtLaserOnOnly>("TSmtLaserOnOnly", SLaserOn),
    Row<TSmtLaserOffOnly>("TSmtLaserOffOnly", SLaserOffOnlyDesc),
    Row<TSmtDelay>("TSmtDelay", SDelay),
};
static_assert(std::ranges::adjacent_find(kCommands, std::ranges::greater_equal{}, &TMotionCommand::Command) ==
              std::ranges::end(kCommands));

const TMotionCommand* FindCommand(std::int32_t command) {
  const auto* const row = std::ranges::lower_bound(kCommands, command, {}, &TMotionCommand::Command);
  return row != std::end(kCommands) && row->Command == command ? row : nullptr;
}

}  // namespace

std::span<const TMotionCommand> MotionCommands() { return kCommands; }

std::string_view CommandClass(std::int32_t command) {
  const TMotionCommand* const row = FindCommand(command);
  return row ? row->Class : FaultOr(std::string_view(), SNoRow);
}

std::string CommandDesc(std::int32_t command) {
  const TMotionCommand* const row = FindCommand(command);
  return row ? row->Desc->Get() : FaultOr(std::string(), SNoRow);
}

bool AddMotionByCmd(std::int32_t command, TSmtComposite& composite, bool build) {
  const TMotionCommand* const row = FindCommand(command);
  if (!row || composite.AddMotion(row->Make(composite.StateCtrl())) < 0) return false;
  composite.FIDList.push_back(command);
  if (build) composite.FMotionList.back()->BuildData();
  return true;
}

}  // namespace ixocamglue
