// `ixocut tree`: the step tree of a procedure, as it is built before it runs.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

namespace ixocut {

struct TTreeOptions {
  std::string Name;
  bool Json = false;
  std::optional<std::filesystem::path> Machine;  // none: the example, which is only read
  std::string Language = "zh";
};

// Returns the exit code; throws EProblem for a name that no procedure has and for a machine
// file that cannot be used. Moves nothing.
[[nodiscard]] int RunTree(const TTreeOptions& options, std::ostream& out);

}  // namespace ixocut
