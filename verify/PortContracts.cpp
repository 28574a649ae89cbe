#include "verify/PortContracts.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

#include "controller/runs/ProcedureRun.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixoverify {
namespace {

constexpr double kReachedMm = 0.05;
constexpr std::uint32_t kRoundMs = 10;
constexpr std::chrono::seconds kHangs{10};
constexpr std::int32_t kAtOnce = 1;
constexpr double kSlowMmPerS = 5.0;
constexpr const char* kTestTrip = "tripped by the contracts";

// An axis as what is tried of it.
struct TMoved {
  const char* Port;
  std::function<double()> Pos;
  std::function<TAxisLimits()> Limits;
  std::function<void(double mm, double mmPerS)> Move;
  std::function<bool()> Busy;
  std::function<void()> Stop;
};

class TContracts {
 public:
  explicit TContracts(const TContractRig& rig) : FRig(rig), FController(rig.Options) {
    if (rig.Options.Realtime) FController.StartThreads();
    WaitForStandby(FController);
  }
  ~TContracts() {
    if (FRig.Heal) FRig.Heal();
  }
  TContracts(const TContracts&) = delete;
  TContracts& operator=(const TContracts&) = delete;

  std::vector<TContractViolation> Run() {
    Guarded("laser", [this] { TryLaser(); });
    Guarded("gas", [this] { TryGas(); });
    for (const TMoved& axis : Axes()) Guarded(axis.Port, [&] { TryAxis(axis); });
    Guarded("outputs", [this] { TryOutputs(); });
    if (FRig.Cut) Guarded("connection", [this] { TryCut(); });
    return std::move(FViolations);
  }

 private:
  template <class Act>
  void Guarded(const char* port, const Act& act) {
    FPort = port;
    try {
      act();
    } catch (...) {
      Violated("a call threw: " + DescribeException(std::current_exception()));
    }
  }
  void Violated(std::string text) { FViolations.push_back({FPort, std::move(text)}); }
  void Expect(bool kept, const char* promise) {
    if (!kept) Violated(promise);
  }

  // On the state thread, as a step does; throws what the call throws. The time that it took is judged.
  template <class Act>
  auto Call(const char* what, Act act) {
    using TValue = decltype(act());
    const auto task = std::make_shared<std::packaged_task<TValue()>>(std::move(act));
    std::future<TValue> done = task->get_future();
    if (!FRig.Options.Realtime) {
      TNcStateFramework::RunAside([&] { (*task)(); });
      return done.get();
    }
    const auto took = std::make_shared<std::promise<std::chrono::steady_clock::duration>>();
    auto ended = took->get_future();
    FController.Framework().RunNext([took, task] {
      const auto start = std::chrono::steady_clock::now();
      (*task)();
      took->set_value(std::chrono::steady_clock::now() - start);
    });
    if (ended.wait_for(kHangs) != std::future_status::ready)
      throw std::runtime_error(Format("%s does not return", what));
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(ended.get()).count();
    if (ms > FRig.CallMs)
      Violated(Format("%s took %lld ms, at most %u", what, static_cast<long long>(ms), FRig.CallMs));
    return done.get();
  }
  void Wait(std::uint32_t ms) {
    if (FRig.Options.Realtime)
      std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    else
      FController.RunFor(ms);
  }
  template <class Done>
  bool Within(std::uint32_t ms, const Done& done) {
    for (std::uint32_t passed = 0; passed <= ms; passed += kRoundMs) {
      if (done()) return true;
      Wait(kRoundMs);
    }
    return done();
  }

  bool Emission() {
    return Call("GetEmission", [] { return FittedLaser()->GetEmission(); });
  }
  bool Lit() {
    return Call("GetLaser", [] { return FittedLaser()->GetLaser(); });
  }
  void AskBeam() {
    Call("EmissionOn", [] { FittedLaser()->EmissionOn(); });
    (void)Within(FRig.AnswerMs, [this] { return Emission(); });
    Call("SwitchLaser", [] { CutSystem()->SwitchLaser(true); });
  }
  void BeamOff() {
    Call("SwitchLaser", [] { CutSystem()->SwitchLaser(false); });
    Call("EmissionOff", [] { FittedLaser()->EmissionOff(); });
  }
  bool Dark() { return !Lit() && !Emission(); }
  const TNcWatch& Watch() { return FController.Framework().Watch(); }

