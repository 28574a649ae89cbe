#include "machines/composed/Devices.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kMaxPort = 1023;

}  // namespace

// --- the records ---

void TAxesDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional).Text(TrMark("Driver that moves X and Y; empty: there are no axes"));
}

void TNozzleMotorDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional).Text(TrMark("Driver that turns the nozzle motor; empty: the axes' own"));
}

void TFollowerDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional)
      .Text(TrMark("Driver of this head's height follower with its Z axis; empty: there is none"));
}

void TFocusDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional).Text(TrMark("Driver that moves the focus; empty: there is none"));
}

void TLatchDevice::Publish(TPublisher& p) {
  p.Field("Ok", Ok, "", kOptional)
      .Text(TrMark(
          "Input that is on while this latch is up; when it falls, the beam goes dark and the laser is latched"));
  p.Field("Rearm", Rearm, "", kOptional)
      .Text(TrMark("Output whose rising edge sets this latch again, by a reset of the laser's; empty: by hand"));
}

void TLaserDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional)
      .Text(TrMark("Driver of the laser source, or of the points that it is wired to; empty: there is no laser"));
  p.Field("EmissionRequest", EmissionRequest, "", kOptional)
      .Text(TrMark("Output that asks the laser source for emission"));
  p.Field("EmissionConfirmed", EmissionConfirmed, "", kOptional)
      .Text(TrMark("Input by which the laser source confirms emission; empty: what is read back from the request"));
  p.Field("Beam", Beam, "", kOptional).Text(TrMark("Output that switches the beam"));
  p.Field("BeamOn", BeamOn, "", kOptional)
      .Text(TrMark("Input that is on while light comes out; empty: what is read back from Beam, with emission"));
  p.Field("Aiming", Aiming, "", kOptional).Text(TrMark("Output of the pilot light"));
  p.Field("LatchOk", LatchOk, "", kOptional)
      .Text(TrMark("Input that is on while the laser's own latch lets the beam through"));
  p.Field("Trip", Trip, "", kOptional).Text(TrMark("Output that trips the laser's own latch"));
  p.Field("Rearm", Rearm, "", kOptional)
      .Text(TrMark("Output whose rising edge sets the laser's own latch again, while everything is off"));
  p.Field("Fault", Fault, "", kOptional)
      .Text(TrMark("Input that is on while the laser source has a fault or its interlock is open"));
  p.List("Latch", Latches);
}

bool TLaserDevice::IsOfPoints() const {
  return Latches.Size() != 0 ||
         std::ranges::any_of(std::initializer_list<const std::string*>{&EmissionRequest, &Beam, &Aiming, &Trip, &Rearm,
                                                                       &EmissionConfirmed, &BeamOn, &LatchOk, &Fault},
                             [](const std::string* address) { return !address->empty(); });
}

void TGasLineDevice::Publish(TPublisher& p) {
  p.Field("GasType", GasType, 0, kOptional)
      .Within(bdFittedBranch)
      .Key(TrMark("the branch has no valid gas type"))
      .Text(TrMark("Gas branch whose valve and sensor these are"));
  p.Field("Valve", Valve, "", kOptional).Text(TrMark("Output that opens this branch's shut-off valve"));
  p.Field("Pressure", Pressure, "", kOptional)
      .Text(TrMark("Analogue input of this branch's pressure sensor, scaled to bar; empty: there is none"));
  p.Field("SetPoint", SetPoint, "", kOptional)
      .Text(TrMark("Analogue output that a pressure controller takes its pressure from, scaled to bar; empty: the "
                   "branch's DAPort drives a valve by the calibrated table"));
}

void TGasDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional)
      .Text(TrMark("Driver of the gas supply, or of the points that it is wired to; empty: there is no gas"));
  p.Field("Supply", Supply, "", kOptional)
      .Text(TrMark("Input that is on while the supply gives enough pressure; empty: nobody watches it"));
  p.Field("SwitchTimeMs", SwitchTimeMs, 60, kOptional)
      .Unit(uMs)
      .Within(0, 60'000)
      .Text(TrMark("How long a gas valve takes to open or shut"));
  p.List("Branch", Branches);
}

