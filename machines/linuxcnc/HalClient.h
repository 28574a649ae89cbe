// The driver's side of the wire to `ixocut-hal` (HalWire.h). One thread opens, closes and goes through the rounds;
// everything else is for any thread and at once. Times are monotonic ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Problem.h"
#include "machines/linuxcnc/HalWire.h"

namespace ixocamglue {

class THalClient {
 public:
  explicit THalClient(std::string socket) : FSocket(std::move(socket)) {}
  ~THalClient() { Close(); }
  THalClient(const THalClient&) = delete;
  THalClient& operator=(const THalClient&) = delete;

  // Connects, says hello and has read every pin once, within a second; what keeps it from that. Outputs are all 0 then.
  [[nodiscard]] TResult<> Open();
  void Close();
  // Reads what comes within `ms`; beats when that is due, or says that it is alive. A problem: why the connection has
  // ended.
  [[nodiscard]] TResult<> Round(std::uint32_t ms, bool beat);

  // --- any thread ---
  [[nodiscard]] bool IsOpen() const { return FOpen.load(std::memory_order_acquire); }
  // Sends at once; the number that a frame's Done has to reach. 0: there is no connection.
  std::uint64_t Set(std::string_view name, double value) {
    return Send({.Verb = hvSet, .Name = std::string(name), .Value = value});
  }
  std::uint64_t Rearm() { return Send({.Verb = hvRearm}); }
  // What the newest frame has. None: no such pin, no connection yet, or no number.
  [[nodiscard]] std::optional<double> Value(std::string_view name) const;
  [[nodiscard]] bool IsOn(std::string_view name) const { return Value(name).value_or(0.0) != 0.0; }
  [[nodiscard]] std::uint64_t Connection() const { return FConnection.load(std::memory_order_acquire); }  // rises
  [[nodiscard]] std::uint64_t Done() const;                    // of the newest frame
  [[nodiscard]] std::optional<std::uint64_t> FrameAt() const;  // when the newest frame came; none: none has
  [[nodiscard]] std::optional<THalPin> Pin(std::string_view name) const;

 private:
  struct TPin {
    THalPin Facts;
    double Value = 0.0;
    bool Known = false;
  };

  std::uint64_t Send(THalAsk ask);
  [[nodiscard]] TResult<> Receive(std::uint32_t ms);
  [[nodiscard]] TResult<> Take(const THalTell& tell);
  [[nodiscard]] bool Commands() const;  // by its hello

  const std::string FSocket;
  std::optional<THalLines> FLines;  // the thread's own, as are the next two
  std::uint64_t FBeatAt = 0;
  std::uint64_t FPinsToCome = 0;

  std::atomic<bool> FOpen{false};
  std::atomic<std::uint64_t> FConnection{0};
  mutable TCriticalSection FSending;  // held for as long as it takes to hand a line to the system
  int FFd IXO_GUARDED_BY(FSending) = -1;
  std::uint64_t FNumber IXO_GUARDED_BY(FSending) = 0;

  mutable TCriticalSection FLock;
  std::map<std::string, TPin, std::less<>> FPins IXO_GUARDED_BY(FLock);
  std::uint64_t FDone IXO_GUARDED_BY(FLock) = 0;
  std::optional<std::uint64_t> FFrameAt IXO_GUARDED_BY(FLock);
  bool FGreeted IXO_GUARDED_BY(FLock) = false;
  bool FCommands IXO_GUARDED_BY(FLock) = false;
};

}  // namespace ixocamglue
