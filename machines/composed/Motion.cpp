#include "machines/composed/Motion.h"

#include <algorithm>
#include <string_view>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr TAxisLimits kNowhere{1.0, -1.0};  // of a device that does not answer

}  // namespace

// --- TToldAxes ---

bool TToldAxes::IsBusy() {
  return FCore.Gate.Ask("axes", "IsBusy", true,
                        [&] { return FAxes.IsBusy() || (&FMotor != &FAxes && FMotor.IsBusy()); });
}

void TToldAxes::MoveXY(TPoint2 target, double mmPerS) {
  FCore.Gate.Carry("axes", "MoveXY", vkStart, Format("%.3f %.3f %.1f", target.X, target.Y, mmPerS),
                   [&] { FAxes.MoveXY(target, mmPerS); });
}

void TToldAxes::MoveCurve(std::span<const TPoint2> points, double mmPerS) {
  std::string within;  // "left right front back"
  if (!points.empty()) {
    const auto [left, right] = std::ranges::minmax(points, {}, &TPoint2::X);
    const auto [front, back] = std::ranges::minmax(points, {}, &TPoint2::Y);
    within = Format("%.3f %.3f %.3f %.3f", left.X, right.X, front.Y, back.Y);
  }
  FCore.Gate.Carry("axes", "MoveCurve", vkStart, Format("%.1f %s %zu points", mmPerS, within.c_str(), points.size()),
                   [&] { FAxes.MoveCurve(points, mmPerS); });
}

void TToldAxes::TurnAxis(std::int32_t axis, double turns, double turnsPerS) {
  FCore.Gate.Carry("axes", "TurnAxis", vkStart, Format("%d %.3f %.3f", axis, turns, turnsPerS),
                   [&] { FMotor.TurnAxis(axis, turns, turnsPerS); });
}

void TToldAxes::StopAll(std::int32_t mode) {
  FCore.Gate.Carry("axes", "StopAll", vkStop, Format("%d", mode), [&] {
    if (&FMotor == &FAxes) return FAxes.StopAll(mode);
    try {
      FMotor.StopAll(mode);
    } catch (...) {
      FAxes.StopAll(mode);
      throw;
    }
    FAxes.StopAll(mode);
  });
}

double TToldAxes::GetPos(std::int32_t axis) {
  return FCore.Gate.Ask("axes", "GetPos", 0.0, [&] { return (axis < 2 ? FAxes : FMotor).GetPos(axis); });
}

TAxisLimits TToldAxes::GetLimits(std::int32_t axis) {
  return FCore.Gate.Ask("axes", "GetLimits", TAxisLimits{}, [&] { return FAxes.GetLimits(axis); });
}

bool TToldAxes::GetWorkOrigin(TPoint2& origin) {
  return FCore.Gate.Ask("axes", "GetWorkOrigin", false, [&] { return FAxes.GetWorkOrigin(origin); });
}

TNcArea TToldAxes::GetWorkArea() {
  return FCore.Gate.Ask("axes", "GetWorkArea", TNcArea{}, [&] { return FAxes.GetWorkArea(); });
}

bool TToldAxes::HasZ() {
  return FCore.Gate.Ask("axes", "HasZ", false, [&] { return FAxes.HasZ(); });
}

void TToldAxes::MoveZ(double mm, double mmPerS) {
  FCore.Gate.Carry("axes", "MoveZ", vkStart, Format("%.3f %.1f", mm, mmPerS), [&] { FAxes.MoveZ(mm, mmPerS); });
}

double TToldAxes::GetZ() {
  double lowest = 0.0;
  if (!FCore.Gate.Carry("axes", "GetZ", vkRead, {}, [&] { lowest = FAxes.GetZ(); })) lowest = FAxes.GetZLimits().Pos;
  return lowest;
}

TAxisLimits TToldAxes::GetZLimits() {
  return FCore.Gate.Ask("axes", "GetZLimits", kNowhere, [&] { return FAxes.GetZLimits(); });
}

double TToldAxes::GetSafeZ() {
  return FCore.Gate.Ask("axes", "GetSafeZ", 0.0, [&] { return FAxes.GetSafeZ(); });
}

