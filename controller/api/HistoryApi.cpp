// The history of runs: what ran, one of them, two beside each other, and how a procedure has done lately.
#include <algorithm>
#include <chrono>
#include <future>

#include "controller/alarms/RunAlarms.h"
#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/history/RunArchive.h"
#include "controller/service/Runner.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::size_t kUsualRuns = 50;
constexpr std::size_t kMostRuns = 1000;
constexpr std::size_t kUsualTrend = 20;
constexpr std::chrono::seconds kInterfaceWithin{2};
constexpr std::uint64_t kMostRun = 1ULL << 53U;  // a number of JSON

std::uint64_t WholeOr(const TApiRequest& request, const char* name, std::uint64_t least, std::uint64_t most,
                      std::uint64_t otherwise) {
  const std::string text = QueryOf(request, name);
  return text.empty() ? otherwise : WholeNumber(text, name, least, most);
}

// As the answers about runs at hand have it.
TJson HistoryHeadJson(const THistoryRun& run) {
  TJson json{{"id", run.Id},
             {"procedure", run.Name},
             {"kind", run.Kind},
             {"sequence", run.Kind == kKindSequence},
             {"params", TJson::parse(run.Params, nullptr, false)},
             {"startedBy", run.Who},
             {"detached", run.Detached},
             {"start", run.Started},
             {"end", nullptr},
             {"outcome", nullptr},
             {"durationMs", nullptr},
             {"lang", run.Language},
             {"problem", nullptr}};
  if (json["params"].is_discarded()) json["params"] = nullptr;
  if (run.Runs()) return json;
  json["end"] = run.Ended;
  json["outcome"] = run.Outcome;
  json["success"] = run.Outcome == kOutcomeSuccess;
  if (run.Outcome == kOutcomeLost)
    json["problem"] = ProblemJson({.What = Tr("the controller ended while it ran")});
  else
    json["durationMs"] = run.DurationMs;
  if (run.Problem) json["problem"] = ProblemJson(RetoldProblem(*run.Problem));
  return json;
}

TJson HistoryStepJson(const THistoryStep& step) {
  return {{"level", step.Level}, {"number", step.Number}, {"count", step.Count}, {"description", Retold(step.Desc)}};
}

TJson HistoryRunJson(const THistoryRun& run) {
  TJson json = HistoryHeadJson(run);
  json["path"] = run.Path;
  json["stepCount"] = run.StepCount;
  json["steps"] = TJson::array();
  for (const THistoryStep& step : run.Steps) {
    TJson one = HistoryStepJson(step);
    one["startMs"] = step.FromMs;
    one["durationMs"] = step.Ms;
    json["steps"].push_back(std::move(one));
  }
  std::vector<TRunAlarm> alarms;
  for (const THistoryAlarm& kept : run.Alarms) {
    TRunAlarm& alarm = alarms.emplace_back();
    alarm.RaisedMs = static_cast<std::uint64_t>(kept.AtMs);
    if (kept.ClearedMs) alarm.ClearedMs = static_cast<std::uint64_t>(*kept.ClearedMs);
    alarm.Level = static_cast<std::uint8_t>(kept.Level);
    alarm.Identifier = kept.Identifier;
    alarm.Description = kept.Desc;
    alarm.Lang = run.Language;
    alarm.Define();
  }
  json["alarms"] = AlarmsJson(alarms, 0);
  return json;
}

// The file is there from the first run on.
std::optional<TRunArchive> ArchiveOf(const TRunHistory& history) {
  std::error_code error;
  if (!std::filesystem::exists(history.File(), error)) return std::nullopt;
  return std::optional<TRunArchive>(std::in_place, history.File());
}

// What is not in the file yet is newer than what is.
std::optional<THistoryRun> FindInHistory(const TRunHistory& history, std::int64_t id) {
  const auto waiting = history.Waiting();
  const auto found = std::ranges::find(waiting.rbegin(), waiting.rend(), id, &THistoryRun::Id);
  if (found != waiting.rend()) return *found;
  auto archive = ArchiveOf(history);
  return archive ? archive->Find(id) : std::nullopt;
}

THistoryRun HistoryRunOf(TService& service, const TApiRequest& request, const char* name) {
  const auto id = static_cast<std::int64_t>(WholeNumber(QueryOf(request, name), name, 1, kMostRun));
  if (auto run = FindInHistory(service.Jobs().History(), id)) return *std::move(run);
  throw EProblem(pbRequest, {.What = Tr("there is no such run"), .Where = name, .Why = {}, .Remedy = {}});
}

TApiReply ListHistory(TService& service, const TApiRequest& request) {
  TRunHistory& history = service.Jobs().History();
  THistoryFilter filter;
  filter.Limit = WholeOr(request, "limit", 1, kMostRuns, kUsualRuns);
  filter.Before = static_cast<std::int64_t>(WholeOr(request, "before", 1, kMostRun, 0));
  filter.Name = QueryOf(request, "name");
  filter.Outcome = QueryOf(request, "outcome");
  if (const std::string since = QueryOf(request, "since"); !since.empty())
    filter.Since = FormatUtc(AskedMoment(since, "since"));
  std::vector<THistoryRun> runs;
  const auto add = [&](std::vector<THistoryRun> more) {  // from what is newer to what is older
    for (auto run = more.rbegin(); run != more.rend(); ++run)
      if (filter.Fits(*run) && std::ranges::find(runs, run->Id, &THistoryRun::Id) == runs.end())
        runs.push_back(std::move(*run));
  };
  add(history.Waiting());
  add(history.Running());
  TApiReply reply;
  reply.Body = {{"runs", TJson::array()}, {"trouble", nullptr}};
  if (history.Failing()) reply.Body["trouble"] = ProblemJson(history.Trouble());
  try {
    if (auto archive = ArchiveOf(history)) {
      auto stored = archive->List(filter);
      std::ranges::reverse(stored);
      add(std::move(stored));
    }
  } catch (const EProblem& problem) {  // those at hand are shown all the same
    reply.Body["trouble"] = ProblemJson(problem.Problem);
  }
  std::ranges::sort(runs, std::greater<>{}, &THistoryRun::Id);
  if (runs.size() > filter.Limit) runs.resize(filter.Limit);
  for (const THistoryRun& run : runs) reply.Body["runs"].push_back(HistoryHeadJson(run));
  return reply;
}

