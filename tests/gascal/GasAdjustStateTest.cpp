// Machine state 205 on a gas supply that is simple enough to foresee, and the model in front of it.
#include <fstream>
#include <functional>
#include <map>

#include <gmock/gmock.h>

#include "fixture/Faults.h"
#include "fixture/Installed.h"
#include "fixture/OwnConfig.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/gascal/Uzemgasadjustmodel.h"
#include "ixocamglue/gascal/Uzemgasadjuststate.h"
#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Pressure follows the voltage at once; every command is told.
struct TPlainGas : TNcCutSystem, TNcGas, TNcDeviceManager {
  std::int32_t GetState() override { return 0; }
  TNcLaser* Laser() override { return nullptr; }
  TNcGas* Gas() override { return this; }
  void Lock() override {}
  void Unlock() override {}
  void SwitchLaser(bool) override {}

  bool IsBusy() override { return false; }
  bool GetGas() override { return On; }
  std::int32_t GetBranch() override { return Branch; }
  double GetPressure() override { return 0; }
  void SelectBranch(std::int32_t branch) override { Tell("select " + std::to_string(Branch = branch)); }
  void SetPressure(double) override { Tell("pressure"); }
  void SwitchOn() override {
    Tell("on"), On = true;
    OnAtMs = Clock().MonotonicMs();
  }
  void SwitchOff() override {
    if (On) Tell("off");
    On = false;
  }
  void OutputDA(double volt) override {
    if (Throws && volt > 0) throw std::runtime_error("no answer");
    Tell("da " + ValueText(Volt = volt));
    VoltAtMs = Clock().MonotonicMs();
  }
  TNcInputGroup* InputGroup() override { return nullptr; }
  double GetRtGasPressure() override { return On ? Curve(Volt) : 0.0; }

  void Tell(const std::string& what) { Story.push_back(what); }
  TTexts Story;
  bool On = false;
  bool Throws = false;
  std::int32_t Branch = 0;
  double Volt = 0.0;
  std::uint64_t OnAtMs = 0, VoltAtMs = 0;
  std::function<double(double)> Curve = [](double volt) { return volt; };
};

struct TStopAlarm : TNcAlarmManager {
  bool RequireStop() override { return Stop; }
  bool Stop = false;
};

class GasAdjust : public testing::Test, protected TOwnConfig {
 protected:
  GasAdjust() {
    EXPECT_EQ(Load("<MachineConfig><GasBranches><GasBranch GasType='1' Name='Air' DAPort='33'/>"
                   "<GasBranch GasType='2' Name='O2' DAPort='34'><DAAdjustTable><Item Press='3' Volt='4'/>"
                   "<Item Press='5' Volt='9'/></DAAdjustTable></GasBranch><GasBranch GasType='3' Name='N2'/>"
                   "<GasBranch GasType='6' Name='H-N2' DAPort='36'/></GasBranches></MachineConfig>"),
              "");
    StartMachineQueries();
    ZemGasAdjustModel_Create();
    FFramework.emplace();
    FFramework->SetObserver([this](std::int32_t from, std::int32_t to) { FChanges.emplace_back(from, to); });
    FFramework->RunOnce();
    Model().SetNozzType("S", 1.5);
  }
  ~GasAdjust() override {
    FFramework.reset();
    ZemGasAdjustModel_Destroy();
    FreeMachineQueries();
  }

  static TZemGasAdjustModel& Model() { return *GZemGasAdjustModel(); }
  TZemGasAdjustState& State() { return dynamic_cast<TZemGasAdjustState&>(*FFramework->State(nsZemGasAdjust)); }
  void Pass() { FClock.Sleep(FFramework->RunOnce()); }
  // To the end, at most a minute of machine time; the message log.
  TTexts Run() {
    const std::uint64_t end = FClock.MonotonicMs() + 60'000;
    double progress = 0;
    while (Model().AjdustIsBusy() && FClock.MonotonicMs() < end) {
      Pass();
      EXPECT_GE(Model().GetProgess(), progress);
      progress = Model().GetProgess();
    }
    EXPECT_FALSE(Model().AjdustIsBusy());
    return Messages();
  }
  static TTexts Messages() {
    TTexts texts;
    for (std::string text; Model().GetMsg(text);) texts.push_back(text);
    return texts;
  }
  TDAAdjustTable& Table(std::int32_t gas) { return Config.GetGasBranch(gas)->DAAdjustTable; }
  std::string Stored(std::int32_t gas) {
    TGasCaliConfig stored;
    stored.Open();
    const TDAAdjustTable* const table = stored.GetDAAdjustTable(gas, "S", 1.5);
    return table ? std::to_string(table->GetCount()) : "none";
  }
  void ExpectSafe() {
    EXPECT_FALSE(FGas.On);
    EXPECT_EQ(FGas.Volt, 0.0);
    EXPECT_EQ(FFramework->CurrentState(), nsStandby);
    EXPECT_THAT(FChanges, ElementsAre(std::pair(0, 205), std::pair(205, 0)));
    EXPECT_THAT(FGas.Story, testing::Not(testing::Contains("pressure")));
  }

