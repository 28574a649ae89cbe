#include "controller/keys/KeyStates.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "controller/keys/KeyCommands.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::array<TPoint2, 5> kSquare{{{100, 100}, {300, 100}, {300, 300}, {100, 300}, {100, 100}}};
constexpr std::size_t kEdges = kSquare.size() - 1;
constexpr double kCutSpeed = 100.0;   // mm/s
constexpr double kWalkSpeed = 300.0;  // mm/s
constexpr double kCutHeight = 1.0;    // mm
constexpr double kCutBar = 2.0;
constexpr double kOnEdge = 0.5;  // mm; so far from an edge a point is still on it
constexpr double kCalibrateAt = 50.0;
constexpr double kLowestJogSpeed = 0.01;
constexpr std::int32_t kDeviceLimitMs = 20'000;
constexpr std::int32_t kMotionLimitMs = 120'000;
constexpr std::uint64_t kEmissionLimitMs = 5'000;
constexpr std::uint32_t kPollMs = 10;

bool OnEdge(const TPoint2& point, std::size_t edge) {
  const TPoint2& a = kSquare[edge];
  const TPoint2& b = kSquare[edge + 1];
  return point.X >= std::min(a.X, b.X) - kOnEdge && point.X <= std::max(a.X, b.X) + kOnEdge &&
         point.Y >= std::min(a.Y, b.Y) - kOnEdge && point.Y <= std::max(a.Y, b.Y) + kOnEdge;
}

TNcMotionDriver& Driver() {
  if (TNcMotionDriver* const driver = MotionDriver()) return *driver;
  throw std::runtime_error(Tr("the machine has no motion driver"));
}

TNcCutSystem& Cut() {
  if (TNcCutSystem* const cut = CutSystem()) return *cut;
  throw std::runtime_error(Tr("the machine has no cutting system"));
}

TNcLaser& LaserOrThrow() {
  if (TNcLaser* const laser = Cut().Laser()) return *laser;
  throw std::runtime_error(Tr("the machine has no laser"));
}

TPoint2 Position() { return {Driver().GetPos(0), Driver().GetPos(1)}; }

// What all of them have in common: they end on a standing alarm, and what moves is stopped with them.
class TKeyState : public TNcStateCtrl {
 public:
  TKeyState(TNcStateFramework& owner, TKeyCommands& keys, TCutState self)
      : TNcStateCtrl(owner), FKeys(keys), FSelf(self) {}

  bool CheckEnterAlarm(std::int32_t) override { return AlarmEnds(); }
  bool CheckNewAlarm(const TNcAlarmRecord&) override { return AlarmEnds(); }
  bool CheckStateAlarm() override { return AlarmEnds(); }
  std::string StateName() override { return CutStateName(FSelf); }

  void StepDone(std::int32_t reason) override {
    if (reason == srDone) return Go();
    const std::int32_t next = StateAfter(reason);
    TNcStateCtrl::StepDone(reason);
    ChangeState(next, 0);
  }
  void LeaveState(std::int32_t) override {
    if (std::exchange(FFinished, false)) return;
    TTryAll tryAll;
    tryAll([] {
      if (TNcMotionDriver* const driver = MotionDriver()) driver->StopAll(0);
    })([] {
      if (TNcFollower* const follower = GFollower()) follower->Stop(1);
    });
  }

 protected:
  virtual void Go() = 0;  // the next step
  // Ended by that reason, which is not srDone: told before anything is left.
  virtual std::int32_t StateAfter(std::int32_t) { return nsStandby; }
  [[nodiscard]] virtual bool AlarmEnds() {
    TNcAlarms* const alarms = NcAlarms();
    return alarms && (!alarms->AllowMove() || alarms->RequireStop());
  }
  void Finish() {
    FFinished = true;
    ChangeState(nsStandby, 0);
  }
  void WaitForFollower() {
    if (TNcFollower* const follower = GFollower())
      SetBusy(*follower, kDeviceLimitMs);
    else
      EnsureBusySet();
  }

