// The driver `linuxcnc` against a LinuxCNC that answers as the real one does, and as a broken one. Real time.
#include <memory>

#include <gmock/gmock.h>

#include "fixture/FakeLinuxcnc.h"
#include "fixture/Texts.h"
#include "fixture/Waiting.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/platform/states/NcStateTexts.h"
#include "machines/linuxcnc/Axes.h"
#include "machines/linuxcnc/Follower.h"
#include "machines/linuxcnc/Pins.h"
#include "machines/linuxcnc/Points.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int32_t kProcedure = 204;

struct TEvents final : IDriverEvents {
  void Away(const std::string& why) override {
    TGuard guard(Lock);
    Told.push_back(why);
    AtMs = Clock().MonotonicMs();
  }
  void Back() override {
    if (AtBack) AtBack();
    TGuard guard(Lock);
    Told.push_back("back");
  }
  std::string Last() {
    TGuard guard(Lock);
    return Told.empty() ? "" : Told.back();
  }
  std::ptrdiff_t Count(const char* what) {
    TGuard guard(Lock);
    return std::ranges::count(Told, what);
  }
  std::function<void()> AtBack;  // set before the link starts
  TCriticalSection Lock;
  std::vector<std::string> Told;
  std::uint64_t AtMs = 0;
};

class LinuxcncDriver : public testing::Test {
 protected:
  LinuxcncDriver() {
    Beat.KeepDoing(5, [this] {
      if (Alive) Watch.BeatMs = Clock().MonotonicMs();
    });
  }
  ~LinuxcncDriver() override {
    Link.End();
    Beat.End();
  }
  void Start() {
    const TResult<> started = Link.Start();
    ASSERT_TRUE(started) << started.Problem().Text();
  }
  std::string WhyNot() {
    const TResult<> started = Link.Start();
    return started ? "" : started.Problem().Text();
  }
  // What a call is refused with.
  template <class Act>
  static std::string Refused(const Act& act) {
    return Thrown<std::runtime_error>(act);
  }
  [[nodiscard]] bool Ends(TLncUnit unit) {
    return Comes([&] { return !Link.Busy(unit); });
  }
  // How long until the driver says that LinuxCNC is away, after `act`.
  template <class Act>
  std::uint64_t AwayAfter(const Act& act) {
    const std::uint64_t from = Clock().MonotonicMs();
    act();
    EXPECT_TRUE(Comes([&] { return !Link.WhyAway().empty() && Events.Last() != ""; }));
    return Events.AtMs - from;
  }

  TNcWatch Watch;
  TInstalled<TNcWatch> FWatch{Watch};
  std::atomic<bool> Alive{true};
  TSideThreads Beat;
  TFakeLinuxcnc Cnc;
  TEvents Events;
  TLncLink Link{Cnc.Config(), Events};
  TLncMotion Motion{Link};
  TLncFocus Focus{Link};
  TLncFollower Follower{Link};
};

TEST_F(LinuxcncDriver, AMoveIsOneWholeLineAndBusyUntilItsTargetIsReached) {
  Start();
  Motion.MoveXY({100.0, 50.0}, 500.0);
  EXPECT_TRUE(Motion.IsBusy());
  EXPECT_FALSE(Follower.IsBusy());
  ASSERT_TRUE(Ends(luXY));
  EXPECT_NEAR(Motion.GetPos(0), 100.0, TLncLink::kArrivedMm);
  Focus.MoveFocus(-3.0, 0.0);
  ASSERT_TRUE(Ends(luFocus));
  Motion.TurnAxis(2, 0.5, 2.0);
  ASSERT_TRUE(Ends(luTurn));
  EXPECT_NEAR(Motion.GetPos(2), 0.5, 1e-3);
  const TPoint2 round[] = {{110.0, 50.0}, {110.0, 60.0}, {100.0, 50.0}};
  Motion.MoveCurve(round, 200.0);
  ASSERT_TRUE(Ends(luXY));
  EXPECT_THAT(Cnc.Told(), ElementsAre("mode MDI", "mdi G90 G21 G94 G61 G53 G1 X100.0000 Y50.0000 F30000.000",
                                      "mdi G90 G21 G94 G61 G53 G1 W-3.0000 F6000.000",
                                      "mdi G90 G21 G94 G61 G53 G1 A180.0000 F43200.000",
                                      "mdi G90 G21 G94 G61 G53 G1 X110.0000 Y50.0000 F12000.000",
                                      "mdi G90 G21 G94 G61 G53 G1 X110.0000 Y60.0000 F12000.000",
                                      "mdi G90 G21 G94 G61 G53 G1 X100.0000 Y50.0000 F12000.000"));
  EXPECT_NEAR(Cnc.At(laX), 100.0, 1e-9);
}

