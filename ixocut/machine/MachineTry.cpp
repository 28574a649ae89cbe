// `ixocut machine try`: one device after the other, each only after somebody has said yes, with a protocol of it.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <poll.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/LaserLatch.h"
#include "controller/SignalStop.h"
#include "controller/StateFolder.h"
#include "controller/procedures/ProcedureRun.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
#include "ixocut/machine/MachineCommand.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr double kJogMm = 1.0;
constexpr double kJogMmPerS = 10.0;
constexpr double kReachedMm = 0.05;
constexpr double kTryVolt = 1.0;
constexpr std::uint64_t kReadMs = 1000;  // for what was put out to show
constexpr std::uint64_t kMoveLimitMs = 30'000;
constexpr std::uint64_t kAnswerMs = 5000;  // of the state thread
constexpr std::uint64_t kLatchMs = 3000;   // until a latch that was set is up; what stays down refuses by itself
constexpr std::uint32_t kRoundMs = 20;

struct TTryOptions : TControllerSettings {
  std::vector<std::string> Ports;
  std::string Protocol;
  std::uint64_t PulseMs = 500;
  bool Yes = false;
  bool Json = false;
};

struct TTried {
  std::string Time, Port, Done, Read;
  bool Good = false;
};

// What somebody may try, by its name on the command line.
struct TTry {
  std::string Port;
  std::string Device;               // as a person knows it
  std::string Does;                 // what will be done
  std::function<TTried()> Perform;  // throws EProblem, also when somebody stops it
};

std::string UserName() {
  const passwd* const user = getpwuid(geteuid());
  return user && user->pw_name ? user->pw_name : std::to_string(geteuid());
}

// The machine with its threads; each wish is carried out by the state thread, as a procedure where there is one.
class TTryRun {
 public:
  explicit TTryRun(TControllerOptions options) : FController(std::move(options)) {
    FController.StartThreads();
    WaitForStandby(FController);
  }

  [[nodiscard]] TController& Controller() { return FController; }

  // Throws what the work throws.
  template <class Act>
  auto OnState(Act act) {
    using TValue = decltype(act());
    const auto task = std::make_shared<std::packaged_task<TValue()>>(std::move(act));
    std::future<TValue> done = task->get_future();
    FController.Framework().RunNext([task] { (*task)(); });
    if (done.wait_for(std::chrono::milliseconds(kAnswerMs)) != std::future_status::ready)
      throw EProblem(pbUnusable, TProblem{.What = Tr("the state thread does not answer")});
    return done.get();
  }
  void Wait(std::uint64_t ms) {
    for (const std::uint64_t end = Clock().MonotonicMs() + ms; Clock().MonotonicMs() < end; Clock().Sleep(kRoundMs))
      CheckStop();
  }
  static void CheckStop() {
    if (TSignalStop::Asked()) throw EProblem(pbRefused, TProblem{.What = Tr("stopped by hand")});
  }
  // A procedure with these of its parameters, to its end.
  using TValues = std::vector<std::pair<std::string_view, double>>;
  void Run(const char* procedure, const TValues& given) {
    const TProcedure* const row = FindProcedure(procedure);
    TMotionValues values(row->Params.size());
    for (const auto& [name, value] : given) {
      const auto param = std::ranges::find(row->Params, name, &TMotionParam::Name);
      values.at(static_cast<std::size_t>(param - row->Params.begin())) = value;
    }
    const TMotionCall call{row, std::move(values), {}};
    for (const TMotionParam& param : row->Params) call.Check(param, FController.Limits().Bounds).OrThrow(pbRefused);
    SetLatch();
    FController.Start(ShareRoot(call.Make(nullptr))).OrThrow(pbRefused);
    const std::uint64_t end = Clock().MonotonicMs() + kMoveLimitMs;
    bool stopped = false;
    while (FController.Running()) {
      if (!stopped && (TSignalStop::Asked() || Clock().MonotonicMs() >= end)) {
        stopped = true;
        FController.Framework().Stop();
      }
      if (stopped && Clock().MonotonicMs() >= end + kAnswerMs)
        throw EProblem(pbUnusable, TProblem{.What = Tr("the procedure does not end")});
      Clock().Sleep(kRoundMs);
    }
    CheckStop();
    const TMotionOutcome outcome = OnState([this] { return FController.MotionState().Outcome(); });
    if (outcome.Type == metSuccess) return;
    std::string why = outcome.Why;
    for (const std::string* const text : {&outcome.Cause, &outcome.Fault, &outcome.Path})
      if (why.empty()) why = *text;
    throw EProblem(pbRefused, TProblem{.What = why});
  }

