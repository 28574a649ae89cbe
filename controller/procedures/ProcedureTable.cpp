#include <initializer_list>
#include <utility>

#include "controller/procedures/GoProcedures.h"
#include "controller/procedures/NozzleChange.h"
#include "controller/procedures/ParamAccess.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// Numbers of lists that no command stands for; the commands of the step factory end at 612.
enum TListId : std::int32_t { liLaserTest = 901, liGasPurge, liGasHold, liCover, liPierce, liPierceInner, liSquare };

constexpr double kMostMs = 600'000;
constexpr double kFarMm = 100'000;
constexpr double kMostNozzle = 10'000;
constexpr auto kRequired = TMotionParam::Required;
constexpr auto kTogether = TMotionParam::Together;
constexpr TParamAccess kMadeWith{pkWhole};

// --- parameters ---

TMotionParam Param(const char* name, TUnit unit, const char* summary, TBound bound, double byDefault, TParamAccess at,
                   TMotionParam::TNeed need = TMotionParam::Optional) {
  return {name, unit, summary, bound, byDefault, at, need};
}
TMotionParam Switch(const char* name, const char* summary, double byDefault, TParamAccess at) {
  return {name, uNone, summary, bdAny, byDefault, at};
}
TMotionParam X(TParamAccess at) {
  return Param("x", uMm, TrMark("target X, machine coordinates"), bdAxisX, 0.0, at, kRequired);
}
TMotionParam Y(TParamAccess at) {
  return Param("y", uMm, TrMark("target Y, machine coordinates"), bdAxisY, 0.0, at, kRequired);
}
TMotionParam Z(TParamAccess at) {
  return Param("z", uMm, TrMark("target Z, 0 is the top"), bdAxisZ, 0.0, at, kRequired);
}
TMotionParam Focus(TParamAccess at) {
  return Param("focus", uMm, TrMark("target of the focus axis"), bdFocus, 0.0, at, kRequired);
}
TMotionParam XYSpeed(TParamAccess at) {
  return Param("speed", uMmPerS, TrMark("speed of XY, 0 is the machine's default"), bdXYSpeed, 0.0, at);
}
TMotionParam Follower(TParamAccess at) {
  return Param("follower", uNone, TrMark("index of the follower"), bdFollower, 0.0, at);
}
TMotionParam Outport() {
  return Param("port", uNone, TrMark("the output, -1 switches nothing"), bdFittedOutport.Or(-1.0), -1.0,
               kAt<&TSmtSwitchOutport::FPort>, kRequired);
}
TMotionParam CleanReturn() {
  return Switch("return", TrMark("go back afterwards, as the machine file says"), 1.0, kAt<&TSmtCleanState::FReturn>);
}

std::vector<TMotionParam> ZMove(TMotionParam target, double safeByDefault) {
  using TStep = TSmtSafeMoveToZ;
  return {target, Switch("use-safe-z", TrMark("the target is the safe height"), safeByDefault, kAt<&TStep::FUseSafeZ>),
          Switch("only-up", TrMark("a head above the target stays there"), safeByDefault, kAt<&TStep::FOnlyUp>),
          Param("speed", uMmPerS, TrMark("speed of Z, 0 is the machine's default"), bdZSpeed, 0.0, kAt<&TStep::FSpeed>),
          Follower(kAt<&TStep::FFollowerIndex>)};
}

