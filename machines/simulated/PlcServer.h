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

  TPlcBank Bank;  // set before Run

  // On the loopback interface; 0 takes a free port. The port that it is.
  [[nodiscard]] TResult<std::uint16_t> ListenTcp(std::uint16_t port);
  // Settings like "9600,n,8,1".
  [[nodiscard]] TResult<> OpenSerial(const std::string& device, const std::string& settings);

  // Serves until stopped; looks at the stop every 20 ms.
  void Run(TStop& stop);
  [[nodiscard]] std::uint64_t Requests() const { return FRequests; }  // after Run

 private:
  struct TImpl;

  const std::unique_ptr<TImpl> FImpl;
  std::uint64_t FRequests = 0;
};

}  // namespace ixocamglue
