// One connection to LinuxCNC's text interface (the program linuxcncrsh). Used by one thread, one request at a time;
// Cancel from any thread. Every wait is bounded. Times ms.
//
// What it answers is matched by name: an echo, an answer that came too late and the repeated answer to a request that
// it does not know are skipped, and what is then missing counts as silence. `set_wait` is never asked for: an ACK means
// "received", and a move holds no connection.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

struct TRshAddress {
  std::string Host = "127.0.0.1";
  std::int32_t Port = 5007;
  std::string Password = "EMC";   // of `hello`
  std::string Enable = "EMCTOO";  // of `set enable`
};

enum class TRshOutcome : std::uint8_t {
  roAck,
  roNak,     // refused: by the task, or because another connection is the enabled one
  roSilent,  // no answer in time; the connection is of no more use
  roClosed,
};
using enum TRshOutcome;

class TRshClient {
 public:
  static constexpr std::uint32_t kOpenLimitMs = 1000;

  TRshClient(TRshAddress address, const char* client);  // `client`: what it says hello as, without spaces

  // Connects and says hello; with `enable` this becomes the one connection that may command. What keeps it from that.
  [[nodiscard]] TResult<> Open(bool enable);
  [[nodiscard]] bool IsOpen() const { return FOpen; }
  void Close();
  // Any thread: whoever waits for an answer is told that the connection is closed.
  void Cancel();

  // "mdi G0 X1": sends "set mdi G0 X1".
  [[nodiscard]] TRshOutcome Set(std::string_view what, std::uint32_t limitMs);
  // "program_status": what stands behind the name in the answer, in capitals.
  [[nodiscard]] TRshOutcome Get(std::string_view what, std::uint32_t limitMs, std::string& value);

 private:
  [[nodiscard]] TRshOutcome Ask(std::string_view request, std::string_view name, std::uint32_t limitMs,
                                std::string& rest);
  [[nodiscard]] bool NextLine(std::string& line);

  const TRshAddress FAddress;
  const std::string FClient;
  const std::unique_ptr<TVkTcpClient> FTcp;
  std::vector<std::string> FResolved;
  std::string FReceived;
  bool FOpen = false;
  std::atomic<bool> FCancelled{false};
};

}  // namespace ixocamglue
