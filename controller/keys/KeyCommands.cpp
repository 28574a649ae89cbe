#include "controller/keys/KeyCommands.h"

#include <algorithm>
#include <iterator>

#include "controller/keys/KeyStates.h"
#include "controller/safety/LaserLatch.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/xml/JogSections.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr double kGasBar = 1.0;        // by hand, where no pressure was set
constexpr double kFollowMm = 1.0;      // by hand
constexpr std::int32_t kAnyAxis = -1;  // the command moves no single axis

constexpr unsigned StateBit(TCutState state) { return 1U << static_cast<unsigned>(state); }
constexpr TCutState kStatesByHand[] = {csStandby, csPaused, csJogging};
constexpr unsigned kByHand = StateBit(csStandby) | StateBit(csPaused) | StateBit(csJogging);
constexpr unsigned kStandbyOnly = StateBit(csStandby);
constexpr unsigned kInterrupted = StateBit(csStandby) | StateBit(csPaused);

enum TNeed : unsigned { nNothing = 0, nCut = 1, nLaser = 2, nFollower = 4, nHoming = 8, nMove = 16 };

// What a command asks of the machine. The axes' directions are those of the alarm permissions: Z + is up.
struct TCommandRow {
  std::int32_t Command;
  const char* Name;  // as the operator reads it, through Tr
  unsigned States;
  unsigned Needs;
  std::int32_t Axis = kAnyAxis;
  bool Positive = false;
};

constexpr std::int32_t kZ = 2;  // stands for the Z axis' own number

constexpr TCommandRow kCommands[] = {
    {kcStart, TrMark("start"), kStandbyOnly, nCut | nLaser | nMove},
    {kcWalkAround, TrMark("walk-around"), kStandbyOnly, nMove},
    {kcDryCut, TrMark("dry run"), kStandbyOnly, nMove},
    {kcReturnOrg, TrMark("return to origin"), kStandbyOnly, nHoming | nMove},
    {kcReturnOrgAlt, TrMark("return to origin"), kStandbyOnly, nHoming},
    {kcResume, TrMark("resume"), kInterrupted, nCut | nMove},
    {kcJogLeft, "X-", kByHand, nMove, 0, false},
    {kcJogRight, "X+", kByHand, nMove, 0, true},
    {kcJogForward, "Y+", kByHand, nMove, 1, true},
    {kcJogBack, "Y-", kByHand, nMove, 1, false},
    {kcJogLaser, TrMark("jog laser"), kByHand, nCut | nLaser},
    {kcLaser, TrMark("laser"), kByHand, nLaser},
    {kcAiming, TrMark("pilot light"), kByHand, nNothing},
    {kcShutter, TrMark("shutter"), kByHand, nLaser},
    {kcFollow, TrMark("follow"), kByHand, nFollower},
    {kcJogZDown, TrMark("Z down"), kByHand, nMove, kZ, false},
    {kcJogZUp, TrMark("Z up"), kByHand, nMove, kZ, true},
    {kcCalibration, TrMark("calibration"), kStandbyOnly, nFollower | nMove},
    {kcCurPosCalibration, TrMark("calibration here"), kStandbyOnly, nFollower | nMove},
    {kcGas, TrMark("gas"), kByHand, nNothing},
    {kcBreakLocate, TrMark("to the break"), kInterrupted, nCut | nMove},
};

const char* AlarmRefusal(const TCommandRow& row, TNcAlarms* alarms) {
  if (!alarms) return nullptr;
  if (alarms->RequireStop()) return TrMark("an alarm requires a stop");
  if ((row.Needs & nCut) != 0 && !alarms->AllowCut()) return TrMark("an alarm forbids cutting");
  if ((row.Needs & nLaser) != 0 && !alarms->AllowLaser()) return TrMark("an alarm forbids the laser");
  if ((row.Needs & nFollower) != 0 && !alarms->AllowFollower()) return TrMark("an alarm forbids the follower");
  if ((row.Needs & nHoming) != 0 && !alarms->AllowHoming()) return TrMark("an alarm forbids homing");
  if ((row.Needs & nMove) != 0 && !alarms->AllowMove()) return TrMark("an alarm forbids motion");
  if (row.Axis == kAnyAxis) return nullptr;
  const TJogSections* const jog = JogSections();
  const std::int32_t axis = row.Axis == kZ && jog ? jog->ZAxisNo() : row.Axis;
  return alarms->AllowMoveAxis(axis, row.Positive) ? nullptr : TrMark("an alarm forbids the axis to move there");
}

