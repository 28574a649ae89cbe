#include "ixocamglue/motion/Usteptree.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotionstop.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr const char* SMustOverride = "该函数一定要被继承实现";
constexpr const char* SNoAutomation = "目前不支持该自动化接口";
constexpr const char* SBadStepType = "%s: Can not find the motionsteptype %d";
constexpr const char* SStepError = "[Step-Error]%s: Step = %d";
constexpr const char* SAbortAnswer = "AReason(%d) <> srDone(%d)时返回值需为mstpError";
constexpr const char* SCannotLeave = "不具备调用LeaveMotion条件";
constexpr const char* SForcedLeave = "执行了强制退出操作";
constexpr const char* SForcedLeaveLog = "被执行了强制退出操作";
constexpr const char* SRegistered = "该状态动作已被注册！";
constexpr std::size_t kExpectedChildren = 16;

void LogEnterLeave(TDiagLevel level, bool root, std::int32_t parentStep, const std::string& desc, std::int32_t depth) {
  const TDiag d{level};
  if (root)
    d("[Motion][%s]: Level = %d", desc.c_str(), depth);
  else
    d("[%d][%s]: Level = %d", parentStep, desc.c_str(), depth);
}

// True while it lives.
struct TInside {
  explicit TInside(bool& flag) : Flag(flag) { Flag = true; }
  ~TInside() { Flag = false; }
  TInside(const TInside&) = delete;
  TInside& operator=(const TInside&) = delete;
  bool& Flag;
};

// What is configured where a command makes no step.
class TNoStep : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TNoStep";
};

}  // namespace

void TStepDeleter::operator()(TStateMotion* step) const noexcept {
  step->LeaveIfLoaded();
  delete step;
}

// --- TStateMotion: the tick ---

TStepType TStateMotion::Motion(std::int32_t reason) {
  TStepType result = mstpError;
  if (reason != srDone && IsAtomic()) {
    if (TDiag d{dlEntry}) d("%s:mstpError", GetDesc().c_str());
    SetStep(mstpError);
    if (TDiag d{dlMessage}) d("%s:将快速设置为mstpError，以执行退出", GetDesc().c_str());
  } else {
    if (TDiag d{dlMessage}) d("FStep = %d", FStep);
    TStepType type = StepType();
    if (FStep != FOldStep || type == mstpUnbuilt) type = BeforeMotion(type);
    if (reason == srDone || type == mstpStep) {
      if (type == mstpEnd) {
        FStep = mstpExit;
        if (FLoaded) DoLeaveMotion();
        result = mstpEnd;
      } else if (type == mstpStep) {
        result = DoMotion(reason);
        // A child has finished, its composite has not.
        if (result == mstpExit && HasMotion(FStep)) result = mstpStep;
      } else {
        result = type;
      }
      if (TDiag d{dlMessage}) d("Domotion  result%d", result);
      if (result == mstpPolling) return result;
    }
  }

  if (result == mstpError) {
    if (TDiag d{dlError}) d("%s: TStateMotion.Motion Result = mstpError, 将退出", GetDesc().c_str());
  } else if (reason != srDone) {
    result = FaultOr(mstpError, Format(SAbortAnswer, reason, srDone));
  }
  if (result == mstpError && FLoaded) {
    KeepChildError();
    DoLeaveMotion();
  } else {
    AfterMotion();
  }
  return result;
}

// The step's type, after the hooks.
TStepType TStateMotion::BeforeMotion(TStepType type) {
  if (type == mstpUnbuilt) {
    DoInitMotion();
    type = StepType();
    if (type == mstpUnbuilt) SetStep(type = mstpError);
  }
  if ((type != mstpStep && type != mstpEnd) || FOldStep == FStep) return type;
  if (FStep == 0) DoEnterMotion();
  DoBeforeStep(FOldStep, FStep);
  FOldStep = FStep;
  return StepType();
}

void TStateMotion::AfterMotion() {
  const TStepType type = StepType();
  if (type != mstpStep && type != mstpEnd) return;
  const std::int32_t before = FStep;
  DoNext();
  if (FStep == before) return;
  if (before != FOldStep) StepFault(": FOldStep Error; TStateMotion.AfterMotion");
  FOldStep = before;
  DoAfterStep(before, FStep);
}

TStepType TStateMotion::GetStepType() { return StepType(); }

