// The simulated gas supply: one branch per gas type, a shut-off valve that takes a moment to switch, and behind it a
// proportional valve with a pressure sensor. bar, V.
//
// A pressure that is set is put out as the voltage of the branch's DA table, where the machine configuration has one
// that is enabled; without, it goes towards its set value like a first-order lag. OutputDA drives the valve itself, at
// any time, until the next pressure is set or another branch is selected. With the gas off the line vents, and the
// pressure path puts out 0 V. Every change of the voltage is a signal "da 2 4.50".
//
// A branch that is not fitted cannot be selected, and a pressure is limited to what the branch bears; both are noted in
// the journal. Refused reads answer: busy, gas on, branch 0, pressure 0, no number from the sensor. SetPressure and
// SelectBranch read the table: whoever changes it does so between them.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "ixocamglue/platform/Driver.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/GasValve.h"

namespace ixocamglue {

class TSimGas final : public IMachineGas, public ISimPart {
 public:
  TSimGas(TSimCore& core, const TSimConfig& config, std::uint64_t seed);
  ~TSimGas() override;

  bool IsBusy() override;
  bool GetGas() override;
  std::int32_t GetBranch() override;
  double GetPressure() override;
  void SelectBranch(std::int32_t branch) override;
  void SetPressure(double bar) override;
  void SwitchOn() override;
  void SwitchOff() override;
  void OutputDA(double volt) override;
  bool SupplyGood() override { return FSupplyGood.load(std::memory_order_acquire); }

  // What the selected branch's sensor reads, through the gate as "sensor". No number without a branch.
  double ReadPressure() override;

  // What the supply gives; a branch set higher than this stays below it, which is an alarm. Any thread.
  void SetSupply(double bar);
  // The branch's valve or sensor fails from now on, or works again. False: no such branch. Any thread.
  bool SetFault(std::int32_t branch, TValveFault fault);

  struct TFacts {
    bool On = false;
    std::int32_t Branch = 0;
    double SetBar = 0.0;
    double Bar = 0.0;  // at the nozzle
    bool Switching = false;
    double Volt = 0.0;  // put out to the selected branch's valve
  };
  // --- past the gate; the core's lock is held ---
  [[nodiscard]] TFacts Facts() const;
  void Halt();

  void Step(std::uint64_t nowMs) override;

 private:
  // One branch's valve and sensor.
  struct TLine {
    TGasValve Valve;
    TPressureSensor Sensor;
    TValveFault Fault = vfNone;
    TLine(const TGasValveParams& params, std::uint64_t seed) : Valve(params), Sensor(params, seed) {}
    void SetFault(TValveFault fault) {
      Fault = fault;
      Valve.SetFault(fault);
      Sensor.SetFault(fault);
    }
  };
  // Who decides what the valve does.
  enum class TDrive : std::uint8_t { Ideal, Table, Raw };

  [[nodiscard]] const TSimGasBranch* Fitted(std::int32_t branch) const;
  [[nodiscard]] std::size_t Index(std::int32_t branch) const;  // past the end: not fitted
  [[nodiscard]] TLine* Line(std::int32_t branch) IXO_REQUIRES(FCore.Lock);
  // Leaves the raw output; the table decides, when there is one.
  void FollowPressure() IXO_REQUIRES(FCore.Lock);
  void Drive(TDrive drive) IXO_REQUIRES(FCore.Lock);
  // Puts the pressure path's voltage out.
  void OutputTable() IXO_REQUIRES(FCore.Lock);
  void Output(double volt) IXO_REQUIRES(FCore.Lock);
  void LimitPressure() IXO_REQUIRES(FCore.Lock);
  void Switch(bool on) IXO_REQUIRES(FCore.Lock);
  void WatchPressure(std::uint64_t nowMs) IXO_REQUIRES(FCore.Lock);
  void ShowOn() IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  const std::vector<TSimGasBranch> FBranches;
  const std::uint64_t FSwitchMs;
  const std::uint64_t FLowAfterMs;  // a pressure that is low for longer is an alarm
  const double FLag;                // share of the way to the set value per ms
  bool FOn IXO_GUARDED_BY(FCore.Lock) = false;
  std::int32_t FBranch IXO_GUARDED_BY(FCore.Lock) = 0;
  double FSetBar IXO_GUARDED_BY(FCore.Lock) = 0.0;
  double FBar IXO_GUARDED_BY(FCore.Lock) = 0.0;
  std::uint64_t FSwitchedAtMs IXO_GUARDED_BY(FCore.Lock) = 0;
  double FSupplyBar IXO_GUARDED_BY(FCore.Lock) = std::numeric_limits<double>::infinity();
  std::atomic<bool> FSupplyGood{true};                   // it gives enough for the set pressure
  std::vector<TLine> FLines IXO_GUARDED_BY(FCore.Lock);  // one per branch, in their order
  TDrive FDrive IXO_GUARDED_BY(FCore.Lock) = TDrive::Ideal;
  std::optional<double> FTableVolt IXO_GUARDED_BY(FCore.Lock);  // for the set pressure; none without a table
  std::uint64_t FEnoughAtMs IXO_GUARDED_BY(FCore.Lock) = 0;     // when the pressure was last as it should be
  std::int32_t FLowBranch IXO_GUARDED_BY(FCore.Lock) = 0;       // whose alarm stands; 0: none
};

}  // namespace ixocamglue
