// One coordinate that moves with limited speed and acceleration, in steps of 1 ms. One thread at a time; in its owner's
// unit. Nothing fails.
#pragma once

#include <algorithm>
#include <cmath>

namespace ixocamglue {

class TTrapezoid {
 public:
  static constexpr double kStepS = 0.001;

  [[nodiscard]] double Pos() const { return FPos; }
  [[nodiscard]] double Speed() const { return FSpeed; }  // with its sign
  [[nodiscard]] double Target() const { return FTarget; }
  [[nodiscard]] bool Moving() const { return FSpeed != 0.0 || FPos != FTarget; }

  void Start(double target, double maxSpeed, double acceleration) {
    FTarget = target;
    FMaxSpeed = maxSpeed;
    FAcceleration = acceleration;
  }
  void Place(double pos) {
    FPos = FTarget = pos;
    FSpeed = 0.0;
  }
  // The target becomes the point at which the ramp ends.
  void Brake() {
    if (FSpeed == 0.0) return Place(FPos);
    const double speed = std::abs(FSpeed);
    const double way = (speed * speed - FAcceleration * kStepS * speed) / (2.0 * FAcceleration);
    FTarget = FPos + std::copysign(std::max(way, 0.0), FSpeed);
  }

  // One ms. The greatest speed that can still stop at the target, v(v + a dt) = 2 a d, falls by exactly a dt per step.
  void Step() {
    if (!Moving()) return;
    const double way = FTarget - FPos;
    const double change = FAcceleration * kStepS;
    const double half = change / 2.0;
    const double canStop = std::sqrt(half * half + 2.0 * FAcceleration * std::abs(way)) - half;
    const double wanted = std::copysign(std::min(FMaxSpeed, canStop), way);
    FSpeed += std::clamp(wanted - FSpeed, -change, change);
    // The last way is shorter than the step; from a speed this low the next step stops.
    const bool arrives = FSpeed * way >= 0.0 && std::abs(FSpeed) * kStepS >= std::abs(way) * (1.0 - 1e-9) &&
                         std::abs(FSpeed) <= change * (1.0 + 1e-9);
    FPos = arrives ? FTarget : FPos + FSpeed * kStepS;
  }

 private:
  double FPos = 0.0;
  double FTarget = 0.0;
  double FSpeed = 0.0;
  double FMaxSpeed = 0.0;
  double FAcceleration = 1.0;
};

}  // namespace ixocamglue