  void ResetLatch() {
    BeamOff();
    (void)Within(FRig.AnswerMs, [this] { return FController.ResetLatch().Ok(); });
    Expect(Within(FRig.AnswerMs, [] { return !FittedLaser()->LatchReason(); }), "the latch is reset by ResetLatch");
  }

  void TryLaser() {
    if (!FittedLaser()) return;
    if (FittedLaser()->LatchReason()) ResetLatch();
    Expect(Dark(), "laser and emission are off at the start");
    AskBeam();
    Expect(Watch().EmissionAsked.Runs() && Watch().LaserAsked.Runs(), "what is asked for is kept in TNcWatch");
    Expect(Emission(), "emission is confirmed within its time");
    Expect(Within(FRig.AnswerMs, [this] { return Lit(); }), "the beam that was asked for with emission is lit");
    Expect(Watch().LaserOn.Runs() && Watch().EmissionOn.Runs(), "what is lit is kept in TNcWatch");
    BeamOff();
    Expect(!Watch().EmissionAsked.Runs() && !Watch().LaserAsked.Runs(), "the offs end what TNcWatch keeps as asked");
    bool early = false;
    const auto dark = [&] {
      const bool off = !Lit();
      early = early || (off && FController.Machine().Snapshot().Laser);
      return off && !Emission();
    };
    Expect(Within(FRig.AnswerMs, dark), "off is acknowledged by what is read back");
    Expect(!early, "off is not acknowledged while the beam is lit");
    Expect(Within(FRig.AnswerMs, [this] { return !Watch().LaserOn.Runs() && !Watch().EmissionOn.Runs(); }),
           "what is dark is kept in TNcWatch");
    TryForbidden();
    TryTrip();
  }

  void TryForbidden() {
    FController.RaiseAlarm({.IdPrefix = "TContract", .Id = 1, .Attrs = naForbidLaser});
    AskBeam();
    Wait(200);
    Expect(Dark(), "while an alarm forbids the laser nothing is lit");
    BeamOff();
    FController.ClearAlarms();
    (void)Within(FRig.AnswerMs, [] { return LaserAllowed(); });
    Wait(200);
    Expect(Dark(), "nothing is lit when the alarm ends");
    if (FittedLaser()->LatchReason()) ResetLatch();
  }

  void TryTrip() {
    AskBeam();
    if (!Within(FRig.AnswerMs, [this] { return Lit(); })) return Violated("the beam can be lit again");
    std::thread([] { FittedLaser()->Trip(kTestTrip); }).join();
    Expect(Within(FRig.AnswerMs, [this] { return !Lit(); }), "a trip darkens the beam");
    if (!FittedLaser()->LatchReason()) return;  // a source without a latch is never tripped
    AskBeam();
    Wait(200);
    Expect(Dark(), "a tripped latch keeps laser and emission off");
    ResetLatch();
    Wait(200);
    Expect(Dark(), "a reset of the latch lights nothing");
  }

  void TryGas() {
    if (!FittedGas()) return;
    const auto& branches = FController.Limits().Bounds.GasBranches;
    if (branches.empty()) return;
    const TGasBranchConfig& branch = branches.back();
    const auto idle = [this] {
      return Within(FRig.AnswerMs, [this] { return !Call("IsBusy", [] { return FittedGas()->IsBusy(); }); });
    };
    Call("SelectBranch", [&] { FittedGas()->SelectBranch(branch.GasType); });
    Expect(Call("GetBranch", [] { return FittedGas()->GetBranch(); }) == branch.GasType,
           "the branch that was selected is answered");
    Call("SetPressure", [&] { FittedGas()->SetPressure(branch.GetMaxPressure() + 5.0); });
    Expect(Call("GetPressure", [] { return FittedGas()->GetPressure(); }) <= branch.GetMaxPressure(),
           "a pressure above the branch's is limited");
    Call("SwitchOn", [] { FittedGas()->SwitchOn(); });
    Expect(idle(), "gas that is switched on comes to its end");
    Expect(Call("GetGas", [] { return FittedGas()->GetGas(); }), "gas that was switched on is on");
    Expect(Watch().GasOn.Runs(), "gas that is on is kept in TNcWatch");
    Call("SwitchOff", [] { FittedGas()->SwitchOff(); });
    Expect(Within(FRig.AnswerMs, [this] { return !Call("GetGas", [] { return FittedGas()->GetGas(); }); }),
           "gas that was switched off is acknowledged by reading back");
    Expect(Within(FRig.AnswerMs, [this] { return !Watch().GasOn.Runs(); }), "gas that is off is kept in TNcWatch");
  }

