#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/process/StateFolder.h"
#include "controller/texts/Texts.h"
#include "fixture/Paths.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

std::vector<TTextList> AllLists() {
  std::vector<TTextList> lists(LibraryTexts().begin(), LibraryTexts().end());
  lists.insert(lists.end(), std::begin(kControllerTexts), std::end(kControllerTexts));
  return lists;
}

TEST(Texts, EachStandsOnceAndInBothLanguagesWithTheSameArguments) {
  std::set<std::string> translated;
  std::ifstream in(ShareFolder() / "locale" / "en.json");
  const auto file = nlohmann::json::parse(in);
  for (const auto& [section, texts] : file.items())
    for (const auto& [key, text] : texts.items()) translated.insert(section + "/" + key);

  TLocaleReader reader(ShareFolder() / "locale");
  ASSERT_EQ(reader.SelectLanguage("en"), "");
  std::set<std::string> known;
  for (const TTextList list : AllLists()) {
    EXPECT_THAT(reader.Apply(list), testing::IsEmpty());
    for (const TText* const text : list) {
      const std::string name = std::string(text->Section) + "/" + text->Key;
      EXPECT_TRUE(known.insert(name).second) << name << " stands twice";
      EXPECT_STRNE(text->Default, "") << name;
      EXPECT_STRNE(text->Get(), "") << name;
    }
  }
  EXPECT_EQ(known, translated);
}

// The texts of Tr("...") and TrMark("...") in the sources, each as the compiler joins its literals; of tr("...") and
// mark("...") in the console's scripts.
std::set<std::string> WrittenMessages() {
  static const std::regex call(R"re(\b(?:Tr(?:Mark)?|tr|mark)\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+))re");
  static const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
  std::set<std::string> messages;
  const std::set<std::string> kinds = {".cpp", ".h", ".js"};
  for (const char* const folder :
       {"ixocamglue", "controller", "machines", "verify", "commandline", "ixocut", "share/console"})
    for (const auto& file : std::filesystem::recursive_directory_iterator(TestSources() + "/../" + folder)) {
      if (!kinds.contains(file.path().extension().string())) continue;
      const std::string source = ReadFile(file.path()).OrThrow(pbUnusable);
      for (std::sregex_iterator it(source.begin(), source.end(), call), end; it != end; ++it) {
        const std::string literals = (*it)[1];
        std::string text;
        for (std::sregex_iterator part(literals.begin(), literals.end(), literal); part != end; ++part)
          text += (*part)[1];
        messages.insert(nlohmann::json::parse('"' + text + '"').get<std::string>());  // the same escapes
      }
    }
  return messages;
}

TEST(Texts, EachMessageIsTranslatedWithTheSameArgumentsAndNoOther) {
  const auto file = nlohmann::json::parse(ReadFile(ShareFolder() / "locale" / "zh.json").OrThrow(pbUnusable));
  std::set<std::string> translated;
  for (const auto& [english, text] : file.at("Messages").items()) {
    translated.insert(english);
    EXPECT_TRUE(SameConversions(english.c_str(), text.get<std::string>().c_str())) << english;
  }
  const std::set<std::string> written = WrittenMessages();
  std::vector<std::string> missing, unused;
  std::ranges::set_difference(written, translated, std::back_inserter(missing));
  std::ranges::set_difference(translated, written, std::back_inserter(unused));
  EXPECT_THAT(missing, testing::IsEmpty());
  EXPECT_THAT(unused, testing::IsEmpty());
}

// The rows of the glossary: what is not to be read, and the words that are used for it.
std::map<std::string, std::string> UnusedWords() {
  std::map<std::string, std::string> words;
  std::istringstream lines(ReadFile(TestSources() + "/../docs/glossary.md").OrThrow(pbUnusable));
  const std::regex row(R"(\| ([^|]+) \| ([^|]+) \| [^|]+ \| ([^|]*) \|)"), comma(", ");
  for (std::string line; std::getline(lines, line);) {
    std::smatch cells;
    if (!std::regex_match(line, cells, row) || cells[1] == "English") continue;
    const std::string unused = cells[3];
    for (std::sregex_token_iterator it(unused.begin(), unused.end(), comma, -1), end; it != end; ++it)
      words[*it] = cells[1].str() + ", " + cells[2].str();
  }
  return words;
}

TEST(Texts, OneThingHasOneWord) {
  const auto unused = UnusedWords();
  EXPECT_GT(unused.size(), 20U);
  std::vector<std::string> shown;
  for (const char* const file : {"locale/zh.json", "locale/en.json", "alarms/zh.json", "alarms/en.json"})
    for (const auto& item : nlohmann::json::parse(ReadFile(ShareFolder() / file).OrThrow(pbUnusable)).flatten())
      if (item.is_string()) shown.push_back(item);
  for (const auto& document : std::filesystem::directory_iterator(TestSources() + "/../docs/zh"))
    shown.push_back(ReadFile(document.path()).OrThrow(pbUnusable));
  for (const std::string& message : WrittenMessages()) shown.push_back(message);
  for (const TTextList list : kControllerTexts)
    for (const TText* const text : list) shown.emplace_back(text->Default);
  for (const std::string& text : shown)
    for (const auto& [word, used] : unused)
      EXPECT_EQ(text.find(word), std::string::npos) << text << "\nsays " << word << "; the word is " << used;
}

TEST(Texts, MessagesAreThoseOfTheLanguageUntilItsReaderEnds) {
  const char* const text = "the memory grows";
  {
    TLocaleReader outer(ShareFolder() / "locale");
    ASSERT_EQ(outer.SelectLanguage("zh"), "");
    const std::string chinese = Tr(text);
    EXPECT_NE(chinese, text);
    {
      TLocaleReader inner(ShareFolder() / "locale");
      ASSERT_EQ(inner.SelectLanguage("en"), "");
      EXPECT_STREQ(Tr(text), text);
    }
    EXPECT_EQ(Tr(text), chinese);
  }
  EXPECT_STREQ(Tr(text), text);
}

}  // namespace
}  // namespace ixocamglue::test
