// A laser cutting machine made of software: owns the simulated devices and offers them to the library for its own life.
//
// Built after the clock is installed and before any thread starts. In virtual time Attach lets the clock step it; in
// real time every device call, and whoever calls CatchUp regularly, brings it up to the clock. Any thread may call; one
// lock guards the physics, and it is never held while the gate hangs, calls back or throws, nor while an alarm is
// posted. GetState, the pointers to the devices and the alarm package pass no gate.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/keys/Demo.h"
#include "ixocamglue/platform/services/VirtualClock.h"
#include "machines/simulated/Alarms.h"
#include "machines/simulated/Axes.h"
#include "machines/simulated/Config.h"
#include "machines/simulated/Core.h"
#include "machines/simulated/Follower.h"
#include "machines/simulated/Gas.h"
#include "machines/simulated/Laser.h"
#include "machines/simulated/Ports.h"
#include "machines/simulated/Rack.h"

namespace ixocamglue {

// What the machine has; whatever is left out reads as null.
struct TSimParts {
  bool CutSystem = true;
  bool Laser = true;
  bool Gas = true;
  bool InportCtrl = true;
  bool CutHead = true;
  bool MultiFollower = true;
  bool Follower = true;  // GFollower
  bool SwitchTable = true;
  bool MotionDriver = true;
  bool MotionCard = true;
  bool DeviceManager = true;
  bool Alarms = true;
};

// What is physically so at one moment, past the gate.
struct TSimSnapshot {
  std::uint64_t Ms = 0;
  bool Laser = false;     // the beam is on
  bool Emission = false;  // confirmed by the source
  bool LatchTripped = false;
  std::string LatchReason;
  bool Gas = false;
  std::int32_t GasBranch = 0;
  double GasSetBar = 0.0;
  double GasBar = 0.0;   // at the nozzle
  double GasVolt = 0.0;  // put out to the selected branch's proportional valve
  TPoint2 Pos;
  double Z = 0.0;  // of the first follower, or of the driver where there is none
  double Focus = 0.0;
  // How far X, Y, Z and Focus lag behind their set positions, mm.
  std::array<double, 4> FollowingError{};
  bool AxesMoving = false;
  bool ZMoving = false;  // any follower's
  bool FocusMoving = false;
  bool RackMoving = false;  // its cap or stage
  bool Following = false;
  bool Calibrating = false;  // any follower
  std::vector<std::int32_t> OutputsOn;
  std::int32_t State = 0;

  [[nodiscard]] bool Moving() const { return AxesMoving || ZMoving || FocusMoving; }
};

class TSimMachine final : public TNcCutSystem {
 public:
  // The framework is used for the current state's number and for posting alarms; framework and gate outlive the
  // machine.
  TSimMachine(const TSimConfig& config, std::uint64_t seed, TNcStateFramework& framework, TCallGate& gate,
              const TSimParts& parts = {});
  ~TSimMachine() override;

  std::int32_t GetState() override { return FFramework.CurrentState(); }
  TSimLaser* Laser() override { return FParts.Laser ? &FLaser : nullptr; }
  TSimGas* Gas() override { return FParts.Gas ? &FGas : nullptr; }
  TSimInportCtrl* InportCtrl() override { return FParts.InportCtrl ? &FInportCtrl : nullptr; }
  TSimCutHead* CutHeadCtrl() override { return FParts.CutHead ? &FHead : nullptr; }
  TSimMultiFollower* MultiFollower() override { return FParts.MultiFollower ? &FMultiFollower : nullptr; }
  TSimSwitchTable* SwitchTable() override { return FParts.SwitchTable ? &FTable : nullptr; }
  // A refused lock is taken all the same; an unlock that fails has released it.
  void Lock() override IXO_ACQUIRE(FCutLock);
  void Unlock() override IXO_RELEASE(FCutLock);
  void SwitchLaser(bool on) override;
  void KeyDown(std::int32_t command, std::int32_t param, bool fromPanel) override;
  void KeyUp(std::int32_t command, std::int32_t param) override;

  // Steps the machine with the clock until the machine ends; the clock outlives it.
  void Attach(TVirtualClock& clock);
  void CatchUp(std::uint64_t nowMs);

  // For the framework's observer: the journal shows the new state, and a wait for an input ends with its state.
  void NoteState(std::int32_t state);
  // The alarm stands, and the framework hears of it.
  void RaiseAlarm(TNcAlarmRecord record, const TSimForbids& forbids);
  void ClearAlarms();
  // A line of the journal, past the gate.
  void Note(const char* device, std::string_view text);

  [[nodiscard]] TSimSnapshot Snapshot();
  [[nodiscard]] TCallGate& Gate() { return FCore.Gate; }
  [[nodiscard]] TJournal& Journal() { return FCore.Gate.Journal(); }
  // The devices as such, also where the library does not see them.
  [[nodiscard]] TSimLaser& LaserDevice() { return FLaser; }
  [[nodiscard]] TSimGas& GasDevice() { return FGas; }
  [[nodiscard]] TSimCutHead& HeadDevice() { return FHead; }
  [[nodiscard]] TSimAlarms& Alarms() { return FAlarms; }
  [[nodiscard]] TSimMotion& Motion() { return FMotion; }
  [[nodiscard]] TSimPorts& Ports() { return FPorts; }
  [[nodiscard]] TSimFollower& Follower() { return FFollower; }
  [[nodiscard]] TSimFollower* SecondFollower() { return FSecondFollower.get(); }  // null: not fitted
  [[nodiscard]] TSimSwitchTable& Table() { return FTable; }
  [[nodiscard]] TSimRack& Rack() { return FRack; }
  [[nodiscard]] TSimBrush& Brush() { return FBrush; }
  [[nodiscard]] TSimDemo& Demo() { return FDemo; }
  [[nodiscard]] const TSimConfig& Config() const { return FConfig; }

 private:
  const TSimConfig FConfig;
  const TSimParts FParts;
  TNcStateFramework& FFramework;
  TSimCore FCore;
  TRecursiveSection FCutLock;  // the library's lock around switching the laser; guards nothing in here

  TSimAlarms FAlarms;
  TSimLaser FLaser;
  TSimGas FGas;
  TSimMotion FMotion;
  TSimCutHead FHead;
  TSimFollower FFollower;
  std::unique_ptr<TSimFollower> FSecondFollower;
  TSimMultiFollower FMultiFollower;
  TSimPorts FPorts;
  TSimInportCtrl FInportCtrl;
  TSimSwitchTable FTable;
  TSimRack FRack;
  TSimBrush FBrush;
  TSimDemo FDemo;

  TVirtualClock* FClock = nullptr;
  std::size_t FClockHandle = 0;
  std::int32_t FState IXO_GUARDED_BY(FCore.Lock) = nsStandby;  // the last one noted

  std::optional<TInstalled<TNcCutSystem>> FCutSystemInstalled;
  std::optional<TInstalled<TNcFollower>> FFollowerInstalled;
  std::optional<TInstalled<TNcMotionDriver>> FMotionInstalled;
  std::optional<TInstalled<TNcMotionCard>> FCardInstalled;
  std::optional<TInstalled<TNcDeviceManager>> FManagerInstalled;
  std::optional<TInstalled<TNcAlarms>> FAlarmsInstalled;
  TInstalled<TNcEmergencyStop> FEmergencyInstalled{FDemo};
};

}  // namespace ixocamglue
