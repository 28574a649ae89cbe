// Lines of a terminal or of a pipe, one after the other.
#pragma once

#include <string>

namespace ixocommandline {

class TInputLines {
 public:
  // `stopped` is asked while a line is waited for.
  explicit TInputLines(bool (*stopped)()) : FStopped(stopped) {}
  // Waits for the next one. False: the input has ended, or `stopped` says so.
  bool Next(std::string& line);

 private:
  bool (*FStopped)();
  std::string FBuffer;
  bool FEnded = false;
};

}  // namespace ixocommandline
