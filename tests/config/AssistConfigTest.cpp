#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "controller/config/ConfigView.h"
#include "fixture/Faults.h"
#include "fixture/Quotes.h"
#include "fixture/TempDir.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

class AssistConfig : public testing::Test {
 protected:
  AssistConfig() { InitCamConfigs(Config); }
  ~AssistConfig() override { FreeAssistConfig(); }

  std::string Load(std::string_view sections) {
    std::ofstream(File, std::ios::binary)
        << DoubleQuoted("<MachineConfig>" + std::string(sections) + "</MachineConfig>");
    const auto loaded = Config.Load(File);
    return loaded ? "" : loaded.Problem().Text();
  }
  std::string SaveAndRead() {
    EXPECT_TRUE(Config.Save());
    std::ifstream in(File, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    EXPECT_TRUE(Config.Load(File));
    return bytes;
  }

  TFaultWatch Faults;
  TTempDir Dir;
  std::filesystem::path File = Dir.Path() / "machine.xml";
  TMachineConfig Config;
  const TInstalled<TMachineConfig> Installed{Config};
};

// Name, type (b Boolean, i Integer, c Cardinal, d Double, e Extended, s string) and, where there is one, the default.
struct TInventory {
  const char *Section, *Properties;
};
constexpr TInventory kInventory[] = {
    {"AutoCleanHead",
     "CleanBrushHeight:d CleanCount:i CleanCurveStyle:i CleanCurveLength:d CleanCurveWidth:d CleanCurveDir:i "
     "CleanHeadEnabled:b CleanGasBranch:i CleanGasOpen:b CleanGasPressure:d CleanRefPtX:d CleanRefPtY:d CleanRefPtX2:d "
     "CleanRefPtY2:d CleanReturnXPos:d CleanReturnYPos:d CleanSpeed:d CleanZPos:d CleanZPos2:d CleanZReturn0:b "
     "CleanReturnStyle:i Initialized:b UseDoubleBrushes:b"},
    {"MaintainCutHead", "Enabled:b PosX:d PosY:d PosZ:d Focus:d"},
    {"LaserAlignment", ""},
    {"PhotoPaperDetect", "LaserPowerPer:d LaserRatio:d LaserPwm:i LaserDuration:i"},
    {"FloatCalibration", "AutoCailEnabled:b AdjustCapPermitHeight:d FinishFirstCali:b PosX:d PosY:d PosZ:d"},
    {"CustomCamParams", ""},
    {"EdgeSeekVison", ""},
    {"NozzleChange",
     "OutCapOpen:i OutCapClose:i OutStageUp:i OutStageDown:i InCapOpenOK/Port:i InCapOpenOK/Level:i "
     "InCapCloseOK/Port:i "
     "InCapCloseOK/Level:i InStageUpOK/Port:i InStageUpOK/Level:i InStageDownOK/Port:i InStageDownOK/Level:i "
     "MotorAxis:i CapCaliAfterChange:b ChangeNozzleEnabled:b MotorDir:b LiftHeightAfterUn:e LiftPosAfterIn:e "
     "ZMoveLowSpeed:e ZMoveHighSpeed:e ReplaceStyle:i InstallID:i UninstallID:i ZDis:d=20 Version:i "
     "NozzlePosItems/RowCount:i NozzlePosItems/ColCount:i NozzlePosItems/PosItem[]/Row:i "
     "NozzlePosItems/PosItem[]/Col:i NozzlePosItems/PosItem[]/X:e NozzlePosItems/PosItem[]/Y:e "
     "NozzlePosItems/PosItem[]/Z:e NozzlePosItems/PosItem[]/UninstZ:e NozzlePosItems/PosItem[]/UseDiffZ:b "
     "NozzlePosItems/PosItem[]/InstCnt:e NozzlePosItems/PosItem[]/UnInstCnt:e NozzlePosItems/PosItem[]/AlignCnt:e "
     "NozzlePosItems/PosItem[]/InstSpeed:e NozzlePosItems/PosItem[]/UnInstSpeed:e "
     "NozzlePosItems/PosItem[]/AlignSpeed:e NozzlePosItems/PosItem[]/InReady/Port:i "
     "NozzlePosItems/PosItem[]/InReady/Level:i Jog/Slow:d Jog/Medium:d Jog/High:d Jog/FixedStep:b Jog/FixedDistance:d "
     "NozzleItems/NozzleItem[]/ID:i NozzleItems/NozzleItem[]/Name:s NozzleItems/NozzleItem[]/PosRow:i "
     "NozzleItems/NozzleItem[]/PosCol:i"},
    {"Blanking", "Enabled:b PosX:d PosY:d"},
    {"VisionGlbParams", "CameraEnabled:b"},
    {"StrokeMeasurement",
     "XNeg:e XPos:e YNeg:e YPos:e XMaxNeg:e XMaxPos:e YMaxNeg:e YMaxPos:e XNegativeRange:e XPositiveRange:e "
     "YNegativeRange:e YPositiveRange:e IsFinished:b"},
    {"UCSOrgName", "UCSNum:i LastUCSOrg:i UCSName<n>:s"},
    {"Follower/CaliResults",
     "MaxCnt:i=20 CaliRst[]/Time:s CaliRst[]/Cap:d CaliRst[]/SteadyLv:i CaliRst[]/SmoothLv:i CaliRst[]/CaliCapRange:d "
     "CaliRst[]/ErrorType:i"},
    {"ScanCode", "ScanCodeEnabled:b"},
    {"CloudCut", "CloudCutEnabled:b"},
    {"FocusDebug", "BeamSize:e FocusStart:e FocusEnd:e FocusSpace:e LineLength:i LineDistance:i FrameWidth:i"},
    {"MoltenPoolDebug", "LineCount:i LineLength:i LineDistance:i FrameWidth:i"},
    {"Healths",
     "Health[]/Desc:s Health[]/Key:s Health[]/AddMode:i Health[]/PromptTime:d Health[]/Countdown:d "
     "Health[]/WarningTime:d Health[]/TimeMode:i Health[]/PromptType:i Health[]/AllowIgnore:b Health[]/OpreLevel:i"},
    {"MarkPoints",
     "MarkPoint[]/FlagIndex:i MarkPoint[]/CustomDesc:s MarkPoint[]/Enabled:b MarkPoint[]/IsSystemDefine:b"},
    {"SysDelay", "IsFinished:b SysDelayX:d SysDelayY:d LastTime:d MoveDis:d MoveSpeed:d"},
    {"StrayLight",
     "LaserParams/LaserPowerPer:d LaserParams/LaserRatio:d LaserParams/LaserPwm:i LaserParams/LaserDuration:i "
     "DefMaxStrayLight:i DefMaxDiffStray:i DefMaxStrayLightLimit:i StaryLightLimit:i StrayLightExcellent:i "
     "StrayLightGood:i StrayLightMiddle:i StrayLightPoor:i StrayLightLv:i FocusStart:d FocusEnd:d FocusStep:d "
     "FocusOptimalPos:d FocusOptimalNeg:d"},
    {"ModbusStore",
     "StoreEnabled:b WriteCurDrawingParamAddr:i WriteNextDrawingParamAddr:i UCSInfoEnabled:b WriteUCSInfoParamAddr:i "
     "ExportFileNameEnabled:b WriteFileNameParamAddr:i DataTransConfig/CommPort:i=1 "
     "DataTransConfig/CommSettings:s=9600,n,8,1 DataTransConfig/UseTcp:b DataTransConfig/TcpHost:s=127.0.0.1 "
     "DataTransConfig/TcpPort:i=502 DataTransConfig/IsModbusTcp:b "
     "DataTransConfig/ProbeRegister:i=-1"},
    {"IxoCutParams/ClientDebug",
     "SeekEdgeBeforeStart:b AutoChangeDrawing:b JogFixed:b FitStyle:i ReturnStyle:i UCSIndex:i JogDistance:d "
     "ViewType:i "
     "StepDistance:d StepSpeed:d MarkPointFlag:i WorkedCount:i ExportSelOnly:b ConnerMarkEnable:b AutoNextModel:b "
     "HintWorkDone:b CtrlRemoteActive:b SlaveSelected:b AutoCleanHeadConfig/AutoCleanEnabled:b "
     "AutoCleanHeadConfig/PresetPierceCount:i AutoCleanHeadConfig/AutoCailAfterClean:b "
     "AutoCleanHeadConfig/LastPierceCount:i AutoCleanHeadConfig/LastPierceTotal:i "
     "ManualLaserConifg/LaserParams1/LaserDiodeCurrent:d ManualLaserConifg/LaserParams1/LaserFrequency:i "
     "ManualLaserConifg/LaserParams1/LaserRatio:d ManualLaserConifg/LaserParams2/LaserDiodeCurrent:d "
     "ManualLaserConifg/LaserParams2/LaserFrequency:i ManualLaserConifg/LaserParams2/LaserRatio:d "
     "ManualLaserConifg/LaserParams3/LaserDiodeCurrent:d ManualLaserConifg/LaserParams3/LaserFrequency:i "
     "ManualLaserConifg/LaserParams3/LaserRatio:d"},
    {"IxoCutParams/InVivoDetection",
     "Enabled:b ReportType:i IgnoreAlarmWhenWalkAround:b CommAlarmDelayMs:c ReportPort:i AlarmCfg/Number:i "
     "AlarmCfg/Desc:s AlarmCfg/Reason:s AlarmCfg/Solution:s"},
    {"IxoCutParams/LaserTest",
     "LaserParam/LaserPowerPer:d LaserParam/LaserRatio:d LaserParam/LaserPwm:i LaserParam/LaserDuration:i "
     "EnableFixLaserOnTime:b"},
};
constexpr const char* kIxoCut =
    "InitRTOSTimeOut:i TaskSortType:i AutoRun:b ServoStruct:i FastResume:b UserOnline:b MultiStation:b UseSoftPanel:b "
    "DefaultLayerCheck:b UseNineLevelPiece:b AutoMatchTech:b AlignmentDiagramPath:s";

std::string Line(const TPropertyView& view, std::size_t skip) {
  static const std::map<std::string, std::string, std::less<>> letters = {
      {"Boolean", "b"}, {"Integer", "i"}, {"Cardinal", "c"}, {"Double", "d"}, {"Extended", "e"}, {"string", "s"}};
  std::string line = view.Path.substr(skip) + ":" + letters.at(view.Type);
  if (!view.Default.empty() && view.Default != "0" && view.Default != "False") line += "=" + view.Default;
  return line;
}

TEST_F(AssistConfig, EachSectionHasItsPropertiesInOrderWithTypeAndDefault) {
  const auto views = ViewProperties(Config, true);
  for (const auto& [section, properties] : kInventory) {
    std::string found;
    const std::string prefix = std::string(section) + "/";
    for (const auto& view : views)
      if (view.Path.starts_with(prefix)) found += (found.empty() ? "" : " ") + Line(view, prefix.size());
    EXPECT_EQ(found, properties) << section;
  }
  std::string cut;
  constexpr std::size_t kPrefix = sizeof "IxoCutParams";
  for (const auto& view : views)
    if (view.Path.starts_with("IxoCutParams/") && view.Path.find('/', kPrefix) == std::string::npos)
      cut += (cut.empty() ? "" : " ") + Line(view, kPrefix);
  EXPECT_EQ(cut, kIxoCut);
  InitCamConfigs(Config);
  EXPECT_EQ(ViewProperties(Config, true).size(), views.size());
  EXPECT_TRUE(Faults.Claim().empty());
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
  std::ofstream(File, std::ios::binary) << elements;
  ASSERT_TRUE(Config.Load(File));
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
  struct TCase {
    const char* Settings;
    std::int32_t Baudrate;
    const char* After;
  };
  const TCase cases[] = {{"9600,n,8,1", 9600, "19200,n,8,1"},
                         {"+4800,e", 4800, "19200,e"},
                         {",n,8,1", 9600, ",n,8,1"},
                         {"fast,n", 9600, "fast,n"},
                         {"19200", 9600, "19200"},
                         {" 300,n", 9600, " 300,n"},
                         {"99999999999,n", 9600, "99999999999,n"}};
  TDataTransConfig config;
  for (const TCase& c : cases) {
    config.CommSettings = c.Settings;
    EXPECT_EQ(config.GetBaudrate(), c.Baudrate) << c.Settings;
    config.SetBaudrate(19200);
    EXPECT_EQ(config.CommSettings, c.After);
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
