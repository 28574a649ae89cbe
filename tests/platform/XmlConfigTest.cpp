#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/Quotes.h"
#include "fixture/TempDir.h"
#include "ixocamglue/platform/xml/XmlConfig.h"

namespace ixocamglue::test {
namespace {

using namespace std::string_literals;

class TPart : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override { p.Field("Size", Size, 3); }
  std::int32_t Size = 0;
};

class TItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override { p.Field("Name", Name); }
  std::string Name;
};

class TSample : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override {
    p.Field("Flag", Flag);
    p.Field("Count", Count, 7, TFieldRule{.Min = 0, .Max = 100});
    p.Field("Port", Port);
    p.Field("Ratio", Ratio);
    p.Field("Scale", Scale, 2.0, kOptional);
    p.Field("Wide", Wide);
    p.Field("Text", Text, "none");
    p.Child("Part", Part);
    p.List("Item", Items);
    p.Indexed("Key", Keys);
  }
  bool Flag = false;
  std::int32_t Count = 0;
  std::uint32_t Port = 0;
  double Ratio = 0;
  double Scale = 0;
  long double Wide = 0;
  std::string Text;
  TPart Part;
  TXmlList<TItem> Items;
  std::map<std::int32_t, std::string> Keys;
};

class XmlConfig : public testing::Test {
 protected:
  XmlConfig() {
    Config.AddSubConfig("Sample", Sample);
    Config.AddSubConfig("Open", Open);
  }
  std::string Load(std::string_view text) {
    std::ofstream(File, std::ios::binary) << text;
    const auto loaded = Config.Load(File);
    return loaded ? "" : loaded.Problem().Text();
  }
  std::string Section(std::string_view text) {
    return Load(DoubleQuoted("<Root>" + std::string(text) + "<Open/></Root>"));
  }
  std::string Bytes() { return FileText(File); }
  std::string Saved() {
    EXPECT_TRUE(Config.Save());
    const std::string once = Bytes();
    EXPECT_TRUE(Config.Save());
    EXPECT_TRUE(Config.Load(File));
    EXPECT_TRUE(Config.Save());
    EXPECT_EQ(Bytes(), once) << "a save without a change wrote";
    return once;
  }

  TFaultWatch Faults;
  TTempDir Dir;
  std::filesystem::path File = Dir.Path() / "c.xml";
  TSample* Sample = nullptr;
  TXmlSubConfig* Open = nullptr;
  TXmlConfig Config{"Root"};
};

constexpr std::string_view kWhole =
    "<?xml version=\"1.0\"?>\n<!-- top -->\n<?keep me?>\n<Root a=\"1\">\n  <Other "
    "x=\"&lt;\"><![CDATA[<raw>]]></Other>\n"
    "  <Sample Flag=\"True\" Count=\"8\" Port=\"1\" Ratio=\"0.5\" Wide=\"0.1\" Text=\" t \" Mine=\"m\" Key2=\"two\">\n"
    "    <!-- kept -->\n    <Part Size=\"4\" z=\"9\"/>\n    <Item Name=\"a\" u=\"1\"/>\n    <Item Name=\"b\" "
    "u=\"2\"><deep/></Item>\n"
    "    <Item Name=\"c\" u=\"3\"/>\n  </Sample>\n  <Open p=\"1\"><q>2</q></Open>\n</Root>\n";

