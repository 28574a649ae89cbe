// Ports: the cutting system and its devices, as the library needs them of a real machine.
//
// Called by the state thread unless a comment says otherwise. Commands return nothing: a device acknowledges by the
// state that is read back, and a failed command shows there. Any call may throw (std::exception) when the device
// cannot be reached; what then happens to the running procedure is decided by its controller. All devices belong to
// the machine; a null pointer means that the machine has no such device. Never keep a pointer over a tick.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "ixocamglue/support/Installed.h"

namespace ixocamglue {

// Where an axis may go.
struct TAxisLimits {
  double Neg = 0.0;
  double Pos = 0.0;
};

// Something that the state framework can wait for.
class INcBusyDevice {
 public:
  virtual ~INcBusyDevice() = default;
  virtual bool IsBusy() = 0;  // false: the last command has been carried out
};

// The laser source with its shutter ("emission"). The beam is switched by TNcCutSystem::SwitchLaser. EmissionOn and
// SwitchLaser(true) ask LaserForbidden (platform/states/BeamWatch.h), and do nothing where it gives a reason; they and
// the offs keep what is asked for in TNcWatch.
class TNcLaser {
 public:
  virtual ~TNcLaser() = default;
  virtual bool GetEmission() = 0;  // emission confirmed by the source
  virtual void EmissionOn() = 0;   // asks for emission; confirmed some time later
  virtual void EmissionOff() = 0;
  virtual bool GetLaser() = 0;  // the beam is commanded on
  // The pilot light is on; a source without one has it off.
  virtual bool GetAiming() { return false; }
  virtual void SetAiming(bool on) { static_cast<void>(on); }
  // The controller ends, and nobody is left to switch the pilot light off.
  virtual void AimingOff() {}