void SwitchBeam(bool on) {
  if (TNcCutSystem* const cut = CutSystem()) cut->SwitchLaser(on);
}

void EmissionOff() {
  if (TNcLaser* const laser = FittedLaser()) laser->EmissionOff();
}

}  // namespace

TKeyCommands::TKeyCommands(TNcStateFramework& framework, TNcRegistry& registry, IMachineObserver& journal)
    : FFramework(framework), FRegistry(registry), FJournal(journal) {
  RegisterKeyStates(FRegistry, *this);
}

TKeyCommands::~TKeyCommands() { UnregisterKeyStates(FRegistry); }

TKeyCommands::TWhyNot TKeyCommands::WhyNot(std::int32_t command, const TMet& met) const {
  return IsStopCommand(command) ? TWhyNot() : WhyNot(command, met, SwitchesOff(command));
}

TKeyCommands::TWhyNot TKeyCommands::WhyNot(std::int32_t command, const TMet& met, bool off) const {
  const auto row = std::ranges::find(kCommands, command, &TCommandRow::Command);
  if (row == std::end(kCommands)) return TrMark("the machine does not know it");
  if (FEmergency.load(std::memory_order_acquire)) return TrMark("the emergency stop is active");
  if (met.Forbidden && met.Forbidden->IsForbidden(command))
    return {"it is forbidden (" + met.Forbidden->Current() + ")", Tr("the form on screen does not permit it")};
  const TCutState present = ClassifyCutState(met.State);
  if ((row->States & StateBit(present)) == 0)
    return {Format("the machine is in %s", CutStateName(present)),
            Format(Tr("the machine is in %s"), Tr(CutStateName(present)))};
  // Nothing keeps what is on from being switched off.
  if (off) return {};
  if (const char* const alarm = AlarmRefusal(*row, met.Alarms)) return {alarm, true};
  if ((row->Needs & nLaser) == 0 || !LatchReason()) return {};
  const TResult<> usable = LaserUsable();  // reset meanwhile, where it is
  return usable ? TWhyNot() : TWhyNot(usable.Problem().Text(), usable.Problem().Text());
}

void TKeyCommands::Refuse(std::int32_t command, const TWhyNot& why) {
  Note(Format("command %d refused: %s", command, why.Journal.c_str()));
  const auto row = std::ranges::find(kCommands, command, &TCommandRow::Command);
  const std::string name = row == std::end(kCommands) ? Format(Tr("command %d"), command) : Tr(row->Name);
  LogMsg(lkWarning, 0, Format(Tr("%s refused: %s"), name.c_str(), why.Shown.c_str()), "TPHost");
}

void TKeyCommands::Note(std::string_view text) { FJournal.Happened(Clock().MonotonicMs(), "cut", text); }

// --- keys ---

void TKeyCommands::KeyDown(std::int32_t command) {
  switch (command) {
    case kcEmergencyStop: return SetEmergencyStop(true);
    case kcStop: return StopAll();
    case kcPause:
      EndHeld();
      // Standby has nothing to pause, unless something is about to begin; what is pending first, as below.
      if (!FFramework.ChangePending())
        if (const TCutState state = ClassifyCutState(FFramework.CurrentState());
            state == csStandby || state == csPaused || state == csJogging)
          return FFramework.NoteEndAsked();
      FFramework.Pause();
      try {
        SwitchBeam(false);
      } catch (...) {  // the state's end switches it off again, and the latch stands behind that
      }
      StopMotion();
      return;
    default: break;
  }
  const std::uint32_t ends = FFramework.EndsAsked();
  const bool off = SwitchesOff(command);  // asked once: what may be switched off under an alarm is not switched on
  if (const TWhyNot why = WhyNot(command, {.State = FFramework.CurrentState()}, off); why.Refused())
    return Refuse(command, why);
  Carry(command, off);
  if (FFramework.EndsAsked() != ends) StopAll();  // one that came before there was anything to end
}