  TKeyCommands& FKeys;
  const TCutState FSelf;
  bool FFinished = false;
};

// The square: cut (with follower, gas and laser), run dry (with follower), walked around (motion only); or, with
// srLocate, the way to where it was interrupted.
class TRunState final : public TKeyState {
 public:
  using TKeyState::TKeyState;

  void InitState(std::int32_t param) override {
    FLocate = param == srLocate;
    FPhase = TPhase::Approach;
    FTrack = param == srFresh ? TKeyCommands::TProgress{FSelf, 0, kSquare[0]} : FKeys.Progress();
    if (!FLocate) FKeys.SetProgress(FTrack);
  }

 protected:
  bool AlarmEnds() override {
    TNcAlarms* const alarms = NcAlarms();
    if (TKeyState::AlarmEnds()) return true;
    return FSelf == csWorking && alarms && (!alarms->AllowCut() || !alarms->AllowLaser());
  }
  std::int32_t StateAfter(std::int32_t reason) override {
    KeepProgress();
    return reason == srPause && !FLocate ? StateNumber(csPaused) : nsStandby;
  }

  void Go() override {
    const bool cuts = FSelf == csWorking;
    switch (FPhase) {
      case TPhase::Approach:
        Driver().MoveXY(FTrack.Point, 0.0);
        FPhase = FLocate ? TPhase::Located : TPhase::Lower;
        return SetBusyMotion(kMotionLimitMs);
      case TPhase::Lower:
        FPhase = cuts ? TPhase::Gas : TPhase::Trace;
        if (TNcFollower* const follower = FSelf == csWalkAround ? nullptr : GFollower()) {
          follower->Follow(kCutHeight);
          return SetBusy(*follower, kDeviceLimitMs);
        }
        return EnsureBusySet();
      case TPhase::Gas:
        FPhase = TPhase::Emission;
        if (TNcGas* const gas = Cut().Gas()) {
          gas->SetPressure(kCutBar);
          gas->SwitchOn();
          return SetBusyGas(kDeviceLimitMs);
        }
        return EnsureBusySet();
      case TPhase::Emission:
        LaserOrThrow().EmissionOn();
        FSinceMs = Clock().MonotonicMs();
        FPhase = TPhase::WaitEmission;
        return EnsureBusySet();
      case TPhase::WaitEmission:
        if (LaserOrThrow().GetEmission()) {
          FPhase = TPhase::Trace;
          return EnsureBusySet();
        }
        if (Clock().MonotonicMs() - FSinceMs > kEmissionLimitMs) return StepDone(srError);
        Delay(kPollMs);
        return SetBusyDelay(-1);
      case TPhase::Trace: {
        if (cuts) {
          const TCutSystemGuard guard(Cut());
          Cut().SwitchLaser(true);
        }
        const std::vector<TPoint2> rest(kSquare.begin() + static_cast<std::ptrdiff_t>(FTrack.Edge) + 1, kSquare.end());
        Driver().MoveCurve(rest, FSelf == csWalkAround ? kWalkSpeed : kCutSpeed);
        FPhase = TPhase::Finish;
        return SetBusyMotion(kMotionLimitMs);
      }
      case TPhase::Finish:
        if (cuts) {
          const TCutSystemGuard guard(Cut());
          Cut().SwitchLaser(false);
          LaserOrThrow().EmissionOff();
          if (Cut().Gas()) Cut().Gas()->SwitchOff();
        }
        FKeys.SetProgress({});
        FPhase = TPhase::Raised;
        if (FSelf == csWalkAround || !GFollower()) return EnsureBusySet();
        GFollower()->MoveZ(0.0, 0.0);
        return WaitForFollower();
      case TPhase::Raised:
      case TPhase::Located: return Finish();
    }
  }

 private:
  enum class TPhase : std::uint8_t { Approach, Lower, Gas, Emission, WaitEmission, Trace, Finish, Raised, Located };