  // The source's own inhibit. Tripped, it keeps beam and emission off until it is reset by hand; a source without one
  // is never tripped. Any thread, at once: no lock that a device call may hold is waited for.
  virtual const char* LatchReason() { return nullptr; }  // a literal; null: not tripped
  // `reason` is a literal; the first one stays until the reset. Here: beam and emission are switched off.
  virtual void Trip(const char* reason);
  virtual void ResetLatch() {}
};

// Assist gas. Branches are numbered by gas type (1 "Air" ... 6 "H-N2"); pressures in bar. A branch that is not fitted
// is not selected. A pressure or a voltage outside what the branch can have is limited to that, and one that is no
// number is not set; what is set is read back.
class TNcGas : public INcBusyDevice {
 public:
  virtual bool GetGas() = 0;  // gas is switched on
  virtual std::int32_t GetBranch() = 0;
  virtual double GetPressure() = 0;  // the pressure that was set
  virtual void SelectBranch(std::int32_t branch) = 0;
  virtual void SetPressure(double bar) = 0;
  virtual void SwitchOn() = 0;
  virtual void SwitchOff() = 0;
  // Puts a voltage (0 to 10 V) straight out to the proportional valve of the selected branch, past the pressure path;
  // it holds until another voltage or pressure is set. A machine without such valves has nothing to do.
  virtual void OutputDA(double volt) { static_cast<void>(volt); }
  // The supply gives what the branch needs; a procedure whose beam is lit without it ends. Any thread, at once: neither
  // a lock nor the device is waited for. A machine that does not watch its supply has nothing to say.
  virtual bool SupplyGood() { return true; }
};

// Waits for one input at a time. Busy from StartWait until the input has its level, the limit is over, or Cancel.
class TNcInportCtrl : public INcBusyDevice {
 public:
  // What a time-out does: 0 nothing (the wait ends), 3 raises an alarm.
  virtual void SetTimeOutMode(std::int32_t mode) = 0;
  // Limit in ms, a negative one is none; an input of -1 counts as met at once, one that is not there never.
  virtual void StartWait(std::int32_t inport, std::int32_t limitMs) = 0;
};

// The cutting head's focus axis; mm. A target outside the limits moves nothing, and may be thrown.
class TNcCutHeadCtrl : public INcBusyDevice {
 public:
  virtual void MoveFocus(double mm, double mmPerS) = 0;  // speed 0: the axis' default
  virtual void Stop(std::int32_t mode) = 0;              // 1: stop at once
  virtual double GetFocus() = 0;
  virtual TAxisLimits GetFocusLimits() {
    return {-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
  }
};

// What a height calibration found out.
struct TNcCaliResult {
  double Cap = 0.0;            // capacitance at the end of the calibration
  double CaliCapRange = 0.0;   // from the smallest to the largest capacitance measured
  std::int32_t SteadyLv = 0;   // level of the signal's steadiness at standstill
  std::int32_t SmoothLv = 0;   // level of the curve's smoothness
  std::int32_t ErrorType = 0;  // 0: good
};

// A height follower with its Z axis; mm, Z 0 is the top and grows downwards. A target outside the limits moves nothing,
// a height outside what the sensor can tell is not followed; both may be thrown.
class TNcFollower : public INcBusyDevice {
 public:
  virtual void MoveZ(double mm, double mmPerS) = 0;  // speed 0: the axis' default
  // Keep this distance to the plate until stopped; where there is no plate any more it ends by itself, and says so
  // (NotePlateLost in platform/states/NcState.h).
  virtual void Follow(double heightMm) = 0;
  virtual void Stop(std::int32_t mode) = 0;  // 1: stop at once, follow mode included
  virtual double GetZ() = 0;
  virtual bool IsFollowing() = 0;
  virtual TAxisLimits GetZLimits() { return {0.0, std::numeric_limits<double>::infinity()}; }
  // At this Z and above (smaller), XY may travel over whatever lies on the table.
  virtual double GetSafeZ() { return 0.0; }
  // Learns the capacitance curve over the plate under the nozzle; busy until it has ended, in whatever way. The result
  // is the latest calibration's; without one its error type is not 0.
  virtual void StartCalibrate() {}
  virtual TNcCaliResult GetCaliResult() { return {.Cap = 0.0, .CaliCapRange = 0.0, .ErrorType = 1}; }
  // What an error type means, in the operator's language; empty: nobody knows.
  virtual std::string CaliErrorText(std::int32_t) { return {}; }
  // Reads its parameters from the machine configuration again; one that keeps none of them has nothing to do.
  virtual void LoadParams() {}
};

class TNcMultiFollower {
 public:
  virtual ~TNcMultiFollower() = default;
  virtual TNcFollower* GetFollower(std::int32_t index) = 0;  // 0 or 1; null when not fitted
};

// Values of the pallet switch table by name ("DockedTable": 1 or 2, anything else while none is docked).
class TNcSwitchTable {
 public:
  virtual ~TNcSwitchTable() = default;
  virtual std::int32_t GetValue(const char* name, std::int32_t defValue) = 0;
};

class TNcCutSystem {
 public:
  virtual ~TNcCutSystem() = default;
  virtual std::int32_t GetState() = 0;  // number of the current machine state; any thread
  virtual TNcLaser* Laser() { return nullptr; }
  virtual TNcGas* Gas() { return nullptr; }
  virtual TNcInportCtrl* InportCtrl() { return nullptr; }
  virtual TNcCutHeadCtrl* CutHeadCtrl() { return nullptr; }
  virtual TNcMultiFollower* MultiFollower() { return nullptr; }
  virtual TNcSwitchTable* SwitchTable() { return nullptr; }
  // Recursive; held while the laser is switched so that no other user of the laser interleaves. Any thread.
  virtual void Lock() = 0;
  virtual void Unlock() = 0;
  virtual void SwitchLaser(bool on) = 0;  // the beam; held back by the source while emission is missing
  // A key's command (CutCommands.h), from its press to its release. Any thread, at once: neither waits for the state
  // thread. What cannot be done in the machine's state, or is not permitted, is refused; a release is never refused.
  // `fromPanel`: pressed by hand on the panel. Here: what NcKeyCommands does.
  virtual void KeyDown(std::int32_t command, std::int32_t param, bool fromPanel);
  virtual void KeyUp(std::int32_t command, std::int32_t param);
};

// Carries out the key commands for the cutting system; the controller's own. Any thread, at once.
class TNcKeyCommands {
 public:
  virtual ~TNcKeyCommands() = default;
  virtual void KeyDown(std::int32_t command) = 0;
  virtual void KeyUp(std::int32_t command) = 0;
};

class TCutSystemGuard {
 public:
  explicit TCutSystemGuard(TNcCutSystem& cut) : FCut(cut) { FCut.Lock(); }
  ~TCutSystemGuard() {
    try {
      FCut.Unlock();
    } catch (...) {  // a guard's end has nobody to tell; the device's own fault record has it
    }
  }
  TCutSystemGuard(const TCutSystemGuard&) = delete;
  TCutSystemGuard& operator=(const TCutSystemGuard&) = delete;

 private:
  TNcCutSystem& FCut;
};

IXO_DECLARE_SERVICE(TNcCutSystem, CutSystem);
// Its laser and its gas device; null where there is none, or no cutting system. Throw as the ports do.
[[nodiscard]] TNcLaser* FittedLaser();
[[nodiscard]] TNcGas* FittedGas();
IXO_DECLARE_SERVICE(TNcFollower, GFollower);
IXO_DECLARE_SERVICE(TNcKeyCommands, NcKeyCommands);

}  // namespace ixocamglue