void TKeyCommands::Carry(std::int32_t command, bool off) {
  switch (command) {
    case kcStart: return Request(command, csWorking, srFresh);
    case kcDryCut: return Request(command, csDryRun, srFresh);
    case kcWalkAround: return Request(command, csWalkAround, srFresh);
    case kcResume: return Resume(command, srResumed);
    case kcBreakLocate: return Resume(command, srLocate);
    case kcReturnOrg:
    case kcReturnOrgAlt: return Request(command, csReturnOrg, command);
    case kcCalibration:
    case kcCurPosCalibration: return Request(command, csCalibration, command);
    default: break;
  }
  if (IsJogCommand(command))
    StartJog(command);
  else
    SwitchDevice(command, off);
}

void TKeyCommands::KeyUp(std::int32_t command) {
  // Not a beam that was asked for after the key's own had ended: that is a procedure's.
  if (command == kcJogLaser && FJogLaser.exchange(false) &&
      static_cast<std::int32_t>(FFramework.Watch().LaserAsked.Begun() - FJogBeam.load()) <= 0) {
    SwitchBeam(false);
    EmissionOff();
  }
  std::uint64_t held = Held();
  if (!IsJogCommand(command) || HeldCommand(held) != command) return;
  if (FHeld.compare_exchange_strong(held, 0)) StopMotion();
}

void TKeyCommands::Request(std::int32_t command, TCutState state, std::int32_t param) {
  if (FFramework.ChangePending()) return Refuse(command, TrMark("the machine's state is changing"));
  if (FFramework.SafePending()) return Refuse(command, TrMark("a device has not acknowledged switching off"));
  if (FFramework.Watch().LaserAsked.Runs()) return Refuse(command, TrMark("the beam is on by hand"));
  if (const TResult<> requested = FFramework.RequestState(StateNumber(state), param); !requested)
    Refuse(command, {requested.Problem().What, requested.Problem().What});
}

void TKeyCommands::StartJog(std::int32_t command) {
  const TCutState state = ClassifyCutState(FFramework.CurrentState());
  std::uint64_t held = std::uint64_t{++FPresses} << 32 | static_cast<std::uint32_t>(command);
  if (state != csJogging) {
    if (FFramework.ChangePending()) return Refuse(command, TrMark("the machine's state is changing"));
    FHeld.store(held, std::memory_order_release);
    if (const TResult<> requested = FFramework.RequestState(StateNumber(csJogging), state == csPaused ? 1 : 0);
        !requested) {
      FHeld.compare_exchange_strong(held, 0);  // a newer press stays
      Refuse(command, {requested.Problem().What, requested.Problem().What});
    }
  } else {
    FHeld.store(held, std::memory_order_release);
  }
}

void TKeyCommands::Resume(std::int32_t command, std::int32_t run) {
  const TCutState mode = FInterrupted.load(std::memory_order_acquire);
  if (mode == csStandby) return Refuse(command, TrMark("nothing was interrupted"));
  if (run == srLocate) return Request(command, csWalkAround, run);
  Request(command, mode, run);
}

// What was asked for counts, not what the device has confirmed: a second press takes back the first one.
bool TKeyCommands::SwitchesOff(std::int32_t command) const {
  const TNcWatch& watch = FFramework.Watch();
  TNcLaser* const laser = FittedLaser();
  TNcGas* const gas = FittedGas();
  TNcFollower* const follower = GFollower();
  switch (command) {
    case kcShutter: return laser && (laser->GetEmission() || watch.EmissionAsked.Runs());
    case kcAiming: return laser && laser->GetAiming();
    case kcLaser: return laser && (laser->GetLaser() || watch.LaserAsked.Runs());
    case kcGas: return gas && gas->GetGas();
    case kcFollow: return follower && follower->IsFollowing();
    default: return false;
  }
}