void TPalletsDevice::Publish(TPublisher& p) {
  p.Field("Driver", Driver, "", kOptional)
      .Text(TrMark("Driver that knows which pallet is docked, or has the inputs; empty: there are no pallets"));
  p.Field("Docked1", Docked1, "", kOptional).Text(TrMark("Input that is on while pallet 1 is docked"));
  p.Field("Docked2", Docked2, "", kOptional).Text(TrMark("Input that is on while pallet 2 is docked"));
}

void TPointDevice::Publish(TPublisher& p) {
  p.Field("Number", Number, -1, kOptional)
      .Within(0, kMaxPort)
      .Key(TrMark("the port has no valid number"))
      .Text(TrMark("Number of the port, by which the other sections name it"));
  p.Field("Driver", Driver, "", kOptional).Text(TrMark("Driver that has this port"));
  p.Field("Address", Address, "", kOptional).Text(TrMark("Where the driver finds this port"));
}

void TTableDevice::Publish(TPublisher& p) {
  p.Field("Z", Z, 0.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisZ)
      .Text(TrMark("Z at which a nozzle touches what lies on the table; 0: not known"));
  p.Field("MinX", Area.Min.X, 0.0, kOptional).Unit(uMm).Within(bdAxisX).Text(TrMark("Lowest X of the table"));
  p.Field("MinY", Area.Min.Y, 0.0, kOptional).Unit(uMm).Within(bdAxisY).Text(TrMark("Lowest Y of the table"));
  p.Field("MaxX", Area.Max.X, 0.0, kOptional).Unit(uMm).Within(bdAxisX).Text(TrMark("Highest X of the table"));
  p.Field("MaxY", Area.Max.Y, 0.0, kOptional).Unit(uMm).Within(bdAxisY).Text(TrMark("Highest Y of the table"));
}

void TDevicesRecord::Publish(TPublisher& p) {
  p.Child("Axes", Axes);
  p.Child("NozzleMotor", NozzleMotor);
  p.Child("Follower", Follower);
  p.Child("SecondFollower", SecondFollower);
  p.Child("Focus", Focus);
  p.Child("Laser", Laser);
  p.Child("Gas", Gas);
  p.Child("Pallets", Pallets);
  p.Child("Table", Table);
  p.List("Input", Inputs);
  p.List("Output", Outputs);
  p.List("AnalogIn", AnalogIns);
  p.List("AnalogOut", AnalogOuts);
}

TPointName PointName(std::string_view text, const std::string& driver, std::span<const TDriverFactory> drivers) {
  TPointName name{driver, {}, text.starts_with('!')};
  if (name.Inverted) text.remove_prefix(1);
  const std::size_t at = text.find('@');
  if (at != std::string_view::npos &&
      std::ranges::find(drivers, text.substr(0, at), &TDriverFactory::Name) != drivers.end()) {
    name.Driver = text.substr(0, at);
    text.remove_prefix(at + 1);
  }
  name.Address = text;
  return name;
}

// --- the check ---

namespace {

class TDeviceCheck {
 public:
  TDeviceCheck(const TConfigSection& root, std::span<const TDriverFactory> drivers, std::vector<TProblem>& problems)
      : FRoot(root), FDrivers(drivers), FProblems(problems) {}

