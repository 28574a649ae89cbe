// What a request came to, how the strict profile is set, and what a device keeps for a fault report.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

// Exact: fixed waits, the reply check and the latched error state of TModbusComm. Strict: a reply is taken as soon as
// it is whole, and must be the reply to this request.
enum class TModbusProfile : std::uint8_t { mpExact, mpStrict };
using enum TModbusProfile;

enum class TModbusOutcome : std::uint8_t { moOk, moTimeout, moInvalid, moNoConnection, moException, moBadRequest };
using enum TModbusOutcome;

struct TModbusStrictOptions {
  std::uint32_t TimeoutMs = 2000;  // of one attempt, from the end of the send (and PreDelay)
  std::uint32_t ConnectMs = 1000;
  std::uint32_t Retries = 1;      // after a time-out, an invalid reply or a lost connection
  bool RetryWrites = false;       // a write whose request was sent is not repeated unless this is set
  bool ClearOnSuccess = false;    // a good reply clears LastError
  std::uint32_t BackoffMs = 200;  // after a connect that failed, doubling up to the most
  std::uint32_t BackoffMostMs = 5000;
};

// Of one request; of all its parts where a long range was split. Reused results keep their capacity.
struct TModbusResult {
  TModbusOutcome Outcome = moOk;
  const char* Reason = "";     // a literal: what was wrong, where there is more to say than the outcome
  std::uint8_t Exception = 0;  // the code; see ModbusExceptionName
  std::vector<std::uint16_t> Registers;
  std::size_t Done = 0;  // registers read or written before the first failure
  std::uint32_t Attempts = 0;
  std::uint64_t OpenUs = 0;  // connecting
  std::uint64_t SendUs = 0;  // draining and sending
  std::uint64_t WaitUs = 0;  // from the end of the send to the outcome
  std::uint64_t ElapsedUs = 0;
  std::size_t BytesSent = 0;
  std::size_t BytesReceived = 0;
  std::uint32_t Foreign = 0;   // late replies of other transactions, dropped
  std::size_t StaleBytes = 0;  // thrown away before the send, and behind the reply

  [[nodiscard]] bool Ok() const { return Outcome == moOk; }
};

struct TModbusStatistics {
  std::uint64_t Requests = 0, Ok = 0, Timeouts = 0, Invalid = 0, NoConnection = 0, Exceptions = 0, BadRequests = 0;
  std::uint64_t Retries = 0, Connects = 0, Foreign = 0, StaleBytes = 0, BytesSent = 0, BytesReceived = 0;
  std::uint64_t LongestUs = 0, TotalUs = 0;  // of requests that ended well
};

// The last frames of a device. Slots keep their capacity: recording allocates nothing in the long run.
class TModbusFrameLog {
 public:
  static constexpr std::size_t kKept = 32;
  static constexpr std::size_t kFrame = 264;  // the longest frame, and a little
  struct TEntry {
    std::uint64_t TimeUs = 0;  // monotonic
    bool Sent = false;
    TBytes Bytes;
  };

  TModbusFrameLog() {
    for (TEntry& entry : FRing) entry.Bytes.reserve(kFrame);
  }
  void Add(std::uint64_t timeUs, bool sent, const TBytes& bytes) {
    TEntry& entry = FRing[FAdded++ % kKept];
    entry.TimeUs = timeUs;
    entry.Sent = sent;
    entry.Bytes.assign(bytes.begin(), bytes.end());
  }
  [[nodiscard]] std::vector<TEntry> Oldest() const {  // first
    std::vector<TEntry> all;
    for (std::size_t i = FAdded < kKept ? 0 : FAdded - kKept; i < FAdded; ++i) all.push_back(FRing[i % kKept]);
    return all;
  }

 private:
  std::array<TEntry, kKept> FRing;
  std::size_t FAdded = 0;
};

}  // namespace ixocamglue
