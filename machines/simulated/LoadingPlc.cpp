#include "machines/simulated/LoadingPlc.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ixocamglue/platform/comm/Crc.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kHeader = 6;  // TCP, before the unit
constexpr std::size_t kMost = 260;
constexpr std::size_t kBabble = 24;
constexpr std::uint16_t kCoilOn = 0xFF00;
constexpr std::uint8_t kStray[] = {0x00, 0xFF};

std::uint16_t Word(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// What one request may ask for.
struct TFunctionLimits {
  std::uint8_t Func;
  std::size_t Most;  // 1: it has no count
  bool Bits;
};
constexpr TFunctionLimits kLimits[] = {{1, 2000, true}, {2, 2000, true}, {3, 125, false},  {4, 125, false},
                                       {5, 1, true},    {6, 1, false},   {15, 1968, true}, {16, 123, false}};

const TFunctionLimits* LimitsOf(std::uint8_t func) {
  const auto* const found = std::ranges::find(kLimits, func, &TFunctionLimits::Func);
  return found == std::end(kLimits) ? nullptr : found;
}

TPlcTable TableOf(std::uint8_t func) {
  switch (func) {
    case 1:
    case 5:
    case 15: return ptCoils;
    case 2: return ptInputs;
    case 4: return ptInputRegisters;
    default: return ptRegisters;
  }
}

void Append(TBytes& bytes, std::uint16_t word) {
  bytes.push_back(static_cast<std::uint8_t>(word >> 8));
  bytes.push_back(static_cast<std::uint8_t>(word & 0xFF));
}

}  // namespace

std::size_t TLoadingPlc::RequestLength() const {
  if (FTcp) return FIn.size() < kHeader ? 0 : kHeader + Word(FIn, 4);
  if (FIn.size() < 2) return 0;
  switch (FIn[1]) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 6: return 8;
    case 15:
    case 16: return FIn.size() < 7 ? 0 : std::size_t{9} + FIn[6];
    default: return 0;
  }
}

bool TLoadingPlc::Good(std::span<const std::uint8_t> request) const {
  if (FTcp) return request.size() >= kHeader + 2 && Word(request, 2) == 0;
  if (request.size() < 4) return false;
  const std::size_t body = request.size() - 2;
  return CalcCRC(request.data(), body, 0xFFFF) == (request[body] | request[body + 1] << 8);
}

std::vector<TPlcAnswer> TLoadingPlc::Take(std::span<const std::uint8_t> bytes) {
  std::vector<TPlcAnswer> answers;
  FIn.insert(FIn.end(), bytes.begin(), bytes.end());
  for (;;) {
    const std::size_t length = RequestLength();
    if (FTcp && length > kMost) {  // no Modbus: the stream cannot be cut into requests any more
      FIn.clear();
      answers.push_back({{}, 0, true});
    }
    if (length == 0 || FIn.size() < length) return answers;
    const TBytes request(FIn.begin(), FIn.begin() + static_cast<std::ptrdiff_t>(length));
    FIn.erase(FIn.begin(), FIn.begin() + static_cast<std::ptrdiff_t>(length));
    if (Good(request)) Answer(request, answers);
  }
}

std::vector<TPlcAnswer> TLoadingPlc::FallSilent() {
  std::vector<TPlcAnswer> answers;
  if (FTcp) return answers;
  const TBytes request = std::exchange(FIn, {});
  if (Good(request)) Answer(request, answers);
  return answers;
}

TBytes TLoadingPlc::Babble() {
  TBytes noise;
  if (FBank.Fault != pfBabble) return noise;
  for (std::size_t i = 0; i < kBabble; ++i) {
    FNoise ^= FNoise << 13;
    FNoise ^= FNoise >> 17;
    FNoise ^= FNoise << 5;
    noise.push_back(static_cast<std::uint8_t>(FNoise & 0xFF));
  }
  return noise;
}

TBytes TLoadingPlc::Execute(std::span<const std::uint8_t> pdu) {
  const std::uint8_t func = pdu[1];
  const auto exception = [&](std::uint8_t code) {
    return TBytes{pdu[0], static_cast<std::uint8_t>(func | 0x80), code};
  };
  if (FBank.Fault == pfException) return exception(4);
  const TFunctionLimits* const limits = LimitsOf(func);
  if (!limits) return exception(1);
  if (pdu.size() < 6) return exception(3);
  const std::size_t addr = Word(pdu, 2);
  const std::size_t count = limits->Most == 1 ? 1 : Word(pdu, 4);
  if (count == 0 || count > limits->Most) return exception(3);
  const bool bits = limits->Bits;
  if (func >= 15) {
    const std::size_t data = bits ? (count + 7) / 8 : 2 * count;
    if (pdu.size() != 7 + data || pdu[6] != data) return exception(3);
  }
  if (func == 5 && Word(pdu, 4) != kCoilOn && Word(pdu, 4) != 0) return exception(3);
  if (FBank.Device) FBank.Device->CatchUp();
  if (!Has(TableOf(func), addr, count)) return exception(2);
  return func <= 4 ? Read(pdu, addr, count) : Write(pdu, addr, count);
}

bool TLoadingPlc::Has(TPlcTable table, std::size_t addr, std::size_t count) const {
  if (!FBank.Device)
    return addr + count <= (table == ptCoils || table == ptInputs ? FBank.Coils.size() : FBank.Registers.size());
  for (std::size_t i = addr; i < addr + count; ++i)
    if (!FBank.Device->Has(table, i)) return false;
  return true;
}

