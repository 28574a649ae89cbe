// A file that a command will write at its end: tried before it begins, so that nothing is measured for nothing. Any
// thread.
#pragma once

#include <string>
#include <string_view>

namespace ixocommandline {

// Throws EProblem, naming the option, when the file cannot be written, or when there is one with something else in it:
// `ownKind` is asked about the first bytes of a file that is there and not empty. Changes nothing.
void CheckOutputFile(const char* option, const std::string& target, bool (*ownKind)(std::string_view head));

}  // namespace ixocommandline
