// What the error lines of the log mean, for the operator: the log's own words are fixed, and name what is inside.
// Any thread.
#pragma once

#include <string>

namespace ixocontroller {

// `line` in the operator's language where it is one of the fixed ones; else as it is.
[[nodiscard]] std::string ErrorSentence(const std::string& line);

}  // namespace ixocontroller