void TKeyCommands::SwitchDevice(std::int32_t command, bool off) {
  TNcLaser* const laser = FittedLaser();
  TNcGas* const gas = FittedGas();
  TNcFollower* const follower = GFollower();
  switch (command) {
    case kcShutter:
      if (!laser) break;
      return off ? laser->EmissionOff() : laser->EmissionOn();
    case kcAiming:
      if (!laser) break;
      return laser->SetAiming(!off);
    case kcLaser:
      if (!laser) break;
      if (off) return SwitchBeam(false);
      // A beam that is held back would come by itself with the shutter.
      if (!laser->GetEmission()) return Refuse(command, TrMark("the shutter is closed"));
      return LightByHand(command);
    case kcJogLaser:
      if (!laser) break;
      FJogBeam.store(FFramework.Watch().LaserAsked.Begun() + (FFramework.Watch().LaserAsked.Runs() ? 0U : 1U));
      FJogLaser.store(true);
      laser->EmissionOn();
      return LightByHand(command);
    case kcGas:
      if (!gas) break;
      if (off) return gas->SwitchOff();
      if (gas->GetPressure() <= 0.0) gas->SetPressure(kGasBar);
      return gas->SwitchOn();
    case kcFollow:
      if (!follower) break;
      return off ? follower->Stop(1) : follower->Follow(kFollowMm);
    default: break;
  }
  Refuse(command, TrMark("the machine has no such device"));
}

// What has begun since the key was looked at, or is about to, gets no beam from it.
void TKeyCommands::LightByHand(std::int32_t command) {
  SwitchBeam(true);
  if (StaysByHand()) return;
  SwitchBeam(false);
  Refuse(command, TrMark("the machine's state is changing"));
}

// What is pending first: it is entered before it is not pending any more.
bool TKeyCommands::StaysByHand() const {
  if (FFramework.ChangePending() &&
      std::ranges::none_of(kStatesByHand, [this](TCutState state) { return FFramework.IsPending(StateNumber(state)); }))
    return false;
  return (kByHand & StateBit(ClassifyCutState(FFramework.CurrentState()))) != 0;
}

// --- what stops, at once ---

void TKeyCommands::EndHeld() noexcept {
  TTryAll tryAll;
  if (FJogLaser.exchange(false)) tryAll([] { SwitchBeam(false); })([] { EmissionOff(); });
  if (FHeld.exchange(0) != 0) StopMotion();
}

void TKeyCommands::StopMotion() noexcept {
  TTryAll tryAll;
  tryAll([] {
    if (TNcMotionDriver* const driver = MotionDriver()) driver->StopAll(0);
  })([] {
    if (TNcFollower* const follower = GFollower()) follower->Stop(1);
  });
}

void TKeyCommands::StopAll() noexcept {
  TTryAll tryAll;
  tryAll([&] { FFramework.Stop(); })([] { SwitchBeam(false); })([] { EmissionOff(); })([&] { EndHeld(); })(
      [&] { StopMotion(); });
}

void TKeyCommands::SetEmergencyStop(bool active) {
  const bool was = FEmergency.exchange(active);
  if (active) {
    TTryAll tryAll;  // a source that does not answer keeps nothing else from stopping
    tryAll([] {
      if (TNcLaser* const laser = FittedLaser()) laser->Trip(kEmergencyTrip);
    })([&] { StopAll(); });
  }
  if (was == active) return;
  Note(active ? "emergency stop" : "emergency stop reset");
  LogMsg(lkWarning, 0,
         active ? Tr("emergency stop: everything is stopped, the laser is latched") : Tr("the emergency stop is reset"),
         "TPHost");
  if (active) return;
  // What else has tripped the latch stays tripped.
  if (const char* const latched = LatchReason(); !latched || std::string_view(latched) != kEmergencyTrip) return;
  if (const TResult<> reset = ResetLatch(FFramework); !reset) {
    Note(reset.Problem().Text());
    LogMsg(lkWarning, 0, reset.Problem().Text(), "TPHost");
  }
}

void TKeyCommands::SetProgress(const TProgress& progress) {
  FProgress = progress;
  FInterrupted.store(progress.Mode, std::memory_order_release);
}

}  // namespace ixocontroller
