// The host's protections of the key panel, and the keys of a terminal.
#include <gmock/gmock.h>

#include "controller/panel/PanelWhy.h"
#include "controller/panel/TerminalKeys.h"
#include "fixture/Machine.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocut/panel/PanelScreen.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using namespace ixocut;
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct TLogged {
  TLastLines FLog;
};

class PanelHost : protected TLogged, public TMachineTest {
 protected:
  PanelHost() : TMachineTest({}, {.Sinks = {&FLog}}), FHost(FController) { FHost.Forms().Show("Work"); }
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
  THostSeat FSeat{FHost, FLog};
};

TEST_F(PanelHost, AHeldKeyIsReleasedWhenItsBitGoesOrThePanelFallsSilent) {
  FHost.Guard().Press(CK_RIGHT);
  RunAlive(1000);
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 34 0"));
  DropBit(CK_RIGHT);
  RunAlive(200);
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyUp 34 0"));

  FHost.Guard().Press(CK_JOG_LASER);
  RunAlive(300);
  EXPECT_TRUE(Machine().Snapshot().Laser);
  FController.RunFor(200);  // silent
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 51 0", "KeyUp 51 0"));
  EXPECT_FALSE(Machine().Snapshot().Laser);
  FHost.Guard().ReleaseAll();
  EXPECT_EQ(KBPManager()->CurKeyBits(), 0U);
}

// Pressed right behind a look of the watch that saw nothing held.
TEST_F(PanelHost, ARareWatchReleasesWithin200MsAndIsOftenWhileAKeyIsHeld) {
  TPanelGuard guard(*KBPManager(), {});
  guard.Enable();
  EXPECT_EQ(guard.WatchInMs(), TPanelGuard::kRestMs);
  guard.Press(CK_RIGHT);
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 34 0"));
  std::uint64_t ms = TPanelGuard::kRestMs;
  for (guard.Watch(Clock().MonotonicMs() + ms); TakeKeys().empty(); guard.Watch(Clock().MonotonicMs() + ms)) {
    ms += guard.WatchInMs();
    ASSERT_LE(ms, 200U);
  }
  EXPECT_GT(ms, TPanelGuard::kSilentMs);
  EXPECT_EQ(guard.WatchInMs(), TPanelGuard::kRestMs);
  guard.Press(CK_STOP);
  EXPECT_EQ(guard.WatchInMs(), TPanelGuard::kWatchMs);
}

TEST_F(PanelHost, TheReleaseNamesTheCommandThatWasPressed) {
  TKBPKeyItem& key = *KBPManager()->KeyItem(CK_K1);
  key.SetNormalCmd(kcJogLeft);
  KBPManager()->SetMap(kMapClientPermit, kAllKeys);
  FHost.Guard().Press(CK_K1);
  RunAlive(100);
  key.SetNormalCmd(kcGas);
  FHost.Guard().Release(CK_K1);
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 33 0", "KeyUp 33 0", "KeyUp 148 0"));
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
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 3 0", "KeyDown 4 0", "KeyDown 15 0"));
}

TEST_F(PanelHost, TheEmergencyStopNeedsNeitherPanelNorCuttingSystem) {
  int straight = 0;
  TPanelGuard guard(*KBPManager(), [&] { ++straight; });
  Gate().PlanSet({.Call = Gate().Calls() + 1, .Fault = gfThrow, .Sticky = true});
  guard.Press(CK_EGYSTOP);
  EXPECT_EQ(straight, 1);
}

TEST_F(PanelHost, AKeyThatThereIsNotIsNoPressAndTheStopKeyNeedsNobodyToHoldItFor) {
  TPanelGuard guard(*KBPManager(), {});
  guard.Enable();
  const auto none = static_cast<TKeyCode>(kKeys);
  EXPECT_FALSE(guard.Press(none));
  guard.Release(none);
  EXPECT_THAT(TakeKeys(), IsEmpty());
  EXPECT_TRUE(guard.Press(CK_STOP));
  for (const std::uint64_t end = Clock().MonotonicMs() + 2 * TPanelGuard::kStopHeldMs; Clock().MonotonicMs() < end;) {
    guard.Alive();
    guard.Watch(Clock().MonotonicMs());
    FController.RunPass();
  }
  EXPECT_THAT(TakeKeys(), ElementsAre("KeyDown 4 0"));
}