  // Null, with a problem, for a name that is no driver.
  const TDriverFactory* Driver(const TConfigSection& section, const std::string& name) {
    const auto it = std::ranges::find(FDrivers, name, &TDriverFactory::Name);
    if (it != FDrivers.end()) {
      FNamed.insert(&*it);
      return &*it;
    }
    TNearestName nearest(name);
    std::string known;
    for (const TDriverFactory& driver : FDrivers) {
      nearest.Consider(driver.Name);
      AddToList(known, driver.Name);
    }
    Add(section, "Driver", name,
        name.empty() ? Format(Tr("a driver is needed: %s"), known.c_str())
                     : Format(Tr("there is no such driver; there are: %s"), known.c_str()));
    FProblems.back().Remedy = nearest.DidYouMean();
    return nullptr;
  }
  // A device that is the driver's own; without a driver it is not fitted.
  void Own(const TConfigSection& section, const std::string& name, const char* device) {
    const TDriverFactory* const driver = name.empty() ? nullptr : Driver(section, name);
    if (!driver || std::ranges::find(driver->Devices, device) != driver->Devices.end()) return;
    const std::string has = Joined(driver->Devices);
    Add(section, "Driver", name,
        has.empty() ? Format(Tr("the driver has no %s of its own, only points"), device)
                    : Format(Tr("the driver has no %s; it has: %s"), device, has.c_str()));
  }
  void Point(const TConfigSection& section, const char* property, const std::string& driver, TPointKind kind,
             const std::string& address, bool needed = false) {
    if (address.empty()) {
      if (needed) Add(section, property, {}, Tr("an address is needed"));
      return;
    }
    const TPointName name = PointName(address, driver, FDrivers);
    const TDriverFactory* const factory = Driver(section, name.Driver);
    if (!factory) return;
    if (name.Inverted && kind != pkInput)
      return Add(section, property, address,
                 kind == pkOutput ? Tr("an output cannot be turned round: 0 is what is sent when in doubt")
                                  : Tr("only an input can be turned round"));
    if (const auto own = FLaser.find({name.Driver, name.Address}); kind == pkOutput && own != FLaser.end())
      return Add(section, property, address, Format(Tr("the laser has this output already, as %s"), own->second));
    if (!factory->CheckPoint) return;
    if (const auto good = factory->CheckPoint(FRoot, kind, name.Address); !good) {
      Add(section, property, address, good.Problem().What);
      FProblems.back().Why = good.Problem().Why;
      FProblems.back().Remedy = good.Problem().Remedy;
    }
  }
  // Nothing else may switch it.
  void LaserOutput(const TConfigSection& section, const char* property, const std::string& driver,
                   const std::string& address, bool needed = false) {
    Point(section, property, driver, pkOutput, address, needed);
    if (address.empty()) return;
    const TPointName name = PointName(address, driver, FDrivers);
    FLaser.emplace(std::pair(name.Driver, name.Address), property);
  }
  // What those that are named say of the file; what was said before is not said again.
  void Drivers() {
    for (const TDriverFactory* const driver : FNamed) {
      if (!driver->Check) continue;
      std::vector<TProblem> own;
      driver->Check(FRoot, own);
      for (TProblem& problem : own)
        if (std::ranges::find(FProblems, problem) == FProblems.end()) FProblems.push_back(std::move(problem));
    }
  }
  void Add(const TConfigSection& section, std::string_view property, const std::string& value, const std::string& why) {
    FProblems.push_back(ProblemAt(section, property, value, why));
  }

 private:
  const TConfigSection& FRoot;
  const std::span<const TDriverFactory> FDrivers;
  std::vector<TProblem>& FProblems;
  std::set<const TDriverFactory*> FNamed;
  std::map<std::pair<std::string, std::string>, const char*> FLaser;  // the properties of its outputs
};

void CheckLaser(TDeviceCheck& check, const TConfigSection& section, const TLaserDevice& laser) {
  if (!laser.IsOfPoints()) return check.Own(section, laser.Driver, "Laser");
  const auto input = [&](const char* property, const std::string& address) {
    check.Point(section, property, laser.Driver, pkInput, address);
  };
  const auto output = [&](const char* property, const std::string& address, bool needed = false) {
    check.LaserOutput(section, property, laser.Driver, address, needed);
  };
  output("EmissionRequest", laser.EmissionRequest, true);
  input("EmissionConfirmed", laser.EmissionConfirmed);
  output("Beam", laser.Beam, true);
  input("BeamOn", laser.BeamOn);
  output("Aiming", laser.Aiming);
  input("LatchOk", laser.LatchOk);
  output("Trip", laser.Trip);
  output("Rearm", laser.Rearm);
  input("Fault", laser.Fault);
  const std::vector<TConfigSection> places = section.Children("Latch");
  std::size_t at = 0;
  for (const auto& latch : laser.Latches) {
    const TConfigSection& place = places[at++];
    check.Point(place, "Ok", laser.Driver, pkInput, latch->Ok, true);
    check.LaserOutput(place, "Rearm", laser.Driver, latch->Rearm);
  }
}

void CheckGas(TDeviceCheck& check, const TConfigSection& section, const TGasDevice& gas, const TDevicesRecord& devices,
              TMachineBounds& machine) {
  if (gas.Branches.Size() == 0) {
    check.Own(section, gas.Driver, "Gas");
    return;
  }
  check.Point(section, "Supply", gas.Driver, pkInput, gas.Supply);
  const std::vector<TConfigSection> lines = section.Children("Branch");
  std::size_t at = 0;
  for (const auto& line : gas.Branches) {
    const TConfigSection& place = lines[at++];
    check.Point(place, "Valve", gas.Driver, pkOutput, line->Valve, true);
    check.Point(place, "Pressure", gas.Driver, pkAnalogIn, line->Pressure);
    check.Point(place, "SetPoint", gas.Driver, pkAnalogOut, line->SetPoint);
    const auto branch = std::ranges::find(machine.GasBranches, line->GasType, &TGasBranchConfig::GasType);
    if (branch == machine.GasBranches.end() || branch->DAPort == 0 || !line->SetPoint.empty()) continue;
    const bool driven =
        std::ranges::any_of(devices.AnalogOuts, [&](const auto& out) { return out->Number == branch->DAPort; });
    if (!driven)
      check.Add(place, "GasType", Format("%d", line->GasType),
                Format(Tr("no AnalogOut has the number %d, which is the branch's DAPort"), branch->DAPort));
  }
  std::erase_if(machine.GasBranches, [&](const TGasBranchConfig& branch) {
    return std::ranges::none_of(gas.Branches, [&](const auto& line) { return line->GasType == branch.GasType; });
  });
}

// The ports of one kind, with the names that the section "Ports" gives them.
void CheckPorts(TDeviceCheck& check, const TConfigSection& section, const char* element, TPointKind kind,
                const TXmlList<TPointDevice>& ports, std::vector<TPortConfig>* fitted) {
  const std::vector<TConfigSection> places = section.Children(element);
  std::vector<TPortConfig> named;
  std::size_t at = 0;
  for (const auto& port : ports) {
    const TConfigSection& place = places[at++];
    if (check.Driver(place, port->Driver)) check.Point(place, "Address", port->Driver, kind, port->Address, true);
    if (!fitted) continue;
    const auto it = std::ranges::find(*fitted, port->Number, &TPortConfig::Number);
    named.emplace_back(port->Number, it == fitted->end() ? std::string() : it->Name);
  }
  if (fitted) *fitted = std::move(named);
}

}  // namespace

