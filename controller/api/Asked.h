// What a request gives beside its body. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "controller/api/Api.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {

// Empty where the query does not have it.
[[nodiscard]] inline std::string QueryOf(const TApiRequest& request, const char* name) {
  const auto found = request.Query.find(name);
  return found == request.Query.end() ? std::string() : found->second;
}

// Throws EProblem (pbRequest) for what is no whole number in the range; `where` names it.
[[nodiscard]] inline std::uint64_t WholeNumber(const std::string& text, const char* where, std::uint64_t least,
                                               std::uint64_t most) {
  const auto number = ParseExactly<std::uint64_t>(text);
  if (!number || *number < least || *number > most)
    throw EProblem(pbRequest,
                   {.What = Format(Tr("\"%s\" is no whole number from %llu to %llu"), text.c_str(),
                                   static_cast<unsigned long long>(least), static_cast<unsigned long long>(most)),
                    .Where = where,
                    .Why = {},
                    .Remedy = {}});
  return *number;
}

}  // namespace ixocontroller