 private:
  // A source's own latch may hold the axes, too; it is down as long as no controller lives, and after each end.
  void SetLatch() {
    if (!LatchReason()) return;
    FController.ResetLatch().OrThrow(pbRefused);
    for (const std::uint64_t end = Clock().MonotonicMs() + kLatchMs; LatchReason() && Clock().MonotonicMs() < end;)
      Wait(kRoundMs);
  }

  TController FController;
};

TTried Result(const std::string& done, const std::string& read, bool good) {
  return {.Time = {}, .Port = {}, .Done = done, .Read = read, .Good = good};
}

double TargetNear(double at, const TAxisLimits& limits, double step) {
  return at + step >= limits.Neg && at + step <= limits.Pos ? at + step : at - step;
}

// 1 mm and back, by the procedure of this name with these of its parameters.
TTried Jog(TTryRun& run, const char* procedure, const std::function<double()>& read,
           const std::function<TTryRun::TValues(double)>& values, double to) {
  const double from = run.OnState(read);
  run.Run(procedure, values(to));
  const double there = run.OnState(read);
  run.Run(procedure, values(from));
  const double back = run.OnState(read);
  return Result(Format(Tr("moved from %.3f to %.3f mm and back"), from, to), Format("%.3f, %.3f mm", there, back),
                std::abs(there - to) <= kReachedMm && std::abs(back - from) <= kReachedMm);
}

void AddAxes(TTryRun& run, std::vector<TTry>& tries) {
  const std::string how = Format(Tr("%g mm and back, at %g mm/s"), kJogMm, kJogMmPerS);
  if (MotionDriver())
    for (const std::int32_t axis : {0, 1}) {
      const char* const name = axis == 0 ? "X" : "Y";
      tries.push_back(
          {axis == 0 ? "x" : "y", Format(Tr("axis %s"), name), how, [&run, axis] {
             const TPoint2 from = run.OnState([] {
               return TPoint2{MotionDriver()->GetPos(0), MotionDriver()->GetPos(1)};
             });
             const TAxisLimits limits = run.OnState([axis] { return MotionDriver()->GetLimits(axis); });
             const double at = axis == 0 ? from.X : from.Y;
             return Jog(
                 run, "move-xy", [axis] { return MotionDriver()->GetPos(axis); },
                 [from, axis](double to) -> TTryRun::TValues {
                   return {{"x", axis == 0 ? to : from.X}, {"y", axis == 1 ? to : from.Y}, {"speed", kJogMmPerS}};
                 },
                 TargetNear(at, limits, kJogMm));
           }});
    }
  if (GFollower() || (MotionDriver() && run.OnState([] { return MotionDriver()->HasZ(); })))
    tries.push_back({"z", Format(Tr("axis %s"), "Z"), how, [&run] {
                       const auto read = [] { return GFollower() ? GFollower()->GetZ() : MotionDriver()->GetZ(); };
                       const double at = run.OnState(read);
                       const TAxisLimits limits = run.OnState(
                           [] { return GFollower() ? GFollower()->GetZLimits() : MotionDriver()->GetZLimits(); });
                       return Jog(
                           run, "move-z", read,
                           [](double to) -> TTryRun::TValues {
                             return {{"z", to}, {"speed", kJogMmPerS}};
                           },
                           TargetNear(at, limits, -kJogMm));  // up, where there is room
                     }});
  if (CutSystem()->CutHeadCtrl())
    tries.push_back({"focus", Format(Tr("axis %s"), "Focus"), how, [&run] {
                       const auto read = [] { return CutSystem()->CutHeadCtrl()->GetFocus(); };
                       const double at = run.OnState(read);
                       const TAxisLimits limits =
                           run.OnState([] { return CutSystem()->CutHeadCtrl()->GetFocusLimits(); });
                       return Jog(
                           run, "focus", read,
                           [](double to) -> TTryRun::TValues {
                             return {{"focus", to}, {"speed", kJogMmPerS}};
                           },
                           TargetNear(at, limits, kJogMm));
                     }});
}

