// What is made of the commands' tables: manual pages and completion, as man and the shells take them.
#include <cstdlib>
#include <set>
#include <sstream>

#include <gmock/gmock.h>

#include "fixture/Program.h"

namespace ixocamglue::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

class Help : public TProgramTest {
 protected:
  // What a shell command prints, in the folder.
  std::string Shell(const std::string& command) const {
    const auto file = FDir.Path() / "said";
    const int status = std::system(("cd '" + FDir.Path().string() + "' && " + command + " >said 2>&1").c_str());
    EXPECT_EQ(status, 0) << Read(file);
    return Read(file);
  }
  // What bash offers for the line's last word.
  std::multiset<std::string> Offered(const std::string& line) const {
    Write("ask.bash", "source completion.bash\nline=(" + line + ")\nCOMP_WORDS=(\"${line[@]}\")\n" +
                          "COMP_CWORD=$((${#line[@]} - 1))\n_ixocut\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n");
    std::istringstream words(Shell("bash ask.bash"));
    std::multiset<std::string> offered;
    for (std::string word; std::getline(words, word);)
      if (!word.empty()) offered.insert(word);
    return offered;
  }
};

TEST_F(Help, ManTakesEveryPageInBothLanguages) {
  for (const char* const language : {"en", "zh"}) {
    ASSERT_EQ(Ixocut(std::string("manual . --lang ") + language).ExitCode, 0);
    EXPECT_THAT(Read("ixocut.1"), HasSubstr("\nixocut \\- "));
    EXPECT_THAT(Read("ixocut.1"), Not(HasSubstr("\\- ixocut")));
    EXPECT_THAT(Read("ixocut-gas.1"), HasSubstr("\\-\\-method"));
    EXPECT_THAT(Read("ixocut-run.1"), HasSubstr("safe\\-move"));
    std::string help = Ixocut(std::string("--help --lang ") + language).Out;
    EXPECT_THAT(help, HasSubstr("manual"));
    if (std::system("man --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "man is not installed";
    EXPECT_EQ(
        Shell("for page in ixocut*.1; do LC_ALL=C.UTF-8 MANROFFSEQ= MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 "
              "-Z $page 2>&1 >/dev/null; done"),
        "");
    // A description of each command stands on the program's page, and no line is broken within an escape.
    const std::string page = Shell("MANWIDTH=80 man -E UTF-8 -l ./ixocut.1");
    EXPECT_THAT(page, HasSubstr("ixocut-gas(1)"));
    EXPECT_EQ(page.find('\\'), std::string::npos) << page;
  }
  EXPECT_EQ(Ixocut("manual nowhere").ExitCode, 3);
}

TEST_F(Help, BashCompletesCommandsOptionsAndValues) {
  Write("completion.bash", Ixocut("completion bash").Out);
  Write("steps.json", "{}");
  EXPECT_EQ(Offered("ixocut ga"), std::multiset<std::string>{"gas"});
  EXPECT_THAT(Offered("ixocut gas ''"), IsSupersetOf({"calibrate", "verdict", "study"}));
  EXPECT_THAT(Offered("ixocut --lang en gas calibrate --r"), IsSupersetOf({"--record", "--realtime"}));
  EXPECT_EQ(Offered("ixocut gas calibrate --method ''"), (std::multiset<std::string>{"exact", "refined"}));
  EXPECT_EQ(Offered("ixocut gas calibrate --method = r"), std::multiset<std::string>{"refined"});
  EXPECT_EQ(Offered("ixocut gas calibrate --method exact --me"), std::multiset<std::string>{"--method"});
  EXPECT_EQ(Offered("ixocut shot --ms ''"), std::multiset<std::string>{}) << "a number";
  EXPECT_THAT(Offered("ixocut run ''"), IsSupersetOf({"safe-move", "steps.json"}));
  EXPECT_EQ(Offered("ixocut run ste"), std::multiset<std::string>{"steps.json"});
  EXPECT_THAT(Offered("ixocut run safe-move -"), IsSupersetOf({"--x", "--journal"}));
  EXPECT_THAT(Offered("ixocut status ''"), testing::Not(Contains("gas")));
}

TEST_F(Help, ZshReadsItsScript) {
  if (std::system("zsh --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "zsh is not installed";
  Write("_ixocut", Ixocut("completion zsh").Out);
  Write("ask.zsh",
        "_describe() { print -l -- ${(P)@[-1]} }\n_files() { print files }\ncompadd() { print -l -- $@[2,-1] }\n"
        "compset() { PREFIX=${PREFIX#*=} }\n"
        "ask() { words=($@); CURRENT=$#; PREFIX=$@[-1]; source ./_ixocut }\n"
        "ask ixocut gas ''; ask ixocut gas calibrate --method ''; ask ixocut --lang en run safe-move -;\n"
        "ask ixocut run --plot ''; ask ixocut link doctor --json -\n");
  const std::string said = Shell("zsh -f ask.zsh");
  for (const char* const line : {"calibrate:", "exact\nrefined\n", "--x:", "--journal:", "\nfiles\n", "--serial:"})
    EXPECT_THAT(said, HasSubstr(line));
}

TEST_F(Help, TheVersionTellsTheCommit) {
  EXPECT_THAT(Ixocut("--version").Out,
              testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+( \\(commit [0-9a-f]+(-dirty)?\\))?\n"));
}

}  // namespace
}  // namespace ixocamglue::test
