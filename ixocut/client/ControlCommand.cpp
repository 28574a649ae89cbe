// `ixocut stop`, `pause`, `continue`, `all-off` and `reset`: one request each to the controller that runs.
#include <chrono>
#include <thread>
#include <unistd.h>

#include "controller/client/ClientLease.h"
#include "controller/client/StatusLines.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

using TJson = nlohmann::ordered_json;

constexpr auto kEndsWithin = std::chrono::seconds(5);  // what was asked to end, on the real clock
constexpr auto kRestLookEvery = std::chrono::milliseconds(20);

struct TControlOptions : TControllerSettings {
  bool Yes = false;  // continue: nobody is asked
};

struct TControl {
  const char* Name;
  const char* Path;
  const char* About;
  const char* Done;  // what is said when it has come to pass
  const char* Idle;  // the same where nothing ran before; null: as Done
  bool Lease;
  bool Ends;  // waits until nothing runs
};

constexpr TControl kControls[] = {
    {"stop", "/api/v1/stop", TrMark("Stop what runs"), TrMark("stopped"), nullptr, false, true},
    {"pause", "/api/v1/pause", TrMark("Pause what runs, which ends it; continue goes on where that is safe"),
     TrMark("it is paused"), TrMark("nothing runs"), true, true},
    {"all-off", "/api/v1/all-off", TrMark("Stop everything at once and latch the laser, until it is reset"),
     TrMark("everything is switched off"), nullptr, false, true},
    {"reset", "/api/v1/reset", TrMark("End what all-off has latched, when its cause is gone"), TrMark("reset"), nullptr,
     true, false},
};

// The status once nothing runs any more, or the last one when that takes too long.
TJson WaitForRest(TWireClient& client) {
  const auto end = std::chrono::steady_clock::now() + kEndsWithin;
  for (;;) {
    TJson status = client.Get("/api/v1/status");
    if (!status.value("running", false) || std::chrono::steady_clock::now() >= end) return status;
    std::this_thread::sleep_for(kRestLookEvery);
  }
}

int RunControl(const TControl& control, TWireClient& client, TConsole& console) {
  std::optional<TClientLease> lease;
  if (control.Lease) lease.emplace(client, true);
  const bool idle = control.Idle && client.Get("/api/v1/status").at("running") == false;
  const TJson answer = client.Post(control.Path);
  const TJson status = control.Ends ? WaitForRest(client) : client.Get("/api/v1/status");
  std::optional<TProblem> problem;
  if (control.Ends && status.value("running", false))
    problem = {.What = Tr("it was asked for, and something runs all the same")};
  const TOperatorTexts texts(console);
  console.Say(problem ? problem->Text() : Tr(idle ? control.Idle : control.Done));
  console.Say(StatusLine(status));
  return console.Print({{"answer", answer}, {"status", status}}, problem);
}

// What continue will do, confirmed by a person.
bool Confirmed(const TJson& offer, const TControlOptions& options, TConsole& console) {
  if (options.Yes) return true;
  if (options.Json || isatty(STDIN_FILENO) != 1)
    throw EProblem(pbRequest,
                   TProblem{.What = Tr("continue asks before anything moves"), .Remedy = Tr("--yes answers")});
  const auto list = [&](const char* title, const char* member) {
    if (offer.at(member).empty()) return;
    console.Say(title);
    for (const TJson& line : offer.at(member)) console.Say("  " + line.get<std::string>());
  };
  list(Tr("The machine, as it was left and as it is:"), "compared");
  list(Tr("Done again:"), "again");
  list(Tr("And then:"), "rest");
  if (offer.at("lightsBeam") == true) console.Say(Tr("The beam will be lit."));
  std::cout << Tr("Do this? (y/n) ") << std::flush;
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "Y");
}

int RunContinue(const TControlOptions& options, TWireClient& client, TConsole& console) {
  const TJson offer = [&] {
    const TClientLease lease(client, true);
    const TWireAnswer answer = client.AskAny("POST", "/api/v1/continue", TJson::object());
    if (!answer.Body.is_object() || !answer.Body.contains("confirm")) client.Check(answer);
    return answer.Body;
  }();
  if (!Confirmed(offer, options, console)) {
    console.Say(Tr("nothing was started"));
    return kExitOtherwise;
  }
  const TOperatorTexts texts(console);
  console.Say(Tr("it goes on"));
  const TWireRun run = RunOnConsole(
      client, {.Path = "/api/v1/continue", .Body = {{"confirm", offer.at("confirm")}}, .TakeOver = true}, console, {});
  for (const TJson& line : run.Json.at("lines")) console.Say(line.get<std::string>());
  TJson document = run.Json;
  document.erase("lines");
  document["log"] = console.Log();
  return console.Print(document, run.Report.Problem);
}

template <class TRun>
std::pair<TCommand, TControlOptions&> AddControl(TCommand program, const char* name, const char* about,
                                                 const char* notes, TRun run) {
  const std::string example = std::string("ixocut ") + name, json = example + " --json";
  return AddAsking<TControlOptions>(program, name, Tr(about), run,
                                    {.Notes = notes, .Examples = {example.c_str(), json.c_str()}});
}

}  // namespace

void AddControlCommands(TCommand program) {
  for (const TControl& control : kControls)
    (void)AddControl(
        program, control.Name, control.About,
        control.Lease ? Tr("Takes over control from whoever has it.") : Tr("Needs no control of the machine."),
        [&control](auto&, auto& client, auto& console) { return RunControl(control, client, console); });
  auto [command, options] =
      AddControl(program, "continue", TrMark("Go on after a pause or a failure"),
                 Tr("Only where the procedure can be entered again; what will be done again is shown first. Takes over "
                    "control from\nwhoever has it. It is followed to its end, and Ctrl-C stops it."),
                 RunContinue);
  command.Flag("--yes", options.Yes, Tr("Do what would be shown without asking"));
}

}  // namespace ixocut
