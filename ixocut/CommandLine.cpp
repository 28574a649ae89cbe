#include "ixocut/CommandLine.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
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
std::map<const CLI::App*, std::string> GExitCodes;  // of the commands whose help says something of their own

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

std::string LanguageNames() {
  std::string names;
  for (const std::string& language : Languages()) names += (names.empty() ? "" : ", ") + language;
  return names;
}

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
  return {
      .Notes =
          Tr("The commands work on a copy of the example machine file in the state folder ($XDG_STATE_HOME/ixocut or\n"
             "~/.local/state/ixocut), made at first use. IXOCUT_DATA names a folder that holds machines/, alarms/ and\n"
             "locale/ other than the installed ones.\n"
             "\n"
             "Language: --lang, else the first of IXOCUT_LANG, LC_ALL, LC_MESSAGES and LANG that names one with\n"
             "texts, else zh."),
      .ExitCodes = {},
      .Examples = {"ixocut shot --ms 500", "ixocut shot --ms 500 --stop-at 300 --lang en",
                   "ixocut run safe-move --x 100 --y 50", "ixocut tree pierce",
                   "ixocut modbus read --tcp 192.168.0.10 --addr 16 --count 4",
                   "ixocut link doctor --serial /dev/ttyUSB0,19200,e,8,1", "ixocut COMMAND --help"}};
}

// What the parser of the command line says, and how it is said here.
constexpr const char* kParserMessages[] = {
    TrMark("The following argument was not expected: %s"),
    TrMark("The following arguments were not expected: %s"),
    TrMark("A subcommand is required"),
    TrMark("%s is required"),
    TrMark("%s requires %s"),
    TrMark("%s excludes %s"),
    TrMark("Could not convert: %s = %s"),
    TrMark("%s: At least %s required but received %s"),
    TrMark("%s: At Most %s required but received %s"),
    TrMark("%s: 1 required %s missing"),
};

// `message` in the operator's language, when it is one of the parser's own.
std::string ParserMessage(const std::string& message) {
  for (const char* const english : kParserMessages) {
    // The texts at the places of %s, found from one literal part to the next.
    std::vector<std::string> parts;
    std::string_view pattern = english, text = message;
    bool fits = true;
    for (std::size_t at = 0; fits;) {
      const std::size_t next = std::min(pattern.find("%s", at), pattern.size());
      const std::string_view literal = pattern.substr(at, next - at);
      const std::size_t found =
          next == pattern.size() && text.ends_with(literal) ? text.size() - literal.size() : text.find(literal);
      fits = found != std::string_view::npos && (at != 0 || found == 0);
      if (!fits) break;
      if (at != 0) parts.emplace_back(text.substr(0, found));
      text.remove_prefix(found + literal.size());
      if (next == pattern.size()) break;
      at = next + 2;
    }
    if (!fits || !text.empty()) continue;
    parts.resize(3);
    return Format(Tr(english), parts[0].c_str(), parts[1].c_str(), parts[2].c_str());
  }
  return message;
}

// Of a word where a command's name is wanted: that it is none, and which one was probably meant. The procedures of
// `run` tell of theirs themselves.
std::optional<TProblem> WrongCommand(const CLI::App& program, const CLI::ParseError& e) {
  const auto code = static_cast<CLI::ExitCodes>(e.get_exit_code());
  if (code != CLI::ExitCodes::ExtrasError && code != CLI::ExitCodes::RequiredError) return std::nullopt;
  const CLI::App* asked = &program;
  for (auto chosen = asked->get_subcommands(); !chosen.empty(); chosen = asked->get_subcommands())
    asked = chosen.front();
  const auto known = asked->get_subcommands({});
  const auto words = program.remaining(true);
  if (known.empty() || words.empty() || words.front().starts_with('-')) return std::nullopt;
  TNearestName nearest(words.front());
  std::string names;
  for (const CLI::App* const command : known) {
    nearest.Consider(command->get_name());
    names += (names.empty() ? "" : ", ") + command->get_name();
  }
  return TProblem{.What = Format(Tr("\"%s\" is no command"), words.front().c_str()),
                  .Where = {},
                  .Why = {},
                  .Remedy = nearest.DidYouMean(Format(Tr("the commands are %s"), names.c_str()))};
}

