// The links to devices that a machine file names. The thread that may read the record; nothing throws.
#pragma once

#include <string>
#include <vector>

#include "controller/links/DeviceLink.h"
#include "ixocamglue/config/Uclientconfig.h"

namespace ixocontroller {

struct TConfiguredLink {
  std::string Name;     // "modbus-store"
  std::string Section;  // of the machine file
  TLinkAddress Address;
  bool InUse = false;  // the machine file switches on something that goes over it
};

// As the configuration has them at this moment. `store`: its section "ModbusStore"; null: it has none.
[[nodiscard]] std::vector<TConfiguredLink> ConfiguredLinks(const TModbusStoreConfig* store);
// The one of this name, or that there is none and which there are.
[[nodiscard]] TResult<TConfiguredLink> FindLink(const std::vector<TConfiguredLink>& links, const std::string& name);

}  // namespace ixocontroller