// A device that hangs in the press: the watch has released by the time it returns.
TEST_F(PanelHost, AKeyThatTheWatchReleasesWhileItIsPressedIsReleasedBehindThePress) {
  TPanelGuard guard(*KBPManager(), {});
  guard.Enable();
  Gate().PlanSet({.Call = Gate().Calls() + 1, .Fault = gfCallback, .HangMs = 0, .Callback = [&] {
                    guard.Watch(Clock().MonotonicMs() + TPanelGuard::kSilentMs + 1);
                  }});
  guard.Press(CK_RIGHT);
  EXPECT_TRUE(Gate().Fired());
  EXPECT_EQ(TakeKeys().back(), "KeyUp 34 0");
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

TEST_F(PanelHost, ASwitchPressedAgainSwitchesOffWhereverATerminalCannotTell) {
  TTerminalKeys keys = KeysFor(FSeat);
  const auto type = [&](const char* bytes, std::uint64_t afterMs) {
    RunAlive(afterMs);
    for (const TTerminalEvent& event : keys.Feed(bytes, Clock().MonotonicMs())) EXPECT_TRUE(Act(FSeat, event));
  };
  for (const auto& [byte, reported] : {std::pair{"g", "\x1b[103u"}, {"a", "\x1b[97u"}, {"s", "\x1b[115u"}}) {
    const auto on = [this, key = *byte] {
      const TMachineSnapshot now = Machine().Snapshot();
      return key == 'g' ? now.Gas : key == 'a' ? Machine().Laser()->GetAiming() : now.Emission;
    };
    type("\x1b[?0u", 1000);  // no releases
    type(byte, 0);
    type(byte, kEmissionMs / 2);  // before emission is there
    RunAlive(100);
    EXPECT_FALSE(on()) << byte << ": the second press switches off";
    type(byte, 300);
    RunAlive(100);
    EXPECT_FALSE(on()) << byte << ": what may be a repeat switches nothing on";
    type(byte, 800);
    RunAlive(100);
    EXPECT_TRUE(on()) << byte;
    type("\x1b[?11u", 0);  // releases
    type(reported, 0);
    type(reported, 100);
    RunAlive(100);
    EXPECT_TRUE(on()) << byte << ": two presses, each of them switches";
    type(reported, 0);
  }
}

TEST(PanelAlone, WithoutAMachineAPressAndItsReleaseReachNobody) {
  TVirtualClock clock;
  const TInstalled<IClock> installed(clock);
  TFaultWatch faults;
  TKBPManager manager;
  int held = 0;
  TPanelGuard guard(manager, {}, [&] { ++held; });
  guard.Enable();
  manager.SetMap(kMapClientPermit, kAllKeys);
  EXPECT_TRUE(guard.Press(CK_RIGHT));
  EXPECT_EQ(guard.WatchInMs(), TPanelGuard::kWatchMs);
  guard.Watch(clock.MonotonicMs() + 1);
  EXPECT_EQ(guard.WatchInMs(), TPanelGuard::kRestMs) << "without key bits nothing is held";
  guard.Release(CK_RIGHT);
  TNcSysInts ints;
  const TInstalled<TNcSysInts> intsInstalled(ints);
  EXPECT_TRUE(guard.Press(CK_STOP));
  for (std::uint64_t ms = 0; ms < 2 * TPanelGuard::kStopHeldMs; ms += TPanelGuard::kWatchMs) {
    guard.Alive();
    guard.Watch(clock.MonotonicMs());
    clock.Sleep(TPanelGuard::kWatchMs);
  }
  EXPECT_EQ(held, 0) << "nothing stands in standby";
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

TEST_F(PanelHost, TheTerminalShowsWhyAPressComesToNothing) {
  const struct {
    const char* Form;
    TNcAlarmAttrs Alarm;
    TKeyCode Key;
    std::vector<const char*> Says;
  } cases[] = {
      {"Settings", 0, CK_GAS, {"界面", "GAS: form Settings"}},
      {"Work", naForbidLaser, CK_SHUTTER, {"报警", "SHUTTER: TP#1", "shutter refused: an alarm forbids the laser"}},
      {"Work", naForbidMove, CK_START, {"start refused: an alarm forbids motion"}},
      {"Work", 0, CK_LASER, {"laser refused: the shutter is closed"}},
      {"Work", 0, CK_BREAK_LOCATE, {"BREAK: the key has no command"}},
  };
  for (const auto& c : cases) {
    FHost.Forms().Show(c.Form);
    if (c.Alarm != 0) Raise(c.Alarm);
    RunAlive(200);
    FHost.Press(c.Key);
    RunAlive(20);
    std::string screen;
    for (const std::string& line : PanelScreen(FSeat.View(), 80, 24)) screen += line + "\n";
    for (const char* text : c.Says)
      EXPECT_THAT(screen, testing::ContainsRegex("\n[0-9:]{8} [^\n]*" + std::string(text)));
    FHost.Guard().Release(c.Key);
    FController.Alarms().ClearAll();
  }
}

TEST_F(PanelHost, TheScreenFitsItsTerminalAndShowsAllKeysFrom80ColumnsOn) {
  Raise(naForbidLaser);
  for (int i = 0; i < 60; ++i) FHost.Press(CK_BREAK_LOCATE);
  LogMsg(lkError, 0,
         "三十个汉字一行放不下三十个汉字一行放不下三十个汉字一行放不下三十个汉字一行放不下三十个汉字一行放不下", "");
  RunAlive(200);
  for (const std::size_t columns : {5U, 40U, 79U, 80U, 132U, 133U, 250U})
    for (const std::size_t rows : {0U, 1U, 5U, 24U, 60U}) {
      const std::vector<std::string> lines = PanelScreen(FSeat.View(), columns, rows);
      EXPECT_LE(lines.size(), rows) << columns;
      std::string screen;
      for (const std::string& line : lines) {
        EXPECT_LE(DisplayWidth(line), columns) << line;
        screen += line + "\n";
      }
      if (columns < 40 || rows < 24) continue;
      EXPECT_EQ(lines.back(), "Software is not the emergency stop.");
      EXPECT_EQ(screen.find("CALIB HERE v") != std::string::npos, columns >= 80) << columns;
      EXPECT_EQ(screen.find("from 80 columns on") != std::string::npos, columns < 80) << columns;
      EXPECT_THAT(screen, testing::HasSubstr("三十个汉字")) << "the newest message";
    }
}

// --- terminal ---

constexpr const char* kSigns[] = {"+", "=", "-"};  // press, repeat, release

std::string Texts(const std::vector<TTerminalEvent>& events) {
  std::string text;
  for (const TTerminalEvent& event : events) {
    if (!text.empty()) text += ' ';
    if (event.Kind == TTerminalEvent::TKind::Command)
      text += std::string("command ") + event.Command;
    else
      text += kSigns[static_cast<std::size_t>(event.Kind)] + std::string(KeyName(event.Key)).substr(3);
  }
  return text;
}

struct TTyped {
  std::uint64_t AtMs;
  const char* Bytes;
  const char* Means;
};

void Expect(std::initializer_list<TTyped> story) {
  TTerminalKeys keys;
  for (const TTyped& typed : story)
    EXPECT_EQ(Texts(keys.Feed(typed.Bytes, typed.AtMs)), typed.Means) << typed.AtMs << " ms";
}

TEST(TerminalKeys, AKeyIsHeldAsLongAsATerminalCanTell) {
  Expect({{0, "\x1b[C", "+RIGHT"},
          {699, "", ""},
          {700, "", "-RIGHT"},
          {1000, "\x1b[C", "+RIGHT"},
          {1500, "\x1b[C", "=RIGHT"},  // a repeat
          {1649, "", ""},
          {1650, "", "-RIGHT"},
          {2000, "\x1b[D", "+LEFT"},
          {2010, "\x1b[A", "-LEFT +FORWARD"},  // another key
          {2020, "z", "-FORWARD"},             // one that means nothing
          {2030, "\x1b[5~\x1b[6~+-\r", "+Z_UP -Z_UP +Z_DOWN -Z_DOWN +Z_UP -Z_UP +Z_DOWN -Z_DOWN +START"},
          {2040, "q", "-START command q"},
          {3000, "g", "+GAS"},
          {3600, "g", "=GAS"},
          {4299, "G", "=GAS"},  // a switch: as long as at first
          {4999, "g", "-GAS +GAS"}});
}

TEST(TerminalKeys, ReleasesAreUsedWhereTheTerminalHasThemAndRepeatsAreTheSignOfLife) {
  Expect({{0, "\x1b[1;1:1C", "+RIGHT"},
          {699, "\x1b[1;1:2C", ""},
          {848, "\x1b[1;1:2C", ""},
          {998, "", "-RIGHT"},       // the terminal has stalled
          {999, "\x1b[1;1:2C", ""},  // and goes on: no new press
          {1000, "\x1b[1;1:3C", ""},
          {1001, "\x1b[106u", "+JOG_LASER"},
          {1700, "", ""},
          {1701, "", "-JOG_LASER"},
          {2000, "\x1b[106u\x1b[106;1:3u", "+JOG_LASER -JOG_LASER"},
          {2010, "\x1b[103u\x1b[103u", "+GAS -GAS +GAS"},  // its release was lost
          {2020, "\x1b[101u\x1b[32u", "-GAS +EGYSTOP -EGYSTOP +STOP"},
          {2030, "\x1b[32;1:2u\x1b[101;1:2u", "-STOP +EGYSTOP"},
          {2040, "\x1b[113u\x1b[113;1:3u\x1b[99;5u", "-EGYSTOP command q command q"}});
  Expect({{0, "\x1b[103u", "+GAS"}, {10, "\x1b[103u", "=GAS"}});  // escape codes alone promise no releases
  Expect({{0, "\x1b[?11u\x1b[103u", "+GAS"}, {10, "\x1b[103u", "-GAS +GAS"}});
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