// The fields of a brush of one's own, used with use-config false.
std::vector<TMotionParam> CleanCurve() {
  using TStep = TSmtCleanHeadCurve;
  return {Switch("use-config", TrMark("the brush of the machine file"), 1.0, kAt<&TStep::FUseConfig>),
          Param("centre-x", uMm, TrMark("middle of the brush"), bdAxisX, 0.0, kAtX<&TStep::FCentre>),
          Param("centre-y", uMm, TrMark("middle of the brush"), bdAxisY, 0.0, kAtY<&TStep::FCentre>),
          Param("length", uMm, TrMark("of a stroke"), bdRange(0, 1000), 0.0, kAt<&TStep::FLength>),
          Param("width", uMm, TrMark("across the strokes"), bdRange(0, 1000), 0.0, kAt<&TStep::FWidth>),
          Param("direction", uNone, TrMark("0: strokes along X, else along Y"), bdRange(0, 1), 0.0,
                kAt<&TStep::FDirection>),
          Param("style", uNone, TrMark("1: ellipses, else strokes"), bdRange(0, 100), 0.0, kAt<&TStep::FStyle>),
          Param("count", uNone, TrMark("strokes, or ellipses; needed with use-config false"),
                bdRange(0, TStep::kMaxCount), 0.0, kAt<&TStep::FCount>),
          XYSpeed(kAt<&TStep::FSpeed>)};
}

template <class Step>
std::vector<TMotionParam> MoveXY(std::initializer_list<TMotionParam> more = {}) {
  std::vector<TMotionParam> params{X(kAtX<&Step::FTarget>), Y(kAtY<&Step::FTarget>)};
  params.insert(params.end(), more);
  params.push_back(XYSpeed(kAt<&Step::FSpeed>));
  return params;
}

std::vector<TMotionParam> Slot() {
  using TStep = TSmtNozzleStep;
  return {Param("row", uNone, TrMark("row of the slot, counted from 0 as in the machine file"), bdRange(0, 1000), -1.0,
                kAt<&TStep::FRow>, kRequired),
          Param("column", uNone, TrMark("column of the slot, counted from 0 as in the machine file"), bdRange(0, 1000),
                -1.0, kAt<&TStep::FCol>, kRequired)};
}

std::vector<TMotionParam> WaitInput() {
  using TStep = TSmtWaitInport;
  return {Param("input", uNone, TrMark("the input to wait for, -1 counts as met"), bdFittedInport.Or(-1.0), -1.0,
                kAt<&TStep::FWaitInport>, kRequired),
          Switch("level", TrMark("the level that counts as reached"), 0.0, kAt<&TStep::FInportLogic>),
          Param("time", uMs, TrMark("limit of the wait"), bdRange(1, kMostMs), 1.0, kAt<&TStep::FWaitTime>),
          Param("output", uNone, TrMark("the output that the input answers; -1: none, and nothing is waited for"),
                bdFittedOutport.Or(-1.0), -1.0, kAt<&TStep::FOutport>),
          Switch("switch-output", TrMark("switch the output on for the wait, off at its end"), 0.0,
                 kAt<&TStep::FNeedOutport>),
          Switch("alarm", TrMark("a time-out raises an alarm"), 0.0, kAt<&TStep::FTimeOutAlarm>)};
}

template <TPoint2 TRange2::*Corner, double TPoint2::*Coordinate>
TMotionParam Edge(const char* name, const char* summary, TBound bound) {
  const auto set = [](TStateMotion& step, double value) {
    auto& range = dynamic_cast<TSmtLubricateCurve&>(step).FRange;
    if (!range) range.emplace();
    (*range).*Corner.*Coordinate = value;
  };
  const auto get = [](TStateMotion& step) {
    const auto& range = dynamic_cast<TSmtLubricateCurve&>(step).FRange;
    return range ? (*range).*Corner.*Coordinate : kUnset;
  };
  return Param(name, uMm, summary, bound, kUnset, {pkNumber, set, get}, kTogether);
}

std::vector<TMotionParam> Lubricate() {
  using TStep = TSmtLubricateCurve;
  return {Edge<&TRange2::Min, &TPoint2::X>("min-x", TrMark("left edge (default: the limits, inset by 10 mm)"), bdAxisX),
          Edge<&TRange2::Min, &TPoint2::Y>("min-y", TrMark("lower edge"), bdAxisY),
          Edge<&TRange2::Max, &TPoint2::X>("max-x", TrMark("right edge"), bdAxisX),
          Edge<&TRange2::Max, &TPoint2::Y>("max-y", TrMark("upper edge"), bdAxisY),
          Param("count", uNone, TrMark("rounds"), bdRange(1, TStep::kMaxCount), 1.0, kAt<&TStep::FCount>),
          XYSpeed(kAt<&TStep::FSpeed>)};
}

