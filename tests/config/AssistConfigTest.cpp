#include <sstream>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "controller/config/ConfigView.h"
#include "fixture/Faults.h"
#include "fixture/OwnConfig.h"
#include "fixture/Quotes.h"
#include "ixocamglue/config/Uassistconfig.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

class AssistConfig : public testing::Test, protected TOwnConfig {
 protected:
  AssistConfig() { InitCamConfigs(Config); }
  ~AssistConfig() override { FreeAssistConfig(); }

  std::string Load(std::string_view sections) {
    return TOwnConfig::Load(DoubleQuoted("<MachineConfig>" + std::string(sections) + "</MachineConfig>"));
  }
  std::string SaveAndRead() {
    EXPECT_TRUE(Config.Save());
    std::string bytes = FileText(File);
    EXPECT_TRUE(Config.Load(File));
    return bytes;
  }

  TFaultWatch Faults;
  const TInstalled<TMachineConfig> Installed{Config};
};

// Which properties there are, in which order, with which type and default, holds the reference of the machine file.
TEST_F(AssistConfig, RecordsAreThereOnce) {
  const auto views = ViewProperties(Config, true);
  InitCamConfigs(Config);
  EXPECT_EQ(ViewProperties(Config, true).size(), views.size());
}

// A value that no other property has.
std::string Different(const TPropertyView& view, int number) {
  if (view.Type == "Boolean") return view.Default == "True" ? "False" : "True";
  if (!view.Range.empty()) return "2";
  if (view.Type == "Double" || view.Type == "Extended") return std::to_string(number) + ".125";
  return view.Type == "string" ? "t<&\"" + std::to_string(number) : std::to_string(number);
}

void MakeItems() {
  FNozzleChangeCfg->NozzlePosItems.SetRowCount(2);
  FNozzleChangeCfg->NozzlePosItems.SetColCount(2);
  FNozzleChangeCfg->NozzleItems.NewItem();
  FCaliRstCfg->Add({});
  FHealthCfg->Add({});
  FMarkPointsCfg->Add({});
  FUCSOrgCfg->SetUcsOrgName(4, "d");
}

TEST_F(AssistConfig, ADifferentValueInEveryFieldComesBackAsAttributeAndAsElement) {
  ASSERT_EQ(Load(""), "");
  MakeItems();
  std::map<std::string, std::string> wanted;
  int number = 1000;
  for (const auto& view : ViewProperties(Config, false)) {
    if (view.Path.ends_with("/Row") || view.Path.ends_with("/Col")) continue;  // they say where the item is
    const std::string value = Different(view, ++number);
    ASSERT_TRUE(SetProperty(Config, view.Path, value)) << view.Path;
    wanted[view.Path] = value;
  }
  const auto expectAll = [&] {
    std::size_t seen = 0;
    for (const auto& view : ViewProperties(Config, false)) {
      const auto it = wanted.find(view.Path);
      if (it == wanted.end()) continue;
      ++seen;
      EXPECT_EQ(view.Value, it->second) << view.Path;
    }
    EXPECT_EQ(seen, wanted.size());
  };
  EXPECT_GT(wanted.size(), 300u);
  (void)SaveAndRead();
  expectAll();
  // The same file with each attribute as an element.
  struct TSpread final : pugi::xml_tree_walker {
    bool for_each(pugi::xml_node& node) override {
      if (node.type() != pugi::node_element) return true;
      while (const pugi::xml_attribute attribute = node.first_attribute()) {
        node.append_child(attribute.name()).text().set(attribute.value());
        node.remove_attribute(attribute);
      }
      return true;
    }
  } spread;
  pugi::xml_document document;
  ASSERT_TRUE(document.load_file(File.c_str()));
  document.traverse(spread);
  std::ostringstream written;
  document.save(written);
  const std::string elements = written.str();
  ASSERT_EQ(TOwnConfig::Load(elements), "");
  expectAll();
  EXPECT_EQ(SaveAndRead(), elements);
}

