// Steps that move the head: XY, Z, both in a safe order, and the lubrication run. State thread.
//
// Machine coordinates in mm, Z 0 is the top and grows downwards; speeds in mm/s, 0 is the platform's default.
// Parameters are set after the step is made and go back to the named values when it is left. A command whose device is
// missing, whose target is no number or out of range, or that is asked to stop, writes one error line and answers -2; a
// target that is reached already takes no command.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ixocamglue/motion/Ucurvekeeper.h"
#include "ixocamglue/motion/Umotionchecks.h"
#include "ixocamglue/motion/Usteptree.h"

namespace ixocamglue {

// 131: moves XY where it is told, whatever the height of the first head. Refused while the second one is below its safe
// height.
class TSmtMoveToXY : public TSmtCommand<131, TSmtMoveStep> {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  void AddWay(std::vector<TPoint2>& way) override { way.push_back(FTarget); }

  TPoint2 FTarget;
  double FSpeed = 0.0;

 private:
  void CheckArrived(TPreCheck& check) override;
};

// A leaf that commands the Z axis or the follower of an index.
class TSmtFollowerStep : public TSmtMoveStep {
 public:
  void ResetParams() override;

  std::int32_t FFollowerIndex = 0;  // 0 or 1
};

// 134: moves Z to the safe height, or to a target. 136 is the same step with a target.
class TSmtSafeMoveToZ : public TSmtCommand<134, TSmtFollowerStep> {
 public:
  static constexpr std::int32_t kMoveToZ = 136;
  std::int32_t GetID() override { return FCommand; }
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  // What the factory makes of it for 136: to the target 0, up or down.
  void BecomeMoveToZ();

  double FTargetZ = 0.0;
  bool FUseSafeZ = true;  // the target is the safe height
  bool FOnlyUp = true;    // a head that is above the target stays there
  double FSpeed = 0.0;

 private:
  void CheckArrived(TPreCheck& check) override;
  [[nodiscard]] double Target(const TZAxis& axis) const { return FUseSafeZ ? axis.GetSafeZ() : FTargetZ; }

  std::int32_t FCommand = Cmd;  // survives ResetParams
};

// Raises every head that is below its safe height, one after the other, then moves XY.
class TSmtRaisedMove : public TSmtMoveStep {
 public:
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;

  TPoint2 FTarget;      // in the coordinates of the class
  double FSpeed = 0.0;  // of XY; Z rises at its default

 private:
  void CheckArrived(TPreCheck& check) override;
  // The target in machine coordinates, or a failed check.
  virtual TPoint2 Resolve(TPreCheck& check, TNcMotionDriver& driver) = 0;

  std::int32_t FRaised = 0;  // heads that are up, or were told to go there
  TPoint2 FEnd;              // machine coordinates
};

// 138: the target is in work coordinates; refused without a valid origin and outside the work area.
class TSmtSafeMoveToWorkXY : public TSmtCommand<138, TSmtRaisedMove> {
 public:
  void AddWay(std::vector<TPoint2>& way) override;

 private:
  TPoint2 Resolve(TPreCheck& check, TNcMotionDriver& driver) override;
};

// 139: the target is in machine coordinates; refused while the laser is on.
class TSmtSafeMoveToAssistXY : public TSmtCommand<139, TSmtRaisedMove> {
 public:
  void AddWay(std::vector<TPoint2>& way) override { way.push_back(FTarget); }

 private:
  TPoint2 Resolve(TPreCheck& check, TNcMotionDriver& driver) override;
};

// 350: runs along the edges of a rectangle and both its diagonals, so that every part of the rails gets its grease.
// Refused while a head is below its safe height.
class TSmtLubricateCurve : public TSmtCommand<350, TSmtMoveStep> {
 public:
  static constexpr std::int32_t kMaxCount = 1000;
  static constexpr double kInset = 10.0;  // mm from the axis limits
  TStepType DoMotion(std::int32_t reason) override;
  void ResetParams() override;
  void AddWay(std::vector<TPoint2>& way) override;

  std::optional<TRange2> FRange;  // none: the axis limits, inset by 10 mm
  std::int32_t FCount = 1;        // rounds, 1 to 1000
  double FSpeed = 0.0;

 private:
  void CheckArrived(TPreCheck& check) override;
  [[nodiscard]] TRange2 Range(TNcMotionDriver& driver) const;

  TPoint2 FEnd;
};

// 137: raises the head (134), where there are two both, then XY (131).
class TSmtSafeMoveToXY : public TSmtCommand<137, TSmtComposite> {
 public:
  void ResetParams() override;
  void BuildMotionList() override { AddXY(); }

  TPoint2 FTarget;
  double FSpeed = 0.0;  // of XY; Z and focus move at their defaults

 protected:
  void AddXY();  // the steps of 137
};

// 181: 137, then Z to a target (136).
class TSmtSafeMoveToXYZ : public TSmtCommand<181, TSmtSafeMoveToXY> {
 public:
  void ResetParams() override;
  void BuildMotionList() override;

  double FTargetZ = 0.0;
};

// 422: 137, then the focus (421), then Z (136).
class TSmtSafeMoveToXYZF : public TSmtCommand<422, TSmtSafeMoveToXYZ> {
 public:
  void ResetParams() override;
  void BuildMotionList() override;

  double FFocus = 0.0;
};

}  // namespace ixocamglue
