// Problems and JSON. Any thread.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// What people are told of a text that the parser has refused, whose own words are English and name its insides: What
// says so in the operator's language, Where is "line:column", both from 1; a byte order mark counts for nothing.
[[nodiscard]] TProblem JsonProblem(std::string_view text);
// The document, or why there is none, told of `where` with line and column.
[[nodiscard]] TResult<nlohmann::ordered_json> ParseJson(std::string_view text, const std::string& where);

// {"what","where","why","remedy"}
[[nodiscard]] nlohmann::ordered_json ProblemJson(const TProblem& problem);
// The same backwards; what is no text there is empty.
[[nodiscard]] TProblem ProblemFromJson(const nlohmann::ordered_json& json);
// The text that a member holds; empty: there is none.
[[nodiscard]] std::string TextMember(const nlohmann::ordered_json& json, const char* name);

}  // namespace ixocamglue
