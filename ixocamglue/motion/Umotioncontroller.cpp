#include "ixocamglue/motion/Umotioncontroller.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/motion/Umotionstop.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr const char* SExecOKName = "CustomMotionStateExecOK%d";
constexpr const char* SNoRoot = "设计不支持TCustomMotionState.StateMotion = nil";
constexpr const char* SNoBusyType = "Error: Motion中没有设置Busy类型";
constexpr const char* SAbortedAnswer = "TCustomMotionState：AReason <> srDone时返回值需为mstpError";
constexpr const char* SStepDoneFailed = "严重：TCustomMotionState.StepDone执行错误，将直接退出";
constexpr const char* SChangeNextFailed = "TCustomMotionState.ChangeNext 报错，将直接退至nsStandby";
constexpr const char* SChangeStateFailed = "ChangeState 函数报错，无法处理";
constexpr const char* SObserverFailed = "motion observer: %s";
constexpr const char* SBadOutcome = "设计不支持该参数值(TCustomMotionState.ChangeNext)";
constexpr const char* SNoInport = "CutSystem.InportCtrl = nil";
constexpr const char* SNoCutHead = "CutSystem.CutHeadCtrl = nil";

// The one root of the program. Replaced on the state thread, or while no procedure runs; copied by any thread.
class TRootHolder {
 public:
  void Set(std::shared_ptr<IStateMotion> root) {
    {
      TGuard guard(FLock);
      FRoot.swap(root);
    }
    // Outside the lock: a loaded root that dies leaves first, and leaving may call anything. Not on the thread of
    // whoever has copied the root just now.
    if (root) ReleaseOnStateThread(std::move(root));
  }
  [[nodiscard]] std::shared_ptr<IStateMotion> Share() const {
    TGuard guard(FLock);
    return FRoot;
  }
  // For the thread that runs the procedure, where nobody else replaces the root: without the lock.
  [[nodiscard]] const std::shared_ptr<IStateMotion>& OwnThread() const IXO_NO_ANALYSIS { return FRoot; }

 private:
  mutable TCriticalSection FLock;
  std::shared_ptr<IStateMotion> FRoot IXO_GUARDED_BY(FLock);
};

TRootHolder* FMotion = nullptr;  // between StartMotionController and FreeMotionController

std::shared_ptr<IStateMotion> Root() { return FMotion ? FMotion->Share() : nullptr; }
// The same on the state thread. A copy all the same: what runs in a tick may release the root.
std::shared_ptr<IStateMotion> RunningRoot() { return FMotion ? FMotion->OwnThread() : nullptr; }

struct TOutcomeLine {
  TMotionExecType Type;
  const char* Format;
};
constexpr TOutcomeLine kOutcomeLines[] = {
    {metSuccess, "Exec success(%s), FNextState = %d"}, {metError, "Exec error(%s), FNextState = %d"},
    {metStop, "Exec Stop(%s), FNextState = %d"},       {metPause, "Exec Pause(%s), FNextState = %d"},
    {metAlarm, "Exec Alarm(%s), FNextState = %d"},
};

}  // namespace

void StartMotionController() {
  if (FMotion) return;
  FMotion = new TRootHolder;
  if (auto* registry = NcRegistry()) {
    registry->RegisterStateCtrl(nsCustomMotion, [](TNcStateFramework& owner) -> std::unique_ptr<TNcStateCtrl> {
      return std::make_unique<TCustomMotionState>(owner);
    });
  }
}

void FreeMotionController() {
  if (!FMotion) return;
  if (auto* registry = NcRegistry()) registry->UnregisterStateCtrl(nsCustomMotion);
  delete std::exchange(FMotion, nullptr);
}

// --- life of a procedure ---

