#include "ixocamglue/support/Files.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

int ReadAll(int file, std::uint64_t limit, std::string& bytes) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (static_cast<std::uint64_t>(status.st_size) > limit) return EFBIG;
  constexpr std::size_t kMore = 4096;  // it may grow meanwhile
  bytes.reserve(static_cast<std::size_t>(status.st_size) + kMore);
  bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t done = 0;
  while (true) {
    if (done == bytes.size()) bytes.resize(done + kMore);
    const auto got = ::read(file, bytes.data() + done, bytes.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
    if (done > limit) return EFBIG;
  }
  bytes.resize(done);
  return 0;
}

}  // namespace

int ReadFile(const std::string& path, std::uint64_t limit, std::string& bytes) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return errno;
  const int error = ReadAll(file, limit, bytes);
  ::close(file);
  return error;
}

TResult<std::string> ReadFile(const std::filesystem::path& path) {
  std::string bytes;
  if (const int error = ReadFile(path.string(), ~std::uint64_t{0}, bytes))
    return TProblem{.What = Tr("the file cannot be read"), .Where = path.string(), .Why = SystemErrorText(error)};
  return bytes;
}

TResult<> MakeFolder(const std::filesystem::path& path, std::filesystem::perms rights) {
  std::error_code error;
  const bool made = std::filesystem::create_directories(path, error);
  if (!error && made && rights != std::filesystem::perms::unknown) std::filesystem::permissions(path, rights, error);
  if (!error) return {};
  return TProblem{
      .What = Tr("the folder cannot be created"), .Where = path.string(), .Why = SystemErrorText(error.value())};
}

TTempFolder::TTempFolder(const std::string& prefix) {
  std::error_code error;
  std::string name = (std::filesystem::temp_directory_path(error) / (prefix + "-XXXXXX")).string();
  if (error || !mkdtemp(name.data()))
    throw EProblem(pbUnusable, TProblem{.What = Tr("no temporary folder can be made"), .Where = name});
  FPath = name;
}

TTempFolder::~TTempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(FPath, ignored);
}

}  // namespace ixocamglue
