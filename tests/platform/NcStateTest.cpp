// The state framework's loop, with scripted states on a virtual clock.
#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/Installed.h"
#include "fixture/LogTexts.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcStateTexts.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
namespace {

constexpr std::int32_t kRunState = 204;

TTexts GCalls;
std::map<std::string, std::function<void()>> GDo;  // what a hook does beside telling

void Tell(const std::string& what) {
  GCalls.push_back(what);
  if (const auto it = GDo.find(what); it != GDo.end()) it->second();
}

struct TDevice : INcBusyDevice {
  bool IsBusy() override {
    if (Throws) throw std::runtime_error("device");
    return Busy;
  }
  bool Busy = true;
  bool Throws = false;
};

class TScriptedState : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;
  bool CheckEnterAlarm(std::int32_t param) override {
    Tell(Format("check enter %d", param));
    return EnterAlarm;
  }
  bool CheckNewAlarm(const TNcAlarmRecord& alarm) override {
    Tell("new alarm " + alarm.Desc);
    return TNcStateCtrl::CheckNewAlarm(alarm);
  }
  bool CheckStateAlarm() override {
    if (AlarmThrows) throw std::runtime_error("alarm check");
    return StateAlarm;
  }
  void InitState(std::int32_t param) override { Tell(Format("init %d", param)); }
  void LeaveState(std::int32_t param) override { Tell(Format("leave to %d", param)); }
  void StepDone(std::int32_t reason) override {
    TNcStateCtrl::StepDone(reason);
    Tell(Format("step %d", reason));
    if (reason != srDone) ChangeState(nsStandby, 0);
  }
  void StopExec() override { Tell("stop exec"); }
  void UpdateThread(std::uint32_t& loopDelay) override {
    EXPECT_EQ(loopDelay, kLoopDelayMs);
    loopDelay = LoopDelay;
    if (UpdateThrows) throw std::runtime_error("update");
  }
  using TNcStateCtrl::ChangeState;
  using TNcStateCtrl::EnsureBusySet;
  using TNcStateCtrl::SetBusy;
  using TNcStateCtrl::SetBusyDelay;
  using TNcStateCtrl::SetBusyGas;
  using TNcStateCtrl::SetBusyMotion;

  bool EnterAlarm = false, StateAlarm = false, AlarmThrows = false, UpdateThrows = false;
  std::uint32_t LoopDelay = kLoopDelayMs;
};

// A cutting system of laser and gas that may refuse to go off.
struct TDevices : TNcCutSystem, TNcLaser {
  struct TGas : TNcGas {
    bool IsBusy() override { return false; }
    bool GetGas() override { return On; }
    std::int32_t GetBranch() override { return 0; }
    double GetPressure() override { return 0; }
    void SelectBranch(std::int32_t) override {}
    void SetPressure(double) override {}
    void SwitchOn() override { On = true; }
    void SwitchOff() override { On = Ignores-- > 0 && On; }
    bool On = true;
    int Ignores = 0;
  } GasDevice;
  std::int32_t GetState() override { return 0; }
  TNcLaser* Laser() override { return this; }
  TNcGas* Gas() override { return &GasDevice; }
  void Lock() override { throw std::runtime_error("somebody hangs in the lock"); }
  void Unlock() override {}
  void SwitchLaser(bool on) override {
    ++OffCommands;
    if (Refusals > 0) {
      --Refusals;
      throw std::runtime_error("laser");
    }
    Beam = on;
  }
  bool GetEmission() override { return Emission; }
  void EmissionOn() override { Emission = true; }
  void EmissionOff() override { Emission = false; }
  bool GetLaser() override { return Beam; }
  bool Beam = true, Emission = true;
  int Refusals = 0, OffCommands = 0;
};

class StateFramework : public testing::Test {
 protected:
  StateFramework() {
    GCalls.clear();
    GDo.clear();
    Registry.RegisterStateCtrl(kRunState,
                               [](TNcStateFramework& owner) { return std::make_unique<TScriptedState>(owner); });
    Framework.emplace();
    Framework->RunOnce();  // power-up
  }
  TScriptedState& State() { return static_cast<TScriptedState&>(*Framework->State(kRunState)); }
  void Enter() {
    (void)Framework->RequestState(kRunState, 7);
    Framework->RunOnce();
    GCalls.clear();
  }
  void Pass(int n = 1) {
    while (n-- > 0) Clock.Sleep(Framework->RunOnce());
  }

  // Past 49.7 days, where times of 32 bits are smaller than they were.
  TVirtualClock Clock{TVirtualClock::kFirstTick, std::uint64_t{1} << 32};
  TNcRegistry Registry;
  TAllInstalled<IClock, TNcRegistry> Installed{Clock, Registry};
  TFaultWatch Faults;
  std::optional<TNcStateFramework> Framework;
};

