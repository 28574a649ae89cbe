// The seam between a controller and what it drives: a machine installs its ports, and tells what happens in it.
//
// A machine is made by a factory that the program hands to its controller, connected once, and ended by its destructor,
// on the controller's main thread and while no other thread runs. What is fitted, and its limits, stand in its ports
// and in the machine configuration; what its ports cannot say stands here.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Problem.h"

namespace ixocamglue {

class TConfigSection;
class TMachineConfig;
class TNcAlarmManager;
class TNcStateFramework;
class TVirtualClock;
class TXmlSubConfig;
struct TMachineBounds;

// What a device call does. Reads, locks, stops and offs are harmless after an abort; sets and starts are not.
enum class TVerbKind : std::uint8_t { vkRead, vkLock, vkStop, vkOff, vkSet, vkStart };
using enum TVerbKind;

enum class TOutcome : std::uint8_t { toDone, toRefused, toThrew };
using enum TOutcome;

// A command to a device.
struct TDeviceCall {
  std::uint64_t Ms = 0;     // monotonic
  std::uint64_t Call = 0;   // from 1 on
  const char* Device = "";  // "laser"; a literal, as is the verb
  const char* Verb = "";    // "EmissionOn"
  std::string Args;         // "2", "on"
  TVerbKind Kind = vkRead;
  TOutcome Outcome = toDone;
};

enum class TSignalKind : std::uint8_t { sgState, sgEmission, sgLaser, sgAiming, sgGas, sgGasVolt, sgOutput };
using enum TSignalKind;

// A change of what the machine shows outside. Nothing here fails.
struct TSignal {
  std::uint64_t Ms = 0;  // monotonic
  TSignalKind Kind = sgState;
  bool On = false;          // of a state: any but standby
  std::int32_t Number = 0;  // the state, the branch of the gas or of its voltage, the output
  double Value = 0.0;       // bar; V

  // "emission on", "laser off", "gas on 2 3.50", "gas off", "da 2 4.50", "output 5 on", "state 204"
  [[nodiscard]] std::string Text() const;
  friend bool operator==(const TSignal&, const TSignal&) = default;
};

// A nozzle, an axis or a part of the rack was struck: what IMachineObserver::Happened then says begins with this.
inline constexpr std::string_view kCollision = "collision: ";

// Is told what happens in a machine. Any thread, in the order in which it happens; the machine may hold its own lock,
// so that an observer calls nobody back. Throws nothing.
class IMachineObserver {
 public:
  virtual ~IMachineObserver() = default;
  virtual void Called(TDeviceCall call) = 0;
  // What happened by itself, as a sentence: "laser", "emission up".
  virtual void Happened(std::uint64_t atMs, std::string_view device, std::string_view text) = 0;
  virtual void Signalled(const TSignal& signal) = 0;
};

// What is physically so at one moment. What a machine does not know keeps its default. Nothing here fails.
struct TMachineSnapshot {
  std::uint64_t Ms = 0;
  bool Laser = false;     // the beam is on
  bool Emission = false;  // confirmed by the source
  bool LatchTripped = false;
  std::string LatchReason;
  bool Aiming = false;  // the pilot light
  bool Gas = false;
  std::int32_t GasBranch = 0;
  double GasSetBar = 0.0;
  double GasBar = 0.0;   // at the nozzle
  double GasVolt = 0.0;  // put out to the selected branch's proportional valve
  bool GasValveOpen = false;
  TPoint2 Pos;
  double Z = 0.0;   // of the first follower, or of the driver where there is none
  double Z2 = 0.0;  // of the second follower; 0, the top, where there is none
  double Focus = 0.0;
  double Turns = 0.0;  // of all axes that turn, together
  // How far X, Y, Z and Focus lag behind their set positions, mm.
  std::array<double, 4> FollowingError{};
  bool AxesMoving = false;
  bool ZMoving = false;  // any follower's
  bool FocusMoving = false;
  bool RackMoving = false;  // its cap or stage
  bool Following = false;
  bool Calibrating = false;      // any follower
  std::int32_t DockedTable = 0;  // 1 or 2; 0: none, or there are no pallets
  std::vector<std::int32_t> OutputsOn;
  std::int32_t Nozzle = -1;  // in the head; 0: none
  // What was struck since the machine was made: how often, and what was said of the first one ("follower: collision:
  // ..."). Each one stands in the journal behind kCollision.
  std::uint32_t Collisions = 0;
  std::string FirstCollision;
  std::int32_t State = 0;

