// Writes an XML tree so that whatever was not changed since it was parsed stands as it stood in the file: white space
// and line breaks between attributes, quotation marks, entities. For the sources of platform/ only.
#pragma once

#include <string>
#include <string_view>

namespace pugi {
class xml_document;
}

namespace ixocamglue {

// `original` is the text that the document was parsed from, or empty.
[[nodiscard]] std::string WriteXml(const pugi::xml_document& document, std::string_view original);

}  // namespace ixocamglue
