// `ixocut soak`: lets the controller live through virtual days and prints what became of it.
#include "ixocut/Command.h"
#include "verify/Soak.h"

namespace ixocut {
using namespace ixoverify;
namespace {

constexpr std::uint64_t kMostDays = 36'500;
constexpr std::uint64_t kMostSeconds = 1'000'000;

struct TSoakCommand : TOutputSettings {
  TSoakOptions Soak;
};

unsigned long long Number(std::uint64_t value) { return value; }

int RunSoakCommand(const TSoakCommand& command, TConsole& console) {
  console.Say(Tr("  day     runs succeeded   aborts   alarms    clock  resident KiB  journal"));
  const TSoakResult result = RunSoak(command.Soak, [&](const TSoakDay& day) {
    console.Say(Format("%5llu %8llu %9llu %8llu %8llu %8llu %13llu  %016llx", Number(day.Day), Number(day.Runs),
                       Number(day.Succeeded), Number(day.Aborts), Number(day.Alarms), Number(day.ClockSteps),
                       Number(day.ResidentKiB), Number(day.Hash)));
  });
  console.Say(Format(Tr("days: %llu; journal %016llx; violations: %llu"), Number(result.Last.Day),
                     Number(result.Last.Hash), Number(result.ViolationCount)));
  for (const std::string& violation : result.Violations) console.Say("  " + violation);
  console.Say(result.MemoryJudged()
                  ? Format(Tr("memory: at most %lld KiB above day %llu, allowed %lld"),
                           static_cast<long long>(result.GrowthKiB), Number(kSoakWarmDays),
                           static_cast<long long>(kSoakMostGrowthKiB))
                  : Format(Tr("memory: not judged, that takes more than %llu days"), Number(kSoakWarmDays)));
  return console.Print(JsonOf(result, command.Soak.Seed), ProblemOf(result));
}

}  // namespace

void AddSoakCommand(TCommand program) {
  auto [soak, options] = AddOwn<TSoakCommand>(
      program, "soak",
      Tr("Let one controller live through virtual days of mixed work, and look at its memory and its journal"),
      RunSoakCommand);
  const TOption days = soak.Number("--days", options.Soak.Days, 1, kMostDays, "days", Tr("Virtual days")).ShowDefault();
  soak.Number("--seconds", options.Soak.Seconds, 1, kMostSeconds, "s",
              Tr("Real time instead: as many days as it holds, at least one"))
      .Excludes(days);
  AddSeedOption(soak, options.Soak.Seed);
  AddJsonOption(soak, options.Json);
  soak.Help(
      {.Notes = Tr(
           "Virtual time, on a copy of the example machine. Work comes every five minutes, some of it is aborted, "
           "alarms\n"
           "come, emission is lost and the wall clock is set; the pauses between are passed over. Each run is judged "
           "like a\n"
           "point of `ixocut sweep`. From the third day on the memory must stay within 1 MiB of the second day's. The "
           "same\n"
           "seed gives the same journal, whatever the machine is loaded with."),
       .ExitCodes = Tr("0 nothing found, 1 violations or growing memory, 2 wrong command line"),
       .Examples = {"ixocut soak --days 10", "ixocut soak --seconds 60 --seed 7"}});
}

}  // namespace ixocut
