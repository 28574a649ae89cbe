// What a service manager is told: that the controller is ready, what it does, that it ends; and the watchdog, which is
// fed only while the threads live that keep the machine safe. Datagrams to $NOTIFY_SOCKET; where there is none nothing
// happens. Time is real.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "controller/Controller.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocontroller {

// A number that changes with each sign of life. Read by another thread.
using TBeat = std::function<std::uint64_t()>;

// Of the state thread, and in real time of the supervisor. The controller outlives them. Does not fail.
[[nodiscard]] std::vector<TBeat> BeatsOf(TController& controller);

struct TNotifyOptions {
  std::string Socket;            // "/run/systemd/notify", or "@name" for an abstract one; empty: nobody listens
  std::uint64_t WatchdogUs = 0;  // 0: there is no watchdog
  // NOTIFY_SOCKET, and WATCHDOG_USEC where it is this process's. What is no number there counts as none.
  [[nodiscard]] static TNotifyOptions FromEnvironment();
};

// Nothing of it fails: what the service manager does not take is sent again with a later round, or not at all.
class TNotify {
 public:
  static constexpr std::uint32_t kRoundMs = 100;
  static constexpr std::uint64_t kSilentMs = 1000;  // a thread without a sign of life for so long does not live
  static constexpr std::uint64_t kStatusEveryMs = 1000;

  // `status`: one line, called on the own thread every kStatusEveryMs at most; it must not wait.
  TNotify(TNotifyOptions options, std::vector<TBeat> beats, std::function<std::string()> status);
  ~TNotify() { Stopping(); }
  TNotify(const TNotify&) = delete;
  TNotify& operator=(const TNotify&) = delete;

  [[nodiscard]] bool Listened() const { return !FOptions.Socket.empty(); }
  // The controller takes commands now. From here on the thread `ixo-notify` sends status and watchdog, where somebody
  // listens.
  void Ready();
  // Files are read again, and then: Ready once more.
  void Reloading();
  // Once; the thread has ended behind it.
  void Stopping();

  // What the thread does every kRoundMs; tests crank it by hand.
  void Round(std::uint64_t nowMs);

 private:
  struct TSeen {
    std::uint64_t Value = 0;
    std::uint64_t AtMs = 0;
    bool Any = false;
  };

  void Send(std::string_view lines) const;
  [[nodiscard]] bool AllLive(std::uint64_t nowMs);

  const TNotifyOptions FOptions;
  const std::vector<TBeat> FBeats;
  const std::function<std::string()> FStatus;
  std::vector<TSeen> FSeen;
  std::string FTold;
  std::uint64_t FStatusAtMs = 0;
  std::uint64_t FFeedAtMs = 0;
  bool FStopped = false;
  TStop FStop;
  std::thread FThread;
};

}  // namespace ixocontroller