TEST_F(StateFramework, TheFirstStepComesOnThePassAfterTheEntryAndOneTickPerPass) {
  GDo["init 7"] = [&] { State().EnsureBusySet(); };
  GDo["step 0"] = [&] { State().EnsureBusySet(); };
  (void)Framework->RequestState(kRunState, 7);
  EXPECT_TRUE(Framework->ChangePending());
  Pass();
  EXPECT_EQ(GCalls, (TTexts{"check enter 7", "init 7"}));
  Pass(2);
  EXPECT_EQ(GCalls, (TTexts{"check enter 7", "init 7", "step 0", "step 0"}));
  EXPECT_EQ(Framework->CurrentState(), kRunState);
  EXPECT_FALSE(Framework->ChangePending());
}

TEST_F(StateFramework, AChangeIsCarriedOutAfterTheTickAndTheLastRequestWins) {
  Enter();
  State().EnsureBusySet();
  GDo["step 0"] = [&] {
    State().ChangeState(999, 0);
    State().ChangeState(nsStandby, 0);
    EXPECT_EQ(Framework->CurrentState(), kRunState);
  };
  Pass();
  EXPECT_EQ(GCalls, (TTexts{"step 0", "leave to 0"}));
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
}

TEST_F(StateFramework, WhatIsRequestedWhileAStateIsEnteredFollowsIt) {
  GDo["init 7"] = [&] { (void)Framework->RequestState(nsStandby, 0); };
  (void)Framework->RequestState(kRunState, 7);
  Pass();
  EXPECT_EQ(Framework->CurrentState(), kRunState);
  EXPECT_TRUE(Framework->IsPending(nsStandby));
  EXPECT_EQ(State().StateName(), "");
  Pass();
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
  EXPECT_EQ(Framework->State(nsStandby)->StateName(), "nsStandby");
}

TEST_F(StateFramework, EachBusyConditionWaitsForItsDevice) {
  Enter();
  TDevice device;
  for (const std::int32_t limitMs : {-1, 100}) {
    State().SetBusy(device, limitMs);
    Pass(3);
    EXPECT_EQ(GCalls, TTexts{});
  }
  device.Busy = false;
  Pass();
  EXPECT_EQ(GCalls, TTexts{"step 0"});
  Pass(3);  // nothing asked for: waits for events from outside
  EXPECT_EQ(GCalls, TTexts{"step 0"});

  State().Delay(35);
  State().SetBusyDelay(-1);
  Pass(4);
  EXPECT_EQ(GCalls.size(), 1u);
  Pass();
  EXPECT_EQ(GCalls.size(), 2u);

  State().SetBusyMotion(-1);  // no driver, no gas: met at once
  Pass();
  State().SetBusyGas(-1);
  Pass();
  EXPECT_EQ(GCalls.size(), 4u);
}

TEST_F(StateFramework, AProcedureThatWaitsForNothingIsStoppedWithTheCause) {
  std::string cause;
  GDo["step 1"] = [&] { cause = Framework->EndCause(); };
  Enter();
  Pass();  // its tick names nothing to wait for; the 20th pass asks for the stop
  Pass(19);
  EXPECT_EQ(GCalls, (TTexts{"step 0", "stop exec"}));
  Pass();
  EXPECT_EQ(GCalls.back(), "leave to 0");
  EXPECT_EQ(cause, Show(SNcWedged, kRunState));

  // One that polls, waits, or is about to change is not; nor is one that names its wait in between.
  TDevice device;
  GDo["step 0"] = [&] { State().EnsureBusySet(); };
  Enter();
  Pass(50);
  GDo["step 0"] = [&] { State().SetBusy(device, -1); };
  Pass(50);
  GDo.erase("step 0");
  for (int i = 0; i < 5; ++i) {
    device.Busy = false;
    Pass(19);
    State().SetBusy(device, -1);
    device.Busy = true;
    Pass();
  }
  EXPECT_EQ(Framework->CurrentState(), kRunState);
  EXPECT_EQ(std::ranges::count(GCalls, "stop exec"), 0);
  GDo.clear();

  // The gas calibration is a procedure too; another state may wait for events from outside.
  for (const auto& [state, left] : {std::pair(nsZemGasAdjust, nsStandby), std::pair(300, 300)}) {
    Registry.RegisterStateCtrl(state, [](TNcStateFramework& owner) { return std::make_unique<TScriptedState>(owner); });
    (void)Framework->RequestState(state, 7);
    Pass(30);
    EXPECT_EQ(Framework->CurrentState(), left);
  }
}