// Milliseconds that a step takes and gives by name.
template <class Step, auto Set, auto Get>
constexpr TParamAccess kAtMs{
    pkWhole,
    [](TStateMotion& step, double value) { (dynamic_cast<Step&>(step).*Set)(static_cast<std::uint32_t>(value)); },
    [](TStateMotion& step) { return static_cast<double>((dynamic_cast<Step&>(step).*Get)()); }};
constexpr TParamAccess kAtDelay = kAtMs<TSmtDelay, &TSmtDelay::SetDelay, &TSmtDelay::GetDelay>;
constexpr TParamAccess kAtShot =
    kAtMs<TSmtLaserOnTimeState, &TSmtLaserOnTimeState::SetDuration, &TSmtLaserOnTimeState::GetDuration>;

// --- procedures that no command stands for ---

TStepPtr MakeChange(TCustomMotionState* ctrl, const TMotionValues& values) {
  if (values.size() < 2 || !values[0] || !values[1]) return MakeNozzleChange(ctrl);
  return MakeNozzleChange(ctrl, static_cast<std::int32_t>(*values[0]), static_cast<std::int32_t>(*values[1]));
}

struct TItem {
  std::int32_t Command;
  const char* Desc;
  TMotionValues Values = {};
};

TSequenceItem Item(const TItem& item) { return ItemOf({FindProcedure(item.Command), item.Values, Tr(item.Desc)}); }

TStepPtr List(TCustomMotionState* ctrl, std::int32_t id, const char* desc, std::initializer_list<TItem> items,
              bool buildLate = false) {
  std::vector<TSequenceItem> made;
  for (const TItem& item : items) made.push_back(Item(item));
  auto list = MakeStepOf<TSmtSequence>(ctrl);
  list->Define(id, Tr(desc), std::move(made), buildLate);
  return list;
}

TStepPtr MakeLaserTest(TCustomMotionState* ctrl, const TMotionValues&) {
  return List(ctrl, liLaserTest, TrMark("laser test"),
              {{516, TrMark("shutter and laser on")},
               {612, TrMark("delay"), {40}},
               {522, TrMark("laser off, shutter stays")},
               {612, TrMark("delay"), {20}},
               {520, TrMark("laser on again")},
               {517, TrMark("laser and shutter off")}});
}

TStepPtr MakeGasPurge(TCustomMotionState* ctrl, const TMotionValues&) {
  return List(ctrl, liGasPurge, TrMark("gas purge"),
              {{141, TrMark("gas on"), {2, 3.5}}, {612, TrMark("delay"), {60}}, {142, TrMark("gas off")}});
}

TStepPtr MakeGasHold(TCustomMotionState* ctrl, const TMotionValues&) {
  return List(ctrl, liGasHold, TrMark("gas hold"), {{141, TrMark("gas on"), {1, 2}}, {612, TrMark("delay"), {30}}});
}

TStepPtr MakeCover(TCustomMotionState* ctrl, const TMotionValues&) {
  return List(
      ctrl, liCover, TrMark("cover"),
      {{176, TrMark("open the cover and wait for its switch"), {3, 1, 500, 4, 1}}, {612, TrMark("delay"), {20}}});
}

TStepPtr MakeBeam(TCustomMotionState* ctrl) {
  return List(ctrl, liPierceInner, TrMark("beam"),
              {{518, TrMark("open shutter")},
               {519, TrMark("wait for the shutter")},
               {520, TrMark("laser on")},
               {612, TrMark("delay"), {30}},
               {522, TrMark("laser off")}},
              true);
}