void TCustomMotionState::SetStateMotion(std::shared_ptr<IStateMotion> motion) {
  if (TDiag d{dlEntry}) d("TCustomMotionState0.SetStateMotion");
  if (!FMotion) return ReportFault("TCustomMotionState.SetStateMotion before the library's start");
  if (motion) {
    TNcCutSystem* const cut = CutSystem();
    motion->SetNextState(cut ? cut->GetState() : nsStandby);
    motion->SetErrorState(nsStandby);
    if (TDiag d{dlMessage}) d("FMotion已初始化；NextState = %d", motion->GetNextState());
  }
  FMotion->Set(std::move(motion));
}

void TCustomMotionState::InitState(std::int32_t param) {
  if (TDiag d{dlEntry}) d("TCustomMotionState2");
  if (TDiag d{dlEntry}) d("[BuidData]");
  FStateLoaded = false;
  FExecOKOf = nullptr;
  TNcStateCtrl::InitState(param);
  const auto root = Root();
  if (!root) {
    ReportFault(SNoRoot);
    throw EDesignFault(SNoRoot);
  }
  if (auto* execOK = ExecOK(*root)) execOK->Set(false);
  FRefused.clear();
  FRefusedBy = nullptr;
  root->SetStateCtrl(this);
  root->BuildData();
  FObserved = true;
  FEnded = false;
  Tell([&](IMotionObserver& o) { o.Entered(*root); });
  FStateLoaded = true;
  if (TDiag d{dlMessage}) d("[FMotion.BuildData have done!]");
}

void TCustomMotionState::LeaveState(std::int32_t param) {
  if (TDiag d{dlEntry}) d("TCustomMotionState3.LeaveState");
  TNcStateCtrl::LeaveState(param);
  if (auto* params = NcParams()) params->SetInt("AutoSaveCaliResult", 0);
  FExecOK = nullptr;
  FExecOKOf = nullptr;
  if (std::exchange(FObserved, false)) Tell([&](IMotionObserver& o) { o.Ended(FEnded ? &FOutcome : nullptr); });
  if (FMotion) FMotion->Set(nullptr);
  if (TDiag d{dlNote}) d("[FMotion := nil]: FMotion不可再用");
}

template <class Call>
void TCustomMotionState::Tell(Call call) {
  for (IMotionObserver* const observer : FObservers) {
    try {
      call(*observer);
    } catch (...) {
      LogMsg(lkError, 0, Format(SObserverFailed, DescribeException(std::current_exception()).c_str()));
    }
  }
}

void TCustomMotionState::StepDone(std::int32_t reason) {
  const auto root = RunningRoot();
  if (root) {
    if (auto* execOK = ExecOK(*root)) execOK->Set(false);
    if (TDiag d{dlMessage}) d("TCustomMotionState.stepdone:   %s", root->GetDesc().c_str());
  }
  FCustomBusyType = csbtInit;
  TNcStateCtrl::StepDone(reason);
  if (!FStateLoaded) return;
  try {
    try {
      Tick(root, reason);
    } catch (...) {  // also after a fault: the framework always knows what to wait for
      SetCustomStateBusy(FCustomBusyType);
      throw;
    }
    SetCustomStateBusy(FCustomBusyType);
    if (FCustomBusyType == csbtInit) throw EDesignFault(SNoBusyType);
  } catch (...) {
    const std::string fault = DescribeException(std::current_exception());
    if (TDiag d{dlError}) d("%s", SStepDoneFailed);
    if (TDiag d{dlNote}) d("%s", fault.c_str());
    ChangeNext(reason == srStop ? metStop : metError);
    FOutcome.Fault = fault;
  }
  // A failure of its own, like an abort: what the leave could not switch off, the framework tells again until it is.
  if (reason == srDone && FEnded && FOutcome.Type != metSuccess) TNcStateCtrl::StepDone(srError);
}

