// Another process of this program (or of the one that is named): its own command line, what it says in a file. It ends
// with who started it.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ixocut {

class TChild {
 public:
  // `arguments` behind the program's name, in `folder`. Both outputs go into `said`, which is replaced. Throws EProblem
  // when it cannot be started.
  TChild(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
         const std::filesystem::path& said, const std::filesystem::path& program = "/proc/self/exe");
  ~TChild();  // ends it
  TChild(const TChild&) = delete;
  TChild& operator=(const TChild&) = delete;

  // Its exit code (128 + the signal that ended it), once it has one; else nothing within `time`.
  std::optional<int> Wait(std::chrono::milliseconds time);
  // Asks it to end, and waits so long before it is ended by force (then nothing).
  std::optional<int> End(std::chrono::milliseconds time);

 private:
  pid_t FProcess = -1;
  std::optional<int> FExit;
};

}  // namespace ixocut