void AddPorts(TTryRun& run, std::uint64_t pulseMs, std::vector<TTry>& tries) {
  const TMachineBounds& machine = run.Controller().Limits().Bounds;
  if (DeviceManager() && DeviceManager()->InputGroup())
    for (const TPortConfig& port : machine.Inports)
      tries.push_back({Format("input:%d", port.Number), Format(Tr("input %d %s"), port.Number, port.Name.c_str()),
                       Tr("is read"), [&run, number = port.Number] {
                         const bool high =
                             run.OnState([number] { return DeviceManager()->InputGroup()->GetInput(number); });
                         return Result(Tr("read"), high ? "1" : "0", true);
                       }});
  if (MotionCard())
    for (const TPortConfig& port : machine.Outports)
      tries.push_back({Format("output:%d", port.Number), Format(Tr("output %d %s"), port.Number, port.Name.c_str()),
                       Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(pulseMs)),
                       [&run, pulseMs, number = port.Number] {
                         const auto isOn = [&run, number] {
                           const TMachineSnapshot now = run.Controller().Machine().Snapshot();
                           return std::ranges::find(now.OutputsOn, number) != now.OutputsOn.end();
                         };
                         const auto off = [&run, number] {
                           run.OnState([number] { MotionCard()->SwitchOutport(number, false); });
                         };
                         bool on = false;
                         try {
                           run.OnState([number] { MotionCard()->SwitchOutport(number, true); });
                           run.Wait(pulseMs);
                           on = isOn();
                         } catch (...) {
                           off();
                           throw;
                         }
                         off();
                         for (std::uint64_t ms = 0; isOn() && ms < kReadMs; ms += kRoundMs) Clock().Sleep(kRoundMs);
                         const bool stays = isOn();
                         return Result(Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(pulseMs)),
                                       Format("%d, %d", on ? 1 : 0, stays ? 1 : 0), on && !stays);
                       }});
}

void AddGas(TTryRun& run, std::vector<TTry>& tries) {
  if (!FittedGas()) return;
  for (const TGasBranchConfig& branch : run.Controller().Limits().Bounds.GasBranches) {
    if (branch.DAPort == 0) continue;
    tries.push_back({Format("gas:%d", branch.GasType), Format(Tr("gas %d %s"), branch.GasType, branch.Name.c_str()),
                     Format(Tr("%g V to its proportional valve for %g s, its gas off"), kTryVolt, kReadMs / 1000.0),
                     [&run, type = branch.GasType] {
                       const auto put = [&run](double volt) { run.OnState([volt] { FittedGas()->OutputDA(volt); }); };
                       run.OnState([type] { FittedGas()->SelectBranch(type); });
                       if (run.OnState([] { return FittedGas()->GetBranch(); }) != type)
                         throw EProblem(pbRefused, TProblem{.What = Tr("the branch cannot be selected")});
                       double bar = 0.0;
                       try {
                         put(kTryVolt);
                         run.Wait(kReadMs);
                         bar = run.OnState([] { return DeviceManager() ? DeviceManager()->GetRtGasPressure() : 0.0; });
                       } catch (...) {
                         put(0.0);
                         throw;
                       }
                       put(0.0);
                       return Result(Format(Tr("%g V, then 0 V"), kTryVolt), Format("%.3f bar", bar), true);
                     }});
  }
}

void AddPilot(TTryRun& run, std::uint64_t pulseMs, std::vector<TTry>& tries) {
  if (!FittedLaser()) return;
  const std::string what = Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(pulseMs));
  tries.push_back({"pilot", Tr("pilot light"), what, [&run, pulseMs, what] {
                     const auto set = [&run](bool on) { run.OnState([on] { FittedLaser()->SetAiming(on); }); };
                     const auto isOn = [&run] { return run.OnState([] { return FittedLaser()->GetAiming(); }); };
                     bool on = false;
                     try {
                       set(true);
                       run.Wait(pulseMs);
                       on = isOn();
                     } catch (...) {
                       set(false);
                       throw;
                     }
                     set(false);
                     return Result(what, Format("%d", on ? 1 : 0), on);
                   }});
}

