#include "machines/linuxcnc/Axes.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr double kDegrees = 360.0;  // of a turn

// Whole: what a line before it left in force changes nothing.
std::string Line(const std::string& target, double perMin) {
  return Format("G90 G21 G94 G61 G53 G1 %s F%.3f", target.c_str(), perMin);
}

std::string LineXY(TPoint2 target, double mmPerS) {
  return Line(Format("X%.4f Y%.4f", target.X, target.Y), mmPerS * 60.0);
}

}  // namespace

double SpeedOf(const TAxisConfig& axis, double mmPerS) {
  return mmPerS > 0.0 && mmPerS < axis.MaxSpeed ? mmPerS : axis.MaxSpeed;
}

double Inside(const TLncConfig& config, TLncAxis axis, double ours) {
  const TAxisConfig& limits = config.Axes[axis].Limits;
  const double inside = std::max(limits.SoftLimitNeg, std::min(ours, limits.SoftLimitPos));
  if (std::abs(ours - inside) <= TLncLink::kArrivedMm) return inside;
  throw std::runtime_error(
      Format(Tr("%s %.3f lies outside %.3f to %.3f"), AxisName(axis), ours, limits.SoftLimitNeg, limits.SoftLimitPos));
}

TLncMove StraightMove(const TLncConfig& config, TLncUnit unit, TLncAxis axis, double ours, double mmPerS) {
  const double theirs = config.ToTheirs(axis, Inside(config, axis, ours));
  const TLncAxisFacts& facts = config.Axes[axis];
  return {.Unit = unit,
          .Lines = {Line(Format("%c%.4f", facts.Letter, theirs), SpeedOf(facts.Limits, mmPerS) * 60.0)},
          .Targets = {{axis, theirs}}};
}

void TLncMotion::MoveXY(TPoint2 target, double mmPerS) {
  const TLncConfig& config = FLink.Config();
  if (!FLink.Homed(laX) || !FLink.Homed(laY)) {
    const TPoint2 way{target.X - FLink.Pos(laX), target.Y - FLink.Pos(laY)};
    const TLncAxis axis = std::abs(way.X) >= std::abs(way.Y) ? laX : laY;
    return FLink.JogUnhomed(luXY, axis, axis == laX ? way.X : way.Y,
                            std::min(SpeedOf(config.Axes[axis].Limits, mmPerS), kUnhomedSpeed));
  }
  MoveCurve(std::span(&target, 1), mmPerS);
}

void TLncMotion::MoveCurve(std::span<const TPoint2> points, double mmPerS) {
  const TLncConfig& config = FLink.Config();
  TAxisConfig slower = config.Axes[laX].Limits;
  slower.MaxSpeed = std::min(slower.MaxSpeed, config.Axes[laY].Limits.MaxSpeed);
  const double speed = SpeedOf(slower, mmPerS);
  TLncMove move;
  TPoint2 target;
  for (const TPoint2& point : points) {
    target = {Inside(config, laX, point.X), Inside(config, laY, point.Y)};
    move.Lines.push_back(LineXY(target, speed));
  }
  if (points.empty()) return;
  move.Targets = {{laX, target.X}, {laY, target.Y}};
  FLink.Move(std::move(move));
}

void TLncMotion::TurnAxis(std::int32_t axis, double turns, double turnsPerS) {
  const TLncConfig& config = FLink.Config();
  const TLncAxisFacts& facts = config.Axes[laTurn];
  if (!facts.Fitted || axis != config.TurnAxisNo)
    throw std::runtime_error(Format(Tr("the machine file names no axis of LinuxCNC that turns as axis %d"), axis));
  if (!std::isfinite(turns)) throw std::runtime_error(Tr("the number of turns is no number"));
  const double speed = turnsPerS > 0.0 ? turnsPerS : 1.0;
  const double target = FLink.Pos(laTurn) + turns * kDegrees;
  FLink.Move({.Unit = luTurn,
              .Lines = {Line(Format("%c%.4f", facts.Letter, target), speed * kDegrees * 60.0)},
              .Targets = {{laTurn, target}}});
}

void TLncMotion::StopAll(std::int32_t) {
  FLink.Stop(luXY);
  FLink.Stop(luTurn);
}

double TLncMotion::GetPos(std::int32_t axis) {
  if (axis == 0 || axis == 1) return FLink.Pos(axis == 0 ? laX : laY);
  const TLncConfig& config = FLink.Config();
  return config.Axes[laTurn].Fitted && axis == config.TurnAxisNo ? FLink.Pos(laTurn) / kDegrees : 0.0;
}

TAxisLimits TLncMotion::GetLimits(std::int32_t axis) {
  if (axis != 0 && axis != 1) return {};
  const TAxisConfig& limits = FLink.Config().Axes[axis == 0 ? laX : laY].Limits;
  return {limits.SoftLimitNeg, limits.SoftLimitPos};
}

TNcArea TLncMotion::GetWorkArea() {
  const TAxisLimits x = GetLimits(0);
  const TAxisLimits y = GetLimits(1);
  return {{x.Neg, y.Neg}, {x.Pos, y.Pos}};
}

void TLncMotion::SaveFlagPos(std::int32_t flag) { SaveFlagPos(flag, {GetPos(0), GetPos(1)}); }

void TLncFocus::MoveFocus(double mm, double mmPerS) {
  FLink.Move(StraightMove(FLink.Config(), luFocus, laFocus, mm, mmPerS));
}

TAxisLimits TLncFocus::GetFocusLimits() {
  const TAxisConfig& limits = FLink.Config().Axes[laFocus].Limits;
  return {limits.SoftLimitNeg, limits.SoftLimitPos};
}

}  // namespace ixocamglue
