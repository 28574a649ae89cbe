// `ixocut tree`: the step tree of a procedure, as it is built before it runs.
#pragma once

#include <iosfwd>
#include <string>

namespace ixocamglue {

struct TTreeOptions {
  std::string Name;
  bool Json = false;
  std::string Language = "zh";
};

// Returns the exit code; throws THostError for a name that no procedure has. Touches no device.
[[nodiscard]] int RunTree(const TTreeOptions& options, std::ostream& out);

}  // namespace ixocamglue
