// The section "Devices" of a machine file: of which devices a composed machine is made, each with its driver and its
// addresses. What is not named is not fitted.
//
// An address is its driver's business. "name@address" is one of another driver than the device's own, and a "!" in
// front of an input's turns its level round. Values; any thread. What a file has wrong is among the problems.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/platform/xml/Bounds.h"

namespace ixocamglue {

class TAxesDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;
};

class TNozzleMotorDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;  // empty: the axes'
};

class TFollowerDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;
};

class TFocusDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;
};

// Beside the source's own: one of another driver, that holds beam or axes.
class TLatchDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Ok;     // input
  std::string Rearm;  // output
};

// Without addresses it is the driver's own.
class TLaserDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] bool IsOfPoints() const;
  std::string Driver;
  std::string EmissionRequest, Beam, Aiming, Trip, Rearm;  // outputs
  std::string EmissionConfirmed, BeamOn, LatchOk, Fault;   // inputs
  TXmlList<TLatchDevice> Latches;
};

class TGasLineDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t GasType = 0;
  std::string Valve;     // output
  std::string Pressure;  // analogue input, bar
  std::string SetPoint;  // analogue output, bar
};

// Without branches it is the driver's own.
class TGasDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::string Driver;
  std::string Supply;             // input
  std::int32_t SwitchTimeMs = 0;  // of a valve
  TXmlList<TGasLineDevice> Branches;
};

// Without addresses they are the driver's own.
class TPalletsDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  [[nodiscard]] bool IsOfPoints() const { return !Docked1.empty() || !Docked2.empty(); }
  std::string Driver;
  std::string Docked1, Docked2;  // inputs
};

class TPointDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  std::int32_t Number = -1;
  std::string Driver, Address;
};

// What lies below the head, for who looks ahead; without an area it is all that X and Y reach.
class TTableDevice : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override;
  double Z = 0.0;  // at which a nozzle touches it; 0: not known
  TNcArea Area;
};

class TDevicesRecord : public TXmlSubConfig {
 public:
  static constexpr const char* kSection = "Devices";
  void Publish(TPublisher& p) override;

  TAxesDevice Axes;
  TNozzleMotorDevice NozzleMotor;
  TFollowerDevice Follower, SecondFollower;
  TFocusDevice Focus;
  TLaserDevice Laser;
  TGasDevice Gas;
  TPalletsDevice Pallets;
  TTableDevice Table;
  TXmlList<TPointDevice> Inputs, Outputs, AnalogIns, AnalogOuts;
};

// An address as its driver reads it.
struct TPointName {
  std::string Driver;
  std::string Address;
  bool Inverted = false;
};
// `driver`: the device's own; `drivers`: those that an address may name instead.
[[nodiscard]] TPointName PointName(std::string_view text, const std::string& driver,
                                   std::span<const TDriverFactory> drivers);

// Reads the section below this document element into `devices`, and narrows `machine`, which was read from the same
// file, to what is fitted. Adds a problem for each driver, device and address that there is not.
void ReadDevices(const TConfigSection& root, std::span<const TDriverFactory> drivers, TDevicesRecord& devices,
                 TMachineBounds& machine, std::vector<TProblem>& problems);

}  // namespace ixocamglue
