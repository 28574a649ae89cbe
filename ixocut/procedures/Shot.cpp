#include "ixocut/procedures/Shot.h"

#include <algorithm>
#include <iterator>

#include "controller/runs/RunReport.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kSpareMs = 120'000;  // beyond the beam: emission, the supervisor's three steps

std::vector<std::string> ShotLines(const TRunReport& report) {
  std::vector<std::string> lines = report.Notes;
  std::ranges::move(AlarmLines(report.Alarms, report.StartMs), std::back_inserter(lines));
  lines.emplace_back();
  lines.insert(lines.end(), report.Timeline.begin(), report.Timeline.end());
  lines.emplace_back();
  lines.push_back(ClosingLine(report));
  return lines;
}

int Finish(const TShotOptions& options, TConsole& console, const TRunReport& report, bool execOK,
           const std::vector<std::string>& lines) {
  console.SayLines(lines);
  return console.Print({{"ms", options.Ms},
                        {"seed", options.Seed},
                        {"outcome", report.End.Name},
                        {"words", report.End.Words},
                        {"execOK", execOK},
                        {"durationMs", report.DurationMs},
                        {"dark", report.Dark},
                        {"path", report.Path},
                        {"fault", report.Fault},
                        {"cause", report.Cause},
                        {"nextState", report.NextState},
                        {"log", console.Log()},
                        {"alarms", AlarmsJson(report.Alarms, report.StartMs)},
                        {"timeline", report.TimelineJson},
                        {"journal", report.Journal}},
                       report.Problem);
}

int ShootThere(const TShotOptions& options, TWireClient& client, TConsole& console) {
  const TOperatorTexts texts(console);
  console.Say(Show(SShotTitle, SLaserOnTimeDesc.Get(), ShownMs(options.Ms)));
  nlohmann::ordered_json body = ProcedureBody("shot", {{"ms", std::to_string(options.Ms)}}, options);
  body["limitMs"] = options.Ms + kSpareMs;
  const TRunReport report = RunOnConsole(client, {.Body = body}, console, {}).Report;
  return Finish(options, console, report, report.Success(), ShotLines(report));
}

struct TAskedShot : TShotOptions {
  std::string AskedMs = std::to_string(Ms);  // judged when --longest is known
};

int RunAskedShot(TAskedShot options, TConsole& console) {
  if (const std::string problem = CheckNumber(options.AskedMs, 0, options.LongestMs, "ms"); !problem.empty())
    throw EProblem(pbRequest, {.What = problem,
                               .Where = "--ms",
                               .Remedy = Format(Tr("--longest raises the upper bound to at most %llu ms"),
                                                static_cast<unsigned long long>(kShotLongestMs))});
  options.Ms = std::stoull(options.AskedMs);
  return RunShot(options, console);
}

}  // namespace

int RunShot(TShotOptions options, TConsole& console) {
  if (options.Ms > kShotLongestMs) throw EProblem(pbRequest, Tr("a shot of this length is not possible"));
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return ShootThere(options, *client, console);
  bool execOK = false;
  std::vector<std::string> lines;  // for the operator, behind the log: the session's end writes its last lines
  const TRunReport report = [&] {
    const auto run = MakeRun(options, options, console);
    console.Say(Show(SShotTitle, SLaserOnTimeDesc.Get(), ShownMs(options.Ms)));
    const TMotionCall shot{FindProcedure("shot"), {static_cast<double>(options.Ms)}, {}};
    TRunReport made = run->Run([&] { return MakeRoot("shot", {&shot, 1}); }, options.Ms + kSpareMs);
    execOK = TCustomMotionState::GetExecOK(TSmtLaserOnTimeState::Cmd, false);
    if (!made.Problem && !execOK) made.Problem = {.What = Tr("the shot did not end as it was asked for")};
    lines = ShotLines(made);
    return made;
  }();
  return Finish(options, console, report, execOK, lines);
}

void AddShotCommand(TCommand program) {
  auto [shot, options] = AddOwn<TAskedShot>(program, "shot", Tr("Run one timed laser shot"), RunAskedShot);
  shot.Text("--ms", options.AskedMs, Tr("How long the beam is on, 0 to --longest"), "MS").ShowDefault();
  shot.Number("--longest", options.LongestMs, 1, kShotLongestMs, "ms",
              Tr("The longest shot accepted, 1 to 64000; the supervisor (LaserOnLimitMs of the machine file) and the "
                 "latch (65 s) end a beam"))
      .ShowDefault();
  AddRunSettings(shot, options);
  shot.Help({.Notes = Tr(kTimesNote),
             .Examples = {"ixocut shot", "ixocut shot --ms 500 --stop-at 300",
                          "ixocut shot --ms 2000 --realtime --lang en", "ixocut shot --json --seed 7 > shot.json"}});
}

}  // namespace ixocut
