#include "commandline/Page.h"

namespace ixocommandline {
namespace {

// One line, in which nothing ends a cell or begins an element.
std::string Cell(std::string_view text) {
  std::string cell;
  bool code = false;
  for (const char c : text) {
    if (c == '`') code = !code;
    if (c == '\n')
      cell += ' ';
    else if (c == '|')
      cell += "\\|";
    else if (c == '<' && !code)
      cell += "&lt;";
    else
      cell += c;
  }
  return cell;
}

std::string Row(const std::vector<std::string>& cells) {
  std::string row = "|";
  for (const std::string& cell : cells) row += " " + Cell(cell) + " |";
  return row + "\n";
}

}  // namespace

std::string Code(std::string_view text) { return text.empty() ? std::string() : "`" + std::string(text) + "`"; }

TPage::TPage(std::string_view first, std::string_view title)
    : FText(std::string(first) + "\n# " + std::string(title) + "\n") {}

void TPage::Heading(std::string_view text) { FText += "\n## " + std::string(text) + "\n"; }

void TPage::Say(std::string_view text) { FText += "\n" + std::string(text) + "\n"; }

void TPage::Table(const std::vector<std::string>& head, const std::vector<std::vector<std::string>>& rows) {
  if (rows.empty()) return;
  FText += "\n" + Row(head) + "|";
  for (std::size_t i = 0; i < head.size(); ++i) FText += "---|";
  FText += "\n";
  for (const auto& row : rows) FText += Row(row);
}

}  // namespace ixocommandline
