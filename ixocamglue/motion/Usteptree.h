// The step tree: every machine procedure outside cutting is a tree of motion steps. A leaf (TSmtAtomic) issues one
// command and reports back; a composite holds children and walks them, one tick after the other.
//
// State thread, except StopExec (any thread). Exceptions of devices pass through Motion to the controller that ticks
// the tree; run-time failures are the answer mstpError, explained by GetErrorDesc.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TCustomMotionState;
class TSmtComposite;

// A step's position is a motion index (0 and up) or one of these; as an answer, mstpStep stands for any index.
using TStepType = std::int16_t;
inline constexpr TStepType mstpError = -2;       // failed or aborted; the tree leaves through the error path
inline constexpr TStepType mstpUnbuilt = -1;     // a composite that is built on entry
inline constexpr TStepType mstpStep = 100;       // a motion is to be executed
inline constexpr TStepType mstpEnd = 1000;       // all motions are done; the next call leaves the step
inline constexpr TStepType mstpExit = 10001;     // left; finished
inline constexpr TStepType mstpPolling = 20001;  // answer only: call again without advancing

// What a tick waits for; the order is the order of specificity.
enum class TCustomBusyType : std::uint8_t {
  csbtInit,    // nothing requested
  csbtChange,  // a change of state is under way
  csbtEnsure,  // come back at once
  csbtFollower,
  csbtFollower2,
  csbtMotion,
  csbtInput,
  csbtFocus,
  csbtGas,
  csbtDelay
};
using enum TCustomBusyType;

// The root of a tree as its controller sees it.
class IStateMotion {
 public:
  virtual ~IStateMotion() = default;
  virtual void SetStateCtrl(TCustomMotionState* ctrl) = 0;
  virtual std::int32_t GetID() = 0;
  virtual std::string GetDesc() = 0;
  virtual void ResetParams() = 0;
  virtual void BuildData() = 0;
  virtual void DoLeaveMotion() = 0;
  virtual TStepType Motion(std::int32_t reason) = 0;
  virtual TStepType GetStepType() = 0;
  virtual bool CheckStateAlarm() = 0;
  virtual void CheckNewAlarm(const TNcAlarmRecord& alarm, bool& isAlarm) = 0;
  virtual void DoLeaveError() = 0;
  virtual void UpdateThread(std::uint32_t& loopDelay) = 0;
  virtual std::string GetErrorDesc() = 0;
  virtual std::int32_t GetNextState() = 0;
  virtual std::int32_t GetErrorState() = 0;
  virtual void SetErrorState(std::int32_t state) = 0;
  virtual void SetNextState(std::int32_t state) = 0;
  virtual void StopExec() = 0;  // any thread
  // It, or what it consists of, switches laser or emission on or waits for it: 515, 516, 518, 519, 520. Asked before it
  // is started, of a root that may not be built, and once more when it is entered. A composite that builds such steps
  // on entry says so here; the steps that it has by then are found without it.
  virtual bool NeedsLaser() { return false; }
};

class TStateMotion;

// A loaded step that dies leaves through its error path first.
struct TStepDeleter {
  void operator()(TStateMotion* step) const noexcept;
};
using TStepPtr = std::unique_ptr<TStateMotion, TStepDeleter>;

// An argument of a step that is created from automation.
using TStepParam = std::variant<bool, std::int64_t, double, std::string>;

// One tick, Motion(reason), by the type of the step's position after the before-hook:
//
//   type       | srDone                                             | any other reason
//   -----------+----------------------------------------------------+--------------------------------------------
//   mstpStep   | DoMotion; then advance, unless it answers polling  | leaf: mstpError without DoMotion;
//              | or error                                           | composite: down to the active child
//   mstpEnd    | leave the step, answer mstpEnd                     | mstpError
//   mstpExit   | mstpExit                                           | mstpError
//   mstpError  | mstpError                                          | mstpError
//   any        | mstpError and loaded: leave the step (no after-hook)
class TStateMotion : public IStateMotion {
 public:
  TStateMotion(const TStateMotion&) = delete;
  TStateMotion& operator=(const TStateMotion&) = delete;