// Several lines as one; without the blank space around them.
std::string OneLine(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (c != '\n' && c != '\r')
      line += c;
    else if (!line.empty() && !line.ends_with("; "))
      line += "; ";
  }
  while (line.ends_with("; ")) line.resize(line.size() - 2);
  return line;
}

void Describe(CLI::App& program, const std::string& commit) {
  program.description(Tr("ixocut: the controller of a laser-cutting machine, on a simulated machine."));
  program.set_version_flag("--version", IXO_VERSION + (commit.empty() ? "" : " (commit " + commit + ")"),
                           Tr("Print the version and exit"));
  program.set_help_flag("-h,--help", Tr("Print this page and exit"));
  const auto formatter = std::make_shared<CLI::Formatter>();
  formatter->label("Usage", Tr("Usage"));
  formatter->label("Positionals", Tr("Arguments"));
  formatter->label("OPTIONS", Tr("OPTIONS"));
  formatter->label("SUBCOMMAND", Tr("COMMAND"));
  formatter->label("SUBCOMMANDS", Tr("COMMANDS"));
  formatter->label("REQUIRED", Tr("(required)"));
  formatter->label("Needs", Tr("needs"));
  formatter->label("Excludes", Tr("excludes"));
  program.formatter(formatter);
  program.option_defaults()->group(Tr("Options"));
  program.get_help_ptr()->group(Tr("Options"));
  program.get_version_ptr()->group(Tr("Options"));
  program.require_subcommand(0, 1);
}

void CheckLanguage(CLI::Option& option) {
  option.description(Format(Tr("Language: %s"), LanguageNames().c_str()))
      ->check(CLI::Validator(
          [](const std::string& text) {
            return Languages().contains(text)
                       ? std::string()
                       : Format(Tr("\"%s\" is not a known language (%s)"), text.c_str(), LanguageNames().c_str());
          },
          ""))
      ->type_name("LANG")
      ->default_str(GLanguage);
}

}  // namespace

CLI::Option* AddNumberOption(CLI::App& command, const std::string& name, std::uint64_t& value, std::uint64_t lowest,
                             std::uint64_t highest, const char* unit, const std::string& description) {
  const auto check = [=](std::string& text) {
    std::string problem = CheckNumber(text, lowest, highest, unit);
    // The conversion that follows would read a leading zero as octal.
    if (problem.empty()) text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    return problem;
  };
  std::string type = *unit ? unit : "n";
  std::ranges::transform(type, type.begin(), [](char c) { return static_cast<char>(std::toupper(c)); });
  return command.add_option(name, value, description)->transform(CLI::Validator(check, ""))->type_name(type);
}

CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& about, TCommandRun& run,
                     TCommandRun action) {
  CLI::App* const command = parent.add_subcommand(name, about);
  command->callback([&run, action = std::move(action)] { run = action; });
  return command;
}

void AddLanguageOption(CLI::App& command, std::string& language) {
  language = GLanguage;
  CheckLanguage(*command.add_option("--lang", language));
}

void SetHelp(CLI::App& command, const THelp& help) {
  std::string text = help.Notes.empty() ? "" : help.Notes + "\n\n";
  text += Tr("Exit codes: ");
  if (!help.ExitCodes.empty()) GExitCodes[&command] = help.ExitCodes;
  text += ExitCodesOf(command);
  text += "\n\n";
  if (!help.Examples.empty()) text += Tr("Examples:\n");
  for (const char* const example : help.Examples) text += std::string("  ") + example + '\n';
  command.footer(text + '\n' + Tr("Software is not the emergency stop."));
}

std::string ExitCodesOf(const CLI::App& command) {
  const auto own = GExitCodes.find(&command);
  return own != GExitCodes.end()
             ? own->second
             : Tr("0 success, 1 ended otherwise or refused, 2 wrong command line, 3 a file or a device cannot be used");
}

