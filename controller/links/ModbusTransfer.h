// Any number of registers or coils, in as many requests as they take: each has whole values only, so that no value is
// put together from two moments.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ixocamglue/devcomm/Umodbuscomm.h"

namespace ixocontroller {
using namespace ixocamglue;

struct TModbusOrder {
  std::uint8_t Func = kModbusRead;
  std::uint16_t Addr = 0;
  std::size_t Count = 1;             // registers or coils; up to the last address
  std::size_t ValueWords = 1;        // of one value
  std::vector<std::uint16_t> Words;  // to write; empty: it reads
  bool Strict = true;                // else the exact profile, in one request with waits of its own
  std::uint32_t TimeoutMs = 2000;    // strict, of one reply
  std::optional<std::uint16_t> ProbeRegister;
};

// What was transferred.
struct TModbusTransfer : TModbusResult {
  std::size_t Requests = 0;
};

// Strict: all of it by `deadlineMs` (MonotonicMs). Ends with the first request that fails. The thread that has the
// device; its Stop ends it.
[[nodiscard]] TModbusTransfer Transfer(TModbusComm& device, const TModbusOrder& order, std::uint64_t deadlineMs);

}  // namespace ixocontroller
