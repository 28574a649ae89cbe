// Lines of the standard input, a terminal or a pipe, one after the other. One thread.
#pragma once

#include <string>

namespace ixocommandline {

class TInputLines {
 public:
  // `stopped` is asked every 20 ms while a line is waited for.
  explicit TInputLines(bool (*stopped)()) : FStopped(stopped) {}
  // Waits for the next one. False: the input has ended, or `stopped` says so.
  bool Next(std::string& line);

 private:
  bool (*FStopped)();
  std::string FBuffer;
  bool FEnded = false;
};

}  // namespace ixocommandline
