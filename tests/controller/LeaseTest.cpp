// The lease of control, and keys that are held over a connection.
#include <gmock/gmock.h>

#include "controller/service/HeldKeys.h"
#include "controller/service/Lease.h"
#include "fixture/Machine.h"
#include "ixocamglue/platform/ports/CutCommands.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Lease, OneHasItUntilItIsSilentForTenSecondsOrAnotherTakesItOver) {
  TTexts told;
  TLease lease([&](const TLeaseEvent& event) {
    told.push_back(std::string(LeaseChangeWord(event.Change)) + " " + (event.Was ? event.Was->Name : "-") + " " +
                   (event.Now ? event.Now->Name : "-"));
  });
  const TAsker anna{.Name = "anna"}, bert{.Name = "bert"};
  EXPECT_FALSE(lease.Admit("", 0));
  const std::string first = lease.Take(anna, "", false, 0).OrThrow(pbRefused);
  EXPECT_EQ(lease.Take(anna, first, false, 9'000).OrThrow(pbRefused), first) << "renewed";
  EXPECT_THAT(lease.Take(bert, "", false, 10'000).Problem().What, testing::HasSubstr("anna"));
  EXPECT_TRUE(lease.Heartbeat(first, 18'999));
  EXPECT_TRUE(lease.Admit(first, 28'998)) << "each command renews it";
  EXPECT_EQ(lease.LeftMs(30'000), 8'998U);
  EXPECT_FALSE(lease.Admit("0123", 30'000));
  const std::string second = lease.Take(bert, "", true, 30'000).OrThrow(pbRefused);
  EXPECT_NE(second, first);
  EXPECT_THAT(lease.Admit(first, 30'000).Problem().Why, testing::HasSubstr("bert"));
  EXPECT_FALSE(lease.GiveBack(first, 30'000));
  lease.Watch(39'999);
  EXPECT_TRUE(lease.Holder());
  lease.Watch(40'000);
  EXPECT_FALSE(lease.Holder());
  EXPECT_FALSE(lease.Admit("", 40'000)) << "nobody's id is nobody's";
  EXPECT_FALSE(lease.Heartbeat(second, 40'000));
  EXPECT_TRUE(lease.GiveBack(lease.Take(anna, second, false, 40'000).OrThrow(pbRefused), 40'001));
  EXPECT_THAT(told,
              ElementsAre("taken - anna", "takenOver anna bert", "ranOut bert -", "taken - anna", "givenBack anna -"));
}

class HeldKeys : public TMachineTest {
 protected:
  HeldKeys() {
    KBPManager()->SetMap(kMapClientPermit, kAllKeys);
    FGuard.Enable();
  }
  TResult<> Press(const std::string& id, TKeyCode key, std::uint64_t connection = 1, std::uint64_t ageMs = 0) {
    return FKeys.Press({id, key, 0, connection, FNow - ageMs}, FNow);
  }
  TResult<> Beat(std::vector<std::string> ids, std::uint64_t connection = 1, std::uint64_t ageMs = 0) {
    return FKeys.Heartbeat(ids, connection, FNow - ageMs, FNow);
  }

  std::uint64_t FNow = 5'000'000;
  TTexts FUp;
  TPanelGuard FGuard{*KBPManager(), {}};
  THeldKeys FKeys{
      FGuard, {}, [this](const TKeyPress& press, TKeyUp why) { FUp.push_back(press.Id + " " + KeyUpWord(why)); }};
};

TEST_F(HeldKeys, AKeyIsDownWhileItsHeartbeatsComeAndNeedsANewPressAfterAGap) {
  EXPECT_TRUE(Press("a", CK_RIGHT));
  EXPECT_TRUE(Press("a", CK_RIGHT)) << "sent again";
  for (int i = 0; i < 20; ++i, FNow += 50) EXPECT_TRUE(Beat({"a"}));
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 34 0"));
  FNow += 150;
  FKeys.Watch(FNow);
  EXPECT_TRUE(FKeys.Any()) << "200 ms are no gap";
  FNow += 1;
  FKeys.Watch(FNow);
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyUp 34 0"));
  EXPECT_FALSE(Beat({"a"}));
  EXPECT_FALSE(Press("a", CK_RIGHT)) << "a new press has a new id";
  EXPECT_TRUE(Press("b", CK_RIGHT));
  EXPECT_TRUE(FKeys.Release("b", FNow));
  EXPECT_THAT(FUp, ElementsAre("a gap", "b released"));
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 34 0", "KeyUp 34 0"));
}

TEST_F(HeldKeys, WhatComesLateOrOutOfOrderPressesNothing) {
  EXPECT_TRUE(FKeys.Release("a", FNow));
  EXPECT_FALSE(Press("a", CK_RIGHT)) << "its release has overtaken it";
  EXPECT_FALSE(Press("b", CK_RIGHT, 1, 201));
  EXPECT_FALSE(FKeys.Press({"c", CK_RIGHT, 0, 1, FNow + 51}, FNow)) << "of a time to come";
  EXPECT_FALSE(Press("", CK_RIGHT));
  EXPECT_FALSE(Press("a b", CK_RIGHT));
  EXPECT_THAT(TakeKeys(), IsEmpty());
  EXPECT_TRUE(Press("d", CK_RIGHT, 1, 200));
  FNow += 150;
  EXPECT_FALSE(Beat({"d"}, 1, 201)) << "a heartbeat that was under way for long is no sign of life";
  FNow += 51;
  FKeys.Watch(FNow);
  EXPECT_THAT(FUp, ElementsAre("d gap"));

  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(FKeys.Release("flood" + std::to_string(i), FNow));
  EXPECT_FALSE(Press("flood0", CK_RIGHT)) << "forgotten, and yet not pressed";
  FNow += 250;
  EXPECT_FALSE(Press("flood0", CK_RIGHT, 1, 250));
  EXPECT_TRUE(Press("e", CK_RIGHT));
}

TEST_F(HeldKeys, AKeyBelongsToOnePressAndGoesWithItsConnectionLeaseAndForm) {
  EXPECT_TRUE(Press("a", CK_RIGHT, 1));
  EXPECT_FALSE(Press("b", CK_RIGHT, 2)) << "it is held";
  EXPECT_FALSE(Press("a", CK_FORWARD, 2)) << "the id is another key's";
  EXPECT_TRUE(Press("c", CK_FORWARD, 2));
  FKeys.ConnectionGone(1, FNow);
  EXPECT_THAT(FUp, ElementsAre("a connection"));
  EXPECT_TRUE(Beat({"c"}, 3));
  FKeys.ConnectionGone(2, FNow);
  EXPECT_TRUE(FKeys.Any()) << "it goes on over another one";
  FKeys.ReleaseAll(kuLease, FNow);
  EXPECT_THAT(FUp, ElementsAre("a connection", "c lease"));
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 34 0", "KeyDown 35 0", "KeyUp 34 0", "KeyUp 35 0"));
}

TEST_F(HeldKeys, StopKeysGetThroughWhateverIsWrongWithThem) {
  EXPECT_TRUE(Press("a", CK_STOP, 1));
  EXPECT_TRUE(Press("b", CK_STOP, 2, 10'000));
  EXPECT_TRUE(Press("", CK_PAUSE, 2));
  EXPECT_TRUE(FKeys.Release("c", FNow));
  EXPECT_TRUE(Press("c", CK_EGYSTOP));
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 4 0", "KeyDown 4 0", "KeyDown 3 0", "KeyDown 15 0"));
  EXPECT_FALSE(THeldKeys::NeedsLease(CK_STOP));
  EXPECT_TRUE(THeldKeys::NeedsLease(CK_START));
}

}  // namespace
}  // namespace ixocamglue::test
