// What the commands that talk to a device share: the options that name a link, and the end by Ctrl-C.
#pragma once

#include <memory>
#include <string>

#include "controller/links/DeviceLink.h"
#include "ixocut/CommandLine.h"

namespace ixocut {
using namespace ixocontroller;

struct TLinkOptions {
  std::string Tcp;      // HOST[:PORT], [IPV6]:PORT
  std::string Serial;   // DEVICE[,9600,n,8,1]
  std::string Framing;  // rtu, tcp or empty: by the link
};

// --tcp or --serial, one of them, and --framing.
void AddLinkOptions(CLI::App& command, TLinkOptions& options);

// Throws EProblem with what is wrong.
[[nodiscard]] TLinkAddress ParseLink(const TLinkOptions& options);

// Until SIGINT, SIGTERM or SIGHUP, of which the first asks `stop`; one at a time.
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

}  // namespace ixocut
