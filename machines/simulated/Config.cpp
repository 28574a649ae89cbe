#include "machines/simulated/Config.h"

#include <algorithm>
#include <limits>

#include "ixocamglue/config/Ucleanconfig.h"
#include "ixocamglue/config/Unozzleconfig.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

void TSimGasValve::Publish(TPublisher& p) {
  constexpr TGasValveParams def;
  p.Field("GasType", GasType, 0, kOptional)
      .Within(1, 6)
      .Key(TrMark("the valve has no valid gas type"))
      .Text(TrMark("Gas whose simulated valve this is, as in the gas branches"));
  p.Field("U0", Params.U0, def.U0, kOptional)
      .Unit(uVolt)
      .Within(0.0, 9.5)
      .Text(TrMark("Voltage up to which the simulated valve stays shut"));
  p.Field("Uk", Params.Uk, def.Uk, kOptional)
      .Unit(uVolt)
      .Within(0.5, 20.0)
      .Text(TrMark("Voltage at which the simulated valve reaches the supply pressure"));
  p.Field("Psup", Params.Psup, def.Psup, kOptional)
      .Unit(uBar)
      .Within(0.0, 100.0)
      .Text(TrMark("Supply pressure of the simulated branch"));
  p.Field("Gamma", Params.Gamma, def.Gamma, kOptional)
      .Within(0.2, 5.0)
      .Text(TrMark("Bend of the simulated valve's rise; 1: straight"));
  p.Field("M", Params.M, def.M, kOptional)
      .Within(1.0, 100.0)
      .Text(TrMark("Sharpness of the knee below the supply pressure"));
  p.Field("Play", Params.Play, def.Play, kOptional)
      .Unit(uVolt)
      .Within(0.0, 1.0)
      .Text(TrMark("Half the width of the simulated spool's play"));
  p.Field("DeadMs", Params.DeadMs, def.DeadMs, kOptional)
      .Unit(uMs)
      .Within(0, 5000)
      .Text(TrMark("Time before the simulated valve answers a voltage"));
  p.Field("FillMs", Params.FillMs, def.FillMs, kOptional)
      .Unit(uMs)
      .Within(1.0, 60'000.0)
      .Text(TrMark("Time constant with which the simulated line fills"));
  p.Field("BleedMs", Params.BleedMs, def.BleedMs, kOptional)
      .Unit(uMs)
      .Within(1.0, 60'000.0)
      .Text(TrMark("Time constant with which the simulated line loses pressure through the valve"));
  p.Field("VentMs", Params.VentMs, def.VentMs, kOptional)
      .Unit(uMs)
      .Within(1.0, 60'000.0)
      .Text(TrMark("Time constant with which the simulated line empties when gas is off"));
  p.Field("Creep", Params.Creep, def.Creep, kOptional)
      .Within(0.0, 0.5)
      .Text(TrMark("Share of the simulated pressure that comes late"));
  p.Field("CreepMs", Params.CreepMs, def.CreepMs, kOptional)
      .Unit(uMs)
      .Within(1.0, 60'000.0)
      .Text(TrMark("Time constant of the share that comes late"));
  p.Field("Noise", Params.Noise, def.Noise, kOptional)
      .Unit(uBar)
      .Within(0.0, 10.0)
      .Text(TrMark("Deviation of one reading of the simulated sensor"));
  p.Field("Ripple", Params.Ripple, def.Ripple, kOptional)
      .Unit(uBar)
      .Within(0.0, 10.0)
      .Text(TrMark("Deviation that neighbouring readings of the simulated sensor share"));
  p.Field("RippleMs", Params.RippleMs, def.RippleMs, kOptional)
      .Unit(uMs)
      .Within(0.1, 60'000.0)
      .Text(TrMark("Time over which readings of the simulated sensor share a deviation"));
  p.Field("Offset", Params.Offset, def.Offset, kOptional)
      .Unit(uBar)
      .Within(-10.0, 10.0)
      .Text(TrMark("What the simulated sensor reads without pressure"));
  p.Field("Range", Params.Range, def.Range, kOptional)
      .Unit(uBar)
      .Within(0.1, 1000.0)
      .Text(TrMark("Highest pressure that the simulated sensor can read"));
  p.Field("Fault", FaultName, "none", kOptional)
      .Text(TrMark("How the simulated valve or its sensor fails; none: it works"));
}

void TSimPhysics::Publish(TPublisher& p) {
  p.Field("EmissionDelayMs", EmissionDelayMs, 800, kOptional)
      .Unit(uMs)
      .Within(0, 600'000)
      .Text(TrMark("How long the simulated laser takes to confirm its emission"));
  p.Field("EmissionJitterMs", EmissionJitterMs, 200, kOptional)
      .Unit(uMs)
      .Within(0, 60'000)
      .Text(TrMark("How much longer that may take, by the seed"));
  p.Field("GasTimeConstantMs", GasTimeConstantMs, 150, kOptional)
      .Unit(uMs)
      .Within(1, 60'000)
      .Text(TrMark("Time constant of the gas pressure where no valve is simulated"));
  p.Field("SwitchTimeMs", SwitchTimeMs, 60, kOptional)
      .Unit(uMs)
      .Within(0, 60'000)
      .Text(TrMark("How long a simulated gas valve takes to open or shut"));
  p.Field("Follower", Follower, true, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether the simulated head has a height follower; without one Z belongs to the motion driver"));
  p.Field("SecondFollower", SecondFollower, false, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether the simulated machine has a second head with a follower"));
  p.Field("FollowingErrorMs", FollowingErrorMs, 2.0, kOptional)
      .Unit(uMs)
      .Within(0.0, 100.0)
      .Text(TrMark("By how much time a simulated axis lags behind its set position"));
  p.Field("PlateZ", PlateZ, 80.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisZ)
      .Text(TrMark("Z at which the nozzle would touch the simulated plate"));
}

void TSimWorkArea::Publish(TPublisher& p) {
  p.Field("MinX", Area.Min.X, 0.0, kOptional).Unit(uMm).Within(bdAxisX).Text(TrMark("Lowest X that work may lead to"));
  p.Field("MinY", Area.Min.Y, 0.0, kOptional).Unit(uMm).Within(bdAxisY).Text(TrMark("Lowest Y that work may lead to"));
  p.Field("MaxX", Area.Max.X, 3000.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisX)
      .Text(TrMark("Highest X that work may lead to"));
  p.Field("MaxY", Area.Max.Y, 1500.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisY)
      .Text(TrMark("Highest Y that work may lead to"));
}

void TSimWorkOrigin::Publish(TPublisher& p) {
  p.Field("Valid", Valid, true, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether there is a work origin; moves in work coordinates are refused without"));
  p.Field("X", Origin.X, 0.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisX)
      .Text(TrMark("X of the work origin in machine coordinates"));
  p.Field("Y", Origin.Y, 0.0, kOptional)
      .Unit(uMm)
      .Within(bdAxisY)
      .Text(TrMark("Y of the work origin in machine coordinates"));
}

void TSimRackParams::Publish(TPublisher& p) {
  p.Field("HeadNozzle", HeadNozzle, 0, kOptional)
      .Within(0, std::numeric_limits<std::int32_t>::max())
      .Text(TrMark("Nozzle that the simulated head wears when the machine starts; 0: none"));
  p.Field("TravelMs", TravelMs, 400, kOptional)
      .Unit(uMs)
      .Within(1, 60'000)
      .Text(TrMark("How long the simulated cap and stage take from end to end"));
  p.Field("ThreadTurns", ThreadTurns, 2.0, kOptional)
      .Unit(uTurns)
      .Within(0.1, 100.0)
      .Text(TrMark("How far a simulated nozzle must be turned to come off"));
}

void TSimulatorRecord::Publish(TPublisher& p) {
  Physics.Publish(p);
  p.Child("WorkArea", WorkArea);
  p.Child("WorkOrigin", WorkOrigin);
  p.Child("Rack", Rack);
  GasValves.Publish(p);
}

namespace {

constexpr double kLeastRiseV = 0.1;  // from U0 to Uk

void ReadPhysics(const TConfigSection& section, TSimConfig& sim, std::vector<TProblem>& problems) {
  TSimPhysics& physics = sim.Physics;
  sim.Take(section, physics, problems);
  if (physics.SecondFollower && !physics.Follower)
    problems.push_back(
        ProblemAt(section, "SecondFollower", "true", Tr("a machine without Follower has no second one")));
  sim.Followers = physics.SecondFollower ? 2 : 1;
  physics.PlateZ = std::clamp(physics.PlateZ, sim.Z.SoftLimitNeg, sim.Z.SoftLimitPos);
}

// Where the head may travel at all, unless the file narrows it; the origin lies within.
void ReadWork(const TConfigSection& section, TSimConfig& sim, std::vector<TProblem>& problems) {
  TSimWorkArea stated;
  TNcArea& area = stated.Area;
  area = {{sim.X.SoftLimitNeg, sim.Y.SoftLimitNeg}, {sim.X.SoftLimitPos, sim.Y.SoftLimitPos}};
  const TConfigSection areaSection = section.Child("WorkArea");
  sim.Take(areaSection, stated, problems);
  const auto order = [&](const char* name, double least, double& value, double most) {
    if (value >= least) return;
    problems.push_back(
        ProblemAt(areaSection, name, NumberText(value), Format(Tr("outside %.10g to %.10g"), least, most)));
    value = most;
  };
  order("MaxX", area.Min.X, area.Max.X, sim.X.SoftLimitPos);
  order("MaxY", area.Min.Y, area.Max.Y, sim.Y.SoftLimitPos);
  sim.WorkArea = area;

  TMachineBounds inside = sim;
  inside.X.SoftLimitNeg = area.Min.X, inside.X.SoftLimitPos = area.Max.X;
  inside.Y.SoftLimitNeg = area.Min.Y, inside.Y.SoftLimitPos = area.Max.Y;
  TSimWorkOrigin origin;
  origin.Origin = {std::clamp(0.0, area.Min.X, area.Max.X), std::clamp(0.0, area.Min.Y, area.Max.Y)};
  inside.Take(section.Child("WorkOrigin"), origin, problems);
  sim.WorkOrigin = origin.Valid ? std::optional(origin.Origin) : std::nullopt;
}

// The height for travelling lies above the plate, or nothing is safe about it.
void CheckSafeZ(const TConfigSection& axes, const TSimConfig& sim, std::vector<TProblem>& problems) {
  if (sim.SafeZ >= sim.Physics.PlateZ && sim.SafeZ > sim.Z.SoftLimitNeg)
    problems.push_back(ProblemAt(axes, "Axis/SafeZ", Format("%g", sim.SafeZ),
                                 Format(Tr("not above the plate (PlateZ %g)"), sim.Physics.PlateZ)));
}

TSimSwitch SwitchOf(const TInportParamsConfig& in) { return {in.Port, in.Level != 0}; }

// Every nozzle lies in its slot but the one that the head wears.
void ReadRack(const TConfigSection& section, const TConfigSection& own, TSimConfig& sim,
              std::vector<TProblem>& problems) {
  TNozzleChangeConfig changer;
  section.LoadOver(changer);
  TSimRackConfig& rack = sim.Rack;
  rack.OutCapOpen = changer.OutCapOpen;
  rack.OutCapClose = changer.OutCapClose;
  rack.OutStageUp = changer.OutStageUp;
  rack.OutStageDown = changer.OutStageDown;
  rack.InCapOpen = SwitchOf(changer.InCapOpenOK);
  rack.InCapClose = SwitchOf(changer.InCapCloseOK);
  rack.InStageUp = SwitchOf(changer.InStageUpOK);
  rack.InStageDown = SwitchOf(changer.InStageDownOK);
  rack.MotorAxis = changer.MotorAxis;
  rack.MotorDir = changer.MotorDir;
  rack.HeadNozzle = changer.UninstallID;
  sim.Take<TSimRackParams>(own, rack, problems);
  TNozzlePosItems& grid = changer.NozzlePosItems;
  for (std::int32_t row = 0; row < grid.GetRowCount(); ++row)
    for (std::int32_t col = 0; col < grid.GetColCount(); ++col) {
      const TNozzlePosItem& place = *grid.GetPos(row, col);
      const auto mm = [](long double value) { return static_cast<double>(value); };
      const double uninstZ = mm(place.UseDiffZ ? place.UninstZ : place.Z);
      if (IsConfigured(TPoint3{mm(place.X), mm(place.Y), mm(place.Z)}))
        rack.Slots.push_back({row, col, mm(place.X), mm(place.Y), mm(place.Z), uninstZ, SwitchOf(place.InReady), 0});
    }
  for (std::int32_t i = 0; i < changer.NozzleItems.GetCount(); ++i) {
    const TNozzleItem& nozzle = *changer.NozzleItems.GetItem(i);
    const auto slot = std::ranges::find_if(
        rack.Slots, [&](const TSimSlot& s) { return s.Row == nozzle.PosRow && s.Col == nozzle.PosCol; });
    if (slot != rack.Slots.end() && nozzle.ID != rack.HeadNozzle) slot->Nozzle = nozzle.ID;
  }
}

void ReadBrushes(const TConfigSection& section, std::vector<TSimBrushPlace>& brushes) {
  constexpr double kEdge = 5.0;      // beyond the curve that cleans, mm
  constexpr double kBristles = 1.0;  // above the height to clean at, mm
  TAutoCleanConfig clean;
  section.LoadOver(clean);
  const double half = std::max(clean.CleanCurveLength, clean.CleanCurveWidth) / 2 + kEdge;
  const auto add = [&](const TPoint3& at) { brushes.push_back({at.X, at.Y, half, at.Z - kBristles}); };
  if (clean.Initialized) add(clean.GetCleanPos());
  if (clean.Initialized && clean.UseDoubleBrushes) add(clean.GetCleanPos2());
}

void ReadGasValves(const TConfigSection& simulator, TSimConfig& sim, std::vector<TProblem>& problems) {
  TSimGasValves lines;
  CheckRecord(simulator, lines, sim, problems);
  for (const TConfigSection& section : simulator.Children("GasValve")) {
    TSimGasValve valve;
    valve.Params = GasValveParams(ParseNumber<std::int32_t>(section.GetText("GasType", "")).value_or(0));
    section.LoadOver(valve);
    const TGasValveParams& params = valve.Params;
    if (params.Uk - params.U0 < kLeastRiseV)
      problems.push_back(ProblemAt(section, "Uk", Format("%g", params.Uk),
                                   Format(Tr("not %g V above U0 (%g)"), kLeastRiseV, params.U0)));
    const auto fault = ValveFaultByName(valve.FaultName);
    if (!fault)
      problems.push_back(
          ProblemAt(section, "Fault", valve.FaultName, Format(Tr("not one of %s"), ValveFaultNames().c_str())));
    valve.Fault = fault.value_or(vfNone);
    sim.GasValves.push_back(valve);
  }
}

}  // namespace

TSimGasValve TSimConfig::GasValve(std::int32_t gasType) const {
  const auto it = std::ranges::find(GasValves, gasType, &TSimGasValve::GasType);
  if (it != GasValves.end()) return *it;
  TSimGasValve usual;
  usual.GasType = gasType;
  usual.Params = GasValveParams(gasType);
  return usual;
}

TSimConfig TSimConfig::FromRoot(const TConfigSection& root, std::vector<TProblem>& problems) {
  TSimConfig sim;
  sim.Read(root, problems);
  const TConfigSection own = root.Child("Simulator");
  ReadPhysics(own, sim, problems);
  ReadWork(own, sim, problems);
  CheckSafeZ(root.Child("Axes"), sim, problems);
  ReadRack(root.Child("NozzleChange"), own.Child("Rack"), sim, problems);
  ReadBrushes(root.Child("AutoCleanHead"), sim.Brushes);
  ReadGasValves(own, sim, problems);
  return sim;
}

}  // namespace ixocamglue
