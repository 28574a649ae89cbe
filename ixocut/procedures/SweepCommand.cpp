// `ixocut sweep`: runs the abort sweep and prints what it found.
#include "ixocamglue/support/ProblemAt.h"
#include "ixocut/Command.h"
#include "verify/Sweep.h"

namespace ixocut {
using namespace ixoverify;
namespace {

constexpr std::uint64_t kMostPoints = 100'000'000;

struct TSweepCommand : TOutputSettings {
  TSweepOptions Sweep;
};

void SayRow(TConsole& console, const TSweepRow& row) {
  const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  console.Say(Format("%-27s %-10s %12llu %12llu %12llu %12llu", row.Procedure.c_str(), row.Dimension.c_str(),
                     number(row.Enumerated), number(row.Run), number(row.Survived), number(row.SavedByLatch)));
}

int RunSweepCommand(const TSweepCommand& command, TConsole& console) {
  if (!command.Sweep.Procedure.empty()) OrThrowAt(CheckSweepName(command.Sweep.Procedure), pbRequest, "--procedure");
  console.Say(Tr("procedure                   dimension    enumerated          run     survived     by latch"));
  const TSweepResult result = RunSweep(command.Sweep, [&](const TSweepRow& row) { SayRow(console, row); });
  SayRow(console, {Tr("total"), "", result.Enumerated(), result.Run(), result.Survived(), result.SavedByLatch()});
  console.Say(Format(Tr("violations: %llu"), static_cast<unsigned long long>(result.ViolationCount)));
  for (const auto& [kind, count] : result.Kinds)
    console.Say(Format("%8llu  %s", static_cast<unsigned long long>(count), kind.c_str()));
  for (const std::string& violation : result.Violations) console.Say("  " + violation);
  if (result.ViolationCount > result.Violations.size()) console.Say("  ...");
  return console.Print(JsonOf(result, command.Sweep.Seed), ProblemOf(result));
}

}  // namespace

void AddSweepCommand(TCommand program) {
  auto [sweep, options] = AddOwn<TSweepCommand>(
      program, "sweep",
      Tr("End every procedure at every moment in every way, and check that the machine is safe afterwards"),
      RunSweepCommand);
  sweep.Flag("--full", options.Sweep.Full, Tr("Run every point, however long it takes"));
  sweep
      .Number("--points", options.Sweep.Points, 1, kMostPoints, "points",
              Tr("How many points to run; which ones the seed decides, at least one of each row"))
      .ShowDefault();
  sweep.Text("--procedure", options.Sweep.Procedure, Tr("Only this procedure (default all); see `ixocut tree`"),
             "NAME");
  AddSeedOption(sweep, options.Sweep.Seed);
  AddJsonOption(sweep, options.Json);
  sweep.Help(
      {.Notes = Tr(
           "Virtual time, on a copy of the example machine; no state folder and no machine file of yours is used. A "
           "point is\n"
           "one way to disturb one run. Points of \"pair\" are counted for a few aborts per procedure unless --full is "
           "given.\n"
           "\"By latch\": the state thread ran, and only the laser's latch made it dark; that is a violation too."),
       .ExitCodes = Tr("0 no violation, 1 violations, 2 wrong command line or unknown procedure"),
       .Examples = {"ixocut sweep", "ixocut sweep --procedure shot --full",
                    "ixocut sweep --points 5000 --seed 7 --json"}});
}

}  // namespace ixocut
