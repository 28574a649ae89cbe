// The controller's protocol with its root and with the framework; the root's answers are scripted.
#include <algorithm>

#include "fixture/Installed.h"
#include "fixture/Machine.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
namespace {

// A root that answers what a test says and tells what it was asked.
class TScriptedRoot : public IStateMotion {
 public:
  void SetStateCtrl(TCustomMotionState* ctrl) override { Ctrl = ctrl; }
  std::int32_t GetID() override { return 77; }
  std::string GetDesc() override { return "scripted"; }
  void ResetParams() override {}
  void BuildData() override { Story.push_back("build"); }
  void DoLeaveMotion() override {}
  TStepType Motion(std::int32_t reason) override {
    Story.push_back(Format("motion %d", reason));
    return OnMotion(reason);
  }
  TStepType GetStepType() override { return mstpStep; }
  bool CheckStateAlarm() override { return Alarm; }
  void CheckNewAlarm(const TNcAlarmRecord& alarm, bool& isAlarm) override { isAlarm = alarm.Id == 13; }
  void DoLeaveError() override {
    Story.push_back("leave error");
    if (LeaveErrorThrows) throw std::runtime_error("axes");
  }
  void UpdateThread(std::uint32_t&) override {}
  std::string GetErrorDesc() override { return "path"; }
  std::int32_t GetNextState() override { return Next; }
  std::int32_t GetErrorState() override { return Error; }
  void SetErrorState(std::int32_t state) override { Error = state; }
  void SetNextState(std::int32_t state) override { Next = state; }
  void StopExec() override { Story.push_back("stop exec"); }

