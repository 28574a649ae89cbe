#include "controller/service/Queue.h"

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "controller/history/HistoryRun.h"
#include "controller/process/JsonFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr std::size_t kMostQueueBytes = 3U << 20U;  // below what is read back
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
  if (const TJson& problem = json.at("problem"); problem.is_object()) job.Problem = ProblemFromJson(problem);
  return job;
}

// What the answer does with the job; throws EProblem where it is none.
TJobThen ChoiceOf(const TJob& job, const std::string& answer) {
  if (job.State != jsAsks && job.State != jsFailed) throw EProblem(pbRefused, Tr("the job asks nothing now"));
  const auto& choices = ChoicesOf(job);
  const auto choice = std::ranges::find(choices, answer, &TJobChoice::Answer);
  if (choice != choices.end()) return choice->Then;
  const std::string known = Joined(choices, &TJobChoice::Answer);
  throw EProblem(pbRequest, {.What = Format(Tr("\"%s\" is no answer"), answer.c_str()),
                             .Where = {},
                             .Why = {},
                             .Remedy = Format(Tr("answer one of: %s"), known.c_str())});
}

TProblem ProblemOf(const std::exception_ptr& failed) try {
  std::rethrow_exception(failed);
} catch (const EProblem& problem) {
  return problem.Problem;
} catch (...) {
  return {.What = DescribeException(std::current_exception())};
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

TQueue::TQueue(const std::filesystem::path& folder, TSeam seam) : FFile(folder / kQueueFile), FSeam(std::move(seam)) {
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
      for (const TJson& job : read->at("jobs")) FNow.Jobs.push_back(JobOf(job));
      for (const TJson& job : read->at("ended")) FNow.Ended.push_back(JobOf(job));
      FNow.LastId = read->at("last").get<std::uint64_t>();
    } catch (const EProblem& problem) {
      FUnreadable = problem.Problem;
    } catch (const std::exception&) {
      FNow = {};
      FUnreadable = TProblem{.What = Tr("the file is no queue of this version"), .Where = FFile.string()};
    }
  }
  if (FUnreadable) {
    FWhy = {[problem = *FUnreadable] { return problem; }, FSeam.Language()};
  } else if (!FNow.Jobs.empty()) {
    FWhy = {[] { return TProblem{.What = Tr("the controller was started again, and nothing starts by itself")}; }, {}};
    for (TJob& job : FNow.Jobs) {
      if (job.State == jsAsks) job.State = jsWaits;
      if (job.State != jsRuns) continue;
      job.State = jsFailed;
      job.Outcome = kOutcomeLost;
    }
  }
}

// --- what the file holds ---

TJson TQueue::TContent::Json() const {
  TJson json{{"version", kVersion}, {"last", LastId}, {"jobs", TJson::array()}, {"ended", TJson::array()}};
  const auto add = [](const TJob& job, TJson& to) { to.push_back(JobJson(job)), to.back()["content"] = job.Content; };
  for (const TJob& job : Jobs) add(job, json["jobs"]);
  for (const TJob& job : Ended) add(job, json["ended"]);
  return json;
}

TJob& TQueue::TContent::At(std::uint64_t id) {
  const auto found = std::ranges::find(Jobs, id, &TJob::Id);
  if (found == Jobs.end())
    throw EProblem(pbRequest, Format(Tr("there is no job %llu"), static_cast<unsigned long long>(id)));
  return *found;
}

void TQueue::TContent::Leave(std::uint64_t id, TJobState state) {
  const auto job = std::ranges::find(Jobs, id, &TJob::Id);
  job->State = state;
  job->Content = nullptr;
  Ended.push_back(std::move(*job));
  Jobs.erase(job);
  if (Ended.size() > kJobsShown) Ended.pop_front();
}

// --- how it changes ---

void TQueue::Change(TApply apply, TDiskDone done) {
  FChanges.push_back({std::move(apply), std::move(done), ThreadLanguage()});
  WriteNext();
}

