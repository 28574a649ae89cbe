// The simulated height followers with their Z axes. mm and mm/s; a speed of 0, negative or above the axis' own means
// the axis' own.
//
// A follower sees the plate through its capacitance only, and follows within what the sensor can tell at that height. A
// calibration goes down to the plate, measures, and returns to where it began; its result stays "interrupted" until it
// has ended. Refused reads answer: busy, Z at its lowest, not following, no limits to go to, the top for the safe Z,
// and an interrupted calibration. Any thread calls the ports and what is set by hand; everything else with the core's
// lock held.
#pragma once

#include <cstdint>

#include "ixocamglue/platform/SensorJudgement.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Axes.h"
#include "machines/simulated/Capacitance.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"

namespace ixocamglue {

// Busy until a move or calibration has ended, or the height is reached for the first time.
class TSimFollower final : public TNcFollower, public ISimPart {
 public:
  TSimFollower(TSimCore& core, const char* device, const TSimConfig& config, std::uint64_t seed)
      : FCore(core),
        FDevice(device),
        FZ(core, device, TSimDeviceAlarms::axZ, config.Z),
        FSafeZ(config.SafeZ),
        FSensor(seed),
        FPlateZ(config.Physics.PlateZ) {}

  bool IsBusy() override;
  void MoveZ(double mm, double mmPerS) override;
  void Follow(double heightMm) override;
  void Stop(std::int32_t mode) override;
  double GetZ() override;
  bool IsFollowing() override;
  TAxisLimits GetZLimits() override;
  double GetSafeZ() override;
  void StartCalibrate() override;
  TNcCaliResult GetCaliResult() override;
  std::string CaliErrorText(std::int32_t errorType) override { return Tr(TSensorJudgement::ErrorText(errorType)); }

  // --- by hand; any thread ---
  void PlaceZ(double mm);   // at rest there at once
  void SetPlate(double z);  // the plate under the nozzle has changed its height
  void RemovePlate();
  void SetNoise(double picofarad);
  void SetRipple(double picofarad);
  void SetCalibrationStuck(bool stuck);  // it comes to the plate and never ends

  // --- past the gate; the core's lock is held ---
  void Halt();
  [[nodiscard]] double Z() const;
  [[nodiscard]] double Speed() const;
  [[nodiscard]] bool Moving() const;
  [[nodiscard]] bool Following() const;
  [[nodiscard]] bool Calibrating() const;
  [[nodiscard]] double PlateZ() const;  // infinite: no plate
  void Step(std::uint64_t nowMs) override;

 private:
  enum class TCali : std::uint8_t { Idle, Down, Resting, Up };

  [[nodiscard]] double Gap() const IXO_REQUIRES(FCore.Lock) { return FPlateZ - FZ.Pos(); }
  void SetFollowing(bool on) IXO_REQUIRES(FCore.Lock);
  void KeepHeight() IXO_REQUIRES(FCore.Lock);
  void Probe() IXO_REQUIRES(FCore.Lock);
  void GoDown() IXO_REQUIRES(FCore.Lock);
  void Return(bool plateFound) IXO_REQUIRES(FCore.Lock);
  void EndCalibration() IXO_REQUIRES(FCore.Lock);
  void Interrupt() IXO_REQUIRES(FCore.Lock);

  TSimCore& FCore;
  const char* const FDevice;
  TSimAxis FZ IXO_GUARDED_BY(FCore.Lock);
  const double FSafeZ;
  TCapacitance FSensor IXO_GUARDED_BY(FCore.Lock);
  double FPlateZ IXO_GUARDED_BY(FCore.Lock);  // infinite: none
  double FHeight IXO_GUARDED_BY(FCore.Lock) = 0.0;
  bool FFollowing IXO_GUARDED_BY(FCore.Lock) = false;
  bool FReached IXO_GUARDED_BY(FCore.Lock) = true;
  TCali FCali IXO_GUARDED_BY(FCore.Lock) = TCali::Idle;
  bool FCaliStuck IXO_GUARDED_BY(FCore.Lock) = false;
  double FCaliFromZ IXO_GUARDED_BY(FCore.Lock) = 0.0;
  TSensorJudgement FJudgement IXO_GUARDED_BY(FCore.Lock);
  TNcCaliResult FResult IXO_GUARDED_BY(FCore.Lock){.ErrorType = TSensorJudgement::jeInterrupted};
  TNcCaliResult FComing IXO_GUARDED_BY(FCore.Lock);  // valid on the way up
};

}  // namespace ixocamglue