  TTexts Story;
  std::function<TStepType(std::int32_t)> OnMotion = [](std::int32_t reason) {
    return reason == srDone ? mstpStep : mstpError;
  };
  TCustomMotionState* Ctrl = nullptr;
  std::int32_t Next = -1, Error = -1;
  bool Alarm = false, LeaveErrorThrows = false;
};

constexpr std::int32_t kOtherState = 60;

class Controlling : public TMachineTest {
 protected:
  ~Controlling() override { TLogService::Listen(0); }
  Controlling() {
    TLogService::Listen(kDiagAll);  // whatever a trace says, the ending is the same
    NcRegistry()->RegisterStateCtrl(kOtherState,
                                    [](TNcStateFramework& owner) { return std::make_unique<TNcStateCtrl>(owner); });
  }
  void StartScripted() {
    Root = std::make_shared<TScriptedRoot>();
    FController.Start(Root).OrThrow(pbRefused);
    FController.RunPass();
    ASSERT_EQ(Root->Story, TTexts{"build"});
    Root->Story.clear();
  }
  std::shared_ptr<TScriptedRoot> Root;
};

TEST_F(Controlling, EachAnswerOfTheRootBecomesItsWaitOrItsEnd) {
  const std::tuple<TStepType, TCustomBusyType, TMotionExecType, bool> answers[] = {
      {mstpStep, csbtEnsure, metError, false},
      {mstpEnd, csbtEnsure, metError, false},
      {mstpPolling, csbtDelay, metError, false},
      {mstpExit, csbtChange, metSuccess, true},
      {mstpError, csbtChange, metError, true}};
  for (const auto& [answer, busy, type, ends] : answers) {
    StartScripted();
    Root->OnMotion = [&, a = answer, b = busy](std::int32_t reason) {
      if (a == mstpPolling && reason == srDone) Root->Ctrl->SetCustomBusyType(b);
      return reason == srDone ? a : mstpError;
    };
    Controller().StepDone(srDone);
    EXPECT_EQ(Controller().CustomBusyType(), busy);
    EXPECT_EQ(Framework().ChangePending(), ends);
    if (ends) {
      EXPECT_EQ(Controller().Outcome().Type, type);
    }
    EXPECT_EQ(ExecOK(77), type == metSuccess);
    Stop();
  }
}

TEST_F(Controlling, EveryOutcomeHasItsNextState) {
  // The last one names no busy type and so ends as an error.
  const std::tuple<std::int32_t, bool, TMotionExecType, std::int32_t> outcomes[] = {
      {srStop, false, metStop, nsStandby},     {srPause, false, metPause, kOtherState},
      {srAlarm, false, metAlarm, kOtherState}, {srAlarm, true, metAlarm, nsStandby},
      {srError, false, metError, kOtherState}, {2, false, metError, kOtherState}};
  for (const auto& [reason, requireStop, type, next] : outcomes) {
    StartScripted();
    Root->SetErrorState(kOtherState);
    if (requireStop) Raise(naRequireStop);
    Framework().Abort(reason);
    FController.RunPass();
    EXPECT_EQ(Controller().Outcome().Type, type) << reason;
    EXPECT_EQ(Framework().CurrentState(), next) << reason;
    EXPECT_FALSE(ExecOK(77));
    FController.Alarms().ClearAll();
    (void)Framework().RequestState(nsStandby, 0);
    FController.RunPass();
  }
}

TEST_F(Controlling, SuccessReturnsToTheStateTheProcedureStartedFrom) {
  (void)Framework().RequestState(kOtherState, 0);
  FController.RunPass();
  StartSequence({{142, "gas off"}});
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_EQ(Framework().CurrentState(), kOtherState);
}

TEST_F(Controlling, EnsureNeverReplacesASpecificWait) {
  StartScripted();
  for (const auto& [asked, kept] : std::vector<std::pair<std::vector<TCustomBusyType>, TCustomBusyType>>{
           {{csbtMotion, csbtEnsure}, csbtMotion},
           {{csbtEnsure, csbtMotion}, csbtMotion},
           {{csbtDelay, csbtInput}, csbtInput},  // the last specific one wins
           {{csbtChange, csbtEnsure}, csbtEnsure},
       }) {
    Root->OnMotion = [&, a = asked](std::int32_t reason) {
      for (const auto type : a) Root->Ctrl->SetCustomBusyType(type);
      return reason == srDone ? mstpPolling : mstpError;
    };
    Controller().StepDone(srDone);
    EXPECT_EQ(Controller().CustomBusyType(), kept);
  }
  Stop();
}

TEST_F(Controlling, AFaultInATickEndsItOnceAndTheWaitIsSetAllTheSame) {
  struct TCase {
    const char* Name;
    std::function<TStepType(std::int32_t)> Motion;
    std::int32_t Reason;
    TMotionExecType Type;
    const char* Fault;
  };
  const auto polling = [](std::int32_t) { return mstpPolling; };
  const auto throwing = [](std::int32_t) -> TStepType { throw std::runtime_error("device"); };
  for (const auto& [name, motion, reason, type, fault] : {
           TCase{"no busy type", polling, srDone, metError, "Error: Motion中没有设置Busy类型"},
           TCase{"step throws", throwing, srDone, metError, "device"},
           TCase{"step throws on stop", throwing, srStop, metStop, "device"},
           TCase{"step throws on alarm", throwing, srAlarm, metError, "device"},
           TCase{"abort not obeyed", [](std::int32_t) { return mstpExit; }, srStop, metStop,
                 "TCustomMotionState：AReason <> srDone时返回值需为mstpError"},
       }) {
    StartScripted();
    Root->OnMotion = motion;
    Controller().StepDone(reason);
    EXPECT_EQ(Controller().Outcome().Type, type) << name;
    EXPECT_EQ(Controller().Outcome().Fault, fault) << name;
    EXPECT_EQ(std::ranges::count(Root->Story, "leave error"), 1) << name;
    EXPECT_TRUE(Framework().ChangePending()) << name;
    EXPECT_EQ(Framework().Busy(), bkEnsure) << name;
    FController.RunPass();
    EXPECT_EQ(Framework().CurrentState(), nsStandby) << name;
  }
}

TEST_F(Controlling, AFaultWhileEndingFallsBackToStandby) {
  StartScripted();
  Root->SetErrorState(kOtherState);
  Root->LeaveErrorThrows = true;
  Root->OnMotion = [](std::int32_t) { return mstpError; };
  FController.RunPass();
  EXPECT_EQ(Framework().CurrentState(), nsStandby);
  StartScripted();
  Controller().ChangeNext(static_cast<TMotionExecType>(5));
  EXPECT_EQ(Controller().Outcome().NextState, nsStandby);
}

TEST_F(Controlling, WithoutARootEverythingIsGuarded) {
  Controller().StepDone(srDone);  // never initialised: nothing at all
  EXPECT_FALSE(Framework().ChangePending());
  EXPECT_EQ(TCustomMotionState::GetStateID(), -1);
  EXPECT_EQ(Controller().StateName(), "");
  EXPECT_FALSE(Controller().CheckEnterAlarm(0));
  EXPECT_FALSE(Controller().CheckNewAlarm({"TP", "alarm", 13}));
  EXPECT_FALSE(Controller().CheckStateAlarm());
  std::uint32_t delay = 10;
  Controller().UpdateThread(delay);
  Controller().StopExec();
  (void)Framework().RequestState(nsCustomMotion, 0);
  FController.RunPass();
  EXPECT_EQ(Framework().CurrentState(), nsStandby);  // refused
  const TTexts noRoot(2, "设计不支持TCustomMotionState.StateMotion = nil");
  EXPECT_EQ(Faults.Claim(), noRoot);
  Controller().ChangeNext(metSuccess);
  EXPECT_EQ(Faults.Claim(), TTexts{noRoot[0]});
  EXPECT_EQ(Controller().Outcome().NextState, nsStandby);
}

TEST_F(Controlling, AlarmsAreAskedOfFrameworkAndRoot) {
  StartScripted();
  EXPECT_FALSE(Controller().CheckNewAlarm({"TP", "harmless", 1}));
  EXPECT_TRUE(Controller().CheckNewAlarm({"TP", "the root's own", 13}));
  Root->Alarm = true;
  FController.RunPass();
  EXPECT_EQ(Controller().Outcome().Type, metAlarm);

  // A tree is stopped by each permission; the devices it concerns are told to stop.
  for (const TNcAlarmAttrs attrs : {naForbidMove, naForbidFollower}) {
    StartRoot(MakeShot(300));
    Raise(attrs);
    EXPECT_EQ(Finish(), metAlarm);
    // While it stands, no procedure enters.
    ASSERT_TRUE(FController.Start(ShareRoot(MakeShot(300))));
    FController.RunPass();
    EXPECT_EQ(Framework().CurrentState(), nsStandby);
    FController.Alarms().ClearAll();
  }
}

// The library's controller alone: no cutting system, no alarms, no parameters.
TEST(WithoutAMachine, EachProcedureEndsAndBeforeTheLibrarysStartThereIsNone) {
  TVirtualClock time;
  TNcRegistry registry;
  const TAllInstalled<IClock, TNcRegistry> installed(time, registry);
  TFaultWatch faults;
  TNcStateFramework framework;
  framework.RunOnce();
  TCustomMotionState early(framework);
  TCustomMotionState::SetStateMotion(std::make_shared<TScriptedRoot>());
  EXPECT_EQ(faults.Claim(), TTexts{"TCustomMotionState.SetStateMotion before the library's start"});
  EXPECT_EQ(early.StateName(), "");
  early.LeaveState(0);
  EXPECT_FALSE(early.CheckStateAlarm());
  EXPECT_EQ(faults.Claim().size(), 1u) << "a state without a root";
  FreeMotionController();

  StartMotionController();
  StartMotionController();
  const struct {
    std::function<void(TScriptedRoot&)> Do;  // in the first tick
    TMotionExecType Type;
    const char* Fault;
  } cases[] = {
      {[](TScriptedRoot& root) { root.Ctrl->SetCustomBusyType(csbtMotion); }, metSuccess, ""},
      {[](TScriptedRoot& root) { root.Ctrl->SetCustomBusyType(csbtInput); }, metError, "CutSystem.InportCtrl = nil"},
      {[](TScriptedRoot& root) { root.Ctrl->SetCustomBusyType(csbtFocus); }, metError, "CutSystem.CutHeadCtrl = nil"},
      // Nothing to wait for: the framework's own guard ends it.
      {[](TScriptedRoot& root) { root.Ctrl->SetCustomBusyType(csbtFollower); }, metStop, ""},
      {[&](TScriptedRoot& root) { root.Ctrl->SetCustomBusyType(csbtMotion), framework.Abort(srAlarm); }, metAlarm, ""},
      {[](TScriptedRoot& root) {
         root.Ctrl->SetCustomBusyType(csbtMotion);
         TCustomMotionState::SetStateMotion(nullptr);
       },
       metError, "设计不支持TCustomMotionState.StateMotion = nil"},
  };
  for (const auto& c : cases) {
    const auto root = std::make_shared<TScriptedRoot>();
    root->OnMotion = [&, first = true](std::int32_t reason) mutable -> TStepType {
      if (reason != srDone) return mstpError;
      if (!std::exchange(first, false)) return mstpExit;
      c.Do(*root);
      return mstpPolling;
    };
    TCustomMotionState::SetStateMotion(root);
    ASSERT_TRUE(framework.RequestState(nsCustomMotion, 0).Ok());
    do time.Sleep(framework.RunOnce());
    while (framework.CurrentState() != nsStandby);
    const auto& outcome = static_cast<TCustomMotionState&>(*framework.State(nsCustomMotion)).Outcome();
    EXPECT_EQ(std::pair(outcome.Type, outcome.Fault), std::pair(c.Type, std::string(c.Fault)));
    faults.Claim();  // of the root that went
    time.Sleep(framework.RunOnce());
  }
  TCustomMotionState::SetExecOK(77, true);
  EXPECT_FALSE(TCustomMotionState::GetExecOK(77, false)) << "nowhere to note it";
  EXPECT_EQ(CurrentLeaf(*std::make_shared<TScriptedRoot>()), nullptr);
  FreeMotionController();
}

class WithoutWaits : public TMachineTest {
 protected:
  WithoutWaits() : TMachineTest({.Parts = {.InportCtrl = false, .CutHead = false, .MultiFollower = false}}) {}
};

TEST_F(WithoutWaits, WaitingForADeviceThatTheMachineLacksIsADesignFault) {
  for (const auto& [busy, text] : std::vector<std::pair<TCustomBusyType, std::string>>{
           {csbtInput, "CutSystem.InportCtrl = nil"}, {csbtFocus, "CutSystem.CutHeadCtrl = nil"}}) {
    auto root = std::make_shared<TScriptedRoot>();
    root->OnMotion = [&, b = busy](std::int32_t) {
      root->Ctrl->SetCustomBusyType(b);
      return mstpPolling;
    };
    ASSERT_TRUE(FController.Start(root));
    Finish();
    EXPECT_EQ(Controller().Outcome().Fault, text);
    root->OnMotion = {};
  }
}

// Tells what it was told and, if asked to, throws each time.
class TWatcher : public IMotionObserver, public ILogSink {
 public:
  void Entered(IStateMotion& root) override { Tell(Format("entered %d", root.GetID())); }
  void Ticked(IStateMotion& root, TStepType answer) override { Tell(Format("%d: %d", root.GetID(), answer)); }
  void Ended(const TMotionOutcome* outcome) override {
    Tell(outcome ? Format("ended %d %s", static_cast<int>(outcome->Type), outcome->Fault.c_str()) : "taken away");
  }
  void Write(const TLogRecord& record) override { Logged.push_back(record.Text); }

