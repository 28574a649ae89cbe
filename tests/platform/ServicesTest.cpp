#include <fstream>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "fixture/LogTexts.h"
#include "fixture/OwnConfig.h"
#include "fixture/TempDir.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/MachineConfig.h"

namespace ixocamglue::test {
namespace {

class Logging : public testing::Test {
 protected:
  Logging() { Service.AddSink(Sink); }
  ~Logging() override { TLogService::Listen(0); }

  TLogTexts Sink;
  TLogService Service{4};
  TInstalled<TLogService> Installed{Service};
};

TEST_F(Logging, BothLogsKeepOneOrderAndADisabledLevelEvaluatesNothing) {
  TLogService::Listen(DiagBit(dlError));
  int evaluated = 0;
  const auto costly = [&] { return ++evaluated; };
  Service.PostMsg(lkInfo, 0, "first", "");
  if (TDiag d{dlError}) d("second %d", costly());
  if (TDiag d{dlMessage}) d("never %d", costly());
  Service.PostMsg(lkInfo, 0, "third", "");
  Service.DrainOnce();
  EXPECT_EQ(Sink.Lines, (TTexts{"first", "second 1", "third"}));
  EXPECT_EQ(evaluated, 1);
}

TEST_F(Logging, AFullQueueDropsAndCountsAndAThrowingSinkIsSwallowed) {
  for (int i = 0; i < 7; ++i) Service.PostMsg(lkInfo, 0, std::to_string(i), "");
  EXPECT_EQ(Service.Dropped(), 3u);
  Sink.Fails = true;
  EXPECT_EQ(Service.DrainOnce(), 4u);
  EXPECT_EQ(Service.Swallowed(), 4u);
  Sink.Fails = false;
  Service.PostMsg(lkInfo, 0, std::string(3000, 'x'), "");
  Service.DrainOnce();
  EXPECT_EQ(Sink.Lines, TTexts{std::string(3000, 'x')});
}

TEST(ClockTexts, SpansAndStampsReadAsWritten) {
  const TDateTime noon{46023.5};  // 2026-01-01 12:00
  EXPECT_EQ(FormatDateTime(noon), "2026-01-01 12:00:00.000");
  EXPECT_EQ(FormatSpan(noon, {noon.Days + 500.0 / 86'400'000}), "00:00:00-500");
  EXPECT_EQ(FormatSpan(noon, {noon.Days + 3'723'004.0 / 86'400'000}), "01:02:03-004");
}

TEST(Params, AValueNeverSetReadsAsTheDefaultEvenWhenItsSlotIsHeld) {
  TNcParams params;
  auto& slot = params.BoolSlot("OK515");
  EXPECT_TRUE(params.GetBool("OK515", true));
  EXPECT_FALSE(params.GetBool("OK515", false));
  slot.Set(true);
  EXPECT_TRUE(params.GetBool("OK515", false));
  EXPECT_EQ(params.GetInt("OK515", -3), -3);
}

struct TGreeter : IAppService {};
struct TOther : IAppService {};

TEST(Services, AreFoundByIdentifierAndAbsentOnesAreNull) {
  TAppSys app;
  const TGuid id{"{11111111-2222-3333-4444-555555555555}"};
  EXPECT_FALSE(app.Supports<TGreeter>(id));
  app.Register(id, std::make_shared<TGreeter>());
  EXPECT_TRUE(app.Supports<TGreeter>(id));
  EXPECT_FALSE(app.Supports<TOther>(id));
  app.Unregister(id);
  EXPECT_FALSE(app.Supports<TGreeter>(id));
}

class MachineFile : public testing::Test, protected TOwnConfig {};

TEST_F(MachineFile, ValuesAreAttributesOrChildTextsInAnyCase) {
  ASSERT_EQ(Load("<MachineConfig DHMode='2'><laser><EmissionOnDelay> +700 </EmissionOnDelay></laser>"
                 "<Laser emissiononDELAY='5' On='TRUE' Name=' a ' Nan='nan' Half='.5'/></MachineConfig>"),
            "");
  EXPECT_EQ(Config.Root().GetInt("dhmode", 0), 2);
  EXPECT_EQ(Config.Section("laser").GetInt("EmissionOnDelay", 0), 700);
  const TConfigSection laser = Config.Section("Laser");  // the exact spelling, although it comes second
  EXPECT_EQ(laser.GetInt("EmissionOnDelay", 0), 5);
  EXPECT_TRUE(laser.GetBool("On", false));
  EXPECT_EQ(laser.GetText("Name", ""), " a ");
  EXPECT_EQ(laser.GetFloat("Nan", 1.5), 1.5);
  EXPECT_EQ(laser.GetFloat("Half", 0), 0.5);
  EXPECT_EQ(Config.Section("Absent").Child("Deeper").GetInt("X", 9), 9);
}

TEST_F(MachineFile, ATextThatIsNoNumberGivesTheDefaultAndSaysWhere) {
  TLogWorld log;
  const TInstalled<TMachineConfig> installedConfig(Config);
  ASSERT_EQ(Load("<MachineConfig><Laser EmissionOnDelay='12ms' Big='99999999999'/></MachineConfig>"), "");
  EXPECT_EQ(Config.Section("Laser").GetInt("EmissionOnDelay", 5000), 5000);
  EXPECT_EQ(Config.Section("Laser").GetInt("Big", 1), 1);
  const TTexts lines = log.Log();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], File.string() + ": Laser/EmissionOnDelay: \"12ms\" cannot be read; the default is used");
}

