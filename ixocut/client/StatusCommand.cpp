// `ixocut status` and `ixocut watch`: what the controller does now, and from now on.
#include <chrono>

#include "commandline/Table.h"
#include "controller/client/StatusLines.h"
#include "controller/process/SignalStop.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

using TSteady = std::chrono::steady_clock;

constexpr std::uint32_t kWatchWaitMs = 100;
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);  // on a terminal
constexpr const char* kAlarmLog = "TAlarmManager";
constexpr auto kLineEvery = std::chrono::seconds(1);  // of signals alone, otherwise

struct TStatusOptions : TControllerSettings {
  std::uint64_t ForMs = 0;  // watch: 0, until it is ended
};

int RunStatus(const TStatusOptions&, TWireClient& client, TConsole& console) {
  const auto status = client.Get("/api/v1/status");
  const TOperatorTexts texts(console);
  console.SayTable(StatusRows(status));
  return console.Print(status);
}

// One line that is drawn over itself on a terminal, else a line for each change.
class TWatchView {
 public:
  TWatchView(TWireClient& client, TConsole& console) : FClient(client), FConsole(console) {
    FStatus = FClient.Get("/api/v1/status");
    Show(true);
  }

  void Take(const TWireEvent& event) {
    FConsole.Print({{"id", event.Id}, {"event", event.Name}, {"data", event.Data}}, {}, true);
    if (event.Name == "signals") {
      FStatus["signals"] = event.Data.contains("signals") ? event.Data["signals"] : event.Data;
      FChanged = true;
    } else {
      Say(TextOf(event));
      FStale = true;
    }
  }
  // What has changed is shown, at most so often.
  void Show(bool now = false) {
    if (FConsole.Settings().Json) return;
    if (std::exchange(FStale, false)) {
      FStatus = FClient.Get("/api/v1/status");
      FChanged = now = true;
    }
    const auto at = TSteady::now();
    if (!now && (!FChanged || at - FShownAt < (FConsole.OnTerminal() ? TSteady::duration(kRedrawEvery) : kLineEvery)))
      return;
    std::string line = StatusLine(FStatus);
    if (line == FLine) return;
    FLine = std::move(line);
    FShownAt = at;
    FChanged = false;
    FConsole.Draw(FLine);
  }

 private:
  // Of an alarm, a warning, the end of a run; empty: of nothing that is told in a line of its own.
  static std::string TextOf(const TWireEvent& event) {
    const auto text = [&](const char* name) { return event.Data.value(name, ""); };
    if (event.Name == "alarm") {
      const std::string code = text("code") == text("identifier") ? "" : "  " + text("code");
      return ShownWord(text("event")) + "  " + text("identifier") + code + "  " + text("text");
    }
    // Of alarms an event tells.
    if (event.Name == "log") return event.IsWarning() && text("source") != kAlarmLog ? text("text") : "";
    if (event.Name == "run" && text("event") == "ended")
      return Format(Tr("run %s, %s: %s"), event.Data.at("id").dump().c_str(), text("procedure").c_str(),
                    ShownWord(text("outcome")).c_str());
    return {};
  }
  void Say(const std::string& text) {
    if (text.empty()) return;
    if (FConsole.OnTerminal()) FLine.clear();  // it is drawn again below the text
    FConsole.Say(text);
  }

  TWireClient& FClient;
  TConsole& FConsole;
  nlohmann::ordered_json FStatus;
  std::string FLine;
  TSteady::time_point FShownAt;
  bool FChanged = true;
  bool FStale = false;
};

int RunWatch(const TStatusOptions& options, TWireClient& client, TConsole& console) {
  const TOperatorTexts texts(console);
  const ixocontroller::TSignalStop signals;
  TWireEvents events(client);
  TWatchView view(client, console);
  const auto end = TSteady::now() + std::chrono::milliseconds(options.ForMs);
  while (!ixocontroller::TSignalStop::Asked() && (options.ForMs == 0 || TSteady::now() < end)) {
    if (const auto event = events.Next(kWatchWaitMs)) view.Take(*event);
    if (events.Ended())
      throw EProblem(pbUnusable,
                     {.What = Tr("the controller has closed the connection"), .Where = client.Address().Text()});
    view.Show();
  }
  return kExitSuccess;
}

}  // namespace

void AddStatusCommand(TCommand program) {
  const auto add = [&](const char* name, const char* about, auto action, const std::vector<const char*>& examples) {
    return AddAsking<TStatusOptions>(
        program, name, about, action,
        {.ExitCodes = Tr("0 a controller runs, 1 none runs, 2 wrong command line, 3 it does not answer"),
         .Examples = examples});
  };
  add("status", Tr("What the controller does now"), &RunStatus,
      {"ixocut status", "ixocut status --json", "ixocut status --url http://127.0.0.1:8620"});
  auto [watch, options] = add("watch", Tr("Follow the controller: state, step, positions, signals, alarms"), &RunWatch,
                              {"ixocut watch", "ixocut watch --for 60000 --json"});
  watch.Number("--for", options.ForMs, 1, 86'400'000, "ms", Tr("End by itself after this time, 1 to 86400000"));
}

}  // namespace ixocut
