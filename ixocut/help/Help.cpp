#include "ixocut/help/Help.h"

namespace ixocut {
namespace {

std::vector<const CLI::Option*> Shown(const CLI::App& command, bool arguments) {
  return command.get_options([arguments](const CLI::Option* option) {
    return !option->get_group().empty() && option->nonpositional() != arguments;
  });
}

}  // namespace

TOptionValue ValueOf(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return {};
  TOptionValue value{.Type = option.get_type_name(), .Choices = {}};
  // A check against a few words adds them: "NAME:{exact,refined}".
  const std::size_t brace = value.Type.find('{');
  if (brace == std::string::npos) return value;
  const std::size_t end = value.Type.find('}', brace);
  value.Choices = CLI::detail::split(value.Type.substr(brace + 1, end - brace - 1), ',');
  value.Type.erase(brace != 0 && value.Type[brace - 1] == ':' ? brace - 1 : brace);
  return value;
}

std::vector<std::string> NamesOf(const CLI::Option& option) {
  if (!option.nonpositional()) return {option.get_name()};
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

std::vector<const CLI::Option*> ShownOptions(const CLI::App& command) { return Shown(command, false); }

std::vector<const CLI::Option*> ShownArguments(const CLI::App& command) { return Shown(command, true); }

std::vector<const CLI::App*> ShownCommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

}  // namespace ixocut