TStepType TStateMotion::OtherStepType() {
  switch (FStep) {
    case mstpUnbuilt:
    case mstpError:
    case mstpPolling: return static_cast<TStepType>(FStep);
    default: return FaultOr(mstpError, Format(SBadStepType, GetDesc().c_str(), FStep));
  }
}

void TStateMotion::StepFault(const char* text) { ReportFault(GetDesc() + text); }

void TStateMotion::SetStep(std::int32_t step) {
  const bool valid = HasMotion(step) || step == mstpEnd || step == mstpExit || step == mstpError || step == mstpUnbuilt;
  FStep = valid ? step : FaultOr<std::int32_t>(mstpError, Format(SStepError, GetDesc().c_str(), step));
}

TStepType TStateMotion::FailWithout(const TText& device) {
  if (FStateCtrl) FStateCtrl->NoteRefusal(SCheckNoDevice, Show(SCheckNoDevice, device.Get()));
  return Fail();
}

TStepType TStateMotion::Await(TCustomBusyType busy) {
  if (!FStateCtrl) return Fail();
  FStateCtrl->SetCustomBusyType(busy);
  return mstpStep;
}

TStepType TStateMotion::PollAgain(TCustomBusyType busy) { return Await(busy) == mstpStep ? mstpPolling : mstpError; }

// --- TStateMotion: what steps override ---

std::int32_t TStateMotion::GetID() { return FaultOr(0, SMustOverride); }
std::string TStateMotion::GetDesc() { return FaultOr(std::string(), SMustOverride); }
void TStateMotion::StopExec() { FStopFlag->store(true, std::memory_order_release); }
bool TStateMotion::CheckStateAlarm() { return DoCheckStateAlarm(); }
void TStateMotion::DoInitMotion() {}
void TStateMotion::DoBeforeStep(std::int32_t, std::int32_t) {}
void TStateMotion::DoAfterStep(std::int32_t, std::int32_t) {}
void TStateMotion::CheckNewAlarm(const TNcAlarmRecord&, bool&) {}
void TStateMotion::UpdateThread(std::uint32_t&) {}
bool TStateMotion::InitParams(std::span<const TStepParam>) { return FaultOr(true, SNoAutomation); }

// Kept: a loaded step keeps its numbers, and the parent link goes at every reset, so a step that has left reports
// level 0.
void TStateMotion::ResetParams() {
  if (!FLoaded) FStep = FOldStep = mstpError;
  FOwnerMotion = nullptr;
  FLoaded = false;
}

void TStateMotion::DoEnterMotion() {
  FLoaded = true;
  if (TDiag d{dlEntry}) LogEnterLeave(dlEntry, !FOwnerMotion, GetParentStep(), GetDesc(), GetLevel());
}

void TStateMotion::DoLeaveMotion() {
  if (!FLoaded) return ReportFault(SCannotLeave);
  if (!TDiag{dlExit}) return ResetParams();
  const bool root = !FOwnerMotion;  // gone with the reset
  const std::int32_t level = GetLevel();
  const std::int32_t parentStep = GetParentStep();
  ResetParams();
  LogEnterLeave(dlExit, root, parentStep, GetDesc(), level);
}

void TStateMotion::DoLeaveError() { StopAllMotion(); }

bool TStateMotion::DoCheckStateAlarm() {
  TNcAlarms* const alarms = NcAlarms();
  if (!alarms) return false;
  bool alarm = false;
  if (!alarms->AllowMove()) {
    if (auto* driver = MotionDriver()) driver->StopAll(0);
    alarm = true;
  }
  if (!alarms->AllowFollower()) {
    if (auto* follower = GFollower()) follower->Stop(1);
    alarm = true;
  }
  return alarm;
}

std::int32_t TStateMotion::GetLevel() const {
  std::int32_t level = 0;
  for (const TStateMotion* owner = FOwnerMotion; owner; owner = owner->FOwnerMotion) ++level;
  return level;
}

std::int32_t TStateMotion::GetParentStep() const { return FOwnerMotion ? FOwnerMotion->GetStep() : 0; }

bool TStateMotion::DHEnabled() {
  const TMachineConfig* config = MachineConfig();
  return config && config->Root().GetInt("DHMode", 0) == 2;
}

