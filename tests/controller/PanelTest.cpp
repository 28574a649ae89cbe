// The host's protections of the key panel, and the keys of a terminal.
#include <gmock/gmock.h>

#include "fixture/Machine.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocut/panel/PanelHost.h"
#include "ixocut/panel/TerminalKeys.h"

namespace ixocamglue::test {
using namespace ixocut;
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PanelHost : public TMachineTest {
 protected:
  PanelHost() : FHost(FController) { FHost.Forms().Show("Work"); }
  TTexts Keys() {
    TTexts keys;
    for (const std::string& command : Commands("cut"))
      if (command.starts_with("Key")) keys.push_back(command);
    Journal().Clear();
    return keys;
  }
  // Passes with the panel's signs of life.
  void RunAlive(std::uint64_t ms) {
    for (const std::uint64_t end = Clock().MonotonicMs() + ms; Clock().MonotonicMs() < end;) {
      FHost.Guard().Alive();
      FController.RunPass();
    }
  }
  void DropBit(TKeyCode key) {
    FController.SysInts().Set(17, FController.SysInts().Get(17) & ~static_cast<std::int32_t>(KeyBit(key)));
  }

  TPanelHost FHost;
};

TEST_F(PanelHost, AHeldKeyIsReleasedWhenItsBitGoesOrThePanelFallsSilent) {
  FHost.Guard().Press(CK_RIGHT);
  RunAlive(1000);
  EXPECT_THAT(Keys(), ElementsAre("KeyDown 34 0"));
  DropBit(CK_RIGHT);
  RunAlive(200);
  EXPECT_THAT(Keys(), ElementsAre("KeyUp 34 0"));

  FHost.Guard().Press(CK_JOG_LASER);
  RunAlive(300);
  EXPECT_TRUE(Machine().Snapshot().Laser);
  FController.RunFor(200);  // silent
  EXPECT_THAT(Keys(), ElementsAre("KeyDown 51 0", "KeyUp 51 0"));
  EXPECT_FALSE(Machine().Snapshot().Laser);
  FHost.Guard().ReleaseAll();
  EXPECT_EQ(KBPManager()->CurKeyBits(), 0U);
}

TEST_F(PanelHost, TheReleaseNamesTheCommandThatWasPressed) {
  TKBPKeyItem& key = *KBPManager()->KeyItem(CK_K1);
  key.SetNormalCmd(kcJogLeft);
  KBPManager()->SetMap(kMapClientPermit, kAllKeys);
  FHost.Guard().Press(CK_K1);
  RunAlive(100);
  key.SetNormalCmd(kcGas);
  FHost.Guard().Release(CK_K1);
  EXPECT_THAT(Keys(), ElementsAre("KeyDown 33 0", "KeyUp 33 0", "KeyUp 148 0"));
}

TEST_F(PanelHost, StaleMasksLetOnlyStopKeysThrough) {
  TPanelGuard guard(*KBPManager(), {});
  EXPECT_FALSE(guard.Press(CK_GAS)) << "not enabled";
  EXPECT_TRUE(guard.Press(CK_STOP));
  guard.Enable();
  EXPECT_TRUE(guard.Press(CK_GAS));
  FController.RunFor(501);  // this one is not refreshed
  Journal().Clear();
  EXPECT_FALSE(guard.Press(CK_GAS));
  for (const TKeyCode key : {CK_PAUSE, CK_STOP, CK_EGYSTOP}) EXPECT_TRUE(guard.Press(key));
  EXPECT_THAT(Keys(), ElementsAre("KeyDown 3 0", "KeyDown 4 0", "KeyDown 15 0"));
}

TEST_F(PanelHost, TheEmergencyStopNeedsNeitherPanelNorCuttingSystem) {
  int straight = 0;
  TPanelGuard guard(*KBPManager(), [&] { ++straight; });
  Gate().PlanSet({.Call = Gate().Calls() + 1, .Fault = gfThrow, .Sticky = true});
  guard.Press(CK_EGYSTOP);
  EXPECT_EQ(straight, 1);
}

TEST_F(PanelHost, TheStopKeyHeldForThreeSecondsInStandbyResetsTheLatch) {
  const auto latched = [this] { return Machine().Snapshot().LatchTripped; };
  Machine().Laser()->Trip("of its own");
  Raise(naForbidLaser);
  FHost.Guard().Press(CK_STOP);
  RunAlive(3100);
  EXPECT_TRUE(latched()) << "the cause stands";
  FController.Alarms().ClearAll();
  RunAlive(3100);
  EXPECT_TRUE(latched()) << "one press, one try";
  FHost.Guard().Release(CK_STOP);
  RunAlive(100);
  FHost.Guard().Press(CK_STOP);
  RunAlive(2900);
  EXPECT_TRUE(latched());
  RunAlive(200);
  EXPECT_FALSE(latched());

  Machine().Laser()->Trip("of its own");
  FHost.Guard().Release(CK_STOP);
  FHost.Guard().Press(CK_STOP);
  FController.RunFor(4000);
  EXPECT_TRUE(latched()) << "a panel that has fallen silent holds nothing";
}

TEST_F(PanelHost, FormsStayNestedWhateverTheOrder) {
  TFormTracker& forms = FHost.Forms();
  const auto client = [] { return KBPManager()->GetMap(kMapClientPermit); };
  const TKeyMask work = client();
  forms.Show("DlgEdgeSeek");
  const TKeyMask seek = client();
  forms.Show("Settings");
  forms.Show("DlgEdgeSeek");  // to the top
  EXPECT_EQ(client(), seek);
  forms.Hide("DlgLaserTest");  // never shown
  forms.Hide("Settings");      // from underneath
  EXPECT_EQ(client(), seek);
  forms.Hide("DlgEdgeSeek");
  EXPECT_EQ(client(), work);
  EXPECT_THAT(forms.Open(), ElementsAre("Work"));
}

// --- terminal ---

constexpr auto kPress = TTerminalEvent::TKind::Press;

std::string Texts(const std::vector<TTerminalEvent>& events) {
  std::string text;
  for (const TTerminalEvent& event : events) {
    if (!text.empty()) text += ' ';
    if (event.Kind == TTerminalEvent::TKind::Command)
      text += std::string("command ") + event.Command;
    else
      text += (event.Kind == kPress ? "+" : "-") + std::string(KeyName(event.Key)).substr(3);
  }
  return text;
}

TEST(TerminalKeys, AKeyIsHeldAsLongAsATerminalCanTell) {
  TTerminalKeys keys;
  EXPECT_EQ(Texts(keys.Feed("\x1b[C", 0)), "+RIGHT");
  EXPECT_EQ(Texts(keys.Tick(699)), "");
  EXPECT_EQ(Texts(keys.Tick(700)), "-RIGHT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[C", 1000)), "+RIGHT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[C", 1500)), "");  // repeats
  EXPECT_EQ(Texts(keys.Tick(1649)), "");
  EXPECT_EQ(Texts(keys.Tick(1650)), "-RIGHT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[D", 2000)), "+LEFT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[A", 2010)), "-LEFT +FORWARD");  // another key
  EXPECT_EQ(Texts(keys.Feed("z", 2020)), "-FORWARD");             // one that means nothing
  EXPECT_EQ(Texts(keys.Feed("\x1b[5~\x1b[6~+-\r", 2030)),
            "+Z_UP -Z_UP +Z_DOWN -Z_DOWN +Z_UP -Z_UP +Z_DOWN -Z_DOWN +START");
  EXPECT_EQ(Texts(keys.Feed("q", 2040)), "-START command q");
}

