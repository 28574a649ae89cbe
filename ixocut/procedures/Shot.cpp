#include "ixocut/procedures/Shot.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/HostTexts.h"
#include "ixocamglue/motion/Umotiontexts.h"
#include "ixocut/CommandLine.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kSpareMs = 120'000;  // beyond the beam: emission, the supervisor's three steps

}  // namespace

int RunShot(const TShotOptions& options, std::ostream& out) {
  if (options.Ms > kShotLongestMs) throw EProblem(pbRequest, "a shot of this length is not possible");
  TConsole console(out, options.Json, options.Trace);
  bool execOK = false;
  std::vector<std::string> lines;  // for the operator, behind the log: the session's end writes its last lines
  const TRunReport report = [&] {
    const auto run = MakeRun(options, options, console);
    console.Say(Show(SShotTitle, SLaserOnTimeDesc.Get(), ShownMs(options.Ms)));
    const TMotionCall shot{FindProcedure("shot"), {static_cast<double>(options.Ms)}, {}};
    TRunReport made = run->Run([&] { return MakeRoot("shot", {&shot, 1}); }, options.Ms + kSpareMs);
    execOK = TCustomMotionState::GetExecOK(TSmtLaserOnTimeState::Cmd, false);
    lines = made.Notes;
    std::ranges::move(AlarmLines(made.Alarms, made.StartMs), std::back_inserter(lines));
    lines.emplace_back();
    lines.insert(lines.end(), made.Timeline.begin(), made.Timeline.end());
    lines.emplace_back();
    lines.push_back(Format("CustomMotionStateExecOK515 = %s", execOK ? "true" : "false"));
    if (!made.Cause.empty()) lines.push_back(made.Cause);
    lines.push_back(Show(SShotEnded, made.End.Words.c_str(), ShownMs(made.DurationMs)));
    return made;
  }();
  for (const std::string& line : lines) console.Say(line);
  std::optional<TProblem> problem = report.Problem;
  if (!problem && !execOK) problem = {.What = Tr("the shot did not end as it was asked for")};
  if (options.Json) {
    console.Print("shot",
                  {{"ms", options.Ms},
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
                  problem);
  }
  return problem ? kExitOtherwise : kExitSuccess;
}

void AddShotCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TShotOptions>();
  CLI::App* const shot = program.add_subcommand("shot", "Run one timed laser shot on the simulated machine");
  // Its upper bound is another option's value, so it is judged when all are known.
  const auto ms = std::make_shared<std::string>(std::to_string(options->Ms));
  shot->add_option("--ms", *ms, "How long the beam is on, 0 to --limit")->type_name("MS")->capture_default_str();
  AddNumberOption(*shot, "--limit", options->LimitMs, 1, kShotLongestMs, "ms",
                  "The longest shot accepted, 1 to 64000; the supervisor (LaserOnLimitMs of the machine file) and the "
                  "latch (65 s) end a beam")
      ->capture_default_str();
  AddRunSettings(*shot, *options, "shot");
  shot->footer(
      "Times are those of the simulated machine, which run as fast as the computer can unless --realtime is given.\n"
      "\n"
      "Exit codes: 0 the shot succeeded, 1 it ended otherwise, 2 wrong command line, 3 a file or device problem.\n"
      "\n"
      "Examples:\n"
      "  ixocut shot\n"
      "  ixocut shot --ms 500 --stop-at 300\n"
      "  ixocut shot --ms 2000 --realtime --lang en\n"
      "  ixocut shot --json --seed 7 > shot.json\n"
      "\n"
      "Software is not the emergency stop.");
  shot->callback([options, ms, &run] {
    run = [options, ms] {
      if (const std::string problem = CheckNumber(*ms, 0, options->LimitMs, "ms"); !problem.empty())
        throw EProblem(pbRequest, "--ms: " + problem +
                                      Format("; --limit raises the upper bound to at most %llu ms",
                                             static_cast<unsigned long long>(kShotLongestMs)));
      options->Ms = std::stoull(*ms);
      return RunShot(*options, std::cout);
    };
  });
}

}  // namespace ixocut
