#include "controller/service/Runner.h"

#include <algorithm>
#include <utility>

#include "controller/process/RealTime.h"
#include "controller/runs/RunReport.h"
#include "controller/runs/Timeline.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kSettleMs = 5000;  // a device acknowledges switching off
constexpr std::uint64_t kTailMs = 50;
constexpr std::size_t kLineBytes = 100;
constexpr std::size_t kStepBytes = 160;

nlohmann::ordered_json ParamsJson(const TMotionCall& call) {
  auto params = nlohmann::ordered_json::object();
  for (std::size_t i = 0; i < call.Values.size(); ++i) {
    if (!call.Values[i]) continue;
    const TMotionParam& param = call.Row->Params[i];
    if (param.At.Kind == pkSwitch)
      params[param.Name] = *call.Values[i] != 0.0;
    else
      params[param.Name] = *call.Values[i];
  }
  return params;
}

std::vector<std::string> CallTexts(const std::vector<TMotionCall>& calls) {
  std::vector<std::string> texts;
  texts.reserve(calls.size());
  for (const TMotionCall& call : calls) texts.push_back(call.Text());
  return texts;
}

nlohmann::ordered_json StepJson(std::uint64_t run, std::uint64_t startMs, const TStepSpan& step) {
  return {{"run", run},
          {"level", step.Level},
          {"number", step.Number},
          {"count", step.Count},
          {"command", step.Command},
          {"description", Retold(step.Desc)},
          {"startMs", step.From - std::min(startMs, step.From)}};
}

}  // namespace

nlohmann::ordered_json RunParams(bool sequence, const std::vector<TMotionCall>& calls) {
  if (sequence) return CallTexts(calls);
  return calls.empty() ? nlohmann::ordered_json() : ParamsJson(calls.front());
}

// --- what is kept of a run ---

std::size_t TRunRecord::Bytes() const {
  return Trace.Size() * sizeof(TTracePoint) + Plan.size() * sizeof(TPoint2) + Report.Steps.size() * kStepBytes +
         (Report.Journal.size() + Report.Timeline.size() + Calls.size() + Report.Alarms.size()) * kLineBytes +
         Report.Signals.size() * sizeof(TSignal) * 2;
}

namespace {

// Of "Nozzle change, 9/25 Check: raise the stage" the names.
std::string RetoldPlace(const std::string& place) {
  constexpr std::string_view between = ", ";
  std::string told;
  for (std::size_t from = 0; from < place.size();) {
    const std::size_t to = std::min(place.find(between, from), place.size());
    const std::size_t name = place.find_first_not_of("0123456789/ ", from);
    const std::size_t begin = std::min(name, to);
    told += place.substr(from, begin - from) + Retold(place.substr(begin, to - begin));
    if (to < place.size()) told += between;
    from = to + between.size();
  }
  return told;
}

}  // namespace

TProblem RetoldProblem(const TProblem& problem) {
  TProblem told = Retold(problem);
  told.Where = RetoldPlace(problem.Where);
  return told;
}

namespace {

// In the language of who asks, as far as the texts are in the catalogue by themselves.
TRunReport RetoldReport(TRunReport report) {
  for (TStepSpan& step : report.Steps) step.Desc = Retold(step.Desc);
  report.End.Words = Retold(report.End.Words);
  if (report.Problem) report.Problem = RetoldProblem(*report.Problem);
  for (TRunAlarm& alarm : report.Alarms) {
    const std::string before = alarm.Solution;
    alarm.Define();
    if (report.Problem && !before.empty() && report.Problem->Remedy == before) report.Problem->Remedy = alarm.Solution;
  }
  report.Timeline = TTimeline(report.Signals, report.StartMs, report.EndMs).Draw();
  return report;
}

nlohmann::ordered_json PlanJson(const std::vector<TPoint2>& plan) {
  auto points = nlohmann::ordered_json::array();
  for (const TPoint2& point : plan) points.push_back({point.X, point.Y});
  return points;
}

}  // namespace

