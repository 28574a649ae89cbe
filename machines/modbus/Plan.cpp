#include "machines/modbus/Plan.h"

#include <algorithm>

#include "ixocamglue/devcomm/Umodbusframe.h"

namespace ixocamglue {

std::vector<TModbusBlock> PlanReads(std::vector<TModbusCell> cells, const TModbusGap& gap) {
  std::ranges::sort(cells);
  std::vector<TModbusBlock> blocks;
  for (const TModbusCell& cell : cells) {
    TModbusBlock* const last = blocks.empty() ? nullptr : &blocks.back();
    if (last && last->First.Table == cell.Table) {
      const std::uint32_t end = std::uint32_t{last->First.Addr} + last->Count;  // behind the last one
      const std::uint32_t count = std::uint32_t{cell.Addr} - last->First.Addr + 1;
      if (cell.Addr <= end + (cell.IsBit() ? gap.Bits : gap.Registers) &&
          count <= FindModbusFunction(cell.ReadFunction())->Most) {
        last->Count = static_cast<std::uint16_t>(count);
        continue;
      }
    }
    blocks.push_back({cell, 1});
  }
  return blocks;
}

}  // namespace ixocamglue
