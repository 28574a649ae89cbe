#include "machines/simulated/Driver.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/simulated/Faults.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue {
namespace {

// One value of the simulated machine. It never is away: what is written is there at once.
class TSimPoint final : public IMachinePoint {
 public:
  using TRead = std::function<double()>;
  using TWrite = std::function<void(double)>;
  TSimPoint(TRead read, TWrite write) : FRead(std::move(read)), FWrite(std::move(write)) {}
  double Read() override { return FRead(); }
  void Write(double value) override {
    if (FWrite) FWrite(value);
  }
  bool Settled() override { return true; }
  std::optional<std::uint64_t> AgeMs() override { return 0; }

 private:
  const TRead FRead;
  const TWrite FWrite;
};

// "in:4" as "in" and 4.
struct TSimAddress {
  std::string_view Kind;
  std::string_view Name;
  std::int32_t Number = -1;

  explicit TSimAddress(std::string_view text) {
    const std::size_t colon = text.find(':');
    Kind = text.substr(0, colon);
    if (colon == std::string_view::npos) return;
    Name = text.substr(colon + 1);
    Number = ParseNumber<std::int32_t>(Name).value_or(-1);
  }
};

constexpr std::pair<std::string_view, TPointKind> kLaserPoints[] = {
    {"emission", pkOutput}, {"beam", pkOutput}, {"aiming", pkOutput}, {"trip", pkOutput},
    {"rearm", pkOutput},    {"lit", pkInput},   {"ok", pkInput},      {"confirmed", pkInput}};

// Whether the machine of this configuration has such a point.
bool Fits(const TSimConfig& config, TPointKind kind, const TSimAddress& address) {
  const auto has = [&](const auto& items, auto member) {
    return std::ranges::find(items, address.Number, member) != items.end();
  };
  switch (kind) {
    case pkInput:
      if (address.Kind == "in") return has(config.Inports, &TSimPort::Number);
      break;
    case pkOutput:
      if (address.Kind == "out") return has(config.Outports, &TSimPort::Number);
      if (address.Kind == "valve") return has(config.GasBranches, &TSimGasBranch::GasType);
      break;
    case pkAnalogIn: return address.Kind == "bar" && has(config.GasBranches, &TSimGasBranch::GasType);
    case pkAnalogOut:
      if (address.Kind == "set") return has(config.GasBranches, &TSimGasBranch::GasType);
      return address.Kind == "da" && address.Number > 0 && has(config.GasBranches, &TSimGasBranch::DAPort);
  }
  return address.Kind == "laser" &&
         std::ranges::find(kLaserPoints, std::pair{address.Name, kind}) != std::end(kLaserPoints);
}

TProblem NoSuchPoint(TPointKind kind, std::string_view address) {
  const char* like = nullptr;
  switch (kind) {
    case pkInput: like = "in:1, laser:confirmed, laser:lit, laser:ok"; break;
    case pkOutput: like = "out:1, valve:2, laser:emission, laser:beam, laser:aiming, laser:trip, laser:rearm"; break;
    case pkAnalogIn: like = "bar:2"; break;
    case pkAnalogOut: like = "da:34, set:2"; break;
  }
  return {.What = Tr("the simulated machine has no such point"),
          .Where = std::string(address),
          .Why = Tr("its ports stand in the section \"Ports\", its gas branches in \"GasBranches\""),
          .Remedy = Format(Tr("an address is like %s"), like)};
}

class TSimDriver final : public IMachineDriver {
 public:
  TSimDriver(const TDriverContext& context, const TSimConfig& config) : FMachine(context.Machine, config, Parts()) {}

  TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) override {
    auto& point = FPoints[std::string(address)];
    if (!point) {
      if (!Fits(FMachine.Config(), kind, TSimAddress(address))) {
        FPoints.erase(std::string(address));
        return NoSuchPoint(kind, address);
      }
      point = Made(TSimAddress(FPoints.find(address)->first));
    }
    return static_cast<IMachinePoint*>(point.get());
  }
  TNcMotionDriver* Axes() override { return FHas.Axes = true, &FMachine.Motion(); }
  TNcFollower* Follower(std::int32_t index) override {
    if (!FMachine.Config().Physics.Follower) return nullptr;
    if (index == 0) FHas.Follower = true;
    return index == 0 ? &FMachine.Follower() : FMachine.SecondFollower();
  }
  TNcCutHeadCtrl* Focus() override { return FHas.Focus = true, &FMachine.HeadDevice(); }
  IMachineLaser* Laser() override { return FHas.Laser = true, &FMachine.LaserDevice(); }
  IMachineGas* Gas() override { return FHas.Gas = true, &FMachine.GasDevice(); }
  TNcSwitchTable* Pallets() override { return FHas.Pallets = true, &FMachine.Table(); }

