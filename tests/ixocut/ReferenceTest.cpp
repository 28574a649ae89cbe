// The reference pages: the program writes them, docs/reference/ holds them.
#include <algorithm>
#include <set>

#include <gmock/gmock.h>

#include "controller/process/StateFiles.h"
#include "fixture/Paths.h"
#include "fixture/Program.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class Reference : public TProgramTest {
 protected:
  Reference() { FLanguage = "en"; }
  static std::set<std::string> Names(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& file : fs::directory_iterator(folder)) names.insert(file.path().filename().string());
    return names;
  }
};

TEST_F(Reference, TheDocumentsHoldWhatTheProgramWrites) {
  const TRun run = Ixocut("reference --to pages");
  ASSERT_EQ(run.ExitCode, 0) << run.All();
  const fs::path documents = TestSources() + "/../docs/reference";
  EXPECT_EQ(Names(documents), Names(FDir.Path() / "pages"));
  for (const std::string& name : Names(FDir.Path() / "pages"))
    EXPECT_TRUE(Read("pages/" + name) == ReadFile(documents / name).OrThrow(pbUnusable))
        << name << " is stale: build/debug/bin/ixocut reference --to docs/reference --lang en";
}

TEST_F(Reference, OverwritesItsOwnPagesAndNothingElse) {
  ASSERT_EQ(Ixocut("reference --to pages").ExitCode, 0);
  Write("pages/alarms.md", Read("pages/alarms.md") + "old");
  ASSERT_EQ(Ixocut("reference --to pages --lang zh").ExitCode, 0);
  EXPECT_THAT(Read("pages/alarms.md"), HasSubstr("| `TPGas#1` | G101 | 空气气压低于设定值的 80% | 禁止切割 |"));
  Write("pages/README.md", "of somebody else");
  EXPECT_THAT(Refusal("reference --to pages", 3),
              HasSubstr("pages/README.md: --to: the file has something else in it"));
  EXPECT_EQ(Read("pages/README.md"), "of somebody else");
}

TEST_F(Reference, NamesWhatAStateFolderHolds) {
  ASSERT_EQ(Ixocut("tour --out day").ExitCode, 0);
  ASSERT_EQ(Ixocut("token add somebody --state day/state").ExitCode, 0);
  const auto known = [](const std::string& name) {
    return std::ranges::any_of(kStateFiles, [&](const TStateFile& file) { return name.starts_with(file.Name); });
  };
  const std::set<std::string> names = Names(FDir.Path() / "day" / "state");
  EXPECT_GT(names.size(), 6U);
  for (const std::string& name : names) EXPECT_TRUE(known(name)) << name << " is missing in StateFiles.h";
}

}  // namespace
}  // namespace ixocamglue::test
