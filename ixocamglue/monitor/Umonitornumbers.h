// How a monitor file spells numbers. No locale, no stream: the same text on every machine. Any thread.
//
// Integers are signed decimal ("%d"). Floats are the single widened to double with eight decimals ("%.8f": exact, ties
// to even), "nan", "inf" or "-inf"; -0 keeps its sign. Nothing fails: any number has a spelling. They are in whatever
// unit the signal has.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace ixocamglue {

inline constexpr std::size_t kLongestInt = 11;    // characters that PutInt writes at most
inline constexpr std::size_t kLongestFloat = 49;  // characters that PutFloat writes at most
// Both may touch that many characters behind what they write.
inline constexpr std::size_t kPutSlack = 8;

// Write at `out` and return the end of what was written.
inline char* PutInt(char* out, std::int32_t value);
inline char* PutFloat(char* out, float value);

// A field as a whole: blanks or tabs around it, a sign, decimal or "$" or "0x" hexadecimal digits, from -2^31 to
// 2^32-1, taken modulo 2^32. Nothing else is a number.
[[nodiscard]] std::optional<std::uint32_t> ParseInt(std::string_view field);
// A field as a whole: blanks or tabs around it, a sign, decimal digits with an optional point and exponent, or "nan",
// "inf" or "infinity" in any case. A value beyond a single's range is no number, and neither is a hexadecimal one.
[[nodiscard]] std::optional<float> ParseFloat(std::string_view field);

// What the two hot loops share: eight decimal digits at once, as a little-endian word of their characters.
namespace digits {

inline constexpr std::uint64_t kZeros = 0x3030303030303030;

[[nodiscard]] inline std::uint64_t Load(const char* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof(word));
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  return word;
}
inline void Store(char* p, std::uint64_t word) {
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  std::memcpy(p, &word, sizeof(word));
}

// The top bit of each byte that is no digit value; exact up to the first such byte. `values` is characters ^ kZeros.
[[nodiscard]] inline std::uint64_t NoDigits(std::uint64_t values) {
  return ((values + 0x7676767676767676) | values) & 0x8080808080808080;
}
// The number that eight digit values spell, the first in the lowest byte.
[[nodiscard]] inline std::uint64_t Value(std::uint64_t values) {
  values = values * 10 + (values >> 8);
  return (((values & 0x000000FF000000FF) * 0x000F424000000064) +
          (((values >> 16) & 0x000000FF000000FF) * 0x0000271000000001)) >>
         32;
}
// The eight digit values of a number below 10^8.
[[nodiscard]] inline std::uint64_t Spell(std::uint32_t number) {
  const std::uint64_t halves = (number / 10000) | (std::uint64_t{number % 10000} << 32);
  const std::uint64_t hundreds = ((halves * 10486) >> 20) & 0x0000007F0000007F;
  const std::uint64_t pairs = hundreds | ((halves - 100 * hundreds) << 16);
  const std::uint64_t tens = ((pairs * 103) >> 10) & 0x000F000F000F000F;
  return tens | ((pairs - 10 * tens) << 8);
}

inline constexpr std::uint32_t kHundredMillion = 100'000'000;

inline char* PutEight(char* out, std::uint32_t number) {
  Store(out, Spell(number) | kZeros);
  return out + 8;
}
// A number below 10^8 without leading zeros; writes eight characters and keeps the last ones.
inline char* PutShort(char* out, std::uint32_t number) {
  const std::uint64_t values = Spell(number);
  // The last digit stays, also of 0.
  const int leading = std::countr_zero(values | (std::uint64_t{1} << 56)) / 8;
  Store(out, (values | kZeros) >> (8 * leading));
  return out + 8 - leading;
}
// A magnitude from 2^23 on, and what is no number.
char* PutLarge(char* out, float magnitude);

}  // namespace digits

inline char* PutInt(char* out, std::int32_t value) {
  const auto bits = static_cast<std::uint32_t>(value);
  *out = '-';
  out += bits >> 31;
  const std::uint32_t number = value < 0 ? 0 - bits : bits;
  if (number < digits::kHundredMillion) return digits::PutShort(out, number);
  const std::uint32_t high = number / digits::kHundredMillion;  // 1 to 42
  *out = static_cast<char>('0' + high / 10);
  out += high >= 10;
  *out++ = static_cast<char>('0' + high % 10);
  return digits::PutEight(out, number % digits::kHundredMillion);
}

inline char* PutFloat(char* out, float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  *out = '-';
  out += bits >> 31;
  // The value is mantissa * 2^-shift, subnormal numbers included.
  const std::uint32_t exponent = (bits >> 23) & 0xFF;
  const int shift = 150 - static_cast<int>(exponent | static_cast<std::uint32_t>(exponent == 0));
  if (shift <= 0) [[unlikely]]
    return value != value ? digits::PutLarge(out - (bits >> 31), value)
                          : digits::PutLarge(out, value < 0 ? -value : value);
  const std::uint64_t mantissa = (bits & 0x7FFFFF) | (static_cast<std::uint32_t>(exponent != 0) << 23);

  // Hundred-millionths, exact before the shift: below 2^51. What is shifted out decides the rounding, ties to even.
  const std::uint64_t exact = mantissa * digits::kHundredMillion;
  std::uint64_t rounded = 0;
  if (shift < 64) [[likely]]
    rounded = (exact + (std::uint64_t{1} << (shift - 1)) - 1 + ((exact >> shift) & 1)) >> shift;
  out = digits::PutShort(out, static_cast<std::uint32_t>(rounded / digits::kHundredMillion));
  *out++ = '.';
  return digits::PutEight(out, static_cast<std::uint32_t>(rounded % digits::kHundredMillion));
}

}  // namespace ixocamglue
