#include "ixocamglue/monitor/Umonitornumbers.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace ixocamglue {
namespace {

char* PutUnsigned(char* out, std::uint64_t number) {
  if (number < digits::kHundredMillion) return digits::PutShort(out, static_cast<std::uint32_t>(number));
  out = PutUnsigned(out, number / digits::kHundredMillion);
  return digits::PutEight(out, static_cast<std::uint32_t>(number % digits::kHundredMillion));
}

char* PutText(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view field) {
  while (!field.empty() && IsBlank(field.front())) field.remove_prefix(1);
  while (!field.empty() && IsBlank(field.back())) field.remove_suffix(1);
  return field;
}

// Takes a sign away; true for "-".
bool TakeSign(std::string_view& field) {
  if (field.empty() || (field.front() != '-' && field.front() != '+')) return false;
  const bool minus = field.front() == '-';
  field.remove_prefix(1);
  return minus;
}

bool SameWord(std::string_view field, std::string_view lower) {
  if (field.size() != lower.size()) return false;
  for (std::size_t i = 0; i < lower.size(); ++i)
    if ((field[i] | 0x20) != lower[i]) return false;
  return true;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

char* digits::PutLarge(char* out, float magnitude) {
  if (std::isnan(magnitude)) return PutText(out, "nan");
  if (std::isinf(magnitude)) return PutText(out, "inf");
  if (magnitude < 0x1p64F) return PutText(PutUnsigned(out, static_cast<std::uint64_t>(magnitude)), ".00000000");
  return std::to_chars(out, out + kLongestFloat, static_cast<double>(magnitude), std::chars_format::fixed, 8).ptr;
}

std::optional<std::uint32_t> ParseInt(std::string_view field) {
  field = Trim(field);
  const bool minus = TakeSign(field);
  int base = 10;
  if (field.starts_with('$')) {
    base = 16;
    field.remove_prefix(1);
  } else if (field.starts_with("0x") || field.starts_with("0X")) {
    base = 16;
    field.remove_prefix(2);
  }
  std::uint64_t number = 0;
  const char* const end = field.data() + field.size();
  const auto parsed = std::from_chars(field.data(), end, number, base);
  if (field.empty() || parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  if (number > (minus ? std::uint64_t{1} << 31 : std::uint64_t{std::numeric_limits<std::uint32_t>::max()}))
    return std::nullopt;
  return static_cast<std::uint32_t>(minus ? 0 - number : number);
}

std::optional<float> ParseFloat(std::string_view field) {
  field = Trim(field);
  const bool minus = TakeSign(field);
  float value = 0.0F;
  if (SameWord(field, "nan")) {
    value = std::numeric_limits<float>::quiet_NaN();
  } else if (SameWord(field, "inf") || SameWord(field, "infinity")) {
    value = std::numeric_limits<float>::infinity();
  } else {
    // A second sign and the words with an addition, which from_chars takes, start with neither.
    if (field.empty() || !(IsDigit(field.front()) || field.front() == '.')) return std::nullopt;
    const char* const end = field.data() + field.size();
    const auto parsed = std::from_chars(field.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  }
  return minus ? -value : value;
}

}  // namespace ixocamglue
