#include "ixocamglue/devcomm/Ucommtypes.h"

#include <iterator>
#include <stdexcept>
#include <type_traits>

namespace ixocamglue {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// The next code point of UTF-8 text; a byte that is none becomes the replacement character.
char32_t NextCodePoint(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t first = byte(at++);
  if (first < 0x80) return first;
  const unsigned more = first >= 0xF0 && first < 0xF5   ? 3
                        : first >= 0xE0 && first < 0xF0 ? 2
                        : first >= 0xC2 && first < 0xE0 ? 1
                                                        : 0;
  if (more == 0 || at + more > text.size()) return kReplacement;
  char32_t code = first & (0x3Fu >> more);
  for (unsigned i = 0; i < more; ++i) {
    if ((byte(at + i) & 0xC0u) != 0x80u) return kReplacement;
    code = code << 6 | (byte(at + i) & 0x3Fu);
  }
  constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  if (code < kLeast[more] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return kReplacement;
  at += more;
  return code;
}

void AppendUtf8(std::string& out, char32_t code) {
  const auto tail = [&](unsigned shift) { out += static_cast<char>(0x80u | (code >> shift & 0x3Fu)); };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0u | code >> 6);
    tail(0);
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0u | code >> 12);
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0u | code >> 18);
    tail(12);
    tail(6);
    tail(0);
  }
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

void SetUtf16(TUtf16Field& field, std::string_view utf8) {
  constexpr std::size_t kMost = std::extent_v<TUtf16Field> - 1;
  std::size_t used = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const char32_t code = NextCodePoint(utf8, at);
    const std::size_t units = code > 0xFFFF ? 2 : 1;
    if (used + units > kMost) break;
    if (units == 2) {
      field[used++] = static_cast<char16_t>(0xD800u + ((code - 0x10000) >> 10));
      field[used++] = static_cast<char16_t>(0xDC00u + (code & 0x3FFu));
    } else {
      field[used++] = static_cast<char16_t>(code);
    }
  }
  for (; used < std::size(field); ++used) field[used] = 0;
}

std::string GetUtf16(const TUtf16Field& field) {
  std::string out;
  for (std::size_t at = 0; at < std::size(field) && field[at] != 0; ++at) {
    char32_t code = field[at];
    const bool pair = code >= 0xD800 && code < 0xDC00 && at + 1 < std::size(field) && field[at + 1] >= 0xDC00 &&
                      field[at + 1] < 0xE000;
    if (pair)
      code = 0x10000 + ((code - 0xD800) << 10) + (field[++at] - 0xDC00u);
    else if (code >= 0xD800 && code < 0xE000)
      code = kReplacement;
    AppendUtf8(out, code);
  }
  return out;
}

void TCommSerial::Initialize() {
  *this = {};
  Port = 1;
  SetUtf16(Settings, "9600,n,8,1");
  BaudRate = 9600;
}

void TCommNet::Initialize() { *this = {}; }

void HexStrToBytes(std::string_view s, TBytes& bytes) {
  if (s.size() < 3) return;
  if (s.front() == '$') s.remove_prefix(1);
  TBytes read;
  read.reserve(s.size() / 2);
  for (std::size_t at = 0; at + 1 < s.size(); at += 2) {
    const int high = HexDigit(s[at]);
    const int low = HexDigit(s[at + 1]);
    if (high < 0 || low < 0)
      throw std::invalid_argument("\"$" + std::string(s.substr(at, 2)) + "\" is not a valid hexadecimal number");
    read.push_back(static_cast<std::uint8_t>(high << 4 | low));
  }
  bytes.insert(bytes.end(), read.begin(), read.end());
}

std::string BytesToHexStr(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out(bytes.size() * 2, '0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out[2 * i] = kDigits[bytes[i] >> 4];
    out[2 * i + 1] = kDigits[bytes[i] & 0xF];
  }
  return out;
}

}  // namespace ixocamglue