TEST_F(AssistConfig, TheRackPutsItemsWhereTheyBelongAndLeavesTheOthersInTheFile) {
  const std::string_view in =
      "<NozzleChange><NozzlePosItems RowCount='2' ColCount='2'><PosItem Row='1' Col='0' X='10'/>"
      "<PosItem X='1'/><PosItem Row='1' Col='0' X='99'/><PosItem Row='5' Col='0' X='50' mine='1'/></NozzlePosItems>"
      "</NozzleChange>";
  ASSERT_EQ(Load(in), "");
  auto& rack = FNozzleChangeCfg->NozzlePosItems;
  const auto x = [&](int row, int col) { return rack.GetPos(row, col) ? rack.GetPos(row, col)->X : -1.0L; };
  EXPECT_EQ(x(1, 0), 10.0L);
  EXPECT_EQ(x(0, 1), 1.0L);  // the second item, in order
  EXPECT_EQ(x(5, 0), -1.0L);
  EXPECT_TRUE(rack.SetColCount(3));
  EXPECT_EQ(x(1, 0), 10.0L);
  EXPECT_FALSE(rack.SetRowCount(101));
  const std::string saved = SaveAndRead();
  EXPECT_NE(saved.find("<PosItem Row=\"5\" Col=\"0\" X=\"50\" mine=\"1\"/>"), std::string::npos) << saved;
  EXPECT_EQ(SaveAndRead(), saved);
  EXPECT_EQ(SetProperty(Config, "NozzleChange/NozzlePosItems/PosItem[1]/Row", "1").Problem().What,
            "the cell of row 2, column 1 (counted from 1) is taken by PosItem[4]");
  EXPECT_TRUE(SetProperty(Config, "NozzleChange/NozzlePosItems/PosItem[1]/Row", "0"));
  EXPECT_TRUE(rack.SetRowCount(1));
  EXPECT_EQ(SaveAndRead().find("X=\"10\""), std::string::npos);
  // A grid that grows over an item outside has its own values there, and so has the file: also over the second item of
  // (1,0), whose first one is gone.
  EXPECT_TRUE(rack.SetRowCount(6));
  EXPECT_EQ(x(5, 0), 0.0L);
  rack.GetPos(1, 0)->X = 7.0L;
  const std::string grown = SaveAndRead();
  EXPECT_NE(grown.find("<PosItem Row=\"5\" Col=\"0\" X=\"0\" mine=\"1\""), std::string::npos) << grown;
  EXPECT_EQ(x(5, 0), 0.0L);
  EXPECT_EQ(x(1, 0), 7.0L);
}

TEST_F(AssistConfig, TheSecondItemOfACellNeverBecomesTheFirst) {
  ASSERT_EQ(Load("<NozzleChange><NozzlePosItems RowCount='2' ColCount='1'><PosItem Row='1' X='10'/>"
                 "<PosItem Row='1' X='99'/><PosItem X='98'/><PosItem Row='0' X='1'/></NozzlePosItems></NozzleChange>"),
            "");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(FNozzleChangeCfg->NozzlePosItems.GetPos(1, 0)->X, 10.0L);
    EXPECT_EQ(FNozzleChangeCfg->NozzlePosItems.GetPos(0, 0)->X, 1.0L);
    EXPECT_NE(SaveAndRead().find("X=\"99\""), std::string::npos);
  }
}

TEST_F(AssistConfig, ListsKeepTheirLimitsAndNeverReadWhatIsTheProgramsOwn) {
  ASSERT_EQ(
      Load("<Laser><CaliResults MaxCnt='2'><CaliRst Cap='1'/><CaliRst Cap='2' Time='2026-01-02 03:04:05'/><CaliRst "
           "Cap='3' "
           "Time='2026-01-02 03:04:05.006'/></CaliResults></Laser><MarkPoints Count='77'><MarkPoint FlagIndex='104' "
           "SystemDesc='other'/></MarkPoints><UCSOrgName UCSNum='1001' UCSName1='b' ucsname0='a' UCSNameX='c'/>"),
      "");
  ASSERT_EQ(FCaliRstCfg->Count(), 2);  // found under another section; the last two
  EXPECT_EQ(FCaliRstCfg->GetItem(0)->Cap, 2);
  EXPECT_EQ(FormatDateTime(FCaliRstCfg->GetItem(0)->GetTime()), "2026-01-02 03:04:05.000");
  EXPECT_EQ(FormatDateTime(FCaliRstCfg->GetItem(1)->GetTime()), "2026-01-02 03:04:05.006");
  EXPECT_EQ(FCaliRstCfg->Add({}), 1);
  EXPECT_EQ(FCaliRstCfg->GetItem(0)->Cap, 3);
  EXPECT_FALSE(FCaliRstCfg->SetMaxCnt(0) || FCaliRstCfg->SetMaxCnt(1001));
  EXPECT_TRUE(FCaliRstCfg->SetMaxCnt(1));
  EXPECT_EQ(FCaliRstCfg->Count(), 1);
  EXPECT_FALSE(FCaliRstCfg->Delete(1) || FCaliRstCfg->SetItem(-1, {}));
  EXPECT_EQ(FCaliRstCfg->GetItem(1), nullptr);
  EXPECT_EQ(FMarkPointsCfg->GetItem(0)->SystemDesc(), "下料位");
  EXPECT_EQ(FUCSOrgCfg->GetUCSNum(), 0);
  EXPECT_EQ(FUCSOrgCfg->GetUCSOrgName(0) + FUCSOrgCfg->GetUCSOrgName(1), "ab");
  const std::string saved = SaveAndRead();
  EXPECT_NE(saved.find("<Laser><CaliResults MaxCnt=\"1\">"), std::string::npos) << saved;
  EXPECT_NE(saved.find("<MarkPoints Count=\"1\"><MarkPoint FlagIndex=\"104\" SystemDesc=\"下料位\""),
            std::string::npos);
  EXPECT_NE(saved.find("UCSNum=\"1001\" UCSName1=\"b\" UCSName0=\"a\" UCSNameX=\"c\""), std::string::npos) << saved;
}