  // The point at which the beam goes out is where the part goes on.
  void KeepProgress() {
    if (FLocate || FPhase != TPhase::Finish) return;
    TTryAll tryAll;
    tryAll([&] {
      const TPoint2 here = Position();
      for (std::size_t edge = FTrack.Edge; edge < kEdges; ++edge) {
        if (!OnEdge(here, edge)) continue;
        FTrack.Edge = edge;
        FTrack.Point = here;
        break;
      }
    });
    FKeys.SetProgress(FTrack);
  }

  TPhase FPhase = TPhase::Approach;
  TKeyCommands::TProgress FTrack;
  bool FLocate = false;
  std::uint64_t FSinceMs = 0;
};

class TPausedState final : public TKeyState {
 public:
  using TKeyState::TKeyState;
  void InitState(std::int32_t) override { FFinished = true; }

 protected:
  void Go() override {}
  bool AlarmEnds() override {
    TNcAlarms* const alarms = NcAlarms();
    return alarms && alarms->RequireStop();
  }
};

// Z up, then X and Y to 0.
class TReturnState final : public TKeyState {
 public:
  using TKeyState::TKeyState;
  bool CheckEnterAlarm(std::int32_t param) override {
    FNeedsMove = param != kcReturnOrgAlt;
    return AlarmEnds();
  }
  void InitState(std::int32_t) override { FStep = 0; }

 protected:
  bool AlarmEnds() override {
    TNcAlarms* const alarms = NcAlarms();
    return alarms && (!alarms->AllowHoming() || alarms->RequireStop() || (FNeedsMove && !alarms->AllowMove()));
  }
  void Go() override {
    switch (FStep++) {
      case 0:
        if (GFollower()) GFollower()->MoveZ(0.0, 0.0);
        return WaitForFollower();
      case 1: {
        const auto zero = [](std::int32_t axis) {
          const TAxisLimits limits = Driver().GetLimits(axis);
          return std::clamp(0.0, limits.Neg, limits.Pos);
        };
        Driver().MoveXY({zero(0), zero(1)}, 0.0);
        return SetBusyMotion(kMotionLimitMs);
      }
      default: Finish();
    }
  }

 private:
  int FStep = 0;
  bool FNeedsMove = true;
};

// Down to the plate and up again, at the calibration place or where the head stands.
class TCalibrationState final : public TKeyState {
 public:
  using TKeyState::TKeyState;
  void InitState(std::int32_t param) override { FStep = param == kcCurPosCalibration ? 1 : 0; }

 protected:
  bool AlarmEnds() override { return TKeyState::AlarmEnds() || (NcAlarms() && !NcAlarms()->AllowFollower()); }
  void Go() override {
    switch (FStep++) {
      case 0: Driver().MoveXY({kCalibrateAt, kCalibrateAt}, 0.0); return SetBusyMotion(kMotionLimitMs);
      case 1:
        if (GFollower()) GFollower()->Follow(0.0);
        return WaitForFollower();
      case 2:
        if (GFollower()) GFollower()->MoveZ(0.0, 0.0);
        return WaitForFollower();
      default: Finish();
    }
  }

 private:
  int FStep = 0;
};

// One axis towards its limit, as long as its key is held.
class TJogState final : public TKeyState {
 public:
  using TKeyState::TKeyState;

  bool CheckEnterAlarm(std::int32_t) override {
    FCommand = TKeyCommands::HeldCommand(FKeys.Held());
    return FCommand != kcNone && AlarmEnds();
  }
  void InitState(std::int32_t param) override {
    FBack = param != 0 ? csPaused : csStandby;
    FSeen = 0;
    FCommand = kcNone;
  }
  // Presses and releases are looked for every pass; a release has stopped the axes already.
  void UpdateThread(std::uint32_t&) override {
    const std::uint64_t held = FKeys.Held();
    if (held == 0) {
      ChangeState(StateNumber(FBack), 0);
    } else if (held != FSeen) {
      StopAxes();
      FSeen = held;
      FCommand = TKeyCommands::HeldCommand(held);
      Move();
      if (FKeys.Held() != held) StopAxes();  // released while the move was being started
    }
  }

