// Modbus frames: building a request, and looking at the bytes of a reply while they come in. No state; any thread.
// Nothing throws: what is no such frame is answered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

inline constexpr std::uint8_t kModbusReadCoils = 1;
inline constexpr std::uint8_t kModbusReadDiscrete = 2;
inline constexpr std::uint8_t kModbusRead = 3;  // holding registers
inline constexpr std::uint8_t kModbusReadInput = 4;
inline constexpr std::uint8_t kModbusWriteCoil = 5;
inline constexpr std::uint8_t kModbusWriteOne = 6;
inline constexpr std::uint8_t kModbusWriteCoils = 15;
inline constexpr std::uint8_t kModbusWriteMany = 16;
inline constexpr std::uint32_t kModbusAddresses = 0x10000;

struct TModbusFunction {
  std::uint8_t Func;
  bool Write;
  bool Bits;            // coils and discrete inputs; else registers
  bool Many;            // the request has a count
  bool Exact;           // of the exact profile too
  std::uint16_t Most;   // of one request
  const char* TooMany;  // for Tr: why a request with more is refused
};
[[nodiscard]] const TModbusFunction* FindModbusFunction(std::uint8_t func);  // null for any other

struct TModbusRequest {
  bool Tcp = false;               // header instead of CRC
  std::uint16_t Transaction = 0;  // TCP
  std::uint8_t Unit = 1;
  std::uint8_t Func = kModbusRead;
  std::uint16_t Addr = 0;                 // protocol address, 0 to 65535
  std::uint16_t Count = 0;                // registers or bits; the functions 5 and 6 have none
  std::span<const std::uint16_t> Values;  // of a bit: 0 or 1

  [[nodiscard]] bool Broadcast() const { return Unit == 0 && !Tcp; }  // to every unit of a line; none answers
};

// Replaces `frame`. False and empty for another function, and for the functions 5 and 6 without a value.
// Kept: the byte count of function 16, and the header's length, are 8-bit arithmetic on the low byte of Count, while
// every element of Values is written.
[[nodiscard]] bool BuildModbusFrame(const TModbusRequest& request, TBytes& frame);

enum class TReplyState : std::uint8_t {
  rsMore,       // so far a good reply; more is to come
  rsWhole,      // the reply to this request
  rsException,  // its exception reply; Exception is set
  rsForeign,    // a whole reply to another transaction
  rsInvalid,    // no reply to this request; Reason says why
};
using enum TReplyState;

struct TReplyCheck {
  TReplyState State = rsMore;
  std::size_t Length = 0;      // of the frame at the start of the bytes: whole, exception and foreign
  std::uint8_t Exception = 0;  // the exception code
  const char* Reason = "";     // for Tr; why it is invalid, or what makes it foreign
  bool Framed = true;          // false: the bytes cannot be cut into frames any more
  bool Damaged = false;        // invalid by its CRC alone: this was the reply, and no other is to come
};

// Looks at what has come in of the reply to `request`: length from the header or the function code; unit, function,
// byte count, echo, transaction, protocol and CRC must match. Reads `bytes` only.
[[nodiscard]] TReplyCheck CheckModbusReply(const TModbusRequest& request, std::span<const std::uint8_t> bytes);

// "illegal data address" for 2; "unknown exception" for a number without a name; for Tr.
[[nodiscard]] const char* ModbusExceptionName(std::uint8_t code);

}  // namespace ixocamglue
