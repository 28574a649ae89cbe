#include "ixocamglue/devcomm/Umodbusframe.h"

#include <algorithm>
#include <iterator>

#include "ixocamglue/devcomm/Umodbusresult.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kTcpHeader = 6;
constexpr std::size_t kException = 3;  // unit, function, code
constexpr std::uint16_t kCoilOn = 0xFF00;
// Function; whether it writes, means bits, has a count, is of the exact profile; the most of one request.
constexpr TModbusFunction kFunctions[] = {
    {kModbusReadCoils, false, true, true, false, 2000, TrMark("a request reads at most 2000 coils")},
    {kModbusReadDiscrete, false, true, true, false, 2000, TrMark("a request reads at most 2000 discrete inputs")},
    {kModbusRead, false, false, true, true, 125, TrMark("a request reads at most 125 registers")},
    {kModbusReadInput, false, false, true, false, 125, TrMark("a request reads at most 125 registers")},
    {kModbusWriteCoil, true, true, false, false, 1, TrMark("the request writes one coil")},
    {kModbusWriteOne, true, false, false, true, 1, TrMark("the request writes one register")},
    {kModbusWriteCoils, true, true, true, false, 1968, TrMark("a request writes at most 1968 coils")},
    {kModbusWriteMany, true, false, true, true, 123, TrMark("a request writes at most 123 registers")},
};

std::uint8_t High(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }
std::uint8_t Low(std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFF); }
std::uint16_t WordAt(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

std::size_t BitBytes(std::size_t bits) { return (bits + 7) / 8; }
std::size_t DataBytes(const TModbusFunction& function, std::uint16_t count) {
  return function.Bits ? BitBytes(count) : std::size_t{2} * count;
}
// What the functions 5 and 6 have in the place of a count.
std::uint16_t OneValue(const TModbusRequest& request) {
  const std::uint16_t value = request.Values[0];
  return request.Func != kModbusWriteCoil ? value : value != 0 ? kCoilOn : std::uint16_t{0};
}

TReplyCheck Invalid(const char* reason, bool framed = true) { return {rsInvalid, 0, 0, reason, framed}; }

// Unit, function and what follows, as far as it has come in. `pdu` begins with the unit.
// Length becomes the bytes that this reply has from its unit on.
TReplyCheck CheckBody(const TModbusRequest& request, std::span<const std::uint8_t> pdu) {
  if (!pdu.empty() && pdu[0] != request.Unit) return Invalid(TrMark("the reply is another unit's"));
  if (pdu.size() < 2) return {};
  if (pdu[1] == (request.Func | 0x80)) {
    TReplyCheck check{rsException, kException, 0, "", true};
    if (pdu.size() < kException) return {rsMore, kException, 0, "", true};
    check.Exception = pdu[2];
    return check;
  }
  if (pdu[1] != request.Func) return Invalid(TrMark("the reply is to another function"));
  const TModbusFunction& function = *FindModbusFunction(request.Func);
  if (!function.Write) {
    const std::size_t data = DataBytes(function, request.Count);
    if (pdu.size() >= 3 && pdu[2] != data) return Invalid(TrMark("the reply has another number of bytes"));
    return {pdu.size() < 3 + data ? rsMore : rsWhole, 3 + data, 0, "", true};
  }
  constexpr std::size_t kEcho = 6;
  if (pdu.size() < kEcho) return {rsMore, kEcho, 0, "", true};
  if (WordAt(pdu, 2) != request.Addr) return Invalid(TrMark("the reply is to another address"));
  if (WordAt(pdu, 4) != (function.Many ? request.Count : OneValue(request)))
    return Invalid(function.Many ? TrMark("the reply has another count") : TrMark("the reply has another value"));
  return {rsWhole, kEcho, 0, "", true};
}

TReplyCheck CheckRtu(const TModbusRequest& request, std::span<const std::uint8_t> bytes) {
  TReplyCheck check = CheckBody(request, bytes);
  if (check.State == rsInvalid || check.Length == 0) return check;
  check.Length += 2;
  if (bytes.size() < check.Length) return {rsMore, check.Length, 0, "", true};
  const std::size_t body = check.Length - 2;
  const std::uint16_t crc = CalcCRC(bytes.data(), body, 0xFFFF);
  if (bytes[body] != Low(crc) || bytes[body + 1] != High(crc))
    return {rsInvalid, 0, 0, TrMark("the CRC is wrong"), true, true};
  return check;
}

TReplyCheck CheckTcp(const TModbusRequest& request, std::span<const std::uint8_t> bytes) {
  if (bytes.size() >= 4 && WordAt(bytes, 2) != 0) return Invalid(TrMark("this is no Modbus TCP header"), false);
  if (bytes.size() < kTcpHeader) return {};
  const std::size_t length = WordAt(bytes, 4);
  if (length < kException || length > 254) return Invalid(TrMark("the header's length is impossible"), false);
  const std::size_t whole = kTcpHeader + length;
  if (bytes.size() < whole) return {rsMore, whole, 0, "", true};
  if (WordAt(bytes, 0) != request.Transaction)
    return {rsForeign, whole, 0, TrMark("a reply has another transaction identifier"), true};
  TReplyCheck check = CheckBody(request, bytes.subspan(kTcpHeader, length));
  if (check.State == rsInvalid) return check;
  if (check.Length != length) return Invalid(TrMark("the header's length does not fit the reply"));
  check.Length = whole;
  return check;
}

}  // namespace

