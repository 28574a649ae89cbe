// The loading PLC as its bus sees it: holding registers (functions 3, 6 and 16) and coils (1, 5 and 15) behind Modbus
// RTU or TCP; input registers (4) and discrete inputs (2) show the same values, unless it has a device behind its
// addresses. And the ways in which such a device misbehaves. Bytes in, bytes out: who carries them, and when, is the
// caller's business. What it refuses is an exception code of Modbus in its answer; nothing fails.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

enum class TPlcFault : std::uint8_t {
  pfNone,
  pfSilent,      // takes requests and says nothing
  pfWrongUnit,   // answers as the next unit
  pfWrongCrc,    // RTU: a wrong CRC; TCP: a wrong protocol identifier
  pfException,   // answers every request with exception 4
  pfLate,        // answers after kLateMs, when nobody waits any more
  pfStale,       // answers with the reply to the request before
  pfHalf,        // sends the first half of the reply
  pfBabble,      // sends bytes that nobody asked for, all the time
  pfClose,       // TCP: closes the connection instead of answering; serial line: silent
  pfCloseAfter,  // TCP: closes the connection after each reply
  pfDeaf,        // the first request of a connection, or since the start, is not answered
  pfEcho,        // only the request itself comes back
  pfLocalEcho,   // the request itself, and then the reply
  pfDouble,      // each reply twice
  pfTrailing,    // two stray bytes behind each reply
  pfLeading,     // one in front of it
  pfGaps,        // kGapMs within each reply
};
using enum TPlcFault;

struct TPlcFaultName {
  std::string_view Name;
  TPlcFault Fault;
};
inline constexpr TPlcFaultName kPlcFaults[] = {{"silent", pfSilent},
                                               {"wrong-unit", pfWrongUnit},
                                               {"wrong-crc", pfWrongCrc},
                                               {"exception", pfException},
                                               {"late", pfLate},
                                               {"stale", pfStale},
                                               {"half", pfHalf},
                                               {"babble", pfBabble},
                                               {"close", pfClose},
                                               {"close-after", pfCloseAfter},
                                               {"deaf", pfDeaf},
                                               {"echo", pfEcho},
                                               {"local-echo", pfLocalEcho},
                                               {"double", pfDouble},
                                               {"trailing", pfTrailing},
                                               {"leading", pfLeading},
                                               {"gaps", pfGaps}};

struct TPlcAnswer {
  TBytes Bytes;
  std::uint32_t DelayMs = 0;
  bool Close = false;
};

enum class TPlcTable : std::uint8_t { ptCoils, ptInputs, ptRegisters, ptInputRegisters };
using enum TPlcTable;

// What is behind a PLC's addresses, where that is more than memory. Bits are 0 or 1.
class IPlcDevice {
 public:
  virtual ~IPlcDevice() = default;
  [[nodiscard]] virtual bool Has(TPlcTable table, std::size_t addr) const = 0;  // false: exception 2
  // Of an address that it has; Set of coils and registers only.
  [[nodiscard]] virtual std::uint16_t Get(TPlcTable table, std::size_t addr) = 0;
  virtual void Set(TPlcTable table, std::size_t addr, std::uint16_t value) = 0;
  // Before each request, and at least every 20 ms while somebody serves.
  virtual void CatchUp() {}
};

// What all links of one PLC share.
struct TPlcBank {
  std::uint8_t Unit = 1;
  IPlcDevice* Device = nullptr;  // instead of the memory; not owned
  TPlcFault Fault = pfNone;
  std::vector<std::uint16_t> Registers = std::vector<std::uint16_t>(10'000);  // addresses beyond give exception 2
  std::vector<bool> Coils = std::vector<bool>(10'000);
  std::uint64_t Answered = 0;  // requests
};

// One link to the PLC.
class TLoadingPlc {
 public:
  static constexpr std::uint32_t kLateMs = 2500;
  static constexpr std::uint32_t kGapMs = 80;

  TLoadingPlc(TPlcBank& bank, bool tcp) : TLoadingPlc(bank, tcp, tcp) {}
  // `tcp`: the framing; `connection`: a link that it can close, whatever its framing.
  TLoadingPlc(TPlcBank& bank, bool tcp, bool connection) : FBank(bank), FTcp(tcp), FConnection(connection) {}

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
  // The answer as the fault makes it.
  void Misbehave(std::span<const std::uint8_t> request, TPlcAnswer answer, std::vector<TPlcAnswer>& answers);
  // Unit, function and data.
  [[nodiscard]] TBytes Execute(std::span<const std::uint8_t> pdu);
  // Their registers or coils are all there.
  [[nodiscard]] bool Has(TPlcTable table, std::size_t addr, std::size_t count) const;
  [[nodiscard]] std::uint16_t Get(TPlcTable table, std::size_t addr) const;
  void Set(TPlcTable table, std::size_t addr, std::uint16_t value);
  [[nodiscard]] TBytes Read(std::span<const std::uint8_t> pdu, std::size_t addr, std::size_t count) const;
  [[nodiscard]] TBytes Write(std::span<const std::uint8_t> pdu, std::size_t addr, std::size_t count);
  [[nodiscard]] TBytes Frame(std::span<const std::uint8_t> request, TBytes pdu) const;

  TPlcBank& FBank;
  const bool FTcp;
  const bool FConnection;
  TBytes FIn;
  TBytes FBefore;       // the reply to the request before
  bool FAwake = false;  // a request has come
  std::uint32_t FNoise = 0x2545F491;
};

}  // namespace ixocamglue
