// The link to a device as people name it, the transport made from it, and what a request came to in words. Any thread.
// Nothing throws: a link that does not open says so when it is used (OpenProblem). A host's name is resolved where the
// transport is made, for 2000 ms at most.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/devcomm/Umodbusresult.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

struct TLinkAddress {
  bool IsTcp = false;
  bool TcpFraming = false;
  std::string Host;
  std::int32_t Port = 502;
  std::string Device;
  std::string Settings = "9600,n,8,1";
  std::optional<std::uint16_t> ProbeRegister;  // TModbusStrictOptions::ProbeRegister

  [[nodiscard]] std::string Text() const;
};

// "HOST", "HOST:PORT", an address of IPv6 or "[IPV6]:PORT", with Modbus TCP framing; a name is not looked up.
[[nodiscard]] TResult<TLinkAddress> ParseTcpLink(const std::string& text);
// "DEVICE" or "DEVICE,9600,n,8,1".
[[nodiscard]] TResult<TLinkAddress> ParseSerialLink(const std::string& text);

// A serial port number that stands for this device, the same whenever it is asked for. Any thread.
[[nodiscard]] std::int32_t SerialPortOf(const std::string& device);
// The transport, set up but not connected; a serial one is of the binary type.
[[nodiscard]] std::shared_ptr<TNcCommTransBase> MakeTransport(const TLinkAddress& link);

// "time-out", "exception 2 (illegal data address)" ... in the operator's language.
[[nodiscard]] std::string OutcomeText(const TModbusResult& result);
[[nodiscard]] const char* OutcomeWord(TModbusOutcome outcome);  // for JSON

}  // namespace ixocamglue
