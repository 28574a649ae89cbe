// The manual pages and the completion of shells, in the language of the help pages and made of the same: what the
// commands have told the parser of the command line.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace ixocut {

struct TManPage {
  std::string File;  // "ixocut-gas.1"
  std::string Text;  // troff, UTF-8
};

// The program's own page, then one for each command, its sub-commands included.
[[nodiscard]] std::vector<TManPage> ManPages(const CLI::App& program, const std::string& version);

[[nodiscard]] std::string BashCompletion(const CLI::App& program);
[[nodiscard]] std::string ZshCompletion(const CLI::App& program);

// --- what both read out of the parser ---

// What the value of an option is; both empty: it has none.
struct TOptionValue {
  std::string Type;                  // "FILE", "MS"
  std::vector<std::string> Choices;  // empty: not a few
};
[[nodiscard]] TOptionValue ValueOf(const CLI::Option& option);
// "-h", "--help"; of an argument its name.
[[nodiscard]] std::vector<std::string> NamesOf(const CLI::Option& option);
// What stands on a help page, in its order.
[[nodiscard]] std::vector<const CLI::Option*> ShownOptions(const CLI::App& command);
[[nodiscard]] std::vector<const CLI::Option*> ShownArguments(const CLI::App& command);
[[nodiscard]] std::vector<const CLI::App*> ShownCommands(const CLI::App& command);

}  // namespace ixocut
