// What can be run, and runs: starting one, and what became of those that the controller has at hand.
#include <algorithm>
#include <array>
#include <charconv>

#include "controller/api/Api.h"
#include "controller/procedures/Calls.h"
#include "controller/procedures/ProcedureJson.h"
#include "controller/procedures/SequenceFile.h"
#include "controller/service/ReadyCheck.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TBody = nlohmann::json;
using TJson = nlohmann::ordered_json;

constexpr std::uint64_t kLongestMs = 86'400'000;  // a day
constexpr std::uint64_t kTriggerLimitMs = 600'000;
constexpr std::array kMembers{"procedure", "params", "sequence", "calls",   "name",       "detach",
                              "limitMs",   "faults", "stopAt",   "alarmAt", "attendedBy", "saveCalibration"};

[[noreturn]] void Refuse(const char* member, std::string what) {
  throw EProblem(pbRequest, TProblem{.What = std::move(what), .Where = member});
}

// --- the members of a request; those that are not there have no value ---

const TBody* Member(const TBody& body, const char* name) {
  const auto found = body.find(name);
  return found == body.end() || found->is_null() ? nullptr : &*found;
}

std::optional<std::uint64_t> NumberOf(const TBody& body, const char* name, std::uint64_t least, std::uint64_t most) {
  const TBody* const value = Member(body, name);
  if (!value) return std::nullopt;
  const bool whole = value->is_number_unsigned() || (value->is_number_integer() && value->get<std::int64_t>() >= 0);
  if (!whole || value->get<std::uint64_t>() < least || value->get<std::uint64_t>() > most)
    Refuse(name, Format(Tr("is no whole number from %llu to %llu"), static_cast<unsigned long long>(least),
                        static_cast<unsigned long long>(most)));
  return value->get<std::uint64_t>();
}

bool SwitchOf(const TBody& body, const char* name) {
  const TBody* const value = Member(body, name);
  if (value && !value->is_boolean()) Refuse(name, Tr("is neither true nor false"));
  return value && value->get<bool>();
}

std::optional<std::string> TextOf(const TBody& body, const char* name) {
  const TBody* const value = Member(body, name);
  if (!value) return std::nullopt;
  if (!value->is_string() || value->get_ref<const std::string&>().empty()) Refuse(name, Tr("is no text"));
  return value->get<std::string>();
}

std::vector<std::string> FaultsOf(const TService& service, const TBody& body) {
  const TBody* const value = Member(body, "faults");
  if (!value) return {};
  if (!value->is_array()) Refuse("faults", Tr("is no list of texts"));
  std::vector<std::string> names;
  for (const TBody& item : *value) {
    if (!item.is_string()) Refuse("faults", Tr("is no list of texts"));
    names.push_back(item.get<std::string>());
    TNearestName nearest(names.back());
    bool known = false;
    for (const TMachineFactory& machine : service.Options().Controller.Machines)
      for (const TMachineFault& fault : machine.Faults) {
        nearest.Consider(fault.Name);
        known = known || names.back() == fault.Name;
      }
    if (known) continue;
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("the machine has no fault \"%s\""), names.back().c_str()),
                                       .Where = "faults",
                                       .Remedy = nearest.DidYouMean()});
  }
  return names;
}

void ReadWhat(TService& service, const TBody& body, TRunRequest& request) {
  const TMachineLimits& limits = service.Controller().Limits();
  const auto procedure = TextOf(body, "procedure");
  const auto sequence = TextOf(body, "sequence");
  const TBody* const calls = Member(body, "calls");
  if ((procedure ? 1 : 0) + (sequence ? 1 : 0) + (calls ? 1 : 0) != 1)
    throw EProblem(pbRequest, Tr("one of \"procedure\", \"sequence\" and \"calls\" says what to run"));
  if (procedure) {
    const TProcedure& row = *AskProcedure(*procedure).OrThrow(pbRequest);
    const TBody* const params = Member(body, "params");
    request.Procedure = row.Name;
    request.Calls = {CallAlone(row, TextsOf(row, params ? *params : TBody()), limits, "params.")};
    return;
  }
  TSequenceFile file;
  if (sequence) {
    const TSequences& files = service.Jobs().Sequences();
    if (!files.Has(*sequence)) Refuse("sequence", Tr("there is no such sequence"));
    file = ReadSequence(*sequence, files.Read(*sequence), limits);
  } else {
    const std::string name = TextOf(body, "name").value_or("calls");
    file = ReadSequence(name, TBody{{"name", name}, {"commands", *calls}}.dump(), limits);
  }
  request.Sequence = true;
  request.Procedure = std::move(file.Name);
  request.Calls = std::move(file.Calls);
}

