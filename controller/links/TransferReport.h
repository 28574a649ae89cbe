// What is told of a transfer: lines for people, JSON for programs. Any thread, in its language. Nothing fails.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "controller/links/DeviceLink.h"
#include "controller/links/ModbusTransfer.h"
#include "controller/links/ModbusValues.h"

namespace ixocontroller {

// What was asked for.
struct TTransferAsked {
  TLinkAddress Link;
  std::uint8_t Unit = 1;
  const char* Table = "holding";  // "holding", "input", "coils", "discrete"
  TModbusOrder Order = {};
  bool Write = false;
  TValueForm Form = {};
  std::string Type, ByteOrder;  // the form's names
};

[[nodiscard]] nlohmann::ordered_json TransferJson(const TTransferAsked& asked, const TModbusTransfer& result,
                                                  TModbusProof proof);
// The values, each with its address and its registers; what was written, how it ended and what it took.
[[nodiscard]] std::string TransferText(const TTransferAsked& asked, const TModbusTransfer& result, TModbusProof proof);

// The frames from `startUs` on (Clock().MonotonicUs), with the ms since then.
using TModbusFrames = std::vector<TModbusFrameLog::TEntry>;
[[nodiscard]] nlohmann::ordered_json FramesJson(const TModbusFrames& frames, std::uint64_t startUs);
[[nodiscard]] std::string FrameText(const TModbusFrameLog::TEntry& frame, std::uint64_t startUs);

}  // namespace ixocontroller
