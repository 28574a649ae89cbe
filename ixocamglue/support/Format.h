// printf-style formatting, checked by the compiler. Formats stay as the log and the operator texts spell them ("%d",
// "%s", "%.2f"). Numbers have a decimal point whatever C locale the process has set. Any thread. Nothing fails but
// memory.
#pragma once

#include <cstdarg>
#include <string>

#define IXO_PRINTF(text, first) __attribute__((format(printf, text, first)))

namespace ixocamglue {

[[nodiscard]] std::string Format(const char* format, ...) IXO_PRINTF(1, 2);

// Formats into `out`, reusing its capacity: no allocation once it is large enough.
void FormatTo(std::string& out, const char* format, std::va_list args) IXO_PRINTF(2, 0);

// True when both formats take the same arguments in the same order; then a translated text may replace the default.
// A text with a malformed conversion, or one that writes ("%n"), matches nothing but itself spelled out.
[[nodiscard]] bool SameConversions(const char* a, const char* b);

}  // namespace ixocamglue
