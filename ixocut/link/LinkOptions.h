// What the commands that talk to a device share: the options that name a link, and what they say of late replies. Main
// thread, but for TellEnded.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "commandline/CommandLine.h"
#include "controller/links/DeviceLink.h"

namespace ixocut {
using namespace ixocommandline;
using namespace ixocontroller;
class TConsole;

struct TLinkOptions {
  std::string Tcp;     // HOST[:PORT], [IPV6]:PORT
  std::string Serial;  // DEVICE[,9600,n,8,1]
  std::string Name;    // of a link of the machine file
  std::optional<std::filesystem::path> Machine, State;
  std::string Framing;  // rtu, tcp or empty: by the link
};

// --tcp, --serial or --link with its machine file, one of them, and --framing.
void AddLinkOptions(TCommand command, TLinkOptions& options);

// Throws EProblem with what is wrong, also with a machine file that cannot be read.
[[nodiscard]] TLinkAddress ParseLink(const TLinkOptions& options);

// That a signal or its deadline ends the command, and on a serial line for how long a late reply may still come.
// `lines`: as TConsole::Print. For the thread that ends the process.
void TellEnded(const TLinkAddress& link, const TProblem& problem, std::uint32_t silenceMs, TConsole& console,
               bool lines = false);
// Where a reply is still owed, waits until the line is silent, so that the next process does not take it for its own;
// says so on the error output if `tell`. A stop ends the wait, which is said as well. Whether a reply was owed.
bool LeaveLineSilent(TModbusComm& device, TConsole& console, bool tell);

}  // namespace ixocut
