// Any bytes as the stored tables of gas calibrations: refused, or every table answers a voltage within its own; what is
// saved reads back the same.
#include <algorithm>
#include <cmath>

#include "fuzz/InputFile.h"
#include "ixocamglue/gascal/Ugasnozzcaliconfig.h"
#include "ixocamglue/support/Format.h"

using namespace ixocamglue;

namespace {

std::string Shown(TGasCaliConfig& config) {
  std::string text;
  for (const std::int32_t gas : {1, 2, 3})
    for (const auto& item : config.GetGasConfig(gas)->Items()) {
      text += Format("%d %s %.17g:", gas, item->NozzType.c_str(), item->NozzSize);
      for (std::int32_t i = 0; i < item->DAAdjustTable.GetCount(); ++i)
        text += Format(" %.17g %.17g", item->DAAdjustTable.GetItem(i)->Press, item->DAAdjustTable.GetItem(i)->Volt);
      text += "\n";
    }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto file = fuzz::InputFile(data, size);
  TGasCaliConfig config;
  if (!config.Load(file)) return 0;
  for (const std::int32_t gas : {1, 2, 3})
    for (const auto& item : config.GetGasConfig(gas)->Items())
      for (const double bar : {0.0, 0.5, 3.0, 25.0})
        if (const auto volt = item->DAAdjustTable.GetVolt(bar); volt && std::isnan(*volt)) std::abort();
  for (const std::int32_t gas : {1, 2, 3}) {
    TDAAdjustTable copy;
    if (const TDAAdjustTable* const table = config.GetDAAdjustTable(gas, "S", 1.5)) CopyTable(*table, copy);
    config.SetDAAdjustTable(gas, "S", 1.5, copy);
  }
  const std::string before = Shown(config);
  if (!config.Save()) return 0;  // it reads closer than a load, and refuses what it could not keep
  if (!config.Load(file)) std::abort();
  const std::string after = Shown(config);
  if (std::ranges::count(before, '\n') != std::ranges::count(after, '\n')) std::abort();
  if (!config.Save() || !config.Load(file) || Shown(config) != after) std::abort();
  return 0;
}
