// The height follower on a LinuxCNC: its Z axis, and the loop in HAL that adds an offset to it. mm and mm/s; Z 0 is the
// top and grows downwards.
//
// Following is HAL's: the driver gives the height and switches the loop on. It switches it off where there is no plate:
// at the end of the axis, or, once the height was reached, when the sensor has not seen one for 50 ms. What the loop
// has added is given back before Z moves in machine coordinates, so that such a move begins where Z was without it. A
// calibration gives it back, lets the loop bring the nozzle down to PlateTouch, looks at the sensor on the way and at
// rest, and returns to where it began; its result stays "interrupted" until it has ended. StartCalibrate, Follow,
// MoveZ: as the axes' moves.
#pragma once

#include <cstdint>
#include <string>

#include "ixocamglue/platform/SensorJudgement.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "machines/linuxcnc/Link.h"

namespace ixocamglue {

class TLncFollower final : public TNcFollower {
 public:
  static constexpr double kReach = 14.0;  // mm; the sensor tells no height beyond 15

  explicit TLncFollower(TLncLink& link) : FLink(link) {}

  bool IsBusy() override;
  void MoveZ(double mm, double mmPerS) override;
  void Follow(double heightMm) override;
  void Stop(std::int32_t mode) override;
  double GetZ() override { return FLink.Config().ToOurs(laZ, FLink.Pos(laZ)); }
  bool IsFollowing() override;
  TAxisLimits GetZLimits() override;
  double GetSafeZ() override { return FLink.Config().SafeZ; }
  void StartCalibrate() override;
  TNcCaliResult GetCaliResult() override;
  std::string CaliErrorText(std::int32_t errorType) override { return Tr(TSensorJudgement::ErrorText(errorType)); }

  [[nodiscard]] bool Calibrating() const;  // any thread
  // With each frame of HAL, on its thread.
  void Take(std::uint64_t nowMs);

 private:
  enum class TPhase : std::uint8_t { Still, Following, Down, Resting, Up };

  void Begin(TPhase phase, double heightMm);
  void LetGo() IXO_REQUIRES(FLock);  // the loop runs no more, a calibration is interrupted
  [[nodiscard]] bool AtBottom() const;
  void Look(std::uint64_t nowMs) IXO_REQUIRES(FLock);
  void Rise() IXO_REQUIRES(FLock);

  TLncLink& FLink;
  mutable TCriticalSection FLock;  // outside the link's
  TPhase FPhase IXO_GUARDED_BY(FLock) = TPhase::Still;
  bool FReached IXO_GUARDED_BY(FLock) = true;
  bool FLoopOn IXO_GUARDED_BY(FLock) = false;  // asked for
  double FHeight IXO_GUARDED_BY(FLock) = 0.0;
  double FFromZ IXO_GUARDED_BY(FLock) = 0.0;
  std::uint64_t FSeenMs IXO_GUARDED_BY(FLock) = 0;  // the plate that is followed
  std::uint32_t FOrder IXO_GUARDED_BY(FLock) = 0;   // rises with each order and stop
  TSensorJudgement FJudgement IXO_GUARDED_BY(FLock);
  TNcCaliResult FComing IXO_GUARDED_BY(FLock);
  TNcCaliResult FResult IXO_GUARDED_BY(FLock){
      .Cap = 0.0, .CaliCapRange = 0.0, .ErrorType = TSensorJudgement::jeInterrupted};
};

}  // namespace ixocamglue
