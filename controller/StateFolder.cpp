#include "controller/StateFolder.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const fs::path& file, const char* what, int error) {
  throw EProblem(pbUnusable, Format("%s: %s: %s", file.c_str(), what, std::strerror(error)));
}

class TFile {
 public:
  TFile(const fs::path& path, int flags) : FPath(path), FHandle(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
  ~TFile() {
    if (FHandle >= 0) ::close(FHandle);
  }
  TFile(const TFile&) = delete;
  TFile& operator=(const TFile&) = delete;

  [[nodiscard]] bool IsOpen() const { return FHandle >= 0; }
  [[nodiscard]] int Handle() const { return FHandle; }
  // Bytes read into `buffer`; 0 at the end.
  [[nodiscard]] std::size_t Read(std::array<char, 65536>& buffer) const {
    for (;;) {
      const auto count = ::read(FHandle, buffer.data(), buffer.size());
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) Fail(FPath, "cannot be read", errno);
    }
  }
  void Write(const char* bytes, std::size_t size) const {
    while (size > 0) {
      const auto written = ::write(FHandle, bytes, size);
      if (written < 0 && errno != EINTR) Fail(FPath, "cannot be written", errno);
      if (written <= 0) continue;
      bytes += written;
      size -= static_cast<std::size_t>(written);
    }
  }
  void Flush() const {
    if (::fsync(FHandle) != 0) Fail(FPath, "cannot be written", errno);
  }

 private:
  const fs::path FPath;
  const int FHandle;
};

class TRemoveAtEnd {
 public:
  explicit TRemoveAtEnd(fs::path file) : FFile(std::move(file)) {}
  ~TRemoveAtEnd() { ::unlink(FFile.c_str()); }
  TRemoveAtEnd(const TRemoveAtEnd&) = delete;
  TRemoveAtEnd& operator=(const TRemoveAtEnd&) = delete;

 private:
  const fs::path FFile;
};

// An environment variable that is set and not empty.
std::optional<fs::path> FromEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  if (!value || !*value) return std::nullopt;
  return fs::path(value);
}

// True when `made` became `target`; false when a file of that name was there first.
bool RenameUnlessThere(const fs::path& made, const fs::path& target) {
  if (::link(made.c_str(), target.c_str()) == 0) return true;
  if (errno == EEXIST) return false;
  const int linkError = errno;
  if (linkError != EPERM && linkError != ENOTSUP && linkError != EMLINK) Fail(target, "cannot be created", linkError);
  // A file system without hard links: the check and the rename are two steps there.
  std::error_code ignored;
  if (fs::exists(fs::symlink_status(target, ignored))) return false;
  if (::rename(made.c_str(), target.c_str()) != 0) Fail(target, "cannot be created", errno);
  return true;
}

}  // namespace

fs::path ShareFolder() {
  if (const auto root = FromEnvironment("IXOCUT_DATA")) return *root;
  std::error_code error;
  if (const fs::path program = fs::read_symlink("/proc/self/exe", error); !error) {
    fs::path root = program.parent_path().parent_path() / "share" / "ixocamglue";
    if (fs::is_directory(root, error)) return root;
  }
  return IXO_SHARE_DIR;
}

fs::path StateFolder(const std::optional<fs::path>& asked) {
  if (asked) return *asked;
  if (const auto state = FromEnvironment("XDG_STATE_HOME")) return *state / "ixocut";
  if (const auto home = FromEnvironment("HOME")) return *home / ".local" / "state" / "ixocut";
  throw EProblem(pbUnusable, "no state folder: neither XDG_STATE_HOME nor HOME is set; name one with --state DIR");
}

void CopyOnce(const fs::path& example, const fs::path& copy) {
  std::error_code error;
  if (fs::exists(copy, error)) return;
  const TFile from(example, O_RDONLY);
  if (!from.IsOpen()) Fail(example, "the example cannot be read", errno);
  const fs::path folder = copy.parent_path();
  fs::create_directories(folder, error);
  if (error) Fail(folder, "the folder cannot be created", error.value());

  const fs::path temporary = copy.string() + Format(".%ld.new", static_cast<long>(::getpid()));
  const TFile to(temporary, O_WRONLY | O_CREAT | O_TRUNC);
  if (!to.IsOpen()) Fail(temporary, "cannot be created", errno);
  const TRemoveAtEnd remove(temporary);
  std::array<char, 65536> buffer{};
  while (const std::size_t size = from.Read(buffer)) to.Write(buffer.data(), size);
  to.Flush();
  if (!RenameUnlessThere(temporary, copy)) return;
  if (const TFile whole(folder, O_RDONLY | O_DIRECTORY); whole.IsOpen()) ::fsync(whole.Handle());
}

fs::path MachineFile(const std::optional<fs::path>& machine, const std::optional<fs::path>& state) {
  if (machine) {
    std::error_code error;
    if (!fs::exists(*machine, error)) Fail(*machine, "the machine file cannot be read", error ? error.value() : ENOENT);
    return *machine;
  }
  const fs::path copy = StateFolder(state) / "machine.xml";
  CopyOnce(ShareFolder() / "machines" / "machine.xml", copy);
  return copy;
}

}  // namespace ixocontroller
