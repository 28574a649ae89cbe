#include "ixocamglue/support/UserName.h"

#include <array>
#include <pwd.h>

namespace ixocamglue {

std::string UserName(std::uint32_t user) {
  std::array<char, 1024> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found) return found->pw_name;
  return std::to_string(user);
}

}  // namespace ixocamglue
