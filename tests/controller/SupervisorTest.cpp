// The supervisor's ladder and the timeline's drawing: plain time, no machine.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/HostTexts.h"
#include "controller/StateFolder.h"
#include "controller/Supervisor.h"
#include "controller/procedures/Timeline.h"
#include "fixture/Faults.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

constexpr std::uint64_t kStart = 1'000'000;

class Supervisor : public testing::Test {
 protected:
  // Rounds every 20 ms up to `untilMs` after kStart, with a state thread that lives unless it is said to be silent.
  void RunUntil(std::uint64_t untilMs) {
    for (; FNow <= kStart + untilMs; FNow += kSupervisorRoundMs) {
      if (!FSilent) FWatch.BeatMs = FNow;
      FSupervisor.Round(FNow);
    }
  }
  TSupervisorActions Actions() {
    const auto tell = [this](const char* what) {
      return [this, what](const std::string&) {
        FStory.push_back(Format("%s %d", what, static_cast<int>(FNow - kStart)));
        if (FActionThrows) throw std::runtime_error("action");
      };
    };
    return {tell("alarm"), tell("stop"), tell("latch")};
  }

  TNcWatch FWatch;
  std::int32_t FState = nsCustomMotion;
  std::uint64_t FNow = kStart;
  bool FSilent = false;
  bool FActionThrows = false;
  TTexts FStory;
  TSupervisor FSupervisor{FWatch, [this] { return FState; }, {}, Actions()};
};

TEST_F(Supervisor, WhateverLastsTooLongGetsAlarmThenStopThenLatch) {
  const struct {
    const char* What;
    std::function<void()> Begin;
    int FirstMs;  // the first round after the limit
  } cases[] = {
      {"silence",
       [&] {
         FSilent = true;
         FWatch.BeatMs = kStart;
       },
       1'020},
      {"laser", [&] { FWatch.LaserOn.Begin(kStart); }, 62'020},
      {"emission", [&] { FWatch.EmissionAsked.Begin(kStart); }, 6'020},
      {"busy", [&] { FWatch.BusySince.Restart(kStart); }, 600'020},
      {"gas", [&] { FWatch.GasOn.Begin(kStart); }, 1'800'020},
  };
  for (const auto& c : cases) {
    FStory.clear();
    FNow = kStart;
    FSilent = false;
    for (TNcSince* since : {&FWatch.LaserOn, &FWatch.EmissionAsked, &FWatch.BusySince, &FWatch.GasOn}) since->End();
    FWatch.BeatMs = FNow;
    FSupervisor.Round(FNow);
    c.Begin();
    RunUntil(static_cast<std::uint64_t>(c.FirstMs) + 10'000);
    EXPECT_EQ(FStory, (TTexts{Format("alarm %d", c.FirstMs), Format("stop %d", c.FirstMs + 1000),
                              Format("latch %d", c.FirstMs + 2000)}))
        << c.What;
  }
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
      FStory.clear();
      FNow = kStart;
      FWatch.EndPosted = nullptr;
      FWatch.EmissionLost = FWatch.BeamRefused = false;
      for (TNcSince* since : {&FWatch.LaserOn, &FWatch.LaserAsked, &FWatch.EmissionAsked}) since->End();
      RunUntil(20);
      FNow = kStart;
      c.Begin();
      RunUntil(80);
      if (darkInTime)
        for (TNcSince* since : {&FWatch.LaserOn, &FWatch.LaserAsked, &FWatch.EmissionAsked}) since->End();
      RunUntil(3'000);
      EXPECT_EQ(FStory, c.Acts && !darkInTime ? (TTexts{"latch 100", "stop 100"}) : TTexts{}) << c.What;
    }
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
