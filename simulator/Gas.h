// The simulated gas supply: one branch per gas type, a valve that takes a moment to switch, and a pressure that goes
// towards its set value like a first-order lag. bar.
//
// A branch that is not fitted cannot be selected, and a pressure is limited to what the branch bears; both are noted in
// the journal. Refused reads answer: busy, gas on, branch 0, pressure 0.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "simulator/Config.h"
#include "simulator/Core.h"

namespace ixocamglue {

class TSimGas final : public TNcGas, public ISimPart {
 public:
  TSimGas(TSimCore& core, const TSimConfig& config);
  ~TSimGas() override;

  bool IsBusy() override;
  bool GetGas() override;
  std::int32_t GetBranch() override;
  double GetPressure() override;
  void SelectBranch(std::int32_t branch) override;
  void SetPressure(double bar) override;
  void SwitchOn() override;
  void SwitchOff() override;

  // What the supply gives; a branch set higher than this stays below it, which is an alarm. Any thread.
  void SetSupply(double bar);

  struct TFacts {
    bool On = false;
    std::int32_t Branch = 0;
    double SetBar = 0.0;
    double Bar = 0.0;  // at the nozzle
    bool Switching = false;
  };
  [[nodiscard]] TFacts Facts() const;  // past the gate; the core's lock is held

  void Step(std::uint64_t nowMs) override;

 private:
  [[nodiscard]] const TSimGasBranch* Fitted(std::int32_t branch) const;
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
  std::uint64_t FEnoughAtMs IXO_GUARDED_BY(FCore.Lock) = 0;  // when the pressure was last as it should be
  std::int32_t FLowBranch IXO_GUARDED_BY(FCore.Lock) = 0;    // whose alarm stands; 0: none
};

}  // namespace ixocamglue