  TResult<> Connect() override { return FMachine.Connect(); }
  void CatchUp(std::uint64_t nowMs) override { FMachine.CatchUp(nowMs); }
  void NoteState(std::int32_t state) override { FMachine.NoteState(state); }
  void StopNow() override { FMachine.StopNow(); }
  bool Inject(std::string_view fault) override { return InjectSimFault(FMachine, fault); }

  void Show(TMachineSnapshot& now) override {
    const TMachineSnapshot all = FMachine.Snapshot();
    if (FHas.Laser) {
      now.Laser = all.Laser;
      now.Emission = all.Emission;
    }
    if (FHas.Gas) {
      now.Gas = all.Gas;
      now.GasBar = all.GasBar;
      now.GasVolt = all.GasVolt;
      now.GasValveOpen = all.GasValveOpen;
    }
    if (FHas.Axes) {
      now.AxesMoving = all.AxesMoving;
      now.Turns = all.Turns;
      now.FollowingError = all.FollowingError;
      now.Nozzle = all.Nozzle;
      now.RackMoving = all.RackMoving;
    }
    if (FHas.Follower) {
      now.ZMoving = all.ZMoving;
      now.Calibrating = all.Calibrating;
    }
    if (FHas.Pallets) now.DockedTable = all.DockedTable;
    now.Collisions += all.Collisions;
    if (now.FirstCollision.empty()) now.FirstCollision = all.FirstCollision;
  }

  std::vector<TPortFacts> Ports() override {
    std::vector<TPortFacts> ports;
    for (TMachinePort& port : FMachine.PortFacts()) {
      const std::string& name = port.Facts.Port;
      const bool axes = name == "X" || name == "Y";
      const bool z = name == "Z" || name == "Z2";
      const bool has = (axes && FHas.Axes) || (z && (FHas.Axes || FHas.Follower)) || (name == "Focus" && FHas.Focus) ||
                       (name == "laser" && FHas.Laser) || (name.starts_with("gas:") && FHas.Gas) ||
                       (name == "pallets" && FHas.Pallets);
      if (has) ports.push_back(std::move(port.Facts));
    }
    for (const auto& [address, point] : FPoints)
      ports.push_back({.Port = address, .Value = ValueText(point->Read()), .AgeMs = 0, .Readable = true});
    return ports;
  }

  TSimMachine& Machine() { return FMachine; }

