#include <algorithm>
#include <type_traits>

#include "controller/procedures/GoProcedures.h"
#include "controller/procedures/MotionTable.h"
#include "controller/procedures/NozzleChange.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocut/procedures/Shot.h"

namespace ixocontroller {
namespace {

// Sets one public field of a step, however wide it is: a switch's as "not 0".
template <auto Member>
struct TField;
template <class Step, class Value, Value Step::*Member>
struct TField<Member> {
  static void Set(TStateMotion& step, double value) {
    auto& field = dynamic_cast<Step&>(step).*Member;
    if constexpr (std::is_same_v<Value, bool>)
      field = value != 0.0;
    else
      field = static_cast<Value>(value);
  }
  static void SetX(TStateMotion& step, double value) { (dynamic_cast<Step&>(step).*Member).X = value; }
  static void SetY(TStateMotion& step, double value) { (dynamic_cast<Step&>(step).*Member).Y = value; }
};
template <auto Member>
constexpr auto kSet = &TField<Member>::Set;
template <auto Member>
constexpr auto kSetX = &TField<Member>::SetX;
template <auto Member>
constexpr auto kSetY = &TField<Member>::SetY;

TRange2& RangeOf(TStateMotion& step) {
  auto& range = dynamic_cast<TSmtLubricateCurve&>(step).FRange;
  return range ? *range : range.emplace();
}

using TSetter = void (*)(TStateMotion&, double);

constexpr double kMostMs = 600'000;
constexpr double kFarMm = 100'000;
constexpr auto Required = TMotionParam::Required;
constexpr auto Together = TMotionParam::Together;

constexpr TMotionParam X(TSetter set) {
  return {"x", "mm", "target X, machine coordinates", pkNumber, prX, 0, 0, 0.0, set, Required};
}
constexpr TMotionParam Y(TSetter set) {
  return {"y", "mm", "target Y, machine coordinates", pkNumber, prY, 0, 0, 0.0, set, Required};
}
constexpr TMotionParam Z(TSetter set) {
  return {"z", "mm", "target Z, 0 is the top", pkNumber, prZ, 0, 0, 0.0, set, Required};
}
constexpr TMotionParam XYSpeed(TSetter set) {
  return {"speed", "mm/s", "speed of XY, 0 is the machine's default", pkNumber, prXYSpeed, 0, 0, 0.0, set};
}
constexpr TMotionParam Follower(TSetter set) {
  return {"follower", "", "index of the follower", pkWhole, prFollower, 0, 0, 0.0, set};
}
constexpr TMotionParam Outport(TSetter set) {
  return {"port", "", "the output, -1 switches nothing", pkWhole, prOutport, 0, 0, -1.0, set, Required};
}

constexpr TMotionParam kMoveXY[] = {X(kSetX<&TSmtMoveToXY::FTarget>), Y(kSetY<&TSmtMoveToXY::FTarget>),
                                    XYSpeed(kSet<&TSmtMoveToXY::FSpeed>)};

constexpr TMotionParam ZSpeed(TSetter set) {
  return {"speed", "mm/s", "speed of Z, 0 is the machine's default", pkNumber, prZSpeed, 0, 0, 0.0, set};
}
// The fields of a brush of one's own, used with use-config false.
constexpr TMotionParam kCleanCurve[] = {
    {"use-config", "", "the brush of the machine file", pkSwitch, prFixed, 0, 1, 1.0,
     kSet<&TSmtCleanHeadCurve::FUseConfig>},
    {"centre-x", "mm", "middle of the brush", pkNumber, prX, 0, 0, 0.0, kSetX<&TSmtCleanHeadCurve::FCentre>},
    {"centre-y", "mm", "middle of the brush", pkNumber, prY, 0, 0, 0.0, kSetY<&TSmtCleanHeadCurve::FCentre>},
    {"length", "mm", "of a stroke", pkNumber, prFixed, 0, 1000, 0.0, kSet<&TSmtCleanHeadCurve::FLength>},
    {"width", "mm", "across the strokes", pkNumber, prFixed, 0, 1000, 0.0, kSet<&TSmtCleanHeadCurve::FWidth>},
    {"direction", "", "0: strokes along X, else along Y", pkWhole, prFixed, 0, 1, 0.0,
     kSet<&TSmtCleanHeadCurve::FDirection>},
    {"style", "", "1: ellipses, else strokes", pkWhole, prFixed, 0, 100, 0.0, kSet<&TSmtCleanHeadCurve::FStyle>},
    {"count", "", "strokes, or ellipses; needed with use-config false", pkWhole, prFixed, 0,
     TSmtCleanHeadCurve::kMaxCount, 0.0, kSet<&TSmtCleanHeadCurve::FCount>},
    XYSpeed(kSet<&TSmtCleanHeadCurve::FSpeed>)};

constexpr TMotionParam kSafeZ[] = {
    {"z", "mm", "target Z, used with use-safe-z false", pkNumber, prZ, 0, 0, 0.0, kSet<&TSmtSafeMoveToZ::FTargetZ>},
    {"use-safe-z", "", "the target is the safe height", pkSwitch, prFixed, 0, 1, 1.0,
     kSet<&TSmtSafeMoveToZ::FUseSafeZ>},
    {"only-up", "", "a head above the target stays there", pkSwitch, prFixed, 0, 1, 1.0,
     kSet<&TSmtSafeMoveToZ::FOnlyUp>},
    ZSpeed(kSet<&TSmtSafeMoveToZ::FSpeed>),
    Follower(kSet<&TSmtSafeMoveToZ::FFollowerIndex>)};
constexpr TMotionParam kMoveZ[] = {Z(kSet<&TSmtSafeMoveToZ::FTargetZ>),
                                   {"use-safe-z", "", "the target is the safe height", pkSwitch, prFixed, 0, 1, 0.0,
                                    kSet<&TSmtSafeMoveToZ::FUseSafeZ>},
                                   {"only-up", "", "a head above the target stays there", pkSwitch, prFixed, 0, 1, 0.0,
                                    kSet<&TSmtSafeMoveToZ::FOnlyUp>},
                                   ZSpeed(kSet<&TSmtSafeMoveToZ::FSpeed>),
                                   Follower(kSet<&TSmtSafeMoveToZ::FFollowerIndex>)};

constexpr TMotionParam kSafeMove[] = {X(kSetX<&TSmtSafeMoveToXY::FTarget>), Y(kSetY<&TSmtSafeMoveToXY::FTarget>),
                                      XYSpeed(kSet<&TSmtSafeMoveToXY::FSpeed>)};
constexpr TMotionParam kSafeMoveXYZ[] = {X(kSetX<&TSmtSafeMoveToXY::FTarget>), Y(kSetY<&TSmtSafeMoveToXY::FTarget>),
                                         Z(kSet<&TSmtSafeMoveToXYZ::FTargetZ>),
                                         XYSpeed(kSet<&TSmtSafeMoveToXY::FSpeed>)};
constexpr TMotionParam Focus(TSetter set) {
  return {"focus", "mm", "target of the focus axis", pkNumber, prFocus, 0, 0, 0.0, set, Required};
}
constexpr TMotionParam kSafeMoveXYZF[] = {
    X(kSetX<&TSmtSafeMoveToXY::FTarget>), Y(kSetY<&TSmtSafeMoveToXY::FTarget>), Z(kSet<&TSmtSafeMoveToXYZ::FTargetZ>),
    Focus(kSet<&TSmtSafeMoveToXYZF::FFocus>), XYSpeed(kSet<&TSmtSafeMoveToXY::FSpeed>)};

// The origin decides what the machine's limits are in work coordinates; the step checks them.
constexpr TMotionParam kMoveWork[] = {{"x", "mm", "target X, work coordinates", pkNumber, prFixed, -kFarMm, kFarMm, 0.0,
                                       kSetX<&TSmtRaisedMove::FTarget>, Required},
                                      {"y", "mm", "target Y, work coordinates", pkNumber, prFixed, -kFarMm, kFarMm, 0.0,
                                       kSetY<&TSmtRaisedMove::FTarget>, Required},
                                      XYSpeed(kSet<&TSmtRaisedMove::FSpeed>)};
constexpr TMotionParam kMoveAssist[] = {X(kSetX<&TSmtRaisedMove::FTarget>), Y(kSetY<&TSmtRaisedMove::FTarget>),
                                        XYSpeed(kSet<&TSmtRaisedMove::FSpeed>)};

constexpr TMotionParam kGasOn[] = {{"branch", "", "gas branch, by gas type", pkWhole, prBranch, 0, 0, 0.0,
                                    kSet<&TSmtGasOnState::FGasBranch>, Required},
                                   {"pressure", "bar", "pressure to set", pkNumber, prPressure, 0, 0, 0.0,
                                    kSet<&TSmtGasOnState::FGasPressure>, Required}};

constexpr TMotionParam kCapCali[] = {Follower(kSet<&TSmtCapCaliMotion::FFollowerIndex>)};
constexpr TMotionParam kAutoCali[] = {
    {"return", "", "go back to where it started", pkSwitch, prFixed, 0, 1, 1.0, kSet<&TSmtAutoCaliState::FReturn>}};
constexpr TMotionParam kSimpleCali[] = {Follower(kSet<&TSmtSimpleAutoCaliState::FFollowerIndex>)};
constexpr TMotionParam kFollow[] = {{"height", "mm", "distance of the nozzle to the plate", pkNumber, prFixed, 0.01, 50,
                                     1.0, kSet<&TSmtFollow::FHeight>},
                                    Follower(kSet<&TSmtFollow::FFollowerIndex>)};

constexpr TMotionParam kNozzle[] = {
    {"row", "", "row of the slot", pkWhole, prFixed, 0, 1000, -1.0, kSet<&TSmtNozzleStep::FRow>, Required},
    {"column", "", "column of the slot", pkWhole, prFixed, 0, 1000, -1.0, kSet<&TSmtNozzleStep::FCol>, Required}};

constexpr TMotionParam kOutputOn[] = {Outport(kSet<&TSmtSwitchOutport::FPort>)};

constexpr TMotionParam kWaitInput[] = {
    {"input", "", "the input to wait for, -1 counts as met", pkWhole, prInport, 0, 0, -1.0,
     kSet<&TSmtWaitInport::FWaitInport>, Required},
    {"level", "", "the level that counts as reached", pkSwitch, prFixed, 0, 1, 0.0,
     kSet<&TSmtWaitInport::FInportLogic>},
    {"time", "ms", "limit of the wait", pkWhole, prFixed, 1, kMostMs, 1.0, kSet<&TSmtWaitInport::FWaitTime>},
    {"output", "", "the output that the input answers; -1: none, and nothing is waited for", pkWhole, prOutport, 0, 0,
     -1.0, kSet<&TSmtWaitInport::FOutport>},
    {"switch-output", "", "switch the output on for the wait, off at its end", pkSwitch, prFixed, 0, 1, 0.0,
     kSet<&TSmtWaitInport::FNeedOutport>},
    {"alarm", "", "a time-out raises an alarm", pkSwitch, prFixed, 0, 1, 0.0, kSet<&TSmtWaitInport::FTimeOutAlarm>}};

constexpr TMotionParam kLubricate[] = {
    {"min-x", "mm", "left edge (default: the limits, inset by 10 mm)", pkNumber, prX, 0, 0, kUnset,
     [](TStateMotion& step, double value) { RangeOf(step).Min.X = value; }, Together},
    {"min-y", "mm", "lower edge", pkNumber, prY, 0, 0, kUnset,
     [](TStateMotion& step, double value) { RangeOf(step).Min.Y = value; }, Together},
    {"max-x", "mm", "right edge", pkNumber, prX, 0, 0, kUnset,
     [](TStateMotion& step, double value) { RangeOf(step).Max.X = value; }, Together},
    {"max-y", "mm", "upper edge", pkNumber, prY, 0, 0, kUnset,
     [](TStateMotion& step, double value) { RangeOf(step).Max.Y = value; }, Together},
    {"count", "", "rounds", pkWhole, prFixed, 1, TSmtLubricateCurve::kMaxCount, 1.0, kSet<&TSmtLubricateCurve::FCount>},
    XYSpeed(kSet<&TSmtLubricateCurve::FSpeed>)};

constexpr TMotionParam kFocus[] = {Focus(kSet<&TSmtMoveToF::FFocus>),
                                   {"speed", "mm/s", "speed of the focus, 0 is the machine's default", pkNumber,
                                    prFocusSpeed, 0, 0, 0.0, kSet<&TSmtMoveToF::FSpeed>}};

constexpr TMotionParam kClean[] = {{"return", "", "go back afterwards, as the machine file says", pkSwitch, prFixed, 0,
                                    1, 1.0, kSet<&TSmtCleanState::FReturn>}};

constexpr TMotionParam kShot[] = {
    {"ms", "ms", "how long the beam is on", pkWhole, prFixed, 0, static_cast<double>(kShotLimitMs), 500.0, nullptr}};

TStepPtr MakeShotOf(TCustomMotionState* ctrl, const TMotionValues& values) {
  auto shot = MakeShot(static_cast<std::uint32_t>(values[0].value_or(kShot[0].Default)));
  shot->SetStateCtrl(ctrl);
  return shot;
}

constexpr TMotionParam kDelay[] = {{"ms", "ms", "how long", pkWhole, prFixed, 0, kMostMs, 0.0,
                                    [](TStateMotion& step, double value) {
                                      dynamic_cast<TSmtDelay&>(step).SetDelay(static_cast<std::uint32_t>(value));
                                    },
                                    Required}};

constexpr double kMostNozzle = 10'000;
constexpr TMotionParam kNozzleChange[] = {
    {"from", "", "number of the nozzle in the head", pkWhole, prFixed, 0, kMostNozzle, kUnset, nullptr, Together},
    {"to", "", "number of the nozzle to take (default: both as chosen last)", pkWhole, prFixed, 0, kMostNozzle, kUnset,
     nullptr, Together}};

TStepPtr MakeNozzleChangeOf(TCustomMotionState* ctrl, const TMotionValues& values) {
  if (!values[0] || !values[1]) return MakeNozzleChange(ctrl);
  return MakeNozzleChange(ctrl, static_cast<std::int32_t>(*values[0]), static_cast<std::int32_t>(*values[1]));
}

constexpr TMotionRow kRows[] = {
    {131, "move-xy", "", false, "move XY, at the height where the head stands", kMoveXY, nullptr},
    {133, "clean-curve", "", false, "move over the brush, at the height where the head stands", kCleanCurve, nullptr},
    {134, "safe-z", "", false, "raise the head to the safe height", kSafeZ, nullptr},
    {136, "move-z", "", false, "move Z, up or down", kMoveZ, nullptr},
    {137, "safe-move", "", false, "raise the head (134), then move XY (131)", kSafeMove, nullptr},
    {138, "move-work", "", false, "raise the head, then to a point in work coordinates", kMoveWork, nullptr},
    {139, "move-assist", "", false, "raise the head, then to a point in machine coordinates; not with the laser on",
     kMoveAssist, nullptr},
    {141, "gas", "on", true, "gas on; it stays on", kGasOn, nullptr},
    {142, "gas", "off", true, "gas off", {}, nullptr},
    {151, "calibrate-sensor", "", false, "calibrate the height sensor over the plate under the nozzle", kCapCali,
     nullptr},
    {152, "auto-calibrate", "", false, "calibrate at the configured position", kAutoCali, nullptr},
    {153, "calibrate-head", "", false, "calibrate where the head stands (151), then raise it (134)", kSimpleCali,
     nullptr},
    {154, "follow", "", false, "follow the plate at a height; the head goes on following", kFollow, nullptr},
    {163, "uninstall-nozzle", "", false, "leave the head's nozzle in a slot of the rack; the head stands over it",
     kNozzle, nullptr},
    {164, "install-nozzle", "", false, "take a nozzle from a slot of the rack; the head stands over it", kNozzle,
     nullptr},
    {172, "output", "on", true, "switch an output on", kOutputOn, nullptr},
    {173, "output", "off", true, "switch an output off", kOutputOn, nullptr},
    {176, "wait-input", "", false, "wait for an input that answers an output", kWaitInput, nullptr},
    {181, "safe-move-xyz", "", false, "raise the head, move XY, then Z", kSafeMoveXYZ, nullptr},
    {350, "lubricate", "", false, "along the edges and both diagonals of a rectangle; the head is at its safe height",
     kLubricate, nullptr},
    {421, "focus", "", false, "move the focus axis", kFocus, nullptr},
    {422, "safe-move-xyzf", "", false, "raise the head, move XY, then focus, then Z", kSafeMoveXYZF, nullptr},
    {513, "clean-nozzle", "manual", true, "clean the nozzle on the brush", kClean, nullptr},
    {514, "clean-nozzle", "auto", true, "clean the nozzle where that is switched on, and calibrate if asked to", kClean,
     nullptr},
    {515, "shot", "", false, "the timed laser shot", kShot, MakeShotOf, bmOff},
    {516,
     "laser-on",
     "",
     false,
     "emission on, wait for it, laser on; dark again when the procedure ends",
     {},
     nullptr,
     bmOn},
    {517, "laser-off", "", false, "laser off, then emission off", {}, nullptr, bmOff},
    {518, "emission-on", "", false, "ask for emission; dark again when the procedure ends", {}, nullptr},
    {519, "wait-emission", "", false, "wait until emission is on, without a limit", {}, nullptr},
    {520, "beam-on", "", false, "laser on, emission untouched; dark again when the procedure ends", {}, nullptr, bmOn},
    {522, "beam-off", "", false, "laser off, emission untouched", {}, nullptr, bmOff},
    {612, "delay", "", false, "wait", kDelay, nullptr},
    {0, "change-nozzle", "", false, "put the head's nozzle into the rack and take another one", kNozzleChange,
     MakeNozzleChangeOf},
    {0,
     "go",
     "maintenance",
     false,
     "to the maintenance position (422)",
     {},
     [](TCustomMotionState* ctrl, const TMotionValues&) { return MakeGoMaintenance(ctrl); }},
    {0,
     "go",
     "blanking",
     false,
     "to the blanking position (137)",
     {},
     [](TCustomMotionState* ctrl, const TMotionValues&) { return MakeGoBlanking(ctrl); }},
};

}  // namespace

std::span<const TMotionRow> MotionRows() { return kRows; }

}  // namespace ixocontroller