// Gas around a beam, the beam in a sequence of its own that is built on entry.
TStepPtr MakePierce(TCustomMotionState* ctrl, const TMotionValues&) {
  auto outer = MakeStepOf<TSmtSequence>(ctrl);
  outer->Define(liPierce, Tr("pierce"),
                {Item({141, TrMark("gas on"), {2, 1.5}}),
                 {0, Tr("beam"), nullptr, &MakeBeam},
                 Item({517, TrMark("shutter off")}),
                 Item({142, TrMark("gas off")})});
  return outer;
}

// A square of 40 mm, cut after the head has travelled there.
TStepPtr MakeSquare(TCustomMotionState* ctrl, const TMotionValues&) {
  return List(ctrl, liSquare, TrMark("square"),
              {{131, TrMark("travel"), {60, 30, 800}},
               {141, TrMark("gas on"), {2, 2.5}},
               {518, TrMark("open shutter")},
               {519, TrMark("wait for the shutter")},
               {520, TrMark("laser on")},
               {131, TrMark("travel"), {100, 30, 200}},
               {131, TrMark("travel"), {100, 70, 200}},
               {131, TrMark("travel"), {60, 70, 200}},
               {131, TrMark("travel"), {60, 30, 200}},
               {517, TrMark("laser and shutter off")},
               {142, TrMark("gas off")},
               {131, TrMark("travel"), {0, 0, 800}}});
}

TProcedure Row(const char* name, std::int32_t command, const char* summary, TProcedureFlags flags = {},
               std::vector<TMotionParam> params = {}, TMotionValues sample = {},
               std::vector<std::string_view> was = {}) {
  return {name, command, summary, flags, std::move(params), std::move(sample), nullptr, std::move(was)};
}

using TMake = decltype(TProcedure::Make);
TProcedure Made(TMake make, TProcedure row) {
  row.Make = make;
  return row;
}

}  // namespace

