#include "controller/procedures/PlannedPath.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ixocamglue/motion/Umotionchecks.h"

namespace ixocontroller {

void TPlannedPath::Entered(IStateMotion& root) {
  FRoom = kMost;
  FUnbuilt = 0;
  std::vector<TPart> parts;
  if (auto* const step = dynamic_cast<TStateMotion*>(&root)) Collect(*step, parts);
  {
    TGuard guard(FLock);
    FParts = std::move(parts);
  }
  FChanges.fetch_add(1, std::memory_order_acq_rel);
}

void TPlannedPath::Ticked(IStateMotion& root, TStepType) {
  if (FUnbuilt == 0) return;
  for (auto* list = dynamic_cast<TSmtComposite*>(&root); list && list->IsMotionStep(list->GetStep());
       list = dynamic_cast<TSmtComposite*>(list->GetCurMotion()))
    Built(*list);
}

void TPlannedPath::Collect(TStateMotion& step, std::vector<TPart>& parts) {
  if (auto* const list = dynamic_cast<TSmtComposite*>(&step)) {
    if (list->GetStep() == mstpUnbuilt) {
      parts.push_back({list, {}});
      ++FUnbuilt;
    }
    for (const TStepPtr& child : list->MotionList()) Collect(*child, parts);
  } else if (auto* const move = dynamic_cast<TSmtMoveStep*>(&step); move && FRoom > 0) {
    if (parts.empty() || parts.back().Unbuilt) parts.emplace_back();
    std::vector<TPoint2>& way = parts.back().Way;
    const std::size_t before = way.size();
    move->AddWay(way);
    way.resize(std::min(way.size(), before + FRoom));
    FRoom -= way.size() - before;
  }
}

// Only this thread changes the parts: the place stays while the devices are asked, without the lock.
void TPlannedPath::Built(TSmtComposite& list) {
  const auto find = [&]() IXO_REQUIRES(FLock) { return std::ranges::find(FParts, &list, &TPart::Unbuilt); };
  {
    TGuard guard(FLock);
    if (find() == FParts.end()) return;
  }
  std::vector<TPart> parts;
  Collect(list, parts);
  --FUnbuilt;
  {
    TGuard guard(FLock);
    const auto behind = FParts.erase(find());
    FParts.insert(behind, std::make_move_iterator(parts.begin()), std::make_move_iterator(parts.end()));
  }
  FChanges.fetch_add(1, std::memory_order_acq_rel);
}

std::vector<TPoint2> TPlannedPath::Points() const {
  std::vector<TPoint2> points;
  TGuard guard(FLock);
  for (const TPart& part : FParts) points.insert(points.end(), part.Way.begin(), part.Way.end());
  return points;
}

}  // namespace ixocontroller
