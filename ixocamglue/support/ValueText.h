// Values as a configuration file spells them. No locale; a text is a value only as a whole. Any thread. What is no
// value is none; nothing throws.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace ixocamglue {

[[nodiscard]] constexpr char FoldAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// ASCII letters without regard to case.
[[nodiscard]] constexpr bool SameFolded(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
  return true;
}

// ASCII letters as capitals.
[[nodiscard]] inline std::string Capitals(std::string_view text) {
  std::string capitals(text);
  for (char& c : capitals)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return capitals;
}

// Without XML white space at both ends.
[[nodiscard]] constexpr std::string_view TrimXml(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

// The mark in front of a text in UTF-8, which says nothing.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
[[nodiscard]] constexpr std::string_view WithoutMark(std::string_view text) {
  return text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text;
}

// Nothing but U+0000 to U+0020, which in UTF-8 are single bytes and part of no other character.
[[nodiscard]] constexpr bool IsBlank(std::string_view text) {
  for (const char c : text)
    if (static_cast<unsigned char>(c) > 0x20) return false;
  return true;
}

// Whether a number that its type cannot hold is too small for it rather than too large. `text` is a number.
[[nodiscard]] constexpr bool IsTooSmall(std::string_view text) {
  constexpr std::int64_t kFar = 1'000'000'000'000;
  std::int64_t exponent = 0;
  if (const auto mark = text.find_first_of("eE"); mark != std::string_view::npos) {
    const bool negative = text.substr(mark + 1).starts_with('-');
    for (const char c : text.substr(mark + 1))
      if (c >= '0' && c <= '9' && exponent < kFar) exponent = exponent * 10 + (c - '0');
    if (negative) exponent = -exponent;
    text = text.substr(0, mark);
  }
  const auto first = text.find_first_of("123456789");
  if (first == std::string_view::npos) return true;
  const auto point = text.find('.');
  const auto whole = static_cast<std::int64_t>(point == std::string_view::npos ? text.size() : point);
  return exponent + whole - static_cast<std::int64_t>(first) < 0;
}

// The whole text, without blanks or a "+". A number that is too small for the type is 0. None: no number, too large for
// the type, or not finite.
template <class Number>
[[nodiscard]] std::optional<Number> ParseExactly(std::string_view text, int base = 10) {
  Number value{};
  std::from_chars_result result{};
  if constexpr (std::is_floating_point_v<Number>)
    result = std::from_chars(text.data(), text.data() + text.size(), value);
  else
    result = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (result.ptr != text.data() + text.size()) return std::nullopt;
  if constexpr (std::is_floating_point_v<Number>) {
    if (result.ec == std::errc::result_out_of_range && IsTooSmall(text)) return Number{0};
    if (!std::isfinite(value)) return std::nullopt;  // "inf", "nan"
  }
  if (result.ec != std::errc{}) return std::nullopt;
  return value;
}

// As ParseExactly; a text that starts with "0x" is hexadecimal.
template <class Number>
[[nodiscard]] std::optional<Number> ParseHexOrDecimal(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  return ParseExactly<Number>(text.substr(hex ? 2 : 0), hex ? 16 : 10);
}

// As ParseExactly, of the trimmed text with at most one leading "+".
template <class Number>
[[nodiscard]] std::optional<Number> ParseNumber(std::string_view text) {
  text = TrimXml(text);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  return ParseExactly<Number>(text);
}

// "true" and "false" in any case, or an integer.
[[nodiscard]] inline std::optional<bool> ParseBool(std::string_view text) {
  text = TrimXml(text);
  if (SameFolded(text, "true")) return true;
  if (SameFolded(text, "false")) return false;
  if (const auto number = ParseNumber<std::int32_t>(text)) return *number != 0;
  return std::nullopt;
}

template <class Value>
[[nodiscard]] std::optional<Value> ParseValue(std::string_view text) {
  if constexpr (std::is_same_v<Value, bool>)
    return ParseBool(text);
  else if constexpr (std::is_same_v<Value, std::string>)
    return std::string(text);
  else
    return ParseNumber<Value>(text);
}

// The shortest text that reads back the same value.
template <class Value>
[[nodiscard]] std::string ValueText(const Value& value) {
  if constexpr (std::is_same_v<Value, bool>) {
    return value ? "True" : "False";
  } else if constexpr (std::is_same_v<Value, std::string>) {
    return value;
  } else {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return {buffer, result.ptr};
  }
}

// Empty when `text` is a whole number from `lowest` to `highest`, else what is wrong with it. `unit` may be "".
[[nodiscard]] std::string CheckNumber(const std::string& text, std::uint64_t lowest, std::uint64_t highest,
                                      const char* unit);

}  // namespace ixocamglue
