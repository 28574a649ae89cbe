#include "controller/runs/RunWatch.h"

#include <algorithm>
#include <utility>

#include "controller/runs/Failure.h"
#include "controller/runs/Timeline.h"
#include "controller/texts/HostTexts.h"
#include "controller/texts/ProcedureTexts.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {

void TRunWatch::Changed(std::int32_t from, std::int32_t to) {
  if (to == nsCustomMotion) {
    FEnteredAt.store(Clock().MonotonicMs(), std::memory_order_release);
  } else if (from == nsCustomMotion) {
    FLeftAt.store(Clock().MonotonicMs(), std::memory_order_release);
  }
}

void TRunWatch::Begin(TRunTriggers triggers) {
  FTriggers = std::move(triggers);
  FEnteredAt.store(kNever);
  FLeftAt.store(kNever);
  FInTime = true;
  FStopCause.clear();
  FCutOff.clear();
  FStopAsked = FStopSent = FAlarmSent = false;
  FSteps.Clear();
  FAlarms.reset();
  FAlarms.emplace(FController.Alarms());
  FStartMs = Clock().MonotonicMs();
  FDroppedBefore = FController.Logs().Dropped();
  FCollisionsBefore = FController.Machine().Snapshot().Collisions;
  for (const std::string& name : FTriggers.Faults) FController.Machine().Inject(name);
}

void TRunWatch::StopAsked(std::string cause) {
  FStopAsked = true;
  if (FStopCause.empty()) FStopCause = std::move(cause);
}

void TRunWatch::CutOff(std::string cause, std::uint64_t askedMs) {
  if (FLeftAt.load(std::memory_order_acquire) < askedMs) return;
  FStopAsked = true;
  FCutOff = std::move(cause);
}

void TRunWatch::Look(std::uint64_t nowMs) {
  const std::uint64_t entered = FEnteredAt.load(std::memory_order_acquire);
  if (entered == kNever || FLeftAt.load(std::memory_order_acquire) != kNever || nowMs < entered) return;
  const std::uint64_t lasted = nowMs - entered;
  if (FTriggers.StopAt && lasted >= *FTriggers.StopAt && !std::exchange(FStopSent, true))
    FController.Framework().Stop();
  if (FTriggers.AlarmAt && lasted >= *FTriggers.AlarmAt && !std::exchange(FAlarmSent, true))
    FController.RaiseAlarm({.IdPrefix = "TPHost", .Desc = SAskedAlarm.Get(), .Id = 1, .Attrs = naForbidMove});
}

TRunEnd TRunWatch::HowItEnded(const TRunReport& report) const {
  if (!FInTime) return {"unfinished", SEndNever.Get()};
  if (FEnteredAt.load() == kNever)
    return FStopAsked ? TRunEnd{"stopped", SEndStopped.Get()} : TRunEnd{"refused", SEndRefused.Get()};
  const TMotionOutcome& outcome = FController.MotionState().Outcome();
  if (outcome.Type != metSuccess && !FCutOff.empty()) return {"stopped", SEndStopped.Get()};
  switch (outcome.Type) {
    case metSuccess:
      if (report.Collisions > 0) return {"collision", SEndCollided.Get()};
      if (FController.Framework().Watch().GasStays()) return {"gas-open", SEndGasOpen.Get()};
      return FController.Effects().LightMissed() ? TRunEnd{"no-light", SEndNoLight.Get()}
                                                 : TRunEnd{"success", SEndSuccess.Get()};
    case metStop: return {"stopped", SEndStopped.Get()};
    case metPause: return {"paused", SEndPaused.Get()};
    case metAlarm: return {"alarm", SEndAlarm.Get()};
    case metError: break;
  }
  return {"error", SRunFailed.Get()};
}

// Those of this run; the machine counts from its making on.
void TRunWatch::FindCollisions(TRunReport& report, TMachineSnapshot& shown) const {
  report.Collisions = shown.Collisions - FCollisionsBefore;
  if (report.Collisions == 0 || FCollisionsBefore == 0) return;
  for (const TJournalEntry& entry : FController.Journal().Entries())
    if (entry.Call == 0 && entry.Verb.starts_with(kCollision) && entry.Ms >= FStartMs) {
      shown.FirstCollision = entry.Device + ": " + entry.Verb;
      return;
    }
}