  // The tick count wraps, and 49.7 days are over, while the pressure is sampled for the first time.
  static constexpr std::uint32_t kToWrapMs = 1200;
  TVirtualClock FClock{0U - kToWrapMs, (std::uint64_t{1} << 32) - kToWrapMs};
  TNcRegistry FRegistry;
  TPlainGas FGas;
  TStopAlarm FAlarms;
  TAllInstalled<IClock, TNcRegistry, TMachineConfig, TNcCutSystem, TNcDeviceManager, TNcAlarms> FInstalled{
      FClock, FRegistry, Config, FGas, FGas, FAlarms};
  std::optional<TNcStateFramework> FFramework;
  std::vector<std::pair<std::int32_t, std::int32_t>> FChanges;
  TFaultWatch Faults;
};

TEST_F(GasAdjust, CalibratesEachValidGasAndSavesOnce) {
  std::map<std::int32_t, std::vector<std::int64_t>> pauses;  // from a voltage to its first sample
  std::map<std::int32_t, std::uint64_t> waits;               // from gas on to the first voltage
  std::int64_t voltageAt = -1;
  Model().SetObserver([&](const TGasAdjustEvent& event) {
    if (event.Kind == TGasAdjustEvent::TKind::Voltage) {
      voltageAt = event.TimeMs;
      waits.try_emplace(event.Gas, static_cast<std::uint64_t>(event.TimeMs) - FGas.OnAtMs);
    }
    if (event.Kind == TGasAdjustEvent::TKind::Settled) {
      EXPECT_NEAR(event.StableMs, 200, 10);
    }
    if (event.Kind == TGasAdjustEvent::TKind::Sample && voltageAt >= 0)
      pauses[event.Gas].push_back(event.TimeMs - std::exchange(voltageAt, -1));
  });
  EXPECT_FALSE(Model().StartAjdust({}));
  ASSERT_TRUE(Model().StartAjdust({3, 1, 5, 6, 2}));
  EXPECT_FALSE(Model().StartAjdust({1})) << "busy from the request on";
  EXPECT_FALSE(Model().LoadGasData(1, "S", 1.5));
  TTexts log = Run();
  ExpectSafe();
  EXPECT_EQ(Model().GetProgess(), 100.0);

  const auto line = [&](const std::string& text) {
    const auto it = std::ranges::find(log, text);
    EXPECT_NE(it, log.end()) << text;
    return it;
  };
  EXPECT_EQ(log.front(), "开始校正 空气");
  EXPECT_EQ(log.back(), "全部校正结束!");
  EXPECT_THAT(log, testing::Contains("开始校正 氧气").Times(1));
  EXPECT_THAT(log, testing::Contains("开始校正 氮气").Times(0)) << "no analogue output";
  EXPECT_THAT(log, testing::Contains(HasSubstr("开始校正")).Times(3));
  EXPECT_THAT(log, testing::Contains("BackupCaliInfo").Times(2)) << "none for the high-pressure gas";
  const auto done = line("校正完成!");
  EXPECT_EQ(done[1], "0.00(V)---0.0000(Bar)");
  const auto dots = line(std::string(40, '.'));
  EXPECT_EQ(dots - done - 1, Table(1).GetCount());
  EXPECT_EQ(dots[1], "BackupCaliInfo");
  EXPECT_TRUE(std::equal(done + 1, dots, dots + 2)) << "the backed-up points are the stored ones";

  EXPECT_GE(Table(1).GetCount(), 6);
  EXPECT_EQ(Table(3).GetCount(), 0);
  for (const std::int32_t gas : {1, 2, 6}) EXPECT_TRUE(Config.GetGasBranch(gas)->DAAdjustEnabled) << gas;
  TMachineConfig saved;
  ASSERT_TRUE(saved.Load(File));
  EXPECT_EQ(saved.GetGasBranch(2)->DAAdjustTable.GetCount(), Table(2).GetCount());
  EXPECT_EQ(Stored(1), std::to_string(Table(1).GetCount()));
  EXPECT_EQ(Stored(3), "none");
  EXPECT_GT(Model().GetMaxPress(1), 9.9);
  EXPECT_EQ(Model().GetMaxPress(3), 0.0);

  for (const auto& [gas, ms] : pauses) EXPECT_THAT(ms, testing::Each(gas == 2 ? 600 : 300)) << gas;
  EXPECT_EQ(pauses.size(), 3u);
  for (const auto& [gas, ms] : waits) EXPECT_THAT(ms, testing::AllOf(testing::Ge(500u), testing::Le(510u))) << gas;
  EXPECT_THAT(TTexts(FGas.Story.begin(), FGas.Story.begin() + 3), ElementsAre("select 1", "on", "da 1"));
  EXPECT_THAT(FGas.Story, testing::Contains("off").Times(3));
  const auto off = [&](std::size_t i) { return FGas.Story[i] == "off"; };
  for (std::size_t i = 1; i < FGas.Story.size(); ++i) EXPECT_TRUE(!off(i) || FGas.Story[i - 1] == "da 0") << i;
}

