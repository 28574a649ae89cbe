// Writes an XML tree so that whatever was not changed since it was parsed stands as it stood in the file: white space
// and line breaks between attributes, quotation marks, entities. For the sources of platform/ only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace pugi {
class xml_document;
}

namespace ixocamglue {

// A start tag as it stands in the file.
struct TStartTag {
  struct TAttribute {
    std::string_view Before;  // blanks
    std::string_view Name;
    std::string_view Opening;  // from behind the name to the opening quotation mark
    std::string_view Value;
    std::string_view Quote;
  };
  std::vector<TAttribute> Attributes;
  std::string_view End;  // blanks before the closing mark
  bool ClosesAtOnce = true;
};
// Of the element or declaration whose name is at `offset`; empty below 0.
[[nodiscard]] TStartTag StartTagAt(std::string_view text, std::ptrdiff_t offset);

// `original` is the text that the document was parsed from, or empty.
[[nodiscard]] std::string WriteXml(const pugi::xml_document& document, std::string_view original);

}  // namespace ixocamglue
