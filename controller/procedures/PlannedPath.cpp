#include "controller/procedures/PlannedPath.h"

#include "ixocamglue/motion/Umovesteps.h"

namespace ixocontroller {
namespace {

void Collect(TStateMotion& step, std::vector<TPoint2>& targets) {
  if (auto* const composite = dynamic_cast<TSmtComposite*>(&step)) {
    for (const TStepPtr& child : composite->MotionList()) Collect(*child, targets);
  } else if (const auto* const move = dynamic_cast<TSmtMoveToXY*>(&step)) {
    targets.push_back(move->FTarget);
  } else if (const auto* const assist = dynamic_cast<TSmtSafeMoveToAssistXY*>(&step)) {
    targets.push_back(assist->FTarget);
  }
}

}  // namespace

std::vector<TPoint2> PlannedPath(const std::string& name, std::span<const TMotionCall> calls) {
  const TStepPtr root = MakeRoot(name, calls);
  root->BuildData();
  std::vector<TPoint2> targets;
  Collect(*root, targets);
  return targets;
}

}  // namespace ixocontroller
