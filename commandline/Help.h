// The manual pages and the completion of shells, in the language of the help pages and made of the same: what the
// commands have told the parser of the command line. Main thread. Nothing here fails.
#pragma once

#include <string>
#include <vector>

#include "commandline/CommandLine.h"

namespace ixocommandline {

struct TManPage {
  std::string File;  // "ixocut-gas.1"
  std::string Text;  // troff, UTF-8
};

// The program's own page, then one for each command, its sub-commands included.
[[nodiscard]] std::vector<TManPage> ManPages(TCommand program, const std::string& version);

[[nodiscard]] std::string BashCompletion(TCommand program);
[[nodiscard]] std::string ZshCompletion(TCommand program);

}  // namespace ixocommandline
