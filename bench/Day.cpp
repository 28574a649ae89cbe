// A mixed day of procedures on the example machine, in virtual time: what a user's day costs the computer.
#include <chrono>
#include <filesystem>
#include <string>

#include "bench/Rows.h"
#include "controller/Controller.h"
#include "controller/procedures/Procedures.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::bench {
using namespace ixocontroller;
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kDayMs = 86'400'000;
constexpr std::uint64_t kLongestMs = 600'000;  // a procedure that takes longer has failed

struct TCall {
  const char* Name;
  TMotionValues Values;
};

// About two minutes: a plate is prepared, worked on and left; the head is looked after in between.
const TCall kRound[] = {
    {"safe-move", {300.0, 200.0, std::nullopt}},
    {"auto-calibrate", {std::nullopt}},
    {"safe-move-xyzf", {300.0, 200.0, 60.0, -2.0, std::nullopt}},
    {"gas-on", {2.0, 1.5}},
    {"shot", {400.0}},
    {"gas-off", {}},
    {"clean-nozzle-auto", {std::nullopt}},
    {"move-assist", {1000.0, 700.0, std::nullopt}},
    {"follow", {1.5, std::nullopt}},
    {"delay", {5000.0}},
    {"safe-z", {std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt}},
    {"move-work", {50.0, 50.0, std::nullopt}},
    {"output-on", {5.0}},
    {"focus", {3.0, std::nullopt}},
    {"output-off", {5.0}},
    {"change-nozzle", {1.0, 2.0}},
    {"change-nozzle", {2.0, 1.0}},
    {"lubricate", {200.0, 200.0, 600.0, 500.0, 2.0, std::nullopt}},
    {"go-maintenance", {}},
    {"go-blanking", {}},
};

// The machine file's copy, which calibrations and counters are saved in.
struct TFolder {
  TFolder() { fs::copy_file(ShareFolder() / "machines" / "machine.xml", Path / "machine.xml"); }

  TTempFolder Folder{"ixo-day"};
  fs::path Path = Folder.Path();
};

TStepPtr RootOf(const TCall& call) {
  const TMotionCall made{FindProcedure(std::string_view(call.Name)), call.Values, {}};
  return MakeRoot(call.Name, {&made, 1});
}

}  // namespace

std::string MixedDay() {
  const TFolder folder;
  TControllerOptions options;
  options.Machines = {SimulatedMachine()};
  options.MachineFile = folder.Path / "machine.xml";
  TController session(std::move(options));
  session.RunFor(1000);

  TNcWatch& watch = session.Framework().Watch();
  const std::uint64_t startMs = session.VirtualClock()->MonotonicMs();
  std::uint64_t procedures = 0;
  std::uint64_t ticks = 0;
  const auto start = std::chrono::steady_clock::now();
  while (session.VirtualClock()->MonotonicMs() - startMs < kDayMs) {
    for (const TCall& call : kRound) {
      const std::uint32_t before = watch.Tick.load();
      if (const TResult<> started = session.Start(ShareRoot(RootOf(call))); !started)
        throw std::runtime_error(std::string(call.Name) + ": " + started.Problem().Text());
      if (!session.RunToEnd(kLongestMs) || session.MotionState().Outcome().Type != metSuccess)
        throw std::runtime_error(std::string(call.Name) + " did not succeed: " + session.MotionState().Outcome().Path);
      ticks += watch.Tick.load() - before;
      ++procedures;
      session.RunFor(100);
    }
    session.Journal().Clear();  // the journal of a day is not what is measured
  }
  const double real = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double virtualS = static_cast<double>(session.VirtualClock()->MonotonicMs() - startMs) / 1000.0;
  return Format(
      "a mixed day of procedures: %llu procedures, %llu ticks, %.0f s of machine time in %.2f s: %.0f ticks/s, "
      "%.0f times as fast as real time",
      static_cast<unsigned long long>(procedures), static_cast<unsigned long long>(ticks), virtualS, real,
      static_cast<double>(ticks) / real, virtualS / real);
}

}  // namespace ixocamglue::bench
