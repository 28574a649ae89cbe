#include "ixocamglue/monitor/Usystemmonitordef.h"

namespace ixocamglue {

void AddString(std::string& line, std::string_view s, bool withSeparator) {
  if (withSeparator) line += SSeparatorChar;
  line += s;
}

}  // namespace ixocamglue
