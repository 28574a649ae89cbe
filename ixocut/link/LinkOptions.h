// What the commands that talk to a device share: the options that name a link, and the end by Ctrl-C.
#pragma once

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "controller/links/DeviceLink.h"
#include "ixocut/CommandLine.h"

namespace ixocut {
using namespace ixocontroller;

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

// "a late reply may still come ...", as a line for the error output.
[[nodiscard]] std::string LateReplyText(const char* command, std::uint32_t silenceMs);
// Where a reply is still owed, waits until the line is silent, so that the next process does not take it for its own;
// says so on the error output if `tell`. A stop ends the wait, which is said as well. Whether a reply
// was owed.
bool LeaveLineSilent(TModbusComm& device, const char* command, bool tell);

// Keeps SIGINT, SIGTERM and SIGHUP for TStopOnSignal. Made before any thread, which would take them.
class TSignalsBlocked {
 public:
  TSignalsBlocked();
  ~TSignalsBlocked();
  TSignalsBlocked(const TSignalsBlocked&) = delete;
  TSignalsBlocked& operator=(const TSignalsBlocked&) = delete;

 private:
  sigset_t FBefore;
};

// The first signal asks `stop`. What has not come to its end kGiveUpMs later, or kGiveUpMs after its deadline (a name
// that is resolved, a connection that is opened), does not hold the program up: `giveUp` is called on another thread,
// and ends the process.
class TStopOnSignal {
 public:
  static constexpr std::uint32_t kGiveUpMs = 120;
  explicit TStopOnSignal(TStop& stop, std::function<void(bool overdue)> giveUp = {});
  ~TStopOnSignal();
  TStopOnSignal(const TStopOnSignal&) = delete;
  TStopOnSignal& operator=(const TStopOnSignal&) = delete;

  // From now on it may be given up; 0: it has no deadline.
  void Begin(std::uint64_t deadlineMs = 0);
  // It came to its end; does not return once it is given up.
  void End();

 private:
  struct TImpl;
  const std::unique_ptr<TImpl> FImpl;
};

}  // namespace ixocut