TEST_F(StateFramework, EveryEndingHasItsReasonAndStopComesFirst) {
  TDevice device;
  const struct {
    const char* Name;
    std::function<void()> Cause;
    const char* Step;
    const char* Why = "";
  } cases[] = {
      {"stop", [&] { Framework->Stop(); }, "step 1"},
      {"pause", [&] { Framework->Pause(); }, "step 3"},
      {"abort", [&] { Framework->Abort(2); }, "step 2"},
      {"two aborts",
       [&] {
         Framework->Abort(srDone, "none");
         Framework->Abort(srError, "the first");
         Framework->Abort(srAlarm, "the second");
       },
       "step 5", "the first"},
      {"pause, then an abort", [&] { Framework->Pause(), Framework->Abort(srError, "late"); }, "step 5", "late"},
      {"three stops", [&] { Framework->Stop(), Framework->Stop("anna"), Framework->Stop("bert"); }, "step 1", "anna"},
      {"standing alarm", [&] { State().StateAlarm = true; }, "step 4"},
      {"stop and alarm", [&] { State().StateAlarm = true, Framework->Stop(); }, "step 1"},
      {"alarm check throws", [&] { State().AlarmThrows = true; }, "step 5", "alarm check"},
      {"update throws", [&] { State().UpdateThrows = true; }, "step 5", "update"},
      {"update throws and stop", [&] { State().UpdateThrows = true, Framework->Stop("key"); }, "step 1", "key"},
      {"device throws", [&] { device.Throws = true, State().SetBusy(device, -1); }, "step 5", "device"},
      {"time limit", [&] { State().SetBusy(device, 5), Clock.Sleep(5); }, "step 5"},
  };
  for (const auto& [name, cause, step, why] : cases) {
    device = {};
    State().StateAlarm = State().AlarmThrows = State().UpdateThrows = false;
    Enter();
    State().SetBusy(device, -1);
    cause();
    std::erase(GCalls, "stop exec");
    Pass();
    EXPECT_EQ(GCalls, (TTexts{step, "leave to 0"})) << name;
    EXPECT_EQ(Framework->EndCause(), why) << name;
    EXPECT_EQ(Framework->CurrentState(), nsStandby) << name;
  }
}

TEST_F(StateFramework, StopTellsTheStateAtOnceAndWithdrawsAnEntryNotYetMade) {
  GDo["stop exec"] = [] { throw std::runtime_error("its own answer"); };
  Enter();
  Framework->Stop();
  EXPECT_EQ(GCalls, TTexts{"stop exec"});
  Pass();
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
  GCalls.clear();
  (void)Framework->RequestState(kRunState, 1);
  Framework->Stop();
  Pass(2);
  EXPECT_EQ(GCalls, TTexts{});
}

TEST_F(StateFramework, NothingIsRequestedBetweenAStopAndItsEnd) {
  TDevices devices;
  const TInstalled<TNcCutSystem> installed(devices);
  for (const bool inState : {false, true}) {
    if (inState) Enter();
    devices.Beam = true;
    devices.Refusals = 3;
    Framework->Stop();
    EXPECT_EQ(Framework->RequestState(kRunState, 1).Problem().What, "a stop has not come to its end");
    Pass();
    EXPECT_EQ(Framework->CurrentState(), nsStandby);
    EXPECT_EQ(Framework->RequestState(kRunState, 1).Problem().Why, "a device has not acknowledged switching off");
    Pass(3);
    EXPECT_FALSE(Framework->SafePending());
    Framework->Stop();  // of nothing: over with the pass that takes it
    EXPECT_FALSE(Framework->RequestState(kRunState, 1).Ok());
    Pass();
    EXPECT_EQ(Framework->CurrentState(), nsStandby);
    GCalls.clear();
    EXPECT_TRUE(Framework->RequestState(kRunState, 1).Ok());
    Pass();
    EXPECT_EQ(GCalls, (TTexts{"check enter 1", "init 1"}));
    State().ChangeState(nsStandby, 0);
    Pass();
  }
}

