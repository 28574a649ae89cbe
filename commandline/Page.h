// A document in Markdown, made of headings, sentences and tables. Values; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ixocommandline {

class TPage {
 public:
  // `first` is the first line, by which one is known among other files.
  TPage(std::string_view first, std::string_view title);

  void Heading(std::string_view text);
  void Say(std::string_view text);
  // A table, whose rows have as many cells; none for no rows. What is no text of ours has been passed through Code.
  void Table(const std::vector<std::string>& head, const std::vector<std::vector<std::string>>& rows);

  [[nodiscard]] const std::string& Text() const { return FText; }

 private:
  std::string FText;
};

// A name or a value as it stands in a file or on a command line; empty for an empty one.
[[nodiscard]] std::string Code(std::string_view text);

}  // namespace ixocommandline