TEST_F(XmlConfig, WhatTheLibraryDoesNotKnowSurvivesAndOnlyTheChangeIsWritten) {
  ASSERT_EQ(Load(kWhole), "");
  EXPECT_EQ(Saved(), kWhole);
  EXPECT_FALSE(std::filesystem::exists(File.string() + ".bak"));
  Sample->Count = 9;
  Sample->Items.Delete(0);
  Sample->Items.AddNew().Name = "d";
  Sample->Keys[5] = "five";
  Sample->Keys.erase(2);
  std::string wanted(kWhole);
  const auto replace = [&](std::string_view from, std::string_view to) {
    wanted.replace(wanted.find(from), from.size(), to);
  };
  replace("Count=\"8\"", "Count=\"9\"");
  replace("Mine=\"m\" Key2=\"two\"", "Mine=\"m\" Key5=\"five\"");
  replace("    <Item Name=\"a\" u=\"1\"/>\n", "");
  replace("<Item Name=\"c\" u=\"3\"/>\n", "<Item Name=\"c\" u=\"3\"/>\n    <Item Name=\"d\"/>\n");
  EXPECT_EQ(Saved(), wanted);
  EXPECT_EQ(Open->GetInt("p", 0) + Open->GetInt("Q", 0), 3);
}

TEST_F(XmlConfig, ASaveLeavesTheFormOfWhatItDoesNotChange) {
  std::string text =
      "\xEF\xBB\xBF<?xml version='1.0'\n  encoding = \"utf-8\" ?>\r\n<!DOCTYPE Root>\r\n<Root  a='x "
      "\"y\"'\r\n\tb=\"&#x4E2D;&gt;&quot;\" "
      ">\r\n  &#65; > &amp;&unknown;<![CDATA[a]]b]]><e ></e>\n"
      "  <Sample Flag=\"True\" count='8'\n          Port=\"1\" Ratio=\"0.5\"\n\n    Wide=\"0.1\" Text=' t ' >\n"
      "    <Part Size=\"4\"/>\n  </Sample><Open/>\n</Root>";
  ASSERT_EQ(Load(text), "");
  Sample->Count = 9;
  Sample->Text = "'\"\n";
  const auto replace = [&](std::string_view from, std::string_view to) {
    text.replace(text.find(from), from.size(), to);
  };
  replace("count='8'", "Count='9'");
  replace("Text=' t '", "Text='&apos;&quot;&#10;'");
  EXPECT_EQ(Saved(), text);
  ASSERT_TRUE(Config.Load(File));
  EXPECT_EQ(Sample->Text, "'\"\n");
}

TEST_F(XmlConfig, AFailedSaveKeepsEachItemWithItsElement) {
  ASSERT_EQ(Load(kWhole), "");
  Sample->Items.Delete(0);
  Sample->Text = "\xff";  // no UTF-8
  const auto refused = Config.Save();
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.Problem().Text().find("Sample"), std::string::npos) << refused.Problem().Text();
  EXPECT_EQ(Bytes(), kWhole);
  Sample->Text = " t ";
  const std::string saved = Saved();
  EXPECT_NE(saved.find("<Item Name=\"b\" u=\"2\"><deep/></Item>"), std::string::npos) << saved;
  EXPECT_EQ(saved.find("u=\"1\""), std::string::npos);
}

