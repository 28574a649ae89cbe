// Virtual time, and the gate through which every device call passes.
#include "fixture/LogTexts.h"
#include "fixture/SimMachine.h"

namespace ixocamglue::test {
namespace {

TEST(VirtualClock, TheTickCountWrapsFiveMinutesAfterTheStartWhileDifferencesAndMonotonicTimeGoOn) {
  TVirtualClock clock;
  const std::uint32_t before = clock.TickMs();
  const TDateTime start = clock.Now();
  clock.Sleep(300'001);
  EXPECT_EQ(clock.TickMs(), 1U);
  EXPECT_EQ(clock.TickMs() - before, 300'001U);
  EXPECT_EQ(clock.MonotonicMs(), 300'001U);
  EXPECT_EQ(FormatDateTime(start), "2026-01-01 08:00:00.000");
  EXPECT_EQ(FormatSpan(start, clock.Now()), "00:05:00-001");
}

TEST(VirtualClock, ListenersRunInOrderBeforeTimersAndCannotMoveTimeThemselves) {
  TVirtualClock clock;
  std::string story;
  const auto tell = [&](const char* who) {
    return [&story, who](std::uint64_t nowMs) { story += who + std::to_string(nowMs) + " "; };
  };
  clock.Every(2, tell("t"));
  const std::size_t first = clock.OnStep(tell("a"));
  clock.OnStep([&](std::uint64_t) {
    TStop stop;
    clock.Sleep(5);
    EXPECT_FALSE(clock.Pause(stop, 5));
  });
  clock.OnStep(tell("b"));
  clock.Sleep(2);
  clock.Remove(first);
  clock.Spin();
  EXPECT_EQ(story, "a1 b1 a2 b2 t2 b3 ");
}

TEST(VirtualClock, APauseEndsInTheStepInWhichTheStopIsAsked) {
  TVirtualClock clock;
  TStop stop;
  EXPECT_FALSE(clock.Pause(stop, 10));
  clock.OnStep([&](std::uint64_t nowMs) {
    if (nowMs == 15) stop.Ask();
  });
  EXPECT_TRUE(clock.Pause(stop, 100));
  EXPECT_EQ(clock.MonotonicMs(), 15U);
}

class CallGate : public TSimTest {};

TEST_F(CallGate, APlannedExceptionHappensOnceAndChangesNothing) {
  Gate.PlanSet({.Call = 2, .Fault = gfThrow, .Sticky = false, .HangMs = 0, .Callback = {}});
  EXPECT_FALSE(Machine.Laser()->GetEmission());
  EXPECT_THROW(Machine.Gas()->SwitchOn(), EDeviceFault);
  EXPECT_FALSE(Machine.Snapshot().Gas);
  Machine.Gas()->SwitchOn();
  EXPECT_TRUE(Machine.Snapshot().Gas);
  EXPECT_TRUE(Gate.Fired());
  EXPECT_EQ(Gate.Calls(), 3U);
  EXPECT_EQ(Journal.Lines(), (TTexts{"00000000 gas.SwitchOn -> failed", "00000000 gas.SwitchOn"}));
}

TEST_F(CallGate, AStickyExceptionStaysWithItsVerbOfItsDevice) {
  Gate.PlanSet({.Call = 1, .Fault = gfThrow, .Sticky = true, .HangMs = 0, .Callback = {}});
  EXPECT_THROW(Machine.Gas()->SwitchOff(), EDeviceFault);
  EXPECT_THROW(Machine.Gas()->SwitchOff(), EDeviceFault);
  EXPECT_NO_THROW(Machine.Gas()->SwitchOn());
  EXPECT_NO_THROW(Machine.Laser()->EmissionOff());
  EXPECT_EQ(Gate.Stuck(), std::pair(std::string("gas"), std::string("SwitchOff")));
  Gate.PlanSet({});
  EXPECT_NO_THROW(Machine.Gas()->SwitchOff());
}

TEST_F(CallGate, ARefusedCommandHasNoEffectAndARefusedReadAnswersTheWorst) {
  const auto refuseNext = [&] {
    Gate.PlanSet({.Call = Gate.Calls() + 1, .Fault = gfRefuse, .Sticky = false, .HangMs = 0, .Callback = {}});
  };
  refuseNext();
  Machine.Laser()->EmissionOn();
  RunFor(300);
  EXPECT_FALSE(Machine.Snapshot().Emission);
  refuseNext();
  EXPECT_TRUE(Machine.Laser()->GetLaser());
  refuseNext();
  EXPECT_TRUE(Machine.Gas()->IsBusy());
  refuseNext();
  EXPECT_TRUE(Machine.Gas()->GetGas());
  refuseNext();
  EXPECT_EQ(Machine.Follower().GetZ(), Machine.Config().Z.SoftLimitPos);
}

TEST_F(CallGate, AHangTakesMachineTimeWhileTheMachineGoesOnAndTheLatchWatches) {
  ShootOn();
  Gate.PlanSet({.Call = Gate.Calls() + 1, .Fault = gfHang, .Sticky = false, .HangMs = 500, .Callback = {}});
  const std::uint64_t before = VirtualClock.MonotonicMs();
  (void)Machine.Gas()->GetGas();
  EXPECT_EQ(VirtualClock.MonotonicMs(), before + 500);
  EXPECT_STREQ(Machine.Laser()->LatchReason(), "the heartbeat is older than 200 ms");
}

TEST_F(CallGate, ACallbackMayUseTheMachineItself) {
  Gate.PlanSet({.Call = 1, .Fault = gfCallback, .Sticky = false, .HangMs = 0, .Callback = [&] {
                  Raise(naForbidMove);
                  Machine.Gas()->SelectBranch(2);
                }});
  Machine.Gas()->SwitchOn();
  EXPECT_FALSE(NcAlarms()->AllowMove());
  EXPECT_EQ(Signals(), (TTexts{"gas on 2 0.00"}));
}

TEST_F(CallGate, ReadsAreCountedButNotJournalled) {
  (void)Machine.Laser()->GetEmission();
  (void)MotionDriver()->GetPos(0);
  Machine.Lock();
  Machine.Unlock();
  EXPECT_EQ(Gate.Calls(), 4U);
  EXPECT_EQ(Journal.Size(), 0U);
}

TEST(GatedSink, ALostLineIsTheSinksAffairAndAFailingOneTheServices) {
  TLogTexts keep;
  TCallGate gate;
  TGatedSink sink(keep, gate);
  TLogService logs;
  logs.AddSink(sink);
  gate.PlanSet({.Call = 2, .Fault = gfThrow, .Sticky = false, .HangMs = 0, .Callback = {}});
  for (const char* text : {"one", "two", "three"}) logs.PostMsg(lkInfo, 0, text, "");
  logs.DrainOnce();
  EXPECT_EQ(keep.Lines, (TTexts{"one", "three"}));
  EXPECT_EQ(logs.Swallowed(), 1U);
}

}  // namespace
}  // namespace ixocamglue::test