TEST_F(LinuxcncDriver, AStopHoldsAtOnceAndLetsGoOnlyAfterTheAbort) {
  Start();
  Motion.MoveXY({3000.0, 0.0}, 300.0);
  ASSERT_TRUE(Comes([&] { return Cnc.At(laX) > 20.0; }));
  Focus.MoveFocus(5.0, 0.0);  // waits behind it
  Cnc.RefusedAborts = 3;
  Motion.StopAll(0);
  ASSERT_TRUE(Comes([&] { return Cnc.Output("inhibit") != 0.0; }, 100));
  const double at = Cnc.At(laX);
  EXPECT_TRUE(Motion.IsBusy());
  ASSERT_TRUE(Ends(luXY));
  ASSERT_TRUE(Comes([&] { return Cnc.Output("inhibit") == 0.0; }));
  EXPECT_EQ(Cnc.At(laX), at) << "it went on when it was let go";
  EXPECT_TRUE(std::ranges::count(Cnc.Told(), "abort"));
  ASSERT_TRUE(Ends(luFocus));
  EXPECT_NEAR(Cnc.At(laFocus), 5.0, 1e-9) << "what another port waits for goes on";
  // A stop of what rests tells LinuxCNC nothing.
  const auto told = Cnc.Told().size();
  Motion.StopAll(0);
  Focus.Stop(1);
  EXPECT_FALSE(Motion.IsBusy());
  EXPECT_EQ(Cnc.Told().size(), told);
}

TEST_F(LinuxcncDriver, AMoveThatEndsElsewhereHasFailedAndSaysWhere) {
  Start();
  Motion.MoveXY({1000.0, 0.0}, 200.0);
  ASSERT_TRUE(Comes([&] { return Cnc.At(laX) > 10.0; }));
  Cnc.AbortByHand();
  std::string why;
  ASSERT_TRUE(Comes([&] { return !(why = Refused([&] { static_cast<void>(Motion.IsBusy()); })).empty(); }));
  EXPECT_THAT(why, HasSubstr("LinuxCNC has ended the move with X at"));
  Motion.StopAll(0);
  ASSERT_TRUE(Ends(luXY));
  Cnc.ForgetsLines = true;  // acknowledged, and not done
  Motion.MoveXY({0.0, 0.0}, 200.0);
  EXPECT_TRUE(Comes([&] { return !Refused([&] { static_cast<void>(Motion.IsBusy()); }).empty(); }));
}

// linuxcncrsh takes the requests of all connections apart in the same memory.
TEST_F(LinuxcncDriver, RequestsThatLinuxcncMixesUpAreAskedAgain) {
  Start();
  Cnc.MixesUp = true;
  Link.NoteState(kProcedure);
  for (const double x : {20.0, 40.0, 60.0, 80.0, 100.0}) {
    Motion.MoveXY({x, 0.0}, 0.0);
    ASSERT_TRUE(Ends(luXY));
    EXPECT_NEAR(Motion.GetPos(0), x, TLncLink::kArrivedMm);
  }
  const std::uint64_t told = Cnc.FeedOverrides();
  ASSERT_TRUE(Comes([&] { return Cnc.FeedOverrides() > told + 8; }));
  EXPECT_EQ(Events.Last(), "");
}