std::vector<TTry> Chosen(std::vector<TTry> all, const std::vector<std::string>& ports) {
  if (ports.empty()) return all;
  std::vector<TTry> chosen;
  for (const std::string& port : ports) {
    const auto it = std::ranges::find(all, port, &TTry::Port);
    if (it == all.end()) {
      TNearestName nearest(port);
      std::string known;
      for (const TTry& each : all) {
        nearest.Consider(each.Port);
        known += (known.empty() ? "" : ", ") + each.Port;
      }
      throw EProblem(pbRequest, TProblem{.What = Format(Tr("the machine has no port \"%s\""), port.c_str()),
                                         .Where = {},
                                         .Why = Format(Tr("there are: %s"), known.c_str()),
                                         .Remedy = nearest.DidYouMean()});
    }
    chosen.push_back(*it);
  }
  return chosen;
}

enum class TAnswer : std::uint8_t { Yes, No, End };

// Waits for a line; Ctrl-C and the end of the input are the end.
TAnswer Ask(const std::string& question) {
  std::cerr << question << std::flush;
  std::string line;
  for (;;) {
    pollfd in{STDIN_FILENO, POLLIN, 0};
    if (poll(&in, 1, 100) > 0) {
      if (!std::getline(std::cin, line)) return TAnswer::End;
      const std::string_view word = TrimXml(line);
      if (word == "q" || word == "Q") return TAnswer::End;
      return word == "y" || word == "Y" ? TAnswer::Yes : TAnswer::No;
    }
    if (TSignalStop::Asked()) return TAnswer::End;
  }
}

// A line a try, written as soon as it is known; columns are parted by tabs.
class TProtocol {
 public:
  TProtocol(std::filesystem::path file, const std::string& machine) : FFile(std::move(file)), FWho(UserName()) {
    std::error_code error;
    if (std::filesystem::exists(FFile, error))
      throw EProblem(pbRequest, TProblem{.What = Format(Tr("%s is there already"), FFile.string().c_str()),
                                         .Where = "--protocol",
                                         .Why = {},
                                         .Remedy = Tr("name another one; nothing was tried")});
    if (FFile.has_parent_path()) std::filesystem::create_directories(FFile.parent_path(), error);
    FOut.open(FFile);
    FOut << "machine\t" << machine << "\ntime\twho\tport\tdone\tread\tgood\n" << std::flush;
    Check();
  }
  void Add(const TTried& tried) {
    FOut << tried.Time << '\t' << FWho << '\t' << tried.Port << '\t' << tried.Done << '\t' << tried.Read << '\t'
         << (tried.Good ? "yes" : "no") << '\n'
         << std::flush;
    Check();
  }
  [[nodiscard]] const std::filesystem::path& File() const { return FFile; }

 private:
  void Check() {
    if (!FOut) throw EProblem(pbUnusable, TProblem{.What = Tr("cannot be written"), .Where = FFile.string()});
  }
  const std::filesystem::path FFile;
  const std::string FWho;
  std::ofstream FOut;
};

std::filesystem::path ProtocolFile(const TTryOptions& options) {
  if (!options.Protocol.empty()) return options.Protocol;
  std::string name = "machine-try-" + FormatUtc(UtcNow()) + ".tsv";
  std::ranges::replace(name, ':', '-');
  return StateFolder(options.State) / name;
}

TTried Performed(const TTry& each) {
  TTried tried;
  try {
    tried = each.Perform();
  } catch (const EProblem& problem) {
    tried = Result(each.Does, problem.Problem.Text(), false);
  } catch (...) {
    tried = Result(each.Does, DescribeException(std::current_exception()), false);
  }
  tried.Port = each.Port;
  tried.Time = FormatUtc(UtcNow());
  return tried;
}

