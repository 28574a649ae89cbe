// What the simulated machine and its supervision read from a machine file. Lengths mm, speeds mm/s, times ms, pressures
// bar. The defaults are a complete machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "machines/simulated/GasValve.h"

namespace ixocamglue {

using TSimAxisConfig = TMachineBounds::TAxis;
using TSimGasBranch = TMachineBounds::TBranch;
using TSimPort = TMachineBounds::TPort;

// What a gas branch's valve is like, and how it fails.
struct TSimGasValve {
  std::int32_t GasType = 0;
  TGasValveParams Params;
  TValveFault Fault = vfNone;
};

struct TSimSlave {
  std::string Name;
  std::uint32_t Identity = 0;  // decimal or 0x...
  std::int32_t ProductNo = 0;
  std::int32_t DACount = 0;
  std::int32_t ADCount = 0;
  bool ExtIO = false;
};

// When the supervisor acts; a limit is how long something may last.
struct TSimSupervisorConfig {
  std::int32_t BusyLimitMs = 600'000;    // a state waits for the same thing
  std::int32_t EmissionExtraMs = 1000;   // emission asked for and absent, beyond EmissionOnDelay
  std::int32_t LaserOnLimitMs = 62'000;  // below the latch's own 65 s
  std::int32_t GasOnLimitMs = 1'800'000;
  std::int32_t HeartbeatLimitMs = 1000;
  std::int32_t StepMs = 1000;  // from the alarm to the stop, and from there to the latch
};

struct TSimPhysics {
  std::int32_t EmissionDelayMs = 800;
  std::int32_t EmissionJitterMs = 200;  // 0 to this, by the seed
  std::int32_t GasTimeConstantMs = 150;
  std::int32_t SwitchTimeMs = 60;  // a gas valve's
  double FollowingErrorMs = 2.0;   // an axis lags behind its set position by its speed times this
  double PlateZ = 80.0;            // Z at which the nozzle would touch the plate
  bool Follower = true;            // false: the head has none, and Z is an axis of the motion driver
  bool SecondFollower = false;
};

// An input and the level that means "true"; a port below 1 is not fitted.
struct TSimSwitch {
  std::int32_t Port = 0;
  bool Level = true;
};

struct TSimSlot {
  std::int32_t Row = 0;
  std::int32_t Col = 0;
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;           // of the head that takes the nozzle
  double UninstZ = 0.0;     // of the head that puts it down
  TSimSwitch Ready;         // a nozzle is in the slot
  std::int32_t Nozzle = 0;  // its number; 0: none
};

// The nozzle changer as "NozzleChange" describes it; without slots there is none. Outputs below 1 are not fitted.
struct TSimRackConfig {
  std::int32_t OutCapOpen = 0;
  std::int32_t OutCapClose = 0;
  std::int32_t OutStageUp = 0;
  std::int32_t OutStageDown = 0;
  TSimSwitch InCapOpen, InCapClose, InStageUp, InStageDown;
  std::int32_t MotorAxis = 0;
  bool MotorDir = false;  // false: a nozzle is screwed on by positive turns
  std::vector<TSimSlot> Slots;
  std::int32_t HeadNozzle = 0;  // at power-up; 0: none
  std::int32_t TravelMs = 400;  // of cap and stage, from end to end
  double ThreadTurns = 2.0;
};

// A brush: a square around its middle whose bristles begin at TopZ.
struct TSimBrushPlace {
  double X = 0.0;
  double Y = 0.0;
  double Half = 0.0;
  double TopZ = 0.0;
};

// One value that the simulated machine reads from the machine file.
struct TSimProperty {
  std::string Path;  // "Ports/Inport[]/Number"
  std::variant<bool, std::int32_t, std::uint32_t, double, std::string> Default;
  double Min = 0.0;  // of a number, as far as it does not depend on other values of the file
  double Max = 0.0;
};

struct TSimConfig : TMachineBounds {
  std::int32_t EmissionOnDelay = 5000;             // limit of the steps that wait for emission
  double MaxPower = 3000.0;                        // W
  std::optional<TPoint2> WorkOrigin = TPoint2{};   // machine coordinates; none: the machine has no valid one
  TNcArea WorkArea{{0.0, 0.0}, {3000.0, 1500.0}};  // machine coordinates
  std::vector<TSimGasValve> GasValves;             // those that differ from GasValveParams
  std::vector<TSimSlave> Slaves;
  std::int32_t DockedTable = 1;  // 1 or 2; 0 none
  std::int32_t DHMode = 0;
  TSimSupervisorConfig Supervisor;
  TSimPhysics Physics;
  TSimRackConfig Rack;
  std::vector<TSimBrushPlace> Brushes;

  [[nodiscard]] TSimGasValve GasValve(std::int32_t gasType) const;

  // What the file does not say keeps its default. Each value that is no number, out of range or named twice adds a line
  // "path: value, why" to `problems`, and the default stands for it: a machine is built only when there are none.
  [[nodiscard]] static TSimConfig FromConfig(const TMachineConfig& config, std::vector<std::string>& problems);
  // What FromConfig asks a file for, in its order.
  [[nodiscard]] static std::vector<TSimProperty> Properties();
};

}  // namespace ixocamglue