TRunReport TRunWatch::Report() {
  TRunReport report;
  TMachineSnapshot shown = FController.Machine().Snapshot();
  FindCollisions(report, shown);
  report.End = HowItEnded(report);
  report.Dark = !shown.Laser && !shown.Emission;

  const std::uint64_t entered = FEnteredAt.load();
  report.StartMs = report.EnteredMs = FStartMs;
  report.EndMs = Clock().MonotonicMs();
  bool cutOff = !FCutOff.empty() && !report.Success();
  if (entered != kNever) {
    report.EnteredMs = entered;
    report.DurationMs = std::min(FLeftAt.load(), report.EndMs) - entered;
    const TMotionOutcome& outcome = FController.MotionState().Outcome();
    report.Path = outcome.Path;
    report.Fault = outcome.Fault;
    report.Cause = outcome.Cause.empty() ? BeamCauseText(FController.Framework().LateBeamCause()) : outcome.Cause;
    cutOff = cutOff && (outcome.Type != metStop || outcome.Cause.empty());
    report.NextState = outcome.NextState;
    report.At = StepOf(outcome.Path, FSteps.Standing());
  } else {
    report.Cause = FStopCause;
    cutOff = cutOff && FStopCause.empty();
  }
  if (cutOff) report.Cause = FCutOff;
  report.Steps = FSteps.Items();
  if (FAlarms) report.Alarms = FAlarms->Items();
  if (report.Cause == BeamCauseText(bcForbidden)) {  // which one the beam's watch does not know
    const auto last = std::ranges::find(report.Alarms.rbegin(), report.Alarms.rend(), 1, &TRunAlarm::Level);
    if (last != report.Alarms.rend() && !last->Description.empty()) report.Cause += ": " + last->Description;
  }
  report.Signals = FController.Journal().Signals().Items();
  const TTimeline timeline(report.Signals, FStartMs, report.EndMs);
  report.Timeline = timeline.Draw();
  report.TimelineJson = timeline.Json();
  report.Journal = FController.Journal().Lines();
  Note(report, shown);
  NoteLight(report, timeline);
  if (!report.Success())
    report.Problem =
        FailureOf(report, shown, entered != kNever ? FController.MotionState().Outcome() : TMotionOutcome());
  FAlarms.reset();
  return report;
}

void TRunWatch::Note(TRunReport& report, const TMachineSnapshot& shown) const {
  const auto tooEarly = [&](const char* option, const std::optional<std::uint64_t>& at, bool sent) {
    if (at && !sent) report.Notes.push_back(Show(SShotTooEarly, option, ShownMs(*at)));
  };
  tooEarly("--stop-at", FTriggers.StopAt, FStopSent);
  tooEarly("--alarm-at", FTriggers.AlarmAt, FAlarmSent);
  if (const auto dropped = FController.Logs().Dropped() - FDroppedBefore; dropped > 0)
    report.Notes.push_back(Show(SLinesDropped, ShownMs(dropped)));
  const auto lost = [&](std::size_t count, const char* text) {
    if (count > 0) report.Notes.push_back(Format(Tr(text), count));
  };
  lost(FController.Journal().Gone(), TrMark("the first %zu lines of the journal are not kept"));
  lost(FSteps.Gone(), TrMark("the first %zu steps are not kept"));
  lost(FAlarms ? FAlarms->Gone() : 0, TrMark("%zu further alarms are not kept"));
  if (report.Collisions > 0)
    report.Notes.push_back(Show(SRunCollided, ShownMs(report.Collisions), shown.FirstCollision.c_str()));
  if (!report.Dark) report.Notes.emplace_back(SShotNotDark.Get());
}

// Of a shot that succeeded. In virtual time it lasts what it has to, unless a device call hangs.
void TRunWatch::NoteLight(TRunReport& report, const TTimeline& timeline) const {
  const std::optional<std::uint64_t> asked = FController.Effects().ShotMs();
  if (!asked || !report.Success()) return;
  unsigned long long lit = 0;
  for (const TTimelineRow& row : timeline.Rows())
    for (const TTimelineSpan& span : row.On)
      if (row.Kind == sgLaser) lit += span.To - span.From;
  const unsigned long long least = *asked;
  const unsigned long long most = least + TEffectWatch::kLightOverMs;
  if (lit < least || lit > most)
    report.Notes.push_back(Format(Tr("there was light for %llu ms, not %llu to %llu ms"), lit, least, most));
  else if (!FController.VirtualClock())
    report.Notes.push_back(Format(Tr("there was light for %llu ms"), lit));
}

}  // namespace ixocontroller
