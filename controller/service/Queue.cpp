#include "controller/service/Queue.h"

#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>
#include <utility>

#include "controller/history/HistoryRun.h"
#include "controller/service/JsonFile.h"
#include "controller/service/RealTime.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr std::size_t kMostBytes = 3U << 20U;  // below what is read back
constexpr std::array kJobWords{"waits", "asks", "runs", "failed", "done", "skipped", "removed"};
constexpr std::array kThenWords{"run", "skip", "hold"};
constexpr const char* kAgain = "again";
constexpr const char* kSkip = "skip";

std::vector<TJobChoice> UsualChoices() { return {{"run", jtRun}, {kSkip, jtSkip}, {"hold", jtHold}}; }

const std::vector<TJobChoice>& ChoicesOf(const TJob& job) {
  static const std::vector<TJobChoice> failed{{kAgain, jtRun}, {kSkip, jtSkip}};
  return job.State == jsFailed ? failed : job.Choices;
}

template <class Words>
std::size_t IndexOf(const Words& words, std::string_view word) {
  const auto found = std::ranges::find(words, word);
  if (found == words.end()) throw std::out_of_range(std::string(word));
  return static_cast<std::size_t>(found - words.begin());
}

TJson ChoicesJson(const std::vector<TJobChoice>& choices) {
  TJson json = TJson::array();
  for (const TJobChoice& choice : choices)
    json.push_back({{"answer", choice.Answer}, {"then", kThenWords[static_cast<std::size_t>(choice.Then)]}});
  return json;
}

TJson JobJson(const TJob& job) {
  return {{"id", job.Id},
          {"name", job.Name},
          {"sequence", job.Sequence},
          {"note", job.Note},
          {"addedBy", job.Who},
          {"added", job.Added},
          {"state", JobWord(job.State)},
          {"question", job.Question},
          {"choices", ChoicesJson(job.Choices)},
          {"answer", job.Answer},
          {"answeredBy", job.AnsweredBy},
          {"run", job.Run},
          {"outcome", job.Outcome},
          {"problem", job.Problem ? ProblemJson(*job.Problem) : TJson()}};
}

TJob JobOf(const TJson& json) {
  TJob job;
  job.Id = json.at("id").get<std::uint64_t>();
  job.Name = json.at("name").get<std::string>();
  job.Sequence = json.at("sequence").get<bool>();
  job.Content = json.at("content");
  job.Note = json.at("note").get<std::string>();
  job.Who = json.at("addedBy").get<std::string>();
  job.Added = json.at("added").get<std::string>();
  job.State = static_cast<TJobState>(IndexOf(kJobWords, json.at("state").get<std::string>()));
  job.Question = json.at("question").get<std::string>();
  for (const TJson& choice : json.at("choices"))
    job.Choices.push_back({choice.at("answer").get<std::string>(),
                           static_cast<TJobThen>(IndexOf(kThenWords, choice.at("then").get<std::string>()))});
  job.Answer = json.at("answer").get<std::string>();
  job.AnsweredBy = json.at("answeredBy").get<std::string>();
  job.Run = json.at("run").get<std::uint64_t>();
  job.Outcome = json.at("outcome").get<std::string>();
  if (const TJson& p = json.at("problem"); p.is_object())
    job.Problem = TProblem{p.at("what").get<std::string>(), p.at("where").get<std::string>(),
                           p.at("why").get<std::string>(), p.at("remedy").get<std::string>()};
  return job;
}

// A job that ran when its controller ended has nothing else that says why.
std::optional<TProblem> ProblemOf(const TJob& job) {
  if (job.Outcome == kOutcomeLost) return TProblem{.What = Tr("the controller ended while it ran")};
  return job.Problem;
}

TJson ShownJob(const TJob& job) {
  TJson json = JobJson(job);
  const std::optional<TProblem> problem = ProblemOf(job);
  json["problem"] = problem ? ProblemJson(Retold(*problem)) : TJson();
  json["params"] = job.Sequence ? TJson() : job.Content;
  const bool asks = job.State == jsAsks || job.State == jsFailed;
  json["choices"] = ChoicesJson(asks ? ChoicesOf(job) : std::vector<TJobChoice>());
  return json;
}

}  // namespace

const char* JobWord(TJobState state) { return kJobWords[static_cast<std::size_t>(state)]; }

TQueue::TQueue(std::filesystem::path folder, TSeam seam)
    : FFile(std::move(folder) / "queue.json"), FSeam(std::move(seam)) {
  Read();
}

