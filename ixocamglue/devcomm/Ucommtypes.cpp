#include "ixocamglue/devcomm/Ucommtypes.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utf8.h>

namespace ixocamglue {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

void SetUtf16(TUtf16Field& field, std::string_view text) {
  std::u16string units = utf8::utf8to16(utf8::replace_invalid(text));
  units.resize(std::size(field) - 1);
  if (utf8::internal::is_lead_surrogate(units.back())) units.back() = 0;
  units.copy(field, units.size());
  field[units.size()] = 0;
}

std::string GetUtf16(const TUtf16Field& field) {
  std::string out;
  try {
    utf8::utf16to8(field, std::find(field, std::end(field), u'\0'), std::back_inserter(out));
  } catch (const utf8::exception&) {
    out += "\xEF\xBF\xBD";
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
