#include <map>
#include <optional>

#include <gmock/gmock.h>

#include "fixture/OwnConfig.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "tests/panel/PanelRig.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr TKeyMask kDefault = 0x34000;

class Panel : public testing::Test, protected TPanelRig, protected TOwnConfig {
 protected:
  void LoadConfig(const std::string& xml) {
    ASSERT_EQ(Load(xml), "");
    FConfigInstalled.emplace(Config);
  }
  TKeyMask Client(TKBPManager& manager) { return manager.GetMap(3); }

  std::optional<TInstalled<TMachineConfig>> FConfigInstalled;
  TFaultWatch Faults;
};

TEST_F(Panel, EachKeyIsSentOrRefusedAsTheFourMasksSay) {
  constexpr int kSent[kKeys] = {88, 84, 67, 100, 148, 11, 5, 35, 102, 33,  34, 36, 101, 1,
                                3,  14, 4,  15,  0,   0,  0, 0,  0,   103, 51, 6,  0,   104};
  const std::map<TKeyCode, int> other{{CK_RETURN0, 13}, {CK_RESUME, 65550}, {CK_BREAK_LOCATE, 65550}};  // in alt mode
  // Index: client*8 + alarm*4 + state*2 + warning. 1, 3, 4: refused with that message; 2: message 2 and sent; 0: sent.
  const int expected[16] = {1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 4, 0};
  const char* const texts[] = {"", "4 0 当前界面不允许使用该按键", "4 0 当前存在报警，该按键的操作可能无法执行",
                               "4 0 当前机床状态不允许使用该按键", "4 0 存在未处理的维护警告，不允许使用该按键"};
  TKBPManager manager;
  for (std::size_t k = 0; k < kKeys; ++k) {
    const auto key = static_cast<TKeyCode>(k);
    const bool stop = key == CK_PAUSE || key == CK_STOP || key == CK_EGYSTOP;
    for (const bool alt : {false, true}) {
      for (unsigned bits = 0; bits < 16; ++bits) {
        manager.KeyItem(key)->SetAlt(alt, false);
        const auto mask = [&](unsigned bit) { return (bits & bit) != 0 ? TKeyMask{1} << k : ~(TKeyMask{1} << k); };
        SetMasks(manager, mask(8), mask(4), mask(2), mask(1));
        const int message = stop ? 0 : expected[bits];
        const int command = alt && other.contains(key) ? other.at(key) : kSent[k];
        const bool sent = (message == 0 || message == 2) && command != 0;
        manager.KBKeyDown(key, 7);
        SCOPED_TRACE(Format("%s alt %d masks %u", KeyName(key).data(), alt, bits));
        EXPECT_EQ(Cut.Take(), sent ? TTexts{Format("down %d 7", command)} : TTexts{});
        EXPECT_EQ(Log(), message ? TTexts{texts[message]} : TTexts{});
        manager.KBKeyUp(key);  // unchecked
        EXPECT_EQ(Cut.Take(), command ? TTexts{Format("up %d 0", command)} : TTexts{});
      }
    }
  }
}

TEST_F(Panel, StopKeysArriveWhateverElseFails) {
  TKBPManager manager;
  SetMasks(manager, 0, 0, 0, 0);
  Sink.Fails = true;
  Cut.Fails = true;
  for (const TKeyCode key : {CK_PAUSE, CK_STOP, CK_EGYSTOP}) manager.KBKeyDown(key, 0);
  EXPECT_THAT(Cut.Take(), ElementsAre("down 3 0", "down 4 0", "down 15 0"));

  struct TBrokenWindows final : TNcWindows {
    THandle FindWindow(std::string_view) override { throw std::runtime_error("no desktop"); }
    void PostMessage(THandle, const TWindowMessage&) override {}
  } broken;
  const TInstalled<TNcWindows> installed(broken);
  Cut.Fails = false;
  manager.KBKeyDown(CK_STOP, 0);
  manager.KBKeyUp(CK_STOP);
  EXPECT_THAT(Cut.Take(), ElementsAre("down 4 0", "up 4 0"));
}

