// Ranges of registers as requests of either profile.
#include <algorithm>
#include <utility>

#include "ixocamglue/devcomm/Umodbuscomm.h"

namespace ixocamglue {

TModbusResult TModbusComm::Range(std::uint8_t func, std::uint16_t addr, std::size_t count,
                                 std::span<const std::uint16_t> values, std::vector<std::uint16_t> registers) {
  TGuard guard(FLock);
  registers.clear();
  TModbusResult all{{}, std::move(registers)};
  const bool read = func == kModbusRead;
  const auto refuse = [&](const char* reason) {
    all.Outcome = moBadRequest;
    all.Reason = reason;
    return std::move(all);
  };
  if (count == 0) return refuse(read ? "the count is 0" : "there is no value to write");
  if (count > std::size_t{kModbusAddresses} - addr) return refuse("the range goes beyond register 65535");
  std::size_t most = read ? kModbusMostRead : kModbusMostWrite;
  if (FProfile == mpExact) {
    most = read ? 0xFFFF : 0xFF;  // the fields of a request hold no more
    if (count > most)
      return refuse(read ? "the count is beyond 65535" : "the exact profile writes at most 255 registers at once");
  }
  if (read) all.Registers.reserve(count);
  while (all.Ok() && all.Done < count) {
    const std::size_t part = std::min(count - all.Done, most);
    const auto request = Request(func, static_cast<std::uint16_t>(addr + all.Done), static_cast<std::uint16_t>(part),
                                 read ? values : values.subspan(all.Done, part));
    const TModbusAnswer answer = FProfile == mpStrict ? AskStrict(0, request, FReply) : AskExact(request, FReply);
    static_cast<TModbusEnd&>(all) = answer;
    all += answer;
    // An exception is the device's word that nothing was written.
    const bool answered = answer.Outcome == moException || (answer.Ok() && !request.Broadcast());
    if (!read && answer.BytesSent != 0 && !answered) all.Confirmed = false;
    if (!all.Ok()) break;
    all.Done += part;
    if (!read) continue;
    const std::size_t data = IsTCP ? 9 : 3;
    for (std::size_t at = data; at < data + 2 * part; at += 2)
      all.Registers.push_back(static_cast<std::uint16_t>(FReply[at] << 8 | FReply[at + 1]));
  }
  return all;
}

TModbusResult TModbusComm::ReadRegisters(std::uint16_t addr, std::uint32_t count, std::vector<std::uint16_t> reuse) {
  return Range(kModbusRead, addr, count, {}, std::move(reuse));
}

TModbusResult TModbusComm::WriteRegisters(std::uint16_t addr, std::span<const std::uint16_t> values, bool multiple) {
  return Range(values.size() == 1 && !multiple ? kModbusWriteOne : kModbusWriteMany, addr, values.size(), values, {});
}

}  // namespace ixocamglue