TEST_F(LinuxcncDriver, WhatIsNotReadyMovesNothingAndSaysWhatIsToBeDone) {
  Cnc.Estop = true, Cnc.On = false;
  Start();
  const auto move = [&] { return Refused([&] { Motion.MoveXY({1.0, 1.0}, 10.0); }); };
  EXPECT_THAT(move(), HasSubstr("emergency stop"));
  Cnc.Estop = false;
  ASSERT_TRUE(Comes([&] { return !Link.Status().Estop; }));
  EXPECT_THAT(move(), HasSubstr("machine is off"));
  Cnc.On = true, Cnc.Latch = false;
  ASSERT_TRUE(Comes([&] { return Link.Status().On && !Link.Hal().IsOn(kPinLatch); }));
  EXPECT_THAT(move(), HasSubstr("latch in HAL is down"));
  Cnc.Latch = true, Cnc.Homed = false;
  ASSERT_TRUE(Comes([&] { return Link.Hal().IsOn(kPinLatch) && !Link.Homed(laX); }));
  EXPECT_THAT(move(), HasSubstr("X of LinuxCNC is not homed")) << "only its jog keys move it";
  EXPECT_THAT(Refused([&] { Focus.MoveFocus(1.0, 0.0); }), HasSubstr("Focus of LinuxCNC is not homed"));
  EXPECT_THAT(Refused([&] { Follower.Follow(1.0); }), HasSubstr("Z of LinuxCNC is not homed"));
  EXPECT_THAT(Cnc.Told(), IsEmpty());
  Link.NoteState(StateNumber(csJogging));
  Motion.MoveXY({5.0, 0.0}, 500.0);
  ASSERT_TRUE(Ends(luXY));
  EXPECT_THAT(Cnc.Told(), ElementsAre("jog_incr 0 1200.000 5.0000"));
  EXPECT_EQ(Events.Last(), "");
}

TEST_F(LinuxcncDriver, ALatchThatTheLastControllerLeftUpIsNotTakenForItsOwn) {
  const std::uint64_t from = Clock().MonotonicMs();
  Beat.KeepDoing(5, [&] {
    if (Clock().MonotonicMs() - from > kHalLatchMs) Cnc.Latch = false;
  });
  Start();
  EXPECT_FALSE(Link.Hal().IsOn(kPinLatch));
}

TEST_F(LinuxcncDriver, TargetsOutsideTheLimitsAndNoNumbersAreRefused) {
  Start();
  EXPECT_THAT(Refused([&] { Motion.MoveXY({3001.0, 0.0}, 0.0); }), HasSubstr("X 3001.000 lies outside 0.000 to 3000"));
  EXPECT_THAT(Refused([&] { Motion.MoveXY({0.0, std::nan("")}, 0.0); }), HasSubstr("Y"));
  EXPECT_THAT(Refused([&] { Follower.MoveZ(121.0, 0.0); }), HasSubstr("Z 121.000"));
  EXPECT_THAT(Refused([&] { Follower.Follow(16.0); }), HasSubstr("cannot be followed"));
  EXPECT_THAT(Refused([&] { Motion.TurnAxis(5, 1.0, 0.0); }), HasSubstr("axis 5"));
  EXPECT_THAT(Cnc.Told(), IsEmpty());
}

TEST_F(LinuxcncDriver, WhatWasReadAtALimitMayBeARoundingBeyondIt) {
  Start();
  Motion.MoveXY({5.0, -1e-6}, 0.0);
  ASSERT_TRUE(Ends(luXY));
  EXPECT_EQ(Events.Last(), "");
  EXPECT_THAT(Refused([&] { Motion.MoveXY({5.0, -0.006}, 0.0); }), HasSubstr("Y -0.006 lies outside"));
}

TEST_F(LinuxcncDriver, FollowingIsGivenBackBeforeZMovesByTheMachine) {
  Link.OnFrame([&](std::uint64_t now) { Follower.Take(now); });
  ASSERT_TRUE(Link.Start());
  Follower.MoveZ(60.0, 0.0);
  ASSERT_TRUE(Ends(luZ));
  EXPECT_NEAR(Cnc.At(laZ), -60.0, 1e-9);
  Follower.Follow(1.0);
  EXPECT_TRUE(Follower.IsBusy());
  ASSERT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
  EXPECT_TRUE(Follower.IsFollowing());
  EXPECT_NEAR(Follower.GetZ(), 79.0, 0.1);
  Follower.MoveZ(10.0, 0.0);
  EXPECT_FALSE(Follower.IsFollowing());
  ASSERT_TRUE(Ends(luZ));
  EXPECT_NEAR(Cnc.At(laZ), -10.0, 1e-9);
  EXPECT_EQ(Cnc.Output("follow") + Cnc.Output("follow-clear"), 0.0);
  Follower.Follow(1.0);
  ASSERT_TRUE(Comes([&] { return Cnc.At(laZ) < -20.0; }));
  Follower.Stop(1);
  ASSERT_TRUE(Comes([&] { return Cnc.Output("follow") == 0.0 && !Follower.IsBusy(); }));
  EXPECT_FALSE(Follower.IsFollowing());
}

