#include "controller/runs/Failure.h"

#include <algorithm>
#include <iterator>

#include "controller/texts/HostTexts.h"
#include "controller/texts/ProcedureTexts.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// What to do about a step's refusal.
constexpr struct {
  const TText* Reason;
  const char* Remedy;
} kRemedies[] = {
    {&SCheckNoDevice, TrMark("fit it, or give it to the machine in its file")},
    {&SCheckOutOfRange, TrMark("ask for a value within the range")},
    {&SCheckNotArrived, TrMark("look at the axis: limit switch, drive, something in its way")},
    {&SCheckNotRaised, TrMark("raise the head first (safe-z)")},
    {&SCheckNoWorkOrigin, TrMark("set the work origin")},
    {&SCheckLaserOn, TrMark("switch the laser off first")},
    {&SCheckEmptyRange, TrMark("make room within the soft limits of the machine file")},
    {&SCheckFollowerForbidden, TrMark("remove the cause of the alarm and clear it")},
    {&SCheckCaliFailed, TrMark("look at plate, nozzle and sensor, then calibrate again")},
    {&SCheckCaliFailedBy, TrMark("look at plate, nozzle and sensor, then calibrate again")},
    {&SCheckCaliNotStarted, TrMark("look at the height controller")},
    {&SCheckNotFollowing, TrMark("put a plate under the nozzle, or calibrate the height sensor")},
    {&SCheckFirstCali, TrMark("calibrate once at the calibration position (calibrate-head), then set FinishFirstCali")},
    {&SCheckNoCaliPos, TrMark("set the calibration position in the machine file")},
    {&SCheckBrushNotSet, TrMark("set the brush in the machine file")},
    {&SCheckNoBrushPos, TrMark("set the brush in the machine file")},
    {&SCheckNoTable, TrMark("dock a pallet first")},
    {&SCheckRackDisabled, TrMark("switch nozzle change on in the machine file (ChangeNozzleEnabled)")},
    {&SCheckNoSlot, TrMark("name a slot that the machine file has")},
    {&SCheckNoSlotPos, TrMark("set the position of the slot in the machine file")},
    {&SCheckCapNotOpen, TrMark("open the cap of the rack first")},
    {&SCheckStageNotUp, TrMark("raise the stage of the rack first")},
    {&SCheckSlotFree, TrMark("name a slot that holds a nozzle")},
    {&SCheckSlotOccupied, TrMark("name an empty slot")},
    {&SCheckStillOccupied, TrMark("look at the nozzle, the slot and its switch")},
    {&SCheckStillFree, TrMark("look at the nozzle, the slot and its switch")},
    {&SCheckNotOverSlot, TrMark("move the head over the slot first")},
    {&SNamedInputNotMet, TrMark("look at what moves there and at its switch")},
    {&SInputNotMet, TrMark("look at what moves there and at its switch")},
};

// The name of the first step of "->outer(137)(FStep = 1)->inner(131)(FStep = -2)".
std::string RootOf(const std::string& path) {
  const std::size_t begin = path.starts_with("->") ? 2 : 0;
  const std::size_t step = path.find(")(FStep", begin);
  const std::size_t number = step == std::string::npos ? step : path.rfind('(', step);
  return path.substr(begin, number == std::string::npos ? number : number - begin);
}

std::string RemedyOf(const TMotionOutcome& outcome) {
  const auto* const row =
      std::ranges::find_if(kRemedies, [&](const auto& remedy) { return remedy.Reason == outcome.Reason; });
  if (row != std::end(kRemedies)) return Tr(row->Remedy);
  return Tr("remove the cause, then start it again");
}

// What the definitions say of the alarm that came last.
std::string AlarmRemedy(std::span<const TRunAlarm> alarms) {
  for (auto alarm = alarms.rbegin(); alarm != alarms.rend(); ++alarm)
    if (!alarm->Solution.empty()) return alarm->Solution;
  return Tr("remove the cause of the alarm, clear it, then start again");
}

}  // namespace

std::string StepOf(const std::string& path, std::span<const TStepSpan> standing) {
  std::string step = RootOf(path);
  for (const TStepSpan& span : standing) step += Format(Tr(", %d/%d %s"), span.Number, span.Count, span.Desc.c_str());
  return step;
}

TProblem FailureOf(const TRunReport& report, const TMachineSnapshot& shown, const TMotionOutcome& outcome) {
  TProblem problem{.What = report.End.Words, .Where = report.At, .Why = report.Cause};
  const std::string_view end = report.End.Name;
  if (end == "error") {
    if (problem.Why.empty()) problem.Why = outcome.Why.empty() ? outcome.Fault : outcome.Why;
    if (problem.Why.empty()) problem.Why = Tr("the step did not say why; --trace shows its log");
    problem.Remedy = report.Alarms.empty() || outcome.Reason ? RemedyOf(outcome) : AlarmRemedy(report.Alarms);
  } else if (end == "alarm") {
    problem.Remedy = AlarmRemedy(report.Alarms);
  } else if (end == "refused") {
    if (problem.Why.empty() && !report.Alarms.empty()) problem.Why = report.Alarms.back().Text;
    problem.Remedy = AlarmRemedy(report.Alarms);
  } else if (end == "stopped" && !problem.Why.empty()) {  // by what watches, not by a person
    problem.Remedy = Tr("remove the cause, then start it again");
  } else if (end == "unfinished") {
    problem.Remedy = Tr("look at what the step waits for, or allow it more time");
  } else if (end == "collision") {
    problem.Why = shown.FirstCollision;
    problem.Remedy = Tr("look at the head and what it struck before anything moves");
  } else if (end == "gas-open") {
    problem.Remedy = Tr("close the gas by hand and look at its valve");
  } else if (end == "no-light") {
    problem.Remedy = Tr("look at the laser source: emission, interlock, latch");
  }
  if (!report.Dark) {
    problem.What += std::string("; ") + SShotNotDark.Get();
    problem.Remedy = Tr("switch the laser off at the source");
  }
  return problem;
}

}  // namespace ixocontroller
