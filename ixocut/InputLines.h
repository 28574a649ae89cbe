// Lines of a terminal or of a pipe, one after the other, while a TSignalStop lives.
#pragma once

#include <string>

namespace ixocut {

class TInputLines {
 public:
  // Waits for the next one. False: the input has ended, or a signal asks to.
  bool Next(std::string& line);

 private:
  std::string FBuffer;
  bool FEnded = false;
};

}  // namespace ixocut
