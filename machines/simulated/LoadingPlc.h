// The loading PLC as its bus sees it: holding registers behind Modbus RTU or TCP, functions 3, 6 and 16, and the ways
// in which such a device misbehaves. Bytes in, bytes out: who carries them, and when, is the caller's business.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

enum class TPlcFault : std::uint8_t {
  pfNone,
  pfSilent,     // takes requests and says nothing
  pfWrongUnit,  // answers as the next unit
  pfWrongCrc,   // RTU: a wrong CRC; TCP: a wrong protocol identifier
  pfException,  // answers every request with exception 4
  pfLate,       // answers after kLateMs, when nobody waits any more
  pfStale,      // answers with the reply to the request before
  pfHalf,       // sends the first half of the reply
  pfBabble,     // sends bytes that nobody asked for, all the time
  pfClose,      // TCP: closes the connection instead of answering; serial line: silent
};
using enum TPlcFault;

struct TPlcFaultName {
  std::string_view Name;
  TPlcFault Fault;
};
inline constexpr std::array<TPlcFaultName, 9> kPlcFaults{{{"silent", pfSilent},
                                                          {"wrong-unit", pfWrongUnit},
                                                          {"wrong-crc", pfWrongCrc},
                                                          {"exception", pfException},
                                                          {"late", pfLate},
                                                          {"stale", pfStale},
                                                          {"half", pfHalf},
                                                          {"babble", pfBabble},
                                                          {"close", pfClose}}};

struct TPlcAnswer {
  TBytes Bytes;
  std::uint32_t DelayMs = 0;
  bool Close = false;
};

// What all links of one PLC share.
struct TPlcBank {
  std::uint8_t Unit = 1;
  TPlcFault Fault = pfNone;
  std::vector<std::uint16_t> Registers = std::vector<std::uint16_t>(10'000);  // addresses beyond give exception 2
};

// One link to the PLC.
class TLoadingPlc {
 public:
  static constexpr std::uint32_t kLateMs = 2500;

  TLoadingPlc(TPlcBank& bank, bool tcp) : FBank(bank), FTcp(tcp) {}

  // Bytes that came in; the answers to the requests that are now whole.
  [[nodiscard]] std::vector<TPlcAnswer> Take(std::span<const std::uint8_t> bytes);
  // Nothing came in for a while: an RTU request of unknown length has ended, and broken bytes are forgotten.
  [[nodiscard]] std::vector<TPlcAnswer> FallSilent();
  // What a babbling device says without being asked; empty for any other.
  [[nodiscard]] TBytes Babble();

 private:
  // The length of the request at the start of what came in; 0 when it is not known yet.
  [[nodiscard]] std::size_t RequestLength() const;
  [[nodiscard]] bool Good(std::span<const std::uint8_t> request) const;
  void Answer(std::span<const std::uint8_t> request, std::vector<TPlcAnswer>& answers);
  // Unit, function and data.
  [[nodiscard]] TBytes Execute(std::span<const std::uint8_t> pdu);
  [[nodiscard]] TBytes Frame(std::span<const std::uint8_t> request, TBytes pdu) const;

  TPlcBank& FBank;
  const bool FTcp;
  TBytes FIn;
  TBytes FBefore;  // the reply to the request before
  std::uint32_t FNoise = 0x2545F491;
};

}  // namespace ixocamglue
