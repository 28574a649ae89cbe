// The gas of a composed machine: made of points, or a driver's own that is told to the observer. bar, V.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"
#include "machines/composed/Core.h"

namespace ixocamglue {

// These throw nothing: a device that cannot be reached is passed over.
class TComposedGas : public IMachineGas {
 public:
  struct TFacts {
    bool On = false;
    std::int32_t Branch = 0;
    double SetBar = 0.0;
    double Bar = 0.0;  // the sensor's; of a driver's own gas its driver shows it
    double Volt = 0.0;
    bool ValveOpen = false;
  };

  // As it is known now. Any thread.
  [[nodiscard]] virtual TFacts Facts() = 0;
  // Notices what has changed by itself. Any thread; often.
  virtual void Look() {}
  // Shuts everything. Any thread; waits for no device.
  virtual void Halt() {}
};

// A branch; null: there is none of it.
struct TGasLine {
  std::int32_t GasType = 0;
  double MaxPressure = 0.0;
  bool HasVolt = false;                // its DAPort is named
  IMachinePoint* Valve = nullptr;      // always there
  IMachinePoint* Pressure = nullptr;   // bar
  IMachinePoint* SetPoint = nullptr;   // bar
  IMachinePoint* VoltPoint = nullptr;  // of its DAPort
};

// A supply of points: one shut-off valve a branch, and behind it a pressure controller that takes bar, a proportional
// valve that takes a voltage, or a regulator that is set by hand.
//
// A pressure is put out while the gas is on: as it is at a SetPoint, else as the voltage of the branch's calibrated
// table. A branch whose voltage has no table that is in use cannot be given a pressure: it answers 0, which ends the
// step that asked for it. With neither, the pressure is what somebody has set by hand, and any is taken as good.
// OutputDA drives the proportional valve itself until the next pressure or another branch. What is left is shut first.
// Off is acknowledged by the valves as they are read back. Where a pressure was put out and a sensor stays below 80 %
// of it, the alarm TPGas stands.
class TPointGas final : public TComposedGas {
 public:
  TPointGas(TComposedCore& core, std::vector<TGasLine> lines, IMachinePoint* supply, std::uint64_t switchMs);
  ~TPointGas() override;

  // Everything shut. The alarm package asks from here on. Main thread; throws nothing, as it writes nothing but 0.
  void Begin();

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
  double ReadPressure() override;

  [[nodiscard]] TFacts Facts() override;
  void Look() override;
  void Halt() override;

 private:
  [[nodiscard]] TGasLine* Line(std::int32_t branch);
  [[nodiscard]] bool AnyOpen();
  void Shut();
  void LookLocked() IXO_REQUIRES(FCore.Lock);
  void LookAtPressure() IXO_REQUIRES(FCore.Lock);
  void ShutLocked() IXO_REQUIRES(FCore.Lock);
  void LimitPressure() IXO_REQUIRES(FCore.Lock);
  void PutPressure() IXO_REQUIRES(FCore.Lock);
  void PutVolt(TGasLine& line, double volt) IXO_REQUIRES(FCore.Lock);
  void ShowOn() IXO_REQUIRES(FCore.Lock);

  TComposedCore& FCore;
  std::vector<TGasLine> FLines;
  IMachinePoint* const FSupply;
  const std::uint64_t FSwitchMs;
  TNcSimpleAlarmSource FAlarms;
  bool FBegun = false;
  std::atomic<bool> FSupplyGood{true};
  bool FOn IXO_GUARDED_BY(FCore.Lock) = false;     // told
  bool FShown IXO_GUARDED_BY(FCore.Lock) = false;  // told to be on, or read back so
  bool FRaw IXO_GUARDED_BY(FCore.Lock) = false;
  std::int32_t FBranch IXO_GUARDED_BY(FCore.Lock) = 0;
  double FSetBar IXO_GUARDED_BY(FCore.Lock) = 0.0;
  double FVolt IXO_GUARDED_BY(FCore.Lock) = 0.0;  // put out to the selected branch
  std::uint64_t FSwitchedAtMs IXO_GUARDED_BY(FCore.Lock) = 0;
  std::uint64_t FEnoughAtMs IXO_GUARDED_BY(FCore.Lock) = 0;  // the pressure was not too low
  std::int32_t FLow IXO_GUARDED_BY(FCore.Lock) = 0;          // the gas type whose pressure is too low; 0: none
};

// A driver's own supply.
class TWholeGas final : public TComposedGas {
 public:
  TWholeGas(TComposedCore& core, IMachineGas& gas) : FCore(core), FGas(gas) {}

  bool IsBusy() override;
  bool GetGas() override;
  std::int32_t GetBranch() override;
  double GetPressure() override;
  void SelectBranch(std::int32_t branch) override;
  void SetPressure(double bar) override;
  void SwitchOn() override;
  void SwitchOff() override;
  void OutputDA(double volt) override;
  bool SupplyGood() override { return FGas.SupplyGood(); }
  double ReadPressure() override;

  [[nodiscard]] TFacts Facts() override;

 private:
  TComposedCore& FCore;
  IMachineGas& FGas;
};

}  // namespace ixocamglue