  [[nodiscard]] bool Moving() const { return AxesMoving || ZMoving || FocusMoving; }
  friend bool operator==(const TMachineSnapshot&, const TMachineSnapshot&) = default;
};

// A port of a machine or of a driver as it is now, for who commissions it.
struct TPortFacts {
  std::string Port;   // "X", "plc:coil:3"; one driver's are unique
  std::string Value;  // with its unit; empty: none has come
  std::optional<std::uint64_t> AgeMs;
  std::string Limits;   // with their unit; empty: none
  std::string Warning;  // what a person should know of it, through Tr; empty: nothing
  bool Readable = false;
};
struct TMachinePort {
  std::string Device;  // "laser Beam", "input 4 Nozzle cover open", through Tr; empty: none of the machine's
  std::string Driver;
  TPortFacts Facts;
};

// Something that fails on request.
struct TMachineFault {
  const char* Name;         // "rack.stage-stuck"
  const char* Description;  // shown through Tr
};

// What a controller gives the machine that it makes; all of it outlives the machine.
struct TMachineContext {
  TNcStateFramework& Framework;  // the number of the current state
  TMachineConfig& Config;        // loaded
  TNcAlarmManager& Alarms;       // takes alarms and their sources
  IMachineObserver& Observer;
  TVirtualClock* Clock = nullptr;  // null: real time
  std::uint64_t Seed = 1;          // of whatever is left to chance
};

// Nothing of it throws: a device that cannot be reached throws out of its port, and in a snapshot it has what was known
// of it last.
class IMachine {
 public:
  virtual ~IMachine() = default;
  // Installs the ports for the machine's life. Once; says what does not answer, and has then installed nothing.
  virtual TResult<> Connect() = 0;
  // In real time, every 2 ms on a thread of its own, and every 10 ms in standby without light: a machine made of
  // software lets its physics follow the clock.
  virtual void CatchUp(std::uint64_t nowMs) { static_cast<void>(nowMs); }
  // The state has changed; the state thread.
  virtual void NoteState(std::int32_t state) { static_cast<void>(state); }
  // Stops at once whatever moves or blows, past whoever uses the devices: what a person asks for who wants everything
  // off. Any thread, also while a device call of another one hangs; the caller has a thread for it that may wait.
  // The laser's part of it is its latch. Here: nothing; the state thread stops each device in its next pass.
  virtual void StopNow() {}
  // Any thread. Here: laser, emission and gas as the adapters have told the watch, the latch, and the state.
  virtual TMachineSnapshot Snapshot();
  // What it is made of. Any thread; waits for nothing.
  virtual std::vector<TMachinePort> PortFacts() { return {}; }
  // Lets one of its factory's faults happen, from now on. False: it has no fault of this name.
  virtual bool Inject(std::string_view fault) { return static_cast<void>(fault), false; }
  // Lets something happen to a device, or ends it, for who looks at its alarms: an "axis", "gas", "emission" or
  // "device". One thread at a time, beside the state thread. False: of this machine nothing happens on request.
  virtual bool SetTrouble(std::string_view device, bool fails) {
    return static_cast<void>(device), static_cast<void>(fails), false;
  }
};

// What one machine allows, for command lines, requests and files that are checked before anything moves.
struct TMachineLimits {
  TMachineBounds Bounds;
  // Z at which a nozzle touches what lies on the table, and where the table is.
  double TableZ = std::numeric_limits<double>::infinity();
  TNcArea Table;
};

// What a machine alone has in a machine file, for who checks, shows and edits one; a fresh record of it.
struct TMachineSection {
  std::string Name;
  std::function<std::unique_ptr<TXmlSubConfig>()> Make;
};

// How a program makes the machines that it knows; the first one is made where the machine file names none.
struct TMachineFactory {
  std::string Name;  // in the machine file: <Machine Driver="..."/>
  // Says why the configuration does not describe such a machine.
  std::function<TResult<std::unique_ptr<IMachine>>(const TMachineContext&)> Make;
  std::vector<TMachineFault> Faults = {};
  std::vector<TMachineSection> Sections = {};  // machines may have one in common
  // What a file of this document element describes, without connecting to it; adds what keeps such a machine from being
  // made. Null: as any machine's (TMachineBounds::Read).
  std::function<TMachineLimits(const TConfigSection& root, std::vector<TProblem>& problems)> Limits;

  // As Limits; what is wrong is added to `problems`, and has its default.
  [[nodiscard]] TMachineLimits LimitsOf(const TConfigSection& root, std::vector<TProblem>& problems) const;
};

// The one that the configuration names ("Machine/Driver"), or the first one where it names none.
[[nodiscard]] TResult<const TMachineFactory*> FindMachine(const TMachineConfig& config,
                                                          std::span<const TMachineFactory> machines);
// What that machine allows; the first thing that keeps it from being made.
[[nodiscard]] TResult<TMachineLimits> LimitsOf(const TMachineConfig& config, std::span<const TMachineFactory> machines);

}  // namespace ixocamglue
