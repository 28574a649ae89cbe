// The supervisor's ladder and the timeline's drawing: plain time, no machine.
#include <map>

#include <gmock/gmock.h>

#include "controller/process/StateFolder.h"
#include "controller/runs/Timeline.h"
#include "controller/safety/Supervisor.h"
#include "controller/safety/ThreadWatch.h"
#include "controller/texts/HostTexts.h"
#include "fixture/Faults.h"
#include "fixture/Machine.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

constexpr std::uint64_t kStart = 1'000'000;

class Supervisor : public testing::Test {
 protected:
  // Rounds every 20 ms up to `untilMs` after FStart, with a state thread that lives unless it is said to be silent.
  void RunUntil(std::uint64_t untilMs) {
    for (; FNow <= FStart + untilMs; FNow += kSupervisorRoundMs) {
      if (!FSilent) FWatch.BeatMs = FNow;
      FSupervisor.Round(FNow);
    }
  }
  // Nothing is asked for, nothing lasts, and a round has seen it.
  void Reset() {
    for (TNcSince* since :
         {&FWatch.LaserOn, &FWatch.LaserAsked, &FWatch.EmissionAsked, &FWatch.BusySince, &FWatch.GasOn})
      since->End();
    FWatch.EndPosted = nullptr;
    FWatch.EmissionLost = FWatch.BeamRefused = FSilent = false;
    FWatch.DarkDemandedInPass = 0;
    FWatch.BeatMs = FNow = kStart;
    FSupervisor.Round(FNow);
    FStory.clear();
  }
  TSupervisorActions Actions() {
    const auto tell = [this](const char* what) {
      return [this, what](const std::string& reason) {
        FReason = reason;
        FStory.push_back(Format("%s %d", what, static_cast<int>(FNow - FStart)));
        if (FActionThrows) throw std::runtime_error("action");
      };
    };
    return {tell("fail"), tell("alarm"), tell("stop"), tell("latch")};
  }

  TNcWatch FWatch;
  std::int32_t FState = nsCustomMotion;
  std::uint64_t FStart = kStart;
  std::uint64_t FNow = kStart;
  bool FSilent = false;
  bool FActionThrows = false;
  TTexts FStory;
  std::string FReason;
  TSupervisor FSupervisor{FWatch, [this] { return FState; }, {}, Actions()};
};

