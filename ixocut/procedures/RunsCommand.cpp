// `ixocut runs` and `ixocut queue`: what has run, and what will.
#include "commandline/Table.h"
#include "controller/client/ClientLease.h"
#include "controller/client/StatusLines.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocut/Command.h"
#include "ixocut/client/Attach.h"
#include "ixocut/procedures/Asked.h"

namespace ixocut {
namespace {

using TJson = nlohmann::ordered_json;

struct TRunsOptions : TControllerSettings {
  std::string Name, Answer, Question;
  std::uint64_t A = 0, B = 0, Limit = 20;
  std::vector<std::string> Params;
};

// A member as people read it; empty: there is none.
std::string Cell(const TJson& json, const char* name) {
  const auto it = json.find(name);
  if (it == json.end() || it->is_null()) return "";
  return it->is_string() ? it->get<std::string>() : it->dump();
}

std::string SecondsOf(const TJson& json, const char* name) {
  const auto it = json.find(name);
  return it != json.end() && it->is_number() ? Format("%.2f s", it->get<double>() / 1000) : std::string();
}

std::vector<std::string> StepRow(const TJson& step, std::vector<std::string> more) {
  const auto level = step.value("level", std::size_t{0});
  std::vector<std::string> row{std::string(2 * level, ' ') + Cell(step, "number") + " " + Cell(step, "description")};
  row.insert(row.end(), more.begin(), more.end());
  return row;
}

std::string OutcomeOf(const TJson& run) {
  const std::string outcome = Cell(run, "outcome");
  return outcome.empty() ? Tr("it runs") : ShownWord(outcome);
}

int ListRuns(const TRunsOptions& options, TWireClient& client, TConsole& console) {
  std::string path = Format("/api/v1/runs?limit=%llu", static_cast<unsigned long long>(options.Limit));
  if (!options.Name.empty()) path += "&name=" + UrlPart(options.Name);
  const TJson answer = client.Get(path);
  TRows rows{{Tr("run"), Tr("start"), Tr("time"), Tr("by"), Tr("procedure"), Tr("outcome")}};
  for (const TJson& run : answer.at("runs"))
    rows.push_back({Cell(run, "id"), ShownTime(Cell(run, "start")), SecondsOf(run, "durationMs"),
                    Cell(run, "startedBy"), Cell(run, "procedure"), OutcomeOf(run)});
  console.SayTable(rows);
  return console.Print(answer);
}

int ShowRun(const TRunsOptions& options, TWireClient& client, TConsole& console) {
  const TJson run = client.Get("/api/v1/runs/" + std::to_string(options.A));
  TRows rows{{Tr("step"), Tr("start"), Tr("time")}};
  if (run.contains("steps"))
    for (const TJson& step : run.at("steps"))
      rows.push_back(StepRow(step, {SecondsOf(step, "startMs"), SecondsOf(step, "durationMs")}));
  console.Say(Cell(run, "procedure") + "  " + Cell(run, "params") + "  " + Cell(run, "startedBy") + "  " +
              ShownTime(Cell(run, "start")) + "  " + OutcomeOf(run) + "  " + SecondsOf(run, "durationMs"));
  if (const auto it = run.find("problem"); it != run.end() && it->is_object()) console.Say(ProblemFromJson(*it).Text());
  console.SayTable(rows);
  return console.Print(run);
}

int CompareRuns(const TRunsOptions& options, TWireClient& client, TConsole& console) {
  const TJson answer =
      client.Get(Format("/api/v1/runs/compare?a=%llu&b=%llu", static_cast<unsigned long long>(options.A),
                        static_cast<unsigned long long>(options.B)));
  TRows rows{{Tr("step"), std::to_string(options.A), std::to_string(options.B), Tr("difference")}};
  for (const TJson& step : answer.at("steps"))
    rows.push_back(StepRow(step, {SecondsOf(step, "aMs"), SecondsOf(step, "bMs"), SecondsOf(step, "differenceMs")}));
  console.SayTable(rows);
  return console.Print(answer);
}

// --- the queue ---

int TellQueue(const TJson& answer, TConsole& console) {
  TRows rows{{Tr("job"), Tr("procedure"), Tr("state"), Tr("by"), Tr("question")}};
  for (const TJson& job : answer.at("jobs"))
    rows.push_back({Cell(job, "id"), Cell(job, "name"), ShownWord(Cell(job, "state")), Cell(job, "addedBy"),
                    Cell(job, "question")});
  if (!answer.at("jobs").empty()) console.SayTable(rows);
  for (const TJson& job : answer.at("jobs"))
    if (job.at("problem").is_object()) console.Say(Cell(job, "id") + ": " + ProblemFromJson(job.at("problem")).Text());
  console.Say(answer.at("held") == true ? Format(Tr("held: %s"), ProblemFromJson(answer.at("why")).Text().c_str())
                                        : Tr("not held: its jobs run one after the other"));
  return console.Print(answer);
}

TJson AddToQueue(const TRunsOptions& options, TWireClient& client) {
  TJson body;
  if (const TProcedure* const row = FindProcedure(options.Name))
    body = {{"procedure", row->Name}, {"params", ReadParams(*row, options.Params)}};
  else
    body = {{"sequence", options.Name}};
  if (!options.Question.empty()) body["question"] = options.Question;
  return client.Post("/api/v1/queue", body);
}

TJson StartQueue(const TRunsOptions&, TWireClient& client) {
  const TClientLease lease(client, true);
  return client.Post("/api/v1/queue/start");
}

TJson AnswerJob(const TRunsOptions& options, TWireClient& client) {
  const TClientLease lease(client, true);
  return client.Post("/api/v1/queue/" + std::to_string(options.A) + "/answer", {{"answer", options.Answer}});
}

}  // namespace

void AddRunsCommand(TCommand program) {
  const TCommand runs = program.AddGroup("runs", Tr("What has run: list, steps, comparison"));
  runs.Help({{}, {}, {"ixocut runs list", "ixocut runs show 12", "ixocut runs compare 11 12"}});
  const auto number = [](TCommand command, const char* name, std::uint64_t& value) {
    command.Number(name, value, 1, std::uint64_t{1} << 53U, "", Tr("The number of the run")).Required();
  };
  {
    auto [list, options] =
        AddAsking<TRunsOptions>(runs, "list", Tr("The last runs, the newest first"), &ListRuns,
                                {.Examples = {"ixocut runs list", "ixocut runs list --name shot --limit 5 --json"}});
    list.Text("--name", options.Name, Tr("Only this procedure or sequence"), "NAME");
    list.Number("--limit", options.Limit, 1, 1000, "", Tr("At most so many")).ShowDefault();
  }
  {
    auto [show, options] = AddAsking<TRunsOptions>(runs, "show", Tr("One run with the times of its steps"), &ShowRun,
                                                   {.Examples = {"ixocut runs show 12"}});
    number(show, "RUN", options.A);
  }
  auto [compare, options] = AddAsking<TRunsOptions>(runs, "compare", Tr("Two runs step by step"), &CompareRuns,
                                                    {.Examples = {"ixocut runs compare 11 12"}});
  number(compare, "A", options.A);
  number(compare, "B", options.B);
}

void AddQueueCommand(TCommand program) {
  const TCommand queue = program.AddGroup("queue", Tr("What will run: jobs one after the other"));
  queue.Help({{}, {}, {"ixocut queue add change-nozzle --from 1 --to 2", "ixocut queue start"}});
  const auto job = [](TCommand command, std::uint64_t& value) {
    command.Number("JOB", value, 1, std::uint64_t{1} << 53U, "", Tr("The number of the job")).Required();
  };
  const auto add = [&](const char* name, const char* about,
                       TJson (*ask)(const TRunsOptions& options, TWireClient& client),
                       std::vector<const char*> examples) {
    return AddAsking<TRunsOptions>(
        queue, name, about,
        [ask](auto& own, auto& client, auto& console) { return TellQueue(ask(own, client), console); },
        {.Examples = std::move(examples)});
  };
  add("list", Tr("The jobs"), [](auto&, auto& client) { return client.Get("/api/v1/queue"); },
      {"ixocut queue list --json"});
  {
    auto [command, options] =
        add("add", Tr("Add a procedure or a stored sequence"), &AddToQueue,
            {"ixocut queue add shot --ms 500", "ixocut queue add purge --question \"Is the plate in place?\""});
    command.Text("NAME", options.Name, Tr("The procedure, or the sequence's name"), "").Required();
    command.Text("--question", options.Question, Tr("What the operator is asked before it runs"), "TEXT");
    command.TakeExtras(options.Params);
  }
  add("start", Tr("Let the jobs run"), &StartQueue, {"ixocut queue start"});
  add("hold", Tr("Start no further job"), [](auto&, auto& client) { return client.Post("/api/v1/queue/hold"); },
      {"ixocut queue hold"});
  {
    auto [remove, options] =
        add("remove", Tr("Take a job out"),
            [](auto& own, auto& client) { return client.Ask("DELETE", "/api/v1/queue/" + std::to_string(own.A)).Body; },
            {"ixocut queue remove 3"});
    job(remove, options.A);
  }
  auto [answer, options] = add("answer", Tr("Answer a job's question"), &AnswerJob, {"ixocut queue answer 3 yes"});
  job(answer, options.A);
  answer.Text("ANSWER", options.Answer, Tr("One of its choices"), "").Required();
}

}  // namespace ixocut