void TCustomMotionState::Tick(const std::shared_ptr<IStateMotion>& root, std::int32_t reason) {
  if (!root) throw EDesignFault(SNoRoot);
  if (reason != srDone) ErrorLeave();
  const TStepType result = root->Motion(reason);
  Tell([&](IMotionObserver& o) { o.Ticked(*root, result); });
  if (reason != srDone && result != mstpError) throw EDesignFault(SAbortedAnswer);
  switch (result) {
    case mstpError:
      switch (reason) {
        case srDone:
        case srError: ChangeNext(metError); break;
        case srStop: ChangeNext(metStop); break;
        case srPause: ChangeNext(metPause); break;
        case srAlarm: ChangeNext(metAlarm); break;
        default: break;  // names no busy type and so ends as an error
      }
      break;
    case mstpStep:
    case mstpEnd: SetCustomBusyType(csbtEnsure); break;
    case mstpExit: {
      TNcParams::TBoolSlot* const execOK = ExecOK(*root);
      ChangeNext(metSuccess);
      if (execOK) execOK->Set(true);
      break;
    }
    default: break;  // polling: the step has named what it waits for
  }
}

void TCustomMotionState::StopExec() {
  TNcStateCtrl::StopExec();
  if (const auto root = Root()) root->StopExec();
}

void TCustomMotionState::UpdateThread(std::uint32_t& loopDelay) {
  TNcStateCtrl::UpdateThread(loopDelay);
  if (const auto root = RunningRoot()) root->UpdateThread(loopDelay);
}

std::string TCustomMotionState::StateName() {
  const auto root = Root();
  return root ? root->GetDesc() : std::string();
}

std::int32_t TCustomMotionState::GetStateID() {
  const auto root = Root();
  return root ? root->GetID() : -1;
}

// --- busy conditions ---

void TCustomMotionState::SetCustomBusyType(TCustomBusyType type) {
  if (type == csbtEnsure && FCustomBusyType > csbtEnsure) return;
  FCustomBusyType = type;
}

void TCustomMotionState::SetCustomStateBusy(TCustomBusyType type) {
  if (type == csbtEnsure) return EnsureBusySet();
  TNcCutSystem* const cut = CutSystem();
  switch (type) {
    case csbtInit:
    case csbtEnsure: EnsureBusySet(); break;
    case csbtChange: break;
    case csbtFollower:
    case csbtFollower2:
      if (auto* multi = cut ? cut->MultiFollower() : nullptr)
        if (auto* follower = multi->GetFollower(type == csbtFollower ? 0 : 1)) SetBusy(*follower, -1);
      break;
    case csbtMotion: SetBusyMotion(-1); break;
    case csbtInput: {
      auto* const inport = cut ? cut->InportCtrl() : nullptr;
      if (!inport) throw EDesignFault(SNoInport);
      SetBusy(*inport, -1);
      break;
    }
    case csbtFocus: {
      auto* const head = cut ? cut->CutHeadCtrl() : nullptr;
      if (!head) throw EDesignFault(SNoCutHead);
      SetBusy(*head, -1);
      break;
    }
    case csbtGas: SetBusyGas(-1); break;
    case csbtDelay: SetBusyDelay(-1); break;
  }
}

// --- ending ---

void TCustomMotionState::ChangeNext(TMotionExecType type) {
  FOutcome = {.Type = type, .Cause = Owner().EndCause()};
  if (type == metError) FOutcome.Why = std::exchange(FRefused, {}), FOutcome.Reason = FRefusedBy;
  FEnded = true;
  std::int32_t next = nsStandby;
  try {
    const auto root = Root();
    if (!root) ReportFault(SNoRoot);
    FCustomBusyType = csbtChange;
    next = NextState(type, root);
    if (TDiag d{dlEntry}) d("[ChangeState]：%d", next);
    if (root) LogOutcome(type, *root);
  } catch (...) {
    LogMsg(lkError, 0, SChangeNextFailed);
    if (TDiag d{dlNote}) d("%s", DescribeException(std::current_exception()).c_str());
    next = nsStandby;
  }
  FOutcome.NextState = next;
  try {
    ChangeState(next, 0);
  } catch (...) {
    LogMsg(lkError, 0, SChangeStateFailed);
  }
  if (TDiag d{dlExit}) d("[ChangeState]：%d", next);
  if (TDiag d{dlExit}) d("TCustomMotionState2");
}