TEST_F(Supervisor, WhateverLastsTooLongGetsAlarmThenStopThenLatch) {
  const struct {
    const char* What;
    std::function<void()> Begin;
    int FirstMs;  // the first round after the limit
  } cases[] = {
      {"silence", [&] { FSilent = true; }, 1'020},
      {"laser", [&] { FWatch.LaserAsked.Begin(kStart), FWatch.LaserOn.Begin(kStart); }, 62'020},
      {"emission", [&] { FWatch.EmissionAsked.Begin(kStart); }, 6'020},
      {"busy", [&] { FWatch.BusySince.Restart(kStart); }, 600'020},
      {"gas", [&] { FWatch.GasOn.Begin(kStart); }, 1'800'020},
  };
  for (const auto& c : cases) {
    Reset();
    EXPECT_FALSE(FSupervisor.Broken(FNow));
    c.Begin();
    RunUntil(static_cast<std::uint64_t>(c.FirstMs) + 10'000);
    EXPECT_TRUE(FSupervisor.Broken(FNow));
    EXPECT_EQ(FStory, (TTexts{Format("alarm %d", c.FirstMs), Format("stop %d", c.FirstMs + 1000),
                              Format("latch %d", c.FirstMs + 2000)}))
        << c.What;
  }
}

TEST_F(Supervisor, AStepCountsFromItsStartOrFromTheLastWayOfAnAxisUnlessTheBeamIsAskedFor) {
  const struct {
    const char* What;
    TNcLeafWait Wait;
    bool Moves, Beam;
    TTexts Story;
  } cases[] = {
      {"polls", lwPlain, false, false, {"alarm 60020", "stop 61020", "latch 62020"}},
      {"moves no axis", lwMoves, false, false, {"alarm 60020", "stop 61020", "latch 62020"}},
      {"moves", lwMoves, true, false, {}},
      {"moves under the beam", lwMoves, true, true, {"alarm 60020", "stop 61020", "latch 62020"}},
      {"delays while an axis moves", lwPlain, true, false, {"alarm 60020", "stop 61020", "latch 62020"}},
      {"calibrates", lwCalibrates, true, false, {"fail 60020", "stop 61020", "latch 62020"}},
  };
  for (const auto& c : cases) {
    FStory.clear();
    FStart = FNow;
    TNcWatch& watch = FWatch;
    c.Beam ? watch.LaserAsked.Begin(FStart) : watch.LaserAsked.End();
    watch.LeafSince.Restart(FStart);
    watch.LeafWait = c.Wait;
    watch.LeafLimitMs = 60'000;
    for (std::uint64_t ms = 0; ms < 64'000; ms += 1000) {  // 0.11 mm per 5 s
      watch.BusySince.Restart(FNow);                       // it polls
      if (c.Moves && ms % 5000 == 0) watch.Pos[waFocus] = watch.Pos[waFocus] + 0.11;
      RunUntil(ms + 999);
    }
    EXPECT_EQ(FStory, c.Story) << c.What;
  }
  // Trembling is no way.
  FStory.clear();
  FStart = FNow;
  FWatch.LaserAsked.End();
  FWatch.LeafWait = lwMoves;
  FWatch.LeafSince.Restart(FStart);
  for (std::uint64_t ms = 0; ms <= 60'020; ms += 20) {
    FWatch.Pos[waX] = ms % 40 == 0 ? 0.0 : 0.09;
    RunUntil(ms);
  }
  EXPECT_EQ(FStory, TTexts{"alarm 60020"});
}

// How long each step may wait, as the supervisor is told while it stands.
class Leaves : public TMachineTest {
 protected:
  // The limit while the command waits, and how it is counted.
  std::string Limit(std::int32_t command, const std::function<void(TStateMotion&)>& configure = {}) {
    TNcWatch& watch = Framework().Watch();
    std::uint64_t limit = 0;
    TNcLeafWait wait = lwPlain;
    StartSequence({{command, "step", configure}});
    while (Framework().CurrentState() == nsCustomMotion && VirtualMs() < 10'000'000) {
      if (watch.Leaf == command && (limit == 0 || Framework().Busy() != bkEnsure)) {
        limit = watch.LeafLimitMs;
        wait = watch.LeafWait;
      }
      FController.RunPass();
    }
    EXPECT_FALSE(watch.LeafSince.Runs()) << command;
    return Format("%d %d", static_cast<int>(limit), static_cast<int>(wait));
  }
  std::uint64_t VirtualMs() { return FController.VirtualClock()->MonotonicMs(); }
};

TEST_F(Leaves, HaveALimitByWhatTheyWaitFor) {
  EXPECT_EQ(Limit(131, [](auto& s) { dynamic_cast<TSmtMoveToXY&>(s).FTarget = {50, 50}; }), "600000 1");
  EXPECT_EQ(Limit(136, [](auto& s) { dynamic_cast<TSmtSafeMoveToZ&>(s).FTargetZ = 20; }), "60000 1");
  EXPECT_EQ(Limit(154), "60000 1");
  EXPECT_EQ(Limit(134), "60000 1");
  EXPECT_EQ(Limit(421, [](auto& s) { dynamic_cast<TSmtMoveToF&>(s).FFocus = 3; }), "60000 1");
  EXPECT_EQ(Limit(151), "60000 2");
  EXPECT_EQ(Limit(141, [](auto& s) { dynamic_cast<TSmtGasOnState&>(s).FGasBranch = 1; }), "10000 0");
  EXPECT_EQ(Limit(142), "10000 0");
  EXPECT_EQ(Limit(612, [](auto& s) { dynamic_cast<TSmtDelay&>(s).SetDelay(20'000); }), "25000 0");
  EXPECT_EQ(Limit(176,
                  [](auto& s) {
                    auto& wait = dynamic_cast<TSmtWaitInport&>(s);
                    wait.FOutport = 1;
                    wait.FWaitInport = 1;
                    wait.FInportLogic = true;
                    wait.FWaitTime = 700;
                  }),
            "5700 0");
  EXPECT_EQ(Limit(518), "6000 0");
}

// A step of a machine builder's own that waits and does not say for how long.
class TPatient : public TSmtAtomic {
 public:
  static constexpr std::string_view kClassName = "TPatient";
  std::int32_t GetID() override { return 9001; }
  std::string GetDesc() override { return "patient"; }
  TStepType DoMotion(std::int32_t) override {
    StateCtrl()->Delay(100);
    return Await(csbtDelay);
  }
};

TEST_F(Leaves, OneThatDoesNotSayHowLongItWaitsHasTheLimitOfAnyWait) {
  StartSequence({{.Command = 0, .Desc = "own", .Make = &MakeStep<TPatient>}});
  while (Framework().Busy() != bkDelay) FController.RunPass();
  EXPECT_EQ(Framework().Watch().Leaf, 9001);
  EXPECT_EQ(Framework().Watch().LeafLimitMs, 600'000U);
  EXPECT_EQ(Finish(), metSuccess);
}

class SupervisedRun : public testing::Test {
 protected:
  // Outcome, cause, and how long the procedure stood.
  std::string Run(const std::function<TStepPtr()>& make, const char* fault = nullptr) {
    TController controller(
        {.Machines = {SimulatedMachine()}, .MachineFile = ShareFolder() / "machines" / "machine.xml"});
    const auto before = FCaliRstCfg->Count();
    if (fault) controller.Machine().Inject(fault);
    controller.RunFor(100);
    const std::uint64_t start = controller.VirtualClock()->MonotonicMs();
    if (!controller.Start(ShareRoot(make()))) return "refused";
    if (!controller.RunToEnd(36'000'000)) return "for ever";
    const auto lasted = controller.VirtualClock()->MonotonicMs() - start;
    controller.RunFor(50);
    const auto shown = controller.Machine().Snapshot();
    FSettled = !shown.Gas && !shown.Moving() && !shown.Calibrating;
    FResults = FCaliRstCfg->Count() - before;
    const TMotionOutcome& outcome = controller.MotionState().Outcome();
    FCause = outcome.Cause;
    return Format("%d after %d s", static_cast<int>(outcome.Type), static_cast<int>(lasted / 1000));
  }
  std::string FCause;
  bool FSettled = false;
  std::int32_t FResults = 0;
};

TEST_F(SupervisedRun, AStepThatPollsForEverEndsAndItsGasIsClosed) {
  const TMotionCall calls[] = {{FindProcedure(141), {1.0, 2.0}, {}}, {FindProcedure(519), {}, {}}};
  EXPECT_EQ(Run([&] { return MakeRoot("root", calls); }), Format("%d after 6 s", static_cast<int>(metAlarm)));
  EXPECT_TRUE(FSettled);
}

TEST_F(SupervisedRun, AHeightCalibrationOverItsLimitFailsWithTheHeadStoppedAndNothingInTheList) {
  EXPECT_EQ(Run([] { return MakeStep<TSmtSimpleAutoCaliState>(nullptr); }, "follower.calibration-stuck"),
            Format("%d after 60 s", static_cast<int>(metError)));
  EXPECT_THAT(FCause, testing::HasSubstr("60000"));
  EXPECT_TRUE(FSettled);
  EXPECT_EQ(FResults, 0);
}

TEST_F(SupervisedRun, ALongLubricationIsLeftAlone) {
  const auto make = [] {
    auto curve = MakeStepOf<TSmtLubricateCurve>(nullptr);
    curve->FCount = 6;
    curve->FSpeed = 100.0;
    return curve;
  };
  EXPECT_THAT(Run(make), testing::StartsWith(Format("%d after 11", static_cast<int>(metSuccess))));  // 1100 s
}

TEST_F(Supervisor, WhatIsGoodAgainStartsTheLadderAnew) {
  FWatch.EmissionAsked.Begin(kStart);
  RunUntil(7'000);
  FWatch.EmissionOn.Begin(FNow);
  RunUntil(20'000);
  FWatch.EmissionOn.End();
  RunUntil(20'500);
  EXPECT_EQ(FStory, (TTexts{"alarm 6020", "alarm 20020"}));
}

TEST_F(Supervisor, ABeamThatIsNotDarkInTimeIsLatchedAndStoppedWithoutTheLadder) {
  const struct {
    const char* What;
    std::function<void()> Begin;
    bool Acts;
  } cases[] = {
      {"stop posted, laser asked for", [&] { FWatch.EndPosted = "stop", FWatch.LaserAsked.Begin(kStart); }, true},
      {"stop posted, lit", [&] { FWatch.EndPosted = "stop", FWatch.LaserOn.Begin(kStart); }, true},
      {"stop posted, emission only", [&] { FWatch.EndPosted = "stop", FWatch.EmissionAsked.Begin(kStart); }, false},
      {"refused", [&] { FWatch.AskEmission(kStart, true); }, true},
      {"lost", [&] { FWatch.LaserAsked.Begin(kStart), FWatch.EmissionLost = true; }, true},
      {"lost, and not asked for", [&] { FWatch.EmissionLost = true; }, false},
  };
  for (const auto& c : cases) {
    for (const bool darkInTime : {false, true}) {
      Reset();
      c.Begin();
      RunUntil(80);
      if (darkInTime)
        for (TNcSince* since : {&FWatch.LaserOn, &FWatch.LaserAsked, &FWatch.EmissionAsked}) since->End();
      RunUntil(3'000);
      EXPECT_EQ(FStory, c.Acts && !darkInTime ? (TTexts{"latch 100", "stop 100"}) : TTexts{}) << c.What;
    }
  }
}

// A source that does not do what it is told, or has never heard of it.
TEST_F(Supervisor, ABeamThatStaysLitAlthoughItWasToldToGoOffIsLatchedAndStopped) {
  for (const bool darkInTime : {false, true}) {
    Reset();
    FWatch.LaserAsked.Begin(kStart);
    FWatch.LaserOn.Begin(kStart);
    RunUntil(180);
    FWatch.DarkDemandedInPass = 7;
    RunUntil(1'160);
    EXPECT_EQ(FStory, TTexts{});
    if (darkInTime) FWatch.LaserOn.End();
    RunUntil(3'000);
    EXPECT_EQ(FStory, darkInTime ? TTexts{} : (TTexts{"latch 1200", "stop 1200"}));
  }
}

// A source that lights by itself, or goes on when a step has switched it off; a late one is given its time.
TEST_F(Supervisor, LightThatNobodyAsksForIsLatchedAndStoppedInWhateverState) {
  for (const std::int32_t state : {nsStandby, nsCustomMotion}) {
    Reset();
    FState = state;
    FWatch.LaserAsked.Begin(kStart);
    FWatch.LaserOn.Begin(kStart);
    RunUntil(5'000);
    FWatch.LaserAsked.End();
    RunUntil(5'980);
    FWatch.LaserOn.End();
    RunUntil(6'000);
    FWatch.LaserOn.Begin(FNow);
    RunUntil(6'980);
    FWatch.LaserAsked.Begin(FNow);
    RunUntil(9'000);
    EXPECT_EQ(FStory, TTexts{}) << "late, and lit by a key meanwhile";
    FWatch.LaserAsked.End();
    RunUntil(20'000);
    EXPECT_EQ(FStory, (TTexts{"latch 10020", "stop 10020"}));
    EXPECT_THAT(FReason, testing::HasSubstr(Show(SWatchUnasked, 1000)));
    FWatch.LaserOn.End();
  }
}

TEST_F(Supervisor, AStandbyThreadMayBeSilentAndAThrowingActionChangesNothing) {
  FState = nsStandby;
  FSilent = true;
  RunUntil(10'000);
  EXPECT_EQ(FStory, TTexts{});
  FState = nsCustomMotion;
  FActionThrows = true;
  RunUntil(13'000);
  EXPECT_EQ(FStory, (TTexts{"alarm 10020", "stop 11020", "latch 12020"}));
  Reset();
  FWatch.EndPosted = "stop";
  FWatch.LaserAsked.Begin(kStart);
  RunUntil(3'000);
  EXPECT_EQ(FStory, (TTexts{"latch 100", "stop 100"})) << "a latch that fails keeps no stop back";
}

TEST_F(Supervisor, ABeatYoungerThanTheRoundIsNoSilenceAndWhereNobodyActsItStillWatches) {
  FWatch.BeatMs = kStart + 5;
  FSupervisor.Round(kStart);
  EXPECT_EQ(FStory, TTexts{});
  TSupervisor alone(FWatch, [] { return nsCustomMotion; }, {}, {});
  FWatch.EndPosted = "stop";
  FWatch.LaserAsked.Begin(kStart);
  for (std::uint64_t ms = 0; ms < 4'000; ms += kSupervisorRoundMs) alone.Round(kStart + ms);
  alone.EmergencyStop();
  EXPECT_TRUE(alone.Broken(kStart + 4'000)) << "silent since the start";
}

TEST(ThreadWatch, AnAlarmGoesWithItsThreadAndComesBackWhileItsCauseStands) {
  TVirtualClock clock;
  const TInstalled<IClock> installed(clock);
  TNcAlarmManager alarms;
  TThreadWatch watch(ThreadTable(), {}, alarms);
  std::optional<TThreadSign> sign(std::in_place, "first", tkOther);
  const auto shown = [&] {
    watch.Round(clock.MonotonicMs());
    std::string text;
    for (const TNcAlarmRecord& alarm : alarms.Standing()) text += alarm.Desc;
    return text;
  };
  clock.Sleep(3'000);
  EXPECT_THAT(shown(), testing::HasSubstr("first"));
  alarms.ClearAll();
  EXPECT_THAT(shown(), testing::HasSubstr("first")) << "cleared by hand, and still silent";
  sign.reset();
  sign.emplace("second", tkOther);  // in the same row
  clock.Sleep(3'000);
  EXPECT_THAT(shown(), testing::AllOf(testing::HasSubstr("second"), testing::Not(testing::HasSubstr("first"))));
  sign.reset();
  EXPECT_EQ(shown(), "");
}

TEST(ThreadWatch, EachThreadHasTheLimitOfItsKindAndAParkedOneHasNone) {
  TVirtualClock clock;
  const TInstalled<IClock> installed(clock);
  TNcAlarmManager alarms;
  TThreadWatch watch(ThreadTable(), {}, alarms);
  TThreadSign other("other", tkOther), log("log", tkLog), device(std::string(100, 'x'), tkDevice),
      idle("idle", tkOther);
  idle.Park();
  const auto standing = [&](std::uint32_t untilMs) {
    clock.Sleep(untilMs - static_cast<std::uint32_t>(clock.MonotonicMs()));
    watch.Round(clock.MonotonicMs());
    std::string ids;
    for (const TNcAlarmRecord& alarm : alarms.Standing()) ids += Format("%d", alarm.Id);
    return ids;
  };
  EXPECT_EQ(standing(2'000), "");
  EXPECT_EQ(standing(2'001), "2");
  EXPECT_EQ(alarms.Standing()[0].Desc, Show(SThreadSilent, "other", 2'001, 2'000));
  EXPECT_EQ(standing(5'001), "22");
  EXPECT_EQ(standing(10'001), "222");
  EXPECT_EQ(alarms.Standing()[2].Desc, Show(SThreadSilent, std::string(40, 'x').c_str(), 10'001, 10'000));
  other.Beat();
  EXPECT_EQ(standing(10'021), "22");
  device.Failed();
  EXPECT_EQ(standing(10'041), "21");
  idle.Beat();
  EXPECT_EQ(standing(12'042), "2122");
  TThreadSeen seen;
  std::map<std::string, std::string> statistics;
  for (std::size_t row = 0; row < TThreadTable::kRows; ++row)
    if (ThreadTable().Read(row, seen))
      statistics[seen.Name] = std::to_string(seen.Beats) + " " + std::to_string(seen.LongestMs);
  EXPECT_EQ(statistics["other"], "1 10001");
  EXPECT_EQ(statistics["idle"], "1 0") << "what is parked is not silent";
  EXPECT_TRUE(alarms.AllowMove());
}

TEST(Timeline, EveryPulseIsSeenAndTheScaleFits) {
  const std::vector<TSignal> signals{{100, sgState, true, 204}, {100, sgEmission, true},    {150, sgLaser, true},
                                     {151, sgLaser, false},     {160, sgGas, true, 2, 3.5}, {170, sgGas, true, 2, 1.5},
                                     {180, sgGas, false},       {190, sgEmission, false},   {200, sgState, false, 0}};
  const TTimeline timeline(signals, 100, 260);
  EXPECT_EQ(timeline.Draw(16), (TTexts{"ms    0   40  80  120 160", "状态  ██████████······", "光闸  █████████·······",
                                       "激光  ·····▄··········", "气体  ······██········"}));
  EXPECT_EQ(timeline.Json().dump(), R"([{"signal":"state","on":[[0,100]]},{"signal":"emission","on":[[0,90]]},)"
                                    R"({"signal":"laser","on":[[50,51]]},{"signal":"gas","on":[[60,80]]}])");
  const TTimeline late(signals, 155, 155);  // nothing lasted
  EXPECT_EQ(late.Json()[0]["on"].size(), 0U);
}

}  // namespace
}  // namespace ixocamglue::test
