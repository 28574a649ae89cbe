#include "monitor/Umonitornumbers.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace ixocamglue {
namespace {

constexpr std::uint32_t kHundredMillion = 100'000'000;

// A number below 10^8 without leading zeros; writes eight characters and keeps the last ones.
char* PutShort(char* out, std::uint32_t number) {
  const std::uint64_t values = digits::Spell(number);
  // The last digit stays, also of 0.
  const int leading = std::countr_zero(values | (std::uint64_t{1} << 56)) / 8;
  digits::Store(out, (values | digits::kZeros) >> (8 * leading));
  return out + 8 - leading;
}

char* PutEight(char* out, std::uint32_t number) {
  digits::Store(out, digits::Spell(number) | digits::kZeros);
  return out + 8;
}

char* PutUnsigned(char* out, std::uint64_t number) {
  if (number < kHundredMillion) return PutShort(out, static_cast<std::uint32_t>(number));
  out = PutUnsigned(out, number / kHundredMillion);
  return PutEight(out, static_cast<std::uint32_t>(number % kHundredMillion));
}

char* PutText(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

// The parts of a single: its value is Mantissa * 2^Exponent.
struct TParts {
  std::uint32_t Mantissa = 0;  // below 2^24
  int Exponent = 0;            // -149 to 104, 105 for what is no number
};

TParts Split(std::uint32_t bits) {
  const std::uint32_t fraction = bits & 0x7FFFFF;
  const int exponent = static_cast<int>((bits >> 23) & 0xFF);
  return exponent == 0 ? TParts{fraction, -149} : TParts{fraction | 0x800000, exponent - 150};
}

char* PutLarge(char* out, float magnitude, TParts parts) {
  if (parts.Exponent == 105) return PutText(out, "inf");
  if (parts.Exponent <= 40)
    return PutText(PutUnsigned(out, std::uint64_t{parts.Mantissa} << parts.Exponent), ".00000000");
  return std::to_chars(out, out + kLongestFloat, static_cast<double>(magnitude), std::chars_format::fixed, 8).ptr;
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

char* PutInt(char* out, std::int32_t value) {
  const auto bits = static_cast<std::uint32_t>(value);
  *out = '-';
  out += bits >> 31;
  return PutUnsigned(out, value < 0 ? 0 - bits : bits);
}

char* PutFloat(char* out, float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  if (value != value) return PutText(out, "nan");
  *out = '-';
  out += bits >> 31;
  const TParts parts = Split(bits);
  if (parts.Exponent >= 0) [[unlikely]]
    return PutLarge(out, std::fabs(value), parts);

  // Hundred-millionths, exact before the shift: below 2^51. What is shifted out decides the rounding.
  const std::uint64_t exact = std::uint64_t{parts.Mantissa} * kHundredMillion;
  std::uint64_t rounded = 0;
  if (const int shift = -parts.Exponent; shift < 64) {
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    const std::uint64_t rest = exact & (half * 2 - 1);
    rounded = exact >> shift;
    rounded += static_cast<std::uint64_t>(rest > half) | (static_cast<std::uint64_t>(rest == half) & rounded & 1);
  }
  out = PutShort(out, static_cast<std::uint32_t>(rounded / kHundredMillion));
  *out++ = '.';
  return PutEight(out, static_cast<std::uint32_t>(rounded % kHundredMillion));
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