  std::vector<TMoved> Axes() {
    std::vector<TMoved> axes;
    const auto driver = [] { return MotionDriver(); };
    if (driver()) {
      for (const std::int32_t axis : {0, 1})
        axes.push_back({axis == 0 ? "axis X" : "axis Y", [axis] { return MotionDriver()->GetPos(axis); },
                        [axis] { return MotionDriver()->GetLimits(axis); },
                        [axis](double mm, double mmPerS) {
                          TPoint2 to{MotionDriver()->GetPos(0), MotionDriver()->GetPos(1)};
                          (axis == 0 ? to.X : to.Y) = mm;
                          MotionDriver()->MoveXY(to, mmPerS);
                        },
                        [] { return MotionDriver()->IsBusy(); }, [] { MotionDriver()->StopAll(0); }});
      if (driver()->HasZ() && !GFollower())
        axes.push_back({"axis Z", [] { return MotionDriver()->GetZ(); }, [] { return MotionDriver()->GetZLimits(); },
                        [](double mm, double mmPerS) { MotionDriver()->MoveZ(mm, mmPerS); },
                        [] { return MotionDriver()->IsBusy(); }, [] { MotionDriver()->StopAll(0); }});
    }
    if (GFollower())
      axes.push_back({"follower", [] { return GFollower()->GetZ(); }, [] { return GFollower()->GetZLimits(); },
                      [](double mm, double mmPerS) { GFollower()->MoveZ(mm, mmPerS); },
                      [] { return GFollower()->IsBusy(); }, [] { GFollower()->Stop(kAtOnce); }});
    const auto head = [] { return CutSystem()->CutHeadCtrl(); };
    if (head())
      axes.push_back({"focus", [head] { return head()->GetFocus(); }, [head] { return head()->GetFocusLimits(); },
                      [head](double mm, double mmPerS) { head()->MoveFocus(mm, mmPerS); },
                      [head] { return head()->IsBusy(); }, [head] { head()->Stop(kAtOnce); }});
    return axes;
  }

  void TryAxis(const TMoved& axis) {
    const auto pos = [&] { return Call("a read of the position", axis.Pos); };
    const auto busy = [&] { return Call("IsBusy", axis.Busy); };
    const auto move = [&](double mm, double mmPerS) { Call("a move", [&, mm, mmPerS] { axis.Move(mm, mmPerS); }); };
    const TAxisLimits limits = Call("a read of the limits", axis.Limits);
    Expect(limits.Neg < limits.Pos, "the limits are in order");
    const double from = pos();
    Expect(from >= limits.Neg - kReachedMm && from <= limits.Pos + kReachedMm, "the axis stands within its limits");
    const double to = from + FRig.WayMm <= limits.Pos ? from + FRig.WayMm : from - FRig.WayMm;
    const auto limitMs = static_cast<std::uint32_t>(FRig.WayMm / kSlowMmPerS * 1000.0) + FRig.AnswerMs;

    move(to, 0.0);
    Expect(busy(), "a move that has just been commanded is busy");
    Expect(Within(limitMs, [&] { return !busy(); }), "a move comes to its end");
    Expect(std::abs(pos() - to) <= kReachedMm, "what is not busy any more stands at its target");

    // From the first moment, and from the middle.
    for (const std::uint32_t afterMs : {0U, 300U}) {
      const double start = pos();
      const double target = std::abs(start - from) < std::abs(start - to) ? to : from;
      move(target, kSlowMmPerS);
      if (afterMs > 0) Wait(afterMs);
      Call("a stop", axis.Stop);
      Expect(Within(FRig.AnswerMs, [&] { return !busy(); }), "a stop ends the move");
      const double rest = pos();
      Expect(std::abs(rest - target) > kReachedMm, "a stopped move ends short of its target");
      Wait(200);
      Expect(std::abs(pos() - rest) <= kReachedMm, "what was stopped stays where it is");
    }
    move(from, 0.0);
    (void)Within(limitMs, [&] { return !busy(); });
    if (!std::isfinite(limits.Pos)) return;
    const double before = pos();
    try {
      move(limits.Pos + 10.0, 0.0);
    } catch (const std::exception&) {  // a refusal that is said aloud
    }
    Wait(200);
    Expect(std::abs(pos() - before) <= kReachedMm, "a target outside the limits moves nothing");
    Call("a stop", axis.Stop);
  }

