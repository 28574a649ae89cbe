#include "commandline/InputLines.h"

#include <poll.h>
#include <unistd.h>

namespace ixocommandline {

bool TInputLines::Next(std::string& line) {
  constexpr int kLookEveryMs = 20;
  for (;;) {
    if (const auto end = FBuffer.find('\n'); end != std::string::npos) {
      line = FBuffer.substr(0, end);
      FBuffer.erase(0, end + 1);
      return true;
    }
    if (FEnded || FStopped()) return false;
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    if (poll(&waiting, 1, kLookEveryMs) <= 0) continue;
    char bytes[4096];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    if (count > 0)
      FBuffer.append(bytes, static_cast<std::size_t>(count));
    else
      FEnded = true;
    if (FEnded && !FBuffer.empty()) FBuffer += '\n';  // a last line without its end
  }
}

}  // namespace ixocommandline