// One that the runner has at hand has its whole report; the interface thread knows.
std::optional<TJson> RunAtHand(TService& service, std::uint64_t id, const std::string& language) {
  const auto found = std::make_shared<std::promise<std::optional<TJson>>>();
  auto future = found->get_future();
  const bool posted = service.Post([&service, id, language, found] {
    const TLanguageScope scope(language);
    const TRunRecord* const current = service.Runner().Current();
    const TRunRecordPtr ended = service.Runner().Find(id);
    if (current && current->Id == id)
      found->set_value(service.Runner().CurrentJson());
    else
      found->set_value(ended ? std::optional(ixocontroller::RunJson(*ended)) : std::nullopt);
  });
  if (!posted || future.wait_for(kInterfaceWithin) != std::future_status::ready) return std::nullopt;
  return future.get();
}

TApiReply ShowHistoryRun(TService& service, const TApiRequest& request) {
  const std::uint64_t id = WholeNumber(request.Params.at("id"), "id", 1, kMostRun);
  TApiReply reply;
  if (auto json = RunAtHand(service, id, request.Language)) {
    reply.Body = *std::move(json);
    return reply;
  }
  const auto run = FindInHistory(service.Jobs().History(), static_cast<std::int64_t>(id));
  if (!run) return Fail(404, {.What = Tr("there is no such run"), .Where = request.Path, .Why = {}, .Remedy = {}});
  reply.Body = HistoryRunJson(*run);
  return reply;
}

TApiReply CompareHistory(TService& service, const TApiRequest& request) {
  const THistoryRun a = HistoryRunOf(service, request, "a");
  const THistoryRun b = HistoryRunOf(service, request, "b");
  TApiReply reply;
  reply.Body = {{"a", HistoryHeadJson(a)}, {"b", HistoryHeadJson(b)}, {"steps", TJson::array()}};
  for (const TStepPair& pair : CompareSteps(a.Steps, b.Steps)) {
    TJson one = HistoryStepJson(pair.Step);
    one["aMs"] = pair.A ? TJson(*pair.A) : TJson();
    one["bMs"] = pair.B ? TJson(*pair.B) : TJson();
    one["differenceMs"] = pair.A && pair.B ? TJson(*pair.B - *pair.A) : TJson();
    reply.Body["steps"].push_back(std::move(one));
  }
  return reply;
}

TApiReply ShowHistoryTrend(TService& service, const TApiRequest& request) {
  const std::string name = QueryOf(request, "name");
  if (name.empty()) throw EProblem(pbRequest, {.What = Tr("it is missing"), .Where = "name", .Why = {}, .Remedy = {}});
  const std::size_t last = WholeOr(request, "last", 1, kMostRuns, kUsualTrend);
  TApiReply reply;
  reply.Body = {{"procedure", name}, {"runs", TJson::array()}, {"medianMs", nullptr}, {"steps", TJson::array()}};
  auto archive = ArchiveOf(service.Jobs().History());
  if (!archive) return reply;
  std::vector<std::int64_t> times;
  for (const THistoryRun& run : archive->Trend(name, last)) {
    times.push_back(run.DurationMs);
    reply.Body["runs"].push_back({{"id", run.Id},
                                  {"start", run.Started},
                                  {"durationMs", run.DurationMs},
                                  {"params", HistoryHeadJson(run)["params"]}});
  }
  if (!times.empty()) reply.Body["medianMs"] = MedianMs(times);
  for (const TStepFigures& step : archive->Steps(name, last))
    reply.Body["steps"].push_back({{"level", step.Level},
                                   {"number", step.Number},
                                   {"description", Retold(step.Desc)},
                                   {"times", step.Times},
                                   {"medianMs", step.MedianMs},
                                   {"worstMs", step.WorstMs},
                                   {"worstRun", step.WorstRun}});
  return reply;
}

constexpr TApiRoute kHistoryRoutes[] = {
    {"GET", "/api/v1/runs", roNone, false, false, &ListHistory, "Runs, the newest first, the one that runs on top",
     true},
    {"GET", "/api/v1/runs/{id}", roNone, false, false, &ShowHistoryRun,
     "A run with its steps; its report while it is at hand", true},
    {"GET", "/api/v1/runs/compare", roNone, false, false, &CompareHistory, "Two runs step by step", true},
    {"GET", "/api/v1/runs/trend", roNone, false, false, &ShowHistoryTrend,
     "How long a procedure has taken lately, and its steps, the slowest first", true},
};

}  // namespace

std::span<const TApiRoute> HistoryRoutes() { return kHistoryRoutes; }

}  // namespace ixocontroller
