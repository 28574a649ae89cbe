#include "controller/commissioning/PortTries.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <optional>
#include <utility>

#include "controller/procedures/Procedures.h"
#include "controller/runs/ProcedureRun.h"
#include "controller/safety/LaserLatch.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr double kJogMm = 1.0;
constexpr double kJogMmPerS = 10.0;
constexpr double kReachedMm = 0.05;
constexpr double kTryVolt = 1.0;
constexpr std::uint64_t kReadMs = 1000;  // for what was put out to show
constexpr std::uint64_t kMoveLimitMs = 30'000;
constexpr std::uint64_t kAnswerMs = 5000;  // of the state thread
constexpr std::uint64_t kLatchMs = 3000;   // until a latch that was set is up; what stays down refuses by itself
constexpr std::uint32_t kTryRoundMs = 20;

}  // namespace

// The machine with its threads; each wish is carried out by the state thread, as a procedure where there is one.
class TTryRun {
 public:
  TTryRun(TControllerOptions options, std::function<bool()> stops)
      : FStops(std::move(stops)), FController(std::move(options)) {
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
    for (const std::uint64_t end = Clock().MonotonicMs() + ms; Clock().MonotonicMs() < end; Clock().Sleep(kTryRoundMs))
      CheckStop();
  }
  void CheckStop() const {
    if (FStops()) throw EProblem(pbRefused, TProblem{.What = Tr("stopped by hand")});
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
    std::optional<std::uint64_t> stoppedAt;
    while (FController.Running()) {
      const std::uint64_t now = Clock().MonotonicMs();
      if (!stoppedAt && (FStops() || now >= end)) {
        stoppedAt = now;
        FController.Framework().Stop();
      }
      if (stoppedAt && now >= *stoppedAt + kAnswerMs)
        throw EProblem(pbUnusable, TProblem{.What = Tr("the procedure does not end")});
      Clock().Sleep(kTryRoundMs);
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
      Wait(kTryRoundMs);
  }

  const std::function<bool()> FStops;
  TController FController;
};

namespace {

TTriedPort Result(const std::string& done, const std::string& read, bool good) {
  return {.Done = done, .Read = read, .Good = good};
}

double TargetNear(double at, const TAxisLimits& limits, double step) {
  return at + step >= limits.Neg && at + step <= limits.Pos ? at + step : at - step;
}

// 1 mm and back, by the procedure of this name with these of its parameters.
TTriedPort Jog(TTryRun& run, const char* procedure, const std::function<double()>& read,
               const std::function<TTryRun::TValues(double)>& values, double to) {
  const double from = run.OnState(read);
  run.Run(procedure, values(to));
  const double there = run.OnState(read);
  run.Run(procedure, values(from));
  const double back = run.OnState(read);
  return Result(Format(Tr("moved from %.3f to %.3f mm and back"), from, to), Format("%.3f, %.3f mm", there, back),
                std::abs(there - to) <= kReachedMm && std::abs(back - from) <= kReachedMm);
}

// On for so long, then off; both are read back.
TTriedPort Pulse(TTryRun& run, std::uint64_t ms, const std::function<void(bool)>& set,
                 const std::function<bool()>& isOn) {
  bool on = false;
  try {
    set(true);
    run.Wait(ms);
    on = isOn();
  } catch (...) {
    set(false);
    throw;
  }
  set(false);
  for (std::uint64_t waited = 0; isOn() && waited < kReadMs; waited += kTryRoundMs) Clock().Sleep(kTryRoundMs);
  const bool stays = isOn();
  return Result(Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(ms)),
                Format("%d, %d", on ? 1 : 0, stays ? 1 : 0), on && !stays);
}

void AddAxes(TTryRun& run, std::vector<TPortTry>& tries) {
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

void AddPorts(TTryRun& run, std::uint64_t pulseMs, std::vector<TPortTry>& tries) {
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
      tries.push_back(
          {Format("output:%d", port.Number), Format(Tr("output %d %s"), port.Number, port.Name.c_str()),
           Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(pulseMs)),
           [&run, pulseMs, number = port.Number] {
             return Pulse(
                 run, pulseMs,
                 [&run, number](bool on) { run.OnState([number, on] { MotionCard()->SwitchOutport(number, on); }); },
                 [&run, number] {
                   const TMachineSnapshot now = run.Controller().Machine().Snapshot();
                   return std::ranges::find(now.OutputsOn, number) != now.OutputsOn.end();
                 });
           }});
}

void AddGas(TTryRun& run, std::vector<TPortTry>& tries) {
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
                       // The supply is busy until what was put out has been read back.
                       const auto arrives = [&run] {
                         const auto busy = [&run] { return run.OnState([] { return FittedGas()->IsBusy(); }); };
                         for (std::uint64_t ms = 0; busy() && ms < kReadMs; ms += kTryRoundMs)
                           Clock().Sleep(kTryRoundMs);
                         return !busy();
                       };
                       double bar = 0.0;
                       bool arrived = false;
                       try {
                         put(kTryVolt);
                         run.Wait(kReadMs);
                         arrived = arrives();
                         bar = run.OnState([] { return DeviceManager() ? DeviceManager()->GetRtGasPressure() : 0.0; });
                       } catch (...) {
                         put(0.0);
                         throw;
                       }
                       put(0.0);
                       const bool shut = arrives();
                       return Result(Format(Tr("%g V, then 0 V"), kTryVolt), Format("%.3f bar", bar), arrived && shut);
                     }});
  }
}

