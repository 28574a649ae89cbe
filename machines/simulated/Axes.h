// The simulated axes: XY with its motion driver and further axes that turn, the cutting head's focus axis. mm and mm/s;
// a speed of 0, negative or above the axis' own means the axis' own.
//
// A target outside the limits, or one that is no number, moves nothing and is noted in the journal. A move that comes
// while another one runs first lets the axis come to rest. Stopping follows the deceleration ramp, whatever the mode.
// Refused reads answer: busy, position 0, Z at its lowest, not following, no travel, no limits to go to, no work origin
// and an empty work area, no Z axis, and 0 (the top) for the safe Z. Any thread calls the ports and what is set by
// hand; everything else with the core's lock held.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Trapezoid.h"

namespace ixocamglue {

// Way points of one move, run through with one trapezoid from corner to corner.
class TSimPath {
 public:
  // From `from` through the points; consecutive equal points count once.
  TSimPath(TPoint2 from, std::span<const TPoint2> points, double speed, double acceleration);

  [[nodiscard]] bool Moving() const;
  [[nodiscard]] TPoint2 Pos() const;
  [[nodiscard]] double Speed() const { return FAlong.Speed(); }
  void Brake();
  void Step();

 private:
  void NextStretch();

  std::vector<TPoint2> FPoints;
  std::vector<double> FAt;     // way from the start to each point
  std::vector<double> FStops;  // where the move comes to rest: sharp corners and the end
  std::size_t FStretch = 0;
  double FSpeed;
  double FAcceleration;
  TTrapezoid FAlong;
};

class TSimMotion final : public TNcMotionDriver, public ISimPart {
 public:
  static constexpr std::int32_t kFirstTurnAxis = 2;
  static constexpr std::int32_t kAxes = 8;

  TSimMotion(TSimCore& core, const TSimConfig& config);

  bool IsBusy() override;
  void MoveXY(TPoint2 target, double mmPerS) override;
  void MoveCurve(std::span<const TPoint2> points, double mmPerS) override;
  void TurnAxis(std::int32_t axis, double turns, double turnsPerS) override;  // axis 2 to 7, relative; 0: 1 turn/s
  void StopAll(std::int32_t mode) override;
  double GetPos(std::int32_t axis) override;  // 2 to 7 in turns
  TAxisLimits GetLimits(std::int32_t axis) override;
  bool GetWorkOrigin(TPoint2& origin) override;
  TNcArea GetWorkArea() override;
  bool HasZ() override;  // on a machine without follower
  void MoveZ(double mm, double mmPerS) override;
  double GetZ() override;
  TAxisLimits GetZLimits() override;
  double GetSafeZ() override;
  void SaveFlagPos(std::int32_t flag) override;
  void SaveFlagPos(std::int32_t flag, TPoint2 pos) override;

  // --- any thread ---
  void Place(TPoint2 pos);  // at rest there at once
  void PlaceZ(double mm);   // the driver's own
  void SetWorkOrigin(std::optional<TPoint2> origin);
  void SetLimitPressed(bool pressed);  // the limit switch of X+: XY moves no more

  // --- past the gate; the core's lock is held ---
  void Halt();
  [[nodiscard]] TPoint2 Pos() const;
  [[nodiscard]] TPoint2 Speed() const;  // of each axis, with its sign
  [[nodiscard]] bool Moving() const;
  [[nodiscard]] bool Active() const {  // Moving, as the journal has told it; cheap enough for every ms
    FCore.AssertLocked();
    return FShownMoving;
  }
  [[nodiscard]] double Z() const;  // of the driver's own axis
  [[nodiscard]] double ZSpeed() const;
  [[nodiscard]] double PathSpeed() const;
  [[nodiscard]] double TurnPos(std::int32_t axis) const;  // turns; 0 for an axis that does not turn
  [[nodiscard]] double Turns() const;                     // of all axes that turn
  [[nodiscard]] bool Turning() const;
  [[nodiscard]] const TPoint2* FlagPos(std::int32_t flag) const;  // null: never saved

