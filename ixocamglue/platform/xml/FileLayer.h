// The disk, one call per step of a save, and the one way in which a file of ours is replaced.
//
// The layer is a seam: a test installs a disk of its own that fails, tears or forgets at a chosen step. Any thread; two
// replacements of the same file are kept apart by their caller.
#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

struct TFileInfo {
  std::uint32_t Mode = 0;  // permission bits
  std::uint32_t Owner = 0;
  std::uint32_t Group = 0;
};

// Every call answers 0, or the errno value that says why it was not done.
class IFileLayer {
 public:
  virtual ~IFileLayer() = default;
  // The whole regular file; EFBIG, with nothing read, above `limit` bytes.
  virtual int Read(const std::string& path, std::uint64_t limit, std::string& bytes) = 0;
  virtual int Describe(const std::string& path, TFileInfo& info) = 0;
  // What a symbolic link names; EINVAL when the path is none.
  virtual int ReadLink(const std::string& path, std::string& target) = 0;
  // Exclusive: EEXIST when there is anything of this name. `handle` is the caller's to close.
  virtual int Create(const std::string& path, std::uint32_t mode, int& handle) = 0;
  virtual int SetInfo(int handle, const TFileInfo& info) = 0;
  virtual int Write(int handle, std::string_view bytes) = 0;  // all of them, or failed
  virtual int Flush(int handle) = 0;                          // to the disk itself
  virtual int Close(int handle) = 0;
  virtual int Link(const std::string& from, const std::string& to) = 0;
  virtual int Rename(const std::string& from, const std::string& to) = 0;
  virtual int Remove(const std::string& path) = 0;
  virtual int FlushFolder(const std::string& folder) = 0;
  // What stands in the folder. A layer that cannot say leaves what killed processes have left.
  virtual int List(const std::string&, std::vector<std::string>&) { return ENOTSUP; }
};

class TPosixFiles final : public IFileLayer {
 public:
  int Read(const std::string& path, std::uint64_t limit, std::string& bytes) override;
  int Describe(const std::string& path, TFileInfo& info) override;
  int ReadLink(const std::string& path, std::string& target) override;
  int Create(const std::string& path, std::uint32_t mode, int& handle) override;
  int SetInfo(int handle, const TFileInfo& info) override;
  int Write(int handle, std::string_view bytes) override;
  int Flush(int handle) override;
  int Close(int handle) override;
  int Link(const std::string& from, const std::string& to) override;
  int Rename(const std::string& from, const std::string& to) override;
  int Remove(const std::string& path) override;
  int FlushFolder(const std::string& folder) override;
  int List(const std::string& folder, std::vector<std::string>& names) override;
};

IXO_DECLARE_SERVICE(IFileLayer, InstalledFiles);
// The installed disk; the real one while none is installed.
[[nodiscard]] IFileLayer& Files();

struct TReplaced {
  bool Done = false;    // the new content stands under the file's name
  std::string Problem;  // why not; or, when done, what could not be made sure of
};

// Replaces the file's content so that a crash at any moment leaves the old or the new file whole: temporary file beside
// it (exclusive creation; mode and owner kept), flush, the previous version kept under `file` + `backupSuffix`, rename,
// flush of the folder. A symbolic link stays, its target is replaced. A failure before the rename leaves the old file
// as it was and removes the temporary; temporaries of processes that were killed are removed too; a folder that could
// not be flushed leaves the new file and says so. A file that is not there yet is created with `newMode`, without a
// previous version; an empty suffix keeps none.
[[nodiscard]] TReplaced ReplaceFile(const std::string& file, std::string_view bytes, std::string_view backupSuffix,
                                    std::uint32_t newMode = 0644);
// The same without a previous version; what is not done is thrown as EProblem (pbUnusable).
void ReplaceOrThrow(const std::string& file, std::string_view bytes);

// Makes a file that is not there yet, whole and durable. A file of this name stays as it is: done.
[[nodiscard]] TReplaced AddFile(const std::string& file, std::string_view bytes);

// Where a path ends when its symbolic links are followed; the last part need not exist. Answers an errno value.
[[nodiscard]] int ResolveLinks(std::string& path);

}  // namespace ixocamglue
