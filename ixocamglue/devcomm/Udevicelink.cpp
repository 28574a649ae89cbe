#include "ixocamglue/devcomm/Udevicelink.h"

#include <algorithm>
#include <vector>

#include "ixocamglue/devcomm/Umodbusframe.h"
#include "ixocamglue/platform/comm/HostText.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

std::string TLinkAddress::Text() const {
  if (!IsTcp) return Device + " " + Settings;
  return HostText(Host) + ":" + std::to_string(Port);
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