void AddPilot(TTryRun& run, std::uint64_t pulseMs, std::vector<TPortTry>& tries) {
  if (!FittedLaser()) return;
  const std::string what = Format(Tr("on for %llu ms, then off"), static_cast<unsigned long long>(pulseMs));
  tries.push_back({"pilot", Tr("pilot light"), what, [&run, pulseMs] {
                     return Pulse(
                         run, pulseMs, [&run](bool on) { run.OnState([on] { FittedLaser()->SetAiming(on); }); },
                         [&run] { return run.OnState([] { return FittedLaser()->GetAiming(); }); });
                   }});
}

}  // namespace

TPortTries::TPortTries(TControllerOptions options, std::uint64_t pulseMs, std::function<bool()> stops)
    : FRun([&] {
        options.Realtime = true;
        return std::make_unique<TTryRun>(std::move(options), std::move(stops));
      }()) {
  AddAxes(*FRun, FAll);
  AddPorts(*FRun, pulseMs, FAll);
  AddGas(*FRun, FAll);
  AddPilot(*FRun, pulseMs, FAll);
}

TPortTries::~TPortTries() = default;

std::span<const TPortTry> TPortTries::All() const { return FAll; }

std::vector<const TPortTry*> TPortTries::Chosen(const std::vector<std::string>& ports) const {
  std::vector<const TPortTry*> chosen;
  if (ports.empty())
    for (const TPortTry& each : FAll) chosen.push_back(&each);
  for (const std::string& port : ports) {
    const auto it = std::ranges::find(FAll, port, &TPortTry::Port);
    if (it == FAll.end()) {
      TNearestName nearest(port);
      std::string known;
      for (const TPortTry& each : FAll) {
        nearest.Consider(each.Port);
        AddToList(known, each.Port);
      }
      throw EProblem(pbRequest, TProblem{.What = Format(Tr("the machine has no port \"%s\""), port.c_str()),
                                         .Where = {},
                                         .Why = Format(Tr("there are: %s"), known.c_str()),
                                         .Remedy = nearest.DidYouMean()});
    }
    chosen.push_back(&*it);
  }
  return chosen;
}

TTriedPort TPortTries::Perform(const TPortTry& port) {
  try {
    return port.Perform();
  } catch (const EProblem& problem) {
    return Result(port.Does, problem.Problem.Text(), false);
  } catch (...) {
    return Result(port.Does, DescribeException(std::current_exception()), false);
  }
}

}  // namespace ixocontroller
