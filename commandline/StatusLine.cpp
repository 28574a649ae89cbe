#include "commandline/StatusLine.h"

#include <iostream>
#include <unistd.h>

namespace ixocommandline {

bool IsTerminal(const std::ostream& out) { return &out == &std::cout && isatty(STDOUT_FILENO) == 1; }

void TStatusLine::Draw(std::string_view text) {
  Clear();
  FOut << text;
  if (!FTerminal) FOut << '\n';
  FOut << std::flush;
  FDrawn = FTerminal;
}

void TStatusLine::Clear() {
  if (FDrawn) FOut << "\r\033[K";
  FDrawn = false;
}

}  // namespace ixocommandline
