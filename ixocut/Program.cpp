// The program: its commands, its language, and the one line that a failure is told in.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <set>

#include <nlohmann/json.hpp>

#include "commandline/Document.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Commands.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Machines.h"
#include "ixocut/Main.h"

namespace ixocut {
namespace {

constexpr TAddCommand kCommands[] = {
    AddServeCommand,   AddRunsCommand,       AddQueueCommand, AddStatusCommand,   AddControlCommands, AddShotCommand,
    AddRunCommand,     AddProceduresCommand, AddTreeCommand,  AddSweepCommand,    AddSoakCommand,     AddPanelCommand,
    AddKnobCommand,    AddConfigCommand,     AddInfoCommand,  AddAlarmsCommand,   AddGasCommand,      AddRecordCommand,
    AddMonitorCommand, AddModbusCommand,     AddLinkCommand,  AddSimulateCommand, AddTokenCommand,    AddTourCommand,
    AddMachineCommand, AddReferenceCommand,  AddHelpCommands};

constexpr const char* kOwnLanguage = "zh";  // of the texts in the program itself
std::string GLanguage = kOwnLanguage;       // what --lang is unless it is given; set before the commands are added

// The program's own, and each that has a catalogue.
const std::set<std::string>& Languages() {
  static const std::set<std::string> languages = [] {
    std::set<std::string> found{kOwnLanguage};
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(ixocontroller::ShareFolder() / "locale", error))
      if (file.path().extension() == ".json") found.insert(file.path().stem().string());
    return found;
  }();
  return languages;
}

std::string LanguageNames() { return Joined(Languages()); }

// What the command line asks for, before or behind the command, if it is known; else the user's environment:
// "en_GB.UTF-8" asks for "en"; what has no texts, "C" included, asks for nothing.
std::string AskedLanguage(int argc, const char* const* argv) {
  constexpr std::string_view option = "--lang";
  for (int i = argc - 1; i > 0; --i) {
    const std::string_view word = argv[i];
    std::string language(word == option && i + 1 < argc ? argv[i + 1]
                         : word.starts_with(option) && word.size() > option.size() && word[option.size()] == '='
                             ? word.substr(option.size() + 1)
                             : std::string_view());
    if (Languages().contains(language)) return language;
  }
  for (const char* const name : {"IXOCUT_LANG", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const text = std::getenv(name);
    const std::string asked = text ? text : "";
    std::string language = asked.substr(0, asked.find_first_of("_.@-"));
    if (Languages().contains(language)) return language;
  }
  return kOwnLanguage;
}

THelp ProgramHelp() {
  return {.Notes = Tr(
              "The commands work on a copy of the example machine file in the state folder ($XDG_STATE_HOME/ixocut or\n"
              "~/.local/state/ixocut), made at first use. IXOCUT_DATA names a folder that holds machines/, alarms/,\n"
              "locale/, api/ and console/ other than the installed ones.\n"
              "\n"
              "Language: --lang, else the first of IXOCUT_LANG, LC_ALL, LC_MESSAGES and LANG that names one with\n"
              "texts, else zh."),
          .Examples = {"ixocut shot --ms 500", "ixocut shot --ms 500 --stop-at 300 --lang en",
                       "ixocut run safe-move --x 100 --y 50", "ixocut tree pierce",
                       "ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4",
                       "ixocut link doctor --serial /dev/ttyUSB0,19200,e,8,1", "ixocut COMMAND --help"}};
}

}  // namespace

void AddLanguageOption(TCommand command, std::string& language) {
  language = GLanguage;
  command.Text("--lang", language, Format(Tr("Language: %s"), LanguageNames().c_str()), "LANG")
      .Check([](const std::string& text) {
        return Languages().contains(text)
                   ? std::string()
                   : Format(Tr("\"%s\" is not a known language (%s)"), text.c_str(), LanguageNames().c_str());
      })
      .ShowDefault();
}

void AddSeedOption(TCommand command, std::uint64_t& seed) {
  command
      .Number("--seed", seed, 0, ~std::uint64_t{0}, "", Tr("Seed of the random numbers; the same seed, the same run"))
      .ShowDefault();
}

TOption AddStateOption(TCommand command, std::optional<std::filesystem::path>& state) {
  return command.Path("--state", state,
                      Tr("The state folder (default $XDG_STATE_HOME/ixocut or ~/.local/state/ixocut)"), "DIR");
}

std::vector<TOption> AddMachineOptions(TCommand command, std::optional<std::filesystem::path>& machine,
                                       std::optional<std::filesystem::path>& state) {
  const TOption file = command.Path(
      "--machine", machine, Tr("The machine file to use as it is, instead of the copy in the state folder"), "FILE");
  return {file, AddStateOption(command, state)};
}

void AddCommands(TCommand program) {
  for (const TAddCommand add : kCommands) add(program);
  // Each command takes it, also one that shows nothing but the program's messages.
  const auto everywhere = [](const auto& self, TCommand command) -> void {
    static std::string language;
    if (!command.Has("--lang")) AddLanguageOption(command, language);
    for (const TCommand sub : command.Commands()) self(self, sub);
  };
  everywhere(everywhere, program);
  program.Help(ProgramHelp());  // last: it is the program's alone
}

int IxocutMain(int argc, const char* const* argv, TAdditions additions) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file at its limit is a write that fails, not the end of a machine's controller
  TLocaleReader locale(ixocontroller::ShareFolder() / "locale");
  std::optional<ixocontroller::TAddedProcedures> added;
  std::optional<TAddedMachines> machines;
  std::optional<ixoverify::TAddedGasMethods> gasMethods;
  std::optional<TProgram> program;

