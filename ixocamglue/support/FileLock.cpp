#include "ixocamglue/support/FileLock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr auto kRetry = std::chrono::milliseconds(3);
constexpr int kMostTaken = 16;  // lock files that others took away at once

int TryLock(int handle) {
  int result = 0;
  do result = ::flock(handle, LOCK_EX | LOCK_NB);
  while (result != 0 && errno == EINTR);
  return result == 0 ? 0 : errno;
}

// Answers an errno value.
int Open(const std::string& path, int& handle) {
  handle = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (handle >= 0) return 0;
  const int error = errno;  // another user's; a lock needs no more than to read
  handle = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  struct stat status {};
  return handle < 0 || ::fstat(handle, &status) != 0 || !S_ISREG(status.st_mode) ? error : 0;
}

// Whether the path still names the file of the handle: a lock on one that was deleted keeps nobody out.
bool IsThere(int handle, const std::string& path) {
  struct stat held {};
  struct stat named {};
  return ::fstat(handle, &held) == 0 && ::lstat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

// Who wrote itself into the lock file: the process number, 0 when none is there or it is no more, and its note.
TLockHolder HolderOf(int handle) {
  char text[512];
  const auto size = ::pread(handle, text, sizeof text, 0);
  std::string_view rest(text, static_cast<std::size_t>(std::max<::ssize_t>(size, 0)));
  const auto pid = ParseNumber<std::int32_t>(rest.substr(0, rest.find('\n')));
  if (!pid || *pid <= 0 || (::kill(*pid, 0) != 0 && errno == ESRCH)) return {};
  rest.remove_prefix(std::min(rest.find('\n'), rest.size() - 1) + 1);
  return {*pid, std::string(rest.substr(0, rest.find('\n')))};
}

std::string HolderText(const TLockHolder& holder) {
  if (holder.Process == 0) return Tr("another process");
  const std::string process = Format(Tr("process %d"), static_cast<int>(holder.Process));
  return holder.Note.empty() ? process : process + ", " + holder.Note;
}

TProblem Impossible(const std::string& file, std::string why) {
  return {.What = Tr("the file cannot be locked against other programs, so nothing is saved to it"),
          .Where = file,
          .Why = std::move(why),
          .Remedy = Tr("let its folder be written to")};
}

}  // namespace

TLockState TFileLock::Take(const std::string& file, std::uint32_t waitMs) {
  Release();
  if (auto possible = IsPossible(file); !possible) {
    FProblem = possible.Problem();
    return FState = lsImpossible;
  }
  const std::string path = file + ".lock";
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
  int error = 0;
  for (int taken = 0; taken < kMostTaken; ++taken) {
    if (const int unopened = Open(path, FHandle)) return Fail(lsImpossible, file, SystemErrorText(unopened));
    error = TryLock(FHandle);
    while (error == EWOULDBLOCK && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(kRetry);
      error = TryLock(FHandle);
    }
    if (error != 0 || IsThere(FHandle, path)) break;
    Release();
    error = EWOULDBLOCK;
  }
  if (error == EWOULDBLOCK) {
    return Fail(lsBusy, file, HolderText(FHandle >= 0 ? HolderOf(FHandle) : TLockHolder()));
  }
  if (error != 0) return Fail(lsImpossible, file, SystemErrorText(error));
  FState = lsHeld;
  Note({});
  return FState;
}

void TFileLock::Note(std::string_view note) {
  if (!Held()) return;
  // For those who are refused; without it they are told of Tr("another process").
  const std::string text = ValueText(static_cast<std::int32_t>(::getpid())) + "\n" +
                           (note.empty() ? std::string() : std::string(note) + "\n");
  if (::ftruncate(FHandle, 0) == 0) (void)!::pwrite(FHandle, text.data(), text.size(), 0);
}

std::optional<TLockHolder> TFileLock::Holder(const std::string& file) {
  const int handle = ::open((file + ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (handle < 0) return std::nullopt;
  int result = 0;
  do result = ::flock(handle, LOCK_SH | LOCK_NB);
  while (result != 0 && errno == EINTR);
  std::optional<TLockHolder> holder;
  if (result != 0 && errno == EWOULDBLOCK) holder = HolderOf(handle);
  ::close(handle);
  return holder;
}

TResult<> TFileLock::IsPossible(const std::string& file) {
  const auto slash = file.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
  if (::access(folder.c_str(), W_OK) == 0) return {};
  return Impossible(file, SystemErrorText(errno));
}

void TFileLock::Release() {
  if (FHandle >= 0) ::close(FHandle);
  FHandle = -1;
  FState = lsFree;
  FProblem = {};
}

TLockState TFileLock::Fail(TLockState state, const std::string& file, std::string why) {
  Release();
  if (state == lsBusy)
    FProblem = {.What = Format(Tr("the file is in use by %s"), why.c_str()),
                .Where = file,
                .Why = Tr("a controller that runs on it, or a command that changes it, keeps it to itself"),
                .Remedy = Tr("try again when that has ended")};
  else
    FProblem = Impossible(file, std::move(why));
  return FState = state;
}

}  // namespace ixocamglue