TEST_F(GasAdjust, ASteadyDriftIsWaitedFor) {
  FGas.Curve = [&](double volt) {
    return volt * (1 + 0.00004 * static_cast<double>(FClock.MonotonicMs() - FGas.VoltAtMs));
  };
  std::int32_t stableMs = 0;
  Model().SetObserver([&](const TGasAdjustEvent& event) { stableMs = std::max(stableMs, event.StableMs); });
  ASSERT_TRUE(Model().StartAjdust({2}));
  for (int i = 0; i < 2000 && stableMs == 0; ++i) Pass();
  EXPECT_GT(stableMs, 5000);
}

TEST_F(GasAdjust, AFlatCurveLeavesTheTableAlone) {
  // With its origin a rebuilt curve is flat only when it is low as a whole: neither when its last point alone is near
  // the mean nor when its first one is.
  for (const std::function<double(double)>& curve : {std::function([](double volt) { return 0.2 + volt * 0.0005; }),
                                                     {[](double volt) { return volt > 9.9 ? 0.5 : 0.02; }}}) {
    FGas.Curve = curve;
    ASSERT_TRUE(Model().StartAjdust({2}));
    EXPECT_THAT(Run(), testing::Contains("校正完成!"));
  }
  FGas.Curve = [](double) { return 0.0; };
  CopyTable(Table(2), Table(1));
  const std::int32_t count = Table(1).GetCount();
  ASSERT_TRUE(Model().StartAjdust({1}));
  const TTexts log = Run();
  ASSERT_GE(log.size(), 3u);
  EXPECT_THAT(TTexts(log.end() - 3, log.end()),
              ElementsAre("气压校正异常:气压值没有变化!", "校正失败!", "全部校正结束!"));
  EXPECT_EQ(Table(1).GetCount(), count);
  EXPECT_EQ(Stored(1), "none");
}

