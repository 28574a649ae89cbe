#include <algorithm>
#include <string_view>

#include "commandline/Help.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocommandline {
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

std::string ValueShown(TOption option) {
  std::string shown = Italic(option.ValueType());
  const std::string choices = Joined(option.Choices(), Bold, "|\\:");
  if (!choices.empty()) AddToList(shown, choices, ": ");
  if (!option.Default().empty()) shown += " (" + Troff(option.Default()) + ")";
  return shown;
}

void Describe(TOption option, std::string& page) {
  std::string names;
  for (const std::string& name : option.Names()) AddToList(names, (option.IsArgument() ? Italic(name) : Bold(name)));
  const std::string value = ValueShown(option);
  page += ".TP\n" + names + (value.empty() ? "" : " " + value);
  if (option.IsRequired()) page += std::string(" ") + Troff(Tr("(required)"));
  page += "\n" + Troff(option.About()) + "\n";
  const auto others = [&](const std::vector<TOption>& options, const char* word) {
    if (options.empty()) return;
    page += ".br\n" + Troff(word) + ":";
    for (const TOption other : options) page += " " + Bold(other.Name());
    page += "\n";
  };
  others(option.Needed(), Tr("needs"));
  others(option.Excluded(), Tr("excludes"));
}

std::string Synopsis(TCommand command, const std::string& words) {
  std::string line = Bold(words) + " [" + Italic(Tr("OPTIONS")) + "]";
  for (const TOption argument : command.Arguments()) {
    const std::string name = Italic(argument.Name());
    line += argument.IsRequired() ? " " + name : " [" + name + "]";
  }
  if (!command.Commands().empty()) line += " [" + Italic(Tr("COMMAND")) + "]";
  return line + "\n";
}

std::string Section(std::string_view title) { return ".SH \"" + Troff(Capitals(title)) + "\"\n"; }
std::string Subsection(std::string_view title) { return ".SS \"" + Troff(title) + "\"\n"; }

void Body(TCommand command, std::string (*section)(std::string_view title), std::string& page) {
  const auto list = [&](const char* title, const std::vector<TOption>& options) {
    if (options.empty()) return;
    page += section(title);
    for (const TOption option : options) Describe(option, page);
  };
  list(Tr("Arguments"), command.Arguments());
  list(Tr("Options"), command.Options());
  page += section(Tr("Notes"));
  const std::string footer = command.Footer();
  std::string_view rest = footer;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    page += line.empty() ? ".PP\n" : Troff(line) + "\n";
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
}

// "ixocut gas calibrate", as a part of the page of "ixocut gas".
void Part(TCommand command, const std::string& words, std::string& page) {
  page += ".SH \"" + Troff(words) + "\"\n" + Troff(command.About()) + "\n.PP\n" + Synopsis(command, words);
  Body(command, Subsection, page);
  for (const TCommand sub : command.Commands()) Part(sub, words + " " + sub.Name(), page);
}

// The command's own page; the commands below it are parts of the page where `parts`, else pages of their own.
TManPage Page(TCommand command, const std::string& words, const std::string& version, bool parts) {
  std::string name = words;
  std::ranges::replace(name, ' ', '-');
  std::string about = command.About();
  for (const char* const colon : {": ", "："})
    if (about.starts_with(words + colon)) about.erase(0, (words + colon).size());  // the page says its name itself
  std::string text = ".\\\" " + name + ": made by the program itself\n.TH \"" + Capitals(name) + "\" \"1\" \"\" \"" +
                     version + "\" \"\"\n.nh\n.ad l\n" + Section(Tr("Name")) + name + " \\- " + Troff(about) + "\n" +
                     Section(Tr("Usage")) + Synopsis(command, words);
  if (const auto commands = command.Commands(); !commands.empty()) {
    text += Section(Tr("Commands"));
    for (const TCommand sub : commands)
      text += ".TP\n" + Bold(parts ? sub.Name() : name + "-" + sub.Name() + "(1)") + "\n" + Troff(sub.About()) + "\n";
  }
  Body(command, Section, text);
  if (parts)
    for (const TCommand sub : command.Commands()) Part(sub, words + " " + sub.Name(), text);
  return {name + ".1", std::move(text)};
}

}  // namespace

std::vector<TManPage> ManPages(TCommand program, const std::string& version) {
  std::vector<TManPage> pages{Page(program, program.Name(), version, false)};
  for (const TCommand command : program.Commands())
    pages.push_back(Page(command, program.Name() + " " + command.Name(), version, true));
  return pages;
}

}  // namespace ixocommandline