  TTexts Story, Logged;
  bool Throws = false;

 private:
  void Tell(std::string text) {
    Story.push_back(std::move(text));
    if (Throws) throw std::runtime_error("observer");
  }
};

struct TWatcherBefore {
  TWatcher Watcher;
};

class Observing : private TWatcherBefore, public TMachineTest {
 protected:
  Observing() : TMachineTest({}, {.Sinks = {&Watcher}}) { Controller().AddObserver(Watcher); }
  TTexts StoryOf(std::function<TStepType(std::int32_t)> motion, const std::function<void()>& act) {
    auto root = std::make_shared<TScriptedRoot>();
    root->OnMotion = std::move(motion);
    EXPECT_TRUE(FController.Start(root));
    FController.RunPass();
    act();
    FController.RunPass();
    EXPECT_EQ(Framework().CurrentState(), nsStandby);
    return std::exchange(Watcher.Story, {});
  }
  using TWatcherBefore::Watcher;
};

TEST_F(Observing, EachProcedureIsToldFromItsEntryThroughItsTicksToItsOutcome) {
  const auto goOn = [](std::int32_t reason) { return reason == srDone ? mstpStep : mstpError; };
  EXPECT_EQ(StoryOf([](std::int32_t) { return mstpExit; }, [] {}), Lines("entered 77", "77: 10001", "ended -2 "));
  EXPECT_EQ(StoryOf(goOn,
                    [&] {
                      FController.RunPass();
                      Framework().Stop();
                    }),
            Lines("entered 77", "77: 100", "77: -2", "ended -3 "));
  // What a fault said is known at the end; the tick that threw was none.
  EXPECT_EQ(StoryOf([](std::int32_t) -> TStepType { throw std::runtime_error("device"); }, [] {}),
            Lines("entered 77", "ended -1 device"));
  // The outcome of the procedure before it is not this one's.
  EXPECT_EQ(StoryOf(goOn, [&] { (void)Framework().RequestState(nsStandby, 0); }),
            Lines("entered 77", "77: 100", "taken away"));
  // What never enters is not told.
  Raise(naForbidMove);
  StartRoot(MakeShot(10));
  EXPECT_EQ(Watcher.Story, TTexts{});
}

TEST_F(Observing, WhatAnObserverThrowsIsLoggedAndChangesNothing) {
  TTexts commands, undisturbed;
  for (const bool throws : {false, true}) {
    Watcher.Throws = throws;
    Watcher.Story.clear();
    Watcher.Logged.clear();
    Journal().Clear();
    StartRoot(MakeShot(20));
    EXPECT_EQ(Finish(), metSuccess);
    EXPECT_TRUE(ExecOK(515));
    const std::uint64_t start = Journal().Entries().front().Ms;
    undisturbed = std::exchange(commands, {});
    for (const TJournalEntry& entry : Journal().Entries())
      commands.push_back(
          Format("%d %s.%s", static_cast<int>(entry.Ms - start), entry.Device.c_str(), entry.Verb.c_str()));
    const auto logged = std::ranges::count(Watcher.Logged, "motion observer: observer");
    EXPECT_EQ(logged, throws ? static_cast<std::ptrdiff_t>(Watcher.Story.size()) : 0);
  }
  EXPECT_EQ(commands, undisturbed);
}

TEST(ProcessEnd, EndsARunningProcedureAndTheLibraryCanBeStartedAgain) {
  for (int life = 0; life < 2; ++life) {
    TController session({.Machines = {SimulatedMachine()}, .Supervisor = false});
    session.RunPass();
    ASSERT_TRUE(session.Start(ShareRoot(MakeShot(60'000))));
    while (!session.Journal().HasSignal("laser on")) session.RunPass();
  }
}

TEST(CurveKeeper, KeepsThePointsAndTheirRangeAndClampsTheCount) {
  TMcCurveKeeper keeper;
  EXPECT_TRUE(keeper.Range().Empty());
  const TPoint2 points[] = {{1, 5}, {-2, 7}, {100, 100}};
  keeper.SetDynPoints(points, 2);
  EXPECT_EQ(keeper.Range().Min, (TPoint2{-2, 5}));
  EXPECT_EQ(keeper.Range().Max, (TPoint2{1, 7}));
  for (const std::int32_t count : {0, -5}) keeper.SetDynPoints(points, count);
  keeper.SetDynPoints({}, 3);
  EXPECT_EQ(keeper.XYCurve().size(), 2u);
  keeper.SetDynPoints(points, 99);
  EXPECT_EQ(keeper.XYCurve().size(), 3u);
}

}  // namespace
}  // namespace ixocamglue::test
