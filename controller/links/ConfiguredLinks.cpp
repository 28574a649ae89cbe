#include "controller/links/ConfiguredLinks.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

std::vector<TConfiguredLink> ConfiguredLinks(const TModbusStoreConfig* store) {
  std::vector<TConfiguredLink> links;
  if (!store) return links;
  const TDataTransConfig& trans = store->DataTransConfig;
  TLinkAddress address;
  address.IsTcp = trans.UseTcp;
  address.TcpFraming = trans.UseTcp && trans.IsModbusTcp;
  address.Host = trans.TcpHost;
  address.Port = trans.TcpPort;
  if (!trans.UseTcp) address.Device = SerialPortPath(trans.CommPort);
  address.Settings = trans.CommSettings;
  if (std::in_range<std::uint16_t>(trans.ProbeRegister))
    address.ProbeRegister = static_cast<std::uint16_t>(trans.ProbeRegister);
  links.push_back({.Name = "modbus-store",
                   .Section = "ModbusStore/DataTransConfig",
                   .Address = std::move(address),
                   .InUse = store->StoreEnabled || store->UCSInfoEnabled || store->ExportFileNameEnabled});
  return links;
}

TResult<TConfiguredLink> FindLink(const std::vector<TConfiguredLink>& links, const std::string& name) {
  const auto found = std::ranges::find(links, name, &TConfiguredLink::Name);
  if (found != links.end()) return *found;
  const std::string names = Joined(links, &TConfiguredLink::Name);
  return TProblem{.What = Format(Tr("the machine file has no link %s"), name.c_str()),
                  .Remedy = names.empty() ? std::string() : Format(Tr("the links are: %s"), names.c_str())};
}

}  // namespace ixocontroller
