// What can be run, and runs: starting one, and what became of those that the controller has at hand.
#include <algorithm>

#include "controller/api/Api.h"
#include "controller/api/Body.h"
#include "controller/procedures/Calls.h"
#include "controller/procedures/ProcedureJson.h"
#include "controller/procedures/SequenceFile.h"
#include "controller/service/ReadyCheck.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

using TBody = nlohmann::json;
using TJson = nlohmann::ordered_json;

constexpr std::int64_t kLongestMs = 86'400'000;  // a day
constexpr std::int64_t kTriggerLimitMs = 600'000;
constexpr std::int64_t kMostConnection = std::int64_t{1} << 53U;  // a number of JSON

void CheckFaults(const TService& service, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    TNearestName nearest(name);
    bool known = false;
    for (const TMachineFactory& machine : service.Options().Controller.Machines)
      for (const TMachineFault& fault : machine.Faults) {
        nearest.Consider(fault.Name);
        known = known || name == fault.Name;
      }
    if (known) continue;
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("the machine has no fault \"%s\""), name.c_str()),
                                       .Where = "faults",
                                       .Remedy = nearest.DidYouMean()});
  }
}

void ReadWhat(TService& service, const TApiRequest& asked, const TAskedBody& body, TRunRequest& request) {
  const TMachineLimits& limits = service.Controller().Limits();
  if (body.Has("procedure") + body.Has("sequence") + body.Has("calls") != 1)
    throw EProblem(pbRequest, Tr("one of \"procedure\", \"sequence\" and \"calls\" says what to run"));
  if (body.Has("procedure")) {
    const TProcedure& row = *AskProcedure(body.Text("procedure")).OrThrow(pbRequest);
    const TBody params = body.Has("params") ? asked.Body["params"] : TBody();
    request.Procedure = row.Name;
    request.Calls = {CallAlone(row, TextsOf(row, params), limits, "params.")};
    return;
  }
  TSequenceFile file;
  if (body.Has("sequence")) {
    const TSequences& files = service.Jobs().Sequences();
    const std::string name = body.Text("sequence");
    if (!files.Has(name))
      throw EProblem(pbRequest, TProblem{.What = Tr("there is no such sequence"), .Where = "sequence"});
    file = ReadSequence(name, files.Read(name), limits);
  } else {
    const std::string name = body.Has("name") ? body.Text("name") : "calls";
    file = ReadSequence(name, TBody{{"name", name}, {"commands", asked.Body["calls"]}}.dump(), limits);
  }
  request.Sequence = true;
  request.Procedure = std::move(file.Name);
  request.Calls = std::move(file.Calls);
}

TAskedBody RunBody(const TApiRequest& request) {
  return {request,
          {"procedure", "params", "sequence", "calls", "name", "detach", "limitMs", "faults", "stopAt", "alarmAt",
           "attendedBy", "saveCalibration"}};
}

TRunRequest ReadRun(TService& service, const TApiRequest& asked, const TAskedBody& body) {
  const auto number = [&body](const char* name, std::int64_t least, std::int64_t most) {
    return body.Has(name) ? std::optional(static_cast<std::uint64_t>(body.Whole(name, least, most))) : std::nullopt;
  };
  TRunRequest run;
  ReadWhat(service, asked, body, run);
  run.Detached = body.Flag("detach", false);
  run.SaveCalibration = body.Flag("saveCalibration", false);
  run.LimitMs = number("limitMs", 1, kLongestMs).value_or(run.LimitMs);
  run.Triggers.StopAt = number("stopAt", 0, kTriggerLimitMs);
  run.Triggers.AlarmAt = number("alarmAt", 0, kTriggerLimitMs);
  run.Triggers.Faults = body.Texts("faults");
  CheckFaults(service, run.Triggers.Faults);
  run.AttendedBy = number("attendedBy", 1, kMostConnection).value_or(0);
  return run;
}

TApiReply StartRun(TService& service, const TApiRequest& request) {
  const auto started = service.Run(ReadRun(service, request, RunBody(request)), request.Who);
  if (!started) return Fail(409, Retold(started.Problem()));
  TApiReply reply;
  reply.Status = 201;
  reply.Body = RunHeadJson(*service.Runner().Current());
  return reply;
}

// The same body as a start has, and nothing starts: what would refuse it, and what the machine is not ready for, which
// a job of the queue would wait for.
TApiReply CheckRun(TService& service, const TApiRequest& request) {
  const TAskedBody body = RunBody(request);
  auto refused = TJson::array(), unready = TJson::array();
  try {
    const TRunRequest run = ReadRun(service, request, body);
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
  const auto id = ParseExactly<std::uint64_t>(request.Params.at("id"));
  if (!id) return nullptr;
  if (const TRunRecord* const current = service.Runner().Current(); current && current->Id == *id) return current;
  ended = service.Runner().Find(*id);
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
