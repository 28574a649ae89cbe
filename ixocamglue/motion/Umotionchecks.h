// What every motion command asks before it commands anything, and the Z axis that it moves. State thread; mm, mm/s.
// What the devices throw passes, and ends the step.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "ixocamglue/motion/Usteptree.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

inline constexpr double kAtTarget = 1e-3;  // closer than this is there already
inline constexpr double kArrived = 0.1;    // a finished move that ends further off has failed

inline constexpr std::int32_t kHeads = 2;  // at most; the second one has a follower

// The Z axis of a head: the follower that the multi-follower holds under an index, 0 or 1, else the motion driver's
// own. It goes to no target outside its limits.
class TZAxis {
 public:
  explicit TZAxis(std::int32_t followerIndex);

  explicit operator bool() const { return FFollower || FDriver; }
  // Null: the driver's own axis, or none.
  [[nodiscard]] TNcFollower* Follower() const { return FFollower; }
  // What a command of this axis waits for.
  [[nodiscard]] TCustomBusyType Busy() const;
  // The rest only with an axis.
  [[nodiscard]] double GetZ() const { return FFollower ? FFollower->GetZ() : FDriver->GetZ(); }
  [[nodiscard]] double GetSafeZ() const { return FFollower ? FFollower->GetSafeZ() : FDriver->GetSafeZ(); }
  [[nodiscard]] TAxisLimits GetLimits() const { return FFollower ? FFollower->GetZLimits() : FDriver->GetZLimits(); }
  void MoveZ(double mm, double mmPerS) const { FFollower ? FFollower->MoveZ(mm, mmPerS) : FDriver->MoveZ(mm, mmPerS); }

 private:
  std::int32_t FIndex;
  TNcFollower* FFollower = nullptr;
  TNcMotionDriver* FDriver = nullptr;  // only when it has a Z axis
};

// A chain of conditions: the first one that fails writes one error line, "step(command): what and why", and those after
// it are not looked at. Before a command it begins with the stop flag and a leaf's controller.
//
//   if (!TPreCheck(*this).Has(head, SHead).InRange(SFocus, FFocus, limits).Speed(FSpeed)) return Fail();
class TPreCheck {
 public:
  enum TWhen { BeforeCommand, AfterMove };
  explicit TPreCheck(TStateMotion& step, TWhen when = BeforeCommand);

  explicit operator bool() const { return FPassed; }
  TPreCheck& Has(const void* device, const TText& name);
  TPreCheck& Has(const TZAxis& axis);
  // `args` are those of the text's format.
  template <class... Args>
  TPreCheck& Require(bool condition, const TText& why, Args... args) {
    if (FPassed && !condition) {
      if constexpr (sizeof...(args) == 0)
        Refuse(why, why.Get());
      else
        Refuse(why, Format(why.Get(), args...));
    }
    return *this;
  }
  // A number that is not finite is in no range.
  TPreCheck& InRange(const TText& what, double value, TAxisLimits limits);
  TPreCheck& Speed(double mmPerS);  // from 0, which is the platform's default
  // The driver is there and can go there.
  TPreCheck& XY(TNcMotionDriver* driver, TPoint2 target);
  TPreCheck& Z(const TZAxis& axis, double target);
  // No head of these is below its safe height.
  TPreCheck& Raised(std::int32_t first, std::int32_t end = kHeads);
  // A finished move has come to where it was sent.
  TPreCheck& Arrived(const TText& what, double target, double actual);
  TPreCheck& ArrivedXY(TNcMotionDriver* driver, TPoint2 target);

 private:
  [[gnu::cold]] void Refuse(const TText& reason, std::string_view why);

  TStateMotion& FStep;
  bool FPassed = true;
};

// A leaf whose move must end where it was sent: what follows relies on it, lowering the head for example. A device that
// has come to rest elsewhere fails the step.
class TSmtMoveStep : public TSmtAtomic {
 public:
  void DoBeforeStep(std::int32_t oldStep, std::int32_t newStep) override;
  // Appends where it will send XY, in machine coordinates, mm, as far as that is known before it runs: nothing for a
  // step that sends it nowhere, one round of a curve that is run several times. Throws what the devices throw.
  virtual void AddWay(std::vector<TPoint2>& way) { static_cast<void>(way); }

 private:
  virtual void CheckArrived(TPreCheck& check) = 0;  // in the tick after the last command
};

// The head beside the first one is fitted.
[[nodiscard]] bool HasSecondHead();
[[nodiscard]] bool IsNear(TPoint2 a, TPoint2 b, double tolerance);
[[nodiscard]] TPoint2 GetXY(TNcMotionDriver& driver);

}  // namespace ixocamglue