nlohmann::ordered_json RunHeadJson(const TRunRecord& record) {
  nlohmann::ordered_json json{{"id", record.Id},
                              {"procedure", record.Procedure},
                              {"sequence", record.Sequence},
                              {"params", record.Params},
                              {"calls", CallTexts(record.Calls)},
                              {"startedBy", record.Starter.Name},
                              {"detached", record.Detached},
                              {"start", UtcText(record.StartUnixMs)},
                              {"end", nullptr},
                              {"outcome", nullptr}};
  if (record.EndUnixMs == 0) return json;
  json["end"] = UtcText(record.EndUnixMs);
  json["outcome"] = record.Report.End.Name;
  json["success"] = record.Report.Success();
  json["durationMs"] = record.Report.DurationMs;
  json["lang"] = record.Language;
  json["words"] = Retold(record.Report.End.Words);
  std::optional<TProblem> problem = record.Report.Problem;
  if (problem) problem = RetoldProblem(*problem);
  json["problem"] = problem ? ProblemJson(*problem) : nlohmann::ordered_json();
  return json;
}

nlohmann::ordered_json RunJson(const TRunRecord& record) {
  nlohmann::ordered_json json = RunHeadJson(record);
  if (record.EndUnixMs == 0) return json;
  json["plan"] = PlanJson(record.Plan);
  const TRunReport report = RetoldReport(record.Report);
  json.update(ReportJson(report, record.Trace, record.Last));
  if (report.Problem) json["problem"] = ProblemJson(*report.Problem);
  if (!record.Result.is_null()) json["result"] = record.Result;
  json["lines"] = ReportLines(report, record.Trace, record.Last, false);
  return json;
}

nlohmann::ordered_json TRunner::CurrentJson() const {
  nlohmann::ordered_json json = RunHeadJson(*FRun);
  json["plan"] = PlanJson(FRun->Plan);
  std::vector<TStepSpan> steps = FSteps.Items();
  for (TStepSpan& step : steps) step.Desc = Retold(step.Desc);
  json["steps"] = StepsJson(steps, FWatch.StartMs());
  return json;
}

nlohmann::ordered_json TraceJson(const TRunRecord& record) {
  auto points = nlohmann::ordered_json::array();
  const std::uint64_t start = record.Report.StartMs;
  for (const TTracePoint& p : record.Trace.Points())
    points.push_back({p.Ms - std::min(start, p.Ms), p.X, p.Y, p.Z, p.Focus});
  return points;
}

// --- the runner ---

TRunner::TRunner(TController& controller, TStepSpans& steps, TPlannedPath& path, TEventRing& events)
    : FController(controller), FSteps(steps), FPath(path), FEvents(events), FWatch(controller, steps) {
  FController.MotionState().AddObserver(FSteps);
  FController.MotionState().AddObserver(FPath);
}

TRunRecordPtr TRunner::Find(std::uint64_t id) const {
  const auto record = std::ranges::find_if(FRecords, [&](const TRunRecordPtr& r) { return r->Id == id; });
  return record == FRecords.end() ? nullptr : *record;
}

TResult<> TRunner::NothingRuns() const {
  if (FPhase != TPhase::Idle)
    return TProblem{.What = Tr("a procedure is running"),
                    .Why = FRun->Procedure,
                    .Remedy = Tr("stop it, or wait until it has ended")};
  if (FController.Running())
    return TProblem{.What = Tr("a procedure is running"), .Remedy = Tr("stop it, or wait until it has ended")};
  return {};
}

TResult<> TRunner::MayStart(const TRunRequest& request) const {
  if (TResult<> free = NothingRuns(); !free || request.Job) return free;
  return FController.MayStart(*ShareRoot(MakeRoot(request.Procedure, request.Calls)));
}