  void Step(std::uint64_t nowMs) override;

 private:
  void Start(std::vector<TPoint2> points, double mmPerS) IXO_REQUIRES(FCore.Lock);
  void Show() IXO_REQUIRES(FCore.Lock);
  void TellLimits(const TPoint2& point);
  void TellLimit(TSimDeviceAlarms::TAxis axis, double target, const TSimAxisConfig& limits);
  [[nodiscard]] bool Inside(const TPoint2& point) const;

  TSimCore& FCore;
  const TSimAxisConfig FX;
  const TSimAxisConfig FY;
  const TSimAxisConfig FZAxis;
  const bool FHasZ;
  const double FSafeZ;
  const TNcArea FWorkArea;
  std::optional<TPoint2> FWorkOrigin IXO_GUARDED_BY(FCore.Lock);
  TSimPath FPath IXO_GUARDED_BY(FCore.Lock);
  std::vector<TPoint2> FNextPoints IXO_GUARDED_BY(FCore.Lock);  // after the present path has come to rest
  double FNextSpeed IXO_GUARDED_BY(FCore.Lock) = 0.0;
  TTrapezoid FZ IXO_GUARDED_BY(FCore.Lock);
  std::array<TTrapezoid, kAxes> FTurns IXO_GUARDED_BY(FCore.Lock);
  std::map<std::int32_t, TPoint2> FFlags IXO_GUARDED_BY(FCore.Lock);
  bool FLimitPressed IXO_GUARDED_BY(FCore.Lock) = false;
  bool FShownMoving IXO_GUARDED_BY(FCore.Lock) = false;
  TPoint2 FSpeed IXO_GUARDED_BY(FCore.Lock);  // over the latest step
};

// One straight axis with limits: the focus axis and each Z. Used with the core's lock held.
class TSimAxis {
 public:
  TSimAxis(TSimCore& core, const char* device, TSimDeviceAlarms::TAxis axis, const TSimAxisConfig& config)
      : FCore(core), FDevice(device), FAxis(axis), FConfig(config) {
    FMotion.Place(Clamped(0.0));
  }

  // False, noted in the journal, when the axis cannot go there.
  bool Start(double mm, double mmPerS);
  void Brake();
  void Place(double mm);  // at rest there at once, within the limits
  void Step();

  [[nodiscard]] double Pos() const { return FMotion.Pos(); }
  [[nodiscard]] double Speed() const { return FMotion.Speed(); }
  [[nodiscard]] double Target() const { return FMotion.Target(); }
  [[nodiscard]] bool Moving() const { return FMotion.Moving(); }
  [[nodiscard]] double Clamped(double mm) const;
  [[nodiscard]] const TSimAxisConfig& Config() const { return FConfig; }

 private:
  void Show();

  TSimCore& FCore;
  const char* const FDevice;
  const TSimDeviceAlarms::TAxis FAxis;
  const TSimAxisConfig FConfig;
  TTrapezoid FMotion;
  bool FShownMoving = false;
};

class TSimCutHead final : public TNcCutHeadCtrl, public ISimPart {
 public:
  TSimCutHead(TSimCore& core, const TSimConfig& config)
      : FCore(core), FFocus(core, "head", TSimDeviceAlarms::axFocus, config.Focus) {}

  bool IsBusy() override;
  void MoveFocus(double mm, double mmPerS) override;
  void Stop(std::int32_t mode) override;
  double GetFocus() override;
  TAxisLimits GetFocusLimits() override;

  // --- past the gate; the core's lock is held ---
  void Halt();
  [[nodiscard]] double Focus() const;
  [[nodiscard]] double Speed() const;
  [[nodiscard]] bool Moving() const;
  void Step(std::uint64_t nowMs) override;

 private:
  TSimCore& FCore;
  TSimAxis FFocus IXO_GUARDED_BY(FCore.Lock);
};

}  // namespace ixocamglue
