// What the operating system says of a call that failed, in the operator's language. Any thread.
#pragma once

#include <string>

namespace ixocamglue {

// `error` is an errno value. What happens to files is said in both languages, everything else as the system says it.
[[nodiscard]] std::string SystemErrorText(int error);

}  // namespace ixocamglue
