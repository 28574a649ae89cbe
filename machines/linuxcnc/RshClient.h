// One connection to LinuxCNC's text interface (the program linuxcncrsh). Used by one thread, one request at a time;
// Cancel from any thread. Every wait is bounded. Times ms.
//
// What it answers is matched by name: an echo, an answer that came too late and the repeated answer to a request that
// it does not know are skipped, and what is then missing counts as silence. `set_wait` is never asked for: an ACK means
// "received", and a move holds no connection.
//
// linuxcncrsh takes requests apart in memory that all its connections share: of two that it takes up at the same moment
// one gets the other's words, and is refused or not answered. Connections of one TRshTurn therefore ask in turn. Others
// may still come between: a `get` is asked again until its time is over, and a `set` that is refused has done nothing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/support/Locks.h"
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
  roNak,     // refused: by the task, because another connection is the enabled one, or mixed up with another request
  roSilent,  // no answer in time; the connection is of no more use
  roClosed,
};
using enum TRshOutcome;

// Whose request linuxcncrsh takes apart: until it has answered, at most kMs. Nobody waits longer for it. Any thread.
class TRshTurn {
 public:
  static constexpr std::uint32_t kMs = 20;

  class TMine {
   public:
    explicit TMine(TRshTurn& turn) : FTurn(turn), FHas(turn.Take()) {}
    ~TMine() { GiveBack(); }
    TMine(const TMine&) = delete;
    TMine& operator=(const TMine&) = delete;
    void GiveBack() {
      if (std::exchange(FHas, false)) FTurn.GiveBack();
    }

   private:
    TRshTurn& FTurn;
    bool FHas;
  };

 private:
  [[nodiscard]] bool Take();
  void GiveBack();

  TCriticalSection FLock;
  std::condition_variable_any FBack;
  bool FTaken IXO_GUARDED_BY(FLock) = false;
};

class TRshClient {
 public:
  static constexpr std::uint32_t kOpenLimitMs = 1000;

  // `client`: what it says hello as, without spaces. `turn` outlives it.
  TRshClient(TRshAddress address, const char* client, TRshTurn& turn);

  // Connects and says hello; with `enable` this becomes the one connection that may command. What keeps it from that.
  [[nodiscard]] TResult<> Open(bool enable);
  [[nodiscard]] bool IsOpen() const { return FOpen; }
  void Close();
  // Any thread: whoever waits for an answer is told that the connection is closed, from now on.
  void Cancel();

  // "mdi G0 X1": sends "set mdi G0 X1".
  [[nodiscard]] TRshOutcome Set(std::string_view what, std::uint32_t limitMs);
  // "program_status": what stands behind the name in the answer, in capitals.
  [[nodiscard]] TRshOutcome Get(std::string_view what, std::uint32_t limitMs, std::string& value);

 private:
  [[nodiscard]] TRshOutcome Ask(std::string_view request, std::string_view name, std::uint32_t limitMs,
                                std::string& rest);
  [[nodiscard]] bool Receive();  // what has come; false: the connection has ended
  [[nodiscard]] bool NextLine(std::string& line);

  const TRshAddress FAddress;
  const std::string FClient;
  TRshTurn& FTurn;
  const std::unique_ptr<TVkTcpClient> FTcp;
  std::vector<std::string> FResolved;
  std::string FReceived;
  bool FOpen = false;
  std::atomic<bool> FCancelled{false};
};

}  // namespace ixocamglue