TEST_F(XmlConfig, ValuesAreReadAndWrittenInTheFormTheyCameIn) {
  const struct {
    const char *In, *Field, *Value, *Out;  // Out: what a save must hold
  } cases[] = {
      {"<Sample Count=' +12 '/>", "Count", "12", "Count=\" +12 \""},
      {"<sample COUNT='5'/>", "Count", "5", "<Sample Count=\"5\""},
      {"<Sample count='5' Count='6'/>", "Count", "6", "count=\"5\" Count=\"6\""},
      {"<Sample><Count>5</Count></Sample>", "Count", "5", "<Count>5</Count>"},
      {"<Sample Count='4'><Count>5</Count></Sample>", "Count", "4", "<Sample Count=\"4\""},
      {"<Sample Count=''/>", "Count", "7", "Count=\"\""},
      {"<Sample Count='12ms'/>", "Count", "7", "Count=\"12ms\""},
      {"<Sample Count='101'/>", "Count", "7", "Count=\"101\""},
      {"<Sample Count='99999999999'/>", "Count", "7", "Count=\"99999999999\""},
      {"<Sample Count='+-5'/>", "Count", "7", "Count=\"+-5\""},
      {"<Sample Port='-1'/>", "Port", "0", "Port=\"-1\""},
      {"<Sample Ratio='1e999'/>", "Ratio", "0", "Ratio=\"1e999\""},
      {"<Sample Ratio='nan'/>", "Ratio", "0", "Ratio=\"nan\""},
      {"<Sample Ratio='1e-3'/>", "Ratio", "0.001", "Ratio=\"1e-3\""},
      {"<Sample Scale='1e-400'/>", "Scale", "0", "Scale=\"1e-400\""},
      {"<Sample Scale='-0.00e+999'/>", "Scale", "-0", "Scale=\"-0.00e+999\""},
      {"<Sample Scale='1000e308'/>", "Scale", "2", "Scale=\"1000e308\""},
      {"<Sample Wide='1e-400'/>", "Wide", "1e-400", "Wide=\"1e-400\""},
      {"<Sample Key01='b' Key1='a'/>", "Key1", "a", "Key01=\"b\" Key1=\"a\""},
      {"<Sample key01='b' Key001='c'/>", "Key1", "b", "Key1=\"b\" Key001=\"c\""},
      {"<Sample Wide='0.1000000000000000000014'/>", "Wide", "0.1", "Wide=\"0.1000000000000000000014\""},
      {"<Sample Flag='TRUE'/>", "Flag", "True", "Flag=\"TRUE\""},
      {"<Sample Flag='2'/>", "Flag", "True", "Flag=\"2\""},
      {"<Sample Text=''/>", "Text", "", "Text=\"\""},
      {"<Sample><Text> a <!-- x -->b</Text></Sample>", "Text", " a b", "<Text> a <!-- x -->b</Text>"},
      {"<Sample/>", "Text", "none", "Text=\"none\""},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(Section(c.In), "") << c.In;
    EXPECT_EQ(Sample->GetText(c.Field, "?"), c.Value) << c.In;
    const std::string saved = Saved();
    EXPECT_NE(saved.find(c.Out), std::string::npos) << c.In << "\n" << saved;
  }
  ASSERT_EQ(Section("<Sample Count='4'><Count>5</Count></Sample>"), "");
  EXPECT_EQ(Saved().find("<Count>"), std::string::npos);
  ASSERT_EQ(Section("<Sample Count='12ms'><Part Size='2'/><Part Size='5'/></Sample>"), "");
  EXPECT_EQ(Sample->Part.Size, 2);
  Sample->Count = 8;  // changed since the load: now the text goes
  EXPECT_NE(Saved().find("Count=\"8\""), std::string::npos);
  EXPECT_NE(Bytes().find("<Part Size=\"5\"/>"), std::string::npos);
  ASSERT_EQ(Section("<Sample Count='12ms' Key01='b' Key1='a'/>"), "");
  EXPECT_TRUE(Sample->SetText("count", "7"));  // to its default, which the text already stood for
  Sample->Keys.clear();
  EXPECT_NE(Saved().find("<Sample Count=\"7\" Flag"), std::string::npos) << Bytes();
}

