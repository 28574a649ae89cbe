// What a latched, forbidden or missing laser keeps from starting, who resets the latch, and the message that stands.
#include <gmock/gmock.h>

#include "controller/process/StateFolder.h"
#include "controller/runs/ProcedureRun.h"
#include "controller/safety/LaserLatch.h"
#include "fixture/Machine.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

class LaserLatch : public TMachineTest {
 protected:
  // Why a reset is refused; empty: it is not, and nothing is latched.
  std::string Reset() {
    const TResult<> reset = FController.ResetLatch();
    EXPECT_EQ(reset.Ok(), Machine().Laser()->LatchReason() == nullptr);
    return reset ? "" : reset.Problem().Why;
  }
  std::string Message() {
    for (const TNcAlarmRecord& alarm : FController.Alarms().Standing())
      if (alarm.Identifier() == "TPLatch#1") return alarm.Desc;
    return {};
  }
  TStepPtr Row(std::string_view name) {
    const TMotionCall call{FindProcedure(name), FindProcedure(name)->SampleValues(), {}};
    return MakeRoot(std::string(name), {&call, 1});
  }
  std::string Refused(std::string_view name) {
    TStepPtr root = Row(name);
    const std::int32_t id = root->GetID();
    TCustomMotionState::SetExecOK(id, true);
    const TResult<> started = FController.Start(ShareRoot(std::move(root)));
    EXPECT_EQ(started.Ok(), ExecOK(id)) << name << ": a refused start clears the flag";
    if (!started) return started.Problem().Text();
    FController.RunToEnd(20'000);
    return {};
  }
};

// A composite that builds its steps when it is entered, and says nothing of them.
class TLateBeam : public TSmtComposite {
 public:
  static constexpr std::string_view kClassName = "TLateBeam";
  std::int32_t GetID() override { return kId; }
  std::string GetDesc() override { return "late"; }
  void BuildMotionList() override { AddMotionByCmd(519, *this, false); }
  static constexpr std::int32_t kId = 77;
};

TEST_F(LaserLatch, WhatNeedsTheLaserDoesNotStartWhileItCannotBeUsed) {
  const auto expect = [&](const char* why) {
    for (const char* name :
         {"shot", "laser-on", "emission-on", "wait-emission", "beam-on", "laser-test", "pierce", "square"})
      EXPECT_THAT(Refused(name), HasSubstr(why)) << name;
    for (const char* name : {"laser-off", "beam-off", "delay", "gas-purge"}) EXPECT_EQ(Refused(name), "") << name;
  };
  Machine().Laser()->Trip("of its own");
  expect("the laser is latched (of its own)");
  EXPECT_EQ(Reset(), "");
  Raise(naForbidLaser);
  expect("an alarm forbids the laser");

  // What nobody can tell before it is built ends before its first step.
  FController.Start(ShareRoot(MakeStep<TLateBeam>(nullptr))).OrThrow(pbRefused);
  EXPECT_EQ(Finish(200), metError);
  EXPECT_THAT(Controller().Outcome().Cause, HasSubstr("an alarm forbids the laser"));
  // An application's row says so for it.
  const TAddedProcedures rows(
      {{.Name = "late-beam",
        .Command = TLateBeam::kId,
        .Summary = "",
        .Flags = {.LightsBeam = true},
        .Make = [](TCustomMotionState* ctrl, const TMotionValues&) -> TStepPtr { return MakeStep<TLateBeam>(ctrl); }}});
  EXPECT_THAT(Refused("late-beam"), HasSubstr("an alarm forbids the laser"));
}

TEST_F(LaserLatch, ARefusedStartLeavesTheFlagOfTheProcedureThatRunsAlone) {
  Start<TSmtLaserOnTimeState>([](TSmtLaserOnTimeState& s) { s.SetDuration(100); });
  TCustomMotionState::SetExecOK(612, true);
  auto delay = MakeStepOf<TSmtDelay>(nullptr);
  EXPECT_FALSE(FController.Start(ShareRoot(std::move(delay))));
  EXPECT_FALSE(ExecOK(612));
  EXPECT_EQ(Finish(), metSuccess);
  EXPECT_TRUE(ExecOK(515));
}

TEST_F(LaserLatch, AResetIsRefusedWhileItsCauseStandsOutsideStandbyAndWhileLightIsOnOrAskedFor) {
  EXPECT_EQ(Reset(), "") << "nothing to reset";
  Machine().Laser()->Trip("of its own");
  Raise(naForbidLaser);
  EXPECT_EQ(Reset(), "an alarm forbids the laser");
  FController.Alarms().ClearAll();
  Framework().Watch().EmissionAsked.Begin(Clock().MonotonicMs());
  EXPECT_EQ(Reset(), "laser or emission is asked for");
  Framework().Watch().EmissionAsked.End();
  Framework().Watch().LaserOn.Begin(Clock().MonotonicMs());
  EXPECT_EQ(Reset(), "the laser still reads as lit");
  Framework().Watch().LaserOn.End();
  FController.VirtualClock()->Sleep(300);  // without a pass
  EXPECT_EQ(Reset(), "the state thread gives no sign of life");
  StartSequence({{612, "delay", [](TStateMotion& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(100); }}});
  EXPECT_EQ(Reset(), "the machine is not in standby");
  Finish();
  FController.Keys().SetEmergencyStop(true);
  FController.RunPass();
  EXPECT_EQ(Reset(), "the emergency stop is active");
  FController.Keys().SetEmergencyStop(false);
  EXPECT_EQ(Reset(), "");
  EXPECT_FALSE(Machine().Laser()->Emitting());
}

TEST_F(LaserLatch, TheMessageStandsUntilTheReset) {
  Machine().Laser()->Trip("of its own");
  FController.RunFor(30);
  EXPECT_THAT(Message(), testing::AllOf(HasSubstr("of its own"), HasSubstr("3")));
  EXPECT_TRUE(FController.Alarms().AllowLaser());
  const auto serial = FController.Alarms().Standing().at(0).Serial;
  FController.ClearAlarms();
  FController.RunFor(30);
  EXPECT_EQ(FController.Alarms().Standing().at(0).Serial, serial) << "no clear ends it, or shows it anew";
  EXPECT_EQ(Reset(), "");
  FController.RunFor(30);
  EXPECT_EQ(Message(), "");
}

TEST(LatchInARun, TheReportNamesItsReasonAndWhatToDo) {
  TProcedureRun run({.Machines = {SimulatedMachine()}, .AlarmFolder = ShareFolder() / "alarms"});
  run.OnLook([&](std::uint64_t) {
    if (run.Controller().Journal().HasSignal("laser on")) CutSystem()->Laser()->Trip("of its own");
  });
  const TRunReport report = run.Run([] { return MakeShot(500); }, 60'000);
  EXPECT_STREQ(report.End.Name, "error");
  EXPECT_THAT(report.Cause, HasSubstr("of its own"));
  ASSERT_FALSE(report.Alarms.empty());
  EXPECT_EQ(report.Alarms.back().Identifier, "TPLatch#1");
  EXPECT_THAT(report.Alarms.back().Words(), testing::AllOf(HasSubstr("of its own"), HasSubstr("3")));
  ASSERT_TRUE(report.Problem);
  EXPECT_THAT(report.Problem->Remedy, HasSubstr("ixocut reset"));
}

}  // namespace
}  // namespace ixocamglue::test
