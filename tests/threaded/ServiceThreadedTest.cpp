// A controller that stays up, with real threads: stop and all-off, also while the state thread hangs, and its end.
#include <algorithm>

#include <gtest/gtest.h>

#include "fixture/ServiceWorld.h"

namespace ixocamglue::test {
namespace {

const nlohmann::json kLongMove{{"procedure", "move-xy"}, {"params", {{"x", 2500}, {"y", 1200}, {"speed", 20}}}};

std::uint64_t MsOf(const std::function<void()>& what) {
  const auto from = std::chrono::steady_clock::now();
  what();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - from).count());
}

TEST(ServiceThreaded, AllOffStopsTheMachineWhileTheStateThreadHangs) {
  TServiceWorld world(true);
  (void)world.StartRun(kLongMove);
  ASSERT_TRUE(Comes([&] { return world.Machine().Snapshot().AxesMoving; }));
  TCallGate& gate = world.Machine().Gate();
  gate.PlanSet({.Call = gate.Calls() + 2, .Fault = gfHang, .HangMs = 1200});
  ASSERT_TRUE(Comes([&] { return gate.Fired(); }));

  EXPECT_LE(MsOf([&] { EXPECT_EQ(world.Ask("POST", "all-off").Status, 202); }), 15U);
  EXPECT_TRUE(world.Machine().LaserDevice().LatchReason() != nullptr);
  EXPECT_TRUE(Comes([&] { return !world.Machine().Snapshot().AxesMoving; }, 300));
  EXPECT_EQ(world.Service.Controller().Framework().CurrentState(), nsCustomMotion) << "it hangs no more";
  EXPECT_EQ(world.Ask("POST", "reset").Status, 409);

  const TJson report = world.Report(1);
  EXPECT_EQ(report["outcome"], "stopped") << report.dump();
  EXPECT_FALSE(world.Machine().Snapshot().Moving());
  TApiReply reset;
  EXPECT_TRUE(Comes([&] {
    reset = world.Ask("POST", "reset");
    return reset.Status == 200;
  })) << reset.Body.dump();
}

TEST(ServiceThreaded, AStopIsMadePastAStepThatDoesNotReturn) {
  TServiceWorld world(true);
  world.Machine().LaserDevice().SetEmissionScript(TEmissionScript::Never());
  (void)world.StartRun({{"name", "waits"}, {"calls", {{{"command", "laser-on"}}, {{"command", "laser-off"}}}}});
  const auto called = [&](const char* device, const char* verb) {
    const auto entries = world.Service.Controller().Journal().Entries();
    return std::ranges::any_of(
        entries, [&](const TJournalEntry& entry) { return entry.Device == device && entry.Verb == verb; });
  };
  ASSERT_TRUE(Comes([&] { return called("laser", "EmissionOn"); }));
  const std::uint64_t polls = RealMs() + 200;
  ASSERT_TRUE(Comes([&] { return RealMs() > polls; }));
  EXPECT_EQ(world.Ask("POST", "stop").Status, 202);
  EXPECT_TRUE(Comes([&] { return called("machine", "StopNow"); }));
  EXPECT_FALSE(called("laser", "EmissionOff")) << "the step returns in 5 s only";
  EXPECT_EQ(world.Report(1)["outcome"], "stopped");
  EXPECT_TRUE(called("laser", "EmissionOff"));
  EXPECT_FALSE(world.Service.IsAllOff());
}

TEST(ServiceThreaded, StopComesThroughFromAnyThreadAndTheEndIsDarkWithinThreeSeconds) {
  TServiceWorld world(true);
  const std::uint64_t id = world.StartRun(kLongMove);
  ASSERT_TRUE(Comes([&] { return world.Machine().Snapshot().AxesMoving; }));
  world.Service.Stop(TServiceWorld::Operator());
  EXPECT_EQ(world.Report(id)["outcome"], "stopped");

  (void)world.StartRun(kLongMove);
  ASSERT_TRUE(Comes([&] { return world.Machine().Snapshot().AxesMoving; }));
  EXPECT_LE(MsOf([&] { world.Service.End(); }), 3U * 3000);
  const TMachineSnapshot last = world.Machine().Snapshot();
  EXPECT_FALSE(last.Moving() || last.Laser || last.Emission || last.Gas);
}

TEST(ServiceThreaded, ManyReadStopAndAskWhileRunsBeginAndEnd) {
  TServiceWorld world(true);
  std::uint64_t seen = 0;
  TSideThreads others;
  others.KeepDoing(1, [&] { (void)StatusJson(*world.Service.Status()); });
  others.KeepDoing(2, [&] {
    for (const TServiceEvent& event : world.Service.Events().Read(seen).Events) {
      EXPECT_GT(event.Number, std::exchange(seen, event.Number));
      (void)event.Body();
    }
  });
  others.KeepDoing(31, [&] { world.Service.Stop(TServiceWorld::Operator()); });
  others.KeepDoing(97, [&] { world.Service.AllOff(TServiceWorld::Operator()); });
  others.KeepDoing(5, [&] {
    world.Service.Connected(5);
    world.Service.Disconnected(5);
  });
  std::size_t begun = 0;
  for (int i = 0; i < 60; ++i) {
    (void)world.Ask("POST", "reset");
    begun += world.Ask("POST", "runs", {{"procedure", "delay"}, {"params", {{"ms", 20}}}}).Status == 201;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  others.End();
  EXPECT_GT(begun, 0U);
  EXPECT_TRUE(Comes([&] {
    bool busy = true;
    world.Do([&] { busy = world.Service.Runner().Busy(); });
    return !busy && world.Ask("POST", "reset").Status == 200;
  }));
  EXPECT_EQ(world.Report(world.StartRun({{"procedure", "delay"}, {"params", {{"ms", 1}}}}))["outcome"], "success");
}

}  // namespace
}  // namespace ixocamglue::test