void TQueue::Read() {
  FWhy = {[] { return TProblem{.What = Tr("it was not started")}; }, {}};
  const TResult<TJson> read = ReadJsonFile(FFile);
  if (!read) {
    FUnreadable = read.Problem();
  } else if (!read->empty()) {
    try {
      if (read->at("version").get<int>() > kVersion)
        throw EProblem(
            pbUnusable,
            {.What = Tr("the queue was written by a newer version"), .Where = FFile.string(), .Why = {}, .Remedy = {}});
      for (const TJson& job : read->at("jobs")) FJobs.push_back(JobOf(job));
      for (const TJson& job : read->at("ended")) FEnded.push_back(JobOf(job));
      FLastId = read->at("last").get<std::uint64_t>();
    } catch (const EProblem& problem) {
      FUnreadable = problem.Problem;
    } catch (const std::exception&) {
      FJobs.clear();
      FEnded.clear();
      FUnreadable = TProblem{.What = Tr("the file is no queue of this version"), .Where = FFile.string()};
    }
  }
  if (FUnreadable) {
    FWhy = {[problem = *FUnreadable] { return problem; }, FSeam.Language()};
  } else if (!FJobs.empty()) {
    FWhy = {[] { return TProblem{.What = Tr("the controller was started again, and nothing starts by itself")}; }, {}};
    for (TJob& job : FJobs) {
      if (job.State == jsAsks) job.State = jsWaits;
      if (job.State != jsRuns) continue;
      job.State = jsFailed;
      job.Outcome = kOutcomeLost;
    }
  }
}

TResult<> TQueue::Save() const {
  TJson json{{"version", kVersion}, {"last", FLastId}, {"jobs", TJson::array()}, {"ended", TJson::array()}};
  const auto add = [](const TJob& job, TJson& to) { to.push_back(JobJson(job)), to.back()["content"] = job.Content; };
  for (const TJob& job : FJobs) add(job, json["jobs"]);
  for (const TJob& job : FEnded) add(job, json["ended"]);
  return SaveJsonFile(FFile, json);
}

void TQueue::Change(const std::function<void()>& change) {
  if (FUnreadable) throw EProblem(pbUnusable, *FUnreadable);
  const auto before = std::tuple(FJobs, FEnded, FLastId);
  change();
  if (const auto saved = Save(); !saved) {
    std::tie(FJobs, FEnded, FLastId) = before;
    throw EProblem(pbUnusable, saved.Problem());
  }
  FSeam.Changed();
}

void TQueue::Happened() {
  if (const auto saved = Save(); !saved) HoldFor(saved.Problem());
  FSeam.Changed();
}

void TQueue::HoldFor(std::function<TProblem()> why, std::string language) {
  FHeld = true;
  FWhy = {std::move(why), std::move(language)};
  FSeam.Changed();
}

void TQueue::HoldFor(const TProblem& why) {
  HoldFor([why] { return Retold(why); }, FSeam.Language());
}

const TJob* TQueue::Find(std::uint64_t id) const {
  const auto found = std::ranges::find(FJobs, id, &TJob::Id);
  return found == FJobs.end() ? nullptr : &*found;
}

TJob& TQueue::At(std::uint64_t id) {
  const auto found = std::ranges::find(FJobs, id, &TJob::Id);
  if (found == FJobs.end())
    throw EProblem(pbRequest, Format(Tr("there is no job %llu"), static_cast<unsigned long long>(id)));
  return *found;
}

void TQueue::Leave(std::uint64_t id, TJobState state) {
  const auto job = std::ranges::find(FJobs, id, &TJob::Id);
  job->State = state;
  job->Content = nullptr;
  FEnded.push_back(std::move(*job));
  FJobs.erase(job);
  if (FEnded.size() > kJobsShown) FEnded.pop_front();
}

// --- what is asked of it ---

std::uint64_t TQueue::Add(TJobAsked asked, const TAsker& who) {
  TJob job;
  job.Name = std::move(asked.Name);
  job.Sequence = asked.Sequence;
  job.Content = std::move(asked.Content);
  job.Note = std::move(asked.Note);
  job.Question = std::move(asked.Question);
  if (!job.Question.empty()) job.Choices = asked.Choices.empty() ? UsualChoices() : std::move(asked.Choices);
  job.Who = who.Name;
  job.Added = UtcText(RealUnixMs());
  if (std::ranges::find(job.Choices, std::string(), &TJobChoice::Answer) != job.Choices.end() ||
      job.Choices.size() > kMostChoices)
    throw EProblem(pbRequest, Format(Tr("a question has at most %zu choices, none of them empty"), kMostChoices));
  (void)FSeam.Calls(job);  // throws what is wrong with it
  if (FJobs.size() >= kMostJobs) throw EProblem(pbRefused, Format(Tr("the queue is full: %zu jobs"), FJobs.size()));
  std::size_t bytes = job.Content.dump().size();
  for (const TJob& other : FJobs) bytes += other.Content.dump().size();
  if (bytes > kMostBytes) throw EProblem(pbRefused, Tr("the queue is full: its jobs are too large together"));
  Change([&] {
    job.Id = ++FLastId;
    FJobs.push_back(job);
  });
  return job.Id;
}

void TQueue::Remove(std::uint64_t id, const TAsker& who) {
  if (At(id).State == jsRuns)
    throw EProblem(pbRefused, {.What = Tr("the job runs"), .Where = {}, .Why = {}, .Remedy = Tr("stop it first")});
  Change([&] {
    At(id).AnsweredBy = who.Name;
    Leave(id, jsRemoved);
  });
}

