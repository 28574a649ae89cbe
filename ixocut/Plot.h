// Pictures, drawn by gnuplot. Any thread. Failures are EProblem.
#pragma once

#include <string>
#include <string_view>

namespace ixocut {

// Before anything runs: refuses a name that is no SVG's, a file that CheckOutputFile refuses unless it is a picture,
// and any while gnuplot is not there; `option` is what named it.
void CheckPlotFile(const char* option, const std::string& target);

// What a script for DrawPlot starts with; the size in pixels.
[[nodiscard]] std::string PlotStart(int width, int height);
// A text within gnuplot's single quotes.
[[nodiscard]] std::string PlotText(std::string_view text);

// Runs the script and puts its picture, whole or not at all, where `target` says.
void DrawPlot(const std::string& script, const std::string& target);

}  // namespace ixocut
