#include "ixocut/Plot.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "commandline/OutputFile.h"
#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/ChildProcess.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"

namespace ixocut {
using namespace ixocommandline;
namespace {

namespace fs = std::filesystem;

constexpr auto kDrawnWithin = std::chrono::minutes(10);

// As the system looks for a program to start.
fs::path Gnuplot() {
  const char* const path = std::getenv("PATH");
  for (std::string_view rest = path ? path : "/bin:/usr/bin";;) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    fs::path program = fs::absolute(end == 0 ? "." : rest.substr(0, end)) / "gnuplot";
    if (std::error_code error; fs::is_regular_file(program, error) && ::access(program.c_str(), X_OK) == 0)
      return program;
    if (end == rest.size()) break;
    rest.remove_prefix(end + 1);
  }
  throw EProblem(pbUnusable, Tr("gnuplot is not installed; it draws the plot (Debian package gnuplot-nox)"));
}

}  // namespace

void CheckPlotFile(const char* option, const std::string& target) {
  if (fs::path(target).extension() != ".svg")
    throw EProblem(pbRequest, Format(Tr("%s: \"%s\" does not end in .svg"), option, target.c_str()));
  (void)Gnuplot();
  CheckOutputFile(option, target, [](std::string_view head) { return head.find("<svg") != head.npos; });
}

std::string PlotText(std::string_view text) {
  std::string out = "'";
  for (const char c : text) out.append(c == '\'' ? 2 : 1, c == '\n' || c == '\r' ? ' ' : c);
  return out + "'";
}

std::string TPlotData::Add(const std::string& lines, std::string name) {
  if (name.empty()) name = Format("$d%d", FNumber++);
  FText += name + " << EOD\n" + lines + "EOD\n";
  return name;
}

void DrawPlot(int width, int height, const std::string& settings, const TPlotData& data, const std::string& plots,
              const std::string& target) {
  const TTempFolder scratch("ixocut-plot");
  // SVG leaves the letters to the fonts where it is looked at; for Chinese here, ./run installs one.
  std::ofstream(scratch.Path() / "script", std::ios::binary)
      << "set encoding utf8\n"
      << Format("set terminal svg size %d,%d noenhanced background 'white' font 'sans,10'\nset output 'out'\n", width,
                height)
      << settings << data.Text() << plots << "unset multiplot\nset output\n";
  const fs::path complaints = scratch.Path() / "complaints";
  if (TChildProcess(Gnuplot(), {"gnuplot", "script"}, scratch.Path(), complaints).Wait(kDrawnWithin) != 0)
    throw EProblem(pbUnusable, Format(Tr("gnuplot failed: %s"), ReadFile(complaints).OrThrow(pbUnusable).c_str()));
  const std::string picture = ReadFile(scratch.Path() / "out").OrThrow(pbUnusable);
  if (picture.empty()) throw EProblem(pbUnusable, Tr("gnuplot wrote no picture"));
  TMonitorFileSink sink(target);
  sink.Write(picture);
  sink.Commit();
}

}  // namespace ixocut
