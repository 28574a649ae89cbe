// A host as it stands in front of a port: an address of IPv6 in brackets. Any thread; nothing fails.
#pragma once

#include <string>

namespace ixocamglue {

[[nodiscard]] inline std::string HostText(const std::string& host) {
  return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

}  // namespace ixocamglue