std::int32_t TCustomMotionState::NextState(TMotionExecType type, const std::shared_ptr<IStateMotion>& root) {
  if (!root) {
    ErrorLeave();
    return nsStandby;
  }
  if (type == metSuccess) return root->GetNextState();
  root->DoLeaveError();
  if (type == metStop) return nsStandby;
  if (TNcAlarms* alarms = NcAlarms(); type == metAlarm && alarms && alarms->RequireStop()) return nsStandby;
  return root->GetErrorState();
}

void TCustomMotionState::LogOutcome(TMotionExecType type, IStateMotion& root) {
  const auto* const line = std::ranges::find(kOutcomeLines, type, &TOutcomeLine::Type);
  if (line == std::end(kOutcomeLines)) throw EDesignFault(SBadOutcome);
  const TDiag d{type == metSuccess ? dlMessage : dlError};
  if (type == metSuccess && !d) return;  // nobody asks for the path of a success
  FOutcome.Path = root.GetErrorDesc();
  if (d) d(line->Format, FOutcome.Path.c_str(), root.GetNextState());
}

void TCustomMotionState::ErrorLeave() { StopAllMotion(); }

void TCustomMotionState::NoteRefusal(const TText& reason, std::string_view why) {
  FRefused = why;
  FRefusedBy = &reason;
}

// --- alarms ---

bool TCustomMotionState::CheckEnterAlarm(std::int32_t) {
  const auto root = Root();
  const bool alarm = root && root->CheckStateAlarm();
  if (alarm)
    if (TDiag d{dlError}) d("TCustomMotionState.CheckEnterAlarm：检查到报警存在");
  return alarm;
}

bool TCustomMotionState::CheckStateAlarm() {
  const auto root = RunningRoot();
  if (!root) return FaultOr(false, SNoRoot);
  const bool alarm = root->CheckStateAlarm();
  if (alarm)
    if (TDiag d{dlError}) d("TCustomMotionState.CheckStateAlarm：检查到报警存在");
  return alarm;
}

bool TCustomMotionState::CheckNewAlarm(const TNcAlarmRecord& alarm) {
  if (TDiag d{dlEntry}) d("TCustomMotionState.CheckNewAlarm");
  bool isAlarm = TNcStateCtrl::CheckNewAlarm(alarm);
  if (const auto root = Root()) {
    bool own = false;
    root->CheckNewAlarm(alarm, own);
    isAlarm = isAlarm || own;
  }
  if (isAlarm)
    if (TDiag d{dlError})
      d("TCustomMotionState.CheckNewAlarm：检查到不可忽视的新报警存在；Classname = %s; AlarmDesc = %s; AlarmID = %d",
        alarm.IdPrefix.c_str(), alarm.Desc.c_str(), alarm.Id);
  return isAlarm;
}

// --- success flags ---

void TCustomMotionState::SetExecOK(std::int32_t stateId, bool value) {
  if (auto* params = NcParams()) params->SetBool(Format(SExecOKName, stateId), value);
}

bool TCustomMotionState::GetExecOK(std::int32_t stateId, bool defValue) {
  auto* const params = NcParams();
  return params ? params->GetBool(Format(SExecOKName, stateId), defValue) : defValue;
}

void TCustomMotionState::FindExecOK(IStateMotion& root) {
  auto* const params = NcParams();
  FExecOK = params ? &params->BoolSlot(Format(SExecOKName, root.GetID())) : nullptr;
  FExecOKOf = &root;
}

TNcParams::TBoolSlot* TCustomMotionState::ExecOK(IStateMotion& root) {
  if (FExecOKOf != &root) FindExecOK(root);
  return FExecOK;
}

}  // namespace ixocamglue
