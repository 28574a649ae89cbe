
#include <gtest/gtest.h>

#include "controller/process/StateFolder.h"
#include "fixture/Installed.h"
#include "fixture/OwnConfig.h"
#include "fixture/Texts.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/platform/ports/Alarmintf.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

class TDefinitions final : public IAlarmInterpreterSvc {
 public:
  std::string GetAlarmDefinitions() override {
    if (Throws) throw std::runtime_error("no list");
    return Json;
  }
  std::string Json = "[]";
  bool Throws = false;
};

std::shared_ptr<const TAlarmConfigItem> Item(int number, const char* desc, const char* reason, const char* solution) {
  auto item = std::make_shared<TAlarmConfigItem>();
  item->Number = number;
  item->Desc = desc;
  item->Reason = reason;
  item->Solution = solution;
  return item;
}

TNcAlarmMsg Msg(std::string_view id, std::string_view desc) {
  TNcAlarmMsg msg;
  msg.Texts = TNcAlarmTexts(id, desc);
  return msg;
}

class Interpreter : public testing::Test {
 protected:
  void Offer(const std::string& json) {
    Definitions->Json = json;
    App.Register(IID_IAlarmInterpreterSvc, Definitions);
  }
  static TAlarmRec Rec(const TAlarmInterpreter& interpreter, std::string_view id) {
    TAlarmRec rec;
    EXPECT_TRUE(interpreter.TryGetAlarmRec(id, rec)) << id;
    return rec;
  }
  static bool Has(const TAlarmInterpreter& interpreter, std::string_view id) {
    TAlarmRec rec{"not", "cleared", "", "", "", "", "", ""};
    const bool found = interpreter.TryGetAlarmRec(id, rec);
    EXPECT_TRUE(found || rec == TAlarmRec{}) << "not found clears the record";
    return found;
  }

  TAppSys App;
  std::shared_ptr<TDefinitions> Definitions = std::make_shared<TDefinitions>();
  TAlarmsConfig Config;
  TAllInstalled<TAppSys, TAlarmsConfig> Installed{App, Config};
};

TEST_F(Interpreter, MembersAreReadByTheirExactNamesAndOddOnesTolerated) {
  Offer(
      "\xEF\xBB\xBF"
      R"([{"HelpID":"A#1","BrifDesc":"b","Code":7,"AlarmDesc":true,"Category":1.5,
      "Alarmtype":null,"Reason":{"x":1},"Solution":["y"],"alarmdesc":"wrong case"},
      "no object", 5, {"Code":"no id"}, {"HelpID":"B","Code":"first","Reason":"r"}, {"HelpID":"B","Code":"second"}])");
  const TAlarmInterpreter interpreter;
  EXPECT_EQ(Rec(interpreter, "A#1"), (TAlarmRec{"A#1", "b", "7", "1.5", "", "true", "", ""}));
  EXPECT_EQ(Rec(interpreter, "").Code, "no id");
  EXPECT_EQ(Rec(interpreter, "B"), (TAlarmRec{"B", "", "second", "", "", "", "", ""}))
      << "the whole record is replaced";
  EXPECT_FALSE(Has(interpreter, "b"));
}