TEST_F(Panel, TheHomingWindowHearsOfEachPressThatIsSent) {
  TKBPManager manager;
  std::vector<TWindowMessage> heard;
  const auto receive = [&](const TWindowMessage& message) { heard.push_back(message); };
  const auto open = [&](const char* title) { return Windows.Open(title, receive); };
  open("dlgappinitreturnorg");
  manager.KBKeyDown(CK_STOP, 0);
  EXPECT_THAT(heard, IsEmpty());
  const auto window = open("DlgAppInitReturnOrg");
  manager.KBKeyDown(CK_STOP, 5);
  manager.KBKeyUp(CK_STOP);
  SetMasks(manager, 0, 0, 0, 0);
  manager.KBKeyDown(CK_LASER, 0);
  Windows.Close(window);
  manager.KBKeyDown(CK_STOP, 0);
  EXPECT_THAT(heard, ElementsAre(TWindowMessage{1275, 4, 1}, TWindowMessage{1275, 4, 0}));
}

TEST_F(Panel, TracesNameTheirCategory) {
  TKBPManager manager;
  TLogService::Listen(kDiagAll);
  manager.KBKeyDown(CK_STOP, 0);
  TLogService::Listen(0);
  EXPECT_THAT(Log(), ElementsAre("CtrlRemote: TKBPKeyItem.KeyDown", "CtrlRemote: CutSystem.KeyDown",
                                 "CtrlRemote: CutSystem.KeyDown"));
}

TEST_F(Panel, WhatIsNoKeyAndNoMaskDoesNothing) {
  TKBPManager manager;
  const auto none = static_cast<TKeyCode>(28);
  EXPECT_EQ(manager.KeyItem(none), nullptr);
  manager.KBKeyDown(none, 0);
  manager.KBKeyUp(none);
  manager.SetMap(8, 1);
  manager.SetClientPermit(-1, kAllKeys);
  manager.SetClientPermit(8, kAllKeys);
  EXPECT_EQ(manager.GetMap(8), 0U);
  EXPECT_EQ(Client(manager), kDefault);
  EXPECT_THAT(Cut.Take(), IsEmpty());
}

TEST_F(Panel, MasksStartAsGiven) {
  TKBPManager manager;
  const TKeyMask expected[8] = {0, 0, 0, kDefault, 0, 0x1F, 0, 0xFFFFFFFF};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(manager.GetMap(i), expected[i]) << i;
  EXPECT_THAT(Registry.Commands("KBPManagerAllowKeys"), ElementsAre(3, 4, 15, 0, 0));
}

TEST_F(Panel, WhatTheClientPermitsIsPublished) {
  LoadConfig(
      R"(<MachineConfig><KeyDefinition KeyDef13="148" KeyDef14="33" KeyDef15="-5" KeyDef22="148"/></MachineConfig>)");
  TKBPManager manager;
  manager.SetClientPermit(3, 0xF0000000);
  EXPECT_EQ(Client(manager), kDefault) << "no change";

  manager.SetClientPermit(3, 0x00034010);  // gas
  // K1 and K4 send what is permitted; K2 does not, K3 has no command. They are not published themselves.
  EXPECT_EQ(Client(manager), 0x00034010U | 0x80000 | 0x400000);
  EXPECT_THAT(Registry.Commands("KBPManagerAllowKeys"), ElementsAre(148, 3, 4, 15, 0, 0));
  EXPECT_EQ(manager.KeyItem(CK_K3)->GetCMD(), 0);

  manager.KeyItem(CK_RETURN0)->SetAlt(true, true);
  manager.SetClientPermit(3, 0x00040420);  // return 0 in alt mode, right, knob: its command 0 stays in the list
  EXPECT_THAT(Registry.Commands("KBPManagerAllowKeys"), ElementsAre(13, 34, 4, 15, 0, 49, 53));
  manager.KeyItem(CK_RETURN0)->SetAlt(false, false);  // published anew, with the K keys' bits that are set meanwhile
  EXPECT_EQ(Registry.Commands("KBPManagerAllowKeys").front(), 11);

  manager.SetClientPermit(3, 0xFFFFFFFF);
  EXPECT_EQ(Registry.Current(), "NoForbidden");
  EXPECT_FALSE(Registry.IsForbidden(12345));
  EXPECT_TRUE(Registry.IsForbidden(0));

  // Another mask is stored, and what is published comes from the client's all the same.
  manager.SetClientPermit(1, 0);
  EXPECT_EQ(manager.GetMap(1), 0x30000U | 0x80000 | 0x100000 | 0x400000);
  EXPECT_EQ(Registry.Current(), "NoForbidden");
}