TEST(TerminalKeys, ReleaseEventsAreUsedWhereTheTerminalHasThem) {
  TTerminalKeys keys;
  EXPECT_EQ(Texts(keys.Feed("\x1b[1;1:1C", 0)), "+RIGHT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[1;1:2C", 500)), "");
  EXPECT_EQ(Texts(keys.Tick(100'000)), "");
  EXPECT_EQ(Texts(keys.Feed("\x1b[1;1:3C", 100'001)), "-RIGHT");
  EXPECT_EQ(Texts(keys.Feed("\x1b[106u", 0)), "+JOG_LASER");
  EXPECT_EQ(Texts(keys.Feed("\x1b[106;1:3u", 10)), "-JOG_LASER");
  EXPECT_EQ(Texts(keys.Feed("\x1b[101u\x1b[32u", 20)), "+EGYSTOP -EGYSTOP +STOP");
  EXPECT_EQ(Texts(keys.Feed("\x1b[113u\x1b[113;1:3u\x1b[99;5u", 30)), "-STOP command q command q");
}

TEST(TerminalKeys, StopsGetThroughWhateverCameBefore) {
  for (const char* before :
       {"", "\x1b", "\x1b[", "\x1b[1;1:", "\x1bO", "\x1b\x1b[", "\xe6\xbf", "\x1b[999999999999999999"}) {
    TTerminalKeys keys;
    (void)keys.Feed(before, 0);
    EXPECT_EQ(Texts(keys.Feed("e", 1)), "+EGYSTOP") << before;
    EXPECT_EQ(Texts(keys.Feed(" ", 2)), "-EGYSTOP +STOP") << before;
    EXPECT_EQ(Texts(keys.Feed(" ", 3)), "-STOP +STOP") << "each byte is a press";
    EXPECT_EQ(Texts(keys.Feed("\x1b[", 4)), "");
    EXPECT_EQ(Texts(keys.Feed("C", 5)), "-STOP +RIGHT") << "a sequence in pieces";
  }
  for (std::size_t i = 0; i < kKeys; ++i) EXPECT_STRNE(TerminalKeyName(static_cast<TKeyCode>(i)), "");
}

}  // namespace
}  // namespace ixocamglue::test