TEST_F(GasAdjust, WhateverEndsItGasIsOffAndTheTableWhole) {
  const struct {
    const char* Name;
    std::function<void()> Do;
    const char* Line;
  } endings[] = {
      {"stop of the model", [] { Model().StopAjdust(); }, "停止校正！"},
      {"pause", [&] { FFramework->Pause(); }, "校正失败!"},
      {"error", [&] { FFramework->Abort(srError); }, "校正失败!"},
      {"alarm", [&] { FAlarms.Stop = true; }, "校正失败!"},
      {"a device that throws", [&] { FGas.Throws = true; }, "校正失败!"},
  };
  for (const auto& ending : endings) {
    for (const auto sub : {TGasAdjustSub::GasOnWait, TGasAdjustSub::NextVolt, TGasAdjustSub::Measuring}) {
      SCOPED_TRACE(testing::Message() << ending.Name << " in sub-state " << static_cast<int>(sub));
      FChanges.clear();
      ASSERT_TRUE(Model().StartAjdust({2}));
      for (int i = 0; i < 500 && (State().SubState() != sub || !Model().AjdustIsBusy()); ++i) Pass();
      ASSERT_EQ(State().SubState(), sub);
      ending.Do();
      const TTexts log = Run();
      ExpectSafe();
      EXPECT_THAT(log, testing::Contains(ending.Line).Times(1));
      EXPECT_EQ(log.back(), ending.Line);
      EXPECT_EQ(Table(2).GetCount(), 2);
      EXPECT_EQ(Table(2).GetItem(0)->Volt, 4);
      FAlarms.Stop = FGas.Throws = false;
      Pass();
    }
  }
  FAlarms.Stop = true;
  ASSERT_TRUE(Model().StartAjdust({2}));
  Pass();
  EXPECT_FALSE(Model().AjdustIsBusy()) << "a standing alarm refuses the entry";
  FAlarms.Stop = false;
  ASSERT_TRUE(Model().StartAjdust({2}));
  Model().StopAjdust();
  EXPECT_FALSE(Model().AjdustIsBusy()) << "withdrawn before it was entered";
  Pass();
  ASSERT_TRUE(FFramework->RequestState(nsStandby, 0));
  EXPECT_FALSE(Model().AjdustIsBusy()) << "what is asked for is another state";
}

TEST_F(GasAdjust, StoredTablesComeBack) {
  EXPECT_FALSE(Model().LoadGasData(2, "S", 1.5));
  EXPECT_THAT(Messages(), ElementsAre("开始读取 氧气 标定数据...", "未找到 氧气 (S 1.5) 标定数据!"));
  EXPECT_TRUE(Model().BackupCaliInfo(2));
  Messages();
  Table(2).Clear();
  EXPECT_TRUE(Model().LoadGasData(2, "S", 1.5));
  EXPECT_THAT(Messages(), ElementsAre("开始读取 氧气 标定数据...", "读取 氧气 标定成功!"));
  EXPECT_EQ(Table(2).GetCount(), 2);
  EXPECT_EQ(Model().GetMaxPress(2), 5);
  TMachineConfig saved;
  ASSERT_TRUE(saved.Load(File));
  EXPECT_TRUE(saved.GetGasBranch(2)->DAAdjustEnabled);
}

TEST_F(GasAdjust, AStoredTableThatIsNoneLoadsNothing) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "未找到"},
      {"<Item Press='1' Volt='1'/><Item Press='2' Volt='10.1'/>", "Item[2]: the stored table is not used: 10.1 V"},
      {"<Item Press='-1' Volt='1'/>", "Item[1]: the stored table is not used: -1 bar"},
      {"<Item Press='3' Volt='1'/><Item Press='2' Volt='2'/>", "falls from 3 bar at 1 V to 2 bar at 2 V"},
      {"<Item Press='1' Volt='1'/><Item Press='2,5' Volt='2'/>", "Press \"2,5\" is not a number"},
      {"<Item Press='1' Volt='1'/>", "Item[1]: the stored table is not used: a single point is no curve"},
      {"<Item Press='2' Volt='1'/><Item Press='2' Volt='2'/>", "the pressure is 2 bar at every voltage"},
      {"<Item Press='2' Volt='1'/><Item Press='3' Volt='2'/></DAAdjustTable></GasCaliItem>"
       "<GasCaliItem NozzType='S' NozzSize='1.50'><DAAdjustTable>",
       "GasCaliItem[2]: the stored table is not used: it is a second table of this nozzle"},
  };
  for (const auto& [items, why] : rows) {
    std::ofstream(Dir.Path() / "GasCalibration.config")
        << "<GasCalibration><GasO2><GasCaliItem NozzType='S' NozzSize='1.5'><DAAdjustTable>" << items
        << "</DAAdjustTable></GasCaliItem></GasO2></GasCalibration>";
    const auto loaded = Model().LoadGasData(2, "S", 1.5);
    ASSERT_FALSE(loaded) << items;
    EXPECT_THAT(loaded.Problem().Text(), HasSubstr(why));
    EXPECT_EQ(Messages().back(), loaded.Problem().Text());
    EXPECT_EQ(Table(2).GetItem(1)->Press, 5);
    EXPECT_FALSE(Config.GetGasBranch(2)->DAAdjustEnabled);
  }
}

}  // namespace
}  // namespace ixocamglue::test