TResult<std::uint64_t> TRunner::Start(TRunRequest request, const TAsker& who) {
  if (TResult<> free = NothingRuns(); !free) return free.Problem();
  const TLanguageScope own("");  // what is made here stays
  std::shared_ptr<IStateMotion> root;
  auto run = std::make_shared<TRunRecord>();
  if (!request.Job) root = ShareRoot(MakeRoot(request.Procedure, request.Calls));
  run->Procedure = request.Procedure;
  run->Sequence = request.Sequence;
  run->Starter = who;
  const std::uint64_t attender = request.AttendedBy != 0 ? request.AttendedBy : who.Connection;
  run->Detached = request.Detached || attender == 0;
  run->StartUnixMs = RealUnixMs();
  if (const TLocaleManager* const locale = LocaleManager()) run->Language = locale->Language();
  run->Calls = request.Calls;
  run->Params = request.Job ? request.JobParams : RunParams(request.Sequence, run->Calls);

  if (request.SaveCalibration) FController.Params().SetInt("AutoSaveCaliResult", 1);
  // What is on stays on in the picture of the run.
  const TMachineSnapshot& now = run->First = FController.Machine().Snapshot();
  TJournal& journal = FController.Journal();
  journal.Clear();
  if (now.Emission) journal.Signalled({now.Ms, sgEmission, true});
  if (now.Gas) journal.Signalled({now.Ms, sgGas, true, now.GasBranch, now.GasSetBar});
  for (const std::int32_t port : now.OutputsOn) journal.Signalled({now.Ms, sgOutput, true, port});
  FWatch.Begin(std::move(request.Triggers));
  FToldSteps = 0;
  FToldPath = FPath.Changes();
  run->Report.StartMs = FWatch.StartMs();
  if (TResult<> started = request.Job ? request.Job->Start() : FController.Start(std::move(root)); !started) {
    FWatch.Forget();
    return started.Problem();
  }
  if (FBegun) run->Id = FBegun(*run);
  if (run->Id == 0) run->Id = FIds + 1;
  FIds = run->Id;
  FRun = std::move(run);
  FJob = std::move(request.Job);
  FPhase = TPhase::Runs;
  FLimitMs = request.LimitMs;
  FTimeOver = false;
  FAttender = 0;
  FAloneAt = 0;
  if (!FRun->Detached) Attend(attender);
  LogMsg(lkInfo, 0,
         Format(Tr("%s starts run %llu: %s"), who.Name.c_str(), static_cast<unsigned long long>(FRun->Id),
                FRun->Procedure.c_str()),
         "TPHost");
  if (FCurrentTold) FCurrentTold();
  FEvents.Add(evRun, [head = RunHeadJson(*FRun)] {
    auto json = head;
    json["event"] = "begun";
    return json;
  });
  return FRun->Id;
}

void TRunner::Sample(std::uint64_t nowMs) {
  if (FPhase == TPhase::Idle) return;
  FRun->Trace.Sample(FController.Machine().Snapshot());
  FWatch.Look(nowMs);
}

void TRunner::Pass() {
  if (FPhase == TPhase::Idle) return;
  const std::uint64_t now = Clock().MonotonicMs();
  if (!FController.VirtualClock()) Sample(now);
  WatchAttendance();
  Step(now);
}

void TRunner::Step(std::uint64_t nowMs) {
  const bool running = FPhase == TPhase::Runs && FJob ? FJob->Pass(FRun->Id, nowMs)
                                                      : FController.Running();  // before the steps are looked at
  TellSteps();
  TellPlan();
  switch (FPhase) {
    case TPhase::Idle: return;
    case TPhase::Runs:
      if (!running) {
        FPhase = TPhase::Settles;
        FUntilMs = nowMs + kSettleMs;
      } else if (nowMs - FWatch.StartMs() >= FLimitMs && !std::exchange(FTimeOver, true)) {
        FWatch.TimeIsOver();
        FController.Framework().Stop();
      }
      return;
    case TPhase::Settles:
      if (FController.Framework().SafePending() && nowMs < FUntilMs) return;
      FPhase = TPhase::Ends;
      FUntilMs = nowMs + kTailMs;
      return;
    case TPhase::Ends:
      if (nowMs >= FUntilMs) Finish();
      return;
  }
}

