// The platform's own sections of the machine configuration: gases, bus slaves, axes, cutting head, pallets, alarms.
//
// Their properties are optional in the file: what is missing has its default, and a save adds only what differs from
// it. Lengths mm, speeds mm/s, pressures bar, voltages V. Guarded by whoever has the configuration: loaded before any
// thread starts, changed by one thread while no other reads. Nothing throws; an index or number that is not there
// answers null, none or the default.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

// One alarm definition of the machine's own.
class TAlarmConfigItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Number = 0;
  std::string Desc, Reason, Solution;
};

class TDAAdjustItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  double Press = 0.0;
  double Volt = 0.0;
};

// The measured curve of a valve: which voltage gives which pressure.
class TDAAdjustTable : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  void Clear() { FItems.Clear(); }
  [[nodiscard]] std::int32_t GetCount() const { return FItems.Count(); }
  [[nodiscard]] TDAAdjustItem* GetItem(std::int32_t index) const { return FItems.Get(index); }  // null outside
  std::int32_t Add(double press, double volt);  // any number, at the end; its index
  // The voltage at which the polyline through the entries reaches this pressure: 0 below the lowest pressure, the
  // highest entry's voltage above all. None for an empty table, or when the pressure is no number.
  [[nodiscard]] std::optional<double> GetVolt(double press) const;

 private:
  TXmlList<TDAAdjustItem> FItems;
};

class TGasBranchConfig : public TXmlSubConfig {
 public:
  static constexpr double kUsualPressure = 16.0;

  TGasBranchConfig() = default;
  TGasBranchConfig(std::int32_t gasType, std::string name, std::int32_t port, double maxPressure)
      : GasType(gasType), Name(std::move(name)), DAPort(port), MaxPressure(maxPressure) {}
  void Publish(TPublisher& p) override;
  [[nodiscard]] std::int32_t GetDAPort() const { return DAPort; }
  // The highest pressure that may be asked for; a branch that states none, or 0, has the usual one.
  [[nodiscard]] double GetMaxPressure() const { return MaxPressure > 0.0 ? MaxPressure : kUsualPressure; }

  std::int32_t GasType = 0;  // 1 "Air" ... 6 "H-N2"
  std::string Name;
  std::int32_t DAPort = 0;
  double MaxPressure = kUsualPressure;  // as stated
  bool DAAdjustEnabled = false;         // a pressure is put out as the voltage of the table
  TDAAdjustTable DAAdjustTable;
};

class TGasBranchesConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TGasBranchConfig* GetGasBranch(std::int32_t gasType) const;  // the first; null when there is none
  TXmlList<TGasBranchConfig> Items;
};

// One gas that the operator may choose; the value as it stands in the file.
class TGasListItem : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Name, Value;
};

class TGasListConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TXmlList<TGasListItem> Items;
};

class TSlaveConfig : public TXmlSubConfig {
 public:
  static constexpr std::int32_t kMaxChannels = 32;

  void Publish(TPublisher& p) override;
  [[nodiscard]] std::optional<std::uint32_t> ParseIdentity() const;  // none when the text is no number
  [[nodiscard]] std::uint32_t GetIdentity() const { return ParseIdentity().value_or(0); }
  [[nodiscard]] std::int32_t GetDACount() const;  // 0..32; a number outside is logged
  [[nodiscard]] std::int32_t GetADCount() const;

  std::string Name;
  std::string Identity;  // decimal, also negative, or 0x...
  std::int32_t ProductNo = 0;
  std::int32_t DACount = 0;
  std::int32_t ADCount = 0;
  bool ExtIO = false;
  std::string HeadDesc;  // the head type that a height controller reports
};

// The bus, in the order of its wiring; slaves are numbered from 1, and one outside is null.
class TSlavesConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] std::int32_t GetCount() const { return Items.Count(); }
  [[nodiscard]] TSlaveConfig* GetSlave(std::int32_t number) const { return Items.Get(number - 1); }
  TXmlList<TSlaveConfig> Items;
};

class TModelConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Model;
};

class TNcParamsConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] double GetMaxMoveSpeed() const { return MaxMoveSpeed; }

  double MaxMoveSpeed = 0.0;                 // mm/s
  std::atomic<std::int32_t> PierceTotal{0};  // the machine's running total of pierces; any thread
};

class TAxisDriveConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t PulsesPerRev = 0;
  double MmPerRev = 0.0;
};