// "->%s(%d)(FStep = %d)"; every procedure's end asks for it, also a good one.
std::string TStateMotion::ErrorLine() {
  std::string line;
  line.reserve(64);
  line += "->";
  const auto number = [&line](std::int32_t value) {
    char digits[12];
    line.append(digits, std::to_chars(std::begin(digits), std::end(digits), value).ptr);
  };
  line += GetDesc();
  line += '(';
  number(GetID());
  line += ")(FStep = ";
  number(FStep);
  line += ')';
  return line;
}

void TStateMotion::LeaveIfLoaded() noexcept {
  if (!FLoaded) return;
  ReportFault(SForcedLeave);
  TTryAll tryAll;
  tryAll([this] {
    if (TDiag d{dlError}) d("%s", SForcedLeaveLog);
    Motion(srStop);
  });
  // A child that threw kept its composite from leaving; what the composite itself switches off goes off all the same.
  if (FLoaded) tryAll([this] { DoLeaveMotion(); });
  try {
    tryAll.Rethrow();
  } catch (...) {
    if (TDiag d{dlError}) d("%s: %s", SForcedLeaveLog, DescribeException(std::current_exception()).c_str());
  }
}

// --- TSmtAtomic ---

void TSmtAtomic::DoNext() {
  if (FStep == 0)
    FStep = mstpEnd;
  else
    StepFault(": FStep Error; TStateMotion.DoNext");
}

void TSmtAtomic::BuildData() {
  FOldStep = mstpError;
  SetStep(0);
  if (TDiag d{dlMessage}) d("BUILDDATA:   step := %d", FStep);
}

TStepType TSmtAtomic::DoMotion(std::int32_t) {
  if (TDiag d{dlMessage}) d("%.*s", static_cast<int>(ClassName().size()), ClassName().data());
  return mstpStep;
}

// --- TSmtComposite: building ---

void TSmtComposite::BuildData() {
  ClearLists();
  FChildError.clear();
  FOldStep = mstpError;
  if (!FBuildFirst && !FInInitMotion) return SetStep(mstpUnbuilt);
  BuildMotionList();
  if (FBuildFailed) return SetStep(mstpError);
  for (const TStepPtr& child : FMotionList)
    if (child->FStep == mstpError) child->BuildData();
  if (!FTypeList.empty())
    SetStep(0);
  else if (!HasMotion(FStep) && FStep != mstpEnd && FStep != mstpExit && FStep != mstpUnbuilt)
    FStep = mstpError;
}

void TSmtComposite::BuildMotionList() { ReportFault(GetDesc() + ": 子类一定要重载TSmtComposite.BuildMotionList"); }

void TSmtComposite::DoInitMotion() {
  const TInside inside(FInInitMotion);  // also when building throws
  if (!FBuildFirst) BuildData();
}

std::int32_t TSmtComposite::AddMotion(TStepPtr motion) {
  if (FMotionList.size() >= static_cast<std::size_t>(mstpEnd))
    return FaultOr(-1, Format("%s: a composite holds at most %d steps", GetDesc().c_str(), mstpEnd));
  motion->FOwnerMotion = this;
  motion->ShareStop(FStopFlag);
  FMotionList.push_back(std::move(motion));
  FMotions = static_cast<std::uint32_t>(FMotionList.size());
  return static_cast<std::int32_t>(FMotions) - 1;
}

TStateMotion& TSmtComposite::Place(std::int32_t type, std::int32_t command, std::string_view desc) {
  if (FTypeList.empty()) {
    FTypeList.reserve(kExpectedChildren);
    FDescs.reserve(kExpectedChildren);
    FIDList.reserve(kExpectedChildren);
    FMotionList.reserve(kExpectedChildren);
  }
  FTypeList.push_back(type);
  FDescs.emplace_back(desc);
  if (AddMotionByCmd(command, *this, false)) return *FMotionList.back();
  ReportFault(Format("%s: no step can be made for command %d", GetDesc().c_str(), command));
  return Reject(MakeStep<TNoStep>(FStateCtrl));
}

TStateMotion& TSmtComposite::PlaceStep(std::int32_t type, TStepPtr step, std::string_view desc) {
  FTypeList.push_back(type);
  FDescs.emplace_back(desc);
  FIDList.push_back(step->GetID());
  if (TStateMotion* placed = step.get(); FMotionList.size() < static_cast<std::size_t>(mstpEnd)) {
    AddMotion(std::move(step));
    return *placed;
  }
  return Reject(std::move(step));
}