 protected:
  void Go() override {}
  bool AlarmEnds() override {
    TNcAlarms* const alarms = NcAlarms();
    if (TKeyState::AlarmEnds()) return true;
    if (!alarms) return false;
    const TJogSections* const jog = JogSections();
    const std::int32_t z = jog ? jog->ZAxisNo() : TJogZSection{}.AxisNo;
    switch (FCommand) {
      case kcJogLeft: return !alarms->AllowMoveAxis(0, false);
      case kcJogRight: return !alarms->AllowMoveAxis(0, true);
      case kcJogBack: return !alarms->AllowMoveAxis(1, false);
      case kcJogForward: return !alarms->AllowMoveAxis(1, true);
      case kcJogZDown: return !alarms->AllowMoveAxis(z, false);
      case kcJogZUp: return !alarms->AllowMoveAxis(z, true);
      default: return false;
    }
  }

 private:
  static void StopAxes() {
    Driver().StopAll(0);
    if (GFollower()) GFollower()->Stop(1);
  }

  static double Speed(bool z) {
    const TNcParams* const params = NcParams();
    const TJogSections* const jog = JogSections();
    const TJogZSection zSection = jog ? jog->Z(0) : TJogZSection{};
    const bool fast = params && params->GetBool("JogFast", false);
    if (z) return static_cast<double>(fast ? zSection.HighJogSpeed : zSection.JogSpeed);
    const double low = jog ? jog->XY().LowJogSpeed : TJogXYSection{}.LowJogSpeed;
    return params ? params->GetDouble("JogSpeed", low) : low;
  }

  void Move() const {
    const bool z = FCommand == kcJogZUp || FCommand == kcJogZDown;
    const double speed = Speed(z);
    if (!(speed > kLowestJogSpeed)) throw std::runtime_error(Tr("the jog speed is too low"));
    if (z) {
      const auto move = [&](auto& device) {
        const TAxisLimits limits = device.GetZLimits();
        const double target = FCommand == kcJogZUp ? limits.Neg : limits.Pos;
        if (!std::isfinite(target) || limits.Neg > limits.Pos) throw std::runtime_error(Tr("Z has no limits"));
        device.MoveZ(target, speed);
      };
      if (GFollower()) return move(*GFollower());
      if (Driver().HasZ()) move(Driver());
      return;
    }
    const std::int32_t axis = FCommand == kcJogLeft || FCommand == kcJogRight ? 0 : 1;
    const bool positive = FCommand == kcJogRight || FCommand == kcJogForward;
    const TAxisLimits limits = Driver().GetLimits(axis);
    TPoint2 target = Position();
    (axis == 0 ? target.X : target.Y) = positive ? limits.Pos : limits.Neg;
    Driver().MoveXY(target, speed);
  }

  TCutState FBack = csStandby;
  std::uint64_t FSeen = 0;
  std::int32_t FCommand = kcNone;
};

template <class State>
void Register(TNcRegistry& registry, TKeyCommands& keys, TCutState state) {
  registry.RegisterStateCtrl(StateNumber(state), [&keys, state](TNcStateFramework& owner) {
    return std::make_unique<State>(owner, keys, state);
  });
}

}  // namespace

void RegisterKeyStates(TNcRegistry& registry, TKeyCommands& keys) {
  for (const TCutState state : {csWorking, csDryRun, csWalkAround}) Register<TRunState>(registry, keys, state);
  Register<TPausedState>(registry, keys, csPaused);
  Register<TReturnState>(registry, keys, csReturnOrg);
  Register<TJogState>(registry, keys, csJogging);
  Register<TCalibrationState>(registry, keys, csCalibration);
}

void UnregisterKeyStates(TNcRegistry& registry) {
  for (std::int32_t state = StateNumber(csWorking); state < kCutStates; ++state) registry.UnregisterStateCtrl(state);
}

}  // namespace ixocontroller