TEST_F(LinuxcncDriver, AHeadThatLosesItsPlateStaysWhereItIsAndEndsWhatRuns) {
  TNcStateFramework states;
  TSideThreads beat;
  beat.KeepDoing(5, [&] { states.Watch().BeatMs = Clock().MonotonicMs(); });
  // Its threads ask the framework, and end first.
  const std::unique_ptr<TLncLink, void (*)(TLncLink*)> end(&Link, [](TLncLink* link) { link->End(); });
  Link.OnFrame([&](std::uint64_t now) { Follower.Take(now); });
  ASSERT_TRUE(Link.Start());
  Follower.MoveZ(60.0, 0.0);
  ASSERT_TRUE(Ends(luZ));
  const auto ended = [&] {
    const bool posted = Comes([&] { return states.Watch().EndPosted.load() != nullptr; });
    states.RunOnce();
    EXPECT_EQ(states.EndCause(), posted ? Show(SPlateLost) : "");
    EXPECT_FALSE(Follower.IsFollowing() || Follower.IsBusy());
    EXPECT_TRUE(Comes([&] { return Cnc.Output("follow") == 0.0; }));
    return posted;
  };
  Follower.Follow(1.0);
  ASSERT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
  states.RunOnce();
  EXPECT_EQ(states.Watch().EndPosted.load(), nullptr);
  Cnc.Plate = false;
  EXPECT_TRUE(ended());
  EXPECT_LT(Follower.GetZ(), 115.0) << "the loop does not bring it down to the end of the axis";
  Follower.Follow(1.0);  // there is none from the beginning: searched for down to the end
  EXPECT_TRUE(ended());
  EXPECT_NEAR(Follower.GetZ(), 120.0, 0.2);
}

TEST_F(LinuxcncDriver, ACalibrationLooksAtTheSensorAndReturns) {
  Link.OnFrame([&](std::uint64_t now) { Follower.Take(now); });
  ASSERT_TRUE(Link.Start());
  const auto calibrate = [&] {
    Follower.StartCalibrate();
    EXPECT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
    return Follower.GetCaliResult();
  };
  Follower.MoveZ(30.0, 0.0);
  ASSERT_TRUE(Ends(luZ));
  const TNcCaliResult good = calibrate();
  EXPECT_EQ(good.ErrorType, TSensorJudgement::jeGood);
  EXPECT_NEAR(good.Cap, 61.1 + 0.4 / 1.1, 0.02);
  EXPECT_EQ(good.SteadyLv, 1);
  EXPECT_NEAR(Follower.GetZ(), 30.0, 0.01);
  Cnc.Wave = 0.1;
  EXPECT_EQ(calibrate().ErrorType, TSensorJudgement::jeNotSmooth);
  Cnc.Wave = 0.0, Cnc.Plate = false;
  EXPECT_EQ(calibrate().ErrorType, TSensorJudgement::jeNoPlate);
  Follower.StartCalibrate();
  Follower.Stop(1);
  ASSERT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
  EXPECT_EQ(Follower.GetCaliResult().ErrorType, TSensorJudgement::jeInterrupted);
}

TEST_F(LinuxcncDriver, WhatContradictsTheMachineFileRefusesTheStart) {
  Cnc.Inches = true;
  EXPECT_THAT(WhyNot(), HasSubstr("does not count in mm"));
  Cnc.Inches = false;
  Cnc.MaxX = 2000.0;
  EXPECT_TRUE(
      Comes([&] { return WhyNot().find("the limits of axis X are wider than LinuxCNC's") != std::string::npos; }));
  TLncConfig wrong = Cnc.Config();
  Cnc.MaxX = 3000.0;
  wrong.Rsh.Enable = "wrong";
  TLncLink refused(wrong, Events);
  EXPECT_TRUE(Comes([&] { return refused.Start().Problem().Text().find("command it") != std::string::npos; }));
  Cnc.HalTaken = true;
  TLncLink second(wrong, Events);
  EXPECT_THAT(second.Start().Problem().Text(), HasSubstr("(another controller commands it); end the other"));
  wrong.HalSocket += ".none";
  TLncLink nobody(wrong, Events);
  EXPECT_THAT(nobody.Start().Problem().Text(), HasSubstr("ixocut-hal does not answer"));
}