TEST_F(StateFramework, ARefusedEntryLeavesAndGoesToStandby) {
  const auto failing = [&] {
    State().ChangeState(5, 0);
    throw std::runtime_error("no root");
  };
  const std::pair<std::function<void()>, TTexts> cases[] = {
      {[&] { GDo["init 7"] = failing; }, {"check enter 7", "init 7", "leave to 0"}},
      {[&] { State().EnterAlarm = true; }, {"check enter 7", "leave to 0"}},
      {[&] { GDo["check enter 7"] = [] { throw std::runtime_error("alarms"); }; }, {"check enter 7", "leave to 0"}},
  };
  for (const auto& [arrange, story] : cases) {
    GDo.clear();
    State().EnterAlarm = false;
    arrange();
    GCalls.clear();
    (void)Framework->RequestState(kRunState, 7);
    Pass(2);
    EXPECT_EQ(GCalls, story);
    EXPECT_EQ(Framework->CurrentState(), nsStandby);
  }
  (void)Framework->RequestState(777, 0);  // nobody registered it
  Pass();
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
}

TEST_F(StateFramework, AStateThatCannotBeMadeIsStandbyAndDark) {
  TDevices devices;
  const TInstalled<TNcCutSystem> installed(devices);
  TLogWorld log;
  bool fails = true;
  Registry.RegisterStateCtrl(300, [&](TNcStateFramework& owner) {
    if (fails) throw std::runtime_error("no root");
    return std::make_unique<TScriptedState>(owner);
  });
  std::vector<std::pair<std::int32_t, std::int32_t>> changes;
  Framework->SetObserver([&changes, &framework = *Framework](std::int32_t from, std::int32_t to) {
    changes.emplace_back(from, to);
    EXPECT_TRUE(framework.ChangePending()) << "it is over when everybody knows of it";
  });
  Enter();
  changes.clear();
  State().EnsureBusySet();
  devices.Beam = devices.Emission = devices.GasDevice.On = true;
  GDo["step 0"] = [&] { State().ChangeState(300, 0); };
  Pass(3);
  EXPECT_EQ(GCalls, (TTexts{"step 0", "leave to 300"}));
  EXPECT_EQ(changes, (std::vector{std::pair(kRunState, nsStandby)}));
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
  EXPECT_FALSE(Framework->ChangePending());
  EXPECT_FALSE(devices.Beam || devices.Emission || devices.GasDevice.On);
  EXPECT_EQ(log.Log(), TTexts{"state 300, constructor: no root"});

  fails = false;
  EXPECT_TRUE(Framework->RequestState(300, 0).Ok());
  Pass();
  EXPECT_EQ(Framework->CurrentState(), 300);
  Framework.reset();
}

TEST_F(StateFramework, NothingKillsTheLoop) {
  GDo["step 0"] = GDo["leave to 0"] = [] { throw std::runtime_error("state"); };
  Framework->SetObserver([](std::int32_t, std::int32_t) { throw std::runtime_error("observer"); });
  Enter();
  State().EnsureBusySet();
  Pass();
  EXPECT_EQ(Framework->CurrentState(), nsStandby);
  State().LoopDelay = 0;
  Enter();
  EXPECT_EQ(Framework->RunOnce(), 1u);  // a delay of 0 still lets time pass
}

TEST_F(StateFramework, AFaultOfThePassLosesNoEndingNorTheWorkBehindIt) {
  struct TFailing : TNcAlarmManager {
    bool AllowLaser() override {
      if (FailsAt != 0 && --FailsAt == 0) throw std::runtime_error("permissions");
      return TNcAlarmManager::AllowLaser();
    }
    int FailsAt = 0;
  } alarms;
  const TInstalled<TNcAlarms> installed(alarms);
  TTexts causes;
  GDo["step 1"] = GDo["step 5"] = [&] { causes.push_back(Framework->EndCause()); };
  const std::function<void()> endings[] = {[] {}, [&] { Framework->Pause(); }, [&] { Framework->Stop("anna"); }};
  for (const auto& end : endings) {  // what forbids the beam cannot be known: the state ends
    Enter();
    alarms.FailsAt = 1;
    end();
    Pass();
    EXPECT_EQ(Framework->CurrentState(), nsStandby);
  }
  EXPECT_EQ(causes, (TTexts{"permissions", "permissions", "anna"}));

  Enter();
  causes.clear();
  alarms.FailsAt = 2;  // behind the tick
  TTexts done;
  Framework->RunNext([] { throw std::runtime_error("work"); });
  Framework->RunNext([&] { done.push_back("behind it"); });
  Framework->Stop("anna");
  Pass();
  EXPECT_EQ(alarms.FailsAt, 0);
  EXPECT_EQ(done, TTexts{"behind it"});
  EXPECT_EQ(Framework->CurrentState(), kRunState);
  EXPECT_FALSE(Framework->RequestState(kRunState, 7).Ok());
  Framework->Stop("bert");
  std::erase(GCalls, "stop exec");
  Pass();
  EXPECT_EQ(GCalls, (TTexts{"step 1", "step 1", "leave to 0"}));
  EXPECT_EQ(causes, (TTexts{"anna", "anna"}));
}