TEST_F(AssistConfig, TheBaudRateIsTheNumberBeforeTheFirstComma) {
  const std::tuple<const char*, std::int32_t, const char*> cases[] = {{"9600,n,8,1", 9600, "19200,n,8,1"},
                                                                      {"+4800,e", 4800, "19200,e"},
                                                                      {",n,8,1", 9600, ",n,8,1"},
                                                                      {"fast,n", 9600, "fast,n"},
                                                                      {"19200", 9600, "19200"},
                                                                      {" 300,n", 9600, " 300,n"},
                                                                      {"99999999999,n", 9600, "99999999999,n"}};
  TDataTransConfig config;
  for (const auto& [settings, baudrate, after] : cases) {
    config.CommSettings = settings;
    EXPECT_EQ(config.GetBaudrate(), baudrate) << settings;
    config.SetBaudrate(19200);
    EXPECT_EQ(config.CommSettings, after);
  }
}

TEST_F(AssistConfig, ThePierceCounterCountsFromTheTotalAndStartsAgainWhenItWentDown) {
  ASSERT_EQ(Load("<NcParams PierceTotal='1000'/><IxoCutParams><ClientWork><AutoCleanHeadConfig PresetPierceCount='12' "
                 "LastPierceCount='5' LastPierceTotal='1'/></ClientWork></IxoCutParams>"),
            "");
  auto& total = Config.NcParams().PierceTotal;
  EXPECT_EQ(FWorkPierceCounter->GetPierceCount(), 5);
  total = 1006;
  FWorkPierceCounter->CalcPierceCount();
  EXPECT_FALSE(FWorkPierceCounter->NeedClean());
  total = 1007;
  FWorkPierceCounter->CalcPierceCount();
  EXPECT_TRUE(FWorkPierceCounter->NeedClean());
  EXPECT_TRUE(FWorkPierceCounter->SaveParam());
  EXPECT_NE(SaveAndRead().find("LastPierceCount=\"12\" LastPierceTotal=\"1007\""), std::string::npos);
  total = std::numeric_limits<std::int32_t>::max();
  FWorkPierceCounter->CalcPierceCount();
  total = -5;
  FWorkPierceCounter->CalcPierceCount();
  EXPECT_EQ(FWorkPierceCounter->GetPierceCount(), 0);
  FIxoCutCfg->ClientWork.AutoCleanHeadConfig.PresetPierceCount = 0;
  total = 100'000;
  FWorkPierceCounter->CalcPierceCount();
  EXPECT_FALSE(FWorkPierceCounter->NeedClean());
  FWorkPierceCounter->SetConfig(nullptr, nullptr);
  EXPECT_FALSE(FWorkPierceCounter->SaveParam());
}

TEST_F(AssistConfig, StrokesThatNoLongerFitTheSoftLimitsAreNotFinished) {
  ASSERT_EQ(Load("<Axes><Axis Name='X' SoftLimitNeg='-2' SoftLimitPos='3000'/><Axis Name='Y' SoftLimitNeg='-1500' "
                 "MotorDir='1'/></Axes>"),
            "");
  const auto finished = [&](long double x, long double y) {
    FStrokeCfg->XPositiveRange = x;
    FStrokeCfg->YNegativeRange = y;
    FStrokeCfg->IsFinished = true;
    FStrokeCfg->CheckRange(Config);
    return FStrokeCfg->IsFinished;
  };
  EXPECT_TRUE(finished(2999.9995L, 1500));
  EXPECT_TRUE(finished(3010, 1510));  // further than the limits
  EXPECT_FALSE(finished(2999.998L, 1500));
  EXPECT_FALSE(finished(3000, 1499.9L));
}

}  // namespace
}  // namespace ixocamglue::test
