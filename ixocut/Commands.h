// The program's commands, as Program.cpp lists them, and the options that several of them take. Main thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "commandline/CommandLine.h"

namespace ixocut {
using namespace ixocommandline;

inline constexpr const char* kProgramName = "ixocut";

// Adds one command to the program, or to the command above it.
using TAddCommand = void (*)(TCommand program);

void AddShotCommand(TCommand program);
void AddRunCommand(TCommand program);
void AddProceduresCommand(TCommand program);
void AddTreeCommand(TCommand program);
void AddSweepCommand(TCommand program);
void AddSoakCommand(TCommand program);
void AddRecordCommand(TCommand program);
void AddMonitorCommand(TCommand program);
void AddModbusCommand(TCommand program);
void AddLinkCommand(TCommand program);
void AddSimulateCommand(TCommand program);
void AddConfigCommand(TCommand program);
void AddInfoCommand(TCommand program);
void AddAlarmsCommand(TCommand program);
void AddPanelCommand(TCommand program);
void AddKnobCommand(TCommand program);
void AddGasCommand(TCommand program);
void AddMachineCommand(TCommand program);
void AddServeCommand(TCommand program);
void AddStatusCommand(TCommand program);    // and watch
void AddControlCommands(TCommand program);  // stop, pause, continue, all-off, reset
void AddRunsCommand(TCommand program);
void AddQueueCommand(TCommand program);
void AddTokenCommand(TCommand program);  // and console
void AddTourCommand(TCommand program);
void AddReferenceCommand(TCommand program);
void AddHelpCommands(TCommand program);  // completion, manual

// All of them.
void AddCommands(TCommand program);

// The options that commands share; each takes its present value as the default, but for the language: that is the one
// that --lang names anywhere on the command line, else the first of IXOCUT_LANG, LC_ALL, LC_MESSAGES and LANG that
// names one with texts, else Chinese.
void AddLanguageOption(TCommand command, std::string& language);
void AddSeedOption(TCommand command, std::uint64_t& seed);
TOption AddStateOption(TCommand command, std::optional<std::filesystem::path>& state);
// --machine and --state, in this order.
std::vector<TOption> AddMachineOptions(TCommand command, std::optional<std::filesystem::path>& machine,
                                       std::optional<std::filesystem::path>& state);

}  // namespace ixocut
