#include "ixocut/Plot.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ixocamglue/monitor/Umonitorsink.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/OutputFile.h"

namespace ixocut {
using namespace ixocamglue;
namespace {

namespace fs = std::filesystem;

[[noreturn]] void ThrowNoGnuplot() {
  throw EProblem(pbUnusable, Tr("gnuplot is not installed; it draws the plot (Debian package gnuplot-nox)"));
}

// As the system looks for a program to start; without PATH that is left to it.
bool GnuplotIsThere() {
  const char* const path = std::getenv("PATH");
  if (!path) return true;
  for (std::string_view rest = path;;) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    const fs::path folder = end == 0 ? fs::path(".") : fs::path(rest.substr(0, end));
    if (std::error_code error;
        fs::is_regular_file(folder / "gnuplot", error) && ::access((folder / "gnuplot").c_str(), X_OK) == 0)
      return true;
    if (end == rest.size()) return false;
    rest.remove_prefix(end + 1);
  }
}

// Runs gnuplot in the folder; throws what it complained about.
void RunGnuplot(const fs::path& folder) {
  const std::string script = (folder / "script").string();
  const std::string complaints = (folder / "complaints").string();
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, complaints.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addchdir_np(&files, folder.c_str());
  std::string name = "gnuplot";
  std::string argument = "script";
  char* const arguments[] = {name.data(), argument.data(), nullptr};
  pid_t child = 0;
  const int failed = posix_spawnp(&child, "gnuplot", &files, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&files);
  if (failed == ENOENT) ThrowNoGnuplot();
  if (failed != 0)
    throw EProblem(pbUnusable, Format(Tr("gnuplot cannot be started: %s"), SystemErrorText(failed).c_str()));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw EProblem(pbUnusable,
                   Format(Tr("gnuplot failed: %s"), ReadFile(fs::path(complaints)).OrThrow(pbUnusable).c_str()));
}

}  // namespace

void CheckPlotFile(const char* option, const std::string& target) {
  if (fs::path(target).extension() != ".svg")
    throw EProblem(pbRequest, Format(Tr("%s: \"%s\" does not end in .svg"), option, target.c_str()));
  if (!GnuplotIsThere()) ThrowNoGnuplot();
  CheckOutputFile(option, target, [](std::string_view head) { return head.find("<svg") != head.npos; });
}

// SVG leaves the letters to the fonts where it is looked at; for Chinese here, ./run installs one.
std::string PlotStart(int width, int height) {
  return "set encoding utf8\n" +
         Format("set terminal svg size %d,%d noenhanced background 'white' font 'sans,10'\nset output 'out'\n", width,
                height);
}

std::string PlotText(std::string_view text) {
  std::string out = "'";
  for (const char c : text) out.append(c == '\'' ? 2 : 1, c == '\n' || c == '\r' ? ' ' : c);
  return out + "'";
}

void DrawPlot(const std::string& script, const std::string& target) {
  const TTempFolder scratch("ixocut-plot");
  std::ofstream(scratch.Path() / "script", std::ios::binary) << script;
  RunGnuplot(scratch.Path());
  const std::string picture = ReadFile(scratch.Path() / "out").OrThrow(pbUnusable);
  if (picture.empty()) throw EProblem(pbUnusable, Tr("gnuplot wrote no picture"));
  TMonitorFileSink sink(target);
  sink.Write(picture);
  sink.Commit();
}

}  // namespace ixocut