TStateMotion& TSmtComposite::Reject(TStepPtr step) {
  FBuildFailed = true;
  return *FRejected.emplace_back(std::move(step));
}

void TSmtComposite::ShareStop(std::atomic<bool>* flag) {
  FStopFlag = flag;
  for (const TStepPtr& child : FMotionList) child->ShareStop(flag);
}

void TSmtComposite::ClearLists() {
  FIDList.clear();
  FTypeList.clear();
  FMotionList.clear();
  FMotions = 0;
  FDescs.clear();
  FRejected.clear();
  FBuildFailed = false;
}

void TSmtComposite::ResetParams() {
  FInInitMotion = false;
  FBuildFirst = true;
  ClearLists();
  TStateMotion::ResetParams();
}

// --- TSmtComposite: walking ---

TStepType TSmtComposite::DoMotion(std::int32_t reason) {
  if (!HasMotion(FStep)) {
    StepFault(": TSmtComposite.DoMotion");
    return mstpError;
  }
  TStateMotion& child = *FMotionList[static_cast<std::size_t>(FStep)];
  if (TDiag d{dlMessage})
    d("FStep: %d %.*s", FStep, static_cast<int>(child.ClassName().size()), child.ClassName().data());
  return child.Motion(reason);
}

void TSmtComposite::KeepChildError() {
  if (TStateMotion* const current = GetCurMotion(); current != this) FChildError = current->GetErrorDesc();
}

// Kept: the child's type is read in the tick in which it leaves, so the parent advances one tick before the child would
// report its end.
void TSmtComposite::DoNext() {
  if (!HasMotion(FStep)) return StepFault(": TSmtComposite.DoNext");
  if (FMotionList[static_cast<std::size_t>(FStep)]->StepType() != mstpExit) return;
  FStep = HasMotion(FStep + 1) ? FStep + 1 : mstpEnd;
}

void TSmtComposite::DoAfterStep(std::int32_t, std::int32_t newStep) {
  if (!HasMotion(newStep) || static_cast<std::size_t>(newStep) >= FDescs.size()) return;
  if (TDiag d{dlProgress})
    d("%d/%d: %s", newStep + 1, static_cast<int>(FDescs.size()), FDescs[static_cast<std::size_t>(newStep)].c_str());
}

void TSmtComposite::UpdateThread(std::uint32_t& loopDelay) {
  if (TStateMotion* current = GetCurMotion(); current != this) current->UpdateThread(loopDelay);
}

TStateMotion* TSmtComposite::GetCurMotion() {
  return HasMotion(FStep) ? FMotionList[static_cast<std::size_t>(FStep)].get() : this;
}

bool TSmtComposite::NeedsLaser() {
  return std::ranges::any_of(FMotionList, [](const TStepPtr& child) { return child->NeedsLaser(); });
}

TStateMotion* TSmtComposite::GetMotionItem(std::int32_t index) const {
  if (index < 0 || index >= static_cast<std::int32_t>(FIDList.size()) || !HasMotion(index)) return nullptr;
  return FMotionList[static_cast<std::size_t>(index)].get();
}

std::int32_t TSmtComposite::GetStepByType(std::int32_t type) const {
  for (std::size_t i = 0; i < FTypeList.size(); ++i)
    if (FTypeList[i] == type) return static_cast<std::int32_t>(i);
  return -1;
}

std::string TSmtComposite::GetErrorDesc() {
  TStateMotion* const current = GetCurMotion();
  return ErrorLine() + (current != this ? current->GetErrorDesc() : FChildError);
}

// --- free functions ---

void ReportNoStepParams() { ReportFault(SMustOverride); }

bool TSmtMotionDic::RegisterStateMotion(std::int32_t state, TStepFactory motion) {
  return FDic.emplace(state, motion).second || FaultOr(false, SRegistered);
}

TStepFactory TSmtMotionDic::Find(std::int32_t state) const {
  const auto it = FDic.find(state);
  return it == FDic.end() ? nullptr : it->second;
}

TStateMotion* CurrentLeaf(IStateMotion& root) {
  auto* step = dynamic_cast<TStateMotion*>(&root);
  while (step && step->GetCurMotion() != step) step = step->GetCurMotion();
  return step;
}

}  // namespace ixocamglue