void AddSeedOption(CLI::App& command, std::uint64_t& seed) {
  AddNumberOption(command, "--seed", seed, 0, ~std::uint64_t{0}, "",
                  Tr("Seed of the random numbers; the same seed, the same run"))
      ->capture_default_str();
}

namespace {

void AddPath(CLI::App& command, const char* name, std::optional<std::filesystem::path>& value, const char* type,
             const char* description) {
  command
      .add_option_function<std::string>(
          name, [&value](const std::string& text) { value = text; }, description)
      ->check(CLI::Validator(
          [](const std::string& text) { return text.empty() ? std::string(Tr("the name is empty")) : std::string(); },
          ""))
      ->type_name(type);
}

}  // namespace

void AddStateOption(CLI::App& command, std::optional<std::filesystem::path>& state) {
  AddPath(command, "--state", state, "DIR",
          Tr("The state folder (default $XDG_STATE_HOME/ixocut or ~/.local/state/ixocut)"));
}

void AddMachineOptions(CLI::App& command, std::optional<std::filesystem::path>& machine,
                       std::optional<std::filesystem::path>& state) {
  AddPath(command, "--machine", machine, "FILE",
          Tr("The machine file to use as it is, instead of the copy in the state folder"));
  AddStateOption(command, state);
}

void AddCommands(CLI::App& program, TCommandRun& run) {
  for (const TAddCommand add : kCommands) add(program, run);
  // Each command takes it, also one that shows nothing but the program's messages.
  const auto everywhere = [](const auto& self, CLI::App& app) -> void {
    if (!app.get_option_no_throw("--lang"))
      CheckLanguage(*app.add_option_function<std::string>("--lang", [](const std::string&) {}));
    for (CLI::App* const sub : app.get_subcommands({})) {
      if (sub->get_group() == "Subcommands") sub->group(Tr("Commands"));
      if (sub->get_help_ptr()) sub->get_help_ptr()->group(Tr("Options"));
      self(self, *sub);
    }
  };
  everywhere(everywhere, program);
  SetHelp(program, ProgramHelp());  // last: it is the program's alone
}

int IxocutMain(int argc, const char* const* argv, TAdditions additions) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file at its limit is a write that fails, not the end of a machine's controller
  TLocaleReader locale(ixocontroller::ShareFolder() / "locale");
  std::optional<ixocontroller::TAddedProcedures> added;
  std::optional<TAddedMachines> machines;
  std::optional<ixoverify::TAddedGasMethods> gasMethods;
  CLI::App program("", "ixocut");
  TCommandRun run;

  const auto where = [&] {
    std::string words = "ixocut";
    for (auto chosen = program.get_subcommands(); !chosen.empty(); chosen = chosen.front()->get_subcommands())
      words += " " + chosen.front()->get_name();
    return words;
  };
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
    Describe(program, additions.Commit);
    added.emplace(std::move(additions.Procedures));
    machines.emplace(std::move(additions.Machines), std::move(additions.Drivers));
    gasMethods.emplace(std::move(additions.GasMethods));
    AddCommands(program, run);
    program.parse(argc, argv);
    if (!run) {
      std::string names;
      for (const CLI::App* known : program.get_subcommands({}))
        names += (names.empty() ? "" : ", ") + known->get_name();
      return fail(kExitCommandLine, Format(Tr("a command is needed: %s"), names.c_str()));
    }
    const int exitCode = run();
    std::cout.flush();
    if (const auto failure = TakeEndFailure()) return fail(kExitUnusable, failure->Text());
    return std::cout ? exitCode : fail(kExitUnusable, Tr("the standard output cannot be written"));
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return program.exit(e);  // --help, --version
    return failWith(kExitCommandLine,
                    WrongCommand(program, e).value_or(TProblem{.What = ParserMessage(OneLine(e.what()))}));
  } catch (const EProblem& e) {
    return failWith(ExitCodeOf(e.Blame), e.Problem);
  } catch (const std::exception& e) {
    return failWith(kExitUnusable, {.What = e.what()});
  }
}

}  // namespace ixocut
