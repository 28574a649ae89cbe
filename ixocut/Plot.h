// Pictures, drawn by gnuplot. Any thread. Failures are EProblem.
#pragma once

#include <cmath>
#include <string>
#include <string_view>

#include "ixocamglue/support/Format.h"

namespace ixocut {
using namespace ixocamglue;

// Before anything runs: refuses a name that is no SVG's, a file that CheckOutputFile refuses unless it is a picture,
// and any while gnuplot is not there; `option` is what named it.
void CheckPlotFile(const char* option, const std::string& target);

// A text within gnuplot's single quotes.
[[nodiscard]] std::string PlotText(std::string_view text);

// Blocks of data, known by their names in a script.
class TPlotData {
 public:
  // Returns the name: "$d0" and so on, or the one that is given.
  std::string Add(const std::string& lines, std::string name = {});
  [[nodiscard]] const std::string& Text() const { return FText; }
  // A line for each dot with numbers X and Y; a break where Y is none.
  template <class TDots>
  [[nodiscard]] static std::string Lines(const TDots& dots, int digits) {
    std::string lines;
    for (const auto& dot : dots)
      lines += std::isfinite(dot.Y) ? Format("%.*g %.*g\n", digits, dot.X, digits, dot.Y) : "\n";
    return lines;
  }

 private:
  std::string FText;
  int FNumber = 0;
};

// "plot A, B" and a line end; an empty picture for nothing.
class TPlotList {
 public:
  void Add(const std::string& plot) { FText += (FText.empty() ? "plot " : ", ") + plot; }
  [[nodiscard]] std::string Text() const { return (FText.empty() ? "plot NaN notitle" : FText) + "\n"; }

 private:
  std::string FText;
};

inline constexpr int kPlotWidth = 1100;  // of plots one above the other

// Runs a script of several plots, and puts its picture, whole or not at all, where `target` says; the size in pixels.
// `settings` stand in front of the data, the plots, from "set multiplot" on, behind it.
void DrawPlot(int width, int height, const std::string& settings, const TPlotData& data, const std::string& plots,
              const std::string& target);

}  // namespace ixocut
