// Where an ended list may begin again, and that nothing else ever does.
#include <gmock/gmock.h>

#include "controller/runs/Reentry.h"
#include "controller/service/Continue.h"
#include "controller/service/ReadyCheck.h"
#include "fixture/ConfiguredMachine.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

std::vector<TMotionCall> Calls(const std::vector<std::pair<const char*, TMotionValues>>& list) {
  std::vector<TMotionCall> calls;
  for (const auto& [name, values] : list) {
    calls.push_back({FindProcedure(name), values, {}});
    calls.back().Values.resize(calls.back().Row->Params.size());
  }
  return calls;
}

class Continuing : public TConfiguredMachine {
 protected:
  // The number of the call that is the first again, from 1; or why there is none.
  static std::string First(const std::vector<std::pair<const char*, TMotionValues>>& list, std::size_t ended,
                           const TListMachine& machine = {}) {
    const auto found = FindReentry(Calls(list), ended - 1, machine);
    return found ? std::to_string(found->From + 1) : found.Problem().What;
  }
};

const std::string kNowhere = "there is no place where it may begin again";

TEST_F(Continuing, AListBeginsAgainOnlyAtARaisedMoveThatIsDarkWithoutGasFollowingOrOutputs) {
  const TMotionValues a{40, 30}, b{80, 30};
  EXPECT_EQ(First({{"safe-move", a}, {"shot", {60}}, {"safe-move", b}, {"shot", {60}}}, 2), "1");
  EXPECT_EQ(First({{"safe-move", a}, {"shot", {60}}, {"safe-move", b}, {"shot", {60}}}, 4), "3");
  EXPECT_EQ(First({{"safe-move", a}, {"laser-on", {}}, {"delay", {9}}, {"laser-off", {}}}, 3), "1");
  EXPECT_EQ(First({{"laser-on", {}}, {"safe-move", a}, {"laser-off", {}}}, 2), kNowhere);
  EXPECT_EQ(First({{"emission-on", {}}, {"beam-on", {}}, {"beam-off", {}}, {"safe-move", a}}, 4), kNowhere);
  EXPECT_EQ(First({{"emission-on", {}}, {"laser-off", {}}, {"safe-move", a}}, 3), "3");
  EXPECT_EQ(First({{"gas-on", {1, 2}}, {"safe-move", a}, {"gas-off", {}}}, 2), kNowhere);
  EXPECT_EQ(First({{"gas-hold", {}}, {"safe-move", a}}, 2), kNowhere);
  EXPECT_EQ(First({{"gas-on", {1, 2}}, {"gas-off", {}}, {"safe-move-xyz", {40, 30, {}, 20}}, {"delay", {9}}}, 4), "3");
  EXPECT_EQ(First({{"follow", {1}}, {"safe-move", a}}, 2), kNowhere);
  EXPECT_EQ(First({{"follow", {1}}, {"safe-z", {}}, {"safe-move", a}}, 3), "3");
  EXPECT_EQ(First({{"output-on", {5}}, {"safe-move", a}}, 2), kNowhere);
  EXPECT_EQ(First({{"output-on", {5}}, {"output-off", {5}}, {"safe-move", a}}, 3), "3");
  for (const char* name : {"move-xy", "move-work", "safe-z", "move-z", "shot", "clean-nozzle-auto", "auto-calibrate"})
    EXPECT_EQ(First({{name, FindProcedure(name)->Sample}, {"delay", {9}}}, 2), kNowhere) << name;
}

TEST_F(Continuing, WhatTakesOrLeavesANozzleIsNeverDoneTwice) {
  const std::vector<std::pair<const char*, TMotionValues>> change{{"safe-move", {40, 30}},
                                                                  {"uninstall-nozzle", {0, 0}},
                                                                  {"safe-move", {80, 30}},
                                                                  {"install-nozzle", {0, 1}},
                                                                  {"safe-move", {0, 0}}};
  EXPECT_EQ(First(change, 2), kNowhere);
  EXPECT_EQ(First(change, 3), "3");
  EXPECT_EQ(First(change, 4), kNowhere);
  EXPECT_EQ(First(change, 5), "5");
  EXPECT_EQ(First({{"change-nozzle", {1, 2}}}, 1), kNowhere);
}