void TQueue::Answer(std::uint64_t id, std::string_view answer, const TAsker& who) {
  const TJob& job = At(id);
  if (job.State != jsAsks && job.State != jsFailed) throw EProblem(pbRefused, Tr("the job asks nothing now"));
  const auto& choices = ChoicesOf(job);
  const auto choice = std::ranges::find(choices, answer, &TJobChoice::Answer);
  if (choice == choices.end()) {
    std::string known;
    for (const TJobChoice& one : choices) known += (known.empty() ? "" : ", ") + one.Answer;
    throw EProblem(pbRequest, {.What = Format(Tr("\"%s\" is no answer"), std::string(answer).c_str()),
                               .Where = {},
                               .Why = {},
                               .Remedy = Format(Tr("answer one of: %s"), known.c_str())});
  }
  const TJobThen then = choice->Then;
  if (then == jtHold) return Hold(who);
  Change([&] {
    TJob& changed = At(id);
    changed.AnsweredBy = who.Name;
    if (changed.State == jsAsks) changed.Answer = answer;
    changed.Outcome.clear();
    changed.Problem.reset();
    changed.State = jsWaits;
    if (then == jtSkip) Leave(id, jsSkipped);
  });
}

void TQueue::Start(const TAsker&) {
  if (FUnreadable) throw EProblem(pbUnusable, *FUnreadable);
  if (FJobs.empty()) throw EProblem(pbRefused, Tr("the queue is empty"));
  if (FJobs.front().State == jsFailed)
    throw EProblem(pbRefused, {.What = Tr("the first job has not succeeded"),
                               .Where = FJobs.front().Name,
                               .Why = {},
                               .Remedy = Format(Tr("answer it: %s or %s"), kAgain, kSkip)});
  FHeld = false;
  FSeam.Changed();
}

void TQueue::Hold(const TAsker& who) {
  HoldFor([name = who.Name] { return TProblem{.What = Format(Tr("%s holds it"), name.c_str())}; });
}

// --- what it does ---

void TQueue::Round() {
  if (FHeld) return;
  if (FJobs.empty()) return HoldFor([] { return TProblem{.What = Tr("every job has come to its end")}; });
  TJob& job = FJobs.front();
  if (job.State != jsWaits || FSeam.Busy()) return;
  if (job.Question.empty() || !job.Answer.empty()) return Begin();
  job.State = jsAsks;
  Happened();
}

// Whatever goes wrong holds the queue with the job in its place. What runs is in the file before it moves anything.
void TQueue::Begin() {
  try {
    std::vector<TMotionCall> calls = FSeam.Calls(FJobs.front());
    FSeam.Ready(calls).OrThrow(pbRefused);
    Change([&] { FJobs.front().State = jsRuns; });
    try {
      FJobs.front().Run = FSeam.Start(FJobs.front(), std::move(calls)).OrThrow(pbRefused);
    } catch (...) {
      FJobs.front().State = jsWaits;
      Happened();
      throw;
    }
    FSeam.Changed();
  } catch (const EProblem& problem) {
    HoldFor(problem.Problem);
  } catch (...) {
    HoldFor({.What = DescribeException(std::current_exception())});
  }
}

void TQueue::RunEnded(std::uint64_t run, std::string_view outcome, const std::optional<TProblem>& problem) {
  if (FJobs.empty() || FJobs.front().State != jsRuns || FJobs.front().Run != run) return;
  TJob& job = FJobs.front();
  job.Outcome = outcome;
  if (outcome == kOutcomeSuccess) {
    Leave(job.Id, jsDone);
    return Happened();
  }
  job.State = jsFailed;
  job.Problem = problem;
  HoldFor([name = job.Name, id = job.Id] {
    return TProblem{.What = Format(Tr("job %llu has not succeeded"), static_cast<unsigned long long>(id)),
                    .Where = name,
                    .Why = {},
                    .Remedy = Format(Tr("answer it: %s or %s"), kAgain, kSkip)};
  });
  Happened();
}

TJson TQueue::Asks() const {
  if (FJobs.empty() || (FJobs.front().State != jsAsks && FJobs.front().State != jsFailed)) return nullptr;
  return ShownJob(FJobs.front());
}

TJson TQueue::Show() const {
  TJson json{{"held", FHeld}, {"why", nullptr}, {"lang", nullptr}};
  if (FHeld) json["why"] = ProblemJson(FWhy.Problem());
  if (FHeld && !FWhy.Language.empty()) json["lang"] = FWhy.Language;
  std::int64_t together = 0;
  std::size_t unknown = 0;
  json["jobs"] = TJson::array();
  for (const TJob& job : FJobs) {
    TJson one = ShownJob(job);
    const auto estimate = FSeam.EstimateMs(job);
    one["estimateMs"] = estimate ? TJson(*estimate) : TJson();
    together += estimate.value_or(0);
    unknown += estimate ? 0U : 1U;
    json["jobs"].push_back(std::move(one));
  }
  json["estimateMs"] = together;
  json["withoutEstimate"] = unknown;
  json["ended"] = TJson::array();
  for (const TJob& job : FEnded) json["ended"].push_back(ShownJob(job));
  return json;
}

}  // namespace ixocontroller
