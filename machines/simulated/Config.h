// What the simulated machine reads from a machine file: what any machine has, and its own section "Simulator". Lengths
// mm, speeds mm/s, times ms, pressures bar. The defaults are a complete machine. Values; any thread. What a file has
// wrong is among the problems, and has its default.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "machines/simulated/GasValve.h"

namespace ixocamglue {

using TSimAxisConfig = TAxisConfig;
using TSimGasBranch = TGasBranchConfig;
using TSimPort = TPortConfig;

// What a gas branch's valve is like, and how it fails.
class TSimGasValve : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t GasType = 0;
  TGasValveParams Params;
  std::string FaultName = "none";
  TValveFault Fault = vfNone;  // of that name
};

class TSimPhysics : public TXmlSubConfig {
 public:
  TSimPhysics() { TSimPhysics::Initialize(); }
  void Publish(TPublisher& p) override;
  std::int32_t EmissionDelayMs = 0;
  std::int32_t EmissionJitterMs = 0;  // 0 to this, by the seed
  std::int32_t GasTimeConstantMs = 0;
  std::int32_t SwitchTimeMs = 0;  // a gas valve's
  double FollowingErrorMs = 0.0;  // an axis lags behind its set position by its speed times this
  double PlateZ = 0.0;            // Z at which the nozzle would touch the plate
  bool Follower = false;          // false: the head has none, and Z is an axis of the motion driver
  bool SecondFollower = false;
};

// Machine coordinates.
class TSimWorkArea : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TNcArea Area;
};

class TSimWorkOrigin : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  bool Valid = true;
  TPoint2 Origin;
};

class TSimRackParams : public TXmlSubConfig {
 public:
  TSimRackParams() { TSimRackParams::Initialize(); }
  void Publish(TPublisher& p) override;
  std::int32_t HeadNozzle = 0;  // at power-up; 0: none
  std::int32_t TravelMs = 0;    // of cap and stage, from end to end
  double ThreadTurns = 0.0;
};

class TSimGasValves : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override { p.List("GasValve", Items); }
  TXmlList<TSimGasValve> Items;
};

// The section as a whole.
class TSimulatorRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  TSimPhysics Physics;
  TSimWorkArea WorkArea;
  TSimWorkOrigin WorkOrigin;
  TSimRackParams Rack;
  TSimGasValves GasValves;
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
struct TSimRackConfig : TSimRackParams {
  static constexpr double kHeadWidth = 15.0;  // mm around a slot
  std::int32_t OutCapOpen = 0;
  std::int32_t OutCapClose = 0;
  std::int32_t OutStageUp = 0;
  std::int32_t OutStageDown = 0;
  TSimSwitch InCapOpen, InCapClose, InStageUp, InStageDown;
  std::int32_t MotorAxis = 0;
  bool MotorDir = false;  // false: a nozzle is screwed on by positive turns
  std::vector<TSimSlot> Slots;
};

// A brush: a square around its middle whose bristles begin at TopZ.
struct TSimBrushPlace {
  double X = 0.0;
  double Y = 0.0;
  double Half = 0.0;
  double TopZ = 0.0;
};

struct TSimConfig : TMachineBounds {
  std::optional<TPoint2> WorkOrigin = TPoint2{};   // machine coordinates; none: the machine has no valid one
  TNcArea WorkArea{{0.0, 0.0}, {3000.0, 1500.0}};  // machine coordinates
  std::vector<TSimGasValve> GasValves;             // those that differ from GasValveParams
  TSimPhysics Physics;
  TSimRackConfig Rack;
  std::vector<TSimBrushPlace> Brushes;

  [[nodiscard]] TSimGasValve GasValve(std::int32_t gasType) const;

  // Of a file with this document element. What it does not say keeps its default; see TMachineBounds::Read for the
  // problems.
  [[nodiscard]] static TSimConfig FromRoot(const TConfigSection& root, std::vector<TProblem>& problems);
};

}  // namespace ixocamglue
