#include "ixocamglue/platform/xml/MachineSections.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <vector>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kMaxPort = 1023;
constexpr std::int32_t kMaxMs = 86'400'000;

std::int32_t Channels(const TSlaveConfig& slave, const char* what, std::int32_t count) {
  const auto clamped = std::clamp(count, 0, TSlaveConfig::kMaxChannels);
  if (clamped != count)
    LogMsg(lkWarning, 0, Format("Slave \"%s\": %s %d is taken as %d", slave.Name.c_str(), what, count, clamped));
  return clamped;
}

}  // namespace

void TAlarmConfigItem::Publish(TPublisher& p) {
  p.Field("Number", Number);
  p.Field("Desc", Desc);
  p.Field("Reason", Reason);
  p.Field("Solution", Solution);
}

void TDAAdjustItem::Publish(TPublisher& p) {
  p.Field("Press", Press).Unit(uBar);
  p.Field("Volt", Volt).Unit(uVolt);
}

void TDAAdjustTable::Publish(TPublisher& p) { p.List("Item", FItems); }

std::int32_t TDAAdjustTable::Add(double press, double volt) {
  auto& item = FItems.AddNew();
  item.Press = press;
  item.Volt = volt;
  return FItems.Count() - 1;
}

std::optional<double> TDAAdjustTable::GetVolt(double press) const {
  std::vector<const TDAAdjustItem*> items;
  for (const auto& item : FItems)
    if (std::isfinite(item->Press) && std::isfinite(item->Volt)) items.push_back(item.get());
  if (items.empty() || !std::isfinite(press)) return std::nullopt;
  std::ranges::stable_sort(items, {}, &TDAAdjustItem::Press);
  if (press < items.front()->Press) return 0.0;
  const auto above = std::ranges::upper_bound(items, press, {}, &TDAAdjustItem::Press);
  if (above == items.end()) return items.back()->Volt;
  const TDAAdjustItem& low = **std::prev(above);
  const TDAAdjustItem& high = **above;
  return low.Volt + (high.Volt - low.Volt) * (press - low.Press) / (high.Press - low.Press);
}

void TGasBranchConfig::Publish(TPublisher& p) {
  p.Field("GasType", GasType, 0, kOptional).Within(1, 6).Key("the branch has no valid gas type");
  p.Field("Name", Name, "", kOptional);
  p.Field("DAPort", DAPort, 0, kOptional).Within(0, kMaxPort);
  p.Field("MaxPressure", MaxPressure, kUsualPressure, kOptional).Unit(uBar).Within(bdRange(0.1, 100.0).Or(0.0));
  p.Field("DAAdjustEnabled", DAAdjustEnabled, false, kOptional);
  p.Child("DAAdjustTable", DAAdjustTable);
}

void TGasBranchesConfig::Publish(TPublisher& p) { p.List("GasBranch", Items); }

TGasBranchConfig* TGasBranchesConfig::GetGasBranch(std::int32_t gasType) const {
  const auto it = std::ranges::find_if(Items, [&](const auto& branch) { return branch->GasType == gasType; });
  return it == Items.end() ? nullptr : it->get();
}

void TGasListItem::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional);
  p.Field("Value", Value, "", kOptional);
}

void TGasListConfig::Publish(TPublisher& p) { p.List("Gas", Items); }

void TSlaveConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional);
  p.Field("Identity", Identity, "", kOptional);
  p.Field("ProductNo", ProductNo, 0, kOptional).Within(0, std::numeric_limits<std::int32_t>::max());
  p.Field("DACount", DACount, 0, kOptional).Within(0, kMaxChannels);
  p.Field("ADCount", ADCount, 0, kOptional).Within(0, kMaxChannels);
  p.Field("ExtIO", ExtIO, false, kOptional).Within(bdSwitch);
  p.Field("HeadDesc", HeadDesc, "", kOptional);
}

std::optional<std::uint32_t> TSlaveConfig::ParseIdentity() const {
  const std::string_view text = TrimXml(Identity);
  if (const auto value = ParseHexOrDecimal<std::uint32_t>(text)) return value;
  if (const auto value = ParseNumber<std::uint32_t>(text)) return value;  // with a "+"
  const auto negative = ParseNumber<std::int32_t>(text);
  return negative ? std::optional(static_cast<std::uint32_t>(*negative)) : std::nullopt;
}

std::int32_t TSlaveConfig::GetDACount() const { return Channels(*this, "DACount", DACount); }
std::int32_t TSlaveConfig::GetADCount() const { return Channels(*this, "ADCount", ADCount); }

void TSlavesConfig::Publish(TPublisher& p) { p.List("Slave", Items); }

void TModelConfig::Publish(TPublisher& p) { p.Field("Model", Model, "", kOptional); }

void TNcParamsConfig::Publish(TPublisher& p) {
  p.Field("MaxMoveSpeed", MaxMoveSpeed, 0, kOptional).Unit(uMmPerS);
  p.Field("PierceTotal", PierceTotal);
}

void TAxisDriveConfig::Publish(TPublisher& p) {
  p.Field("PulsesPerRev", PulsesPerRev, 0, kOptional);
  p.Field("MmPerRev", MmPerRev, 0, kOptional).Unit(uMm);
}

void TAxisConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional);
  p.Field("SoftLimitNeg", SoftLimitNeg, 0, kOptional).Unit(uMm).Within(-1e6, 1e6);
  p.Field("SoftLimitPos", SoftLimitPos, 0, kOptional).Unit(uMm).Within(-1e6, 1e6);
  p.Field("MaxSpeed", MaxSpeed, 0, kOptional).Unit(uMmPerS).Within(0.1, 1e5);
  p.Field("Acceleration", Acceleration, 0, kOptional).Unit(uMmPerS2).Within(1.0, 1e6);
  p.Field("MotorDir", MotorDir, 0, kOptional);
  p.Field("EncoderDir", EncoderDir, 0, kOptional);
  p.Child("Drive", Drive);
  p.Field("HomeDir", HomeDir, 0, kOptional);
  p.Field("SafeZ", SafeZ, 10, kOptional).Unit(uMm).Within(bdAxisZ);
}

void TAxesConfig::Publish(TPublisher& p) { p.List("Axis", Items); }

TAxisConfig* TAxesConfig::Find(std::string_view name) const {
  const auto it = std::ranges::find_if(Items, [&](const auto& axis) { return axis->Name == name; });
  return it == Items.end() ? nullptr : it->get();
}

void TGantryConfig::Publish(TPublisher& p) {
  p.Field("XAxis", XAxis, 1, kOptional);
  p.Field("YAxis", YAxis, 2, kOptional);
}

void TSwitchTableConfig::Publish(TPublisher& p) {
  p.Field("CheckRailDelay", CheckRailDelay, false, kOptional);
  p.Field("DockedTable", DockedTable, 1, kOptional).Within(0, 2);
  p.Child("Elvt", Elvt);
}

void TDriverConfig::Publish(TPublisher& p) { p.Field("Driver", Driver, "", kOptional); }

void TLaserConfig::Publish(TPublisher& p) {
  p.Field("EmissionOnDelay", EmissionOnDelay, 5000, kOptional).Unit(uMs).Within(0, 600'000);
  p.Field("MaxPower", MaxPower, 3000.0, kOptional).Unit(uWatt).Within(1.0, 1e6);
  p.Field("CutSpeedLimit", CutSpeedLimit, 500.0, kOptional).Unit(uMmPerS).Within(1.0, 10'000.0);
}

void TPortConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional);
  p.Field("Number", Number, -1, kOptional).Within(0, kMaxPort).Key("the port has no valid number");
}

void TPortsConfig::Publish(TPublisher& p) {
  p.List("Inport", Inports);
  p.List("Outport", Outports);
}

std::span<const TSupervisorConfig::TRow> TSupervisorConfig::Rows() {
  using T = TSupervisorConfig;
  static constexpr std::int32_t kLeast = kLeastLimitMs;
  static constexpr TRow kRows[] = {
      {"BusyLimitMs", &T::BusyLimitMs, 600'000, 1000, kMaxMs},
      {"MoveLimitMs", &T::MoveLimitMs, 600'000, kLeast, kMaxMs},
      {"FollowerLimitMs", &T::FollowerLimitMs, 60'000, kLeast, kMaxMs},
      {"FocusLimitMs", &T::FocusLimitMs, 60'000, kLeast, kMaxMs},
      {"CalibrationLimitMs", &T::CalibrationLimitMs, 60'000, kLeast, kMaxMs},
      {"GasWaitLimitMs", &T::GasWaitLimitMs, 10'000, kLeast, kMaxMs},
      {"EmissionExtraMs", &T::EmissionExtraMs, 1000, kLeast, 60'000},
      {"LaserOnLimitMs", &T::LaserOnLimitMs, 62'000, kLeast, 64'000},
      {"GasOnLimitMs", &T::GasOnLimitMs, 1'800'000, 1000, kMaxMs},
      {"HeartbeatLimitMs", &T::HeartbeatLimitMs, 1000, 200, 60'000},
      {"DeviceThreadLimitMs", &T::DeviceThreadLimitMs, 10'000, kLeast, kMaxMs},
      {"LogThreadLimitMs", &T::LogThreadLimitMs, 5000, kLeast, kMaxMs},
      {"ThreadLimitMs", &T::ThreadLimitMs, 2000, kLeast, kMaxMs},
      {"StepMs", &T::StepMs, 1000, 20, 60'000, false},
  };
  return kRows;
}

void TSupervisorConfig::Publish(TPublisher& p) {
  for (const TRow& row : Rows())
    p.Field(row.Name, this->*row.Value, row.Default, kOptional).Unit(uMs).Within(row.Least, row.Most);
}

bool TSupervisorConfig::TooShort(std::string_view name) const {
  return std::ranges::any_of(Rows(), [&](const TRow& row) {
    return row.IsLimit && row.Name.Text == name && this->*row.Value < kLeastLimitMs;
  });
}

TSupervisorConfig TSupervisorConfig::InForce() const {
  TSupervisorConfig limits = *this;
  for (const TRow& row : Rows())
    if (TooShort(row.Name.Text)) limits.*row.Value = row.Default;
  return limits;
}

void TMachineRecord::PublishOwn(TPublisher& p) { p.Field("DHMode", DHMode, 0, kOptional).Within(0, 2); }

void TMachineRecord::Publish(TPublisher& p) {
  PublishOwn(p);
  p.Child("Machine", Machine);
  p.Child("Laser", Laser);
  p.Child("Ports", Ports);
  p.Child("Supervisor", Supervisor);
}

}  // namespace ixocamglue
