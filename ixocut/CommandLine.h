// The command line of `ixocut`. Each command is a function that adds its sub-command, its options and what it runs; the
// table in CommandLine.cpp lists them in the order of the help page.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/support/Problem.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ixocut {
using namespace ixocamglue;

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitOtherwise = 1;    // a procedure ended otherwise than with success
inline constexpr int kExitCommandLine = 2;  // wrong command line; nothing was done
inline constexpr int kExitUnusable = 3;     // a file or a device cannot be used

[[nodiscard]] constexpr int ExitCodeOf(TBlame blame) {
  return blame == pbRequest ? kExitCommandLine : blame == pbRefused ? kExitOtherwise : kExitUnusable;
}

// What the chosen command does; returns the exit code, throws EProblem.
using TCommandRun = std::function<int()>;

// Adds one command to the program; when the command line chooses it, it sets `run`.
using TAddCommand = void (*)(CLI::App& program, TCommandRun& run);

void AddShotCommand(CLI::App& program, TCommandRun& run);
void AddRunCommand(CLI::App& program, TCommandRun& run);
void AddProceduresCommand(CLI::App& program, TCommandRun& run);
void AddTreeCommand(CLI::App& program, TCommandRun& run);
void AddSweepCommand(CLI::App& program, TCommandRun& run);
void AddSoakCommand(CLI::App& program, TCommandRun& run);
void AddRecordCommand(CLI::App& program, TCommandRun& run);
void AddMonitorCommand(CLI::App& program, TCommandRun& run);
void AddModbusCommand(CLI::App& program, TCommandRun& run);
void AddLinkCommand(CLI::App& program, TCommandRun& run);
void AddSimulateCommand(CLI::App& program, TCommandRun& run);
void AddConfigCommand(CLI::App& program, TCommandRun& run);
void AddInfoCommand(CLI::App& program, TCommandRun& run);
void AddAlarmsCommand(CLI::App& program, TCommandRun& run);
void AddPanelCommand(CLI::App& program, TCommandRun& run);
void AddKnobCommand(CLI::App& program, TCommandRun& run);
void AddGasCommand(CLI::App& program, TCommandRun& run);
void AddMachineCommand(CLI::App& program, TCommandRun& run);
void AddServeCommand(CLI::App& program, TCommandRun& run);
void AddStatusCommand(CLI::App& program, TCommandRun& run);    // and watch
void AddControlCommands(CLI::App& program, TCommandRun& run);  // stop, pause, continue, all-off, reset
void AddRunsCommand(CLI::App& program, TCommandRun& run);
void AddQueueCommand(CLI::App& program, TCommandRun& run);
void AddTokenCommand(CLI::App& program, TCommandRun& run);  // and console
void AddTourCommand(CLI::App& program, TCommandRun& run);
void AddReferenceCommand(CLI::App& program, TCommandRun& run);
void AddHelpCommands(CLI::App& program, TCommandRun& run);  // completion, manual

// A command below `parent` (the program or another command) that runs `action` when the command line chooses it.
CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& about, TCommandRun& run,
                     TCommandRun action);

// What stands below the options on a command's help page; its texts are passed through Tr by who writes them.
struct THelp {
  std::string Notes;      // lines of at most 118 columns; empty: none
  std::string ExitCodes;  // "0 the runs are the same, 1 they differ"; empty: what they are for every command
  std::vector<const char*> Examples;  // "ixocut shot --ms 500"
};
void SetHelp(CLI::App& command, const THelp& help);
// What SetHelp was told of the command's exit codes; what they are for every command where it was told none.
[[nodiscard]] std::string ExitCodesOf(const CLI::App& command);

// All of them.
void AddCommands(CLI::App& program, TCommandRun& run);

// The options that commands share; each takes its present value as the default, but for the language: that is the one
// that --lang names anywhere on the command line, else the first of IXOCUT_LANG, LC_ALL, LC_MESSAGES and LANG that
// names one with texts, else Chinese.
void AddLanguageOption(CLI::App& command, std::string& language);
void AddSeedOption(CLI::App& command, std::uint64_t& seed);
void AddStateOption(CLI::App& command, std::optional<std::filesystem::path>& state);
void AddMachineOptions(CLI::App& command, std::optional<std::filesystem::path>& machine,
                       std::optional<std::filesystem::path>& state);
// An option whose value is a whole number from `lowest` to `highest`.
CLI::Option* AddNumberOption(CLI::App& command, const std::string& name, std::uint64_t& value, std::uint64_t lowest,
                             std::uint64_t highest, const char* unit, const std::string& description);

}  // namespace ixocut
