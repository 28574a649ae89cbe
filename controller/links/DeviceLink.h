// What the commands that talk to a device share: the options that name a link, and the transport made from them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ixocamglue/devcomm/Udevthrdcomm.h"

namespace CLI {
class App;
}

namespace ixocontroller {
using namespace ixocamglue;

struct TLinkOptions {
  std::string Tcp;      // HOST[:PORT], [IPV6]:PORT
  std::string Serial;   // DEVICE[,9600,n,8,1]
  std::string Framing;  // rtu, tcp or empty: by the link
};

// --tcp or --serial, one of them. `framing`: also --framing.
void AddLinkOptions(CLI::App& command, TLinkOptions& options, bool framing);

struct TLinkAddress {
  bool IsTcp = false;
  bool TcpFraming = false;
  std::string Host;
  std::int32_t Port = 502;
  std::string Device;
  std::string Settings = "9600,n,8,1";

  [[nodiscard]] std::string Text() const;
};

// Throws EProblem with what is wrong.
[[nodiscard]] TLinkAddress ParseLink(const TLinkOptions& options);

// The transport, set up but not connected; a serial one is of the binary type.
[[nodiscard]] std::shared_ptr<TNcCommTransBase> MakeTransport(const TLinkAddress& link);

// "01 03 00 10"
[[nodiscard]] std::string SpacedHex(const TBytes& bytes);
// "time-out", "exception 2 (illegal data address)" ...
[[nodiscard]] std::string OutcomeText(const TModbusResult& result);
[[nodiscard]] const char* OutcomeWord(TModbusOutcome outcome);  // for JSON

// Until SIGINT or SIGTERM, of which the first asks `stop`; one at a time.
class TStopOnSignal {
 public:
  explicit TStopOnSignal(TStop& stop);
  ~TStopOnSignal();
  TStopOnSignal(const TStopOnSignal&) = delete;
  TStopOnSignal& operator=(const TStopOnSignal&) = delete;

 private:
  struct TImpl;
  const std::unique_ptr<TImpl> FImpl;
};

}  // namespace ixocontroller
