#include "controller/links/DeviceLink.h"

#include <algorithm>
#include <vector>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {

std::string TLinkAddress::Text() const {
  if (!IsTcp) return Device + " " + Settings;
  return (Host.find(':') == std::string::npos ? Host : "[" + Host + "]") + ":" + std::to_string(Port);
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

std::string SpacedHex(const TBytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += Format(text.empty() ? "%02X" : " %02X", byte);
  return text;
}

const char* OutcomeWord(TModbusOutcome outcome) {
  switch (outcome) {
    case moOk: return "ok";
    case moTimeout: return "time-out";
    case moInvalid: return "invalid reply";
    case moNoConnection: return "no connection";
    case moException: return "exception";
    case moBadRequest: return "bad request";
    case moStopped: return "stopped";
  }
  return "";
}

std::string OutcomeText(const TModbusResult& result) {
  std::string text = OutcomeWord(result.Outcome);
  if (result.Outcome == moException)
    text += Format(" %d (%s)", result.Exception, ModbusExceptionName(result.Exception));
  if (*result.Reason != 0) text += std::string(": ") + result.Reason;
  if (!result.Confirmed) text += result.Ok() ? ": sent to all, not confirmed" : "; the write may have happened";
  return text;
}

}  // namespace ixocontroller