void CheckMembers(const TBody& body) {
  if (!body.is_object()) throw EProblem(pbRequest, Tr("the body is no JSON object"));
  for (const auto& [name, value] : body.items())
    if (std::ranges::find(kMembers, name) == kMembers.end()) Refuse(name.c_str(), Tr("unknown name"));
}

TRunRequest ReadRun(TService& service, const TBody& body) {
  TRunRequest run;
  ReadWhat(service, body, run);
  run.Detached = SwitchOf(body, "detach");
  run.SaveCalibration = SwitchOf(body, "saveCalibration");
  run.LimitMs = NumberOf(body, "limitMs", 1, kLongestMs).value_or(run.LimitMs);
  run.Triggers.StopAt = NumberOf(body, "stopAt", 0, kTriggerLimitMs);
  run.Triggers.AlarmAt = NumberOf(body, "alarmAt", 0, kTriggerLimitMs);
  run.Triggers.Faults = FaultsOf(service, body);
  run.AttendedBy = NumberOf(body, "attendedBy", 1, std::numeric_limits<std::int64_t>::max()).value_or(0);
  return run;
}

TApiReply StartRun(TService& service, const TApiRequest& request) {
  CheckMembers(request.Body);
  const auto started = service.Run(ReadRun(service, request.Body), request.Who);
  if (!started) return Fail(409, Retold(started.Problem()));
  TApiReply reply;
  reply.Status = 201;
  reply.Body = RunHeadJson(*service.Runner().Current());
  return reply;
}

// The same body as a start has, and nothing starts: what would refuse it, and what the machine is not ready for, which
// a job of the queue would wait for.
TApiReply CheckRun(TService& service, const TApiRequest& request) {
  CheckMembers(request.Body);
  auto refused = TJson::array(), unready = TJson::array();
  try {
    const TRunRequest run = ReadRun(service, request.Body);
    const TResult<> may = service.MayRun(run);
    if (!may) refused.push_back(ProblemJson(may.Problem()));
    for (const TProblem& problem : FindUnready(service.Controller(), run.Calls))
      if (may || problem != may.Problem()) unready.push_back(ProblemJson(problem));
  } catch (const EProblem& problem) {
    refused.push_back(ProblemJson(problem.Problem));
  }
  TApiReply reply;
  reply.Body = {{"starts", refused.empty()}, {"refused", std::move(refused)}, {"unready", std::move(unready)}};
  return reply;
}

// --- what became of it ---

// Null: it is not at hand.
const TRunRecord* FindRun(TService& service, const TApiRequest& request, TRunRecordPtr& ended) {
  const std::string& text = request.Params.at("id");
  std::uint64_t id = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), id);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return nullptr;
  if (const TRunRecord* const current = service.Runner().Current(); current && current->Id == id) return current;
  ended = service.Runner().Find(id);
  return ended.get();
}

TApiReply NoRun(const TApiRequest& request) {
  return Fail(404, {.What = Tr("there is no such run at hand"), .Where = request.Path});
}

TApiReply ShowTrace(TService& service, const TApiRequest& request) {
  TRunRecordPtr ended;
  const TRunRecord* const run = FindRun(service, request, ended);
  if (!run) return NoRun(request);
  TApiReply reply;
  reply.Body = {{"id", run->Id}, {"points", TraceJson(*run)}};
  return reply;
}

TApiReply ShowProcedures(TService& service, const TApiRequest&) {
  auto rows = nlohmann::ordered_json::array();
  for (const TProcedure* row : Procedures()) rows.push_back(ProcedureJson(*row, service.Controller().Limits().Bounds));
  TApiReply reply;
  reply.Body["procedures"] = std::move(rows);
  return reply;
}

constexpr TApiRoute kRunsRoutes[] = {
    {"GET", "/api/v1/procedures", roNone, false, false, &ShowProcedures, "What can be run, with parameters and ranges"},
    {"POST", "/api/v1/runs", roOperator, true, true, &StartRun, "Start a procedure, a sequence or a list of calls"},
    {"POST", "/api/v1/runs/check", roNone, false, true, &CheckRun, "What would refuse a start; nothing starts"},
    {"GET", "/api/v1/runs/{id}/trace", roNone, false, true, &ShowTrace, "Where the axes were during a run"},
};

}  // namespace

std::span<const TApiRoute> RunsRoutes() { return kRunsRoutes; }

}  // namespace ixocontroller
