// The queue of jobs, the sequence files, and going on with a run that was ended.
#include <charconv>

#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/procedures/SequenceFile.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::size_t kMostNote = 500;
constexpr std::uint64_t kMostJob = 1ULL << 53U;  // a number of JSON

TApiReply QueueReply(TService& service) {
  TApiReply reply;
  reply.Body = service.Jobs().Queue().Show();
  return reply;
}

// The queue as it is when what is asked of it is on the disk.
TApiReply QueueReplyLater(TService& service, std::function<void(TQueue& queue, TDiskDone done)> ask) {
  TApiReply reply;
  reply.Later = [&service, ask = std::move(ask)](const TApiAnswer& answer) {
    ask(service.Jobs().Queue(), [&service, answer](std::uint64_t, const std::exception_ptr& failed) {
      answer(failed ? Fail(failed) : QueueReply(service));
    });
  };
  return reply;
}

std::string NoteOf(const TAskedBody& body, const char* name) {
  if (!body.Has(name)) return {};
  std::string text = body.Text(name);
  if (text.size() > kMostNote)
    throw EProblem(
        pbRequest,
        {.What = Format(Tr("it is longer than %zu bytes"), kMostNote), .Where = name, .Why = {}, .Remedy = {}});
  return text;
}

std::vector<TJobChoice> AskedChoices(const nlohmann::json& body) {
  const auto found = body.find("choices");
  if (found == body.end() || found->is_null()) return {};
  const auto wrong = [] {
    return EProblem(pbRequest, {.What = Tr("is no list of {\"answer\": TEXT, \"then\": \"run\", \"skip\" or \"hold\"}"),
                                .Where = "choices",
                                .Why = {},
                                .Remedy = {}});
  };
  if (!found->is_array()) throw wrong();
  std::vector<TJobChoice> choices;
  for (const auto& item : *found) {
    if (!item.is_object() || item.size() != 2 || !item.contains("answer") || !item["answer"].is_string() ||
        !item.contains("then"))
      throw wrong();
    TJobChoice choice{item["answer"].get<std::string>(), jtRun};
    if (item["then"] == "skip")
      choice.Then = jtSkip;
    else if (item["then"] == "hold")
      choice.Then = jtHold;
    else if (item["then"] != "run")
      throw wrong();
    if (choice.Answer.size() > kMostNote) throw wrong();
    choices.push_back(std::move(choice));
  }
  return choices;
}

// Null: there is such a file.
std::optional<TApiReply> NoSequence(const TSequences& files, const std::string& name) {
  if (files.Has(name)) return std::nullopt;
  return Fail(404, {.What = Tr("there is no such sequence"), .Where = name, .Why = {}, .Remedy = {}});
}

TApiReply ShowQueue(TService& service, const TApiRequest&) { return QueueReply(service); }

// A sequence is taken into the queue as its file is now.
TApiReply AddJob(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"procedure", "params", "sequence", "note", "question", "choices"});
  if (body.Has("procedure") == body.Has("sequence"))
    throw EProblem(pbRequest, Tr("either \"procedure\" or \"sequence\" says what to run"));
  TJobAsked job;
  job.Sequence = body.Has("sequence");
  job.Name = body.Text(job.Sequence ? "sequence" : "procedure");
  if (job.Sequence)
    if (auto missing = NoSequence(service.Jobs().Sequences(), job.Name)) return *std::move(missing);
  if (job.Sequence)
    job.Content = TJson::parse(service.Jobs().Sequences().Read(job.Name), nullptr, false);
  else if (body.Has("params"))
    job.Content = TJson::parse(request.Body["params"].dump());
  job.Note = NoteOf(body, "note");
  job.Question = NoteOf(body, "question");
  job.Choices = AskedChoices(request.Body);
  TApiReply reply;
  reply.Later = [&service, job, who = request.Who](const TApiAnswer& answer) {
    service.Jobs().Queue().Add(job, who, [&service, answer](std::uint64_t id, const std::exception_ptr& failed) {
      if (failed) return answer(Fail(failed));
      TApiReply added = QueueReply(service);
      added.Status = 201;
      added.Body["id"] = id;
      answer(std::move(added));
    });
  };
  return reply;
}

TApiReply StartQueue(TService& service, const TApiRequest& request) {
  service.Jobs().Queue().Start(request.Who);
  return QueueReply(service);
}

TApiReply HoldQueue(TService& service, const TApiRequest& request) {
  service.Jobs().Queue().Hold(request.Who);
  return QueueReply(service);
}

// Null: there is no such job.
const TJob* AskedJob(TService& service, const TApiRequest& request) {
  const auto id = ParseExactly<std::uint64_t>(request.Params.at("id"));
  return id && *id <= kMostJob ? service.Jobs().Queue().Find(*id) : nullptr;
}

TApiReply NoJob(const TApiRequest& request) {
  return Fail(404, {.What = Tr("there is no such job"), .Where = request.Params.at("id"), .Why = {}, .Remedy = {}});
}

TApiReply RemoveJob(TService& service, const TApiRequest& request) {
  const TJob* const job = AskedJob(service, request);
  if (!job) return NoJob(request);
  return QueueReplyLater(service, [id = job->Id, who = request.Who](TQueue& queue, TDiskDone done) {
    queue.Remove(id, who, std::move(done));
  });
}

