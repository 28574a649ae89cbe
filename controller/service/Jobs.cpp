#include "controller/service/Jobs.h"

#include <algorithm>
#include <utility>

#include "controller/procedures/Calls.h"
#include "controller/procedures/SequenceFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/StateFiles.h"
#include "controller/service/ReadyCheck.h"
#include "controller/service/Service.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kJobLimitMs = 86'400'000;  // a day

THistoryRun HistoryOf(const TRunRecord& record) {
  THistoryRun run;
  run.Id = static_cast<std::int64_t>(record.Id);
  run.Name = record.Procedure;
  run.Kind = record.Sequence ? kKindSequence : record.Calls.empty() ? kKindCalibration : kKindProcedure;
  run.Params = record.Params.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  run.Who = record.Starter.Name;
  run.Detached = record.Detached;
  run.Started = UtcText(record.StartUnixMs);
  run.Language = record.Language;
  if (record.EndUnixMs == 0) return run;
  const TRunReport& report = record.Report;
  run.Ended = UtcText(record.EndUnixMs);
  run.Outcome = report.End.Name;
  run.DurationMs = static_cast<std::int64_t>(report.DurationMs);
  run.Path = report.Path;
  run.Problem = report.Problem;
  run.StepCount = static_cast<std::int64_t>(report.Steps.size());
  for (const TStepSpan& step : report.Steps) {
    if (run.Steps.size() == kMostStepsKept) break;
    const std::uint64_t from = std::max(step.From, report.EnteredMs);
    run.Steps.push_back({step.Level, step.Number, step.Count, step.Desc,
                         static_cast<std::int64_t>(from - report.EnteredMs),
                         static_cast<std::int64_t>(step.To - from)});
  }
  const auto since = [&](std::uint64_t ms) { return static_cast<std::int64_t>(ms - std::min(ms, report.StartMs)); };
  for (const TRunAlarm& alarm : report.Alarms) {
    if (run.Alarms.size() == kMostAlarmsKept) break;
    THistoryAlarm& kept = run.Alarms.emplace_back();
    kept = {since(alarm.RaisedMs), {}, alarm.Level, alarm.Identifier, alarm.Description};
    if (alarm.ClearedMs) kept.ClearedMs = since(*alarm.ClearedMs);
  }
  return run;
}

}  // namespace

TJobs::TJobs(TService& service) : FService(service) {
  TRunner& runner = service.Runner();
  const std::filesystem::path& folder = service.Options().StateFolder;
  if (!folder.empty()) {
    FHistory = std::make_unique<TRunHistory>(folder / kRunHistoryFile);
    (void)FHistory->Open();  // logged
    FSequences = std::make_unique<TSequences>(folder);
    FQueue = std::make_unique<TQueue>(folder, Seam());
    service.OnRound([this](std::uint64_t) { FQueue->Round(); });
  }
  runner.OnBegin([this](const TRunRecord& record) -> std::uint64_t {
    const std::uint64_t id = FHistory ? static_cast<std::uint64_t>(FHistory->Begin(HistoryOf(record))) : ++FLastId;
    FContinue.Began(static_cast<std::int64_t>(id), {record.Procedure, record.Sequence, record.Calls}, record.First);
    return id;
  });
  runner.OnEnd([this](const TRunRecordPtr& record) {
    const TRunReport& report = record->Report;
    TTryAll tryAll;  // a queue that does not hear of it would wait for ever
    tryAll([&] {
      if (FHistory) FHistory->End(HistoryOf(*record));
    });
    tryAll(
        [&] { FContinue.Ended(static_cast<std::int64_t>(record->Id), report.End.Name, report.Steps, record->Last); });
    tryAll([&] {
      if (FQueue) FQueue->RunEnded(record->Id, report.End.Name, report.Problem);
    });
    tryAll.Rethrow();
  });
}

TJobs::~TJobs() = default;

void TJobs::StartNoMore() {
  if (FQueue) FQueue->Close();
}

bool TJobs::Close() { return !FHistory || FHistory->Close(); }

TRunHistory& TJobs::History() {
  if (!FHistory) throw EProblem(pbUnusable, Tr("the controller has no state folder"));
  return *FHistory;
}

