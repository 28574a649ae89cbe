#include "controller/runs/StepWatch.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {

void TStepSpans::Look(IStateMotion& root) {
  const std::uint64_t before = FBegun.load(std::memory_order_relaxed);
  Follow(root);
  if (FTold && FBegun.load(std::memory_order_relaxed) != before) FTold();
}

void TStepSpans::Follow(IStateMotion& root) {
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
      if (FSpans.size() == kMost) {
        FSpans.pop_front();
        ++FFirst;
      }
      FOpen.push_back({step, FFirst + FSpans.size(), span});
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
  for (std::size_t i = level; i < FOpen.size(); ++i)
    if (FOpen[i].Index >= FFirst) FSpans[FOpen[i].Index - FFirst].To = Clock().MonotonicMs();
  if (level < FOpen.size()) FOpen.erase(FOpen.begin() + static_cast<std::ptrdiff_t>(level), FOpen.end());
}

std::vector<TStepSpan> TStepSpans::Items() const {
  TGuard guard(FLock);
  std::vector<TStepSpan> items(FSpans.begin(), FSpans.end());
  for (const TOpen& open : FOpen)
    if (open.Index >= FFirst) items[open.Index - FFirst].To = Clock().MonotonicMs();
  return items;
}

std::vector<TStepSpan> TStepSpans::Behind(std::uint64_t& begun) const {
  TGuard guard(FLock);
  const std::uint64_t from = std::max(begun, FFirst) - FFirst;
  begun = FFirst + FSpans.size();
  if (from >= FSpans.size()) return {};
  return {FSpans.begin() + static_cast<std::ptrdiff_t>(from), FSpans.end()};
}

std::vector<TStepSpan> TStepSpans::Open() const {
  TGuard guard(FLock);
  std::vector<TStepSpan> spans;
  for (const TOpen& open : FOpen) spans.push_back(open.Span);
  return spans;
}

std::size_t TStepSpans::Gone() const {
  TGuard guard(FLock);
  return FFirst;
}

void TStepSpans::Clear() {
  TGuard guard(FLock);
  FSpans.clear();
  FOpen.clear();
  FStanding.clear();
  FFirst = 0;
  FBegun.store(0, std::memory_order_release);
}

std::vector<TStepSpan> TStepSpans::Standing() const {
  TGuard guard(FLock);
  return FStanding;
}

}  // namespace ixocontroller
