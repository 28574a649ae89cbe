#include "controller/links/ModbusTransfer.h"

#include <algorithm>
#include <span>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

TModbusTransfer Transfer(TModbusComm& device, const TModbusOrder& order, std::uint64_t deadlineMs) {
  const std::size_t most = FindModbusFunction(order.Func)->Most;
  const std::size_t part = order.Strict ? most - most % order.ValueWords : order.Count;
  TModbusTransfer all;
  while (all.Ok() && all.Done < order.Count) {
    TModbusStrictOptions options;
    options.TimeoutMs = order.TimeoutMs;
    const std::uint64_t now = Clock().MonotonicMs();
    if (order.Strict && now >= deadlineMs) {
      all.Outcome = moTimeout;
      all.Reason = all.Requests == 0 ? TrMark("the time was over before the link stood")
                                     : TrMark("the time was over before all was transferred");
      break;
    }
    options.TotalMs = static_cast<std::uint32_t>(deadlineMs - now);
    options.ProbeRegister = order.ProbeRegister;
    options.ProbeFor = static_cast<std::uint32_t>((order.Count - all.Done + part - 1) / part);
    options.ClearOnSuccess = true;
    device.SetProfile(order.Strict ? mpStrict : mpExact, options);
    const auto addr = static_cast<std::uint16_t>(order.Addr + all.Done);
    const std::size_t count = std::min(part, order.Count - all.Done);
    const TModbusResult one = order.Words.empty()
                                  ? device.Read(order.Func, addr, static_cast<std::uint32_t>(count))
                                  : device.Write(order.Func, addr, std::span(order.Words).subspan(all.Done, count));
    static_cast<TModbusEnd&>(all) = one;
    all += one;
    ++all.Requests;
    all.Registers.insert(all.Registers.end(), one.Registers.begin(), one.Registers.end());
    all.Done += one.Done;
    all.Confirmed = all.Confirmed && one.Confirmed;
  }
  return all;
}

}  // namespace ixocontroller
