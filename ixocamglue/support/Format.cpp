#include "ixocamglue/support/Format.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <optional>
#include <string_view>

namespace ixocamglue {
namespace {

// The argument types that a format consumes, one letter group per conversion ("d", "ld", "s", "f", "*" for a width
// argument); nullopt when it is malformed.
std::optional<std::string> Signature(std::string_view format) {
  std::string signature;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    if (++i < format.size() && format[i] == '%') continue;
    const auto skip = [&](std::string_view set) {
      while (i < format.size() && set.find(format[i]) != std::string_view::npos) {
        if (format[i] == '*') signature += "*;";
        ++i;
      }
    };
    skip("-+ #0");
    skip("0123456789*");
    if (i < format.size() && format[i] == '.') {
      ++i;
      skip("0123456789*");
    }
    const std::size_t length = i;
    skip("hlLqjzt");
    if (i >= format.size() || std::string_view("diouxXeEfFgGaAcsp").find(format[i]) == std::string_view::npos)
      return std::nullopt;
    signature.append(format.substr(length, i - length));
    const char c = format[i];
    signature += std::string_view("eEfFgGaA").find(c) != std::string_view::npos ? 'f'
                 : std::string_view("ouxX").find(c) != std::string_view::npos   ? 'u'
                 : c == 'i'                                                     ? 'd'
                                                                                : c;
    signature += ';';
  }
  return signature;
}

// While it lives the calling thread formats as in the "C" locale, whatever locale the application around the library
// has chosen: a number in a log line or a file has a point.
class TPlainNumbers {
 public:
  TPlainNumbers() : FBefore(::uselocale(Plain())) {}
  ~TPlainNumbers() { ::uselocale(FBefore); }
  TPlainNumbers(const TPlainNumbers&) = delete;
  TPlainNumbers& operator=(const TPlainNumbers&) = delete;

 private:
  static locale_t Plain() {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
  }
  const locale_t FBefore;
};

}  // namespace

void FormatTo(std::string& out, const char* format, std::va_list args) {
  const TPlainNumbers plain;
  std::va_list again;
  va_copy(again, args);
  out.resize(std::max<std::size_t>(out.capacity(), 64));
  const int length = std::vsnprintf(out.data(), out.size() + 1, format, args);
  if (length < 0) {
    out = format;
  } else if (static_cast<std::size_t>(length) > out.size()) {
    out.resize(static_cast<std::size_t>(length));
    std::vsnprintf(out.data(), out.size() + 1, format, again);
  } else {
    out.resize(static_cast<std::size_t>(length));
  }
  va_end(again);
}

std::string Format(const char* format, ...) {
  std::string out;
  std::va_list args;
  va_start(args, format);
  FormatTo(out, format, args);
  va_end(args);
  return out;
}

bool SameConversions(const char* a, const char* b) {
  const auto left = Signature(a);
  const auto right = Signature(b);
  return left && right && *left == *right;
}

}  // namespace ixocamglue