TEST_F(Continuing, WhatIsReadBackHasToBeWhatTheCallsHaveLeft) {
  const std::vector<std::pair<const char*, TMotionValues>> list{
      {"focus", {4}}, {"safe-move", {40, 30}}, {"delay", {9}}};
  TListMachine machine;
  machine.Start.OutputsOn = machine.End.OutputsOn = machine.Now.OutputsOn = {3};
  machine.End.Nozzle = machine.Now.Nozzle = 2;
  machine.Now.Focus = 4.01;
  machine.Now.Pos = {77, 66};  // where it stands by hand: it goes to its place by itself
  EXPECT_EQ(First(list, 3, machine), "2");
  const auto with = [&](auto change) {
    TListMachine changed = machine;
    change(changed.Now);
    return First(list, 3, changed);
  };
  EXPECT_THAT(with([](auto& now) { now.Focus = 4.2; }), HasSubstr("4.20 mm, but 4.00 mm is expected"));
  EXPECT_THAT(with([](auto& now) { now.OutputsOn.push_back(4); }), HasSubstr("3, 4 now, but 3 is expected"));
  EXPECT_THAT(with([](auto& now) { now.Nozzle = 1; }), HasSubstr("nozzle in the head: 1 now, but 2 is expected"));
  EXPECT_THAT(with([](auto& now) { now.DockedTable = 1; }), HasSubstr("docked pallet"));
  for (bool TMachineSnapshot::*const on :
       {&TMachineSnapshot::Laser, &TMachineSnapshot::Emission, &TMachineSnapshot::Gas, &TMachineSnapshot::Following,
        &TMachineSnapshot::Calibrating})
    EXPECT_EQ(with([on](auto& now) { now.*on = true; }), "the machine is not dark and at rest");
  EXPECT_EQ(with([](auto& now) { now.RackMoving = true; }), "something still moves");
  EXPECT_EQ(with([](auto& now) { now.Collisions = 1; }), "something was struck since the list began");
  // Where the focus has to stand nobody has said.
  EXPECT_EQ(First({{"go-maintenance", {}}, {"safe-move", {40, 30}}}, 2), "nobody knows where focus has to stand here");
}

TEST_F(Continuing, EachProcedureThatMayBeReenteredRaisesTheHeadBeforeItTravels) {
  int rows = 0;
  for (const TProcedure* row : Procedures()) {
    if (!row->Flags.Reentry) continue;
    ++rows;
    StartRoot(MakeRoot("low", Calls({{"safe-move", {5, 5}}, {"move-z", {30}}})));
    ASSERT_EQ(Finish(), metSuccess);
    Journal().Clear();
    StartRoot(MakeRoot(row->Name, Calls({{row->Name, row->SampleValues()}})));
    double height = 30;  // when XY was sent off
    for (bool sent = false; !sent && FController.Running();) {
      FController.RunPass();
      for (const TJournalEntry& entry : Journal().Entries())
        sent = sent || (entry.IsCommand() && entry.Verb == "MoveXY");
      if (sent) height = Machine().Snapshot().Z;
    }
    EXPECT_LE(height, CutSystem()->MultiFollower()->GetFollower(0)->GetSafeZ() + 0.01) << row->Name;
    Finish();
  }
  EXPECT_EQ(rows, 6);
}

TEST_F(Continuing, NothingGoesOnWithoutTheConfirmationOfWhatWasShown) {
  TContinue lists;
  const TCallList list{"purge", true,
                       Calls({{"safe-move", {40, 30}}, {"delay", {9}}, {"safe-move", {80, 30}}, {"shot", {60}}})};
  const TStepSpan second{0, 2, 4, 612, "delay", 0, 0}, inner{1, 5, 9, 612, "delay", 0, 0};
  TMachineSnapshot now;
  EXPECT_FALSE(lists.Offer(now, 0));
  lists.Began(7, list, now);
  EXPECT_EQ(lists.Offer(now, 0).Problem().What, "a procedure is running");
  lists.Ended(7, "success", {second}, now);
  EXPECT_FALSE(lists.Offer(now, 0));
  lists.Began(8, list, now);
  lists.Ended(8, "paused", {second, inner}, now);
  const auto offer = lists.Offer(now, 1000);
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->Reentry.Again, (TTexts{"safe-move --x 40 --y 30", "delay --ms 9"}));
  EXPECT_EQ(offer->Reentry.Rest.size(), 2U);
  EXPECT_TRUE(offer->Reentry.LightsBeam);

  EXPECT_FALSE(lists.Confirm("another", now, 1000));
  EXPECT_FALSE(lists.Confirm(offer->Token, now, 1000)) << "a wrong confirmation has used it up";
  const auto late = lists.Offer(now, 1000).Value().Token;
  EXPECT_FALSE(lists.Confirm(late, now, 1001 + kConfirmWithinMs));
  const auto moved = lists.Offer(now, 1000).Value().Token;
  TMachineSnapshot elsewhere = now;
  elsewhere.Pos.X = 5;
  EXPECT_THAT(lists.Confirm(moved, elsewhere, 2000).Problem().What, HasSubstr("not any more"));
  const auto good = lists.Confirm(lists.Offer(now, 1000).Value().Token, now, 2000);
  ASSERT_TRUE(good);
  EXPECT_EQ(good->Calls.size(), 4U);
}

TEST_F(Continuing, TheMachineIsNotReadyWhileAnAlarmTheLatchOrMissingReferencesStandAgainstIt) {
  const auto calls = Calls({{"safe-move", {40, 30}}, {"shot", {60}}});
  const auto why = [&](const std::vector<TMotionCall>& asked) {
    const auto ready = CheckReady(FController, asked);
    return ready ? "" : ready.Problem().What;
  };
  EXPECT_EQ(why(calls), "");
  EXPECT_THAT(why(Calls({{"output-on", {77}}})), HasSubstr("77"));
  Raise(naForbidFollower);
  EXPECT_EQ(why(calls), "an alarm stands");
  FController.Alarms().ClearAll();
  Raise(naRequireOrg);
  EXPECT_EQ(why(calls), "the axes have no references");
  FController.Alarms().ClearAll();
  Machine().Laser()->Trip("test");
  EXPECT_EQ(why({}), "the laser is latched");
}

}  // namespace
}  // namespace ixocamglue::test
