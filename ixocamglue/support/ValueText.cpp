#include "ixocamglue/support/ValueText.h"

#include <algorithm>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

std::string CheckNumber(const std::string& text, std::uint64_t lowest, std::uint64_t highest, const char* unit) {
  const auto range = [&] {
    return Format("%llu..%llu%s%s", static_cast<unsigned long long>(lowest), static_cast<unsigned long long>(highest),
                  *unit ? " " : "", unit);
  };
  const bool negative = text.starts_with('-');
  const std::string_view digits = std::string_view(text).substr(negative ? 1 : 0);
  const bool whole = !digits.empty() && std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
  if (!whole) return Format(Tr("\"%s\" is not a whole number (%s)"), text.c_str(), range().c_str());
  const auto number = ParseExactly<std::uint64_t>(digits);
  if (negative || !number || *number < lowest || *number > highest)
    return Format(Tr("%s is not in %s"), text.c_str(), range().c_str());
  return {};
}

}  // namespace ixocamglue
