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
  p.Field("Number", Number).Within(bdAtLeast(0)).Text(TrMark("Number of this alarm among the machine builder's own"));
  p.Field("Desc", Desc).Text(TrMark("What the operator reads when this alarm stands"));
  p.Field("Reason", Reason).Text(TrMark("Why this alarm comes, as the operator reads it"));
  p.Field("Solution", Solution).Text(TrMark("What the operator should do about this alarm"));
}

void TDAAdjustItem::Publish(TPublisher& p) {
  p.Field("Press", Press)
      .Unit(uBar)
      .Within(bdRange(0, 100).AsAdvice())
      .Text(TrMark("Pressure that was measured at this point of the valve's curve"));
  p.Field("Volt", Volt)
      .Unit(uVolt)
      .Within(bdRange(0, 10).AsAdvice())
      .Text(TrMark("Voltage that gives the pressure of this point"));
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
  p.Field("GasType", GasType, 0, kOptional)
      .Within(1, 6)
      .Key(TrMark("the branch has no valid gas type"))
      .Text(TrMark("Gas of this branch: 1 air, 2 oxygen, 3 nitrogen, 4 to 6 the same at high pressure"));
  p.Field("Name", Name, "", kOptional).Text(TrMark("Name of this branch's gas where the machine has no list of gases"));
  p.Field("DAPort", DAPort, 0, kOptional)
      .Within(0, kMaxPort)
      .Text(TrMark("Analogue output that drives this branch's proportional valve; 0: none"));
  p.Field("MaxPressure", MaxPressure, kUsualPressure, kOptional)
      .Unit(uBar)
      .Within(bdRange(0.1, 100.0).Or(0.0))
      .Text(TrMark("Highest pressure that may be asked of this branch; 0: 16 bar"));
  p.Field("DAAdjustEnabled", DAAdjustEnabled, false, kOptional)
      .Text(TrMark("Whether a pressure is put out by this branch's calibrated table"));
  p.Child("DAAdjustTable", DAAdjustTable);
}

void TGasBranchesConfig::Publish(TPublisher& p) { p.List("GasBranch", Items); }

TGasBranchConfig* TGasBranchesConfig::GetGasBranch(std::int32_t gasType) const {
  const auto it = std::ranges::find_if(Items, [&](const auto& branch) { return branch->GasType == gasType; });
  return it == Items.end() ? nullptr : it->get();
}

void TGasListItem::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional).Text(TrMark("Name of a gas that the operator may choose"));
  p.Field("Value", Value, "", kOptional)
      .Within(bdFittedBranch)
      .Key(TrMark("the gas has no gas branch"))
      .Text(TrMark("Gas type of this choice, whose branch carries the gas"));
}

void TGasListConfig::Publish(TPublisher& p) { p.List("Gas", Items); }

void TSlaveConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional).Text(TrMark("Name of this bus device in messages"));
  p.Field("Identity", Identity, "", kOptional).Text(TrMark("Identity that the bus device reports, decimal or 0x..."));
  p.Field("ProductNo", ProductNo, 0, kOptional)
      .Within(0, std::numeric_limits<std::int32_t>::max())
      .Text(TrMark("Product number of the bus device; with its identity it tells the bus cutting head"));
  p.Field("DACount", DACount, 0, kOptional)
      .Within(0, kMaxChannels)
      .Text(TrMark("How many analogue outputs this extension has"));
  p.Field("ADCount", ADCount, 0, kOptional)
      .Within(0, kMaxChannels)
      .Text(TrMark("How many analogue inputs this extension has"));
  p.Field("ExtIO", ExtIO, false, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether this bus device is an extension whose analogue channels are numbered"));
  p.Field("HeadDesc", HeadDesc, "", kOptional)
      .Text(TrMark("Head type that a height controller reports; shown with the focus"));
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

void TModelConfig::Publish(TPublisher& p) {
  p.Field("Model", Model, "", kOptional)
      .Text(TrMark("Model that is fitted; it decides the head type and the caption of the focus"));
}

void TNcParamsConfig::Publish(TPublisher& p) {
  p.Field("MaxMoveSpeed", MaxMoveSpeed, 0, kOptional)
      .Unit(uMmPerS)
      .Within(bdAtLeast(0))
      .Text(TrMark("Highest speed of travel that the interface offers"));
  p.Field("PierceTotal", PierceTotal)
      .Within(bdAtLeast(0))
      .Text(TrMark("All pierces of the machine so far; pierces between cleanings are counted by it"));
}

void TAxisDriveConfig::Publish(TPublisher& p) {
  p.Field("PulsesPerRev", PulsesPerRev, 0, kOptional)
      .Within(bdAtLeast(0).AsAdvice())
      .Text(TrMark("Pulses of the drive for one turn of the motor"));
  p.Field("MmPerRev", MmPerRev, 0, kOptional)
      .Unit(uMm)
      .Within(bdAtLeast(0).AsAdvice())
      .Text(TrMark("Way of the axis for one turn of the motor"));
}

void TAxisConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional).Text(TrMark("Which axis this is: X, Y, Z or Focus"));
  p.Field("SoftLimitNeg", SoftLimitNeg, 0, kOptional)
      .Unit(uMm)
      .Within(-1e6, 1e6)
      .Text(TrMark("Lowest position that the axis may be sent to"));
  p.Field("SoftLimitPos", SoftLimitPos, 0, kOptional)
      .Unit(uMm)
      .Within(-1e6, 1e6)
      .Text(TrMark("Highest position that the axis may be sent to"));
  p.Field("MaxSpeed", MaxSpeed, 0, kOptional)
      .Unit(uMmPerS)
      .Within(0.1, 1e5)
      .Text(TrMark("Highest speed of the axis; what asks for more is moved at this"));
  p.Field("Acceleration", Acceleration, 0, kOptional)
      .Unit(uMmPerS2)
      .Within(1.0, 1e6)
      .Text(TrMark("How fast the axis gains and loses speed"));
  p.Field("MotorDir", MotorDir, 0, kOptional)
      .Text(TrMark("Which way the motor turns for a positive move: 0 forward, otherwise reversed; it also says which "
                   "measured stroke is compared with the soft limit"));
  p.Field("EncoderDir", EncoderDir, 0, kOptional)
      .Text(TrMark("Counting direction of the axis' encoder: 0 forward, otherwise reversed"));
  p.Child("Drive", Drive);
  p.Field("HomeDir", HomeDir, 0, kOptional).Text(TrMark("Direction in which the axis looks for its origin"));
  p.Field("SafeZ", SafeZ, 10, kOptional)
      .Unit(uMm)
      .Within(bdAxisZ)
      .Text(TrMark("Height of Z at which X and Y may travel over everything on the table"));
}

void TAxesConfig::Publish(TPublisher& p) { p.List("Axis", Items); }

TAxisConfig* TAxesConfig::Find(std::string_view name) const {
  const auto it = std::ranges::find_if(Items, [&](const auto& axis) { return axis->Name == name; });
  return it == Items.end() ? nullptr : it->get();
}

void TGantryConfig::Publish(TPublisher& p) {
  p.Field("XAxis", XAxis, 1, kOptional)
      .Within(bdAtLeast(0))
      .Text(TrMark("Which axis, counted from 1 in Axes, moves the head along X; 0: none"));
  p.Field("YAxis", YAxis, 2, kOptional)
      .Within(bdAtLeast(0))
      .Text(TrMark("Which axis, counted from 1 in Axes, moves the head along Y; 0: none"));
}

void TSwitchTableConfig::Publish(TPublisher& p) {
  p.Field("CheckRailDelay", CheckRailDelay, false, kOptional)
      .Text(TrMark("Whether the lift's old delays have been taken over into the four new ones"));
  p.Field("DockedTable", DockedTable, 1, kOptional)
      .Within(0, 2)
      .Text(TrMark("Pallet that is docked when the machine starts, 1 or 2; 0: none, then nothing is cleaned"));
  p.Child("Elvt", Elvt);
}

void TDriverConfig::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional)
      .Text(TrMark("What drives the machine, by the name of its driver; empty: the program's first"));
}

