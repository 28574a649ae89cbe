#include "machines/simulated/Faults.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue {
namespace {

constexpr double kNoisy = 0.02;        // pF
constexpr double kRipple = 0.03;       // pF
constexpr double kLowSupply = 0.5;     // bar
constexpr double kFullSupply = 100.0;  // bar

template <class Act>
void OnFollowers(TSimMachine& machine, Act act) {
  act(machine.Follower());
  if (TSimFollower* const second = machine.SecondFollower()) act(*second);
}

template <TValveFault Fault>
void OnValves(TSimMachine& machine) {
  for (std::int32_t gas = 1; gas <= 6; ++gas) (void)machine.GasDevice().SetFault(gas, Fault);  // those that are fitted
}

struct TSimFault {
  TMachineFault Fault;
  void (*Apply)(TSimMachine&);
};

constexpr TSimFault kFaults[] = {
    {{"follower.no-plate", TrMark("no plate under the nozzle: nothing to follow")},
     [](TSimMachine& m) { OnFollowers(m, [](TSimFollower& f) { f.RemovePlate(); }); }},
    {{"follower.noisy", TrMark("the height sensor's signal is noisy: restless following")},
     [](TSimMachine& m) { OnFollowers(m, [](TSimFollower& f) { f.SetNoise(kNoisy); }); }},
    {{"follower.not-smooth", TrMark("dirt on the nozzle makes the capacitance curve wavy")},
     [](TSimMachine& m) { OnFollowers(m, [](TSimFollower& f) { f.SetRipple(kRipple); }); }},
    {{"follower.calibration-stuck", TrMark("a height calibration reaches the plate and never ends")},
     [](TSimMachine& m) { OnFollowers(m, [](TSimFollower& f) { f.SetCalibrationStuck(true); }); }},
    {{"rack.cap-stuck", TrMark("the nozzle rack's cap stays where it is")},
     [](TSimMachine& m) { m.Rack().SetCapStuck(true); }},
    {{"rack.stage-stuck", TrMark("the nozzle rack's stage stays where it is")},
     [](TSimMachine& m) { m.Rack().SetStageStuck(true); }},
    {{"rack.jammed", TrMark("nozzles can neither be unscrewed nor screwed on")},
     [](TSimMachine& m) { m.Rack().SetJammed(true); }},
    {{"rack.slot-inputs-stuck", TrMark("the slots' inputs keep their level, whatever lies in them")},
     [](TSimMachine& m) { m.Rack().SetSlotInputsStuck(true); }},
    {{"brush.missing", TrMark("there is no brush: cleaning is no use of it")},
     [](TSimMachine& m) { m.Brush().Remove(); }},
    {{"table.moving",
      TrMark(
          "a pallet exchange is under way and never ends: no pallet is docked, and an alarm forbids laser and motion")},
     [](TSimMachine& m) { m.Table().SetJammed(true); }},
    {{"axes.limit", TrMark("the limit switch X+ is pressed: X and Y do not move")},
     [](TSimMachine& m) { m.Motion().SetLimitPressed(true); }},
    {{"axes.no-origin", TrMark("no valid work origin")},
     [](TSimMachine& m) { m.Motion().SetWorkOrigin(std::nullopt); }},
    {{"gas.low-supply", TrMark("the gas supply gives 0.5 bar")},
     [](TSimMachine& m) { m.GasDevice().SetSupply(kLowSupply); }},
    {{"gas.weak-supply", TrMark("the gas supply gives three tenths of its pressure")}, OnValves<vfLowSupply>},
    {{"gas.no-supply", TrMark("no gas comes")},
     [](TSimMachine& m) {
       OnValves<vfNoSupply>(m);
       m.GasDevice().SetSupply(0.0);  // also where no valve is simulated
     }},
    {{"gas.stuck", TrMark("the gas valves stay where they are")}, OnValves<vfStuck>},
    {{"gas.dead-sensor", TrMark("the pressure sensors read 0")}, OnValves<vfDeadSensor>},
    {{"gas.non-finite", TrMark("every other reading of the pressure sensors is no number")}, OnValves<vfNonFinite>},
    {{"gas.slow-line", TrMark("the gas lines fill and bleed twenty times as slowly")}, OnValves<vfSlowLine>},
    {{"gas.slow-update", TrMark("a reading of the pressure sensors takes 60 ms")}, OnValves<vfSlowUpdate>},
    {{"gas.negative-offset", TrMark("the pressure sensors read half a bar too little")}, OnValves<vfNegativeOffset>},
    {{"gas.wide-dead-band", TrMark("the gas valves open 3 V later")}, OnValves<vfWideDeadBand>},
    {{"laser.no-emission", TrMark("emission never comes")},
     [](TSimMachine& m) { m.LaserDevice().SetEmissionScript(TEmissionScript::Never()); }},
    {{"laser.emission-drops", TrMark("the source drops emission 30 ms after the beam was lit")},
     [](TSimMachine& m) { m.LaserDevice().PlanFault(TLitFault::EmissionDrops); }},
    {{"laser.interlock-opens", TrMark("the interlock opens 30 ms after the beam was lit: an alarm forbids the laser")},
     [](TSimMachine& m) { m.LaserDevice().PlanFault(TLitFault::InterlockOpens); }},
    {{"laser.off-hangs", TrMark("the first switching off of a lit beam takes 300 ms")},
     [](TSimMachine& m) { m.LaserDevice().PlanFault(TLitFault::OffHangs); }},
};

}  // namespace

std::span<const TMachineFault> SimFaults() {
  static const std::vector<TMachineFault> faults = [] {
    std::vector<TMachineFault> all;
    for (const TSimFault& row : kFaults) all.push_back(row.Fault);
    return all;
  }();
  return faults;
}

bool InjectSimFault(TSimMachine& machine, std::string_view name) {
  const auto* const row = std::ranges::find(kFaults, name, [](const TSimFault& f) { return f.Fault.Name; });
  if (row == std::end(kFaults)) return false;
  row->Apply(machine);
  return true;
}

bool SetSimTrouble(TSimMachine& machine, std::string_view device, bool fails) {
  if (device == "axis") {
    const TPoint2 at = machine.Snapshot().Pos;
    machine.Motion().MoveXY({fails ? machine.Config().X.SoftLimitPos + 100.0 : at.X, at.Y}, 0.0);
  } else if (device == "gas") {
    machine.GasDevice().SetSupply(fails ? kLowSupply : kFullSupply);
    machine.GasDevice().SetPressure(4.0);
    machine.GasDevice().SwitchOn();
  } else if (device == "emission") {
    machine.LaserDevice().EmissionOn();
    machine.LaserDevice().SetEmissionScript({TEmissionScript::TMode::emPolls, 0});
    (void)machine.LaserDevice().GetEmission();
    if (fails) machine.LaserDevice().LoseEmission();
  } else if (device == "device") {
    if (fails) machine.Gate().PlanSet({.Call = machine.Gate().Calls() + 1, .Fault = gfThrow});
    try {
      (void)machine.GasDevice().GetGas();
    } catch (const EDeviceFault&) {  // what was asked for
    }
  } else {
    return false;
  }
  return true;
}

}  // namespace ixocamglue