  void TryOutputs() {
    const auto& outputs = FController.Limits().Bounds.Outports;
    if (!MotionCard() || outputs.empty()) return;
    const std::int32_t port = outputs.front().Number;
    const auto reads = [&](bool on) {
      return Within(FRig.AnswerMs, [&] {
        const TMachineSnapshot now = FController.Machine().Snapshot();
        return (std::ranges::find(now.OutputsOn, port) != now.OutputsOn.end()) == on;
      });
    };
    Call("SwitchOutport", [port] { MotionCard()->SwitchOutport(port, true); });
    Expect(reads(true), "an output that was switched on is read back");
    Call("SwitchOutport", [port] { MotionCard()->SwitchOutport(port, false); });
    Expect(reads(false), "an output that was switched off is read back");
  }

  // True: some read of the machine throws.
  bool ReadThrows(const char* what, const std::function<void()>& read) {
    try {
      Call(what, [&] { read(); });
      return false;
    } catch (const std::exception&) {
      return true;
    }
  }

  void TryCut() {
    std::vector<std::pair<const char*, std::function<void()>>> reads;
    if (FittedLaser()) reads.emplace_back("GetLaser", [] { (void)FittedLaser()->GetLaser(); });
    if (FittedGas()) reads.emplace_back("GetGas", [] { (void)FittedGas()->GetGas(); });
    if (FRig.CutsAxes && MotionDriver()) reads.emplace_back("GetPos", [] { (void)MotionDriver()->GetPos(0); });
    if (FRig.CutsAxes && GFollower()) reads.emplace_back("GetZ", [] { (void)GFollower()->GetZ(); });
    const auto allThrow = [&](bool throws) {
      return std::ranges::all_of(reads,
                                 [&](const auto& read) { return ReadThrows(read.first, read.second) == throws; });
    };
    if (FittedLaser()) {
      if (FittedLaser()->LatchReason()) ResetLatch();
      AskBeam();
      Expect(Within(FRig.AnswerMs, [this] { return Lit(); }), "the beam can be lit before the cut");
    }
    FRig.Cut();
    Expect(Within(FRig.AwayMs, [this] { return !LaserAllowed() && FController.Alarms().RequireStop(); }),
           "an alarm that forbids the laser and requires a stop stands while the device is away");
    Expect(Within(FRig.AwayMs, [&] { return allThrow(true); }), "reads throw while the device is away");
    if (FittedLaser()) {
      const auto ask = [&](const char* what, const std::function<void()>& act) { (void)ReadThrows(what, act); };
      ask("EmissionOn", [] { FittedLaser()->EmissionOn(); });
      ask("SwitchLaser", [] { CutSystem()->SwitchLaser(true); });
      ask("SwitchLaser", [] { CutSystem()->SwitchLaser(false); });
      ask("EmissionOff", [] { FittedLaser()->EmissionOff(); });
    }
    if (FittedGas()) (void)ReadThrows("SwitchOff", [] { FittedGas()->SwitchOff(); });
    if (MotionDriver()) (void)ReadThrows("StopAll", [] { MotionDriver()->StopAll(0); });
    if (GFollower()) (void)ReadThrows("Stop", [] { GFollower()->Stop(kAtOnce); });

    FRig.Heal();
    Expect(Within(FRig.BackMs, [&] { return allThrow(false); }), "reads answer again when the device is back");
    Expect(Within(FRig.AnswerMs, [this] { return !FController.Alarms().RequireStop(); }),
           "the alarm ends when the device is back");
    if (FittedLaser()) Expect(Within(FRig.AnswerMs, [this] { return Dark(); }), "the beam is dark when it is back");
    const auto at = [this] { return MotionDriver() ? Call("GetPos", [] { return MotionDriver()->GetPos(0); }) : 0.0; };
    const double before = at();
    Wait(500);
    if (FittedLaser()) Expect(Dark(), "nothing is lit by itself when the device is back");
    Expect(std::abs(at() - before) <= kReachedMm, "nothing moves by itself when the device is back");
    if (FittedLaser() && FittedLaser()->LatchReason()) ResetLatch();
  }

  const TContractRig& FRig;
  TController FController;
  const char* FPort = "";
  std::vector<TContractViolation> FViolations;
};

}  // namespace

std::vector<TContractViolation> CheckPortContracts(const TContractRig& rig) { return TContracts(rig).Run(); }

}  // namespace ixoverify