const TModbusFunction* FindModbusFunction(std::uint8_t func) {
  const auto* const found = std::ranges::find(kFunctions, func, &TModbusFunction::Func);
  return found == std::end(kFunctions) ? nullptr : found;
}

bool BuildModbusFrame(const TModbusRequest& request, TBytes& frame) {
  frame.clear();
  const TModbusFunction* const function = FindModbusFunction(request.Func);
  if (!function || (!function->Many && request.Values.empty())) return false;
  const bool many = function->Write && function->Many;

  frame.reserve(kTcpHeader + 7 + 2 * request.Values.size() + 2);
  const auto word = [&](std::uint16_t value) {
    frame.push_back(High(value));
    frame.push_back(Low(value));
  };
  const auto data = static_cast<std::uint8_t>(DataBytes(*function, request.Count));
  if (request.Tcp) {
    word(request.Transaction);
    word(0);
    frame.push_back(0);
    frame.push_back(many ? static_cast<std::uint8_t>(data + 7) : std::uint8_t{6});
  }
  frame.push_back(request.Unit);
  frame.push_back(request.Func);
  word(request.Addr);
  word(function->Many ? request.Count : OneValue(request));
  if (many) frame.push_back(data);
  const std::size_t at = frame.size();
  if (many && function->Bits) {
    frame.resize(at + BitBytes(request.Values.size()));
    for (std::size_t i = 0; i < request.Values.size(); ++i)
      if (request.Values[i] != 0) frame[at + i / 8] |= static_cast<std::uint8_t>(1u << i % 8);
  } else if (many) {
    frame.resize(at + 2 * request.Values.size());
    std::uint8_t* out = frame.data() + at;
    for (const std::uint16_t value : request.Values) {
      *out++ = High(value);
      *out++ = Low(value);
    }
  }
  if (!request.Tcp) {
    const std::uint16_t crc = CalcCRC(frame.data(), frame.size(), 0xFFFF);
    frame.push_back(Low(crc));
    frame.push_back(High(crc));
  }
  return true;
}

TReplyCheck CheckModbusReply(const TModbusRequest& request, std::span<const std::uint8_t> bytes) {
  return request.Tcp ? CheckTcp(request, bytes) : CheckRtu(request, bytes);
}

const char* ModbusExceptionName(std::uint8_t code) {
  switch (code) {
    case 1: return TrMark("illegal function");
    case 2: return TrMark("illegal data address");
    case 3: return TrMark("illegal data value");
    case 4: return TrMark("server device failure");
    case 5: return TrMark("acknowledge");
    case 6: return TrMark("server device busy");
    case 7: return TrMark("negative acknowledge");
    case 8: return TrMark("memory parity error");
    case 10: return TrMark("gateway path unavailable");
    case 11: return TrMark("gateway target device failed to respond");
    default: return TrMark("unknown exception");
  }
}

const char* ModbusProofName(TModbusProof proof) {
  switch (proof) {
    case mpfUnproved: return TrMark("unproved");
    case mpfProved: return TrMark("proved");
    case mpfException: return TrMark("exception");
    case mpfUnanswered: return TrMark("no answer");
    case mpfEchoed: return TrMark("echoed");
  }
  return "";
}

}  // namespace ixocamglue
