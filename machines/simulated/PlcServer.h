// Carries a loading PLC's bytes over a real TCP port or serial device, on the thread that calls Run.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ixocamglue/platform/services/Clock.h"
#include "machines/simulated/LoadingPlc.h"

namespace ixocamglue {

class TPlcServer {
 public:
  TPlcServer();
  ~TPlcServer();
  TPlcServer(const TPlcServer&) = delete;
  TPlcServer& operator=(const TPlcServer&) = delete;

  TPlcBank Bank;  // set before Run

  // On the loopback interface; 0 takes a free port. Returns an empty text, or why not.
  [[nodiscard]] std::string ListenTcp(std::uint16_t port);
  [[nodiscard]] std::uint16_t Port() const;
  // Settings like "9600,n,8,1". Returns an empty text, or why not.
  [[nodiscard]] std::string OpenSerial(const std::string& device, const std::string& settings);

  // Serves until stopped; looks at the stop every 20 ms.
  void Run(TStop& stop);
  [[nodiscard]] std::uint64_t Requests() const { return FRequests; }  // after Run

 private:
  struct TImpl;

  const std::unique_ptr<TImpl> FImpl;
  std::uint64_t FRequests = 0;
};

}  // namespace ixocamglue
