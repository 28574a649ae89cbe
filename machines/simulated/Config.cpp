#include "machines/simulated/Config.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kMaxMs = 86'400'000;
constexpr std::int32_t kMaxPort = 1023;
constexpr double kLeastRiseV = 0.1;  // from U0 to Uk

template <class Number>
std::optional<Number> Parse(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
  Number value{};
  std::from_chars_result result{};
  if constexpr (std::is_floating_point_v<Number>) {
    result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (!std::isfinite(value)) return std::nullopt;
  } else {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    result = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  }
  if (result.ec != std::errc{} || result.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

// Reads one section's values and notes what is wrong with them, and what was asked for where somebody wants to know.
class TReader {
 public:
  TReader(TConfigSection section, std::vector<std::string>& problems, std::vector<TSimProperty>* asked)
      : FSection(std::move(section)), FProblems(problems), FAsked(asked) {}

  [[nodiscard]] TReader Child(const char* name) const { return {FSection.Child(name), FProblems, FAsked}; }
  [[nodiscard]] std::vector<TReader> Children(const char* name) const {
    std::vector<TReader> readers;
    for (TConfigSection& child : FSection.Children(name)) readers.push_back({std::move(child), FProblems, FAsked});
    if (FAsked) readers.push_back(Child((std::string(name) + "[]").c_str()));  // one that stands for all
    return readers;
  }

  [[nodiscard]] const TConfigSection& Section() const { return FSection; }
  [[nodiscard]] bool StandsForAll() const { return FAsked != nullptr; }  // an item that no file has

  template <class Number>
  void Read(const char* name, Number& value, Number least, Number most) const {
    Ask(name, value, static_cast<double>(least), static_cast<double>(most));
    Judge(name, value, least, most);
  }
  // The same with bounds that other values of the file decide.
  void ReadWithin(const char* name, double& value, double least, double most) const {
    Ask(name, value, -kFarthest, kFarthest);
    Judge(name, value, least, most);
  }
  void Read(const char* name, bool& value) const {
    Ask(name, value);
    const std::string text = FSection.GetText(name, "");
    if (text == "true" || text == "1")
      value = true;
    else if (text == "false" || text == "0")
      value = false;
    else if (!text.empty())
      Problem(name, text, "neither true nor false");
  }
  void Read(const char* name, std::string& value) const {
    Ask(name, value);
    value = FSection.GetText(name, value);
  }

  void Problem(const char* name, const std::string& value, const char* why) const {
    const std::string& path = FSection.Path();
    FProblems.push_back(Format("%s%s%s: \"%s\", %s", path.c_str(), path.empty() ? "" : "/", name, value.c_str(), why));
  }

 private:
  static constexpr double kFarthest = 1e6;  // mm

  template <class Number>
  void Judge(const char* name, Number& value, Number least, Number most) const {
    const std::string text = FSection.GetText(name, "");
    if (text.empty()) return;
    const std::optional<Number> read = Parse<Number>(text);
    if (!read)
      Problem(name, text, std::is_floating_point_v<Number> ? "not a number" : "not a whole number in range");
    else if (*read < least || *read > most)
      Problem(name, text,
              Format("outside %.10g to %.10g", static_cast<double>(least), static_cast<double>(most)).c_str());
    else
      value = *read;
  }

  template <class T>
  void Ask(const char* name, const T& value, double least = 0.0, double most = 0.0) const {
    if (FAsked) FAsked->push_back({FSection.Path() + (FSection.Path().empty() ? "" : "/") + name, value, least, most});
  }

  TConfigSection FSection;
  std::vector<std::string>& FProblems;
  std::vector<TSimProperty>* FAsked;
};

void ReadAxis(const TReader& reader, TSimAxisConfig& axis) {
  TSimAxisConfig read = axis;
  reader.Read("SoftLimitNeg", read.SoftLimitNeg, -1e6, 1e6);
  reader.Read("SoftLimitPos", read.SoftLimitPos, -1e6, 1e6);
  reader.Read("MaxSpeed", read.MaxSpeed, 0.1, 1e5);
  reader.Read("Acceleration", read.Acceleration, 1.0, 1e6);
  if (read.SoftLimitNeg < read.SoftLimitPos)
    axis = read;
  else
    reader.Problem("SoftLimitPos", Format("%g", read.SoftLimitPos),
                   Format("not above SoftLimitNeg (%g)", read.SoftLimitNeg).c_str());
}

void ReadSafeZ(const TReader& reader, TSimConfig& config) {
  reader.ReadWithin("SafeZ", config.SafeZ, config.Z.SoftLimitNeg, config.Z.SoftLimitPos);
}

void ReadAxes(const TReader& axes, TSimConfig& config) {
  std::vector<std::string> seen;
  for (const TReader& reader : axes.Children("Axis")) {
    std::string name;
    reader.Read("Name", name);
    if (reader.StandsForAll()) {
      ReadAxis(reader, config.X);
      ReadSafeZ(reader, config);
    }
    TSimAxisConfig* const known[] = {&config.X, &config.Y, &config.Z, &config.Focus};
    const auto it = std::ranges::find(known, name, [](const TSimAxisConfig* axis) { return axis->Name; });
    if (it == std::end(known)) {
      reader.Problem("Name", name, "not one of X, Y, Z, Focus");
    } else if (std::ranges::find(seen, name) != seen.end()) {
      reader.Problem("Name", name, "described twice");
    } else {
      seen.push_back(name);
      ReadAxis(reader, **it);
      if (*it == &config.Z) ReadSafeZ(reader, config);
    }
  }
}

// Replaces `items` by the file's elements, when it has any. ReadItem fills one item; `key` names what must be unique.
template <class Item, class ReadItem>
void ReadList(const TReader& list, const char* element, std::vector<Item>& items, const char* keyName,
              std::int32_t Item::*key, ReadItem readItem) {
  const std::vector<TReader> readers = list.Children(element);
  if (readers.empty()) return;
  items.clear();
  for (const TReader& reader : readers) {
    Item item;
    reader.Read("Name", item.Name);
    readItem(reader, item);
    if (std::ranges::find(items, item.*key, key) != items.end())
      reader.Problem(keyName, Format("%d", item.*key), "given twice");
    else
      items.push_back(std::move(item));
  }
}

void ReadPorts(const TReader& ports, TSimConfig& config) {
  const auto readPort = [](const TReader& reader, TSimPort& port) {
    port.Number = -1;
    reader.Read("Number", port.Number, 0, kMaxPort);
    if (port.Number < 0) reader.Problem("Number", "", "the port has no valid number");
  };
  ReadList(ports, "Inport", config.Inports, "Number", &TSimPort::Number, readPort);
  ReadList(ports, "Outport", config.Outports, "Number", &TSimPort::Number, readPort);
}

void ReadGas(const TReader& branches, TSimConfig& config) {
  ReadList(branches, "GasBranch", config.GasBranches, "GasType", &TSimGasBranch::GasType,
           [](const TReader& reader, TSimGasBranch& branch) {
             branch.MaxPressure = 16.0;
             reader.Read("GasType", branch.GasType, 1, 6);
             if (branch.GasType == 0) reader.Problem("GasType", "", "the branch has no valid gas type");
             reader.Read("DAPort", branch.DAPort, 0, kMaxPort);
             reader.Read("MaxPressure", branch.MaxPressure, 0.1, 100.0);
           });
}

void ReadGasValves(const TReader& simulator, TSimConfig& config) {
  for (const TReader& reader : simulator.Children("GasValve")) {
    TSimGasValve valve;
    reader.Read("GasType", valve.GasType, 1, 6);
    if (valve.GasType == 0 && !reader.StandsForAll()) {
      reader.Problem("GasType", "", "the valve has no valid gas type");
      continue;
    }
    TGasValveParams& p = valve.Params = GasValveParams(valve.GasType);
    reader.Read("U0", p.U0, 0.0, 9.5);
    reader.Read("Uk", p.Uk, 0.5, 20.0);
    reader.Read("Psup", p.Psup, 0.0, 100.0);
    reader.Read("Gamma", p.Gamma, 0.2, 5.0);
    reader.Read("M", p.M, 1.0, 100.0);
    reader.Read("Play", p.Play, 0.0, 1.0);
    reader.Read("DeadMs", p.DeadMs, 0, 5000);
    reader.Read("FillMs", p.FillMs, 1.0, 60'000.0);
    reader.Read("BleedMs", p.BleedMs, 1.0, 60'000.0);
    reader.Read("VentMs", p.VentMs, 1.0, 60'000.0);
    reader.Read("Creep", p.Creep, 0.0, 0.5);
    reader.Read("CreepMs", p.CreepMs, 1.0, 60'000.0);
    reader.Read("Noise", p.Noise, 0.0, 10.0);
    reader.Read("Ripple", p.Ripple, 0.0, 10.0);
    reader.Read("RippleMs", p.RippleMs, 0.1, 60'000.0);
    reader.Read("Offset", p.Offset, -10.0, 10.0);
    reader.Read("Range", p.Range, 0.1, 1000.0);
    if (p.Uk - p.U0 < kLeastRiseV)
      reader.Problem("Uk", Format("%g", p.Uk), Format("not %g V above U0 (%g)", kLeastRiseV, p.U0).c_str());
    std::string fault = ValveFaultName(vfNone);
    reader.Read("Fault", fault);
    if (const auto known = ValveFaultByName(fault))
      valve.Fault = *known;
    else
      reader.Problem("Fault", fault, ("not one of " + ValveFaultNames()).c_str());
    if (std::ranges::find(config.GasValves, valve.GasType, &TSimGasValve::GasType) != config.GasValves.end())
      reader.Problem("GasType", Format("%d", valve.GasType), "given twice");
    else
      config.GasValves.push_back(valve);
  }
}

void ReadSlaves(const TReader& slaves, TSimConfig& config) {
  for (const TReader& reader : slaves.Children("Slave")) {
    TSimSlave& slave = config.Slaves.emplace_back();
    reader.Read("Name", slave.Name);
    reader.Read("Identity", slave.Identity, std::uint32_t{0}, std::numeric_limits<std::uint32_t>::max());
    reader.Read("ProductNo", slave.ProductNo, 0, std::numeric_limits<std::int32_t>::max());
    reader.Read("DACount", slave.DACount, 0, 31);
    reader.Read("ADCount", slave.ADCount, 0, 31);
    reader.Read("ExtIO", slave.ExtIO);
  }
}

void ReadSupervisor(const TReader& reader, TSimSupervisorConfig& limits) {
  reader.Read("BusyLimitMs", limits.BusyLimitMs, 1000, kMaxMs);
  reader.Read("EmissionExtraMs", limits.EmissionExtraMs, 0, 60'000);
  reader.Read("LaserOnLimitMs", limits.LaserOnLimitMs, 100, 64'000);
  reader.Read("GasOnLimitMs", limits.GasOnLimitMs, 1000, kMaxMs);
  reader.Read("HeartbeatLimitMs", limits.HeartbeatLimitMs, 200, 60'000);
  reader.Read("StepMs", limits.StepMs, 20, 60'000);
}

void ReadPhysics(const TReader& reader, const TSimAxisConfig& z, TSimPhysics& physics) {
  reader.Read("EmissionDelayMs", physics.EmissionDelayMs, 0, 600'000);
  reader.Read("EmissionJitterMs", physics.EmissionJitterMs, 0, 60'000);
  reader.Read("GasTimeConstantMs", physics.GasTimeConstantMs, 1, 60'000);
  reader.Read("SwitchTimeMs", physics.SwitchTimeMs, 0, 60'000);
  reader.Read("Follower", physics.Follower);
  reader.Read("SecondFollower", physics.SecondFollower);
  if (physics.SecondFollower && !physics.Follower)
    reader.Problem("SecondFollower", "true", "a machine without Follower has no second one");
  reader.Read("FollowingErrorMs", physics.FollowingErrorMs, 0.0, 100.0);
  double plateZ = physics.PlateZ;
  reader.ReadWithin("PlateZ", plateZ, z.SoftLimitNeg, z.SoftLimitPos);
  physics.PlateZ = std::clamp(plateZ, z.SoftLimitNeg, z.SoftLimitPos);
}

// Where the head may travel at all, unless the file narrows it; the origin lies within.
void ReadWork(const TReader& reader, TSimConfig& config) {
  TNcArea& area = config.WorkArea;
  area = {{config.X.SoftLimitNeg, config.Y.SoftLimitNeg}, {config.X.SoftLimitPos, config.Y.SoftLimitPos}};
  const TReader areaReader = reader.Child("WorkArea");
  areaReader.ReadWithin("MinX", area.Min.X, config.X.SoftLimitNeg, config.X.SoftLimitPos);
  areaReader.ReadWithin("MinY", area.Min.Y, config.Y.SoftLimitNeg, config.Y.SoftLimitPos);
  areaReader.ReadWithin("MaxX", area.Max.X, area.Min.X, config.X.SoftLimitPos);
  areaReader.ReadWithin("MaxY", area.Max.Y, area.Min.Y, config.Y.SoftLimitPos);

  const TReader originReader = reader.Child("WorkOrigin");
  bool valid = true;
  originReader.Read("Valid", valid);
  TPoint2 origin{std::clamp(0.0, area.Min.X, area.Max.X), std::clamp(0.0, area.Min.Y, area.Max.Y)};
  originReader.ReadWithin("X", origin.X, area.Min.X, area.Max.X);
  originReader.ReadWithin("Y", origin.Y, area.Min.Y, area.Max.Y);
  config.WorkOrigin = valid ? std::optional(origin) : std::nullopt;
}

// The nozzle changer's and the cleaning's own records judge their values; what is no number counts as missing here too.
TSimSwitch SwitchOf(const TConfigSection& section, const char* name) {
  const TConfigSection in = section.Child(name);
  return {in.GetInt("Port", 0), in.GetInt("Level", 0) != 0};
}

std::vector<TSimSlot> SlotsOf(const TConfigSection& grid) {
  std::vector<TSimSlot> slots;
  const std::int32_t rows = grid.GetInt("RowCount", 0);
  const std::int32_t cols = grid.GetInt("ColCount", 0);
  std::int32_t place = 0;  // of an item that names none
  for (const TConfigSection& item : grid.Children("PosItem")) {
    TSimSlot slot;
    slot.Row = item.GetInt("Row", cols > 0 ? place / cols : 0);
    slot.Col = item.GetInt("Col", cols > 0 ? place % cols : 0);
    ++place;
    slot.X = item.GetFloat("X", 0.0);
    slot.Y = item.GetFloat("Y", 0.0);
    slot.Z = item.GetFloat("Z", 0.0);
    slot.UninstZ = item.GetBool("UseDiffZ", false) ? item.GetFloat("UninstZ", 0.0) : slot.Z;
    slot.Ready = SwitchOf(item, "InReady");
    const bool inside = slot.Row >= 0 && slot.Row < rows && slot.Col >= 0 && slot.Col < cols;
    if (inside) slots.push_back(slot);
  }
  return slots;
}

// Every nozzle lies in its slot but the one that the head wears.
void ReadRack(const TConfigSection& section, const TReader& simulator, TSimRackConfig& rack) {
  rack.OutCapOpen = section.GetInt("OutCapOpen", 0);
  rack.OutCapClose = section.GetInt("OutCapClose", 0);
  rack.OutStageUp = section.GetInt("OutStageUp", 0);
  rack.OutStageDown = section.GetInt("OutStageDown", 0);
  rack.InCapOpen = SwitchOf(section, "InCapOpenOK");
  rack.InCapClose = SwitchOf(section, "InCapCloseOK");
  rack.InStageUp = SwitchOf(section, "InStageUpOK");
  rack.InStageDown = SwitchOf(section, "InStageDownOK");
  rack.MotorAxis = section.GetInt("MotorAxis", 0);
  rack.MotorDir = section.GetBool("MotorDir", false);
  rack.Slots = SlotsOf(section.Child("NozzlePosItems"));
  rack.HeadNozzle = section.GetInt("UninstallID", 0);
  simulator.Read("HeadNozzle", rack.HeadNozzle, 0, std::numeric_limits<std::int32_t>::max());
  simulator.Read("TravelMs", rack.TravelMs, 1, 60'000);
  simulator.Read("ThreadTurns", rack.ThreadTurns, 0.1, 100.0);
  for (const TConfigSection& item : section.Child("NozzleItems").Children("NozzleItem")) {
    const std::int32_t id = item.GetInt("ID", 0);
    const auto slot = std::ranges::find_if(rack.Slots, [&](const TSimSlot& s) {
      return s.Row == item.GetInt("PosRow", 0) && s.Col == item.GetInt("PosCol", 0);
    });
    if (slot != rack.Slots.end() && id != rack.HeadNozzle) slot->Nozzle = id;
  }
}

void ReadBrushes(const TConfigSection& section, std::vector<TSimBrushPlace>& brushes) {
  constexpr double kEdge = 5.0;      // beyond the curve that cleans, mm
  constexpr double kBristles = 1.0;  // above the height to clean at, mm
  const double half = std::max(section.GetFloat("CleanCurveLength", 0.0), section.GetFloat("CleanCurveWidth", 0.0)) / 2;
  const auto add = [&](const char* x, const char* y, const char* z) {
    brushes.push_back(
        {section.GetFloat(x, 0.0), section.GetFloat(y, 0.0), half + kEdge, section.GetFloat(z, 0.0) - kBristles});
  };
  if (!section.GetBool("Initialized", false)) return;
  add("CleanRefPtX", "CleanRefPtY", "CleanZPos");
  if (section.GetBool("UseDoubleBrushes", false)) add("CleanRefPtX2", "CleanRefPtY2", "CleanZPos2");
}

// The height for travelling lies above the plate, or nothing is safe about it.
void CheckSafeZ(const TReader& axes, TSimConfig& config) {
  config.SafeZ = std::clamp(config.SafeZ, config.Z.SoftLimitNeg, config.Z.SoftLimitPos);
  if (config.SafeZ >= config.Physics.PlateZ && config.SafeZ > config.Z.SoftLimitNeg)
    axes.Problem("Axis/SafeZ", Format("%g", config.SafeZ),
                 Format("not above the plate (PlateZ %g)", config.Physics.PlateZ).c_str());
}

TSimConfig ReadConfig(const TReader& root) {
  TSimConfig sim;
  root.Read("DHMode", sim.DHMode, 0, 2);
  root.Child("Laser").Read("EmissionOnDelay", sim.EmissionOnDelay, 0, 600'000);
  root.Child("Laser").Read("MaxPower", sim.MaxPower, 1.0, 1e6);
  ReadAxes(root.Child("Axes"), sim);
  ReadGas(root.Child("GasBranches"), sim);
  ReadPorts(root.Child("Ports"), sim);
  ReadSlaves(root.Child("Slaves"), sim);
  root.Child("SwitchTable").Read("DockedTable", sim.DockedTable, 0, 2);
  ReadSupervisor(root.Child("Supervisor"), sim.Supervisor);
  ReadPhysics(root.Child("Simulator"), sim.Z, sim.Physics);
  sim.Followers = sim.Physics.SecondFollower ? 2 : 1;
  ReadWork(root.Child("Simulator"), sim);
  CheckSafeZ(root.Child("Axes"), sim);
  ReadRack(root.Child("NozzleChange").Section(), root.Child("Simulator").Child("Rack"), sim.Rack);
  ReadBrushes(root.Child("AutoCleanHead").Section(), sim.Brushes);
  ReadGasValves(root.Child("Simulator"), sim);
  return sim;
}

}  // namespace

TSimGasValve TSimConfig::GasValve(std::int32_t gasType) const {
  const auto it = std::ranges::find(GasValves, gasType, &TSimGasValve::GasType);
  return it == GasValves.end() ? TSimGasValve{gasType, GasValveParams(gasType), vfNone} : *it;
}

TSimConfig TSimConfig::FromConfig(const TMachineConfig& config, std::vector<std::string>& problems) {
  return ReadConfig({config.Root(), problems, nullptr});
}

std::vector<TSimProperty> TSimConfig::Properties() {
  std::vector<TSimProperty> asked;
  std::vector<std::string> none;  // of the file that is not there
  ReadConfig({TConfigSection(), none, &asked});
  return asked;
}

}  // namespace ixocamglue