void TLaserConfig::Publish(TPublisher& p) {
  p.Field("EmissionOnDelay", EmissionOnDelay, 5000, kOptional)
      .Unit(uMs)
      .Within(0, 600'000)
      .Text(TrMark("How long a step waits until the laser confirms its emission"));
  p.Field("MaxPower", MaxPower, 3000.0, kOptional).Unit(uWatt).Within(1.0, 1e6).Text(TrMark("Full power of the laser"));
  p.Field("CutSpeedLimit", CutSpeedLimit, 500.0, kOptional)
      .Unit(uMmPerS)
      .Within(1.0, 10'000.0)
      .Text(TrMark("Highest speed of X and Y while light comes out"));
}

void TPortConfig::Publish(TPublisher& p) {
  p.Field("Name", Name, "", kOptional).Text(TrMark("What the port is wired to, as messages name it"));
  p.Field("Number", Number, -1, kOptional)
      .Within(0, kMaxPort)
      .Key(TrMark("the port has no valid number"))
      .Text(TrMark("Number of the port, by which the other sections name it"));
}

void TPortsConfig::Publish(TPublisher& p) {
  p.List("Inport", Inports);
  p.List("Outport", Outports);
}

std::span<const TSupervisorConfig::TRow> TSupervisorConfig::Rows() {
  using T = TSupervisorConfig;
  static constexpr std::int32_t kLeast = kLeastLimitMs;
  static constexpr TRow kRows[] = {
      {"BusyLimitMs", &T::BusyLimitMs, 600'000, 1000, kMaxMs,
       TrMark("How long a state may wait for the same thing, where the step has no limit of its own")},
      {"MoveLimitMs", &T::MoveLimitMs, 600'000, kLeast, kMaxMs,
       TrMark("How long a step may wait for an axis that makes no way")},
      {"FollowerLimitMs", &T::FollowerLimitMs, 60'000, kLeast, kMaxMs,
       TrMark("How long a step may wait for a follower that makes no way")},
      {"FocusLimitMs", &T::FocusLimitMs, 60'000, kLeast, kMaxMs,
       TrMark("How long a step may wait for a focus that makes no way")},
      {"CalibrationLimitMs", &T::CalibrationLimitMs, 60'000, kLeast, kMaxMs,
       TrMark("How long a height calibration may last; it then has failed")},
      {"GasWaitLimitMs", &T::GasWaitLimitMs, 10'000, kLeast, kMaxMs, TrMark("How long a step may wait for the gas")},
      {"EmissionExtraMs", &T::EmissionExtraMs, 1000, kLeast, 60'000,
       TrMark("How long emission may be absent, and a step may poll, beyond EmissionOnDelay")},
      {"LaserOnLimitMs", &T::LaserOnLimitMs, 62'000, kLeast, 64'000,
       TrMark("How long the laser may be on without a break")},
      {"GasOnLimitMs", &T::GasOnLimitMs, 1'800'000, 1000, kMaxMs, TrMark("How long gas may be on without a break")},
      {"HeartbeatLimitMs", &T::HeartbeatLimitMs, 1000, 200, 60'000,
       TrMark("How long the state thread may be silent outside standby")},
      {"DeviceThreadLimitMs", &T::DeviceThreadLimitMs, 10'000, kLeast, kMaxMs,
       TrMark("How long the thread of a device may be silent; shown only")},
      {"LogThreadLimitMs", &T::LogThreadLimitMs, 5000, kLeast, kMaxMs,
       TrMark("How long the threads of log and alarms may be silent; shown only")},
      {"ThreadLimitMs", &T::ThreadLimitMs, 2000, kLeast, kMaxMs,
       TrMark("How long any other thread may be silent; shown only")},
      {"StepMs", &T::StepMs, 1000, 20, 60'000,
       TrMark("Time from the supervisor's alarm to its stop, and from there to the laser's latch")},
  };
  return kRows;
}

void TSupervisorConfig::Publish(TPublisher& p) {
  for (const TRow& row : Rows())
    p.Field(row.Name, this->*row.Value, row.Default, kOptional)
        .Unit(uMs)
        .Within(row.Least, row.Most)
        .DefaultBelow()
        .Text(row.Text);
}

TSupervisorConfig TSupervisorConfig::InForce() const {
  TSupervisorConfig limits = *this;
  for (const TRow& row : Rows())
    if (limits.*row.Value < row.Least) limits.*row.Value = row.Default;
  return limits;
}

void TMachineRecord::PublishOwn(TPublisher& p) {
  p.Field("DHMode", DHMode, 0, kOptional)
      .Within(0, 2)
      .Text(TrMark("Head mode; 2: the machine has two cutting heads, which rise and jog together"));
}

void TMachineRecord::Publish(TPublisher& p) {
  PublishOwn(p);
  p.Child("Machine", Machine);
  p.Child("Laser", Laser);
  p.Child("Ports", Ports);
  p.Child("Supervisor", Supervisor);
}

}  // namespace ixocamglue
