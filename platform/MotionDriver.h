// Ports: the axes' motion driver, the motion card's outputs and the device manager. State thread; any call may throw
// when the device cannot be reached. Machine coordinates in mm, speeds in mm/s; speed 0 means the driver's default.
#pragma once

#include <cstdint>
#include <span>

#include "platform/CutSystem.h"
#include "platform/Installed.h"

namespace ixocamglue {

struct TPoint2 {
  double X = 0.0;
  double Y = 0.0;
  friend bool operator==(const TPoint2&, const TPoint2&) = default;
};

struct TAxisLimits {
  double Neg = 0.0;
  double Pos = 0.0;
};

// Busy while any XY axis moves.
class TNcMotionDriver : public INcBusyDevice {
 public:
  virtual void MoveXY(TPoint2 target, double mmPerS) = 0;
  virtual void MoveCurve(std::span<const TPoint2> points, double mmPerS) = 0;
  virtual void TurnAxis(std::int32_t axis, double turns, double turnsPerS) = 0;
  virtual void StopAll(std::int32_t mode) = 0;   // 0: every axis of the driver, along its deceleration ramp
  virtual double GetPos(std::int32_t axis) = 0;  // 0 X, 1 Y
  virtual TAxisLimits GetLimits(std::int32_t axis) = 0;
  virtual void SaveFlagPos(std::int32_t flag) = 0;               // remembers the present position under a flag number
  virtual void SaveFlagPos(std::int32_t flag, TPoint2 pos) = 0;  // remembers this one
};

class TNcMotionCard {
 public:
  virtual ~TNcMotionCard() = default;
  virtual void SwitchOutport(std::int32_t port, bool on) = 0;
};

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
};

IXO_DECLARE_SERVICE(TNcMotionDriver, MotionDriver);
IXO_DECLARE_SERVICE(TNcMotionCard, MotionCard);
IXO_DECLARE_SERVICE(TNcDeviceManager, DeviceManager);

}  // namespace ixocamglue
