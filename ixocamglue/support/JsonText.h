// What people are told of a text that is no JSON document: the parser's own words are English and name its insides.
// Any thread.
#pragma once

#include <string_view>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// Of a text that the parser has refused: What says so in the operator's language, Where is "line:column", both from 1;
// a byte order mark counts for nothing.
[[nodiscard]] TProblem JsonProblem(std::string_view text);

}  // namespace ixocamglue