const TSequences& TJobs::Sequences() const {
  if (!FSequences) throw EProblem(pbUnusable, Tr("the controller has no state folder"));
  return *FSequences;
}

TQueue& TJobs::Queue() {
  if (!FQueue) throw EProblem(pbUnusable, Tr("the controller has no state folder"));
  return *FQueue;
}

// A procedure stands alone, a sequence is checked as a whole, as when they are run at once.
std::vector<TMotionCall> TJobs::CallsOf(const TJob& job) const {
  const TMachineLimits& limits = FService.Controller().Limits();
  if (job.Sequence) return ReadSequence(job.Name, job.Content.dump(), limits).Calls;
  const TProcedure& row = *AskProcedure(job.Name).OrThrow(pbRequest);
  return {CallAlone(row, TextsOf(row, job.Content), limits, "params.")};
}

TQueue::TSeam TJobs::Seam() {
  TService& service = FService;
  return {.Busy = [&service] { return service.Runner().Busy() || service.Controller().Running(); },
          .Calls = [this](const TJob& job) { return CallsOf(job); },
          .Ready = [&service](std::span<const TMotionCall> calls) { return CheckReady(service.Controller(), calls); },
          .Start =
              [&service](const TJob& job, std::vector<TMotionCall> calls, std::uint32_t ends) {
                TRunRequest run;
                run.Procedure = job.Name;
                run.Sequence = job.Sequence;
                run.Calls = std::move(calls);
                run.LimitMs = kJobLimitMs;
                run.Detached = true;
                run.Ends = ends;
                TAsker who;
                who.Name = Format("queue, job %llu (%s)", static_cast<unsigned long long>(job.Id), job.Who.c_str());
                return service.Run(std::move(run), who);
              },
          .EstimateMs = [this](const TJob& job) -> std::optional<std::int64_t> {
            if (job.Sequence) return FHistory->EstimateMs(job.Name, {});
            try {
              return FHistory->EstimateMs(job.Name, RunParams(job.Sequence, CallsOf(job)).dump());
            } catch (const EProblem&) {  // the machine has changed: it says so when its time comes
              return std::nullopt;
            }
          },
          .Changed = [this] { TellQueue(); },
          .Language = [&service] { return service.Options().Controller.Language; },
          .OnDisk = [&service](std::function<void()> work,
                               std::function<void()> then) { service.OnDisk(std::move(work), std::move(then)); },
          .Ends = [&service] { return service.Controller().Framework().EndsAsked(); }};
}

// A question is one event, however often the queue changes while it stands.
void TJobs::TellQueue() {
  if (!FQueue) return;
  nlohmann::ordered_json job = FQueue->Asks();
  const std::string question = job.is_null() ? std::string() : job["id"].dump() + job["state"].dump();
  const bool isNew = !question.empty() && question != FToldQuestion;
  FToldQuestion = question;
  FService.Events().Add(evQueue, [held = FQueue->Held(), isNew, job = std::move(job)] {
    return nlohmann::ordered_json{{"event", isNew ? "question" : "changed"}, {"held", held}, {"job", job}};
  });
}

TResult<TContinue::TOffer> TJobs::OfferToContinue() {
  auto offer = FContinue.Offer(FService.Controller().Machine().Snapshot(), RealMs());
  if (!offer) return offer;
  if (const auto rest = FService.AtRest(); !rest) return rest.Problem();
  if (const auto ready = CheckReady(FService.Controller(), offer->Calls); !ready) return ready.Problem();
  return offer;
}

TResult<std::uint64_t> TJobs::Continue(std::string_view token, const TAsker& who) {
  auto list = FContinue.Confirm(token, FService.Controller().Machine().Snapshot(), RealMs());
  if (!list) return list.Problem();
  if (const auto ready = CheckReady(FService.Controller(), list->Calls); !ready) return ready.Problem();
  TRunRequest run;
  run.Procedure = list->Name;
  run.Sequence = list->Sequence;
  run.Calls = std::move(list->Calls);
  return FService.Run(std::move(run), who);
}

}  // namespace ixocontroller
