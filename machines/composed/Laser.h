// The laser of a composed machine: made of points, or a driver's own that is told to the observer.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "ixocamglue/platform/alarms/NcSimpleAlarmSource.h"
#include "ixocamglue/platform/states/LaserLatch.h"
#include "machines/composed/Core.h"

namespace ixocamglue {

// These throw nothing: a device that cannot be reached is passed over.
class TComposedLaser : public IMachineLaser {
 public:
  struct TFacts {
    bool Lit = false;
    bool Emission = false;
    bool Aiming = false;
  };

  // As it is known now. Any thread.
  [[nodiscard]] virtual TFacts Facts() = 0;
  // Notices what has changed by itself. Any thread; often.
  virtual void Look() {}
  // A driver's device does not answer: what is lit or asked for goes dark at once and stays dark until a reset by
  // hand. Any thread, without the machine's lock.
  virtual void DeviceAway() = 0;
};

// A latch that holds beam or axes by itself; null: there is none of it.
struct TLatchPoints {
  IMachinePoint* Ok = nullptr;
  IMachinePoint* Rearm = nullptr;
};

// The points that a source is wired to; null: there is none.
struct TLaserPoints {
  IMachinePoint* EmissionRequest = nullptr;  // always there
  IMachinePoint* Beam = nullptr;             // always there
  IMachinePoint* Aiming = nullptr;
  IMachinePoint* Trip = nullptr;
  IMachinePoint* EmissionConfirmed = nullptr;
  IMachinePoint* BeamOn = nullptr;
  IMachinePoint* Fault = nullptr;
  std::vector<TLatchPoints> Latches;  // the source's own first, which Trip trips
};

// A source of points, with a latch of its own in software in front of the one that it has. Off is acknowledged by what
// is read back and by nothing else: while laser or emission is asked for, they answer what is; else whether anything
// of them is still on or on its way. Emission that goes by itself, a fault and a latch that falls take back what was
// asked for; nothing is lit again by itself.
//
// A reset of the latch waits until all outputs read low, then pulses Rearm of every latch, and ends when all are Ok;
// the latch stays tripped meanwhile, and for good where one does not come or somebody trips it meanwhile. One that
// falls trips the source's own.
class TPointLaser final : public TComposedLaser {
 public:
  static constexpr std::uint64_t kRearmMs = 100;
  static constexpr std::uint64_t kResetLimitMs = 2000;

  TPointLaser(TComposedCore& core, const TLaserPoints& points);
  ~TPointLaser() override;

  // Dark, and its alarms from here on. Once. Main thread; throws nothing, as it writes nothing but 0.
  void Begin();

  bool GetEmission() override;
  void EmissionOn() override;
  void EmissionOff() override;
  bool GetLaser() override;
  bool GetAiming() override;
  void SetAiming(bool on) override;
  void AimingOff() override;
  void SwitchLaser(bool on) override;

  const char* LatchReason() override { return FLatch.Reason(); }
  void Trip(const char* reason) override;
  void ResetLatch() override;

  [[nodiscard]] TFacts Facts() override { return {FLit, FEmission, FAiming}; }
  void Look() override;
  void DeviceAway() override;

 private:
  enum class TReset : std::uint8_t { None, Low, Pulse, Wait };

  [[nodiscard]] bool ReadEmission() const;
  [[nodiscard]] bool ReadLit() const;
  [[nodiscard]] static bool Rests(IMachinePoint* point);
  [[nodiscard]] static bool IsDown(const TLatchPoints& latch);  // false while it cannot be read
  bool WriteRearm(double value);                                // false: one cannot be reached
  // Forgets what was asked for and writes 0. Any thread, no lock.
  void Darken();
  void SwitchOn(const char* verb, std::atomic<bool>& ask, IMachinePoint& point) IXO_REQUIRES(FCore.Lock);
  void LookLocked() IXO_REQUIRES(FCore.Lock);
  void LookAtLatch(std::uint64_t nowMs) IXO_REQUIRES(FCore.Lock);
  void LookAtReset(std::uint64_t nowMs) IXO_REQUIRES(FCore.Lock);
  void Show(bool lit, bool emission) IXO_REQUIRES(FCore.Lock);
  void ShowAiming() IXO_REQUIRES(FCore.Lock);

  TComposedCore& FCore;
  const TLaserPoints FPoints;
  TLaserLatch FLatch;
  TNcSimpleAlarmSource FAlarms;
  bool FBegun = false;
  // Asked for; written with the core's lock held, and to false by anyone.
  std::atomic<bool> FAskEmission{false};
  std::atomic<bool> FAskLaser{false};
  // As read last.
  std::atomic<bool> FEmission{false};
  std::atomic<bool> FLit{false};
  std::atomic<bool> FAiming{false};
  bool FShownTrip IXO_GUARDED_BY(FCore.Lock) = false;
  bool FFault IXO_GUARDED_BY(FCore.Lock) = false;
  TReset FReset IXO_GUARDED_BY(FCore.Lock) = TReset::None;
  std::uint64_t FResetAtMs IXO_GUARDED_BY(FCore.Lock) = 0;
  std::atomic<const char*> FTrippedAnew{nullptr};  // since the reset began, and why
};

// A driver's own source.
class TWholeLaser final : public TComposedLaser {
 public:
  TWholeLaser(TComposedCore& core, IMachineLaser& laser) : FCore(core), FLaser(laser) {}

  bool GetEmission() override;
  void EmissionOn() override;
  void EmissionOff() override;
  bool GetLaser() override;
  bool GetAiming() override;
  void SetAiming(bool on) override;
  void AimingOff() override;
  void SwitchLaser(bool on) override;

  const char* LatchReason() override { return FLaser.LatchReason(); }
  void Trip(const char* reason) override { FLaser.Trip(reason); }
  void ResetLatch() override { FLaser.ResetLatch(); }

  [[nodiscard]] TFacts Facts() override;
  void DeviceAway() override;

 private:
  TComposedCore& FCore;
  IMachineLaser& FLaser;
};

}  // namespace ixocamglue