void TQueue::WriteNext() {
  while (!FWriting && !FChanges.empty()) {
    TChange change = std::move(FChanges.front());
    FChanges.pop_front();
    const TLanguageScope language(change.Language);
    TContent next = FNow;
    try {
      if (FUnreadable) throw EProblem(pbUnusable, *FUnreadable);
      if (change.Apply) (void)change.Apply(next);
    } catch (...) {
      change.Done(0, std::current_exception());
      continue;
    }
    FWriting = true;
    const auto saved =
        std::make_shared<TResult<>>(TProblem{.What = Tr("the file cannot be written"), .Where = FFile.string()});
    FSeam.OnDisk([file = FFile, json = next.Json(), saved] { *saved = SaveJsonFile(file, json); },
                 [this, change = std::move(change), saved] {
                   FWriting = false;
                   Written(change, *saved);
                   WriteNext();
                 });
  }
}

// Once more, as something may have happened since the copy was made.
void TQueue::Written(const TChange& change, const TResult<>& saved) {
  const TLanguageScope language(change.Language);
  std::uint64_t job = 0;
  try {
    if (!saved) throw EProblem(pbUnusable, Retold(saved.Problem()));
    if (change.Apply) job = change.Apply(FNow);
  } catch (...) {
    return change.Done(0, std::current_exception());
  }
  if (change.Apply) FSeam.Changed();
  change.Done(job, nullptr);
}

void TQueue::Happened() {
  FSeam.Changed();
  Change({}, [this](std::uint64_t, const std::exception_ptr& failed) {
    if (failed) HoldFor(ProblemOf(failed));
  });
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
  const auto found = std::ranges::find(FNow.Jobs, id, &TJob::Id);
  return found == FNow.Jobs.end() ? nullptr : &*found;
}

// --- what is asked of it ---

void TQueue::Add(TJobAsked asked, const TAsker& who, TDiskDone done) {
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
  const auto add = [job](TContent& now) {
    if (now.Jobs.size() >= kMostJobs)
      throw EProblem(pbRefused, Format(Tr("the queue is full: %zu jobs"), now.Jobs.size()));
    std::size_t bytes = job.Content.dump().size();
    for (const TJob& other : now.Jobs) bytes += other.Content.dump().size();
    if (bytes > kMostQueueBytes) throw EProblem(pbRefused, Tr("the queue is full: its jobs are too large together"));
    now.Jobs.push_back(job);
    return now.Jobs.back().Id = ++now.LastId;
  };
  Change(add, std::move(done));
}

void TQueue::Remove(std::uint64_t id, const TAsker& who, TDiskDone done) {
  const auto remove = [id, name = who.Name](TContent& now) {
    TJob& job = now.At(id);
    if (job.State == jsRuns)
      throw EProblem(pbRefused, {.What = Tr("the job runs"), .Where = {}, .Why = {}, .Remedy = Tr("stop it first")});
    job.AnsweredBy = name;
    now.Leave(id, jsRemoved);
    return id;
  };
  Change(remove, std::move(done));
}

void TQueue::Answer(std::uint64_t id, const std::string& answer, const TAsker& who, TDiskDone done) {
  if (const TJob* const job = Find(id); job && ChoiceOf(*job, answer) == jtHold) {
    Hold(who);
    return done(id, nullptr);
  }
  const auto take = [id, answer, name = who.Name](TContent& now) {
    TJob& job = now.At(id);
    const TJobThen then = ChoiceOf(job, answer);
    job.AnsweredBy = name;
    if (job.State == jsAsks) job.Answer = answer;
    job.Outcome.clear();
    job.Problem.reset();
    job.State = jsWaits;
    if (then == jtSkip) now.Leave(id, jsSkipped);
    return id;
  };
  Change(take, std::move(done));
}

void TQueue::Start(const TAsker&) {
  if (FUnreadable) throw EProblem(pbUnusable, *FUnreadable);
  if (FNow.Jobs.empty()) throw EProblem(pbRefused, Tr("the queue is empty"));
  if (FNow.Jobs.front().State == jsFailed)
    throw EProblem(pbRefused, {.What = Tr("the first job has not succeeded"),
                               .Where = FNow.Jobs.front().Name,
                               .Why = {},
                               .Remedy = Format(Tr("answer it: %s or %s"), kAgain, kSkip)});
  FHeld = false;
  FEnds = FSeam.Ends();
  FSeam.Changed();
}

