#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "controller/Texts.h"
#include "ixocamglue/Library.h"
#include "ixocamglue/platform/services/Locale.h"

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

}  // namespace
}  // namespace ixocamglue::test
