// Which requests read a station's cells: as few as their addresses allow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "machines/modbus/Address.h"

namespace ixocamglue {

// How many cells that nobody asked for may lie between two that share a request.
struct TModbusGap {
  std::uint32_t Registers = 0;
  std::uint32_t Bits = 0;
};
// The next one is for what a device refuses to be read over; the last one reads over nothing.
inline constexpr TModbusGap kModbusGaps[] = {{16, 128}, {4, 16}, {0, 0}};

struct TModbusBlock {
  TModbusCell First;
  std::uint16_t Count = 0;

  [[nodiscard]] bool Has(const TModbusCell& cell) const {
    return cell.Table == First.Table && cell.Addr >= First.Addr && cell.Addr - First.Addr < Count;
  }
  friend bool operator==(const TModbusBlock&, const TModbusBlock&) = default;
};

[[nodiscard]] std::vector<TModbusBlock> PlanReads(std::vector<TModbusCell> cells, const TModbusGap& gap);

}  // namespace ixocamglue
