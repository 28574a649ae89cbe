// Whole files and temporary folders. Any thread. What cannot be read or written is answered; only a temporary folder
// that cannot be made is thrown.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

// The whole regular file. Answers 0, or the errno value that says why it could not be read: EFBIG above `limit` bytes.
[[nodiscard]] int ReadFile(const std::string& path, std::uint64_t limit, std::string& bytes);
[[nodiscard]] TResult<std::string> ReadFile(const std::filesystem::path& path);

// Makes the folder, and those above it that are missing. One that was there keeps its rights, a new one has these, or
// as the process makes them where they are `unknown`.
[[nodiscard]] TResult<> MakeFolder(const std::filesystem::path& path,
                                   std::filesystem::perms rights = std::filesystem::perms::unknown);

// A folder of its own below the system's temporary one, removed with everything in it.
class TTempFolder {
 public:
  // Throws EProblem where none can be made.
  explicit TTempFolder(const std::string& prefix);
  ~TTempFolder();
  TTempFolder(const TTempFolder&) = delete;
  TTempFolder& operator=(const TTempFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return FPath; }

 private:
  std::filesystem::path FPath;
};

}  // namespace ixocamglue
