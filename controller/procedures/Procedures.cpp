#include "controller/procedures/Procedures.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "controller/procedures/Travel.h"
#include "ixocamglue/motion/Usequence.h"
#include "machines/simulated/Machine.h"

namespace ixocontroller {
namespace {

// Ids of the host's own procedures; the commands of the step factory end at 612.
enum TProcedureId : std::int32_t {
  pidLaserTest = 901,
  pidGasPurge,
  pidGasHold,
  pidCover,
  pidPierce,
  pidPierceInner,
  pidSquare
};

constexpr std::int32_t kCoverOutput = 4;
constexpr std::int32_t kCoverInput = 4;
constexpr std::int32_t kOxygen = 2;

TSequenceItem Delay(std::uint32_t ms) {
  return {612, "delay", [ms](TStateMotion& step) { dynamic_cast<TSmtDelay&>(step).SetDelay(ms); }};
}

TSequenceItem Plain(std::int32_t command, const char* desc) { return {command, desc, nullptr}; }

TSequenceItem GasOn(std::int32_t branch, double bar) {
  return {141, "gas on", [branch, bar](TStateMotion& step) {
            auto& gas = dynamic_cast<TSmtGasOnState&>(step);
            gas.FGasBranch = branch;
            gas.FGasPressure = bar;
          }};
}

template <class Define>
TStepPtr Sequence(TCustomMotionState* ctrl, Define define) {
  auto sequence = MakeStepOf<TSmtSequence>(ctrl);
  define(*sequence);
  return sequence;
}

TStepPtr MakeShortShot() { return MakeShot(60); }

TStepPtr MakeLaserTest() {
  return Sequence(nullptr, [](TSmtSequence& s) {
    s.Define(pidLaserTest, "laser test",
             {Plain(516, "shutter and laser on"), Delay(40), Plain(522, "laser off, shutter stays"), Delay(20),
              Plain(520, "laser on again"), Plain(517, "laser and shutter off")});
  });
}

TStepPtr MakeGasPurge() {
  return Sequence(nullptr, [](TSmtSequence& s) {
    s.Define(pidGasPurge, "gas purge", {GasOn(kOxygen, 3.5), Delay(60), Plain(142, "gas off")});
  });
}

TStepPtr MakeGasHold() {
  return Sequence(nullptr, [](TSmtSequence& s) { s.Define(pidGasHold, "gas hold", {GasOn(1, 2.0), Delay(30)}); });
}

TStepPtr MakeCover() {
  return Sequence(nullptr, [](TSmtSequence& s) {
    s.Define(pidCover, "cover",
             {{176, "open the cover and wait for its switch",
               [](TStateMotion& step) {
                 auto& wait = dynamic_cast<TSmtWaitInport&>(step);
                 wait.FOutport = kCoverOutput;
                 wait.FWaitInport = kCoverInput;
                 wait.FWaitTime = 500;
                 wait.FNeedOutport = true;
                 wait.FInportLogic = true;
               }},
              Delay(20)});
  });
}

// Gas around a beam, the beam in a sequence of its own that is built on entry.
TStepPtr MakePierce() {
  return Sequence(nullptr, [](TSmtSequence& outer) {
    TSequenceItem beam{0, "beam", nullptr, [](TCustomMotionState* ctrl) {
                         return Sequence(ctrl, [](TSmtSequence& inner) {
                           inner.Define(pidPierceInner, "beam",
                                        {Plain(518, "open shutter"), Plain(519, "wait for the shutter"),
                                         Plain(520, "laser on"), Delay(30), Plain(522, "laser off")},
                                        true);
                         });
                       }};
    outer.Define(pidPierce, "pierce",
                 {GasOn(kOxygen, 1.5), std::move(beam), Plain(517, "shutter off"), Plain(142, "gas off")});
  });
}

TSequenceItem Travel(TPoint2 target, double mmPerS) {
  return {0, "travel", nullptr, [target, mmPerS](TCustomMotionState* ctrl) -> TStepPtr {
            auto travel = MakeStepOf<TSmtTravel>(ctrl);
            travel->SetTarget(target, mmPerS);
            return travel;
          }};
}

// A square of 40 mm, cut after the head has travelled there.
TStepPtr MakeSquare() {
  return Sequence(nullptr, [](TSmtSequence& s) {
    s.Define(
        pidSquare, "square",
        {Travel({60, 30}, 800), GasOn(kOxygen, 2.5), Plain(518, "open shutter"), Plain(519, "wait for the shutter"),
         Plain(520, "laser on"), Travel({100, 30}, 200), Travel({100, 70}, 200), Travel({60, 70}, 200),
         Travel({60, 30}, 200), Plain(517, "laser and shutter off"), Plain(142, "gas off"), Travel({0, 0}, 800)});
  });
}

void PrepareCover(TSimMachine& machine) { machine.Ports().FollowOutput(kCoverOutput, kCoverInput, 25); }

constexpr TProcedure kOwn[] = {
    {"shot", "timed laser shot: shutter, laser, delay, off (515)", MakeShortShot, nullptr, true, false},
    {"laser-test", "laser on with its wait for emission (516), off in two steps", MakeLaserTest, nullptr, true, false},
    {"gas-purge", "gas on, delay, gas off", MakeGasPurge, nullptr, false, false},
    {"gas-hold", "gas on and kept on", MakeGasHold, nullptr, false, true},
    {"cover", "an output and the input that answers it (176)", MakeCover, PrepareCover, false, false},
    {"pierce", "gas around a beam that is built late", MakePierce, nullptr, true, false},
    {"square", "travel, gas, and a beam around a square of 40 mm", MakeSquare, nullptr, true, false},
};

}  // namespace

std::span<const TProcedure> Procedures() {
  static const std::vector<TProcedure> all = [] {
    std::vector<TProcedure> rows(std::begin(kOwn), std::end(kOwn));
    std::ranges::copy(MachineProcedures(), std::back_inserter(rows));
    return rows;
  }();
  return all;
}

const TProcedure* FindProcedure(std::string_view name) {
  const auto rows = Procedures();
  const auto row = std::ranges::find(rows, name, [](const TProcedure& p) { return std::string_view(p.Name); });
  return row == rows.end() ? nullptr : &*row;
}

TStepPtr MakeShot(std::uint32_t ms) {
  auto shot = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
  shot->SetDuration(ms);
  return shot;
}

std::shared_ptr<IStateMotion> ShareRoot(TStepPtr step) {
  return std::shared_ptr<IStateMotion>(std::shared_ptr<TStateMotion>(std::move(step)));
}

}  // namespace ixocontroller
