#include "commandline/CommandLine.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <utility>

#include <CLI/CLI.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocommandline {

struct TCommand::TState {
  explicit TState(const TProgramTexts& texts) : Texts(texts), App(texts.About, texts.Name) {}

  // The program, and each command that was named, the last one last.
  [[nodiscard]] std::vector<const CLI::App*> Named() const {
    std::vector<const CLI::App*> named{&App};
    for (auto below = App.get_subcommands(); !below.empty(); below = below.front()->get_subcommands())
      named.push_back(below.front());
    return named;
  }

  const TProgramTexts Texts;
  CLI::App App;
  TCommandRun Run = {};                                   // of the last command that was named
  std::map<const CLI::App*, std::string> ExitCodes = {};  // of those whose help says something of their own
  std::map<const CLI::App*, std::vector<std::string>*> Extras = {};
};

namespace {

// What the parser of the command line says, and how it is said here.
constexpr const char* kParserMessages[] = {
    TrMark("The following argument was not expected: %s"),
    TrMark("The following arguments were not expected: %s"),
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

std::string CommandNames(const CLI::App& above) {
  std::string names;
  for (const CLI::App* const command : above.get_subcommands({})) AddToList(names, command->get_name());
  return names;
}

TProblem CommandNeeded(const CLI::App& above) {
  return {.What = Format(Tr("a command is needed: %s"), CommandNames(above).c_str())};
}

// Of the first of `words`, which nobody expected, where a command's name is wanted: that it is none, and which one was
// probably meant; where there is no such word, which there are. A command that takes extras tells of them itself.
std::optional<TProblem> WrongCommand(const CLI::App& asked, const std::vector<std::string>& words,
                                     const CLI::ParseError& e) {
  const auto code = static_cast<CLI::ExitCodes>(e.get_exit_code());
  if (code != CLI::ExitCodes::ExtrasError && code != CLI::ExitCodes::RequiredError) return std::nullopt;
  const auto known = asked.get_subcommands({});
  if (known.empty()) return std::nullopt;
  if (words.empty() || words.front().starts_with('-'))
    return asked.get_require_subcommand_min() == 0 ? std::nullopt : std::optional(CommandNeeded(asked));
  TNearestName nearest(words.front());
  for (const CLI::App* const command : known) nearest.Consider(command->get_name());
  return TProblem{.What = Format(Tr("\"%s\" is no command"), words.front().c_str()),
                  .Remedy = nearest.DidYouMean(Format(Tr("the commands are %s"), CommandNames(asked).c_str()))};
}

std::vector<TOption> AsOptions(const std::set<CLI::Option*>& options) {
  return std::vector<TOption>(options.begin(), options.end());
}

std::vector<TOption> Shown(CLI::App& command, bool arguments) {
  std::vector<TOption> list;
  for (CLI::Option* const option : command.get_options([arguments](const CLI::Option* candidate) {
         return !candidate->get_group().empty() && candidate->nonpositional() != arguments;
       }))
    list.emplace_back(option);
  return list;
}

}  // namespace

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

// --- TOption ---

TOption TOption::Required(bool required) const {
  FOption->required(required);
  return *this;
}

TOption TOption::Several() const {
  FOption->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

TOption TOption::ShowDefault() const {
  FOption->capture_default_str();
  return *this;
}

TOption TOption::OneOf(std::vector<std::string> choices) const {
  FOption->check(CLI::IsMember(std::move(choices)));
  return *this;
}

TOption TOption::NotEmpty(const char* problem) const {
  return Check([problem](const std::string& text) { return std::string(text.empty() ? problem : ""); });
}

TOption TOption::Check(std::function<std::string(const std::string& text)> problemOf) const {
  FOption->check(CLI::Validator([problemOf = std::move(problemOf)](std::string& text) { return problemOf(text); }, ""));
  return *this;
}

TOption TOption::Needs(TOption other) const {
  FOption->needs(other.FOption);
  return *this;
}

TOption TOption::Excludes(TOption other) const {
  FOption->excludes(other.FOption);
  return *this;
}

TOption TOption::Tells(bool& given) const {
  FOption->each([&given](const std::string&) { given = true; });
  return *this;
}

std::vector<std::string> TOption::Names() const {
  if (IsArgument()) return {Name()};
  std::vector<std::string> names;
  for (const std::string& name : FOption->get_snames()) names.push_back("-" + name);
  for (const std::string& name : FOption->get_lnames()) names.push_back("--" + name);
  return names;
}

std::string TOption::Name() const { return FOption->get_name(); }
std::string TOption::About() const { return FOption->get_description(); }
bool TOption::IsArgument() const { return !FOption->nonpositional(); }
bool TOption::IsRequired() const { return FOption->get_required(); }
bool TOption::HasValue() const { return FOption->get_items_expected_max() != 0; }

// A check against a few words adds them to the type: "NAME:{exact,refined}".
std::string TOption::ValueType() const {
  if (!HasValue()) return "";
  std::string type = FOption->get_type_name();
  const std::size_t brace = type.find('{');
  if (brace == std::string::npos) return type;
  const std::size_t end = type.find('}', brace);
  return type.substr(0, brace != 0 && type[brace - 1] == ':' ? brace - 1 : brace) +
         (end == std::string::npos ? "" : type.substr(end + 1));
}

std::vector<std::string> TOption::Choices() const {
  const std::string type = HasValue() ? FOption->get_type_name() : "";
  const std::size_t brace = type.find('{');
  if (brace == std::string::npos) return {};
  return CLI::detail::split(type.substr(brace + 1, type.find('}', brace) - brace - 1), ',');
}

std::string TOption::Default() const { return FOption->get_default_str(); }
std::vector<TOption> TOption::Needed() const { return AsOptions(FOption->get_needs()); }
std::vector<TOption> TOption::Excluded() const { return AsOptions(FOption->get_excludes()); }

// --- TCommand ---

TCommand TCommand::Sub(const std::string& name, const std::string& about) const {
  CLI::App* const app = FApp->add_subcommand(name, about);
  app->group(Tr("Commands"));
  if (app->get_help_ptr()) app->get_help_ptr()->group(Tr("Options"));
  return {app, FState};
}

TCommand TCommand::Add(const std::string& name, const std::string& about, TCommandRun action) const {
  const TCommand command = Sub(name, about);
  // That of a command below is told first.
  command.FApp->callback([app = command.FApp, state = FState, action = std::move(action)] {
    if (const auto extras = state->Extras.find(app); extras != state->Extras.end())
      *extras->second = app->remaining(true);
    if (!state->Run) state->Run = action;
  });
  return command;
}

TCommand TCommand::AddGroup(const std::string& name, const std::string& about) const {
  const TCommand command = Sub(name, about);
  command.FApp->require_subcommand(1);
  return command;
}

TCommand TCommand::AddVariant(const std::string& name, const std::string& about, const std::string& title,
                              std::string& chosen) const {
  const TCommand command = Sub(name, about);
  command.FApp->fallthrough()->group(title)->callback([&chosen, name] { chosen = name; });
  return command;
}

TOption TCommand::Flag(const std::string& name, bool& value, const std::string& about) const {
  return TOption(FApp->add_flag(name, value, about));
}

TOption TCommand::Flag(const std::string& name, std::function<void()> given, const std::string& about) const {
  return TOption(FApp->add_flag_callback(name, std::move(given), about));
}

TOption TCommand::Text(const std::string& name, std::string& value, const std::string& about,
                       const std::string& type) const {
  return TOption(FApp->add_option(name, value, about)->type_name(type));
}

TOption TCommand::Text(const std::string& name, const std::function<void(const std::string&)>& take,
                       const std::string& about, const std::string& type) const {
  return TOption(FApp->add_option_function<std::string>(name, take, about)->type_name(type));
}

TOption TCommand::Path(const std::string& name, std::optional<std::filesystem::path>& value, const std::string& about,
                       const std::string& type) const {
  return Text(
             name, [&value](const std::string& text) { value = text; }, about, type)
      .NotEmpty(Tr("the name is empty"));
}

TOption TCommand::Texts(const std::string& name, std::vector<std::string>& values, const std::string& about,
                        const std::string& type) const {
  return TOption(FApp->add_option(name, values, about)->type_name(type));
}

TOption TCommand::Real(const std::string& name, double& value, const std::string& about,
                       const std::string& type) const {
  return TOption(FApp->add_option(name, value, about)->type_name(type));
}

namespace {

TOption CheckedNumber(CLI::Option& option, std::uint64_t lowest, std::uint64_t highest, const char* unit) {
  const auto check = [=](std::string& text) {
    std::string problem = CheckNumber(text, lowest, highest, unit);
    // The conversion that follows would read a leading zero as octal.
    if (problem.empty()) text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
    return problem;
  };
  return TOption(option.transform(CLI::Validator(check, ""))->type_name(*unit ? Capitals(unit) : "N"));
}

}  // namespace

TOption TCommand::Number(const std::string& name, std::uint64_t& value, std::uint64_t lowest, std::uint64_t highest,
                         const char* unit, const std::string& about) const {
  return CheckedNumber(*FApp->add_option(name, value, about), lowest, highest, unit);
}

TOption TCommand::Number(const std::string& name, std::optional<std::uint64_t>& value, std::uint64_t lowest,
                         std::uint64_t highest, const char* unit, const std::string& about) const {
  const std::function<void(const std::uint64_t&)> take = [&value](std::uint64_t number) { value = number; };
  return CheckedNumber(*FApp->add_option_function<std::uint64_t>(name, take, about), lowest, highest, unit);
}

void TCommand::TakeExtras(std::vector<std::string>& words) const {
  FApp->allow_extras();
  FState->Extras[FApp] = &words;
}

void TCommand::Help(const THelp& help) const {
  std::string text = help.Notes.empty() ? "" : help.Notes + "\n\n";
  if (!help.ExitCodes.empty()) FState->ExitCodes[FApp] = help.ExitCodes;
  text += Tr("Exit codes: ") + ExitCodes() + "\n\n";
  if (!help.Examples.empty()) text += Tr("Examples:\n");
  for (const char* const example : help.Examples) text += std::string("  ") + example + '\n';
  const std::string& closing = FState->Texts.Closing;
  FApp->footer(closing.empty() ? text : text + '\n' + closing);
}

std::string TCommand::Name() const { return FApp->get_name(); }
std::string TCommand::About() const { return FApp->get_description(); }
std::string TCommand::Footer() const { return FApp->get_footer(); }

std::string TCommand::ExitCodes() const {
  const auto own = FState->ExitCodes.find(FApp);
  return own != FState->ExitCodes.end() ? own->second : FState->Texts.ExitCodes;
}

bool TCommand::Runs() const { return FApp->get_require_subcommand_min() == 0; }
bool TCommand::IsVariant() const { return FApp->get_fallthrough(); }
bool TCommand::Has(const std::string& option) const { return FApp->get_option_no_throw(option) != nullptr; }
std::vector<TOption> TCommand::Options() const { return Shown(*FApp, false); }
std::vector<TOption> TCommand::Arguments() const { return Shown(*FApp, true); }

std::vector<TCommand> TCommand::Commands() const {
  std::vector<TCommand> list;
  for (CLI::App* const app : FApp->get_subcommands([](const CLI::App*) { return true; }))
    list.emplace_back(app, FState);
  return list;
}

// --- TProgram ---

TProgram::TProgram(const TProgramTexts& texts) : FState(std::make_unique<TCommand::TState>(texts)) {
  CLI::App& app = FState->App;
  app.set_version_flag("--version", texts.Version, Tr("Print the version and exit"));
  app.set_help_flag("-h,--help", Tr("Print this page and exit"));
  const auto formatter = std::make_shared<CLI::Formatter>();
  formatter->label("Usage", Tr("Usage"));
  formatter->label("Positionals", Tr("Arguments"));
  formatter->label("OPTIONS", Tr("OPTIONS"));
  formatter->label("SUBCOMMAND", Tr("COMMAND"));
  formatter->label("SUBCOMMANDS", Tr("COMMANDS"));
  formatter->label("REQUIRED", Tr("(required)"));
  formatter->label("Needs", Tr("needs"));
  formatter->label("Excludes", Tr("excludes"));
  app.formatter(formatter);
  app.option_defaults()->group(Tr("Options"));
  app.get_help_ptr()->group(Tr("Options"));
  app.get_version_ptr()->group(Tr("Options"));
  app.require_subcommand(0, 1);
}

TProgram::~TProgram() = default;

TCommand TProgram::Top() const { return {&FState->App, FState.get()}; }

TCommandRun TProgram::Parse(std::vector<std::string> words) {
  CLI::App& app = FState->App;
  const auto tell = [](const std::string& text) {
    return [text] {
      std::cout << text << std::flush;
      return kExitSuccess;
    };
  };
  try {
    FState->Run = {};
    std::ranges::reverse(words);  // as the parser takes them
    app.parse(std::move(words));
    if (!FState->Run) throw EProblem(pbRequest, CommandNeeded(app));
    return FState->Run;
  } catch (const CLI::CallForHelp&) {
    return tell(app.help());
  } catch (const CLI::CallForVersion& e) {
    return tell(e.what() + std::string("\n"));
  } catch (const CLI::ParseError& e) {
    throw EProblem(pbRequest, WrongCommand(*FState->Named().back(), app.remaining(true), e)
                                  .value_or(TProblem{.What = ParserMessage(OneLine(e.what()))}));
  }
}

std::string TProgram::ChosenWords() const {
  std::string words;
  for (const CLI::App* const app : FState->Named()) AddToList(words, app->get_name(), " ");
  return words;
}

}  // namespace ixocommandline
