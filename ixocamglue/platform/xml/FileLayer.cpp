#include "ixocamglue/platform/xml/FileLayer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

int Errno(bool done) { return done ? 0 : errno; }

std::string Folder(const std::string& file) {
  const auto slash = file.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

}  // namespace

int TPosixFiles::Read(const std::string& path, std::uint64_t limit, std::string& bytes) {
  return ReadFile(path, limit, bytes);
}

int TPosixFiles::Describe(const std::string& path, TFileInfo& info) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno;
  info = {static_cast<std::uint32_t>(status.st_mode & 07777), status.st_uid, status.st_gid};
  return 0;
}

int TPosixFiles::ReadLink(const std::string& path, std::string& target) {
  std::string text(4096, '\0');
  const auto length = ::readlink(path.c_str(), text.data(), text.size());
  if (length < 0) return errno;
  if (static_cast<std::size_t>(length) == text.size()) return ENAMETOOLONG;
  text.resize(static_cast<std::size_t>(length));
  target = std::move(text);
  return 0;
}

int TPosixFiles::Create(const std::string& path, std::uint32_t mode, int& handle) {
  handle = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, static_cast<mode_t>(mode));
  return Errno(handle >= 0);
}

int TPosixFiles::SetInfo(int handle, const TFileInfo& info) {
  struct stat status {};
  if (::fstat(handle, &status) != 0) return errno;
  if ((status.st_uid != info.Owner || status.st_gid != info.Group) && ::fchown(handle, info.Owner, info.Group) != 0)
    return errno;
  return Errno((status.st_mode & 07777) == info.Mode || ::fchmod(handle, static_cast<mode_t>(info.Mode)) == 0);
}

