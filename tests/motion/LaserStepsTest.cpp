#include "fixture/Allocations.h"
#include "fixture/Machine.h"
#include "ixocamglue/motion/Ulasersteps.h"
#include "ixocamglue/platform/states/NcStateTexts.h"

namespace ixocamglue::test {
namespace {

class LaserSteps : public TMachineTest {
 protected:
  void StartShot(std::uint32_t ms) {
    Start<TSmtLaserOnTimeState>([ms](TSmtLaserOnTimeState& shot) { shot.SetDuration(ms); });
  }
};

TEST_F(LaserSteps, ATimedShotLastsItsTimeAndEndsDark) {
  StartShot(300);
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_EQ(Signals().Texts(), Lines("state 204", "emission on", "laser on", "laser off", "emission off", "state 0"));
  EXPECT_TRUE(ExecOK(515));
  // The delay starts two ticks after the laser, and one tick lies between its end and the off.
  EXPECT_EQ(TimeOf("laser off") - TimeOf("laser on"), 300u + 3 * kLoopDelayMs);
}

TEST_F(LaserSteps, LeavingTheTimedShotEarlySwitchesLaserAndEmissionOff) {
  const std::pair<std::function<void()>, TMotionExecType> ends[] = {
      {[&] { Framework().Stop(); }, metStop},
      {[&] { Framework().Pause(); }, metPause},
      {[&] { Framework().Abort(srError); }, metError},
      {[&] { Raise(naForbidMove); }, metAlarm},
  };
  for (const auto& [end, type] : ends) {
    Journal().Clear();
    StartShot(300);
    RunUntil("laser on");
    end();
    EXPECT_EQ(Finish(), type);
    EXPECT_EQ(Signals().After("laser on"), Lines("laser off", "emission off", "state 0"));
    EXPECT_FALSE(ExecOK(515));
    FController.Alarms().ClearAll();
  }
}

TEST_F(LaserSteps, TheWaitForEmissionNeverAdvancesAndNeverTimesOut) {
  Machine().Laser()->SetEmissionScript(TEmissionScript::Never());
  StartShot(10);
  FController.RunFor(300'000);
  EXPECT_TRUE(FController.Running());
  EXPECT_EQ(Stop(), metStop);
  EXPECT_FALSE(Signals().Has("laser on"));
}

TEST_F(LaserSteps, ATickAllocatesNothingWhileNobodyTraces) {
  Machine().Laser()->SetEmissionScript(TEmissionScript::Never());
  StartRoot(MakeShot(500));
  FController.RunFor(100);
  const auto ticks = Framework().Watch().Tick.load();
  const auto before = AllocationsSoFar();
  FController.RunFor(1000);  // polls
  EXPECT_EQ(AllocationsSoFar() - before, 0u);
  EXPECT_GE(Framework().Watch().Tick.load() - ticks, 99u);
  Journal().Happened(0, "test", std::string(100, 'x'));
  EXPECT_GT(AllocationsSoFar() - before, 0u);  // the count works
}

TEST_F(LaserSteps, LaserOnWaitsForEmissionUpToItsLimitAndTheDeviceHoldsTheBeamBack) {
  StartSequence({{516, "on"}, {517, "off"}});
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_EQ(TimeOf("laser on") - TimeOf("emission on"), 100u - kEmissionMs);  // the settling time belongs to every 516

  // Kept: emission that never comes does not prevent the laser-on.
  Journal().Clear();
  Machine().Laser()->SetEmissionScript(TEmissionScript::Never());
  FController.RunFor(0U - ixocamglue::Clock().TickMs() - 1000);  // the wait passes over the wrap of the tick count
  StartSequence({{516, "on"}, {517, "off"}});
  const auto start = Clock().MonotonicMs();
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_GT(Clock().MonotonicMs() - start, 5000u);
  EXPECT_FALSE(Signals().Has("laser on"));
  EXPECT_FALSE(Machine().Laser()->LatchTripped());
  const TTexts commands = Commands("laser");
  EXPECT_EQ(commands[0], "EmissionOn");
  EXPECT_EQ(commands[1], "SwitchLaser on");
}

TEST_F(LaserSteps, AStopDuringTheWaitOfLaserOnClosesEmissionAgain) {
  for (const bool comes : {false, true}) {  // emission, after 30 ms; the wait is no shorter than 100 ms
    Machine().Laser()->SetEmissionScript(comes ? TEmissionScript{} : TEmissionScript::Never());
    Journal().Clear();
    StartSequence({{516, "on"}});
    const auto start = Clock().MonotonicMs();
    const auto timer = FController.VirtualClock()->Every(comes ? 50 : 1000, [&](std::uint64_t) {
      if (FController.Running()) Framework().Stop();
    });
    EXPECT_EQ(Finish(), metStop);
    EXPECT_GT(Clock().MonotonicMs() - start, comes ? 99u : 5000u);  // Kept: it is no shorter for the stop
    FController.VirtualClock()->Remove(timer);
    for (const auto& command : Commands("laser")) EXPECT_NE(command, "SwitchLaser on");
    EXPECT_EQ(Commands("laser")[1], "EmissionOff");
  }
}

TEST_F(LaserSteps, WhatEndsTheWaitOfLaserOnLeavesItDark) {
  const struct {
    const char* Name;
    TEmissionScript Script;
    std::uint64_t WaitMs;
  } emissions[] = {{"early", TEmissionScript::AfterPolls(0), 100},
                   {"late", TEmissionScript::AfterPolls(800), 900},
                   {"never", TEmissionScript::Never(), 5'000}};
  TVirtualClock& clock = *FController.VirtualClock();
  for (const bool stop : {true, false})
    for (const auto& emission : emissions)
      for (const std::uint64_t percent : {1U, 25U, 50U, 75U, 99U}) {
        SCOPED_TRACE(emission.Name);
        SCOPED_TRACE(percent);
        Journal().Clear();
        Machine().Laser()->SetEmissionScript(emission.Script);
        bool posted = false;
        const auto handle = clock.OnStep([&](std::uint64_t now) {
          const TNcSince& asked = Framework().Watch().EmissionAsked;
          if (posted || !asked.Runs() || asked.LastedMs(now) < emission.WaitMs * percent / 100) return;
          posted = true;
          stop ? Framework().Stop() : Raise(naForbidLaser);
        });
        StartSequence({{516, "on"}, {612, "delay"}, {517, "off"}});
        EXPECT_EQ(Finish(), stop ? metStop : metAlarm);
        clock.Remove(handle);
        EXPECT_TRUE(posted);
        EXPECT_FALSE(ExecOK(kSequence));
        FController.Alarms().ClearAll();
        FController.RunFor(6'000);  // what comes late lights nothing
        EXPECT_FALSE(Signals().Has("laser on"));
        EXPECT_FALSE(Framework().Watch().EmissionAsked.Runs() || Machine().Snapshot().Emission);
        EXPECT_EQ(Machine().Laser()->LatchTripped(), !stop) << "a stop needs no reset";
        Machine().Laser()->ResetLatch();
      }
}

TEST_F(LaserSteps, AStopAfterLaserOnIsDarkOnePassLater) {
  StartSequence({{516, "on"}, {612, "delay", [](TStateMotion& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(500); }}});
  RunUntil("laser on");
  Framework().Stop();
  FController.RunPass();
  EXPECT_EQ(Signals().After("laser on"), Lines("laser off", "emission off", "state 0"));
  EXPECT_FALSE(Machine().Laser()->LatchTripped());
}

TEST_F(LaserSteps, AShotWhoseBeamWasForbiddenLatchedLostOrRefusedIsNoSuccess) {
  const std::uint64_t ready = Gate().Calls();
  StartShot(50);
  EXPECT_EQ(Finish(), metSuccess);
  const std::uint64_t calls = Gate().Calls() - ready;
  std::size_t tripped = 0;
  for (std::uint64_t call = 1; call <= calls; ++call) {
    SCOPED_TRACE(call);
    Gate().PlanSet({.Call = Gate().Calls() + call, .Fault = gfHang, .Sticky = false, .HangMs = 300, .Callback = {}});
    StartShot(50);
    const TMotionExecType type = Finish();
    EXPECT_TRUE(Gate().Fired());
    EXPECT_EQ(ExecOK(515), type == metSuccess);
    if (Machine().Laser()->LatchTripped()) {
      ++tripped;
      EXPECT_EQ(type, metError);
      EXPECT_EQ(Controller().Outcome().Cause, Show(SBeamLatched, "the heartbeat is older than 200 ms"));
    }
    FController.RunFor(50);
    Machine().Laser()->ResetLatch();
  }
  EXPECT_GT(tripped, 5U);
  Gate().PlanSet({});

  const struct {
    std::function<void()> Do;
    TMotionExecType Type;
    const TText& Cause;
  } cases[] = {{[&] { Raise(naForbidLaser); }, metAlarm, SBeamForbidden},
               {[&] { Machine().LaserDevice().LoseEmission(); }, metError, SBeamLost}};
  for (const auto& c : cases) {
    Journal().Clear();
    StartShot(300);
    RunUntil("laser on");
    c.Do();
    EXPECT_EQ(Finish(), c.Type);
    EXPECT_EQ(Controller().Outcome().Cause, c.Cause.Get());
    EXPECT_FALSE(ExecOK(515));
    FController.Alarms().ClearAll();
    Machine().Laser()->ResetLatch();
    FController.RunFor(50);
  }
  // The source does not take SwitchLaser(true): nothing goes on with a beam that was refused.
  Journal().Clear();
  StartShot(300);
  RunUntil("emission on");
  Gate().PlanSet({.Call = Gate().Calls() + 3, .Fault = gfRefuse, .Sticky = false, .HangMs = 0, .Callback = {}});
  EXPECT_EQ(Finish(), metError);
  EXPECT_EQ(Controller().Outcome().Cause, SBeamRefused.Get());
}

TEST_F(LaserSteps, SingleStepsTouchOnlyTheirOwnSwitch) {
  StartSequence({{518, "emission"},
                 {519, "wait"},
                 {520, "laser"},
                 {520, "again"},
                 {522, "off"},
                 {518, "on already"},
                 {612, "delay", [](TStateMotion& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(50); }}});
  EXPECT_EQ(Finish(), metSuccess);
  const auto signals = Signals().Texts();
  EXPECT_EQ(signals, Lines("state 204", "emission on", "laser on", "laser off", "emission off", "state 0"));
  const TTexts commands = Commands("laser");
  TTexts expected = Lines("EmissionOn", "SwitchLaser on", "SwitchLaser off");
  while (expected.size() < commands.size())  // the platform's, at the end, until the laser has acknowledged
    expected.insert(expected.end(), {"SwitchLaser off", "EmissionOff"});
  EXPECT_EQ(commands, expected);
  EXPECT_GE(TimeOf("emission off") - TimeOf("laser off"), 50u);  // the last step's leave, not the laser's
}

TEST_F(LaserSteps, TheTimeBetweenOnAndOffIsLoggedOnceSinceTheLastShot) {
  ClearTimeStamps();
  StartSequence({{518, "emission"}, {519, "wait"}, {520, "laser"}, {517, "off"}});
  Finish();
  const TDateTime on = LaserTimes().LaserOn;
  const TDateTime off = LaserTimes().LaserOff;
  EXPECT_GT(off.Days, on.Days);
  StartSequence({{517, "off"}});
  Finish();
  EXPECT_EQ(LaserTimes().LaserOff, off);
  ClearTimeStamps();  // Kept: all but the last laser-on
  EXPECT_EQ(LaserTimes().LaserOn, on);
  EXPECT_FALSE(LaserTimes().LaserOff.IsSet());
}

struct TSpanLines : ILogSink {
  TSpanLines() { TLogService::Listen(DiagBit(dlMessage)); }
  ~TSpanLines() override { TLogService::Listen(0); }
  void Write(const TLogRecord& record) override {
    if (record.Text.starts_with("相纸检测耗费时间")) Lines.push_back(record.Text);
  }
  TTexts Lines;
};

class LaserSpan : private TSpanLines, public TMachineTest {
 protected:
  LaserSpan() : TMachineTest({}, {.Sinks = {this}}) {}
  using TSpanLines::Lines;
};

TEST_F(LaserSpan, IsNothingWhereTheLaserNeverWasOn) {
  LaserTimes() = {};
  StartSequence({{517, "off"}});
  Finish();
  EXPECT_EQ(Lines, TTexts{"相纸检测耗费时间：00:00:00-000"});
}

class WithoutSafeEntry : public TMachineTest {
 protected:
  WithoutSafeEntry() : TMachineTest({}, {.SafeEntry = false}) {}
};

TEST_F(WithoutSafeEntry, TheShotStillLeavesDark) {
  StartRoot(MakeShot(300));
  RunUntil("laser on");
  EXPECT_EQ(Stop(), metStop);
  EXPECT_EQ(Signals().After("laser on"), Lines("laser off", "emission off", "state 0"));
}

// Kept: the leave switches off emission that is confirmed; what was only asked for is the platform's to withdraw.
TEST_F(WithoutSafeEntry, EmissionThatComesAfterTheAbortIsNotTheShots) {
  StartRoot(MakeShot(300));
  FController.RunPass();
  EXPECT_EQ(Stop(), metStop);
  EXPECT_EQ(Commands("laser").back(), "SwitchLaser off");
}

class WithoutLaser : public TMachineTest {
 protected:
  WithoutLaser() : TMachineTest({.Parts = {.Laser = false}}) {}
};

TEST_F(WithoutLaser, StepsThatNeedItFailAndSwitchingOffSucceeds) {
  const std::pair<std::int32_t, TMotionExecType> ends[] = {{516, metSuccess}, {517, metSuccess}, {518, metError},
                                                           {519, metError},   {520, metError},   {522, metSuccess}};
  for (const auto& [command, type] : ends) {
    StartUnasked({{command, "step"}});
    EXPECT_EQ(Finish(), type) << command;
  }
  EXPECT_EQ(Controller().Outcome().NextState, nsStandby);
}

class WithoutCutSystem : public TMachineTest {
 protected:
  WithoutCutSystem() : TMachineTest({.Parts = {.CutSystem = false}}) {}
};

TEST_F(WithoutCutSystem, EveryStepSaysSoByItsResult) {
  for (const std::int32_t command : {518, 519, 520, 141}) {
    StartUnasked({{command, "step"}});
    EXPECT_EQ(Finish(), metError) << command;
  }
  StartUnasked({{516, "on"}, {517, "off"}, {522, "off"}, {142, "gas off"}, {176, "nothing to wait for"}});
  EXPECT_EQ(Finish(), metSuccess);
}

}  // namespace
}  // namespace ixocamglue::test