TEST_F(StateFramework, WhoRegistersAStateFirstKeepsIt) {
  EXPECT_FALSE(Registry.RegisterStateCtrl(
      kRunState, [](TNcStateFramework& owner) { return std::make_unique<TNcStateCtrl>(owner); }));
  EXPECT_EQ(Faults.Claim(), TTexts{"machine state 204 is registered already"});
  (void)Framework->RequestState(kRunState, 7);
  Pass();
  EXPECT_EQ(GCalls, (TTexts{"check enter 7", "init 7"}));
}

TEST_F(StateFramework, TheEndOfTheFrameworkEndsItsState) {
  Enter();
  Framework.reset();
  EXPECT_EQ(GCalls, (TTexts{"stop exec", "step 1", "leave to 0"}));
}

TEST_F(StateFramework, OffIsDemandedEveryPassUntilTheDeviceAcknowledgesWithoutTheLock) {
  TDevices devices;
  const TInstalled<TNcCutSystem> installed(devices);
  Enter();
  devices.Beam = devices.Emission = devices.GasDevice.On = true;
  devices.Refusals = devices.GasDevice.Ignores = 4;
  Framework->Stop();
  Pass();
  EXPECT_TRUE(devices.Beam && devices.GasDevice.On);
  EXPECT_FALSE(devices.Emission);  // the other device is told all the same
  EXPECT_TRUE(Framework->SafePending());
  EXPECT_NE(Framework->Watch().DarkDemandedInPass.load(), 0u);
  Pass(4);
  EXPECT_FALSE(devices.Beam || devices.GasDevice.On);
  EXPECT_FALSE(Framework->SafePending());
  const int commands = devices.OffCommands;
  Pass(3);
  EXPECT_EQ(devices.OffCommands, commands);  // acknowledged: not told again

  // What is still to come is not dark.
  for (TNcSince* const asked : {&Framework->Watch().EmissionAsked, &Framework->Watch().LaserAsked}) {
    Enter();
    asked->Begin(Clock.MonotonicMs());  // and the device misses its off
    Framework->Stop();
    Pass(3);
    EXPECT_TRUE(Framework->SafePending());
    asked->End();
    Pass();
    EXPECT_FALSE(Framework->SafePending());
  }
}

TEST_F(StateFramework, BeforeTheFirstPassAndWithoutOneNothingIsLost) {
  Framework.reset();
  EXPECT_EQ(LaserForbidden(), nullptr);
  NoteGasOff();  // nobody is there to be told
  NoteGasOn();
  auto object = std::make_shared<int>(1);
  const std::weak_ptr<int> alive = object;
  ReleaseOnStateThread(std::move(object));
  EXPECT_TRUE(alive.expired());
  Framework.emplace();
  EXPECT_TRUE(Framework->SafePending());  // no device has been told yet
  Framework->Stop();
  EXPECT_FALSE(Framework->RequestState(kRunState, 7).Ok());
  Pass(2);
  EXPECT_FALSE(Framework->SafePending());
  EXPECT_TRUE(Framework->RequestState(kRunState, 7).Ok());
}

TEST(ForbiddenKeys, ByTheSetInForceAndWithoutOneOnlyTheCommandThatIsNone) {
  TNcForbidTypeRegistry keys;
  const std::vector<std::int32_t> commands{3, 4};
  keys.SetForbiddenKey("nobody registered it");
  EXPECT_EQ(keys.Current(), "");
  EXPECT_TRUE(keys.Commands("nobody registered it").empty());
  EXPECT_TRUE(keys.IsForbidden(0) && !keys.IsForbidden(3));
  keys.RegistAllowKey("allow", commands);
  keys.RegistForbidKey("forbid", commands);
  keys.SetForbiddenKey("allow");
  EXPECT_TRUE(!keys.IsForbidden(3) && keys.IsForbidden(5));
  keys.SetForbiddenKey("forbid");
  EXPECT_TRUE(keys.IsForbidden(3) && !keys.IsForbidden(5));
}

TEST_F(StateFramework, AProceduresOwnEndSwitchesTheLaserButNotTheGas) {
  TDevices devices;
  const TInstalled<TNcCutSystem> installed(devices);
  Enter();
  devices.Beam = devices.Emission = devices.GasDevice.On = true;
  State().EnsureBusySet();
  GDo["step 0"] = [&] { State().ChangeState(nsStandby, 0); };
  Pass();
  EXPECT_FALSE(devices.Beam || devices.Emission);
  EXPECT_TRUE(devices.GasDevice.On);
}

}  // namespace
}  // namespace ixocamglue::test
