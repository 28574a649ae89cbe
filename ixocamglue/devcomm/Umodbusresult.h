// How the strict profile is set, and what a request came to. Values; any thread. Times ms, where a name does not end in
// Us. Nothing here fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ixocamglue {

// Exact: fixed waits, the reply check and the latched error state of TModbusComm. Strict: a reply is taken as soon as
// it is whole, and must be the reply to this request.
enum class TModbusProfile : std::uint8_t { mpExact, mpStrict };
using enum TModbusProfile;

enum class TModbusOutcome : std::uint8_t {
  moOk,
  moTimeout,
  moInvalid,
  moNoConnection,
  moException,
  moBadRequest,
  moStopped
};
using enum TModbusOutcome;
inline constexpr std::size_t kModbusOutcomes = 7;

// What is known of the link that the last request used. A line that sends back whatever it is given confirms every
// write of one value; the echo of a read is no reply to it.
enum class TModbusProof : std::uint8_t {
  mpfUnproved,    // no probe register was read on this link
  mpfProved,      // a device replied
  mpfException,   // a device replied with an exception
  mpfUnanswered,  // no valid reply came
  mpfEchoed       // the request came back: writes are refused
};
using enum TModbusProof;
// "unproved", "proved", "exception", "no answer", "echoed"; for Tr
[[nodiscard]] const char* ModbusProofName(TModbusProof proof);

struct TModbusStrictOptions {
  std::uint32_t TimeoutMs = 2000;  // of one attempt, from the end of the send (and PreDelay)
  std::uint32_t ConnectMs = 1000;
  std::uint32_t Retries = 1;      // after a time-out, an invalid reply or a lost connection
  bool RetryWrites = false;       // a write whose request was sent is not repeated unless this is set
  bool ClearOnSuccess = false;    // a good reply clears LastError
  std::uint32_t BackoffMs = 200;  // after a connect that failed, doubling up to the most
  std::uint32_t BackoffMostMs = 5000;
  // RTU framing carries nothing that tells a late reply from the next one. After a request without its reply a TCP
  // connection is made anew, and any other line must be silent for this long (0: the time-out, at least 3000 ms). A
  // reply that comes later still is taken for the next request's; so is one to a request of another object or process
  // that used the line before.
  std::uint32_t LateReplyMs = 0;
  // Instead of that silence: a request goes out whatever is owed over RTU framing, and late replies to others are known
  // by what they look like (unit, function and length; of a write its address and value) and dropped. A unit answers in
  // order: what it owed is owed no more behind a reply that no older request could have. Only a read whose reply would
  // look like one that is owed to a read of other addresses has to wait, until that was sent LateReplyMs ago (see
  // TModbusComm::HeldMs): moTimeout, with nothing sent. Nobody else may ask anything on the line.
  bool TellApart = false;
  // From the beginning of a request until it is given up, its attempts together; 0: they have no common limit. An
  // attempt ends with it, and another one begins only if at least half of its time is left, on a line that has to fall
  // silent all of it. Of a long range each request has this time.
  std::uint32_t TotalMs = 0;
  // Read once on each link before the first write that asks for a reply, within TotalMs; none: writes are unproved.
  // Without a valid reply they are allowed, unless it was their echo. The write is refused when what the probe leaves
  // of TotalMs is less than half of an attempt, or than ProbeFor times what the probe took.
  std::optional<std::uint16_t> ProbeRegister;
  std::uint32_t ProbeFor = 1;  // the requests that TotalMs has to do for, the one that is asked included
};

// What requests cost.
struct TModbusTraffic {
  std::uint64_t Attempts = 0;
  std::uint64_t Connects = 0;
  std::uint64_t OpenUs = 0;  // connecting
  std::uint64_t SendUs = 0;  // handing over
  std::uint64_t WaitUs = 0;  // from the end of the send to the outcome
  std::uint64_t ElapsedUs = 0;
  std::uint64_t BytesSent = 0;
  std::uint64_t BytesReceived = 0;
  std::uint64_t Foreign = 0;     // late replies of other transactions, dropped
  std::uint64_t StaleBytes = 0;  // thrown away before the send, and behind the reply
  std::uint64_t Owed = 0;        // requests over RTU framing whose reply may still come
  std::uint64_t TimedOut = 0;    // those of them that waited their time in vain
  std::uint64_t Drained = 0;     // bytes that came while the line had to be silent

  TModbusTraffic& operator+=(const TModbusTraffic& more) {
    Attempts += more.Attempts;
    Connects += more.Connects;
    OpenUs += more.OpenUs;
    SendUs += more.SendUs;
    WaitUs += more.WaitUs;
    ElapsedUs += more.ElapsedUs;
    BytesSent += more.BytesSent;
    BytesReceived += more.BytesReceived;
    Foreign += more.Foreign;
    StaleBytes += more.StaleBytes;
    Owed += more.Owed;
    TimedOut += more.TimedOut;
    Drained += more.Drained;
    return *this;
  }
};

// How one request ended, or the last of those that a long range was split into.
struct TModbusEnd {
  TModbusOutcome Outcome = moOk;
  const char* Reason = "";     // in English, for Tr: what was wrong, where there is more to say than the outcome
  std::uint8_t Exception = 0;  // the code; see ModbusExceptionName

  [[nodiscard]] bool Ok() const { return Outcome == moOk; }
};

// One request and what it cost.
struct TModbusAnswer : TModbusEnd, TModbusTraffic {
  bool Sent = false;  // the request went out; a probe's bytes count as traffic only
  // Strict: when the oldest request was sent that the reply may be to, monotonic ms: what it says may be as old.
  std::uint64_t AskedMs = 0;
};

// The registers or bits of a range, and what its requests cost together.
struct TModbusResult : TModbusAnswer {
  std::vector<std::uint16_t> Registers;  // of bits: 0 or 1 each
  std::size_t Done = 0;                  // registers or bits read or written before the first failure
  bool Confirmed = true;                 // false: a write went out and no reply says what became of it
};

}  // namespace ixocamglue
