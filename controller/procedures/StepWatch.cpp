#include "controller/procedures/StepWatch.h"

#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {
namespace {

class TWatchedRoot final : public IStateMotion {
 public:
  TWatchedRoot(TStepPtr root, TStepSpans& spans)
      : FRoot(std::move(root)), FList(dynamic_cast<TSmtComposite*>(FRoot.get())), FSpans(spans) {}

  void SetStateCtrl(TCustomMotionState* ctrl) override { FRoot->SetStateCtrl(ctrl); }
  std::int32_t GetID() override { return FRoot->GetID(); }
  std::string GetDesc() override { return FRoot->GetDesc(); }
  void ResetParams() override { FRoot->ResetParams(); }
  void BuildData() override {
    FRoot->BuildData();
    Look();
  }
  void DoLeaveMotion() override { FRoot->DoLeaveMotion(); }
  TStepType Motion(std::int32_t reason) override {
    Look();
    const TStepType result = FRoot->Motion(reason);
    Look();
    return result;
  }
  TStepType GetStepType() override { return FRoot->GetStepType(); }
  bool CheckStateAlarm() override { return FRoot->CheckStateAlarm(); }
  void CheckNewAlarm(const TNcAlarmRecord& alarm, bool& isAlarm) override { FRoot->CheckNewAlarm(alarm, isAlarm); }
  void DoLeaveError() override { FRoot->DoLeaveError(); }
  void UpdateThread(std::uint32_t& loopDelay) override { FRoot->UpdateThread(loopDelay); }
  std::string GetErrorDesc() override { return FRoot->GetErrorDesc(); }
  std::int32_t GetNextState() override { return FRoot->GetNextState(); }
  std::int32_t GetErrorState() override { return FRoot->GetErrorState(); }
  void SetErrorState(std::int32_t state) override { FRoot->SetErrorState(state); }
  void SetNextState(std::int32_t state) override { FRoot->SetNextState(state); }
  void StopExec() override { FRoot->StopExec(); }

 private:
  void Look() {
    if (FList) FSpans.Look(*FList);
  }

  const TStepPtr FRoot;
  TSmtComposite* const FList;  // the same; null: a leaf
  TStepSpans& FSpans;
};

}  // namespace

void TStepSpans::Look(TSmtComposite& root) {
  const std::uint64_t now = Clock().MonotonicMs();
  TGuard guard(FLock);
  std::size_t level = 0;
  for (TSmtComposite* list = &root; list && list->IsMotionStep(list->GetStep()); ++level) {
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

void TStepSpans::CloseAll() {
  TGuard guard(FLock);
  CloseFrom(0);
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

std::shared_ptr<IStateMotion> WatchRoot(TStepPtr root, TStepSpans& spans) {
  return std::make_shared<TWatchedRoot>(std::move(root), spans);
}

}  // namespace ixocontroller