void TToldAxes::SaveFlagPos(std::int32_t flag) {
  FCore.Gate.Carry("axes", "SaveFlagPos", vkSet, Format("%d", flag), [&] { FAxes.SaveFlagPos(flag); });
}

void TToldAxes::SaveFlagPos(std::int32_t flag, TPoint2 pos) {
  FCore.Gate.Carry("axes", "SaveFlagPos", vkSet, Format("%d %.3f %.3f", flag, pos.X, pos.Y),
                   [&] { FAxes.SaveFlagPos(flag, pos); });
}

// --- TToldFollower ---

bool TToldFollower::IsBusy() {
  return FCore.Gate.Ask(FDevice, "IsBusy", true, [&] { return FFollower.IsBusy(); });
}

void TToldFollower::MoveZ(double mm, double mmPerS) {
  FCore.Gate.Carry(FDevice, "MoveZ", vkStart, Format("%.3f %.1f", mm, mmPerS), [&] { FFollower.MoveZ(mm, mmPerS); });
}

void TToldFollower::Follow(double heightMm) {
  FCore.Gate.Carry(FDevice, "Follow", vkStart, Format("%.3f", heightMm), [&] { FFollower.Follow(heightMm); });
}

void TToldFollower::Stop(std::int32_t mode) {
  FCore.Gate.Carry(FDevice, "Stop", vkStop, Format("%d", mode), [&] { FFollower.Stop(mode); });
}

double TToldFollower::GetZ() {
  double z = 0.0;
  if (!FCore.Gate.Carry(FDevice, "GetZ", vkRead, {}, [&] { z = FFollower.GetZ(); })) z = FFollower.GetZLimits().Pos;
  return z;
}

bool TToldFollower::IsFollowing() {
  return FCore.Gate.Ask(FDevice, "IsFollowing", false, [&] { return FFollower.IsFollowing(); });
}

TAxisLimits TToldFollower::GetZLimits() {
  return FCore.Gate.Ask(FDevice, "GetZLimits", kNowhere, [&] { return FFollower.GetZLimits(); });
}

double TToldFollower::GetSafeZ() {
  return FCore.Gate.Ask(FDevice, "GetSafeZ", 0.0, [&] { return FFollower.GetSafeZ(); });
}

void TToldFollower::StartCalibrate() {
  FCore.Gate.Carry(FDevice, "StartCalibrate", vkStart, {}, [&] { FFollower.StartCalibrate(); });
}

TNcCaliResult TToldFollower::GetCaliResult() {
  const TNcCaliResult interrupted{.Cap = 0.0, .CaliCapRange = 0.0, .SteadyLv = 0, .SmoothLv = 0, .ErrorType = 1};
  return FCore.Gate.Ask(FDevice, "GetCaliResult", interrupted, [&] { return FFollower.GetCaliResult(); });
}

// --- TToldFocus ---

bool TToldFocus::IsBusy() {
  return FCore.Gate.Ask("head", "IsBusy", true, [&] { return FHead.IsBusy(); });
}

void TToldFocus::MoveFocus(double mm, double mmPerS) {
  FCore.Gate.Carry("head", "MoveFocus", vkStart, Format("%.3f %.1f", mm, mmPerS), [&] { FHead.MoveFocus(mm, mmPerS); });
}

void TToldFocus::Stop(std::int32_t mode) {
  FCore.Gate.Carry("head", "Stop", vkStop, Format("%d", mode), [&] { FHead.Stop(mode); });
}

double TToldFocus::GetFocus() {
  return FCore.Gate.Ask("head", "GetFocus", 0.0, [&] { return FHead.GetFocus(); });
}

TAxisLimits TToldFocus::GetFocusLimits() {
  return FCore.Gate.Ask("head", "GetFocusLimits", kNowhere, [&] { return FHead.GetFocusLimits(); });
}

// --- TToldPallets ---

std::int32_t TToldPallets::GetValue(const char* name, std::int32_t defValue) {
  const bool docked = std::string_view(name) == "DockedTable";
  return FCore.Gate.Ask("table", "GetValue", docked ? 0 : defValue, [&] { return FTable.GetValue(name, defValue); });
}

}  // namespace ixocamglue
