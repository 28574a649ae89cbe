// Another process: its own command line, what it says in a file. It ends with the thread that started it.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ixocamglue {

// One thread. Nothing fails but what says so.
class TChildProcess {
 public:
  // `words`: its command line, from its own name on. It runs in `folder`; both outputs go into `said`, which is
  // replaced. Throws EProblem when no process can be started; a program that is none ends with 127.
  TChildProcess(const std::filesystem::path& program, std::vector<std::string> words,
                const std::filesystem::path& folder, const std::filesystem::path& said);
  ~TChildProcess();  // ends it
  TChildProcess(const TChildProcess&) = delete;
  TChildProcess& operator=(const TChildProcess&) = delete;

  // Its exit code (128 + the signal that ended it), once it has one; else nothing within `time`.
  std::optional<int> Wait(std::chrono::milliseconds time);
  // Asks it to end, and waits so long before it is ended by force (then nothing).
  std::optional<int> End(std::chrono::milliseconds time);

 private:
  pid_t FProcess = -1;
  std::optional<int> FExit;
};

}  // namespace ixocamglue
