// Ports: the axes' motion driver, the motion card's outputs and the device manager. State thread; any call may throw
// when the device cannot be reached. Machine coordinates in mm, speeds in mm/s; speed 0 means the driver's default.
#pragma once

#include <cstdint>
#include <limits>
#include <span>

#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

struct TPoint2 {
  double X = 0.0;
  double Y = 0.0;
  friend bool operator==(const TPoint2&, const TPoint2&) = default;
};

// A rectangle with its sides along the axes; nothing lies in one whose maximum is below its minimum.
struct TNcArea {
  TPoint2 Min{0.0, 0.0};
  TPoint2 Max{-1.0, -1.0};
};

// Busy while any axis of the driver moves. Axes are 0 X, 1 Y, and from 2 on those that turn. A target outside the
// limits, or one that is no number, moves nothing, and may be thrown; so does an axis that is not there, which is at 0
// between limits of 0. A speed above the axis' own is limited to that.
class TNcMotionDriver : public INcBusyDevice {
 public:
  virtual void MoveXY(TPoint2 target, double mmPerS) = 0;
  virtual void MoveCurve(std::span<const TPoint2> points, double mmPerS) = 0;
  virtual void TurnAxis(std::int32_t axis, double turns, double turnsPerS) = 0;
  virtual void StopAll(std::int32_t mode) = 0;   // 0: every axis of the driver, along its deceleration ramp
  virtual double GetPos(std::int32_t axis) = 0;  // turns of one that turns
  virtual TAxisLimits GetLimits(std::int32_t axis) = 0;
  // Where the origin of the work coordinates lies; false while none is valid.
  virtual bool GetWorkOrigin(TPoint2& origin) {
    static_cast<void>(origin);
    return false;
  }
  // Where the head may travel in work coordinates, as machine coordinates.
  virtual TNcArea GetWorkArea() { return {}; }
  // A Z axis of the driver's own, on machines whose head has no follower; Z 0 is the top and grows downwards.
  virtual bool HasZ() { return false; }
  virtual void MoveZ(double mm, double mmPerS) { static_cast<void>(mm), static_cast<void>(mmPerS); }
  virtual double GetZ() { return 0.0; }
  virtual TAxisLimits GetZLimits() { return {0.0, std::numeric_limits<double>::infinity()}; }
  virtual double GetSafeZ() { return 0.0; }
  virtual void SaveFlagPos(std::int32_t flag) = 0;               // remembers the present position under any number
  virtual void SaveFlagPos(std::int32_t flag, TPoint2 pos) = 0;  // remembers this one
};

// Outputs by their numbers in the machine file; outside those nothing is switched.
class TNcMotionCard {
 public:
  virtual ~TNcMotionCard() = default;
  virtual void SwitchOutport(std::int32_t port, bool on) = 0;
};

// Inputs by their numbers in the machine file; outside those one is low, and keeps no level.
class TNcInputGroup {
 public:
  virtual ~TNcInputGroup() = default;
  virtual void SetInputLogic(std::int32_t inport, bool level) = 0;  // the level that counts as reached
  virtual bool GetInput(std::int32_t inport) = 0;
};

class TNcDeviceManager {
 public:
  virtual ~TNcDeviceManager() = default;
  virtual TNcInputGroup* InputGroup() = 0;
  virtual std::int32_t GetAxisCount() { return 0; }  // axes are counted from 1 elsewhere
  // What the gas pressure sensor reads now, in bar; no number without a sensor that answers.
  virtual double GetRtGasPressure() { return std::numeric_limits<double>::quiet_NaN(); }
};

IXO_DECLARE_SERVICE(TNcMotionDriver, MotionDriver);
IXO_DECLARE_SERVICE(TNcMotionCard, MotionCard);
IXO_DECLARE_SERVICE(TNcDeviceManager, DeviceManager);

}  // namespace ixocamglue