void TQueue::Hold(const TAsker& who) {
  HoldFor([name = who.Name] { return TProblem{.What = Format(Tr("%s holds it"), name.c_str())}; });
}

// --- what it does ---

void TQueue::Round() {
  if (FHeld || EndAsked() || FWriting) return;
  if (FNow.Jobs.empty()) return HoldFor([] { return TProblem{.What = Tr("every job has come to its end")}; });
  TJob& job = FNow.Jobs.front();
  if (job.State != jsWaits || FSeam.Busy()) return;
  if (job.Question.empty() || !job.Answer.empty()) return Begin();
  job.State = jsAsks;
  Happened();
}

// Whatever goes wrong holds the queue with the job in its place. What runs is in the file before it moves anything.
void TQueue::Begin() {
  try {
    std::vector<TMotionCall> calls = FSeam.Calls(FNow.Jobs.front());
    FSeam.Ready(calls).OrThrow(pbRefused);
    const auto mark = [id = FNow.Jobs.front().Id](TContent& now) {
      now.At(id).State = jsRuns;
      return id;
    };
    Change(mark, [this, calls = std::move(calls)](std::uint64_t, const std::exception_ptr& failed) {
      if (failed) return HoldFor(ProblemOf(failed));
      Launch(calls);
    });
  } catch (...) {
    HoldFor(ProblemOf(std::current_exception()));
  }
}

// While it was written somebody may have held the queue, or begun something, or the machine has changed.
void TQueue::Launch(std::vector<TMotionCall> calls) {
  if (FHeld || FSeam.Busy()) return PutBack();
  TJob& job = FNow.Jobs.front();
  try {
    FSeam.Ready(calls).OrThrow(pbRefused);
    if (EndAsked()) return PutBack();  // what comes behind that stops what is started
    job.Run = FSeam.Start(job, std::move(calls), FEnds).OrThrow(pbRefused);
    FSeam.Changed();
  } catch (...) {
    HoldFor(ProblemOf(std::current_exception()));
    PutBack();
  }
}

bool TQueue::EndAsked() {
  if (FSeam.Ends() == FEnds) return false;
  HoldFor([] {
    return TProblem{.What = Tr("a stop or a pause was asked for"),
                    .Where = {},
                    .Why = {},
                    .Remedy = Tr("start the queue again when the machine is ready")};
  });
  return true;
}

void TQueue::PutBack() {
  FNow.Jobs.front().State = jsWaits;
  Happened();
}

void TQueue::RunEnded(std::uint64_t run, std::string_view outcome, const std::optional<TProblem>& problem) {
  if (FNow.Jobs.empty() || FNow.Jobs.front().State != jsRuns || FNow.Jobs.front().Run != run) return;
  TJob& job = FNow.Jobs.front();
  job.Outcome = outcome;
  if (outcome == kOutcomeSuccess) {
    FNow.Leave(job.Id, jsDone);
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
  const std::deque<TJob>& jobs = FNow.Jobs;
  if (jobs.empty() || (jobs.front().State != jsAsks && jobs.front().State != jsFailed)) return nullptr;
  return ShownJob(jobs.front());
}

TJson TQueue::Show() const {
  TJson json{{"held", FHeld}, {"why", nullptr}, {"lang", nullptr}};
  if (FHeld) json["why"] = ProblemJson(FWhy.Problem());
  if (FHeld && !FWhy.Language.empty()) json["lang"] = FWhy.Language;
  std::int64_t together = 0;
  std::size_t unknown = 0;
  json["jobs"] = TJson::array();
  for (const TJob& job : FNow.Jobs) {
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
  for (const TJob& job : FNow.Ended) json["ended"].push_back(ShownJob(job));
  return json;
}

}  // namespace ixocontroller