TEST_F(Panel, FormsSetTheClientsMask) {
  TKBPManager manager;
  manager.SetCPMByForm("Work", true);
  manager.SetCPMByForm("DlgEdgeSeek", true);
  EXPECT_EQ(Client(manager), 0x75FC3U);
  manager.SetCPMByForm("DlgEdgeSeek", false);
  EXPECT_EQ(Client(manager), 0xFFFFFFFFU);
  manager.SetCPMByForm("dlgedgeseek", true);  // case counts
  EXPECT_EQ(Client(manager), kDefault);
  manager.SetCPMByForm("DlgEdgeSeek", false);  // what was remembered survives a hide
  EXPECT_EQ(Client(manager), 0xFFFFFFFFU);
  manager.SetCPMByForm("never shown", false);
  EXPECT_EQ(Client(manager), kDefault);
  manager.SetCPMByForm("vsCameraInfo", true);  // leaves the stop keys out; pause stays out
  EXPECT_EQ(Client(manager), 0x71F80U);
  EXPECT_EQ(FormCount(), 134U);
  for (const TFormGroup& group : FormGroups()) {
    manager.SetCPMByForm(group.Forms.front(), true);
    EXPECT_EQ(Client(manager), FormMask(group.Forms.front()).value_or(0) | 0x30000);
  }
  manager.SetCPMByForm("Work", true);
  const TKeyMask work = Client(manager);
  manager.SetCPMByForm("Work", true);  // a second show replaces what was remembered
  manager.SetCPMByForm("Work", false);
  EXPECT_EQ(Client(manager), work);
}

TEST_F(Panel, SafeExecPermitsTheDefaultMeanwhileAndAFailureLeavesIt) {
  TKBPManager manager;
  manager.SetCPMByForm("Work", true);
  const TKeyMask work = Client(manager);
  manager.SafeExec([&] { EXPECT_EQ(Client(manager), kDefault); });
  EXPECT_EQ(Client(manager), work);
  EXPECT_THROW(manager.SafeExec([] { throw std::runtime_error("the procedure fails"); }), std::runtime_error);
  EXPECT_EQ(Client(manager), kDefault);
}

TEST_F(Panel, AlarmsBlockTheKeysOfTheirKind) {
  TKBPManager manager;
  const auto blocked = [&](TNcAlarmAttrs attrs) {
    Alarms.ClearAll();
    Alarms.Raise({.Attrs = attrs});
    manager.UpdateAlarmPermit();
    return ~manager.GetMap(1) & 0x0FFFFFFF;
  };
  EXPECT_EQ(blocked(0), 0U);
  EXPECT_EQ(blocked(naForbidLaser), Keys(0, 2));
  EXPECT_EQ(blocked(naForbidFollower), Keys(3, 23, 27));
  EXPECT_EQ(blocked(naForbidHoming), Keys(5));
  EXPECT_EQ(blocked(naForbidCut), Keys(13, 15, 24));
  EXPECT_EQ(blocked(naForbidMove), Keys(5, 6, 25, 26) | ixocamglue::Run(7, 12));
  manager.KeyItem(CK_RETURN0)->SetAlt(true, false);
  EXPECT_EQ(blocked(naForbidMove), Keys(6, 25, 26) | ixocamglue::Run(7, 12)) << "homing in alt mode asks for no motion";
  const struct {
    int Axis;
    bool Positive;
    TKeyCode Key;
  } directions[] = {{0, false, CK_LEFT},   {0, true, CK_RIGHT},   {1, false, CK_BACK},
                    {1, true, CK_FORWARD}, {2, false, CK_Z_DOWN}, {2, true, CK_Z_UP}};
  for (const auto& d : directions) EXPECT_EQ(blocked(NcAlarmAxis(d.Axis, d.Positive)), KeyBit(d.Key)) << KeyName(d.Key);

  EXPECT_EQ(manager.GetMap(7), kAllKeys);
  Alarms.Raise({.Attrs = naRequireOrg});
  manager.UpdateWarningPermit();
  EXPECT_EQ(manager.GetMap(7), kAllKeys) << "no maintenance warning";
  Params.SetBool("ExistMaintainWarning", true);
  manager.UpdateWarningPermit();
  EXPECT_EQ(manager.GetMap(7), ~KeyBit(CK_RETURN0));
  Alarms.ClearAll();
  manager.UpdateWarningPermit();
  EXPECT_EQ(manager.GetMap(7), kAllKeys);
}

