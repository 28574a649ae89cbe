// The axes of a LinuxCNC behind the ports: XY and the axis that turns, and the focus. mm and mm/s, machine coordinates.
//
// A target outside the machine file's limits, or one that is no number, throws and moves nothing; so does every move
// while LinuxCNC is away, in emergency stop, off, or an axis is not homed. A speed of 0, negative or above the axis'
// own means the axis' own. A move that comes while another one of the same port runs stops that one first. IsBusy
// throws what a move failed of; reads throw EDeviceAway. State thread, but for what says otherwise in the ports.
#pragma once

#include <cstdint>
#include <map>
#include <span>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "machines/linuxcnc/Link.h"

namespace ixocamglue {

class TLncMotion final : public TNcMotionDriver {
 public:
  explicit TLncMotion(TLncLink& link) : FLink(link) {}

  bool IsBusy() override { return FLink.Busy(luXY) || FLink.Busy(luTurn); }
  void MoveXY(TPoint2 target, double mmPerS) override;
  // A line for each point, with a corner there; done when the last one is.
  void MoveCurve(std::span<const TPoint2> points, double mmPerS) override;
  void TurnAxis(std::int32_t axis, double turns, double turnsPerS) override;  // relative; 0: 1 turn/s
  void StopAll(std::int32_t mode) override;
  double GetPos(std::int32_t axis) override;  // of the axis that turns: turns
  TAxisLimits GetLimits(std::int32_t axis) override;
  TNcArea GetWorkArea() override;
  void SaveFlagPos(std::int32_t flag) override;
  void SaveFlagPos(std::int32_t flag, TPoint2 pos) override { FFlags[flag] = pos; }

 private:
  TLncLink& FLink;
  std::map<std::int32_t, TPoint2> FFlags;
};

class TLncFocus final : public TNcCutHeadCtrl {
 public:
  explicit TLncFocus(TLncLink& link) : FLink(link) {}

  bool IsBusy() override { return FLink.Busy(luFocus); }
  void MoveFocus(double mm, double mmPerS) override;
  void Stop(std::int32_t) override { FLink.Stop(luFocus); }
  double GetFocus() override { return FLink.Pos(laFocus); }
  TAxisLimits GetFocusLimits() override;

 private:
  TLncLink& FLink;
};

// A move of one axis along a line, as XY, Z and focus make it; `ours` in our coordinates.
[[nodiscard]] TLncMove StraightMove(const TLncConfig& config, TLncUnit unit, TLncAxis axis, double ours, double mmPerS);
// Throws where an axis of ours may not go there. What was read at a limit may lie beyond it by less than an arrival is
// exact: that is the limit.
[[nodiscard]] double Inside(const TLncConfig& config, TLncAxis axis, double ours);
inline constexpr double kUnhomedSpeed = 20.0;  // mm/s at most; such a jog is not held by the pin that holds the axes
// What a speed that was asked for comes to.
[[nodiscard]] double SpeedOf(const TAxisConfig& axis, double mmPerS);

}  // namespace ixocamglue
