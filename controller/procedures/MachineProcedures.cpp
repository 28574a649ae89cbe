// The procedures that move the head, its devices and the rack. Targets lie close together, so that a sweep over all
// their moments stays short; the machine is the example file's.
#include "controller/procedures/GoProcedures.h"
#include "controller/procedures/NozzleChange.h"
#include "controller/procedures/Procedures.h"
#include "machines/simulated/Machine.h"

namespace ixocontroller {
namespace {

constexpr TPoint2 kTarget{40.0, 30.0};
constexpr double kLowZ = 30.0;  // below the safe height
constexpr std::int32_t kOutput = 5;

// A single command, its fields set by `set`.
template <class Step, class Set>
TStepPtr Make(Set set) {
  auto step = MakeStepOf<Step>(nullptr);
  set(*step);
  return step;
}

template <class Step>
TStepPtr MakePlain() {
  return Make<Step>([](Step&) {});
}

template <class Step>
TStepPtr MakeToTarget() {
  return Make<Step>([](Step& step) { step.FTarget = kTarget; });
}

TStepPtr MakeMoveToZ() {
  return Make<TSmtSafeMoveToZ>([](auto& step) {
    step.BecomeMoveToZ();
    step.FTargetZ = kLowZ;
  });
}

TStepPtr MakeXYZ() {
  return Make<TSmtSafeMoveToXYZ>([](auto& step) {
    step.FTarget = kTarget;
    step.FTargetZ = kLowZ;
  });
}

TStepPtr MakeXYZF() {
  return Make<TSmtSafeMoveToXYZF>([](auto& step) {
    step.FTarget = kTarget;
    step.FTargetZ = kLowZ;
    step.FFocus = -2.0;
  });
}

TStepPtr MakeFocus() {
  return Make<TSmtMoveToF>([](auto& step) { step.FFocus = 4.0; });
}

TStepPtr MakeFollow() {
  return Make<TSmtFollow>([](auto& step) { step.FHeight = 1.5; });
}

TStepPtr MakeCurve() {
  return Make<TSmtCleanHeadCurve>([](auto& step) {
    step.FUseConfig = false;
    step.FCentre = kTarget;
    step.FLength = 20.0;
    step.FWidth = 10.0;
    step.FCount = 2;
    step.FSpeed = 400.0;
  });
}

TStepPtr MakeLubricate() {
  return Make<TSmtLubricateCurve>([](auto& step) { step.FRange = TRange2{{10.0, 10.0}, {60.0, 40.0}}; });
}

// The second follower's.
template <class Step>
TStepPtr MakeSecond() {
  return Make<Step>([](auto& step) { step.FFollowerIndex = 1; });
}

template <class Step>
TStepPtr MakeSwitch() {
  return Make<Step>([](auto& step) { step.FPort = kOutput; });
}

template <class Step, std::int32_t Col>
TStepPtr MakeInSlot() {
  return Make<Step>([](auto& step) {
    step.FRow = 0;
    step.FCol = Col;
  });
}

TStepPtr MakeChange() { return MakeNozzleChange(nullptr); }
TStepPtr MakeMaintenance() { return MakeGoMaintenance(nullptr); }
TStepPtr MakeBlanking() { return MakeGoBlanking(nullptr); }

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

constexpr TProcedure Row(const char* name, const char* summary, TStepPtr (*make)(),
                         void (*prepare)(TSimMachine&) = nullptr) {
  TProcedure row{name, summary, make, prepare};
  row.UsesConfig = true;
  return row;
}

constexpr TProcedure Following(TProcedure row) {
  row.LeavesFollowing = true;
  return row;
}

constexpr TProcedure Outputs(TProcedure row, TProcedure::TOutputs outputs) {
  row.Outputs = outputs;
  return row;
}

constexpr TProcedure WithDriverZ(TProcedure row) {
  row.DriverZ = true;
  return row;
}

constexpr TProcedure kProcedures[] = {
    Row("move-xy", "XY to a point (131)", MakeToTarget<TSmtMoveToXY>),
    Row("brush-curve", "strokes over a small rectangle (133)", MakeCurve),
    Row("raise", "Z to the safe height (134)", MakePlain<TSmtSafeMoveToZ>, PrepareLow),
    Row("move-z", "Z to a target (136)", MakeMoveToZ),
    Row("go-xy", "raise, then XY (137)", MakeToTarget<TSmtSafeMoveToXY>, PrepareLow),
    Row("work-xy", "raise, then XY in work coordinates (138)", MakeToTarget<TSmtSafeMoveToWorkXY>, PrepareLow),
    Row("assist-xy", "raise, then XY in machine coordinates (139)", MakeToTarget<TSmtSafeMoveToAssistXY>, PrepareLow),
    Row("calibrate", "calibration of the height sensor (151)", MakePlain<TSmtCapCaliMotion>, PrepareLow),
    Row("auto-calibrate", "calibration at the configured position, and back (152)", MakePlain<TSmtAutoCaliState>),
    Row("simple-calibrate", "calibration, then raise (153)", MakePlain<TSmtSimpleAutoCaliState>, PrepareLow),
    Following(Row("follow", "follow the plate and go on following (154)", MakeFollow)),
    Row("uninstall", "take the nozzle off in its slot (163)", MakeInSlot<TSmtUninstallNozzle, 0>, PrepareOverSlot<0>),
    Row("install", "install a nozzle from its slot (164)", MakeInSlot<TSmtInstallNozzle, 1>, PrepareOverSlot<1>),
    Outputs(Row("output-on", "an output on (172)", MakeSwitch<TSmtOpenOutport>), TProcedure::otStay),
    Row("output-off", "an output off (173)", MakeSwitch<TSmtCloseOutport>),
    Row("go-xyz", "raise, XY, then Z (181)", MakeXYZ, PrepareLow),
    Row("lubricate", "edges and diagonals of a small rectangle (350)", MakeLubricate),
    Row("focus", "the focus axis to a position (421)", MakeFocus),
    Row("go-xyzf", "raise, XY, focus, then Z (422)", MakeXYZF, PrepareLow),
    Row("clean-manual", "cleaning on the brush (513)", MakePlain<TSmtManuCleanState>, PrepareLow),
    Row("clean-auto", "cleaning on the brush, then calibration (514)", MakePlain<TSmtAutoCleanState>, PrepareLow),
    Outputs(Row("change-nozzle", "one nozzle into the rack, another one out of it", MakeChange),
            TProcedure::otStayAfterAbort),
    Row("go-maintenance", "to the maintenance position (422)", MakeMaintenance, PrepareLow),
    Row("go-blanking", "to the blanking position (137)", MakeBlanking, PrepareLow),
};

constexpr TProcedure kVariants[] = {
    Row("second-raise", "the second follower to the safe height (134)", MakeSecond<TSmtSafeMoveToZ>, PrepareLow),
    Following(Row("second-follow", "the second follower follows (154)", MakeSecond<TSmtFollow>)),
    Row("second-calibrate", "calibration of the second follower, then raise (153)", MakeSecond<TSmtSimpleAutoCaliState>,
        PrepareLow),
    WithDriverZ(Row("driver-raise", "the driver's Z to the safe height (134)", MakePlain<TSmtSafeMoveToZ>, PrepareLow)),
    WithDriverZ(Row("driver-xyz", "raise, XY, then the driver's Z (181)", MakeXYZ, PrepareLow)),
    WithDriverZ(Row("driver-clean", "cleaning on the brush (513)", MakePlain<TSmtManuCleanState>, PrepareLow)),
};

}  // namespace

std::span<const TProcedure> MachineProcedures() { return kProcedures; }

std::span<const TProcedure> VariantProcedures() { return kVariants; }

}  // namespace ixocontroller