// State by state: the keys whose press is permitted, and those lit by the state.
TEST_F(Panel, TheMachineStatePermitsAndLightsKeys) {
  LoadConfig(
      R"(<MachineConfig><KeyDefinition KeyDef13="148" KeyDef14="777" KeyDef15="0" KeyDef22="3"/></MachineConfig>)");
  TKBPManager manager;
  const TKeyMask any = Keys(14, 16, 17, 18);
  const TKeyMask hand = ixocamglue::Run(0, 4) | ixocamglue::Run(7, 12) | Keys(24);
  const TKeyMask k34 = Keys(21, 22);  // no command; pause's
  const TKeyMask k12 = Keys(19, 20);  // gas's; nobody's
  const struct {
    std::int32_t State;
    TKeyMask Permit, Led;
  } rows[] = {
      {0, 0x0FFFFFFF, 0},
      {1, any | k34 | Keys(13), Keys(13)},
      {2, any | k34 | k12 | hand | Keys(15, 26), Keys(14, 22)},
      {3, any | k34 | Keys(5), Keys(5)},
      {4, any | k34 | k12 | hand, 0},
      {5, any | k34 | Keys(25), Keys(25)},
      {6, any | k34 | Keys(23, 27), Keys(23, 27)},
      {7, any | k34 | Keys(6), Keys(6)},
      {204, any, 0},
      {205, any, 0},
      {8, any, 0},
      {-1, any, 0},
  };
  for (const auto& row : rows) {
    Cut.State = row.State;
    manager.UpdateStatePermit();
    manager.UpdateRepState();
    EXPECT_EQ(manager.GetMap(6), row.Permit) << row.State;
    EXPECT_EQ(manager.GetMap(4), row.Led) << row.State;
  }
  Cut.State = 0;
  SysInts.Set(17, -1);  // every key is down
  manager.UpdateRepState();
  EXPECT_EQ(manager.GetMap(4), ixocamglue::Run(7, 12) | Keys(15, 16, 17, 20, 21, 23, 24, 26, 27));
}

TEST_F(Panel, LedsBlinkAndArePublishedAsTheyShow) {
  TKBPManager manager;
  manager.SetClientPermit(3, kAllKeys);
  SysInts.Set(17, static_cast<std::int32_t>(KeyBit(CK_RESUME) | KeyBit(CK_STOP)));
  manager.KeyItem(CK_RESUME)->SetAlt(true, true);
  const TKeyMask on = KeyBit(CK_RESUME) | KeyBit(CK_STOP);
  const struct {
    std::uint64_t AtMs;
    bool Lit;
  } moments[] = {{0, true},    {499, true},  {500, false},  {999, false},  {1000, false},
                 {1001, true}, {1499, true}, {1500, false}, {5000, false}, {5001, true}};
  for (const auto& moment : moments) {
    VirtualClock.Sleep(static_cast<std::uint32_t>(moment.AtMs - VirtualClock.MonotonicMs()));
    const TKeyMask leds = manager.GetLEDState();
    EXPECT_EQ(leds, moment.Lit ? on : KeyBit(CK_STOP)) << moment.AtMs;
    EXPECT_EQ(static_cast<TKeyMask>(Params.GetInt("SofteKBPanelBlinkKeys", 0)), leds) << moment.AtMs;
  }
  EXPECT_EQ(static_cast<TKeyMask>(Params.GetInt("SofteKBPanelRepKeys", 0)), on);
  EXPECT_EQ(Params.GetInt("SofteKBPanelStatePermits", 0), 0x0FFFFFFF);
  EXPECT_EQ(Params.GetInt("SofteKBPanelAllowKeys", 0), 0x0FFFFFFF);

  // Not permitted: dark, but for the always-lit keys, of which mask 5 lifts the permission only.
  manager.KeyItem(CK_RESUME)->SetAlt(false, false);
  manager.SetClientPermit(3, kDefault);
  EXPECT_EQ(manager.GetLEDState(), KeyBit(CK_STOP));
  EXPECT_EQ(Params.GetInt("SofteKBPanelAllowKeys", 0), 0x34000);
}

}  // namespace
}  // namespace ixocamglue::test