  TStepType Motion(std::int32_t reason) final;
  TStepType GetStepType() final;
  void SetStep(std::int32_t step);  // an impossible number is a fault and stores mstpError

  std::string GetErrorDesc() override = 0;
  std::int32_t GetID() override;
  std::string GetDesc() override;
  void StopExec() override;
  virtual bool IsMotionStep(std::int32_t step) const = 0;
  bool CheckStateAlarm() override;
  virtual void DoNext() = 0;
  void BuildData() override = 0;
  virtual TStepType DoMotion(std::int32_t reason) = 0;
  void ResetParams() override;
  virtual void DoInitMotion();
  virtual void DoEnterMotion();
  void DoLeaveMotion() override;
  void DoLeaveError() override;
  virtual void DoBeforeStep(std::int32_t oldStep, std::int32_t newStep);
  virtual void DoAfterStep(std::int32_t oldStep, std::int32_t newStep);
  virtual bool DoCheckStateAlarm();
  void CheckNewAlarm(const TNcAlarmRecord& alarm, bool& isAlarm) override;
  void UpdateThread(std::uint32_t& loopDelay) override;
  virtual bool InitParams(std::span<const TStepParam> params);
  // How long its wait may last, as the step itself carries it, in ms; -1: it carries no such time.
  [[nodiscard]] virtual std::int64_t OwnWaitMs() const { return -1; }

  [[nodiscard]] virtual TStateMotion* GetCurMotion() { return this; }
  [[nodiscard]] virtual std::string_view ClassName() const = 0;
  [[nodiscard]] virtual bool IsAtomic() const = 0;
  [[nodiscard]] std::int32_t GetStep() const { return FStep; }
  [[nodiscard]] std::int32_t GetLevel() const;       // number of ancestors
  [[nodiscard]] std::int32_t GetParentStep() const;  // 0 for the root
  [[nodiscard]] bool IsLoaded() const { return FLoaded; }
  // Asked to stop: set for the whole tree, never cleared.
  [[nodiscard]] bool StopAsked() const { return FStopFlag->load(std::memory_order_acquire); }
  // The machine configuration's "DHMode" is 2.
  [[nodiscard]] static bool DHEnabled();

  std::int32_t GetNextState() final { return FNextState; }
  void SetNextState(std::int32_t state) final { FNextState = state; }
  std::int32_t GetErrorState() final { return FErrorState; }
  void SetErrorState(std::int32_t state) final { FErrorState = state; }
  void SetStateCtrl(TCustomMotionState* ctrl) final { FStateCtrl = ctrl; }
  [[nodiscard]] TCustomMotionState* StateCtrl() const { return FStateCtrl; }

 protected:
  explicit TStateMotion(std::uint32_t motions = 0) : FMotions(motions) {}
  ~TStateMotion() override = default;

  // The closing words of a leaf's DoMotion. Without a controller nobody waits for the device: a leaf that starts
  // something asks for StateCtrl() first.
  [[nodiscard]] TStepType Await(TCustomBusyType busy);      // advance when this is met
  [[nodiscard]] TStepType PollAgain(TCustomBusyType busy);  // call again when this is met
  [[nodiscard]] static TStepType Fail() { return mstpError; }
  [[nodiscard, gnu::cold]] TStepType FailWithout(const TText& device);  // for the outcome: what the machine has not
  [[nodiscard]] std::string ErrorLine();
  // The description and then `text`; apart from the callers, so that their ticks stay short.
  [[gnu::cold]] void StepFault(const char* text);
  // What IsMotionStep answers, without a virtual call: every tick asks it several times on every level.
  [[nodiscard]] bool HasMotion(std::int32_t step) const { return static_cast<std::uint32_t>(step) < FMotions; }

  std::int32_t FStep = mstpError;
  std::int32_t FOldStep = mstpError;         // where the hooks last ran
  TCustomMotionState* FStateCtrl = nullptr;  // not owned
  bool FLoaded = false;                      // between enter and leave

 private:
  friend struct TStepDeleter;
  friend class TSmtComposite;