TEST_F(XmlConfig, EncodingAndMarkStayAndOtherEncodingsAreRefused) {
  const std::string xml = "<Root><Sample Text=\"托盘😀\"/></Root>";
  std::string wide = "\xFF\xFE", wideBig = "\xFE\xFF";
  for (const char32_t c : U"<Root><Sample Text=\"托😀\"/></Root>"s) {
    for (const char16_t unit : c < 0x10000 ? std::u16string(1, static_cast<char16_t>(c)) : u"😀"s) {
      const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
      (wide += low) += high;
      (wideBig += high) += low;
    }
  }
  for (const std::string& start : {xml, "\xEF\xBB\xBF" + xml, wide, wideBig}) {
    ASSERT_EQ(Load(start), "");
    EXPECT_TRUE(Sample->Text.ends_with("😀"));
    EXPECT_EQ(Saved().substr(0, 2), start.substr(0, 2));
  }
  const std::string refused[] = {"",
                                 "<?xml version='1.0' encoding='gbk'?><Root/>",
                                 "\xFF\xFE\0\0<\0\0\0"s,
                                 wide.substr(2),
                                 wide + "x",
                                 "<Root a='\xC0\x80'/>",
                                 "<Root a='\xED\xA0\x80'/>",
                                 "<Root>\0</Root>"s,
                                 "<Root/><Root/>",
                                 "text<Root/>",
                                 "<!DOCTYPE Root [<!ENTITY a 'b'>]><Root/>",
                                 "<Other/>",
                                 "<Root>\n<?!broken?></Root>",
                                 "<Root a='1'\n b='2' a='3'/>",
                                 "<Root>\n&#0;</Root>",
                                 "<Root\na='x&#x100000000;y'/>",
                                 "<Root a='\n&#xD800;'/>",
                                 "<Root>\n&#11;</Root>",
                                 "<Root>\n\x0B</Root>",
                                 "<Root>\n&#xFFFE;</Root>",
                                 "<Root>\n\xEF\xBF\xBF</Root>"};
  for (const std::string& bytes : refused) {
    const std::string problem = Load(bytes);
    EXPECT_TRUE(problem.starts_with(File.string() + (bytes.find('\n') == std::string::npos ? ":" : ":2:"))) << problem;
    EXPECT_FALSE(Config.Save());
    EXPECT_EQ(Bytes(), bytes);
    EXPECT_EQ(Sample->Count, 7);
  }
}

TEST_F(XmlConfig, WhatOnlyLooksLikeAWrongCharacterStays) {
  for (const char* const text : {"<Root a='&#9;&#10;&#x10FFFF;&#x;&#;&#1&amp;#0;'><Open/>",
                                 "<!--&#0;--><Root A='1' a='2'><?pi &#0;?><Open><![CDATA[&#0;]]>&#32;</Open>"}) {
    ASSERT_EQ(Load(std::string(text) + "</Root>"), "");
    EXPECT_NE(Saved().find(text), std::string::npos) << Bytes();
  }
}

TEST_F(XmlConfig, TwoConfigurationsLoseNothingOfEachOther) {
  ASSERT_EQ(Load(kWhole), "");
  const auto problem = [](TXmlConfig& config) {
    const auto saved = config.Save();
    return saved ? "" : saved.Problem().Text();
  };
  TXmlConfig other("Root");
  TSample* sample = nullptr;
  other.AddSubConfig("Sample", sample);
  ASSERT_TRUE(other.Load(File));
  sample->Count = 20;
  Sample->Ratio = 1.5;
  EXPECT_EQ(problem(other), "");
  const std::string changed = Bytes();
  EXPECT_NE(problem(Config).find("another program has changed the file"), std::string::npos);
  EXPECT_EQ(Bytes(), changed);
  ASSERT_TRUE(Config.Load(File));
  Sample->Ratio = 1.5;
  ASSERT_EQ(Config.Hold(File, 0), lsHeld);
  sample->Count = 30;
  EXPECT_NE(problem(other).find("in use by process " + std::to_string(::getpid())), std::string::npos);
  EXPECT_EQ(other.Hold(File, 0), lsBusy);
  EXPECT_EQ(problem(Config), "");
  EXPECT_NE(Bytes().find("Count=\"20\" Port=\"1\" Ratio=\"1.5\""), std::string::npos) << Bytes();
  std::filesystem::create_directory(Dir.Path() / "else.xml.lock");
  std::filesystem::copy_file(File, Dir.Path() / "else.xml");
  EXPECT_EQ(other.Hold(Dir.Path() / "else.xml", 0), lsImpossible);
  ASSERT_TRUE(other.Load(Dir.Path() / "else.xml"));
  EXPECT_NE(problem(other).find("cannot be locked"), std::string::npos);
}

