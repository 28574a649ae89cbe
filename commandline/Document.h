// The document of --json, in one shape for every command: {"command": "config set", "ok": true, "problem": null,
// "result": ...}. A problem is {"what", "where", "why", "remedy"}; ok says that there is none. Any thread, but for the
// option; one at a time writes to a stream.
#pragma once

#include <iosfwd>
#include <optional>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/support/Problem.h"

namespace ixocommandline {
using namespace ixocamglue;
class TCommand;
class TOption;

// --json. What ends such a command with EProblem before its document is printed is printed as one by the program.
TOption AddJsonOption(TCommand command, bool& json);
// Whether --json stands on the command line.
[[nodiscard]] bool JsonAsked(int argc, const char* const* argv);

// `lines`: the whole document in one line, where a command prints many.
void PrintDocument(std::ostream& out, std::string_view command, const nlohmann::ordered_json& result,
                   const std::optional<TProblem>& problem = {}, bool lines = false);
// Whether the program has printed one.
[[nodiscard]] bool DocumentPrinted();

}  // namespace ixocommandline