 private:
  // It installs nothing: the composed machine does.
  static TSimParts Parts() {
    TSimParts parts;
    parts.CutSystem = parts.Follower = parts.MotionDriver = parts.MotionCard = parts.DeviceManager = false;
    return parts;
  }
  std::unique_ptr<IMachinePoint> Made(const TSimAddress& address) {
    using TMade = std::unique_ptr<IMachinePoint>;
    const std::int32_t number = address.Number;
    const auto made = [](TSimPoint::TRead read, TSimPoint::TWrite write = {}) -> TMade {
      return std::make_unique<TSimPoint>(std::move(read), std::move(write));
    };
    if (address.Kind == "in") return made([this, number] { return FMachine.Ports().InputIsOn(number) ? 1.0 : 0.0; });
    if (address.Kind == "out")
      return made([this, number] { return FMachine.Ports().OutputIsOn(number) ? 1.0 : 0.0; },
                  [this, number](double value) { FMachine.Ports().SwitchOutport(number, value != 0.0); });
    if (address.Kind == "laser") return LaserPoint(address.Name);
    return GasPoint(address.Kind, number);
  }
  std::unique_ptr<IMachinePoint> LaserPoint(std::string_view name) {
    TSimLaser& laser = FMachine.LaserDevice();
    const auto made = [](TSimPoint::TRead read, TSimPoint::TWrite write = {}) {
      return std::make_unique<TSimPoint>(std::move(read), std::move(write));
    };
    if (name == "confirmed") return made([&] { return laser.GetEmission() ? 1.0 : 0.0; });
    if (name == "lit") return made([&] { return laser.GetLaser() ? 1.0 : 0.0; });
    if (name == "ok") return made([&] { return laser.LatchTripped() ? 0.0 : 1.0; });
    if (name == "aiming")
      return made([&] { return laser.Aiming() ? 1.0 : 0.0; }, [&](double on) { laser.SetAiming(on != 0.0); });
    if (name == "emission")
      return made([&] { return laser.EmissionAsked() ? 1.0 : 0.0; },
                  [&](double on) { on != 0.0 ? laser.EmissionOn() : laser.EmissionOff(); });
    if (name == "beam")
      return made([&] { return laser.BeamAsked() ? 1.0 : 0.0; }, [&](double on) { laser.SwitchLaser(on != 0.0); });
    if (name == "trip")
      return made([this] { return FTrip; },
                  [this, &laser](double on) {
                    FTrip = on;
                    if (on != 0.0) laser.Trip(TrMark("the machine tripped it"));
                  });
    return made([this] { return FRearm; },
                [this, &laser](double on) {
                  if (std::exchange(FRearm, on) == 0.0 && on != 0.0) laser.ResetLatch();
                });
  }
  // A valve of another branch than the selected one is shut.
  std::unique_ptr<IMachinePoint> GasPoint(std::string_view kind, std::int32_t number) {
    TSimGas& gas = FMachine.GasDevice();
    if (kind == "valve")
      return std::make_unique<TSimPoint>(
          [&gas, number] { return gas.GetGas() && gas.GetBranch() == number ? 1.0 : 0.0; },
          [&gas, number](double on) {
            if (on == 0.0 && gas.GetBranch() != number) return;
            gas.SelectBranch(number);
            on != 0.0 ? gas.SwitchOn() : gas.SwitchOff();
          });
    if (kind == "bar")
      return std::make_unique<TSimPoint>(
          [&gas, number] { return gas.GetBranch() == number ? gas.ReadPressure() : 0.0; }, TSimPoint::TWrite());
    if (kind == "set")
      return std::make_unique<TSimPoint>([&gas, number] { return gas.GetBranch() == number ? gas.GetPressure() : 0.0; },
                                         [&gas, number](double bar) {
                                           if (bar == 0.0 && gas.GetBranch() != number) return;
                                           gas.SelectBranch(number);
                                           gas.SetPressure(bar);
                                         });
    const auto& branches = FMachine.Config().GasBranches;
    const std::int32_t type = std::ranges::find(branches, number, &TSimGasBranch::DAPort)->GasType;
    return std::make_unique<TSimPoint>([&volt = FVolts[number]] { return volt; },
                                       [&gas, type, &volt = FVolts[number]](double value) {
                                         if (value == 0.0 && gas.GetBranch() != type) return;
                                         gas.SelectBranch(type);
                                         gas.OutputDA(volt = value);
                                       });
  }

  struct THas {
    bool Axes = false, Follower = false, Focus = false, Laser = false, Gas = false, Pallets = false;
  };

  TSimMachine FMachine;
  THas FHas;
  double FTrip = 0.0;
  double FRearm = 0.0;
  std::map<std::int32_t, double> FVolts;
  std::map<std::string, std::unique_ptr<IMachinePoint>, std::less<>> FPoints;
};

}  // namespace

TSimMachine& Simulated(IMachineDriver& driver) { return dynamic_cast<TSimDriver&>(driver).Machine(); }

TDriverFactory SimulatedDriver(std::function<void(TSimConfig&)> adjust) {
  using TMade = TResult<std::unique_ptr<IMachineDriver>>;
  const auto make = [adjust = std::move(adjust)](const TDriverContext& context) -> TMade {
    std::vector<TProblem> problems;
    TSimConfig config = TSimConfig::FromRoot(context.Machine.Config.Root(), problems);
    if (!problems.empty()) return problems.front();
    if (adjust) adjust(config);
    return TMade(std::make_unique<TSimDriver>(context, config));
  };
  const auto check = [](const TConfigSection& root, TPointKind kind, std::string_view address) -> TResult<> {
    std::vector<TProblem> problems;
    if (Fits(TSimConfig::FromRoot(root, problems), kind, TSimAddress(address))) return {};
    return NoSuchPoint(kind, address);
  };
  return {.Name = "simulated",
          .Make = make,
          .VirtualTime = true,
          .Faults = {SimFaults().begin(), SimFaults().end()},
          .Sections = {{"Simulator", [] { return std::make_unique<TSimulatorRecord>(); }}},
          .CheckPoint = check,
          .Devices = {"Axes", "Follower", "Focus", "Laser", "Gas", "Pallets"},
          .Check = [](const TConfigSection& root, std::vector<TProblem>& problems) {
            (void)TSimConfig::FromRoot(root, problems);
          }};
}

}  // namespace ixocamglue
