// A water chiller on Modbus TCP, as a driver for machines that are put together from their file: its values are inputs
// of the machine, and what is wrong with it is an alarm that forbids the laser.
//
// Holding register 0 is the water's temperature, 1 its flow; both in tenths, degrees C and l/min.
#pragma once

#include <atomic>
#include <optional>

#include <ixocamglue/devcomm/Udevicelink.h>
#include <ixocamglue/devcomm/Umodbuscomm.h>
#include <ixocamglue/platform/Driver.h>
#include <ixocamglue/platform/alarms/NcAlarmManager.h>
#include <ixocamglue/platform/alarms/NcSimpleAlarmSource.h>
#include <ixocamglue/platform/xml/MachineConfig.h>
#include <ixocamglue/support/Format.h>

namespace example {
using namespace ixocamglue;

// <Chiller Host="192.168.0.20" HotC="32"/>: `ixocut config check`, `set` and `schema` know it from these lines.
class TChillerConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override {
    p.Field("Host", Host, "127.0.0.1", kOptional).Text("Host name or address of the chiller");
    p.Field("Port", Port, 502, kOptional).Within(1, 65535).Text("TCP port of the chiller");
    p.Field("WarmC", WarmC, 28.0, kOptional).Within(5, 60).Text("From this temperature (C) on the operator is told");
    p.Field("HotC", HotC, 32.0, kOptional).Within(5, 60).Text("From this temperature (C) on the laser is forbidden");
    p.Field("LeastFlow", LeastFlow, 4.0, kOptional)
        .Within(0, 100)
        .Text("Below this flow (l/min) the laser is forbidden");
  }

  std::string Host;
  std::int32_t Port = 0;
  double WarmC = 0.0, HotC = 0.0, LeastFlow = 0.0;
};

// The device object: its thread calls UpdateStatus every 100 ms.
class TChiller final : public TModbusComm {
 public:
  static constexpr std::uint64_t kStaleMs = 2000;

  explicit TChiller(const TChillerConfig& config) : TModbusComm("Chiller"), FConfig(config) {
    IsTCP = true;
    SetProfile(mpStrict, {.TimeoutMs = 300, .ConnectMs = 300, .TotalMs = 700});
    SetDataTransIntf(MakeTransport({.IsTcp = true, .TcpFraming = true, .Host = FConfig.Host, .Port = FConfig.Port}));
  }
  ~TChiller() override { EndUse(); }

  void UpdateStatus() override {
    if (const TModbusResult read = ReadRegisters(0, 2); read.Ok()) {
      FTemperature = read.Registers[0] / 10.0;
      FFlow = read.Registers[1] / 10.0;
      FReadMs = Clock().MonotonicMs();
    }
    const bool silent = !Answers();
    const bool hot = !silent && FTemperature >= FConfig.HotC;
    Alarms.Set(1, silent || hot, hot ? Format("The cooling water has %.1f C", FTemperature.load()) : "");
    Alarms.Set(2, !silent && FTemperature >= FConfig.WarmC);
    Alarms.Set(3, !silent && FFlow < FConfig.LeastFlow);
  }

  // Any thread, at once.
  [[nodiscard]] std::optional<std::uint64_t> AgeMs() const {
    const std::uint64_t readMs = FReadMs;
    return readMs == 0 ? std::nullopt : std::optional(Clock().MonotonicMs() - readMs);
  }
  [[nodiscard]] bool Answers() const { return AgeMs().value_or(kStaleMs) < kStaleMs; }
  [[nodiscard]] bool Ready() const { return FTemperature < FConfig.HotC && FFlow >= FConfig.LeastFlow; }
  [[nodiscard]] double Temperature() const { return FTemperature; }

  // What forbids something is raised at once; what is only shown waits until it is steady. Cause and remedy of
  // "TPChiller#1" and so on stand in the list of definitions (share/alarms).
  TNcSimpleAlarmSource Alarms{"TPChiller",
                              {{1, naForbidLaser | naRequireStop, "The chiller does not answer"},
                               {2, naShownOnly, "The cooling water is warm", 2000, 5000},
                               {3, naForbidLaser | naRequireStop, "Too little cooling water flows"}}};

 private:
  const TChillerConfig FConfig;
  std::atomic<double> FTemperature{0.0}, FFlow{0.0};
  std::atomic<std::uint64_t> FReadMs{0};  // 0: not yet
};

// What a machine file calls "ready" (an input) and "temperature" (an analogue input).
class TChillerPoint final : public IMachinePoint {
 public:
  TChillerPoint(const TChiller& chiller, TPointKind kind) : FChiller(chiller), FKind(kind) {}

  double Read() override {
    if (!FChiller.Answers()) throw EDeviceAway("The chiller does not answer");
    return FKind == pkAnalogIn ? FChiller.Temperature() : FChiller.Ready() ? 1.0 : 0.0;
  }
  void Write(double) override {}
  bool Settled() override { return true; }
  std::optional<std::uint64_t> AgeMs() override { return FChiller.AgeMs(); }

 private:
  const TChiller& FChiller;
  const TPointKind FKind;
};

class TChillerDriver final : public IMachineDriver {
 public:
  explicit TChillerDriver(const TDriverContext& context)
      : FAlarms(context.Machine.Alarms), FChiller(new TChiller(Config(context))) {
    FAlarms.AddSource(FChiller->Alarms);
  }
  ~TChillerDriver() override { FAlarms.RemoveSource(FChiller->Alarms); }

  static TResult<> CheckPoint(const TConfigSection&, TPointKind kind, std::string_view address) {
    if ((kind == pkInput && address == "ready") || (kind == pkAnalogIn && address == "temperature")) return {};
    return TProblem{.What = "the chiller has no such point",
                    .Where = std::string(address),
                    .Remedy = "there are the input \"ready\" and the analogue input \"temperature\""};
  }
  TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) override {
    if (auto good = CheckPoint({}, kind, address); !good) return good.Problem();
    return kind == pkInput ? &FReady : &FTemperature;
  }
  // A chiller that is silent forbids the laser by its alarm, and keeps no controller from starting.
  TResult<> Connect() override {
    FChiller->StartUpdates();
    return {};
  }
  std::vector<TPortFacts> Ports() override {
    const bool answers = FChiller->Answers();
    return {{.Port = "ready", .Value = FChiller->Ready() ? "1" : "0", .AgeMs = FChiller->AgeMs(), .Readable = answers},
            {.Port = "temperature",
             .Value = Format("%.1f C", FChiller->Temperature()),
             .AgeMs = FChiller->AgeMs(),
             .Readable = answers}};
  }

 private:
  static TChillerConfig Config(const TDriverContext& context) {
    TChillerConfig config;
    context.Machine.Config.Section("Chiller").Load(config);
    return config;
  }

  TNcAlarmManager& FAlarms;
  const TDevicePtr<TChiller> FChiller;
  TChillerPoint FReady{*FChiller, pkInput}, FTemperature{*FChiller, pkAnalogIn};
};

inline TDriverFactory ChillerDriver() {
  using TMade = TResult<std::unique_ptr<IMachineDriver>>;
  return {
      .Name = "chiller",
      .Make = [](const TDriverContext& context) -> TMade { return TMade(std::make_unique<TChillerDriver>(context)); },
      .Sections = {{"Chiller", [] { return std::make_unique<TChillerConfig>(); }}},
      .CheckPoint = &TChillerDriver::CheckPoint};
}

}  // namespace example