class TAxisConfig : public TXmlSubConfig {
 public:
  TAxisConfig() = default;
  TAxisConfig(std::string name, double neg, double pos, double maxSpeed, double acceleration)
      : Name(std::move(name)), SoftLimitNeg(neg), SoftLimitPos(pos), MaxSpeed(maxSpeed), Acceleration(acceleration) {}
  void Publish(TPublisher& p) override;
  std::string Name;
  double SoftLimitNeg = 0.0;
  double SoftLimitPos = 0.0;
  double MaxSpeed = 0.0;
  double Acceleration = 0.0;  // mm/s2
  std::int32_t MotorDir = 0;  // 0 positive, else negative
  std::int32_t EncoderDir = 0;
  TAxisDriveConfig Drive;
  std::int32_t HomeDir = 0;
  double SafeZ = 10.0;  // of Z: there and above, X and Y may travel over the table
};

class TAxesConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] TAxisConfig* Find(std::string_view name) const;
  TXmlList<TAxisConfig> Items;
};

// Which axes (numbered from 1, 0 none) move the head over the plate.
class TGantryConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t XAxis = 0;
  std::int32_t YAxis = 0;
};

// Pallets. "Elvt" holds the lift's values by name.
class TSwitchTableConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool CheckRailDelay = false;
  std::int32_t DockedTable = 1;  // as the machine starts: 1 or 2, 0 none
  TXmlSubConfig Elvt;
};

class TDriverConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;  // the machine's, by its factory's name; empty: the program's first
};

class TLaserConfig : public TXmlSubConfig {
 public:
  TLaserConfig() { TLaserConfig::Initialize(); }
  void Publish(TPublisher& p) override;
  std::int32_t EmissionOnDelay = 0;  // limit of the steps that wait for emission
  double MaxPower = 0.0;
  double CutSpeedLimit = 0.0;  // of XY while light comes out
};

class TPortConfig : public TXmlSubConfig {
 public:
  TPortConfig() = default;
  TPortConfig(std::int32_t number, std::string name) : Name(std::move(name)), Number(number) {}
  void Publish(TPublisher& p) override;
  std::string Name;
  std::int32_t Number = -1;
};

class TPortsConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TXmlList<TPortConfig> Inports, Outports;
};

// When the supervisor acts; a limit is how long something may last.
class TSupervisorConfig : public TXmlSubConfig {
 public:
  static constexpr std::int32_t kLeastLimitMs = 100;

  // One of the properties.
  struct TRow {
    TPropName Name;
    std::int32_t TSupervisorConfig::*Value;
    std::int32_t Default, Least, Most;
    const char* Text;
  };

  TSupervisorConfig() { TSupervisorConfig::Initialize(); }
  void Publish(TPublisher& p) override;
  [[nodiscard]] static std::span<const TRow> Rows();
  // Instead of a value below its least, which the record holds as the file says it, the default is in force.
  [[nodiscard]] TSupervisorConfig InForce() const;

  std::int32_t BusyLimitMs = 0;  // a state waits for the same thing, where the step's own limit is not known
  // A step waits for axes of the driver, for the follower, for the focus: since its start or the last 0.1 mm of way.
  std::int32_t MoveLimitMs = 0, FollowerLimitMs = 0, FocusLimitMs = 0;
  std::int32_t CalibrationLimitMs = 0;  // of the height; it then has failed
  std::int32_t GasWaitLimitMs = 0;      // a step waits for the gas
  std::int32_t EmissionExtraMs = 0;     // emission asked for and absent, and a step that polls, beyond EmissionOnDelay
  std::int32_t LaserOnLimitMs = 0;      // below the latch's own 65 s
  std::int32_t GasOnLimitMs = 0;
  std::int32_t HeartbeatLimitMs = 0;  // only outside standby
  // Silence of a thread: of a device's, of log and alarm client, of any other. Shown only.
  std::int32_t DeviceThreadLimitMs = 0, LogThreadLimitMs = 0, ThreadLimitMs = 0;
  std::int32_t StepMs = 0;  // from the alarm to the stop, and from there to the latch
};

// What no section of the library's own configuration has, as it stands under the document element.
class TMachineRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  void PublishOwn(TPublisher& p);  // without the sections
  std::int32_t DHMode = 0;
  TDriverConfig Machine;
  TLaserConfig Laser;
  TPortsConfig Ports;
  TSupervisorConfig Supervisor;
};

}  // namespace ixocamglue
