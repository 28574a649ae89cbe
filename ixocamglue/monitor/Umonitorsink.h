// Where a monitor file's bytes go. One thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ixocamglue {

class IMonitorSink {
 public:
  virtual ~IMonitorSink() = default;
  virtual void Write(std::string_view bytes) = 0;  // throws EProblem
};

// What the name of a file that is still being written, or whose writer was killed, ends in: "run.csv.part", then
// "run.csv.2.part" and so on; none is written over.
inline constexpr const char* kPartialEnding = ".part";

// Replaces a file as a whole: the bytes go to a partial file in the same folder, Commit renames it; a folder that takes
// no new file is a problem. The mode of a file that is there is kept, its owner where the writer may give it away;
// links are followed. Not flushed to disk. A target that is no regular file (a pipe, a device) is written in place.
// One thread. Without Commit a regular file stays as it was.
class TMonitorFileSink final : public IMonitorSink {
 public:
  explicit TMonitorFileSink(std::string fileName);  // throws EProblem
  ~TMonitorFileSink() override;
  TMonitorFileSink(const TMonitorFileSink&) = delete;
  TMonitorFileSink& operator=(const TMonitorFileSink&) = delete;

  void Write(std::string_view bytes) override;
  void Commit();  // once, last; throws EProblem

 private:
  void OpenInPlace();
  void OpenBeside(bool exists);
  void GiveInfo(std::uint32_t mode, std::uint32_t owner, std::uint32_t group);
  void CloseFile() noexcept;
  [[noreturn]] void Fail(const char* what, int error);

  const std::string FFileName;
  std::string FTarget;     // behind links
  std::string FTemporary;  // empty: in place
  int FFile = -1;
};

}  // namespace ixocamglue