TEST_F(XmlConfig, EveryTruncationIsRefusedOrLoadsAndIsNeverOverwrittenWhenRefused) {
  for (std::size_t size = 0; size < kWhole.size(); ++size) {
    const std::string bytes(kWhole.substr(0, size));
    const bool loaded = Load(bytes).empty();
    EXPECT_EQ(loaded, size + 1 >= kWhole.size()) << size;  // the last character is a line end
    if (loaded) continue;
    EXPECT_FALSE(Config.Save());
    EXPECT_EQ(Bytes(), bytes);
  }
  std::string deep = "<Root/>", open;
  for (int i = 0; i < 5000; ++i) deep = "<a>" + deep + "</a>", open += "<a>";
  EXPECT_NE(Load("<Root>" + deep + "</Root>").find("deeper"), std::string::npos);
  EXPECT_NE(Load("<Root>" + open).find(":"), std::string::npos);
  ASSERT_EQ(Section("<Sample><Item/></Sample>"), "");
}

TEST_F(XmlConfig, RestoreBringsThePreviousVersionBackAndKeepsTheBrokenFile) {
  ASSERT_EQ(Load(kWhole), "");
  EXPECT_FALSE(Config.Restore());  // there is no previous version yet
  Sample->Count = 9;
  ASSERT_TRUE(Config.Save());
  const std::string newest = Bytes();
  const std::string broken = "<Root><Sam";
  for (const auto& [bytes, kept] : {std::pair{newest, ".broken"}, {broken, ".broken2"}}) {
    const std::string problem = Load(bytes);
    EXPECT_EQ(problem.find(File.string() + ".bak") != std::string::npos, bytes == broken) << problem;
    EXPECT_EQ(Config.Restore().Value(), File.string() + kept);
    EXPECT_EQ(Config.Restore().Value(), "");  // it is back already
    EXPECT_EQ(Bytes(), kWhole);
    EXPECT_EQ(Sample->Count, 8);
    EXPECT_EQ(FileText(File.string() + kept), bytes);
  }
  EXPECT_TRUE(Config.Save());
}

TEST_F(XmlConfig, AMissingFileMeansDefaultsOnlyWhenAskedAndTheFirstSaveMakesIt) {
  EXPECT_FALSE(Config.Load(File));
  EXPECT_FALSE(Config.Save());
  EXPECT_TRUE(Config.Load(File, mfDefaults));
  EXPECT_EQ(Sample->Part.Size, 3);
  EXPECT_NE(Saved().find("<Root>"), std::string::npos);
}

TEST_F(XmlConfig, ATakenNameIsAFaultAndAGlobalBecomesNullWithItsRecord) {
  TSample* again = nullptr;
  EXPECT_EQ(Config.AddSubConfig("Sample", again), Sample);
  EXPECT_EQ(Faults.Claim(), TTexts{"AddSubConfig: \"Sample\" is there already"});
  TPart* part = nullptr;
  {
    TXmlConfig other("Root");
    EXPECT_EQ(other.AddSubConfig("P", part)->Size, 3);
  }
  EXPECT_EQ(part, nullptr);
}

TEST_F(XmlConfig, ValuesByNameReachPropertiesAndAnythingElse) {
  ASSERT_EQ(Load(kWhole), "");
  EXPECT_EQ(Sample->GetText("mine", ""), "m");
  EXPECT_EQ(Sample->GetFloat("Ratio", 0), 0.5);
  EXPECT_EQ(Sample->GetInt("absent", -4), -4);
  EXPECT_FALSE(Sample->SetInt("Count", 101));
  EXPECT_TRUE(Sample->SetInt("Count", 11));
  EXPECT_TRUE(Open->SetText("New", "n"));
  const std::string saved = Saved();
  EXPECT_NE(saved.find("Count=\"11\""), std::string::npos);
  EXPECT_NE(saved.find("<Open p=\"1\" New=\"n\"><q>2</q></Open>"), std::string::npos) << saved;
}

}  // namespace
}  // namespace ixocamglue::test
