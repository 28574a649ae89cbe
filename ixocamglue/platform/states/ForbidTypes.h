// The forbidden-key registry: named sets of key commands, one of which is in force. Any thread; each call holds the
// registry's own lock for a moment and calls nobody. Nothing throws.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Installed.h"
#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

class TNcForbidTypeRegistry {
 public:
  // Sets of a name replace what was registered under it, at once also where the set is in force. Lists are kept as they
  // come, zeros and duplicates included.
  void RegistAllowKey(std::string_view name, std::span<const std::int32_t> commands);   // all others are forbidden
  void RegistForbidKey(std::string_view name, std::span<const std::int32_t> commands);  // all others are allowed
  // Puts the set of this name in force; a name that nobody registered changes nothing.
  void SetForbiddenKey(std::string_view name);

  // By the set in force; without one nothing is forbidden but command 0, which always is.
  [[nodiscard]] bool IsForbidden(std::int32_t command) const;
  [[nodiscard]] std::string Current() const;  // its name; empty: none
  [[nodiscard]] std::vector<std::int32_t> Commands(std::string_view name) const;

 private:
  struct TSet {
    bool Allow = false;
    std::vector<std::int32_t> Commands;
  };
  using TSets = std::map<std::string, TSet, std::less<>>;

  void Put(std::string_view name, bool allow, std::span<const std::int32_t> commands);

  mutable TCriticalSection FLock;
  TSets FSets IXO_GUARDED_BY(FLock);
  const TSets::value_type* FCurrent IXO_GUARDED_BY(FLock) = nullptr;
};

IXO_DECLARE_SERVICE(TNcForbidTypeRegistry, NcForbidTypeRegistry);

}  // namespace ixocamglue