TEST_F(LinuxcncDriver, WhatMovesWithoutAnOrderWhileSomethingRunsIsInAnothersHands) {
  Link.OnFrame([&](std::uint64_t now) { Follower.Take(now); });
  Start();
  Cnc.PushByHand(laX, 5.0);
  ASSERT_TRUE(Comes([&] { return Motion.GetPos(0) > 4.0; }));
  Link.NoteState(kProcedure);
  Motion.MoveXY({200.0, 100.0}, 0.0);
  ASSERT_TRUE(Ends(luXY));
  Follower.MoveZ(60.0, 0.0);
  ASSERT_TRUE(Ends(luZ));
  Follower.Follow(1.0);
  ASSERT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
  Follower.Stop(1);
  Motion.MoveXY({2000.0, 100.0}, 0.0);
  ASSERT_TRUE(Comes([&] { return Link.Moving(laX); }));
  Link.StopAll();
  ASSERT_TRUE(Ends(luXY));
  Clock().Sleep(300);
  EXPECT_EQ(Events.Last(), "") << "all of that was ordered, or in standby";
  EXPECT_LE(AwayAfter([&] { Cnc.PushByHand(laY, 0.1); }), 1500U);
  EXPECT_THAT(Events.Last(), HasSubstr("axis Y of LinuxCNC was moved by somebody else"));
}

TEST_F(LinuxcncDriver, WhatFollowingHasMovedIsNobodyElsesHoweverSeldomItIsLookedAt) {
  Link.OnFrame([&](std::uint64_t now) { Follower.Take(now); });
  Start();
  Link.NoteState(kProcedure);
  Follower.MoveZ(60.0, 0.0);
  ASSERT_TRUE(Ends(luZ));
  Cnc.GetMs = 60;  // so that there is a look every 300 ms
  for (int i = 0; i < 3; ++i) {
    Follower.Follow(1.0);
    ASSERT_TRUE(Comes([&] { return !Follower.IsBusy(); }));
    Clock().Sleep(650);
    Link.Hal().Set("follow-height", 3.0);  // as over a plate that is not even
    ASSERT_TRUE(Comes([&] { return Cnc.At(laZ) > -77.5 && !Link.Moving(laZ); }));
    Follower.Stop(1);
    Clock().Sleep(650);
  }
  EXPECT_EQ(Events.Last(), "");
}