void ReadDevices(const TConfigSection& root, std::span<const TDriverFactory> drivers, TDevicesRecord& devices,
                 TMachineBounds& machine, std::vector<TProblem>& problems) {
  const TConfigSection section = root.Child(TDevicesRecord::kSection);
  devices.Initialize();
  section.LoadOver(devices);
  CheckRecord(section, devices, machine, problems);
  TDeviceCheck check(root, drivers, problems);
  check.Own(section.Child("Axes"), devices.Axes.Driver, "Axes");
  check.Own(section.Child("NozzleMotor"), devices.NozzleMotor.Driver, "Axes");
  check.Own(section.Child("Follower"), devices.Follower.Driver, "Follower");
  check.Own(section.Child("SecondFollower"), devices.SecondFollower.Driver, "Follower");
  check.Own(section.Child("Focus"), devices.Focus.Driver, "Focus");
  if (devices.Follower.Driver.empty() && !devices.SecondFollower.Driver.empty())
    check.Add(section.Child("SecondFollower"), "Driver", devices.SecondFollower.Driver,
              Tr("a machine without Follower has no second one"));
  CheckLaser(check, section.Child("Laser"), devices.Laser);
  CheckGas(check, section.Child("Gas"), devices.Gas, devices, machine);
  const TConfigSection pallets = section.Child("Pallets");
  if (devices.Pallets.IsOfPoints()) {
    check.Point(pallets, "Docked1", devices.Pallets.Driver, pkInput, devices.Pallets.Docked1);
    check.Point(pallets, "Docked2", devices.Pallets.Driver, pkInput, devices.Pallets.Docked2);
  } else {
    check.Own(pallets, devices.Pallets.Driver, "Pallets");
  }
  CheckPorts(check, section, "Input", pkInput, devices.Inputs, &machine.Inports);
  CheckPorts(check, section, "Output", pkOutput, devices.Outputs, &machine.Outports);
  CheckPorts(check, section, "AnalogIn", pkAnalogIn, devices.AnalogIns, nullptr);
  CheckPorts(check, section, "AnalogOut", pkAnalogOut, devices.AnalogOuts, nullptr);
  check.Drivers();
  machine.Followers = devices.SecondFollower.Driver.empty() ? 1 : 2;
}

}  // namespace ixocamglue