int TPosixFiles::Write(int handle, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(handle, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : EIO;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

int TPosixFiles::Flush(int handle) { return Errno(::fsync(handle) == 0); }
int TPosixFiles::Close(int handle) { return Errno(::close(handle) == 0); }
int TPosixFiles::Link(const std::string& from, const std::string& to) {
  return Errno(::link(from.c_str(), to.c_str()) == 0);
}
int TPosixFiles::Rename(const std::string& from, const std::string& to) {
  return Errno(std::rename(from.c_str(), to.c_str()) == 0);
}
int TPosixFiles::Remove(const std::string& path) { return Errno(::unlink(path.c_str()) == 0); }
int TPosixFiles::FlushFolder(const std::string& folder) {
  const int opened = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return errno;
  const int error = Errno(::fsync(opened) == 0);
  ::close(opened);
  return error;
}

int TPosixFiles::List(const std::string& folder, std::vector<std::string>& names) {
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    names.push_back(entry->path().filename().string());
  return error.value();
}

IFileLayer& Files() {
  static TPosixFiles posix;
  IFileLayer* const installed = InstalledFiles();
  return installed ? *installed : posix;
}

int ResolveLinks(std::string& path) {
  for (int links = 0; links < 40; ++links) {
    std::string target;
    const int error = Files().ReadLink(path, target);
    if (error == EINVAL || error == ENOENT) return 0;
    if (error != 0) return error;
    if (!target.starts_with('/')) target.insert(0, Folder(path) + "/");
    path = std::move(target);
  }
  return ELOOP;
}

namespace {

// One replacement under way: knows what it has made so far and takes it back unless it is finished.
class TReplacement {
 public:
  explicit TReplacement(std::string file) : FFile(std::move(file)) {}
  ~TReplacement() {
    if (FHandle >= 0) Files().Close(FHandle);
    if (FHasTemporary) Files().Remove(FTemporary);
    if (FHasBackup) Files().Remove(FBackupTemporary);
  }
  TReplacement(const TReplacement&) = delete;
  TReplacement& operator=(const TReplacement&) = delete;

  TReplaced Run(std::string_view bytes, std::string_view backupSuffix, std::uint32_t newMode) {
    IFileLayer& files = Files();
    if (const int error = ResolveLinks(FFile)) return Failed(Tr("its links cannot be followed"), error);
    FTemporary = TemporaryName(FFile);
    const std::string backup = FFile + std::string(backupSuffix);
    FBackupTemporary = TemporaryName(backup);
    ClearLeftovers();

    TFileInfo info;
    const int described = files.Describe(FFile, info);
    if (described != 0 && described != ENOENT) return Failed(Tr("it cannot be looked at"), described);
    const bool exists = described == 0;
    if (const int error = Make(FTemporary, exists ? 0600 : newMode, FHasTemporary))
      return Failed(Tr("the temporary file cannot be made"), error);
    if (exists)
      if (const int error = files.SetInfo(FHandle, info))
        return Failed(Tr("its owner and mode cannot be given to the temporary file"), error);
    if (const int error = Fill(bytes)) return Failed(Tr("the temporary file cannot be written"), error);
    if (exists && !backupSuffix.empty())
      if (const int error = KeepPrevious(backup)) return Failed(Tr("the previous version cannot be kept"), error);
    if (const int error = files.Rename(FTemporary, FFile)) return Failed(Tr("it cannot be replaced"), error);
    FHasTemporary = false;
    return FlushFolder();
  }

  TReplaced Add(std::string_view bytes) {
    IFileLayer& files = Files();
    FTemporary = TemporaryName(FFile);
    if (const int error = Make(FTemporary, 0644, FHasTemporary)) return Failed(Tr("it cannot be created"), error);
    if (const int error = Fill(bytes)) return Failed(Tr("it cannot be written"), error);
    int error = files.Link(FTemporary, FFile);
    if (NoLinks(error)) {  // the look and the rename are two steps there
      TFileInfo info;
      error = files.Describe(FFile, info) == 0 ? EEXIST : files.Rename(FTemporary, FFile);
      FHasTemporary = error != 0;
    }
    if (error == EEXIST) return {true, {}};
    if (error != 0) return Failed(Tr("it cannot be created"), error);
    return FlushFolder();
  }

 private:
  [[nodiscard]] static std::string TemporaryName(const std::string& file) {
    return Format("%s.%d.tmp", file.c_str(), static_cast<int>(::getpid()));
  }

  // "<file>.123.tmp" and "<file>.bak.123.tmp" of a process 123 that is no more.
  void ClearLeftovers() const {
    std::vector<std::string> names;
    if (Files().List(Folder(FFile), names) != 0) return;
    constexpr std::string_view kEnd = ".tmp";
    const std::string start = FFile.substr(FFile.rfind('/') + 1) + ".";
    for (const std::string& name : names) {
      if (!name.starts_with(start) || !name.ends_with(kEnd)) continue;
      const std::string_view stem = std::string_view(name).substr(0, name.size() - kEnd.size());
      const auto pid = ParseExactly<std::int32_t>(stem.substr(stem.rfind('.') + 1));
      if (pid && *pid > 0 && ::kill(*pid, 0) != 0 && errno == ESRCH) Files().Remove(Folder(FFile) + "/" + name);
    }
  }

  [[nodiscard]] static bool NoLinks(int error) {
    return error == EPERM || error == EOPNOTSUPP || error == ENOSYS || error == EMLINK;
  }

  [[nodiscard]] TReplaced FlushFolder() const {
    if (const int error = Files().FlushFolder(Folder(FFile)))
      return {true, Format(Tr("%s: saved, but its folder could not be flushed: %s"), FFile.c_str(),
                           SystemErrorText(error).c_str())};
    return {true, {}};
  }

  [[nodiscard]] TReplaced Failed(const char* what, int error) const {
    return {false, Format("%s: %s: %s", FFile.c_str(), what, SystemErrorText(error).c_str())};
  }

  // A leftover of a process that was killed is removed: callers of one process take turns, and other processes have
  // another number.
  int Make(const std::string& path, std::uint32_t mode, bool& made) {
    int error = Files().Create(path, mode, FHandle);
    if (error == EEXIST && Files().Remove(path) == 0) error = Files().Create(path, mode, FHandle);
    if (error != 0) FHandle = -1;
    made = error == 0;
    return error;
  }

  int Fill(std::string_view bytes) {
    int error = Files().Write(FHandle, bytes);
    if (error == 0) error = Files().Flush(FHandle);
    const int closed = Files().Close(std::exchange(FHandle, -1));
    return error != 0 ? error : closed;
  }

  // The old file under a second name, put over the older backup in one step, so that there is a backup at any moment.
  // A file system without links gets a copy.
  int KeepPrevious(const std::string& backup) {
    IFileLayer& files = Files();
    int error = files.Link(FFile, FBackupTemporary);
    if (error == EEXIST && files.Remove(FBackupTemporary) == 0) error = files.Link(FFile, FBackupTemporary);
    if (NoLinks(error)) {
      std::string bytes;
      error = files.Read(FFile, ~std::uint64_t{0}, bytes);
      if (error == 0) error = Make(FBackupTemporary, 0600, FHasBackup);
      TFileInfo info;
      if (error == 0) error = files.Describe(FFile, info);
      if (error == 0) error = files.SetInfo(FHandle, info);
      if (error == 0) error = Fill(bytes);
    } else if (error == 0) {
      FHasBackup = true;
    }
    if (error == 0) error = files.Rename(FBackupTemporary, backup);
    // Renaming onto another name of the same file does nothing, so the temporary name may still be there; the
    // destructor removes it.
    return error;
  }

  std::string FFile;
  std::string FTemporary;
  std::string FBackupTemporary;
  bool FHasTemporary = false;
  bool FHasBackup = false;
  int FHandle = -1;
};

}  // namespace

TReplaced ReplaceFile(const std::string& file, std::string_view bytes, std::string_view backupSuffix,
                      std::uint32_t newMode) {
  return TReplacement(file).Run(bytes, backupSuffix, newMode);
}

void ReplaceOrThrow(const std::string& file, std::string_view bytes) {
  if (const TReplaced written = ReplaceFile(file, bytes, ""); !written.Done)
    throw EProblem(pbUnusable, written.Problem);
}

TReplaced AddFile(const std::string& file, std::string_view bytes) { return TReplacement(file).Add(bytes); }

IXO_DEFINE_SERVICE(IFileLayer, InstalledFiles)

}  // namespace ixocamglue
