// Outputs, inputs, input waits and pallets of a composed machine, made of points. An output or input that is not named
// cannot be switched and reads low.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/platform/states/InputWait.h"
#include "machines/composed/Core.h"
#include "machines/composed/Gas.h"

namespace ixocamglue {

// Any thread, but for what stands in front of the first start: the main one. What cannot be read keeps what was seen of
// it last, and nothing throws.
class TComposedPorts final : public TNcMotionCard, public TNcInputGroup, public TNcDeviceManager {
 public:
  explicit TComposedPorts(TComposedCore& core) : FCore(core) {}

  // --- while the machine is made ---
  void AddInput(std::int32_t number, IMachinePoint& point) { FInputs[number].Point = &point; }
  void AddOutput(std::int32_t number, IMachinePoint& point) { FOutputs[number].Point = &point; }
  void SetGas(TComposedGas* gas) { FGas = gas; }
  void SetAxisCount(std::int32_t count) { FAxisCount = count; }
  [[nodiscard]] bool HasOutputs() const { return !FOutputs.empty(); }

  void SwitchOutport(std::int32_t port, bool on) override;
  void SetInputLogic(std::int32_t inport, bool level) override;
  bool GetInput(std::int32_t inport) override;  // the level itself, whatever counts as reached
  TNcInputGroup* InputGroup() override { return this; }
  std::int32_t GetAxisCount() override { return FAxisCount; }
  double GetRtGasPressure() override;

  // What is read back, told where it has changed; any thread.
  void Look();
  [[nodiscard]] bool Reached(std::int32_t inport);  // the lock is held; false while it cannot be read
  [[nodiscard]] std::vector<std::int32_t> OutputsOn();

 private:
  struct TInput {
    IMachinePoint* Point = nullptr;
    bool Reached = true;  // the level that counts
  };
  struct TOutput {
    IMachinePoint* Point = nullptr;
    bool Shown = false;
  };

  void Show(std::int32_t port, TOutput& output) IXO_REQUIRES(FCore.Lock);

  TComposedCore& FCore;
  TComposedGas* FGas = nullptr;
  std::int32_t FAxisCount = 0;
  std::map<std::int32_t, TInput> FInputs;    // Reached with the lock held
  std::map<std::int32_t, TOutput> FOutputs;  // Shown with the lock held
};

// Any thread. An input that cannot be read has not been reached; nothing throws.
class TComposedInportCtrl final : public TNcInportCtrl {
 public:
  TComposedInportCtrl(TComposedCore& core, TComposedPorts& ports)
      : FCore(core), FPorts(ports), FWait(core.Context.Alarms) {}

  bool IsBusy() override;
  void SetTimeOutMode(std::int32_t mode) override;
  void StartWait(std::int32_t inport, std::int32_t limitMs) override;  // a negative limit: none

  void Cancel();  // the wait ends without a result
  void Look();

 private:
  void LookLocked() IXO_REQUIRES(FCore.Lock);
  void Tell(const std::string& text);

  TComposedCore& FCore;
  TComposedPorts& FPorts;
  TInputWait FWait IXO_GUARDED_BY(FCore.Lock);
};

// Which pallet is docked, by an input each; null: there is none of it. Both at once are none.
class TPointPallets final : public TNcSwitchTable {
 public:
  TPointPallets(TComposedCore& core, IMachinePoint* docked1, IMachinePoint* docked2)
      : FCore(core), FDocked1(docked1), FDocked2(docked2) {}

  std::int32_t GetValue(const char* name, std::int32_t defValue) override;

 private:
  TComposedCore& FCore;
  IMachinePoint* const FDocked1;
  IMachinePoint* const FDocked2;
};

// An output that is not told again what is on its way to it or reads back from it: whoever repeats an off in every pass
// would put off its acknowledgement for ever. Any thread.
class TSteadyPoint final : public IMachinePoint {
 public:
  explicit TSteadyPoint(IMachinePoint& point) : FPoint(point) {}
  double Read() override { return FPoint.Read(); }
  void Write(double value) override;
  bool Settled() override { return FPoint.Settled(); }
  std::optional<std::uint64_t> AgeMs() override { return FPoint.AgeMs(); }

 private:
  [[nodiscard]] bool Shows(double value);

  IMachinePoint& FPoint;
  TCriticalSection FLock;  // held over the point's Write, so that the last one told is the last one written
  std::optional<double> FLast IXO_GUARDED_BY(FLock);
};

// An input whose level is turned round.
class TInvertedPoint final : public IMachinePoint {
 public:
  explicit TInvertedPoint(IMachinePoint& point) : FPoint(point) {}
  double Read() override { return FPoint.IsOn() ? 0.0 : 1.0; }
  void Write(double) override {}
  bool Settled() override { return FPoint.Settled(); }
  std::optional<std::uint64_t> AgeMs() override { return FPoint.AgeMs(); }

 private:
  IMachinePoint& FPoint;
};

}  // namespace ixocamglue
