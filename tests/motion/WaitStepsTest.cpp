#include "fixture/Machine.h"

namespace ixocamglue::test {
namespace {

struct TWait {
  std::int32_t Outport = 4;
  std::int32_t Inport = 4;
  std::int32_t LimitMs = 500;
  bool Need = true;
  bool Alarm = false;
  bool Logic = true;
};

TSequenceItem Wait(const TWait& wait) {
  return {176, "wait", [wait](TStateMotion& step) {
            auto& s = dynamic_cast<TSmtWaitInport&>(step);
            s.FOutport = wait.Outport;
            s.FWaitInport = wait.Inport;
            s.FWaitTime = wait.LimitMs;
            s.FNeedOutport = wait.Need;
            s.FTimeOutAlarm = wait.Alarm;
            s.FInportLogic = wait.Logic;
          }};
}

class WaitSteps : public TMachineTest {
 protected:
  WaitSteps() { Machine().Ports().FollowOutput(4, 4, 120); }
};

TEST_F(WaitSteps, TheOutputStaysOnUntilTheInputAnswersAndIsOffAfterwards) {
  StartSequence({Wait({})});
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_EQ(Signals().Texts(), Lines("state 204", "output 4 on", "output 4 off", "state 0"));
  const auto lasted = TimeOf("output 4 off") - TimeOf("output 4 on");
  EXPECT_GE(lasted, 120u);
  EXPECT_LE(lasted, 120u + 3 * kLoopDelayMs);
}

TEST_F(WaitSteps, EveryWayOfWaitingEndsAsItShould) {
  struct TCase {
    const char* Name;
    TWait Wait;
    TMotionExecType Type;
    std::uint64_t MinMs, MaxMs;
  };
  for (const auto& [name, wait, type, minMs, maxMs] : {
           TCase{"time-out ends the wait", {.LimitMs = 50}, metSuccess, 50, 110},
           TCase{"time-out raises an alarm", {.LimitMs = 50, .Alarm = true}, metAlarm, 50, 110},
           TCase{"inverted logic is met at once", {.Logic = false}, metSuccess, 0, 60},
           TCase{"no input is met at once", {.Inport = -1}, metSuccess, 0, 60},
           // Kept: without an output nothing is waited for, whatever the input.
           TCase{"no output", {.Outport = -1, .LimitMs = 5000}, metSuccess, 0, 60},
           TCase{"an output that is not switched", {.LimitMs = 70, .Need = false}, metSuccess, 70, 130},
       }) {
    const auto start = Clock().MonotonicMs();
    StartSequence({Wait(wait)});
    EXPECT_EQ(Finish(), type) << name;
    const auto lasted = Clock().MonotonicMs() - start;
    EXPECT_TRUE(lasted >= minMs && lasted <= maxMs) << name << " " << lasted;
    EXPECT_TRUE(Machine().Snapshot().OutputsOn.empty()) << name;
    FController.Alarms().ClearAll();
    FController.RunFor(300);
  }
  EXPECT_EQ(Faults.Claim(), TTexts{});
}

TEST_F(WaitSteps, AStopWhileWaitingSwitchesTheOutputOff) {
  StartSequence({Wait({.Inport = 2, .LimitMs = 60'000})});
  RunUntil("output 4 on");
  FController.RunFor(1000);
  EXPECT_EQ(Stop(), metStop);
  EXPECT_EQ(Signals().After("output 4 on"), Lines("output 4 off", "state 0"));
}

TEST_F(WaitSteps, AnOutputThatFailsToSwitchOffOnceIsToldAgainByTheForcedLeave) {
  // Other devices are told to stop first; the call that switches is found by trying each.
  bool found = false;
  for (std::uint64_t ahead = 1; ahead < 40 && !found; ++ahead) {
    StartSequence({Wait({.Inport = 2, .LimitMs = 60'000})});
    FController.RunFor(100);
    Framework().Stop();
    Gate().PlanSet({.Call = Gate().Calls() + ahead, .Fault = gfThrow, .Sticky = false, .HangMs = 0, .Callback = {}});
    Finish();
    const auto entries = Journal().Entries();
    found = std::ranges::any_of(
        entries, [](const TJournalEntry& e) { return e.Outcome == toThrew && e.Verb == "SwitchOutport"; });
    EXPECT_TRUE(Machine().Snapshot().OutputsOn.empty()) << ahead;
  }
  EXPECT_TRUE(found);
  Faults.Claim();
}

TEST_F(WaitSteps, GasIsSelectedSetAndSwitchedInThisOrder) {
  const TSequenceItem gasOn{141, "gas", [](TStateMotion& s) {
                              dynamic_cast<TSmtGasOnState&>(s).FGasBranch = 2;
                              dynamic_cast<TSmtGasOnState&>(s).FGasPressure = 3.5;
                            }};
  StartSequence({gasOn});
  EXPECT_EQ(Finish(), metSuccess);
  TTexts commands = Commands("gas");
  EXPECT_EQ(commands.size(), 3u);
  EXPECT_EQ(commands[0].substr(0, 12), "SelectBranch");
  EXPECT_EQ(commands[1].substr(0, 11), "SetPressure");
  EXPECT_EQ(commands[2], "SwitchOn");
  EXPECT_TRUE(Machine().Snapshot().Gas);  // success keeps it on

  StartSequence({{142, "off"}, {142, "had been off"}});
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_FALSE(Machine().Snapshot().Gas);
  EXPECT_EQ(Commands("gas").size(), 4u);

  StartSequence({gasOn, {518, "fails"}, {519, "never"}});
  Machine().Laser()->SetEmissionScript(TEmissionScript::Never());
  RunUntil("gas on 2 3.50");
  EXPECT_EQ(Stop(), metStop);
  EXPECT_FALSE(Machine().Snapshot().Gas);
}

class WithoutDevices : public TMachineTest {
 protected:
  WithoutDevices()
      : TMachineTest({.Parts = {.Gas = false, .InportCtrl = false, .MotionCard = false, .DeviceManager = false}}) {}
};

TEST_F(WithoutDevices, MissingDevicesEndTheStepAsRuled) {
  StartSequence({{141, "gas on"}});
  EXPECT_EQ(Finish(), metError);
  StartSequence({{142, "gas off"}});
  EXPECT_EQ(Finish(), metSuccess);
  StartSequence({Wait({.Need = true})});  // no motion card to switch with
  EXPECT_EQ(Finish(), metError);
  EXPECT_EQ(Faults.Claim(), TTexts{});
  StartSequence({Wait({.Need = false})});
  EXPECT_EQ(Finish(), metError);
  EXPECT_EQ(Faults.Claim(), TTexts{"无法找到输出设备"});
}

}  // namespace
}  // namespace ixocamglue::test