void TRunner::TellPlan() {
  const std::uint64_t changes = FPath.Changes();
  if (changes == std::exchange(FToldPath, changes)) return;
  std::vector<TPoint2> plan = FPath.Points();
  if (plan == FRun->Plan) return;
  FRun->Plan = plan;
  FEvents.Add(evRun, [id = FRun->Id, plan = std::move(plan)] {
    return nlohmann::ordered_json{{"event", "planned"}, {"id", id}, {"plan", PlanJson(plan)}};
  });
}

void TRunner::TellSteps() {
  if (FSteps.Begun() == FToldSteps) return;
  for (const TStepSpan& step : FSteps.Behind(FToldSteps))
    FEvents.Add(evStep, [run = FRun->Id, start = FWatch.StartMs(), step] { return StepJson(run, start, step); });
}

void TRunner::Finish() {
  const TLanguageScope own("");
  FRun->Last = FController.Machine().Snapshot();
  FRun->Report = FWatch.Report();
  if (const auto job = std::exchange(FJob, nullptr)) FRun->Result = job->Finish(FRun->Id, FRun->Report);
  FRun->EndUnixMs = RealUnixMs();
  FPhase = TPhase::Idle;
  TRunRecordPtr record = std::exchange(FRun, nullptr);
  LogMsg(lkInfo, 0,
         Format(Tr("run %llu: %s"), static_cast<unsigned long long>(record->Id), ClosingLine(record->Report).c_str()),
         "TPHost");
  if (FCurrentTold) FCurrentTold();
  FEvents.Add(evRun, [head = RunHeadJson(*record)] {
    auto json = head;
    json["event"] = "ended";
    return json;
  });
  Keep(record);
}

void TRunner::Keep(const TRunRecordPtr& record) {
  FRecords.push_back(record);
  std::size_t bytes = 0;
  for (const TRunRecordPtr& kept : FRecords) bytes += kept->Bytes();
  while (FRecords.size() > kKept || (bytes > kKeptBytes && FRecords.size() > 1)) {
    bytes -= FRecords.front()->Bytes();
    FRecords.pop_front();
  }
  for (const auto& told : FEnded) told(record);
}

void TRunner::Close() {
  if (FPhase != TPhase::Idle) Finish();
}

// --- attendance ---

void TRunner::Attend(std::uint64_t connection) {
  if (FPhase == TPhase::Idle || FRun->Detached || connection == 0) return;
  FAttender = connection;
  FAloneAt = FConnections.contains(connection) ? 0 : RealMs();
}

void TRunner::Disconnected(std::uint64_t connection) {
  FConnections.erase(connection);
  if (FAttender == connection && FAloneAt == 0) FAloneAt = RealMs();
}

std::optional<std::uint64_t> TRunner::AloneMs() const {
  if (FPhase != TPhase::Runs || FAttender == 0 || FAloneAt == 0) return std::nullopt;
  const std::uint64_t now = RealMs();
  return now - std::min(std::max(FAloneAt, FSignAt), now);
}

void TRunner::WatchAttendance() {
  const auto alone = AloneMs();
  if (!alone || *alone < kAttendMs) return;
  FAttender = 0;
  FAloneAt = 0;
  FWatch.StopAsked(Tr("nobody attends"));
  FController.Framework().Stop(Tr("nobody attends"));
}

void TRunner::Show(TStatus& status) const {
  if (FPhase == TPhase::Idle) return;
  status.Run = FRun->Id;
  status.Procedure = FRun->Procedure;
  status.Starter = FRun->Starter.Name;
  status.RunMs = status.MachineMs - std::min(FWatch.StartMs(), status.MachineMs);
  for (const TStepSpan& step : FSteps.Open()) status.Path.push_back({step.Number, step.Count, step.Command, step.Desc});
  if (const auto alone = AloneMs()) status.NobodyMs = kAttendMs - std::min(*alone, kAttendMs);
}

}  // namespace ixocontroller
