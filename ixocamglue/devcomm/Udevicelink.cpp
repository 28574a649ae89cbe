#include "ixocamglue/devcomm/Udevicelink.h"

#include <algorithm>
#include <vector>

#include "ixocamglue/devcomm/Umodbusframe.h"
#include "ixocamglue/platform/comm/HostText.h"
#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {

std::string TLinkAddress::Text() const {
  if (!IsTcp) return Device + " " + Settings;
  return HostText(Host) + ":" + std::to_string(Port);
}

TResult<TLinkAddress> ParseTcpLink(const std::string& text) {
  TLinkAddress link;
  link.IsTcp = link.TcpFraming = true;
  const auto wrong = [](const char* what) { return TProblem{.What = what}; };
  std::string port;
  const std::size_t colon = text.rfind(':');
  if (text.starts_with('[')) {
    const std::size_t bracket = text.find(']');
    if (bracket == std::string::npos) return wrong(Tr("the \"]\" is missing"));
    link.Host = text.substr(1, bracket - 1);
    if (bracket + 1 < text.size()) {
      if (text[bracket + 1] != ':') return wrong(Tr("a \":\" is expected after the \"]\""));
      port = text.substr(bracket + 2);
      if (port.empty()) return wrong(Tr("the port is missing"));
    }
  } else if (colon != std::string::npos && text.find(':') == colon) {
    link.Host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (port.empty()) return wrong(Tr("the port is missing"));
  } else {
    link.Host = text;
    if (colon != std::string::npos &&
        text.substr(0, text.find('%')).find_first_not_of("0123456789abcdefABCDEF:.") != std::string::npos)
      return wrong(Tr("neither HOST:PORT nor an address of IPv6"));
  }
  if (link.Host.empty()) return wrong(Tr("the host is missing"));
  if (port.empty()) return link;
  const auto number = ParseExactly<std::int32_t>(port);
  if (!number || *number < 1 || *number > 0xFFFF) return wrong(Tr("the port is a number from 1 to 65535"));
  link.Port = *number;
  return link;
}

TResult<TLinkAddress> ParseSerialLink(const std::string& text) {
  TLinkAddress link;
  const std::size_t comma = text.find(',');
  link.Device = text.substr(0, comma);
  if (comma != std::string::npos) link.Settings = text.substr(comma + 1);
  if (link.Device.empty()) return TProblem{.What = Tr("the device is missing")};
  if (const auto settings = ParseSerialSettings(link.Settings); !settings)
    return TProblem{.What = settings.Problem().Text()};
  return link;
}

// A link that is opened again must not find another device behind its number.
std::int32_t SerialPortOf(const std::string& device) {
  constexpr std::int32_t kFirst = 1000;  // beyond the standard devices
  static TCriticalSection lock;
  static std::vector<std::string> devices;
  TGuard guard(lock);
  const auto found = std::ranges::find(devices, device);
  const auto port = static_cast<std::int32_t>(kFirst + (found - devices.begin()));
  if (found == devices.end()) {
    devices.push_back(device);
    SetSerialPortPath(port, device);
  }
  return port;
}

std::shared_ptr<TNcCommTransBase> MakeTransport(const TLinkAddress& link) {
  if (link.IsTcp) {
    TCommNet net;
    net.Initialize();
    SetUtf16(net.Host, link.Host);
    net.Port = link.Port;
    auto transport = std::make_shared<TNcTcpIPTrans>();
    transport->SetTransType(ttBinary);
    transport->SetNetParams(net);
    return transport;
  }
  TCommSerial serial;
  serial.Initialize();
  serial.Port = SerialPortOf(link.Device);
  SetUtf16(serial.Settings, link.Settings);
  auto transport = std::make_shared<TNcSerialCommTrans>();
  transport->SetTransType(ttBinary);
  transport->SetCommParams(serial);
  return transport;
}

const char* OutcomeWord(TModbusOutcome outcome) {
  switch (outcome) {
    case moOk: return TrMark("ok");
    case moTimeout: return TrMark("time-out");
    case moInvalid: return TrMark("invalid reply");
    case moNoConnection: return TrMark("no connection");
    case moException: return TrMark("exception");
    case moBadRequest: return TrMark("bad request");
    case moStopped: return TrMark("stopped");
  }
  return "";
}

std::string OutcomeText(const TModbusResult& result) {
  std::string text = result.Outcome == moException
                         ? Format(Tr("exception %d (%s)"), result.Exception, Tr(ModbusExceptionName(result.Exception)))
                         : Tr(OutcomeWord(result.Outcome));
  if (*result.Reason != 0) text = Format(Tr("%s: %s"), text.c_str(), Tr(result.Reason));
  if (!result.Confirmed) text += result.Ok() ? Tr(": sent to all, not confirmed") : Tr("; the write may have happened");
  return text;
}

}  // namespace ixocamglue
