#include "ixocamglue/config/Ucamglue.h"

#include <cmath>

#include "ixocamglue/platform/xml/FileLayer.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kGroupSize = 32;
constexpr std::int32_t kDemoChannels = 4;

void CalcAll(TMachineConfig* config, std::map<std::int32_t, std::int32_t>& dic, std::int32_t base,
             std::int32_t (TSlaveConfig::*count)() const) {
  dic.clear();
  std::int32_t group = 0;
  const auto add = [&](std::int32_t channels) {
    ++group;
    for (std::int32_t i = 1; i <= channels; ++i) {
      const std::int32_t key = group * kGroupSize + i;
      dic[key] = base + key;
    }
  };
  if (config)
    for (std::int32_t number = 1; number <= config->Slaves().GetCount(); ++number)
      if (const TSlaveConfig& slave = *config->Slaves().GetSlave(number); slave.ExtIO) add((slave.*count)());
  if (group > 0) return;
  while (group < DEMO_IOBROAD_COUNT - 1) add(kDemoChannels);
}

bool Differ(double a, double b) { return !(std::abs(a - b) <= 1e-6); }

}  // namespace

void CalcAllDA(TMachineConfig* config, TDADic& dic) { CalcAll(config, dic, PORT_DA_BASE, &TSlaveConfig::GetDACount); }
void CalcAllAD(TMachineConfig* config, TADDic& dic) { CalcAll(config, dic, PORT_AD_BASE, &TSlaveConfig::GetADCount); }

void CalcAllPorts(TMachineConfig* config, TDADic& da, TADDic& ad) {
  CalcAllDA(config, da);
  CalcAllAD(config, ad);
}

bool AxisParamModify(const TAxisConfig& a, const TAxisConfig& b) {
  return Differ(a.SoftLimitNeg, b.SoftLimitNeg) || Differ(a.SoftLimitPos, b.SoftLimitPos) || a.MotorDir != b.MotorDir ||
         a.EncoderDir != b.EncoderDir || a.Drive.PulsesPerRev != b.Drive.PulsesPerRev ||
         Differ(a.Drive.MmPerRev, b.Drive.MmPerRev) || a.HomeDir != b.HomeDir;
}

bool AxisParamModify(TMachineConfig& a, TMachineConfig& b) {
  const auto differ = [&](std::int32_t TGantryConfig::*axis) {
    const std::int32_t left = a.Gantry().*axis;
    const std::int32_t right = b.Gantry().*axis;
    if (left < 1 && right < 1) return false;
    if (left != right) return true;
    const TAxisConfig* const one = a.Axes().Items.Get(left - 1);
    const TAxisConfig* const other = b.Axes().Items.Get(right - 1);
    return one && other ? AxisParamModify(*one, *other) : one != other;
  };
  return differ(&TGantryConfig::XAxis) || differ(&TGantryConfig::YAxis);
}

void CheckSwitchTableConfig(TMachineConfig& config, bool force) {
  std::string bytes;
  if (config.File().empty() || Files().Read(config.File().string(), TXmlDocument::kMaxBytes, bytes) != 0) return;
  TSwitchTableConfig& table = config.SwitchTable();
  if (!force && table.CheckRailDelay) return;
  TXmlDocument document;
  if (!document.Parse(std::move(bytes))) return;  // said by the load; nothing is ever saved over such a file
  TXmlContext context{config.File().string(), false, {}};
  const TXmlNode lift = document.Root(context).Child("SwitchTable").Child("Elvt");
  if (lift && lift.HasValue("RailStartDelay") && !lift.HasValue("BeforeUpDelay")) {
    TXmlSubConfig stored;
    stored.LoadFromXmlNode(lift);
    const std::int32_t start = stored.GetInt("RailStartDelay", 0);
    const std::int32_t stop = stored.GetInt("RailStopDelay", 0);
    table.Elvt.SetInt("BeforeUpDelay", start);
    table.Elvt.SetInt("BeforeDownDelay", start);
    table.Elvt.SetInt("AfterUpDelay", stop);
    table.Elvt.SetInt("AfterDownDelay", stop);
  }
  table.CheckRailDelay = true;
  (void)config.Save();  // a failure is in the log
}

}  // namespace ixocamglue
