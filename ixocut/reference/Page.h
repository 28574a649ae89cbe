// A page of the reference: a document in Markdown, made of headings, sentences and tables. Values; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ixocut {

class TPage {
 public:
  // The first line says what made the page, so that nothing else is overwritten.
  explicit TPage(std::string_view title);
  [[nodiscard]] static bool IsOne(std::string_view head);

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

}  // namespace ixocut
