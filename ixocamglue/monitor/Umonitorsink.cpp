#include "ixocamglue/monitor/Umonitorsink.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr mode_t kModeBits = 07777;

}  // namespace

TMonitorFileSink::TMonitorFileSink(std::string fileName) : FFileName(std::move(fileName)), FTarget(FFileName) {
  struct stat there {};
  const bool exists = ::stat(FTarget.c_str(), &there) == 0;
  if (!exists && errno != ENOENT) Fail(Tr("cannot be opened"), errno);
  // The folder lets a file be replaced that may not be written.
  if (exists && ::access(FTarget.c_str(), W_OK) != 0) Fail(Tr("cannot be opened for writing"), errno);

  std::error_code error;
  const bool isLink = std::filesystem::is_symlink(std::filesystem::symlink_status(FTarget, error));
  error.clear();  // there is no such file
  if (isLink && exists) FTarget = std::filesystem::canonical(FTarget, error).string();
  // A link to nothing is written through: what it points to comes into being.
  const bool inPlace = error || (exists ? !S_ISREG(there.st_mode) : isLink);
  if (inPlace)
    OpenInPlace();
  else
    OpenBeside(exists);
  if (exists && !inPlace) GiveInfo(there.st_mode & kModeBits, there.st_uid, there.st_gid);
}

TMonitorFileSink::~TMonitorFileSink() { CloseFile(); }

void TMonitorFileSink::OpenInPlace() {
  FTemporary.clear();
  FFile = ::open(FFileName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (FFile < 0) Fail(Tr("cannot be opened for writing"), errno);
}

void TMonitorFileSink::OpenBeside(bool exists) {
  // What a killed process has left, or another one writes just now, stays.
  for (int number = 1; number == 1 || (FFile < 0 && errno == EEXIST); ++number) {
    FTemporary = FTarget + (number == 1 ? "" : "." + std::to_string(number)) + kPartialEnding;
    FFile = ::open(FTemporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  }
  if (FFile < 0) {
    const int error = errno;
    FTemporary.clear();
    // Not in place instead: a full disk or a kill would leave neither the old content nor the new.
    Fail(exists ? Tr("cannot be replaced, because its folder takes no new file") : Tr("cannot be created"), error);
  }
}

// The mode last: giving a file away takes its set-user bits.
void TMonitorFileSink::GiveInfo(std::uint32_t mode, std::uint32_t owner, std::uint32_t group) {
  // Another user's file becomes the writer's own, and must not run with the writer's rights.
  if (::fchown(FFile, owner, group) != 0) mode &= ACCESSPERMS;
  if (::fchmod(FFile, static_cast<mode_t>(mode)) != 0) Fail(Tr("cannot be given its mode"), errno);
}

void TMonitorFileSink::Write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(FFile, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) Fail(Tr("cannot be written"), errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void TMonitorFileSink::Commit() {
  const int file = std::exchange(FFile, -1);
  if (::close(file) != 0) Fail(Tr("cannot be closed"), errno);
  if (FTemporary.empty()) return;
  if (std::rename(FTemporary.c_str(), FTarget.c_str()) != 0) Fail(Tr("cannot be replaced"), errno);
  FTemporary.clear();
}

void TMonitorFileSink::CloseFile() noexcept {
  if (FFile >= 0) ::close(std::exchange(FFile, -1));
  if (!FTemporary.empty()) ::unlink(FTemporary.c_str());
  FTemporary.clear();
}

void TMonitorFileSink::Fail(const char* what, int error) {
  CloseFile();
  throw EProblem(pbUnusable, {what, FFileName, SystemErrorText(error), ""});
}

}  // namespace ixocamglue
