#include "verify/SweepCase.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/support/Texts.h"

namespace ixoverify {
namespace {

constexpr double kLowZ = 30.0;  // below the safe height
constexpr std::int32_t kCoverOutput = 4;
constexpr std::int32_t kCoverInput = 3;
constexpr TNcArea kNarrow{{20.0, 300.0}, {120.0, 1500.0}};  // no Y of it would do as an X

// Whatever Z the machine has.
void PrepareLow(TSimMachine& machine) {
  machine.Follower().PlaceZ(kLowZ);
  machine.Motion().PlaceZ(kLowZ);
  if (TSimFollower* const second = machine.SecondFollower()) second->PlaceZ(kLowZ);
}

// The rack is open and the head over the slot, with a nozzle to take off or without one.
template <std::int32_t Col>
void PrepareOverSlot(TSimMachine& machine) {
  machine.Rack().Open();
  if (Col != 0) machine.Rack().PutNozzleInHead(0);
  for (const TSimSlot& slot : machine.Config().Rack.Slots)
    if (slot.Row == 0 && slot.Col == Col) machine.Motion().Place({slot.X, slot.Y});
}

void PrepareCover(TSimMachine& machine) { machine.Ports().FollowOutput(kCoverOutput, kCoverInput, 25); }

// By the row's name; a row that is not here runs on the example machine as it is.
struct TSetup {
  std::string_view Row;
  void (*Prepare)(TSimMachine&) = nullptr;
  bool PlainMachine = false;
  std::uint64_t LightMs = 0;
  bool LightEnds = false;
};
constexpr TSetup kSetups[] = {
    {"safe-z", PrepareLow},
    {"safe-move", PrepareLow},
    {"move-work", PrepareLow},
    {"move-assist", PrepareLow},
    {"calibrate-sensor", PrepareLow},
    {"calibrate-head", PrepareLow},
    {"uninstall-nozzle", PrepareOverSlot<0>},
    {"install-nozzle", PrepareOverSlot<1>},
    {"wait-input", PrepareCover, true},
    {"safe-move-xyz", PrepareLow},
    {"safe-move-xyzf", PrepareLow},
    {"clean-nozzle-manual", PrepareLow},
    {"clean-nozzle-auto", PrepareLow},
    {"shot", nullptr, true, 60, true},
    {"go-maintenance", PrepareLow},
    {"go-blanking", PrepareLow},
    {"laser-test", nullptr, true},
    {"gas-purge", nullptr, true},
    {"gas-hold", nullptr, true},
    {"cover", PrepareCover, true},
    {"pierce", nullptr, true, 30, true},
    {"square", nullptr, true, 800},
};

// A row on a machine that is fitted otherwise.
struct TVariant {
  const char* Name;
  std::string_view Row;
  enum TKind : std::uint8_t { SecondFollower, DriverZ, NarrowArea } Kind;
};
constexpr TVariant kVariants[] = {
    {"second-safe-z", "safe-z", TVariant::SecondFollower},
    {"second-follow", "follow", TVariant::SecondFollower},
    {"second-calibrate-head", "calibrate-head", TVariant::SecondFollower},
    {"driver-safe-z", "safe-z", TVariant::DriverZ},
    {"driver-safe-move-xyz", "safe-move-xyz", TVariant::DriverZ},
    {"driver-clean-nozzle-manual", "clean-nozzle-manual", TVariant::DriverZ},
    {"narrow-move-work", "move-work", TVariant::NarrowArea},
};

TSweepCase CaseOf(const TProcedure& row) {
  TSweepCase made{row.Name, {&row, row.SampleValues(), {}}};
  const auto setup = std::ranges::find(kSetups, std::string_view(row.Name), &TSetup::Row);
  if (setup == std::end(kSetups)) return made;
  made.Prepare = setup->Prepare;
  made.PlainMachine = setup->PlainMachine;
  made.LightMs = setup->LightMs;
  made.LightEnds = setup->LightEnds;
  return made;
}

}  // namespace

TStepPtr TSweepCase::MakeRoot() const {
  TStepPtr step = Call.Make(nullptr);
  const TProcedureFlags& flags = Flags();
  if (!step->IsAtomic() || !(flags.LightsBeam || flags.NeedsEmission || flags.LeavesGasOn)) return step;
  std::vector<TMotionCall> calls;
  if (flags.NeedsEmission)
    for (const std::int32_t command : {TSmtEmissionOn::Cmd, TSmtWaitForEmissionOn::Cmd})
      calls.push_back({FindProcedure(command), {}, {}});
  calls.push_back(Call);
  return ixocontroller::MakeRoot(Name, calls);
}

std::vector<TSweepCase> SweepCases() {
  std::vector<TSweepCase> cases;
  for (const TProcedure* row : Procedures()) cases.push_back(CaseOf(*row));
  for (const TVariant& variant : kVariants) {
    const TProcedure& row = *FindProcedure(variant.Row);
    TSweepCase& made = cases.emplace_back(CaseOf(row));
    made.Name = variant.Name;
    made.DriverZ = variant.Kind == TVariant::DriverZ;
    for (std::size_t i = 0; i < row.Params.size() && variant.Kind == TVariant::SecondFollower; ++i)
      if (row.Params[i].Bound.Kind == bkFollower) made.Call.Values[i] = 1.0;
    if (variant.Kind == TVariant::NarrowArea) {
      made.WorkArea = kNarrow;
      made.Call.Values = {40.0, 400.0};  // beside the work origin
      made.Call.Values.resize(row.Params.size());
    }
  }
  return cases;
}

TResult<> RunNext(TController& controller) {
  constexpr std::int32_t kProbeId = 999;
  auto probe = MakeStepOf<TSmtSequence>(nullptr);
  probe->Define(kProbeId, "probe", {{612, "delay", nullptr}});
  if (const TResult<> started = controller.Start(ShareRoot(std::move(probe))); !started)
    return TProblem{.What = Tr("not ready for the next procedure: ") + started.Problem().Text()};
  if (!controller.RunToEnd(1000) || !TCustomMotionState::GetExecOK(kProbeId, false))
    return TProblem{.What = Tr("the next procedure did not succeed")};
  return {};
}

}  // namespace ixoverify