std::uint16_t TLoadingPlc::Get(TPlcTable table, std::size_t addr) const {
  if (FBank.Device) return FBank.Device->Get(table, addr);
  if (table == ptRegisters || table == ptInputRegisters) return FBank.Registers[addr];
  return FBank.Coils[addr] ? 1 : 0;
}

void TLoadingPlc::Set(TPlcTable table, std::size_t addr, std::uint16_t value) {
  if (FBank.Device)
    FBank.Device->Set(table, addr, value);
  else if (table == ptRegisters)
    FBank.Registers[addr] = value;
  else
    FBank.Coils[addr] = value != 0;
}

TBytes TLoadingPlc::Read(std::span<const std::uint8_t> pdu, std::size_t addr, std::size_t count) const {
  const TPlcTable table = TableOf(pdu[1]);
  TBytes reply(pdu.begin(), pdu.begin() + 2);
  if (pdu[1] <= 2) {
    reply.resize(3 + (count + 7) / 8);
    reply[2] = static_cast<std::uint8_t>(reply.size() - 3);
    for (std::size_t i = 0; i < count; ++i)
      if (Get(table, addr + i) != 0) reply[3 + i / 8] |= static_cast<std::uint8_t>(1 << i % 8);
    return reply;
  }
  reply.push_back(static_cast<std::uint8_t>(2 * count));
  for (std::size_t i = 0; i < count; ++i) Append(reply, Get(table, addr + i));
  return reply;
}

TBytes TLoadingPlc::Write(std::span<const std::uint8_t> pdu, std::size_t addr, std::size_t count) {
  const TPlcTable table = TableOf(pdu[1]);
  for (std::size_t i = 0; i < count; ++i) switch (pdu[1]) {
      case 5: Set(table, addr, Word(pdu, 4) != 0 ? 1 : 0); break;
      case 6: Set(table, addr, Word(pdu, 4)); break;
      case 15: Set(table, addr + i, pdu[7 + i / 8] >> i % 8 & 1); break;
      default: Set(table, addr + i, Word(pdu, 7 + 2 * i)); break;
    }
  return {pdu.begin(), pdu.begin() + 6};
}

TBytes TLoadingPlc::Frame(std::span<const std::uint8_t> request, TBytes pdu) const {
  if (FBank.Fault == pfWrongUnit) ++pdu[0];
  if (FTcp) {
    TBytes frame(request.begin(), request.begin() + 4);
    if (FBank.Fault == pfWrongCrc) frame[3] ^= 0x55;
    Append(frame, static_cast<std::uint16_t>(pdu.size()));
    frame.insert(frame.end(), pdu.begin(), pdu.end());
    return frame;
  }
  const std::uint16_t crc = CalcCRC(pdu.data(), pdu.size(), 0xFFFF);
  pdu.push_back(static_cast<std::uint8_t>(crc & 0xFF));
  pdu.push_back(static_cast<std::uint8_t>(crc >> 8));
  if (FBank.Fault == pfWrongCrc) pdu.back() ^= 0x55;
  return pdu;
}

void TLoadingPlc::Answer(std::span<const std::uint8_t> request, std::vector<TPlcAnswer>& answers) {
  const auto pdu = FTcp ? request.subspan(kHeader) : request.first(request.size() - 2);
  const bool broadcast = pdu[0] == 0 && !FTcp;
  const bool anyUnit = FTcp && (pdu[0] == 0 || pdu[0] == 0xFF);  // the device itself, not one behind it
  if (pdu[0] != FBank.Unit && !broadcast && !anyUnit) {
    if (FTcp && FBank.Fault == pfNone)
      answers.push_back({Frame(request, {pdu[0], static_cast<std::uint8_t>(pdu[1] | 0x80), 11}), 0, false});
    return;
  }
  TPlcAnswer answer{Frame(request, Execute(pdu)), 0, false};
  if (broadcast) return;
  const std::size_t before = answers.size();
  Misbehave(request, std::move(answer), answers);
  if (answers.size() > before) ++FBank.Answered;
}

void TLoadingPlc::Misbehave(std::span<const std::uint8_t> request, TPlcAnswer answer,
                            std::vector<TPlcAnswer>& answers) {
  TBytes& bytes = answer.Bytes;
  switch (FBank.Fault) {
    case pfSilent: return;
    case pfLate: answer.DelayMs = kLateMs; break;
    case pfStale:
      std::swap(bytes, FBefore);
      if (bytes.empty()) return;
      break;
    case pfHalf: bytes.resize(bytes.size() / 2); break;
    case pfClose:
      if (!FConnection) return;
      answer = {{}, 0, true};
      break;
    case pfCloseAfter: answer.Close = FConnection; break;
    case pfDeaf:
      if (!std::exchange(FAwake, true)) return;
      break;
    case pfEcho: bytes.assign(request.begin(), request.end()); break;
    case pfLocalEcho: answers.push_back({{request.begin(), request.end()}, 0, false}); break;
    case pfDouble: answers.push_back(answer); break;
    case pfTrailing: bytes.insert(bytes.end(), std::begin(kStray), std::end(kStray)); break;
    case pfLeading: bytes.insert(bytes.begin(), kStray[0]); break;
    case pfGaps:
      answers.push_back({{bytes.begin(), bytes.begin() + 3}, 0, false});
      bytes.erase(bytes.begin(), bytes.begin() + 3);
      answer.DelayMs = kGapMs;
      break;
    case pfNone:
    case pfWrongUnit:
    case pfWrongCrc:
    case pfException:
    case pfBabble: break;
  }
  answers.push_back(std::move(answer));
}

}  // namespace ixocamglue
