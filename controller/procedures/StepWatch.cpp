#include "controller/procedures/StepWatch.h"

#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {

void TStepSpans::Look(IStateMotion& root) {
  const std::uint64_t now = Clock().MonotonicMs();
  TGuard guard(FLock);
  std::size_t level = 0;
  for (auto* list = dynamic_cast<TSmtComposite*>(&root); list && list->IsMotionStep(list->GetStep()); ++level) {
    TStateMotion* const step = list->GetCurMotion();
    if (level >= FOpen.size() || FOpen[level].Step != step) {
      CloseFrom(level);
      const auto index = static_cast<std::size_t>(list->GetStep());
      const auto& descs = list->Descs();
      TStepSpan span{static_cast<std::int32_t>(level),
                     list->GetStep() + 1,
                     static_cast<std::int32_t>(list->MotionList().size()),
                     step->GetID(),
                     index < descs.size() ? descs[index] : step->GetDesc(),
                     now,
                     now};
      if (TDiag d{dlProgress}; d && span.Number == 1) d("%d/%d: %s", 1, span.Count, span.Desc.c_str());
      FOpen.push_back({step, FSpans.size()});
      FSpans.push_back(std::move(span));
      FBegun.fetch_add(1, std::memory_order_acq_rel);
    }
    list = dynamic_cast<TSmtComposite*>(step);
  }
  CloseFrom(level);
}

void TStepSpans::Ticked(IStateMotion& root, TStepType answer) {
  if (answer == mstpError) {  // its leave has taken the steps away
    TGuard guard(FLock);
    KeepStanding();
  }
  Look(root);
}

void TStepSpans::Ended(const TMotionOutcome* outcome) {
  TGuard guard(FLock);
  if (!outcome || outcome->Type != metSuccess) KeepStanding();  // a tick that threw
  CloseFrom(0);
}

void TStepSpans::KeepStanding() {
  if (!FStanding.empty()) return;
  for (const TOpen& open : FOpen) FStanding.push_back(open.Span);
}

void TStepSpans::CloseFrom(std::size_t level) {
  for (std::size_t i = level; i < FOpen.size(); ++i) FSpans[FOpen[i].Span].To = Clock().MonotonicMs();
  if (level < FOpen.size()) FOpen.resize(level);
}

std::vector<TStepSpan> TStepSpans::Items() const {
  TGuard guard(FLock);
  std::vector<TStepSpan> items = FSpans;
  for (const TOpen& open : FOpen) items[open.Span].To = Clock().MonotonicMs();
  return items;
}

std::vector<TStepSpan> TStepSpans::Standing() const {
  TGuard guard(FLock);
  std::vector<TStepSpan> standing;
  for (const std::size_t span : FStanding) standing.push_back(FSpans[span]);
  return standing;
}

}  // namespace ixocontroller
