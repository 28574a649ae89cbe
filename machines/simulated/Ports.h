// The simulated outputs, inputs and input waits, and the pallet switch table's values.
//
// Outputs and inputs exist where the machine file names them; the others cannot be switched and read low. Inputs are
// scripted: set by hand, at a time, or by an output that they follow. Refused reads answer: busy, low, none docked.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "ixocamglue/platform/alarms/NcAlarmManager.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/states/InputWait.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Gas.h"

namespace ixocamglue {

class TSimPorts final : public TNcMotionCard, public TNcInputGroup, public TNcDeviceManager, public ISimPart {
 public:
  TSimPorts(TSimCore& core, const TSimConfig& config, TSimGas& gas);

  void SwitchOutport(std::int32_t port, bool on) override;
  void SetInputLogic(std::int32_t inport, bool level) override;
  bool GetInput(std::int32_t inport) override;  // the level itself, whatever counts as reached
  TNcInputGroup* InputGroup() override { return this; }
  std::int32_t GetAxisCount() override { return 4; }  // X, Y, Z, Focus
  double GetRtGasPressure() override { return FGas.ReadPressure(); }

  // The level of an output and of an input; false where it is not fitted. Any thread, past the gate.
  [[nodiscard]] bool OutputIsOn(std::int32_t port);
  [[nodiscard]] bool InputIsOn(std::int32_t inport);

  // --- scripts ---
  void SetInput(std::int32_t port, bool level);
  void SetInputAt(std::int32_t port, bool level, std::uint64_t atMs);  // monotonic ms; in the past: with the next step
  // Whenever the output changes, the input takes its level `delayMs` later.
  void FollowOutput(std::int32_t outport, std::int32_t inport, std::uint32_t delayMs);

  // --- past the gate; the core's lock is held ---
  [[nodiscard]] bool Reached(std::int32_t inport) const;
  [[nodiscard]] std::vector<std::int32_t> OutputsOn() const;
  [[nodiscard]] bool IsOn(std::int32_t outport) const;
  // What a device does to its switch; one that is not fitted has no input.
  void Drive(const TSimSwitch& input, bool closed);
  // Told each output that has changed, with the lock held. Set and emptied while nothing runs.
  void OnSwitch(std::function<void(std::int32_t port)> listener) { FOnSwitch = std::move(listener); }

  void Step(std::uint64_t nowMs) override;

 private:
  struct TInput {
    bool Level = false;
    bool Reached = true;  // the level that counts
  };
  struct TFollow {
    std::int32_t Outport = 0;
    std::int32_t Inport = 0;
    std::uint32_t DelayMs = 0;
  };
  struct TDue {
    std::uint64_t AtMs = 0;
    std::int32_t Inport = 0;
    bool Level = false;
  };

  void Take(std::int32_t port, bool level) IXO_REQUIRES(FCore.Lock);
  void Plan(TDue due) IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  TSimGas& FGas;
  std::map<std::int32_t, bool> FOutputs IXO_GUARDED_BY(FCore.Lock);
  std::map<std::int32_t, TInput> FInputs IXO_GUARDED_BY(FCore.Lock);
  std::vector<TFollow> FFollows IXO_GUARDED_BY(FCore.Lock);
  std::vector<TDue> FDue IXO_GUARDED_BY(FCore.Lock);  // in order of time
  std::function<void(std::int32_t)> FOnSwitch;
};

class TSimInportCtrl final : public TNcInportCtrl, public ISimPart {
 public:
  TSimInportCtrl(TSimCore& core, TSimPorts& ports, TNcAlarmManager& alarms)
      : FCore(core), FPorts(ports), FWait(alarms) {}

  bool IsBusy() override;
  void SetTimeOutMode(std::int32_t mode) override;
  void StartWait(std::int32_t inport, std::int32_t limitMs) override;  // a negative limit: none

  void Cancel();  // the wait ends without a result; the core's lock is held
  void Step(std::uint64_t nowMs) override;

 private:
  void Look(std::uint64_t nowMs) IXO_REQUIRES(FCore.Lock);
  void Tell(const std::string& text) IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  TSimPorts& FPorts;
  TInputWait FWait IXO_GUARDED_BY(FCore.Lock);
};

// Where the pallets are. An exchange raises an alarm that ends whatever moves, follows or gives light. The lift begins
// when all that has been at rest for kRestMs, and takes its time, during which no pallet is docked.
class TSimSwitchTable final : public TNcSwitchTable, public ISimPart {
 public:
  static constexpr std::uint32_t kRestMs = 100;

  // `atRest`: asked with the core's lock held.
  TSimSwitchTable(TSimCore& core, const TSimConfig& config, std::function<bool()> atRest)
      : FCore(core), FAtRest(std::move(atRest)), FDocked(config.DockedTable) {}

  std::int32_t GetValue(const char* name, std::int32_t defValue) override;  // "DockedTable": 0 while none is docked

  // --- any thread ---
  void SetDocked(std::int32_t table);  // 1 or 2, 0 none, at once; ends an exchange
  void Exchange(std::int32_t table, std::uint32_t ms);
  void SetJammed(bool jammed);  // an exchange never ends, and one is under way

  [[nodiscard]] std::int32_t Docked() const {  // past the gate; the core's lock is held
    FCore.AssertLocked();
    return FDocked;
  }
  void Step(std::uint64_t nowMs) override;

 private:
  enum class TLift : std::uint8_t { Rests, Waits, Moves };

  void Undock() IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  const std::function<bool()> FAtRest;
  TLift FLift IXO_GUARDED_BY(FCore.Lock) = TLift::Rests;
  std::int32_t FDocked IXO_GUARDED_BY(FCore.Lock);
  std::int32_t FNext IXO_GUARDED_BY(FCore.Lock) = 0;
  bool FJammed IXO_GUARDED_BY(FCore.Lock) = false;
  std::uint32_t FTakesMs IXO_GUARDED_BY(FCore.Lock) = 0;
  std::uint64_t FSinceMs IXO_GUARDED_BY(FCore.Lock) = 0;  // waiting: at rest; moving: under way
};

}  // namespace ixocamglue
