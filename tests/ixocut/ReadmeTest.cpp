// Each command line that the README shows works as it stands there.
#include <map>
#include <regex>
#include <unistd.h>

#include "fixture/Paths.h"
#include "fixture/Program.h"
#include "ixocamglue/support/Files.h"

namespace ixocamglue::test {
namespace {

class Readme : public TProgramTest {
 protected:
  Readme() { FLanguage = "en"; }
};

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

TEST_F(Readme, EachCommandLineWorks) {
  const std::string text = ReadFile(TestSources() + "/../README.md").OrThrow(pbUnusable);
  std::smatch block;
  ASSERT_TRUE(std::regex_search(text, block, std::regex("```json[^\n]*\n([^`]*)```")));
  Write("FILE.json", block[1]);

  // What ends otherwise, takes long or waits for somebody.
  const std::map<std::string, int> exits{{"shot --ms 500 --stop-at 900 --lang en", 1}};
  const std::map<std::string, std::string> shorter{{"sweep", "sweep --points 50"}, {"soak", "soak --seconds 1"}};
  const std::string port = std::to_string(20'000 + ::getpid() % 20'000);
  std::string server;
  int lines = 0;
  const std::regex line("`\\./run ([^`]+)`");
  for (std::sregex_iterator it(text.begin(), text.end(), line), end; it != end; ++it) {
    std::string command = Replaced((*it)[1], "1502", port);
    if (command == "panel" || command.starts_with("COMMAND")) continue;
    if (command.starts_with("simulate ") || command.starts_with("alarms live") || command == "serve") {
      server = command == "serve" ? "serve --port 0" : command;
      continue;
    }
    if (const auto known = shorter.find(command); known != shorter.end()) command = known->second;
    const auto ends = exits.find(command);
    command = Replaced(command, "check FILE", "check ixocut/machine.xml");
    // What needs a device has the one of the line before it beside it.
    const bool served = command.find(port) != std::string::npos || command == "status";
    const TRun run = served ? Ixocut("--version; '" + IxocutBinary() + "' " + server +
                                     " & server=$!; for i in 1 2 3 4 5 6 7 8 9; do '" + IxocutBinary() + "' " +
                                     command + " && break; sleep 0.1; done; code=$?; kill $server; wait; (exit $code)")
                            : Ixocut(command);
    EXPECT_EQ(run.ExitCode, ends == exits.end() ? 0 : ends->second) << command << "\n" << run.All();
    ++lines;
  }
  EXPECT_GT(lines, 15);
}

}  // namespace
}  // namespace ixocamglue::test