TEST_F(Interpreter, WhatIsNoArrayEmptiesTheDictionaryAndDropsTheConfiguredAlarmsToo) {
  Config.Items = {Item(1, "d", "r", "s")};
  Offer(R"([{"HelpID":"A#1"}])");
  TAlarmInterpreter interpreter;
  EXPECT_EQ(interpreter.Count(), 2U);
  for (const char* const json : {"", "{", "{}", "[{\"HelpID\":\"A#1\"},", "null", "[\"\xFF\"]"}) {
    Definitions->Json = json;
    interpreter.InitAlarmDict();
    EXPECT_EQ(interpreter.Count(), 0U) << json;
    Definitions->Json = R"([])";
    interpreter.InitAlarmDict();
    EXPECT_EQ(interpreter.Count(), 1U) << "an empty list still adds the configured alarms";
  }
  Definitions->Throws = true;
  interpreter.InitAlarmDict();
  EXPECT_EQ(interpreter.Count(), 0U);
}

TEST_F(Interpreter, AMissingServiceThrowsItsTextAndKeepsTheOldTexts) {
  Offer(R"([{"HelpID":"A#1"}])");
  TAlarmInterpreter interpreter;
  App.Unregister(IID_IAlarmInterpreterSvc);
  EXPECT_EQ(Thrown<std::runtime_error>([&] { interpreter.InitAlarmDict(); }),
            "Appsys Cannot support IAlarmInterpreterSvc, Fail in doing InitAlarmDict");
  EXPECT_TRUE(Has(interpreter, "A#1"));
}

TEST_F(Interpreter, ConfiguredAlarmsGetTheirNumbersAndOverrideTheList) {
  Config.Items = {Item(1, "one", " r ", "s"), nullptr, Item(2, "blank", "r", " \t\r\n"),
                  Item(3, "no-break", "\xC2\xA0", "s")};
  const auto group = [](int bits, std::map<std::int32_t, std::shared_ptr<const TAlarmConfigItem>> items) {
    return std::make_shared<TMulityAlarmGroup>(TMulityAlarmGroup{"g", bits, std::move(items)});
  };
  Config.Groups = {group(2, {{0, Item(0, "g0", "", " ")}, {3, nullptr}}), nullptr, group(3, {}),
                   group(33, {{1, Item(0, "g3", "", "")}}), group(0, {{0, Item(0, "g4", "", "")}})};
  Offer(R"([{"HelpID":"UserDefAlarm#1001","Category":"list"}])");
  const TAlarmInterpreter interpreter;
  EXPECT_EQ(Rec(interpreter, "UserDefAlarm#1001"),
            (TAlarmRec{"UserDefAlarm#1001", "one", "UserDefAlarm#1001", "", "报警", "one", " r ", "s"}));
  EXPECT_FALSE(Has(interpreter, "UserDefAlarm#1002"));
  EXPECT_TRUE(Has(interpreter, "UserDefAlarm#1003")) << "only U+0000 to U+0020 are blanks";
  EXPECT_EQ(Rec(interpreter, "UserDefAlarm#2000").BrifDesc, "g0") << "no test of the texts in a group";
  EXPECT_EQ(Rec(interpreter, "UserDefAlarm#2013").BrifDesc, "g3") << "4 + 8 numbers come before";
  EXPECT_EQ(Rec(interpreter, "UserDefAlarm#2014").BrifDesc, "g4") << "33 bits count as 1";
  EXPECT_EQ(interpreter.Count(), 5U);
}

TEST_F(Interpreter, AMessageIsExplainedOrExplainsItself) {
  Offer(R"([{"HelpID":"A#1","Code":"C","AlarmDesc":"full","Reason":"r","Solution":"s","Category":"m","Alarmtype":"t"},
            {"HelpID":"A#2"}])");
  const TAlarmInterpreter interpreter;
  TAlarmRec rec;
  EXPECT_TRUE(interpreter.TryGetAlarmRec(Msg("A#2", "told"), rec));
  EXPECT_EQ(rec.AlarmDesc, "told");
  EXPECT_EQ(Rec(interpreter, "A#2").AlarmDesc, "") << "a lookup never alters the dictionary";
  EXPECT_FALSE(interpreter.TryGetAlarmRec(Msg("X#9", "told"), rec));
  EXPECT_EQ(rec, (TAlarmRec{"X#9", "told", "X#9", "", "报警", "told", "", ""}));
  const TNcAlarmMsg msg = Msg("A#1", "told");
  EXPECT_EQ(interpreter.GetAlarmDesc(msg), "told") << "whatever the dictionary says";
  EXPECT_EQ(interpreter.GetAlarmCode(msg) + interpreter.GetAlarmModule(msg) + interpreter.GetAlarmType(msg) +
                interpreter.GetAlarmReason(msg) + interpreter.GetAlarmSolution(msg),
            "Cmtrs");
}

TEST_F(Interpreter, TheLibraryMakesItOnceAndALanguageRebuildsIt) {
  TLocaleReader reader(ShareFolder() / "locale");
  TLocaleManager manager;
  const TAllInstalled<TLocaleReader, TLocaleManager> installed(reader, manager);
  EXPECT_EQ(AlarmInterpreter(), nullptr) << "before the library's start";
  {
    const TLibrary library;
    EXPECT_THROW(AlarmInterpreter(), std::runtime_error) << "no service: nothing is stored";
    App.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(ShareFolder() / "alarms"));
    TAlarmInterpreter* const made = AlarmInterpreter();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(AlarmInterpreter(), made);
    EXPECT_GE(made->Count(), 60U);
    EXPECT_EQ(made->GetAlarmModule(Msg("TPLaser#1", "")), "激光器");
    EXPECT_EQ(manager.ChangeLanguage("en"), "");
    EXPECT_EQ(made->GetAlarmModule(Msg("TPLaser#1", "")), "Laser");
    EXPECT_EQ(made->GetAlarmType(Msg("X#1", "")), "Alarm") << "the texts are reloaded first";
    App.Unregister(IID_IAlarmInterpreterSvc);
    EXPECT_EQ(manager.ChangeLanguage("zh"), "") << "the handler lets nothing escape";
  }
  EXPECT_EQ(AlarmInterpreter(), nullptr);
  EXPECT_EQ(manager.ChangeLanguage("zh"), "") << "the handler is unregistered";
}

TTexts Texts(const std::vector<TProblem>& problems) {
  TTexts texts;
  for (const TProblem& problem : problems) texts.push_back(problem.Text());
  return texts;
}

TEST(AlarmDefinitions, TheListsAreInOrderAndNameTheSameAlarms) {
  std::vector<std::string> ids[2];
  for (const int language : {0, 1}) {
    const std::string json = FileText(ShareFolder() / "alarms" / (language == 0 ? "zh.json" : "en.json"));
    EXPECT_EQ(Texts(CheckAlarmDefinitions(json)), TTexts{});
    for (std::size_t at = 0; (at = json.find("\"HelpID\": ", at)) != std::string::npos; ++at)
      ids[language].push_back(json.substr(at, json.find(',', at) - at));
  }
  EXPECT_EQ(ids[0], ids[1]);
  TMachineConfig machine;
  ASSERT_TRUE(machine.Load(ShareFolder() / "machines/machine.xml"));
  EXPECT_EQ(Texts(CheckAlarmsSection(machine.Section("Alarms"))), TTexts{});
}

TEST(AlarmDefinitions, WhatIsWrongIsNamedWithItsPlace) {
  EXPECT_EQ(Texts(CheckAlarmDefinitions("{}")), TTexts{"1:1: the list is object, expected an array"});
  EXPECT_EQ(Texts(CheckAlarmDefinitions("[1e999]")), TTexts{"1:6: the number is too large"});
  const auto syntax = Texts(CheckAlarmDefinitions("[\n  {\"HelpID\" 5}]"));
  ASSERT_EQ(syntax.size(), 1U);
  EXPECT_TRUE(syntax[0].starts_with("2:13: ")) << syntax[0];
  EXPECT_EQ(Texts(CheckAlarmDefinitions(R"([7, {"HelpID":"A","BrifDesc":"b","Code":"1","Reason":"r","Solution":" "},
      {"HelpID":"A","BrifDesc":2,"Code":"1","Reason":"r","Solution":"s","Extra":0}])")),
            (TTexts{"[0] : the entry is number, expected an object; it is skipped",
                    "[1] A: \"Solution\" is empty or missing", "[2] A: \"BrifDesc\" is number, expected a string",
                    "[2] A: \"BrifDesc\" is empty or missing", "[2] A: \"Extra\" is no member of a definition",
                    "[2] A: \"HelpID\" is \"A\", as in entry [1]", "[2] A: \"Code\" is \"1\", as in entry [1]"}));

  const TOwnConfig own(R"(<MachineConfig><Alarms>
    <UserAlarm Number="1" Description="d" Reason="r" Solution="s"/>
    <UserAlarm Number="1" Description=" " Reason="r" Solution="s"/>
    <UserAlarm Number="x" Description="d" Reason="r" Solution="s"/>
    <UserAlarm Number="1004" Description="d" Reason="r" Solution="s"/>
    <MultiBitGroup Bits="2"><Item Value="4" Description="d" Reason="r" Solution="s"/></MultiBitGroup>
    <MultiBitGroup Bits="3"><Item Value="0" Description="d" Reason="r" Solution="s"/></MultiBitGroup>
    </Alarms></MachineConfig>)");
  EXPECT_EQ(Texts(CheckAlarmsSection(own.Config.Section("Alarms"))),
            (TTexts{"Alarms/UserAlarm[2]/Description: the text is empty",
                    "Alarms/UserAlarm[2]: its number 1001 is that of Alarms/UserAlarm[1]",
                    "Alarms/UserAlarm[3]/Number: \"x\" is no whole number",
                    "Alarms/MultiBitGroup[1]/Item[1]/Value: 4 is not in 0..3",
                    "Alarms/MultiBitGroup[2]/Item[1]: its number 2004 is that of Alarms/UserAlarm[4]"}));
}

}  // namespace
}  // namespace ixocamglue::test
