// The reply path of one framing: any bytes, in any division, against any request.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <span>
#include <vector>

#include "ixocamglue/devcomm/Umodbuscomm.h"

namespace ixocamglue::fuzz {

inline void TakeReply(bool tcp, std::span<const std::uint8_t> input) {
  if (input.size() < 6) return;
  constexpr std::uint8_t kFuncs[] = {3, 6, 16, 1, 2, 4, 5, 15};
  TModbusRequest request;
  request.Tcp = tcp;
  request.Func = kFuncs[input[0] % std::size(kFuncs)];
  request.Unit = input[1];
  request.Count = static_cast<std::uint16_t>(1 + input[2] % 125);
  request.Addr = static_cast<std::uint16_t>(input[3] << 8 | input[4]);
  request.Transaction = input[5];
  const std::vector<std::uint16_t> values(request.Count, input[3]);
  request.Values = values;

  const auto bytes = input.subspan(6);
  bool final = false;
  for (std::size_t size = 0; size <= bytes.size() && !final; ++size) {
    const std::vector<std::uint8_t> seen(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    const TReplyCheck check = CheckModbusReply(request, seen);
    final = check.State != rsMore;
    // A verdict names a frame that is there, and more bytes behind it do not change it.
    if (final && check.State != rsInvalid) {
      if (check.Length == 0 || check.Length > size) std::abort();
      const TReplyCheck all = CheckModbusReply(request, bytes);
      if (all.State != check.State || all.Length != check.Length) std::abort();
    }
    if (check.State == rsMore && size >= 260) std::abort();  // nothing is waited for beyond a frame's length
  }
  static TModbusComm device("fuzz");
  device.IsTCP = tcp;
  const TBytes whole(bytes.begin(), bytes.end());
  if (device.CheckDatavalid(whole) && whole.size() < 7) std::abort();
}

}  // namespace ixocamglue::fuzz
