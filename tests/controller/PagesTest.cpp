// The console's files as they are served: which there are, and that nothing else is to be had by their paths.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "controller/process/StateFolder.h"
#include "controller/wire/Pages.h"
#include "fixture/TempDir.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
using namespace ixocontroller;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
namespace {

class Pages : public testing::Test {
 protected:
  Pages() {
    Write("console/index.html", "<!doctype html>");
    Write("console/app.js", "tr(\"Stop\"); mark(\"a \\\"quoted\\\" one\"); 'Not this one'; // Nor this one");
    Write("console/pages/gas.css", "  h1 {}  // big\n\n  // gas\n    p {}");
    Write("console/icon.svg", "<svg/>");
    Write("console/notes.txt", "of no type that is served");
    Write("console/library.min.js", "\"Of somebody else\"");
    Write("secret.js", "beside the console");
    Write("plots/dygraph.min.js", "plots");
    Write("plots/other.js", "not asked for");
    Write("locale/zh.json", R"({"Messages": {"Stop": "停止", "a \"quoted\" one": "引号", "Not this one": "x",
        "Nor this one": "x", "Of somebody else": "x", "Of the program": "x"}, "Texts": {"Stop": "x"}})");
    Write("locale/broken.json", "{");
  }
  void Write(const std::string& name, const std::string& text) const {
    const auto file = FDir.Path() / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }
  [[nodiscard]] TPages Made() const {
    return TPages(
        {.Console = FDir.Path() / "console", .Locale = FDir.Path() / "locale", .Plots = FDir.Path() / "plots"});
  }
  TTempDir FDir;
};

TEST_F(Pages, EachFileHasItsTypeItsPolicyAndATagThatSpeaksForItsContent) {
  const TPages pages = Made();
  const struct {
    const char *Path, *Type, *Body;
  } kFiles[] = {{"/", "text/html; charset=utf-8", "<!doctype html>"},
                {"/console/index.html", "text/html; charset=utf-8", "<!doctype html>"},
                {"/console/pages/gas.css", "text/css; charset=utf-8", "h1 {}\n\n\np {}"},
                {"/console/icon.svg", "image/svg+xml", "<svg/>"},
                {"/console/dygraph.min.js", "text/javascript; charset=utf-8", "plots"}};
  for (const auto& file : kFiles) {
    EXPECT_TRUE(TPages::Owns(file.Path));
    const TWireReply reply = pages.Answer(file.Path, {});
    EXPECT_EQ(reply.Status, 200) << file.Path;
    EXPECT_EQ(reply.ContentType, file.Type);
    EXPECT_EQ(reply.Body, file.Body);
    EXPECT_THAT(reply.Policy, HasSubstr("default-src 'none'; script-src 'self'; style-src 'self';"));
    EXPECT_THAT(reply.Policy, HasSubstr("frame-ancestors 'none'"));
    EXPECT_THAT(reply.Policy, Not(HasSubstr("unsafe")));

    const TWireReply known = pages.Answer(file.Path, reply.ETag);
    EXPECT_EQ(known.Status, 304) << file.Path;
    EXPECT_THAT(known.Body, IsEmpty());
    EXPECT_EQ(known.Policy, reply.Policy);
  }
  const std::string before = pages.Answer("/", {}).ETag, edition = pages.Answer("/console/edition", {}).Body;
  EXPECT_EQ(Made().Answer("/console/edition", {}).Body, edition);
  Write("console/index.html", "<!doctype html><p>");
  EXPECT_NE(Made().Answer("/console/edition", {}).Body, edition);
  EXPECT_EQ(pages.Answer("/", before).Status, 304) << "it was read once";
  EXPECT_EQ(Made().Answer("/", before).Status, 200);
}

TEST_F(Pages, NothingElseIsToBeHadByWhateverPath) {
  const TPages pages = Made();
  for (const char* const target :
       {"/console/nothing.js", "/console/", "/console/pages", "/console/notes.txt", "/console/other.js",
        "/console/../secret.js", "/console/%2e%2e/secret.js", "/console/..%2Fsecret.js", "/console//app.js",
        "/console/./app.js", "/console/pages/../app.js", "/console/app.js/", "/console/APP.JS",
        "/console/texts/../app.js", "/console/texts/broken.json"}) {
    TApiRequest asked;
    ASSERT_FALSE(ReadTarget(target, asked)) << target;
    EXPECT_TRUE(TPages::Owns(asked.Path)) << target;
    const TWireReply reply = pages.Answer(asked.Path, {});
    EXPECT_EQ(reply.Status, 404) << target;
    EXPECT_THAT(reply.Body, HasSubstr("the console has no such file")) << target;
    EXPECT_THAT(reply.Body, Not(HasSubstr("beside the console"))) << target;
  }
  TApiRequest asked;
  EXPECT_TRUE(ReadTarget("/console/app.js%00", asked)) << "refused before it is looked for";
  ASSERT_FALSE(ReadTarget("/console/app.js?v=1#top", asked));
  EXPECT_EQ(pages.Answer(asked.Path, {}).Status, 200);
  for (const char* const path : {"/console", "/consoles/app.js", "/api/v1/status", "//console/app.js", "/secret.js"})
    EXPECT_FALSE(TPages::Owns(path)) << path;
}

TEST_F(Pages, TheTextsAreThoseThatTheScriptsUse) {
  const TWireReply reply = Made().Answer("/console/texts/zh.json", {});
  EXPECT_EQ(reply.ContentType, kJsonType);
  EXPECT_EQ(nlohmann::json::parse(reply.Body), (nlohmann::json{{"Stop", "停止"}, {"a \"quoted\" one", "引号"}}));
}

TEST_F(Pages, SaysWhatIsMissingWhereNoFilesAreInstalled) {
  for (const TPages& pages : {TPages({}), TPages({.Console = FDir.Path() / "nowhere", .Locale = {}, .Plots = {}})}) {
    const TWireReply reply = pages.Answer("/", {});
    EXPECT_EQ(reply.Status, 404);
    EXPECT_THAT(reply.Body, HasSubstr("its files are missing where the program is installed"));
  }
}

// What a browser fetches of the console; and what its being served line by line relies on.
TEST(ConsoleFiles, AreSmallAndNoTextGoesOverSeveralLines) {
  const std::filesystem::path folder = ShareFolder() / "console";
  const TPages pages({.Console = folder, .Locale = {}, .Plots = {}});
  std::size_t served = 0;
  for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
    if (!file.is_regular_file()) continue;
    served += pages.Answer("/console/" + file.path().lexically_relative(folder).generic_string(), {}).Body.size();
    if (file.path().extension() != ".js") continue;
    std::istringstream lines(ReadFile(file.path()).OrThrow(pbUnusable));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_EQ(std::ranges::count(line, '`') % 2, 0) << line;
      EXPECT_EQ(std::ranges::count(line.substr(0, line.find("  // ")), '"') % 2, 0) << line;
    }
  }
  EXPECT_GT(served, 100'000U);
  EXPECT_LE(served, 250'000U);
}

}  // namespace
}  // namespace ixocamglue::test