// What the driver says, and what LinuxCNC hears of it, when LinuxCNC goes.
TEST_F(LinuxcncDriver, LossIsFoundWithinHalfASecondAndNothingBeatsAnyMore) {
  Start();
  Link.NoteState(kProcedure);
  ASSERT_TRUE(Comes([&] { return Cnc.Beats > 5 && Cnc.FeedOverrides() > 2; }));
  const struct {
    const char* Why;
    std::function<void()> Lose, Mend;
  } cases[] = {
      {"task is silent", [&] { Cnc.TaskSilent = true; }, [&] { Cnc.TaskSilent = false; }},
      {"silent", [&] { Cnc.TextSilent = true; }, [&] { Cnc.TextSilent = false; }},
      {"has closed", [&] { Cnc.CloseText(); }, [] {}},
      {"ixocut-hal is away", [&] { Cnc.HalSilent = true; }, [&] { Cnc.HalSilent = false; }},
      {"ixocut-hal is away", [&] { Cnc.CloseHal(); }, [] {}},
      {"another client commands", [&] { Cnc.StealEnable(); }, [] {}},
      {"emergency stop", [&] { Cnc.Estop = true, Cnc.On = false; }, [&] { Cnc.Estop = false, Cnc.On = true; }},
      {"switched off", [&] { Cnc.On = false; }, [&] { Cnc.On = true; }},
      {"mode AUTO", [&] { Cnc.TakeMode("AUTO"); }, [&] { Cnc.TakeMode("MDI"); }},
      {"was unhomed", [&] { Cnc.Homed = false; }, [&] { Cnc.Homed = true; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Why);
    Motion.MoveXY({Cnc.At(laX) > 1000.0 ? 0.0 : 2000.0, 0.0}, 300.0);
    ASSERT_TRUE(Comes([&] { return Link.Moving(laX); }));
    EXPECT_LE(AwayAfter(c.Lose), 1500U);
    EXPECT_THAT(Events.Last(), HasSubstr(c.Why));
    EXPECT_THAT(Refused([&] { Motion.MoveXY({1.0, 1.0}, 0.0); }), HasSubstr(c.Why));
    const std::uint64_t beats = Cnc.Beats;
    Clock().Sleep(60);
    EXPECT_LE(Cnc.Beats, beats + 1);
    c.Mend();
    Clock().Sleep(30);
    EXPECT_NE(Events.Last(), "back") << "a procedure still runs";
    Link.NoteState(0);
    ASSERT_TRUE(Comes([&] { return Events.Last() == "back"; }));
    const double rests = Cnc.At(laX);
    Clock().Sleep(50);
    EXPECT_EQ(Cnc.At(laX), rests) << "it moves by itself";
    const auto told = Cnc.Told();
    EXPECT_EQ(told.back(), "abort");
    Link.NoteState(kProcedure);
    ASSERT_TRUE(Comes([&] { return Cnc.Beats > beats + 3; }));
  }
}

TEST_F(LinuxcncDriver, WhatIsLostWhileItIsToldToBeBackIsToldBehindThat) {
  Events.AtBack = [this, first = true]() mutable {
    if (!std::exchange(first, false)) return;
    Cnc.CloseHal();
    EXPECT_TRUE(Comes([&] { return !Link.Hal().IsOpen(); }));
    Clock().Sleep(50);
  };
  Start();
  Cnc.CloseHal();
  ASSERT_TRUE(Comes([&] { return Events.Count("back") == 2; }));
  TGuard guard(Events.Lock);
  EXPECT_THAT(Events.Told, ElementsAre(HasSubstr("is away"), "back", HasSubstr("is away"), "back"));
}

// Another client may have left lines that wait.
TEST_F(LinuxcncDriver, WhoCommandsAgainIsBackOnlyBehindAnAbort) {
  std::ptrdiff_t aborts = 0;
  Events.AtBack = [&] { aborts = std::ranges::count(Cnc.Told(), "abort"); };
  Start();
  Link.NoteState(kProcedure);
  ASSERT_TRUE(Comes([&] { return Cnc.FeedOverrides() > 2; }));
  AwayAfter([&] { Cnc.Homed = false; });
  const auto told = [&] { return std::ranges::count(Cnc.Told(), "abort"); };
  ASSERT_TRUE(Comes([&] { return told() > 0 && Cnc.Output("inhibit") == 0.0; }));
  const std::ptrdiff_t before = told();
  Cnc.Homed = true;
  Cnc.StealEnable();
  Clock().Sleep(1000);  // it was asked for a sign of life, and has refused that
  Link.NoteState(0);
  EXPECT_TRUE(Comes([&] { return Events.Last() == "back"; }));
  Link.End();
  EXPECT_GT(aborts, before);
}

TEST_F(LinuxcncDriver, NothingIsSaidToHalBeforeTheHello) {
  THalClient hal(Cnc.Config().HalSocket);
  std::atomic<bool> done{false};
  TSideThreads teller;
  teller.KeepDoing(1, [&] {
    while (!done && hal.Set("laser", 0.0) == 0) {
    }
  });
  for (int i = 0; i < 20; ++i) {
    hal.Close();
    Clock().Sleep(3);  // it is tried again and again by then
    const TResult<> open = hal.Open();
    EXPECT_TRUE(open) << open.Problem().Text();
  }
  done = true;
  teller.End();
}

TEST_F(LinuxcncDriver, AConnectionThatIsMadeBehindTheEndWaitsForNobody) {
  TRshTurn turn;
  TRshClient late(Cnc.Config().Rsh, "late", turn);
  Cnc.TextSilent = true;
  late.Cancel();
  const std::uint64_t from = Clock().MonotonicMs();
  EXPECT_FALSE(late.Open(true));
  EXPECT_LT(Clock().MonotonicMs() - from, TRshClient::kOpenLimitMs / 2);
}

TEST_F(LinuxcncDriver, TheTaskIsAskedForLifeWhileItChangesItsModeAndWhileAStopWaitsForRest) {
  Start();
  Link.NoteState(kProcedure);
  Cnc.ForgetsModes = true;
  Motion.MoveXY({100.0, 0.0}, 0.0);
  ASSERT_TRUE(Comes([&] { return std::ranges::count(Cnc.Told(), "mode MDI") > 0; }));
  std::uint64_t told = Cnc.FeedOverrides();
  ASSERT_TRUE(Comes([&] { return !Refused([&] { static_cast<void>(Motion.IsBusy()); }).empty(); }));
  EXPECT_GE(Cnc.FeedOverrides(), told + 3) << "1000 ms, one in 200 ms";

  Cnc.ForgetsModes = false;
  Motion.StopAll(0);
  ASSERT_TRUE(Ends(luXY));
  Motion.MoveXY({3000.0, 0.0}, 300.0);
  ASSERT_TRUE(Comes([&] { return Link.Moving(laX); }));
  Cnc.Coasts = 20.0;
  Motion.StopAll(0);
  told = Cnc.FeedOverrides();
  Clock().Sleep(1000);
  EXPECT_TRUE(Motion.IsBusy());
  EXPECT_GE(Cnc.FeedOverrides(), told + 3);
  // What does not come to rest is not let go, and nothing is ready before it has.
  ASSERT_TRUE(Comes([&] { return Events.Last() != ""; }));
  EXPECT_THAT(Events.Last(), HasSubstr("do not come to rest"));
  EXPECT_THAT(Refused([&] { static_cast<void>(Motion.IsBusy()); }), HasSubstr("do not come to rest"));
  Link.NoteState(0);
  Clock().Sleep(200);
  EXPECT_EQ(Cnc.Output("inhibit"), 1.0);
  EXPECT_NE(Events.Last(), "back");
  Cnc.Coasts = 0.0;
  EXPECT_TRUE(Comes([&] { return Events.Last() == "back" && Cnc.Output("inhibit") == 0.0; }));
}

TEST_F(LinuxcncDriver, WhatMovedWhenItWasHeardOfLastDoesNotRest) {
  Start();
  Motion.MoveXY({3000.0, 0.0}, 300.0);
  ASSERT_TRUE(Comes([&] { return Link.Moving(laX); }));
  Cnc.HalSilent = true;
  Clock().Sleep(150);
  EXPECT_TRUE(Link.Moving(laX)) << "it was not seen to rest";
}

TEST_F(LinuxcncDriver, NothingBeatsForAStateThreadThatHangs) {
  Start();
  ASSERT_TRUE(Comes([&] { return Cnc.Beats > 5; }));
  Alive = false;
  Clock().Sleep(400);
  const std::uint64_t beats = Cnc.Beats;
  Clock().Sleep(100);
  EXPECT_EQ(Cnc.Beats, beats);
  EXPECT_EQ(Events.Last(), "");
  EXPECT_FALSE(Link.Hal().Value("laser").value_or(1.0));
}

TEST_F(LinuxcncDriver, PointsArePinsThatAreReadBackAndRearmComesAfterAnAbort) {
  Start();
  THalPoint laser(Link, pkOutput, "hal:laser", "laser");
  THalPoint gap(Link, pkAnalogIn, "hal:gap", "gap");
  THalPoint rearm(Link, pkOutput, "hal:rearm", "rearm");
  EXPECT_TRUE(laser.Check());
  EXPECT_THAT(THalPoint(Link, pkInput, "hal:laser", "laser").Check().Problem().Text(), HasSubstr("another kind"));
  EXPECT_THAT(THalPoint(Link, pkInput, "hal:none", "none").Check().Problem().Text(), HasSubstr("no pin \"none\""));
  EXPECT_THAT(HalPointName(pkOutput, "hal:inhibit").Problem().Text(), HasSubstr("by itself"));
  EXPECT_THAT(HalPointName(pkInput, "coil:3").Problem().Text(), HasSubstr("hal:laser"));
  laser.Write(1.0);
  ASSERT_TRUE(Comes([&] {
    laser.Write(1.0);  // as often as it likes
    return laser.Settled();
  }));
  EXPECT_TRUE(laser.IsOn());
  EXPECT_NEAR(gap.Read(), 15.0, 0.1);
  laser.Write(0.0);
  rearm.Write(1.0);
  EXPECT_FALSE(rearm.Settled());
  rearm.Write(0.0);
  ASSERT_TRUE(Comes([&] { return Cnc.Rearms == 1; }));
  EXPECT_EQ(Cnc.Told().back(), "abort");
  Cnc.HalSilent = true;
  ASSERT_TRUE(Comes([&] { return Events.Last() != ""; }));
  EXPECT_THROW(laser.Write(1.0), EDeviceAway);
  EXPECT_NO_THROW(laser.Write(0.0));
  EXPECT_THROW(static_cast<void>(gap.Read()), EDeviceAway);
}

}  // namespace
}  // namespace ixocamglue::test
