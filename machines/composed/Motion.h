// What of a composed machine moves: drivers' own axes, heads and pallets, each told to the observer as the simulated
// machine tells its own.
#pragma once

#include <cstdint>
#include <string>

#include "machines/composed/Core.h"

namespace ixocamglue {

class TToldAxes final : public TNcMotionDriver {
 public:
  // `motor` turns the nozzle motor; often the same.
  TToldAxes(TComposedCore& core, TNcMotionDriver& axes, TNcMotionDriver& motor)
      : FCore(core), FAxes(axes), FMotor(motor) {}

  bool IsBusy() override;
  void MoveXY(TPoint2 target, double mmPerS) override;
  void MoveCurve(std::span<const TPoint2> points, double mmPerS) override;
  void TurnAxis(std::int32_t axis, double turns, double turnsPerS) override;
  void StopAll(std::int32_t mode) override;
  double GetPos(std::int32_t axis) override;
  TAxisLimits GetLimits(std::int32_t axis) override;
  bool GetWorkOrigin(TPoint2& origin) override;
  TNcArea GetWorkArea() override;
  bool HasZ() override;
  void MoveZ(double mm, double mmPerS) override;
  double GetZ() override;
  TAxisLimits GetZLimits() override;
  double GetSafeZ() override;
  void SaveFlagPos(std::int32_t flag) override;
  void SaveFlagPos(std::int32_t flag, TPoint2 pos) override;

 private:
  TComposedCore& FCore;
  TNcMotionDriver& FAxes;
  TNcMotionDriver& FMotor;
};

class TToldFollower final : public TNcFollower {
 public:
  // `device`: a literal, by which it is told.
  TToldFollower(TComposedCore& core, const char* device, TNcFollower& follower)
      : FCore(core), FDevice(device), FFollower(follower) {}

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
  std::string CaliErrorText(std::int32_t errorType) override { return FFollower.CaliErrorText(errorType); }
  void LoadParams() override { FFollower.LoadParams(); }

 private:
  TComposedCore& FCore;
  const char* const FDevice;
  TNcFollower& FFollower;
};

class TToldFocus final : public TNcCutHeadCtrl {
 public:
  TToldFocus(TComposedCore& core, TNcCutHeadCtrl& head) : FCore(core), FHead(head) {}

  bool IsBusy() override;
  void MoveFocus(double mm, double mmPerS) override;
  void Stop(std::int32_t mode) override;
  double GetFocus() override;
  TAxisLimits GetFocusLimits() override;

 private:
  TComposedCore& FCore;
  TNcCutHeadCtrl& FHead;
};

class TToldPallets final : public TNcSwitchTable {
 public:
  TToldPallets(TComposedCore& core, TNcSwitchTable& table) : FCore(core), FTable(table) {}
  std::int32_t GetValue(const char* name, std::int32_t defValue) override;

 private:
  TComposedCore& FCore;
  TNcSwitchTable& FTable;
};

}  // namespace ixocamglue
