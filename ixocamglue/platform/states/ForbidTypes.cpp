#include "ixocamglue/platform/states/ForbidTypes.h"

#include <algorithm>

#include "ixocamglue/platform/ports/CutCommands.h"

namespace ixocamglue {

void TNcForbidTypeRegistry::RegistAllowKey(std::string_view name, std::span<const std::int32_t> commands) {
  Put(name, true, commands);
}

void TNcForbidTypeRegistry::RegistForbidKey(std::string_view name, std::span<const std::int32_t> commands) {
  Put(name, false, commands);
}

void TNcForbidTypeRegistry::Put(std::string_view name, bool allow, std::span<const std::int32_t> commands) {
  TGuard guard(FLock);
  auto it = FSets.find(name);
  if (it == FSets.end()) it = FSets.emplace(name, TSet{}).first;
  it->second.Allow = allow;
  it->second.Commands.assign(commands.begin(), commands.end());
}

void TNcForbidTypeRegistry::SetForbiddenKey(std::string_view name) {
  TGuard guard(FLock);
  if (const auto it = FSets.find(name); it != FSets.end()) FCurrent = &*it;
}

bool TNcForbidTypeRegistry::IsForbidden(std::int32_t command) const {
  if (command == kcNone) return true;
  TGuard guard(FLock);
  if (!FCurrent) return false;
  const TSet& set = FCurrent->second;
  return (std::ranges::find(set.Commands, command) != set.Commands.end()) != set.Allow;
}

std::string TNcForbidTypeRegistry::Current() const {
  TGuard guard(FLock);
  return FCurrent ? FCurrent->first : std::string();
}

std::vector<std::int32_t> TNcForbidTypeRegistry::Commands(std::string_view name) const {
  TGuard guard(FLock);
  const auto it = FSets.find(name);
  return it == FSets.end() ? std::vector<std::int32_t>() : it->second.Commands;
}

IXO_DEFINE_SERVICE(TNcForbidTypeRegistry, NcForbidTypeRegistry)

}  // namespace ixocamglue