const std::vector<TProcedure>& ProcedureTable() {
  constexpr TProcedureFlags kXY{.MovesXY = true};
  constexpr TProcedureFlags kZ{.MovesZ = true};
  constexpr TProcedureFlags kXYZ{.MovesXY = true, .MovesZ = true};
  constexpr TProcedureFlags kTravel{.MovesXY = true, .MovesZ = true, .Reentry = true};
  constexpr TProcedureFlags kTravelFar{.MovesXY = true, .MovesZ = true, .MovesFocus = true, .Reentry = true};
  constexpr TProcedureFlags kRack{.MovesXY = true, .MovesZ = true, .Once = true};
  constexpr TProcedureFlags kLaser{.LightsBeam = true};
  static const std::vector<TProcedure> rows{
      Row("move-xy", 131, TrMark("move XY, at the height where the head stands"), kXY, MoveXY<TSmtMoveToXY>(),
          {40, 30}),
      Row("clean-curve", 133, TrMark("move over the brush, at the height where the head stands"), kXY, CleanCurve(),
          {0, 40, 30, 20, 10, {}, {}, 2, 400}, {"brush-curve"}),
      Row("safe-z", 134, TrMark("raise the head to the safe height"), kZ,
          ZMove(Param("z", uMm, TrMark("target Z, used with use-safe-z false"), bdAxisZ, 0.0,
                      kAt<&TSmtSafeMoveToZ::FTargetZ>),
                1.0),
          {}, {"raise"}),
      Row("move-z", 136, TrMark("move Z, up or down"), kZ, ZMove(Z(kAt<&TSmtSafeMoveToZ::FTargetZ>), 0.0), {30}),
      Row("safe-move", 137, TrMark("raise the head (134), then move XY (131)"), kTravel, MoveXY<TSmtSafeMoveToXY>(),
          {40, 30}, {"go-xy"}),
      // The origin decides what the machine's limits are in work coordinates; the step checks them.
      Row("move-work", 138, TrMark("raise the head, then to a point in work coordinates"), kXYZ,
          {Param("x", uMm, TrMark("target X, work coordinates"), bdRange(-kFarMm, kFarMm), 0.0,
                 kAtX<&TSmtRaisedMove::FTarget>, kRequired),
           Param("y", uMm, TrMark("target Y, work coordinates"), bdRange(-kFarMm, kFarMm), 0.0,
                 kAtY<&TSmtRaisedMove::FTarget>, kRequired),
           XYSpeed(kAt<&TSmtRaisedMove::FSpeed>)},
          {40, 30}, {"work-xy"}),
      Row("move-assist", 139, TrMark("raise the head, then to a point in machine coordinates; not with the laser on"),
          kTravel, MoveXY<TSmtRaisedMove>(), {40, 30}, {"assist-xy"}),
      Row("gas-on", 141, TrMark("gas on; it stays on"), {.LeavesGasOn = true},
          {Param("branch", uNone, TrMark("gas branch, by gas type"), bdFittedBranch, 0.0,
                 kAt<&TSmtGasOnState::FGasBranch>, kRequired),
           Param("pressure", uBar, TrMark("pressure to set"), bdPressureOf("branch"), 0.0,
                 kAt<&TSmtGasOnState::FGasPressure>, kRequired)},
          {1, 2}, {"gas"}),
      Row("gas-off", 142, TrMark("gas off"), {}, {}, {}, {"gas"}),
      Row("calibrate-sensor", 151, TrMark("calibrate the height sensor over the plate under the nozzle"), kZ,
          {Follower(kAt<&TSmtCapCaliMotion::FFollowerIndex>)}, {}, {"calibrate"}),
      Row("auto-calibrate", 152, TrMark("calibrate at the configured position"), kXYZ,
          {Switch("return", TrMark("go back to where it started"), 1.0, kAt<&TSmtAutoCaliState::FReturn>)}),
      Row("calibrate-head", 153, TrMark("calibrate where the head stands (151), then raise it (134)"), kZ,
          {Follower(kAt<&TSmtSimpleAutoCaliState::FFollowerIndex>)}, {}, {"simple-calibrate"}),
      Row("follow", 154, TrMark("follow the plate at a height; the head goes on following"),
          {.MovesZ = true, .LeavesFollowing = true},
          {Param("height", uMm, TrMark("distance of the nozzle to the plate"), bdRange(0.01, 50), 1.0,
                 kAt<&TSmtFollow::FHeight>),
           Follower(kAt<&TSmtFollow::FFollowerIndex>)},
          {1.5}),
      Row("uninstall-nozzle", 163, TrMark("leave the head's nozzle in a slot of the rack; the head stands over it"),
          kRack, Slot(), {0, 0}, {"uninstall"}),
      Row("install-nozzle", 164, TrMark("take a nozzle from a slot of the rack; the head stands over it"), kRack,
          Slot(), {0, 1}, {"install"}),
      Row("output-on", 172, TrMark("switch an output on"), {.Outputs = TProcedureFlags::otStay}, {Outport()}, {5},
          {"output"}),
      Row("output-off", 173, TrMark("switch an output off"), {}, {Outport()}, {5}, {"output"}),
      Row("wait-input", 176, TrMark("wait for an input that answers an output"), {}, WaitInput(), {3, 1, 500, 4, 1}),
      Row("safe-move-xyz", 181, TrMark("raise the head, move XY, then Z"), kTravel,
          MoveXY<TSmtSafeMoveToXY>({Z(kAt<&TSmtSafeMoveToXYZ::FTargetZ>)}), {40, 30, 30}, {"go-xyz"}),
      Row("lubricate", 350, TrMark("along the edges and both diagonals of a rectangle; the head is at its safe height"),
          kXY, Lubricate(), {10, 10, 60, 40}),
      Row("focus", 421, TrMark("move the focus axis"), {.MovesFocus = true},
          {Focus(kAt<&TSmtMoveToF::FFocus>),
           Param("speed", uMmPerS, TrMark("speed of the focus, 0 is the machine's default"), bdFocusSpeed, 0.0,
                 kAt<&TSmtMoveToF::FSpeed>)},
          {4}),
      Row("safe-move-xyzf", 422, TrMark("raise the head, move XY, then focus, then Z"), kTravelFar,
          MoveXY<TSmtSafeMoveToXY>({Z(kAt<&TSmtSafeMoveToXYZ::FTargetZ>), Focus(kAt<&TSmtSafeMoveToXYZF::FFocus>)}),
          {40, 30, 30, -2}, {"go-xyzf"}),
      Row("clean-nozzle-manual", 513, TrMark("clean the nozzle on the brush"), kXYZ, {CleanReturn()}, {},
          {"clean-manual", "clean-nozzle"}),
      Row("clean-nozzle-auto", 514, TrMark("clean the nozzle where that is switched on, and calibrate if asked to"),
          kXYZ, {CleanReturn()}, {}, {"clean-auto", "clean-nozzle"}),
      Made([](TCustomMotionState* ctrl, const TMotionValues&) { return MakeStep<TSmtLaserOnTimeState>(ctrl); },
           Row("shot", 515, TrMark("the timed laser shot"), kLaser,
               {Param("ms", uMs, TrMark("how long the beam is on"), bdRange(0, double{kShotLimitMs}), 500.0, kAtShot)},
               {60})),
      Row("laser-on", 516, TrMark("emission on, wait for it, laser on; dark again when the procedure ends"),
          {.LightsBeam = true, .LeavesBeam = true}),
      Row("laser-off", 517, TrMark("laser off, then emission off"), {.EndsBeam = true}),
      Row("emission-on", 518, TrMark("ask for emission; dark again when the procedure ends"), kLaser),
      Row("wait-emission", 519, TrMark("wait until emission is on, without a limit"), {.NeedsEmission = true}),
      Row("beam-on", 520, TrMark("laser on, emission untouched; dark again when the procedure ends"),
          {.LightsBeam = true, .LeavesBeam = true, .NeedsEmission = true}),
      Row("beam-off", 522, TrMark("laser off, shutter stays"), {.EndsBeam = true}),
      Row("delay", 612, TrMark("wait"), {},
          {Param("ms", uMs, TrMark("how long"), bdRange(0, kMostMs), 0.0, kAtDelay, kRequired)}, {30}),
      Made(MakeChange,
           Row("change-nozzle", 0, TrMark("put the head's nozzle into the rack and take another one"),
               {.MovesXY = true, .MovesZ = true, .Once = true, .Outputs = TProcedureFlags::otStayAfterAbort},
               {Param("from", uNone, TrMark("number of the nozzle in the head"), bdRange(0, kMostNozzle), kUnset,
                      kMadeWith, kTogether),
                Param("to", uNone, TrMark("number of the nozzle to take (default: both as chosen last)"),
                      bdRange(0, kMostNozzle), kUnset, kMadeWith, kTogether)})),
      Made([](TCustomMotionState* ctrl, const TMotionValues&) { return MakeGoMaintenance(ctrl); },
           Row("go-maintenance", 0, TrMark("to the maintenance position (422)"), kTravelFar, {}, {}, {"go"})),
      Made([](TCustomMotionState* ctrl, const TMotionValues&) { return MakeGoBlanking(ctrl); },
           Row("go-blanking", 0, TrMark("to the blanking position (137)"), kTravel, {}, {}, {"go"})),
      Made(MakeLaserTest,
           Row("laser-test", 0, TrMark("laser on with its wait for emission (516), off in two steps"), kLaser)),
      Made(MakeGasPurge, Row("gas-purge", 0, TrMark("gas on, delay, gas off"))),
      Made(MakeGasHold, Row("gas-hold", 0, TrMark("gas on and kept on"), {.LeavesGasOn = true})),
      Made(MakeCover, Row("cover", 0, TrMark("an output and the input that answers it (176)"))),
      Made(MakePierce, Row("pierce", 0, TrMark("gas around a beam that is built late"), kLaser)),
      Made(MakeSquare, Row("square", 0, TrMark("travel, gas, and a beam around a square of 40 mm"),
                           {.MovesXY = true, .LightsBeam = true})),
  };
  return rows;
}

}  // namespace ixocontroller