  TStepType StepType() {
    if (HasMotion(FStep)) return mstpStep;
    return FStep == mstpEnd || FStep == mstpExit ? static_cast<TStepType>(FStep) : OtherStepType();
  }
  TStepType OtherStepType();
  TStepType BeforeMotion(TStepType type);
  void AfterMotion();
  void LeaveIfLoaded() noexcept;
  virtual void KeepChildError() {}  // leaving destroys the children
  virtual void ShareStop(std::atomic<bool>* flag) { FStopFlag = flag; }

  std::int32_t FNextState = nsStandby;
  std::int32_t FErrorState = nsStandby;
  TSmtComposite* FOwnerMotion = nullptr;  // not owned
  std::uint32_t FMotions;                 // motion positions are 0 to FMotions - 1
  std::atomic<bool> FStopExec{false};
  std::atomic<bool>* FStopFlag = &FStopExec;  // the root's, once the step is in a tree
};

// A leaf: one motion position, 0.
class TSmtAtomic : public TStateMotion {
 public:
  [[nodiscard]] bool IsMotionStep(std::int32_t step) const final { return HasMotion(step); }
  [[nodiscard]] bool IsAtomic() const final { return true; }
  std::string GetErrorDesc() override { return ErrorLine(); }
  void DoNext() override;
  void BuildData() override;
  TStepType DoMotion(std::int32_t reason) override;

 protected:
  TSmtAtomic() : TStateMotion(1) {}
};

// What the command table says of a command: the name of its class, and what it does. A fault and no text for a number
// that has no row.
[[nodiscard]] std::string_view CommandClass(std::int32_t command);
[[nodiscard]] std::string CommandDesc(std::int32_t command);

// The commands that light the beam, ask for emission or wait for it; not those that only switch off.
[[nodiscard]] constexpr bool IsLaserCommand(std::int32_t command) {
  return command == 515 || command == 516 || (command >= 518 && command <= 520);
}

// A step with a number of its own. Its name and description stand in the command table; one that is not made from its
// number has no row there and says both itself, with kClassName and GetDesc.
template <std::int32_t Command, class Base = TSmtAtomic>
class TSmtCommand : public Base {
 public:
  static constexpr std::int32_t Cmd = Command;
  std::int32_t GetID() override { return Command; }
  std::string GetDesc() override { return CommandDesc(this->GetID()); }
  bool NeedsLaser() override { return IsLaserCommand(Command) || Base::NeedsLaser(); }
};

// An inner node. BuildMotionList fills it; the positions are the children's indices.
class TSmtComposite : public TStateMotion {
 public:
  [[nodiscard]] bool IsMotionStep(std::int32_t step) const final { return HasMotion(step); }
  [[nodiscard]] bool IsAtomic() const final { return false; }
  std::string GetErrorDesc() override;
  void DoNext() override;
  void BuildData() override;
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  void DoInitMotion() override;
  void DoAfterStep(std::int32_t oldStep, std::int32_t newStep) override;
  void UpdateThread(std::uint32_t& loopDelay) override;
  [[nodiscard]] TStateMotion* GetCurMotion() override;
  bool NeedsLaser() override;
  // No device command belongs here: an abort can still build a step.
  virtual void BuildMotionList();

  // Appends a child and returns its index; the 1001st is a fault, refused with -1.
  std::int32_t AddMotion(TStepPtr motion);
  // Kept: the bound is the command list's; a child added without a command number is not reachable. Else null.
  [[nodiscard]] TStateMotion* GetMotionItem(std::int32_t index) const;
  [[nodiscard]] std::int32_t GetStepByType(std::int32_t type) const;  // the first, or -1
  [[nodiscard]] const std::vector<std::string>& Descs() const { return FDescs; }
  [[nodiscard]] const std::vector<std::int32_t>& IDList() const { return FIDList; }
  [[nodiscard]] const std::vector<TStepPtr>& MotionList() const { return FMotionList; }

