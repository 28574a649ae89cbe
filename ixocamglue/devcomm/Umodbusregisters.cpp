// Ranges of registers and bits as requests of either profile.
#include <algorithm>
#include <utility>

#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

TModbusResult TModbusComm::Range(bool write, std::uint8_t func, std::uint16_t addr, std::size_t count,
                                 std::span<const std::uint16_t> values, std::vector<std::uint16_t> registers) {
  TGuard guard(FLock);
  registers.clear();
  TModbusResult all{{}, std::move(registers)};
  const auto refuse = [&](const char* reason) {
    all.Outcome = moBadRequest;
    all.Reason = reason;
    return std::move(all);
  };
  const TModbusFunction* const function = FindModbusFunction(func);
  if (!function || function->Write != write)
    return refuse(write ? TrMark("the functions that write are 5, 6, 15 and 16")
                        : TrMark("the functions that read are 1 to 4"));
  const bool read = !write;
  if (count == 0) return refuse(read ? TrMark("the count is 0") : TrMark("there is no value to write"));
  if (count > std::size_t{kModbusAddresses} - addr) return refuse(TrMark("the range goes beyond address 65535"));
  if (!function->Many && count != 1) return refuse(function->TooMany);
  std::size_t most = function->Most;
  if (FProfile == mpExact) {
    if (!function->Exact) return refuse(TrMark("the exact profile has the functions 3, 6 and 16 only"));
    most = read ? 0xFFFF : 0xFF;  // the fields of a request hold no more
    if (count > most)
      return refuse(read ? TrMark("the count is beyond 65535")
                         : TrMark("the exact profile writes at most 255 registers at once"));
  }
  if (read) all.Registers.reserve(count);
  while (all.Ok() && all.Done < count) {
    const std::size_t part = std::min(count - all.Done, most);
    const auto request = Request(func, static_cast<std::uint16_t>(addr + all.Done), static_cast<std::uint16_t>(part),
                                 read ? values : values.subspan(all.Done, part));
    const TModbusAnswer answer = FProfile == mpStrict ? AskStrict(0, request, FReply) : AskExact(request, FReply);
    static_cast<TModbusEnd&>(all) = answer;
    all += answer;
    all.AskedMs = answer.AskedMs;
    all.Sent = all.Sent || answer.Sent;
    // An exception is the device's word that nothing was written.
    const bool answered = answer.Outcome == moException || (answer.Ok() && !request.Broadcast());
    if (!read && answer.Sent && !answered) all.Confirmed = false;
    if (!all.Ok()) break;
    all.Done += part;
    if (!read) continue;
    const std::size_t data = IsTCP ? 9 : 3;
    for (std::size_t i = 0; i < part; ++i) {
      const std::size_t at = data + (function->Bits ? i / 8 : 2 * i);
      all.Registers.push_back(
          static_cast<std::uint16_t>(function->Bits ? FReply[at] >> i % 8 & 1 : FReply[at] << 8 | FReply[at + 1]));
    }
  }
  return all;
}

TModbusResult TModbusComm::Read(std::uint8_t func, std::uint16_t addr, std::uint32_t count,
                                std::vector<std::uint16_t> reuse) {
  return Range(false, func, addr, count, {}, std::move(reuse));
}

TModbusResult TModbusComm::Write(std::uint8_t func, std::uint16_t addr, std::span<const std::uint16_t> values) {
  return Range(true, func, addr, values.size(), values, {});
}

TModbusResult TModbusComm::ReadRegisters(std::uint16_t addr, std::uint32_t count, std::vector<std::uint16_t> reuse) {
  return Read(kModbusRead, addr, count, std::move(reuse));
}

TModbusResult TModbusComm::WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values, bool multiple) {
  return Write(values.size() == 1 && !multiple ? kModbusWriteOne : kModbusWriteMany, addr, values);
}

}  // namespace ixocamglue
