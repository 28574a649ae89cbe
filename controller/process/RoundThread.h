// Work that returns: a thread that calls it again and again, and what it throws as a line of the log.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <thread>

#include "ixocamglue/platform/services/Clock.h"

namespace ixocontroller {
using namespace ixocamglue;

// What a guarded call of `where`, a thread or a service, threw, as a line of the log. Never throws.
void LogFault(const char* where, const std::exception_ptr& error);

// Calls `round` with the monotonic time every `periodMs` until destroyed, and gives a sign of life with each round.
// What a round throws is logged.
class TRoundThread {
 public:
  // `name`: at most 15 characters.
  TRoundThread(const char* name, std::uint32_t periodMs, std::function<void(std::uint64_t nowMs)> round);
  // The period until the next round, asked behind each one.
  TRoundThread(const char* name, std::function<std::uint32_t()> periodMs,
               std::function<void(std::uint64_t nowMs)> round);
  ~TRoundThread();
  TRoundThread(const TRoundThread&) = delete;
  TRoundThread& operator=(const TRoundThread&) = delete;

 private:
  TStop FStop;
  std::thread FThread;
};

}  // namespace ixocontroller