 protected:
  // One child of BuildMotionList: type code (the command number), description and step, ready to be configured.
  TStateMotion& Add(std::int32_t command, const TText& desc) { return Place(command, command, desc.Get()); }
  template <class Step>
  Step& Add(std::int32_t command, const TText& desc) {
    return AddAs<Step>(command, command, desc.Get());
  }
  // The same with a type code of the composite's own. A command that is unknown, or not of class Step, fails the
  // build; what is configured then is a step outside the tree.
  template <class Step>
  Step& AddAs(std::int32_t type, std::int32_t command, std::string_view desc);
  TStateMotion& Place(std::int32_t type, std::int32_t command, std::string_view desc);
  // The same for a child that no command number makes; it is listed under its own GetID.
  TStateMotion& PlaceStep(std::int32_t type, TStepPtr step, std::string_view desc);

  bool FBuildFirst = true;  // false: built on entry
  bool FInInitMotion = false;

 private:
  friend bool AddMotionByCmd(std::int32_t command, TSmtComposite& composite, bool build);

  void ShareStop(std::atomic<bool>* flag) override;
  void KeepChildError() override;
  void ClearLists();
  TStateMotion& Reject(TStepPtr step);

  std::vector<std::int32_t> FIDList;    // command number per child
  std::vector<std::int32_t> FTypeList;  // the composite's own code per child
  std::vector<TStepPtr> FMotionList;
  std::vector<std::string> FDescs;
  std::vector<TStepPtr> FRejected;  // configured instead of a child that could not be made
  bool FBuildFailed = false;
  std::string FChildError;  // the failing child's text
};

// The step of a tree that stands, itself where it is no list; null for a root that is no step of this kind.
[[nodiscard]] TStateMotion* CurrentLeaf(IStateMotion& root);

// Makes a step, with its parameters reset; virtual calls work here as they do not in a constructor. Nothing else makes
// one: a step has its ClassName from here.
template <class Step>
[[nodiscard]] std::unique_ptr<Step, TStepDeleter> MakeStepOf(TCustomMotionState* ctrl) {
  struct TMade final : Step {
    std::string_view ClassName() const override {
      if constexpr (requires { Step::kClassName; })
        return Step::kClassName;
      else
        return CommandClass(Step::Cmd);
    }
  };
  std::unique_ptr<Step, TStepDeleter> step(new TMade);
  step->SetStateCtrl(ctrl);
  step->ResetParams();
  return step;
}

template <class Step>
[[nodiscard]] TStepPtr MakeStep(TCustomMotionState* ctrl) {
  return MakeStepOf<Step>(ctrl);
}

void ReportNoStepParams();

// Makes a step from automation arguments. A class that supports it declares `static constexpr bool kTakesParams = true`
// and overrides InitParams; any other is a fault and keeps its reset parameters.
template <class Step>
[[nodiscard]] TStepPtr MakeStepWithParams(std::span<const TStepParam> params) {
  if constexpr (!requires { Step::kTakesParams; }) ReportNoStepParams();
  TStepPtr step = MakeStep<Step>(nullptr);
  step->InitParams(params);
  return step;
}

template <class Step>
Step& TSmtComposite::AddAs(std::int32_t type, std::int32_t command, std::string_view desc) {
  if (auto* step = dynamic_cast<Step*>(&Place(type, command, desc))) return *step;
  return static_cast<Step&>(Reject(MakeStep<Step>(FStateCtrl)));
}

using TStepFactory = TStepPtr (*)(TCustomMotionState* ctrl);

// Step classes by machine-state number, offered to the application.
class TSmtMotionDic {
 public:
  // False, with a fault, when the state is there already; the first stays.
  bool RegisterStateMotion(std::int32_t state, TStepFactory motion);
  [[nodiscard]] TStepFactory Find(std::int32_t state) const;  // null when absent

 private:
  std::map<std::int32_t, TStepFactory> FDic;
};

// Makes the step of a command, appends it to the composite and, with `build`, builds its data. False, and nothing
// made, for an unknown command or a composite that is full.
bool AddMotionByCmd(std::int32_t command, TSmtComposite& composite, bool build);

}  // namespace ixocamglue
