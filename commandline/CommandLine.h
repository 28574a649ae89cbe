// A program's command line: commands with their options, and what is told of them on help pages. CommandLine.cpp is the
// only source that knows the parser. Main thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Problem.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ixocommandline {
using namespace ixocamglue;

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitOtherwise = 1;    // refused, or ended otherwise than with success
inline constexpr int kExitCommandLine = 2;  // wrong command line; nothing was done
inline constexpr int kExitUnusable = 3;     // a file or a device cannot be used

[[nodiscard]] constexpr int ExitCodeOf(TBlame blame) {
  return blame == pbRequest ? kExitCommandLine : blame == pbRefused ? kExitOtherwise : kExitUnusable;
}

// What the chosen command does; returns the exit code, throws EProblem.
using TCommandRun = std::function<int()>;

// An option or an argument of a command; copies are the same one, which lives as long as the program.
class TOption {
 public:
  explicit TOption(CLI::Option* option) : FOption(option) {}

  // --- as it is made; each returns the option ---
  TOption Required(bool required = true) const;
  TOption Several() const;      // it may be given several times, with one value each
  TOption ShowDefault() const;  // the value that its variable has now
  TOption OneOf(std::vector<std::string> choices) const;
  TOption NotEmpty(const char* problem) const;
  // `problemOf` says what is wrong with a text; empty: nothing.
  TOption Check(std::function<std::string(const std::string& text)> problemOf) const;
  TOption Needs(TOption other) const;
  TOption Excludes(TOption other) const;
  TOption Tells(bool& given) const;  // which becomes true where the option has a value on the command line

  // --- what help pages tell ---
  [[nodiscard]] std::vector<std::string> Names() const;  // "-h", "--help"; of an argument its name
  [[nodiscard]] std::string Name() const;                // the one that others refer to it by
  [[nodiscard]] std::string About() const;
  [[nodiscard]] bool IsArgument() const;
  [[nodiscard]] bool IsRequired() const;
  [[nodiscard]] bool HasValue() const;
  [[nodiscard]] std::string ValueType() const;             // "FILE", "MS"; empty: without a value, too
  [[nodiscard]] std::vector<std::string> Choices() const;  // empty: not a few
  [[nodiscard]] std::string Default() const;
  [[nodiscard]] std::vector<TOption> Needed() const;
  [[nodiscard]] std::vector<TOption> Excluded() const;

 private:
  friend class TCommand;
  CLI::Option* FOption;
};

// What stands below the options on a command's help page; its texts are passed through Tr by who writes them.
struct THelp {
  std::string Notes;      // lines of at most 118 columns; empty: none
  std::string ExitCodes;  // "0 the runs are the same, 1 they differ"; empty: what the program says of its commands
  std::vector<const char*> Examples;  // "ixocut shot --ms 500"
};

// A command, or the program itself; copies are the same one, which lives as long as the program. What is handed over by
// reference is filled while the command line is read, and lives until then. `about` is shown through Tr by its writer.
class TCommand {
 public:
  struct TState;  // of the program
  TCommand(CLI::App* app, TState* state) : FApp(app), FState(state) {}

  // A command below this one that runs `action` when it is the last that the command line names.
  TCommand Add(const std::string& name, const std::string& about, TCommandRun action) const;
  // One that does nothing itself: a command below it has to be named.
  TCommand AddGroup(const std::string& name, const std::string& about) const;
  // One with options of its own for this command's action, which finds its name in `chosen`; this command's options
  // hold behind it as well. It stands on the help page below `title`.
  TCommand AddVariant(const std::string& name, const std::string& about, const std::string& title,
                      std::string& chosen) const;

  // `name` is "--ms", or "FILE" of an argument, which takes the words that are no option's, in the order of the calls.
  // `type` is how pages name the value.
  TOption Flag(const std::string& name, bool& value, const std::string& about) const;
  TOption Flag(const std::string& name, std::function<void()> given, const std::string& about) const;
  TOption Text(const std::string& name, std::string& value, const std::string& about, const std::string& type) const;
  TOption Text(const std::string& name, const std::function<void(const std::string&)>& take, const std::string& about,
               const std::string& type) const;
  TOption Path(const std::string& name, std::optional<std::filesystem::path>& value, const std::string& about,
               const std::string& type) const;
  // An argument takes all words that are left.
  TOption Texts(const std::string& name, std::vector<std::string>& values, const std::string& about,
                const std::string& type) const;
  // Any number, as the parser reads them.
  TOption Real(const std::string& name, double& value, const std::string& about, const std::string& type) const;
  // A whole number from `lowest` to `highest`.
  TOption Number(const std::string& name, std::uint64_t& value, std::uint64_t lowest, std::uint64_t highest,
                 const char* unit, const std::string& about) const;
  TOption Number(const std::string& name, std::optional<std::uint64_t>& value, std::uint64_t lowest,
                 std::uint64_t highest, const char* unit, const std::string& about) const;

  // Words that nobody expected are no mistake of this command, and of those that are added to it from now on: they are
  // in `words` when its action runs.
  void TakeExtras(std::vector<std::string>& words) const;
  void Help(const THelp& help) const;

  // --- what help pages tell ---
  [[nodiscard]] std::string Name() const;
  [[nodiscard]] std::string About() const;
  [[nodiscard]] std::string Footer() const;  // what Help was told
  [[nodiscard]] std::string ExitCodes() const;
  [[nodiscard]] bool Runs() const;  // without a command below it
  [[nodiscard]] bool IsVariant() const;
  [[nodiscard]] bool Has(const std::string& option) const;
  [[nodiscard]] std::vector<TOption> Options() const;
  [[nodiscard]] std::vector<TOption> Arguments() const;
  [[nodiscard]] std::vector<TCommand> Commands() const;

 private:
  [[nodiscard]] TCommand Sub(const std::string& name, const std::string& about) const;

  CLI::App* FApp;
  TState* FState;
};

// What a program says of itself; its texts are passed through Tr by who writes them.
struct TProgramTexts {
  std::string Name, About, Version;
  std::string ExitCodes;  // of a command whose help says none
  std::string Closing;    // the last line of each help page; empty: none
};

// The whole: what is read, and what was chosen.
class TProgram {
 public:
  explicit TProgram(const TProgramTexts& texts);
  ~TProgram();
  TProgram(const TProgram&) = delete;
  TProgram& operator=(const TProgram&) = delete;

  [[nodiscard]] TCommand Top() const;
  // What the words ask for; --help and --version are asked for like a command. `words` are those behind the program's
  // name. Throws EProblem for a wrong command line, also for one without a command.
  [[nodiscard]] TCommandRun Parse(std::vector<std::string> words);
  // "ixocut gas show", as far as the words were understood.
  [[nodiscard]] std::string ChosenWords() const;

 private:
  std::unique_ptr<TCommand::TState> FState;
};

// Several lines as one; without the blank space around them.
[[nodiscard]] std::string OneLine(std::string_view text);

}  // namespace ixocommandline
