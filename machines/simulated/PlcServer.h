// Carries a loading PLC's bytes over a real TCP port or serial device, on the thread that calls Run.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Problem.h"
#include "machines/simulated/LoadingPlc.h"

namespace ixocamglue {

class TPlcServer {
 public:
  TPlcServer();
  ~TPlcServer();
  TPlcServer(const TPlcServer&) = delete;
  TPlcServer& operator=(const TPlcServer&) = delete;

  // Set before Run.
  TPlcBank Bank;
  bool RtuOverTcp = false;  // RTU framing on the TCP port, as a serial gateway has it

  // On the loopback interface; 0 takes a free port. The port that it is.
  [[nodiscard]] TResult<std::uint16_t> ListenTcp(std::uint16_t port);
  // Settings like "9600,n,8,1".
  [[nodiscard]] TResult<> OpenSerial(const std::string& device, const std::string& settings);

  // Serves until stopped, or until its serial line is hung up; looks at the stop every 20 ms. A connection that fails
  // ends alone.
  void Run(TStop& stop);

 private:
  struct TImpl;

  const std::unique_ptr<TImpl> FImpl;
};

}  // namespace ixocamglue
