
#include <gtest/gtest.h>

#include "fixture/OwnConfig.h"
#include "fixture/Quotes.h"
#include "fixture/Texts.h"
#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/config/Ucamglue.h"

namespace ixocamglue::test {
namespace {

class MachineQueries : public testing::Test, protected TOwnConfig {
 protected:
  static void Load(std::string_view sections, TOwnConfig& own) {
    ASSERT_EQ(own.Load(DoubleQuoted("<MachineConfig>" + std::string(sections) + "</MachineConfig>")), "");
  }
  void Load(std::string_view sections) { Load(sections, *this); }
  std::string Bytes() { return FileText(File); }
  const TInstalled<TMachineConfig> Installed{Config};
};

TEST_F(MachineQueries, GasNamesAreExactAndTheDictionaryAnswersForWhatIsNotListed) {
  const char* const names[] = {"Air", "O2", "N2", "H-Air", "H-O2", "H-N2"};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(GetGasTypeFromStr(names[i]), i + 1);
  EXPECT_EQ(GetGasTypeFromStr("air"), -1);

  TGasTypeDic dic;
  EXPECT_EQ(dic.FirstGasBranch(), -1);
  EXPECT_EQ(dic.ValidateGasType(2), -1);
  Load(
      "<GasList><Gas Name='N2' Value='3'/><Gas Name='Mix' Value='x'/><Gas Name='Argon' Value='9'/><Gas Name='O2' "
      "Value='3'/></GasList><GasBranches><GasBranch GasType='3' DAPort='35'/></GasBranches>");
  dic.Reset();
  EXPECT_EQ(dic.GetCount(), 3);
  EXPECT_EQ(dic.GetDesc(0) + dic.GetDesc(1) + dic.GetDesc(7), "氮气Argon");
  EXPECT_EQ(dic.GetDAPort(0), 35);
  EXPECT_EQ(dic.GetDAPort(1), -1);
  EXPECT_EQ(dic.IndexOfValue("3"), 0);
  EXPECT_EQ(dic.GetValue(5), -1);
  EXPECT_EQ(dic.ValidateGasType(2), 3);
  EXPECT_EQ(dic.FilterGasType(2), 0);
  EXPECT_EQ(dic.FilterGasType(9), 9);
  EXPECT_EQ(dic.ValidateGasIndex(9), 1);
  EXPECT_EQ(dic.ValidateGasIndex(2), 0);
  EXPECT_EQ(dic.FilterGasIndex(2), -1);
}

TEST_F(MachineQueries, TheCuttingHeadIsFoundByBusIdentityAndThenByModel) {
  const std::pair<const char*, int> heads[] = {
      {"<CutHead Model='Precitec'/>", 0},
      {"<CutHead Model='HighYag'/>", 1},
      {"<CutHead Model='Procutter'/>", 2},
      {"<CutHead Model='ZEM400'/>", 3},
      {"<CutHead Model='AxisK'/>", 4},
      {"<CutHead Model='IPGCut'/>", 5},
      {"<CutHead Model='procutter'/>", 7},
      {"", 7},
      {"<CutHead Model='AxisK'/><Slaves><Slave/><Slave Identity='0xE0000044' ProductNo='43'/></Slaves>", 6},
      {"<Slaves><Slave Identity='-536870844' ProductNo='43'/></Slaves>", 6},
      {"<Slaves><Slave Identity='0xE0000044' ProductNo='42'/></Slaves>", 7},
  };
  for (const auto& [sections, type] : heads) {
    Load(sections);
    EXPECT_EQ(GetCutHeadType(), type) << sections;
  }
  Load(
      "<CutHead Model='procutter'/><HeightController Model='ZEM401'/><Slaves><Slave/><Slave HeadDesc='BM'/></Slaves>"
      "<NcParams MaxMoveSpeed='1600.5'/>");
  EXPECT_TRUE(CutHeadIsProcutter());
  EXPECT_EQ(GetFocusModelCaption("ZEM400"), "ZEM400(BM)");
  EXPECT_EQ(GetFocusModelCaption("Procutter"), "ProCutter-Zoom");
  EXPECT_EQ(GetFocusModelCaption("Other"), "Other");
  EXPECT_EQ(GetMachineMaxSpeed(), 1600.5);
  Load("<HeightController Model='zem400'/><Slaves><Slave HeadDesc='BM'/></Slaves>");
  EXPECT_EQ(GetFocusModelCaption("ZEM400"), "ZEM400");
}

std::vector<std::int32_t> KeysOf(const TDADic& dic) {
  std::vector<std::int32_t> keys;
  for (const auto& [key, port] : dic) keys.push_back(key);
  return keys;
}

TEST_F(MachineQueries, AnaloguePortsAreNumberedByExtensionAndDemoGroupsStandInWithoutOne) {
  using TKeys = std::vector<std::int32_t>;
  const TKeys demo{33, 34, 35, 36, 65, 66, 67, 68, 97, 98, 99, 100};
  TDADic da;
  TADDic ad;
  CalcAllPorts(nullptr, da, ad);
  EXPECT_EQ(KeysOf(da), demo);
  EXPECT_EQ(ad.at(36), PORT_AD_BASE + 36);
  Load(
      "<Slaves><Slave ExtIO='true' DACount='2'/><Slave DACount='9'/><Slave ExtIO='true' DACount='4' "
      "ADCount='-3'/></Slaves>");
  CalcAllPorts(&Config, da, ad);
  EXPECT_EQ(KeysOf(da), (TKeys{33, 34, 65, 66, 67, 68}));
  EXPECT_EQ(da.at(68), PORT_DA_BASE + 68);
  EXPECT_TRUE(ad.empty());  // two extensions without AD channels keep the demo groups away
  Load("<Slaves><Slave ExtIO='true' DACount='1000000'/></Slaves>");
  CalcAllDA(&Config, da);
  EXPECT_EQ(da.size(), 32u);
}

TEST_F(MachineQueries, EveryAxisParameterThatMattersCountsAsAChange) {
  const auto sections = [](const std::string& x, const std::string& drive, const char* gantry) {
    return std::string(gantry) + "<Axes><Axis Name='X' SoftLimitPos='3000' " + x + "><Drive MmPerRev='20' " + drive +
           "/></Axis><Axis Name='Y'/></Axes>";
  };
  TOwnConfig other;
  Load(sections("", "", ""));
  const auto modified = [&](const std::string& x, const std::string& drive, const char* gantry = "") {
    Load(sections(x, drive, gantry), other);
    return AxisParamModify(Config, other.Config);
  };
  EXPECT_FALSE(modified("MaxSpeed='5'", ""));
  EXPECT_FALSE(modified("SoftLimitNeg='0.0000005'", ""));
  for (const char* change : {"SoftLimitNeg='1'", "MotorDir='1'", "EncoderDir='1'", "HomeDir='1'"})
    EXPECT_TRUE(modified(change, "")) << change;
  EXPECT_TRUE(modified("", "PulsesPerRev='1'"));
  EXPECT_TRUE(modified("", "", "<Gantry XAxis='2'/>"));
  EXPECT_TRUE(modified("MotorDir='1'", "", "<Gantry XAxis='0'/>"));
  Load("<Gantry XAxis='0' YAxis='-1'/>");
  EXPECT_FALSE(modified("", "", "<Gantry XAxis='-7' YAxis='0'/>"));
}

TEST_F(MachineQueries, ThePalletDelaysAreMovedOnceAndNeverOverNewOnes) {
  Load("<SwitchTable DockedTable='1'><Elvt RailStartDelay='300' RailStopDelay='200' own='1'/></SwitchTable>");
  CheckSwitchTableConfig(Config, false);
  const std::string once = Bytes();
  EXPECT_NE(once.find("<SwitchTable DockedTable=\"1\" CheckRailDelay=\"True\">"), std::string::npos) << once;
  EXPECT_NE(
      once.find(
          "own=\"1\" BeforeUpDelay=\"300\" BeforeDownDelay=\"300\" AfterUpDelay=\"200\" AfterDownDelay=\"200\"/>"),
      std::string::npos)
      << once;
  CheckSwitchTableConfig(Config, false);
  CheckSwitchTableConfig(Config, true);
  EXPECT_EQ(Bytes(), once);
  Load("<SwitchTable CheckRailDelay='true'><Elvt RailStartDelay='7'/></SwitchTable>");
  CheckSwitchTableConfig(Config, false);
  EXPECT_EQ(Bytes().find("BeforeUpDelay"), std::string::npos);
  CheckSwitchTableConfig(Config, true);
  EXPECT_NE(Bytes().find("AfterDownDelay=\"0\""), std::string::npos);
  TMachineConfig none;
  CheckSwitchTableConfig(none, true);
  EXPECT_FALSE(none.SwitchTable().CheckRailDelay);
}

}  // namespace
}  // namespace ixocamglue::test
