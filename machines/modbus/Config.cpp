#include "machines/modbus/Config.h"

#include <algorithm>
#include <cctype>

#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

namespace {

std::string LineOf(const TModbusStationConfig& station) {
  return station.Device.empty() ? Format("%s:%d", station.Host.c_str(), station.Port) : station.Device;
}

// By what they say: two names of one host are not looked up.
bool OnOneLine(const TModbusStationConfig& a, const TModbusStationConfig& b) {
  const auto same = [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
  };
  return a.Device == b.Device && (!a.Device.empty() || (a.Port == b.Port && std::ranges::equal(a.Host, b.Host, same)));
}

}  // namespace

void TModbusStationConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional)
      .Key(TrMark("the station has no name"))
      .Text(TrMark("Name of the Modbus station, with which its addresses begin"));
  p.Field("Host", Host, "", kOptional).Text(TrMark("Host name or address of a station that is reached over TCP"));
  p.Field("Port", Port, 502, kOptional).Within(1, 65535).Text(TrMark("TCP port of the station"));
  p.Field("RtuFraming", RtuFraming, false, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether the TCP port takes frames as on a serial line, as some gateways do"));
  p.Field("Device", Device, "", kOptional)
      .Text(TrMark("Serial device of a station on a line; stations with the same one share the line"));
  p.Field("Baud", Baud, 9600, kOptional).Within(50, 4'000'000).Text(TrMark("Bits per second on the serial line"));
  p.Field("Parity", Parity, "n", kOptional).Text(TrMark("Parity on the serial line: n none, e even, o odd"));
  p.Field("DataBits", DataBits, 8, kOptional).Within(7, 8).Text(TrMark("Data bits on the serial line"));
  p.Field("StopBits", StopBits, 1, kOptional).Within(1, 2).Text(TrMark("Stop bits on the serial line"));
  p.Field("Unit", Unit, 1, kOptional).Within(0, 255).Text(TrMark("Unit address of the station"));
  p.Field("CycleMs", CycleMs, 20, kOptional)
      .Unit(uMs)
      .Within(1, 60'000)
      .Text(TrMark("How often all values of the station are read"));
  p.Field("StaleMs", StaleMs, 400, kOptional)
      .Unit(uMs)
      .Within(10, 60'000)
      .Text(TrMark("Age from which on a value counts as unreadable, and the station as away"));
  p.Field("TimeOutMs", TimeOutMs, 150, kOptional)
      .Unit(uMs)
      .Within(5, 30'000)
      .Text(TrMark("How long a reply of the station is waited for"));
  p.Field("LateReplyMs", LateReplyMs, 0, kOptional)
      .Unit(uMs)
      .Within(0, 60'000)
      .Text(TrMark("How late a reply over RTU framing may come; 0: 3000 ms or the time-out"));
  p.Field("WatchdogRegister", WatchdogRegister, -1, kOptional)
      .Within(-1, 65535)
      .Text(TrMark("Holding register that feeds the station's own watchdog; -1: it has none"));
  p.Field("WatchdogPeriodMs", WatchdogPeriodMs, 50, kOptional)
      .Unit(uMs)
      .Within(5, 60'000)
      .Text(TrMark("How often the watchdog register is written while the controller lives"));
  p.Field("ProbeRegister", ProbeRegister, -1, kOptional)
      .Within(-1, 65535)
      .Text(TrMark("Holding register that is read before the first write of a connection, so that a line that sends "
                   "everything back is noticed; -1: none"));
}

TLinkAddress TModbusStationConfig::Link() const {
  TLinkAddress link;
  link.IsTcp = Device.empty();
  link.TcpFraming = link.IsTcp && !RtuFraming;
  link.Host = Host;
  link.Port = Port;
  link.Device = Device;
  link.Settings = Format("%d,%s,%d,%d", Baud, Parity.c_str(), DataBits, StopBits);
  return link;
}

TResult<> TModbusStationConfig::Check() const {
  const auto wrong = [&](std::string what) -> TResult<> {
    return TProblem{.What = std::move(what), .Where = Format("%s/Station %s", TModbusRecord::kSection, Name.c_str())};
  };
  if (Name.find_first_of(": ") != std::string::npos) return wrong(Tr("a station's name has no blank and no colon"));
  if (Host.empty() == Device.empty())
    return wrong(Tr("it has a Host, over TCP, or a Device, on a serial line; one of the two"));
  if (!Device.empty()) {
    if (auto settings = ParseSerialSettings(Link().Settings); !settings) return wrong(settings.Problem().Text());
    if (Unit < 1 || Unit > 247) return wrong(Tr("on a serial line the unit is 1 to 247"));
  }
  if (Unit == 0 && !Link().TcpFraming)
    return wrong(Tr("with frames as on a serial line unit 0 is all units at once, and none of them answers"));
  if (StaleMs < CycleMs + TimeOutMs)
    return wrong(Format(Tr("StaleMs %d is below CycleMs + TimeOutMs (%d): each value would be too old before a reply "
                           "that is waited for comes"),
                        StaleMs, CycleMs + TimeOutMs));
  return {};
}

TResult<const TModbusStationConfig*> TModbusRecord::Find(std::string_view name) const {
  const TModbusStationConfig* found = nullptr;
  TNearestName nearest(name);
  for (const auto& station : Stations) {
    if (station->Name != name) {
      nearest.Consider(station->Name);
      continue;
    }
    if (found) return TProblem{.What = Format(Tr("there are two stations of the name %s"), found->Name.c_str())};
    found = station.get();
  }
  if (!found)
    return TProblem{
        .What = Format(Tr("the section %s has no station \"%s\""), kSection, std::string(name).c_str()),
        .Remedy = nearest.DidYouMean(Tr("add it there: <Station Name=\"...\" Host=\"...\" Port=\"502\"/>"))};
  if (auto good = found->Check(); !good) return good.Problem();
  // What stands beside it on its line has to agree about the line, and to be another device.
  for (const auto& other : Stations) {
    if (other.get() == found || !OnOneLine(*found, *other)) continue;
    if (!found->Device.empty() && other->Link().Text() != found->Link().Text())
      return TProblem{.What = Format(Tr("the stations %s and %s share %s and state it differently: %s; %s"),
                                     found->Name.c_str(), other->Name.c_str(), found->Device.c_str(),
                                     found->Link().Settings.c_str(), other->Link().Settings.c_str())};
    if (other->Unit == found->Unit)
      return TProblem{.What = Format(Tr("the stations %s and %s have the same unit %d on %s"), found->Name.c_str(),
                                     other->Name.c_str(), found->Unit, LineOf(*found).c_str()),
                      .Where = Format("%s/Station %s", TModbusRecord::kSection, other->Name.c_str()),
                      .Why = Tr("they are one device, whose outputs two names would switch without knowing of each "
                                "other"),
                      .Remedy = Tr("name the device once and give all its points that station, or correct Host, Port, "
                                   "Device or Unit")};
  }
  return found;
}

}  // namespace ixocamglue
