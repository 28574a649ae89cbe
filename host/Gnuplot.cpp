#include "host/Gnuplot.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/HostError.h"

namespace ixocamglue {
namespace {

namespace fs = std::filesystem;

class TScratch {
 public:
  TScratch() {
    std::string name = (fs::temp_directory_path() / "ixocut-plot-XXXXXX").string();
    if (!mkdtemp(name.data())) throw THostError(kExitDevice, "no temporary folder for the plot can be made");
    Path = name;
  }
  ~TScratch() {
    std::error_code ignored;
    fs::remove_all(Path, ignored);
  }
  TScratch(const TScratch&) = delete;
  TScratch& operator=(const TScratch&) = delete;
  fs::path Path;
};

std::string ReadAll(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
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
  if (failed == ENOENT)
    throw THostError(kExitDevice, "gnuplot is not installed; it draws the plot (Debian package gnuplot-nox)");
  if (failed != 0)
    throw THostError(kExitDevice, "gnuplot cannot be started: " + std::system_category().message(failed));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw THostError(kExitDevice, "gnuplot failed: " + ReadAll(complaints));
}

}  // namespace

std::string GnuplotText(std::string_view text) {
  std::string out = "'";
  for (const char c : text) out.append(c == '\'' ? 2 : 1, c == '\n' || c == '\r' ? ' ' : c);
  return out + "'";
}

std::string DrawWithGnuplot(std::string_view script) {
  const TScratch scratch;
  std::ofstream(scratch.Path / "script", std::ios::binary) << script;
  RunGnuplot(scratch.Path);
  std::string picture = ReadAll(scratch.Path / "out");
  if (picture.empty()) throw THostError(kExitDevice, "gnuplot wrote no picture");
  return picture;
}

}  // namespace ixocamglue
