// What ends a command of the program before its work is done: thrown anywhere below main, shown there as one line.
#pragma once

#include <stdexcept>
#include <string>

namespace ixocamglue {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitOtherwise = 1;    // a procedure ended otherwise than with success
inline constexpr int kExitCommandLine = 2;  // wrong command line; nothing was done
inline constexpr int kExitDevice = 3;       // a file or a device cannot be used

struct THostError : std::runtime_error {
  THostError(int exitCode, const std::string& message) : std::runtime_error(message), ExitCode(exitCode) {}
  int ExitCode;
};

}  // namespace ixocamglue