constinit TText SPlain{"CamGlue", "SPlain", "关"};
constinit TText SFormatted{"CamGlue", "SFormatted", "%d 毫米"};

TEST(LocaleTexts, ATranslatorCannotCrashTheMachineAndEveryFailureFallsBackToTheDefault) {
  const TTempDir dir;
  std::ofstream(dir.Path() / "en.json") << R"({"CamGlue": {"SPlain": "off", "SFormatted": "%s mm"}})";
  std::ofstream(dir.Path() / "xx.json") << "{ broken";
  const auto texts = TextList(SPlain, SFormatted);
  {
    TLocaleReader shortLived(dir.Path());
    EXPECT_EQ(shortLived.SelectLanguage("en"), "");
    shortLived.Apply(texts);
    EXPECT_STREQ(SPlain.Get(), "off");
  }
  EXPECT_STREQ(SPlain.Get(), "关") << "a text into a reader that is gone";
  TLocaleReader reader(dir.Path());
  EXPECT_EQ(reader.SelectLanguage("en"), "");
  EXPECT_EQ(reader.Apply(texts).size(), 1u);
  const char* const held = SPlain.Get();
  EXPECT_STREQ(held, "off");
  EXPECT_STREQ(SFormatted.Get(), "%d 毫米");
  for (const char* bad : {"xx", "absent", "../en"}) EXPECT_NE(reader.SelectLanguage(bad), "") << bad;
  reader.Apply(texts);
  EXPECT_STREQ(SPlain.Get(), "关");
  EXPECT_STREQ(held, "off");  // still valid for whoever shows it
}

TEST(LocaleTexts, AScopeSpeaksAnotherLanguageOnItsThreadOnlyAndNests) {
  const TTempDir dir;
  std::ofstream(dir.Path() / "en.json") << R"({"CamGlue": {"SPlain": "off", "SFormatted": "%s mm"}})";
  std::ofstream(dir.Path() / "zh.json") << R"({"Messages": {"the memory grows": "内存在增长"}})";
  std::ofstream(dir.Path() / "xx.json") << "{ broken";
  const char* const message = "the memory grows";
  const TLanguageScope nobody("en");
  EXPECT_STREQ(SPlain.Get(), "关") << "no reader, and still another language";
  TLocaleReader reader(dir.Path());
  TLocaleManager manager;
  const TAllInstalled<TLocaleReader, TLocaleManager> installed(reader, manager);
  ASSERT_EQ(manager.ChangeLanguage("zh"), "");
  reader.Apply(TextList(SPlain, SFormatted));
  const std::string chinese = Tr(message);
  EXPECT_EQ(Retold(chinese), chinese);
  {
    const TLanguageScope english("en");
    EXPECT_STREQ(SPlain.Get(), "off");
    EXPECT_EQ(Show(SFormatted, 3), "3 毫米") << "an entry that takes other arguments";
    EXPECT_STREQ(Tr(message), message);
    EXPECT_EQ(Retold("关"), "off");
    EXPECT_EQ(Retold(chinese), message);
    EXPECT_EQ(Retold("其他"), "其他") << "nobody's text";
    std::thread([&] { EXPECT_STREQ(SPlain.Get(), "关"); }).join();
    {
      const TLanguageScope inner("zh");
      EXPECT_STREQ(SPlain.Get(), "关");
      EXPECT_EQ(Tr(message), chinese);
    }
    for (const char* const unknown : {"xx", "../zh", ""}) {
      const TLanguageScope own(unknown);
      EXPECT_STREQ(SPlain.Get(), "关") << unknown;
    }
    EXPECT_STREQ(SPlain.Get(), "off");
  }
  EXPECT_EQ(Tr(message), chinese);

  const std::pair<const char*, const char*> headers[] = {
      {"en-GB,en;q=0.9", "en"}, {"zh-Hant-TW", "zh"}, {"de, EN ; q=0.5, zh;q=0.4", "en"}, {"zh;q=0.3,en;q=0.8", "en"},
      {"en;q=0", "zh"},         {"fr,*", "zh"},       {",;q=,-,;;en;q=x", "zh"},          {"", "zh"}};
  for (const auto& [header, language] : headers) EXPECT_EQ(RequestLanguage(header), language) << header;
}

}  // namespace
}  // namespace ixocamglue::test
