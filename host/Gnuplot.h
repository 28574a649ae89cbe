// Pictures drawn by the program gnuplot. Failures are THostError.
#pragma once

#include <string>
#include <string_view>

namespace ixocamglue {

// A text within gnuplot's single quotes, the quotes included.
[[nodiscard]] std::string GnuplotText(std::string_view text);

// Runs a script that sets its own terminal and writes the file 'out'; what it has written.
[[nodiscard]] std::string DrawWithGnuplot(std::string_view script);

}  // namespace ixocamglue
