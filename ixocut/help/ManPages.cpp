#include <algorithm>
#include <cctype>
#include <string_view>

#include "ixocamglue/support/Texts.h"
#include "ixocut/help/Help.h"

namespace ixocut {
using namespace ixocamglue;
namespace {

// Between two characters of which the second begins an ideograph (U+2E80 to U+9FFF), a line may end; troff knows only
// blanks.
bool BeginsIdeograph(std::string_view text, std::size_t at) {
  if (at + 2 >= text.size()) return false;
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
  if ((byte(0) & 0xF0U) != 0xE0U) return false;
  const unsigned point = (byte(0) & 0x0FU) << 12U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU);
  return point >= 0x2E80 && point <= 0x9FFF && !(point >= 0x3000 && point <= 0x303F);  // not before punctuation
}

// Text as troff prints it, wherever in a line it stands.
std::string Troff(std::string_view text) {
  std::string escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if ((c == '.' || c == '\'') && (i == 0 || text[i - 1] == '\n')) escaped += "\\&";
    if (i != 0 && BeginsIdeograph(text, i)) escaped += "\\:";
    switch (c) {
      case '\\': escaped += "\\e"; break;
      case '-': escaped += "\\-"; break;
      case '\'': escaped += "\\(aq"; break;
      case '`': escaped += "\\(ga"; break;
      case '^': escaped += "\\(ha"; break;
      case '~': escaped += "\\(ti"; break;
      case '"': escaped += "\\(dq"; break;
      default: escaped += c;
    }
  }
  return escaped;
}

std::string Bold(std::string_view text) { return "\\fB" + Troff(text) + "\\fR"; }
std::string Italic(std::string_view text) { return text.empty() ? "" : "\\fI" + Troff(text) + "\\fR"; }

std::string Upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

std::string ValueShown(const CLI::Option& option) {
  const TOptionValue value = ValueOf(option);
  std::string shown = Italic(value.Type);
  std::string choices;
  for (const std::string& choice : value.Choices) choices += (choices.empty() ? "" : "|\\:") + Bold(choice);
  if (!choices.empty()) shown += (shown.empty() ? "" : ": ") + choices;
  if (!option.get_default_str().empty()) shown += " (" + Troff(option.get_default_str()) + ")";
  return shown;
}

void Describe(const CLI::Option& option, std::string& page) {
  std::string names;
  for (const std::string& name : NamesOf(option))
    names += (names.empty() ? "" : ", ") + (option.nonpositional() ? Bold(name) : Italic(name));
  const std::string value = ValueShown(option);
  page += ".TP\n" + names + (value.empty() ? "" : " " + value);
  if (option.get_required()) page += std::string(" ") + Troff(Tr("(required)"));
  page += "\n" + Troff(option.get_description()) + "\n";
  const auto others = [&](const std::set<CLI::Option*>& options, const char* word) {
    if (options.empty()) return;
    page += ".br\n" + Troff(word) + ":";
    for (const CLI::Option* const other : options) page += " " + Bold(other->get_name());
    page += "\n";
  };
  others(option.get_needs(), Tr("needs"));
  others(option.get_excludes(), Tr("excludes"));
}

std::string Synopsis(const CLI::App& command, const std::string& words) {
  std::string line = Bold(words) + " [" + Italic(Tr("OPTIONS")) + "]";
  for (const CLI::Option* const argument : ShownArguments(command)) {
    const std::string name = Italic(argument->get_name());
    line += argument->get_required() ? " " + name : " [" + name + "]";
  }
  if (!ShownCommands(command).empty()) line += " [" + Italic(Tr("COMMAND")) + "]";
  return line + "\n";
}

std::string Section(std::string_view title) { return ".SH \"" + Troff(Upper(std::string(title))) + "\"\n"; }
std::string Subsection(std::string_view title) { return ".SS \"" + Troff(title) + "\"\n"; }

void Body(const CLI::App& command, std::string (*section)(std::string_view title), std::string& page) {
  const auto list = [&](const char* title, const std::vector<const CLI::Option*>& options) {
    if (options.empty()) return;
    page += section(title);
    for (const CLI::Option* const option : options) Describe(*option, page);
  };
  list(Tr("Arguments"), ShownArguments(command));
  list(Tr("Options"), ShownOptions(command));
  page += section(Tr("Notes"));
  const std::string footer = command.get_footer();
  std::string_view rest = footer;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    page += line.empty() ? ".PP\n" : Troff(line) + "\n";
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
}

// "ixocut gas calibrate", as a part of the page of "ixocut gas".
void Part(const CLI::App& command, const std::string& words, std::string& page) {
  page += ".SH \"" + Troff(words) + "\"\n" + Troff(command.get_description()) + "\n.PP\n" + Synopsis(command, words);
  Body(command, Subsection, page);
  for (const CLI::App* const sub : ShownCommands(command)) Part(*sub, words + " " + sub->get_name(), page);
}

// The command's own page; the commands below it are parts of the page where `parts`, else pages of their own.
TManPage Page(const CLI::App& command, const std::string& words, const std::string& version, bool parts) {
  std::string name = words;
  std::ranges::replace(name, ' ', '-');
  std::string text = ".\\\" " + name + ": made by the program itself\n.TH \"" + Upper(name) + "\" \"1\" \"\" \"" +
                     version + "\" \"\"\n.nh\n.ad l\n" + Section(Tr("Name")) + name + " \\- " +
                     Troff(command.get_description()) + "\n" + Section(Tr("Usage")) + Synopsis(command, words);
  if (const auto commands = ShownCommands(command); !commands.empty()) {
    text += Section(Tr("Commands"));
    for (const CLI::App* const sub : commands)
      text += ".TP\n" + Bold(parts ? sub->get_name() : name + "-" + sub->get_name() + "(1)") + "\n" +
              Troff(sub->get_description()) + "\n";
  }
  Body(command, Section, text);
  if (parts)
    for (const CLI::App* const sub : ShownCommands(command)) Part(*sub, words + " " + sub->get_name(), text);
  return {name + ".1", std::move(text)};
}

}  // namespace

std::vector<TManPage> ManPages(const CLI::App& program, const std::string& version) {
  std::vector<TManPage> pages{Page(program, program.get_name(), version, false)};
  for (const CLI::App* const command : ShownCommands(program))
    pages.push_back(Page(*command, program.get_name() + " " + command->get_name(), version, true));
  return pages;
}

}  // namespace ixocut