int RunTry(const TTryOptions& options, std::ostream& out) {
  if (!options.Yes && isatty(STDIN_FILENO) != 1)
    throw EProblem(pbRefused, TProblem{.What = Tr("each try is confirmed by hand, and there is no terminal"),
                                       .Where = {},
                                       .Why = {},
                                       .Remedy = Tr("run it in a terminal, or give --yes and watch the machine")});
  const TSignalStop signals;
  TControllerOptions controllerOptions = options.Options();
  controllerOptions.Realtime = true;
  const std::string machine = controllerOptions.MachineFile.string();
  TTryRun run(std::move(controllerOptions));
  std::vector<TTry> tries;
  AddAxes(run, tries);
  AddPorts(run, options.PulseMs, tries);
  AddGas(run, tries);
  AddPilot(run, options.PulseMs, tries);
  tries = Chosen(std::move(tries), options.Ports);
  TProtocol protocol(ProtocolFile(options), machine);

  std::vector<TTried> tried;
  bool whole = true;
  for (const TTry& each : tries) {
    const std::string what = each.Port + " (" + each.Device + "): " + each.Does;
    const TAnswer answer = TSignalStop::Asked() ? TAnswer::End
                           : options.Yes        ? TAnswer::Yes
                                                : Ask(what + Tr("? y: yes, q: end, else no: "));
    if (answer == TAnswer::End) {
      whole = false;
      break;
    }
    if (answer == TAnswer::No) continue;
    tried.push_back(Performed(each));
    protocol.Add(tried.back());
    const TTried& last = tried.back();
    if (!options.Json)
      out << Format("%s  %s: %s; %s", last.Good ? Tr("good") : Tr("BAD"), each.Port.c_str(), last.Done.c_str(),
                    last.Read.c_str())
          << std::endl;
  }
  std::optional<TProblem> problem;
  const auto bad = std::ranges::count(tried, false, &TTried::Good);
  if (!whole)
    problem = TProblem{.What = Tr("stopped by hand")};
  else if (bad > 0)
    problem = TProblem{
        .What = Format(Tr("%zu of %zu tries were not as they should be"), static_cast<std::size_t>(bad), tried.size())};
  if (options.Json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const TTried& each : tried)
      list.push_back(
          {{"time", each.Time}, {"port", each.Port}, {"done", each.Done}, {"read", each.Read}, {"good", each.Good}});
    PrintDocument(out, "machine try", {{"protocol", protocol.File().string()}, {"tries", list}}, problem);
  } else {
    out << Format(Tr("The protocol is in %s"), protocol.File().string().c_str()) << std::endl;
    if (problem) std::cerr << "ixocut machine try: " << problem->Text() << '\n';
  }
  return problem ? kExitOtherwise : kExitSuccess;
}

}  // namespace

void AddMachineTryCommand(CLI::App& machine, TCommandRun& run) {
  const auto options = std::make_shared<TTryOptions>();
  CLI::App* const command = machine.add_subcommand(
      "try", Tr("Try one port after the other, each after a confirmation, and write a protocol"));
  command->add_option("PORT", options->Ports,
                      Tr("x, y, z, focus, input:4, output:5, gas:2 or pilot; none: one after the other, all"));
  AddNumberOption(*command, "--pulse", options->PulseMs, 20, 10'000, "ms",
                  Tr("How long outputs and the pilot light are on"))
      ->capture_default_str();
  command->add_option("--protocol", options->Protocol, Tr("The protocol to write (default: in the state folder)"))
      ->type_name("FILE");
  command->add_flag("--yes", options->Yes, Tr("Ask nobody; for who watches the machine"));
  AddJsonOption(*command, options->Json);
  AddMachineOptions(*command, options->Machine, options->State);
  AddLanguageOption(*command, options->Language);
  SetHelp(
      *command,
      {.Notes = Tr("Axes move 1 mm and back at 10 mm/s, through the same steps as any procedure. The laser is never "
                   "lit: only its\npilot light is. Ctrl-C stops what moves and ends dark."),
       .ExitCodes = Tr("0 all were as they should be, 1 one was not, or it was stopped or refused, 2 wrong command "
                       "line,\n3 a file or the machine cannot be used"),
       .Examples = {"ixocut machine try", "ixocut machine try x output:5", "ixocut machine try gas:2 --yes"}});
  command->callback([options, &run] { run = [options] { return RunTry(*options, std::cout); }; });
}

}  // namespace ixocut