TApiReply AnswerJob(TService& service, const TApiRequest& request) {
  const TJob* const job = AskedJob(service, request);
  if (!job) return NoJob(request);
  const TAskedBody body(request, {"answer"});
  return QueueReplyLater(
      service, [id = job->Id, answer = body.Text("answer"), who = request.Who](TQueue& queue, TDiskDone done) {
        queue.Answer(id, answer, who, std::move(done));
      });
}

// --- sequence files ---

TApiReply ListSequences(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body["sequences"] = TJson::array();
  for (const TSequences::TFile& file : service.Jobs().Sequences().List().OrThrow(pbUnusable))
    reply.Body["sequences"].push_back({{"name", file.Name}, {"bytes", file.Bytes}});
  return reply;
}

TApiReply ShowSequence(TService& service, const TApiRequest& request) {
  const TSequences& files = service.Jobs().Sequences();
  const std::string& name = request.Params.at("name");
  if (auto missing = NoSequence(files, name)) return *std::move(missing);
  TApiReply reply;
  reply.Text = files.Read(name);
  reply.ContentType = "application/json";
  return reply;
}

// Nothing is stored that could not run on this machine now.
TApiReply PutSequence(TService& service, const TApiRequest& request) {
  const std::string& name = request.Params.at("name");
  TSequences::CheckName(name).OrThrow(pbRequest);
  const std::string text = TJson(request.Body).dump(2) + "\n";
  const TSequenceFile checked = ReadSequence(name, text, service.Controller().Limits());
  TApiReply reply;
  reply.Status = service.Jobs().Sequences().Put(name, text) ? 200 : 201;
  reply.Body = {{"name", name}, {"title", checked.Name}, {"calls", TJson::array()}};
  for (const TMotionCall& call : checked.Calls) reply.Body["calls"].push_back(call.Text());
  return reply;
}

TApiReply RemoveSequence(TService& service, const TApiRequest& request) {
  const TSequences& files = service.Jobs().Sequences();
  const std::string& name = request.Params.at("name");
  if (auto missing = NoSequence(files, name)) return *std::move(missing);
  files.Remove(name);
  TApiReply reply;
  reply.Body = {{"name", name}};
  return reply;
}

// --- going on ---

// Without a confirmation nothing starts: what would be done again is shown under a token that confirms it.
TApiReply GoOn(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"confirm"});
  if (body.Has("confirm")) {
    const auto run = service.Jobs().Continue(body.Text("confirm"), request.Who);
    if (!run) return Fail(409, Retold(run.Problem()));
    TApiReply reply;
    reply.Status = 201;
    reply.Body = RunHeadJson(*service.Runner().Current());
    return reply;
  }
  const auto offer = service.Jobs().OfferToContinue();
  if (!offer) return Fail(409, offer.Problem());
  const TReentry& reentry = offer->Reentry;
  TApiReply reply = Fail(409, {.What = Tr("what will be done again has to be confirmed"),
                               .Where = offer->Name,
                               .Why = reentry.LightsBeam ? Tr("the beam will be lit") : "",
                               .Remedy = Tr("compare the list with the machine, then send it back with \"confirm\"")});
  reply.Body["confirm"] = offer->Token;
  reply.Body["run"] = offer->Run;
  reply.Body["from"] = reentry.From + 1;
  reply.Body["again"] = reentry.Again;
  reply.Body["rest"] = reentry.Rest;
  reply.Body["lightsBeam"] = reentry.LightsBeam;
  reply.Body["compared"] = reentry.Compared;
  return reply;
}

constexpr TApiRoute kQueueRoutes[] = {
    {"GET", "/api/v1/queue", roNone, false, true, &ShowQueue, "The jobs, and why none starts"},
    {"POST", "/api/v1/queue", roOperator, false, true, &AddJob, "Add a job"},
    {"POST", "/api/v1/queue/start", roOperator, true, true, &StartQueue, "Let the jobs begin, one after the other"},
    {"POST", "/api/v1/queue/hold", roOperator, false, true, &HoldQueue, "Let no further job begin"},
    {"POST", "/api/v1/queue/{id}/answer", roOperator, true, true, &AnswerJob, "Answer a job's question"},
    {"DELETE", "/api/v1/queue/{id}", roOperator, false, true, &RemoveJob, "Take a job out of the queue"},
    {"GET", "/api/v1/sequences", roNone, false, false, &ListSequences, "The stored sequences", true},
    {"GET", "/api/v1/sequences/{name}", roNone, false, false, &ShowSequence, "A stored sequence", true},
    {"PUT", "/api/v1/sequences/{name}", roOperator, false, false, &PutSequence, "Check a sequence and store it", true},
    {"DELETE", "/api/v1/sequences/{name}", roOperator, false, false, &RemoveSequence, "Delete a stored sequence", true},
    {"POST", "/api/v1/continue", roOperator, true, true, &GoOn, "Show what going on would do again, or confirm it"},
};

}  // namespace

std::span<const TApiRoute> QueueRoutes() { return kQueueRoutes; }

}  // namespace ixocontroller