  const auto where = [&] { return program ? program->ChosenWords() : kProgramName; };
  const auto fail = [&](int exitCode, std::string_view message) {
    const char* const hint = exitCode == kExitCommandLine ? Tr(" (--help tells more)") : "";
    std::cerr << where() << ": " << OneLine(message) << hint << std::endl;
    return exitCode;
  };
  const auto failWith = [&](int exitCode, const TProblem& problem) {
    if (JsonAsked(argc, argv) && !DocumentPrinted()) {
      std::string words = where();
      words.erase(0, words.find(' ') + 1);
      if (words.starts_with("run ")) words = "run";  // as the document of a run that has begun
      PrintDocument(std::cout, words, nullptr, problem);
    }
    return fail(exitCode, problem.Text());
  };
  try {
    GLanguage = AskedLanguage(argc, argv);
    if (const std::string problem = locale.SelectLanguage(GLanguage); !problem.empty()) fail(kExitUnusable, problem);
    program.emplace(TProgramTexts{
        .Name = kProgramName,
        .About = Tr("ixocut: the controller of a laser-cutting machine, of a real one or of one made of software."),
        .Version = IXO_VERSION + (additions.Commit.empty() ? "" : " (commit " + additions.Commit + ")"),
        .ExitCodes =
            Tr("0 success, 1 ended otherwise or refused, 2 wrong command line, 3 a file or a device cannot be used"),
        .Closing = Tr("Software is not the emergency stop.")});
    added.emplace(std::move(additions.Procedures));
    machines.emplace(std::move(additions.Machines), std::move(additions.Drivers));
    gasMethods.emplace(std::move(additions.GasMethods));
    AddCommands(program->Top());
    const int exitCode = program->Parse({argv + std::min(argc, 1), argv + argc})();
    std::cout.flush();
    if (const auto failure = TakeEndFailure()) return fail(kExitUnusable, failure->Text());
    return std::cout ? exitCode : fail(kExitUnusable, Tr("the standard output cannot be written"));
  } catch (const EProblem& e) {
    return failWith(ExitCodeOf(e.Blame), e.Problem);
  } catch (const std::exception& e) {
    return failWith(kExitUnusable, {.What = e.what()});
  }
}

}  // namespace ixocut
