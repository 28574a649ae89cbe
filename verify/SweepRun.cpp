#include "verify/SweepRun.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "controller/process/StateFolder.h"
#include "controller/runs/ProcedureRun.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "machines/simulated/Machine.h"
#include "verify/Oracle.h"
#include "verify/Sampler.h"

namespace ixoverify {
namespace {

constexpr std::uint64_t kCutMs = 10'000;    // machine time after which a procedure that still runs is stopped
constexpr std::uint64_t kSettleMs = 3'000;  // for axes to come to rest
constexpr std::uint32_t kEndedMs = 3'000;   // for the same, when nobody looks at them any more
constexpr std::int32_t kNextPallet = 2;
constexpr std::uint32_t kExchangeMs = 100;

void HurryNozzles(TNozzleChangeConfig& rack) {
  rack.ZMoveLowSpeed = 400.0L;
  rack.ZMoveHighSpeed = 1000.0L;
  for (std::int32_t row = 0; row < rack.NozzlePosItems.GetRowCount(); ++row)
    for (std::int32_t col = 0; col < rack.NozzlePosItems.GetColCount(); ++col) {
      TNozzlePosItem& slot = *rack.TryGetNozzlePosItem(row, col);
      slot.InstCnt = slot.UnInstCnt = 0.3L;
      slot.AlignCnt = 0.1L;
    }
}

// The example's machine made fast, and all that it may do switched on: the moments count, not the ways between them.
void Hurry(TSimConfig& config) {
  for (TSimAxisConfig* const axis : {&config.X, &config.Y, &config.Z, &config.Focus}) {
    axis->MaxSpeed = axis == &config.X || axis == &config.Y ? 20'000.0 : 1000.0;
    axis->Acceleration = axis->MaxSpeed * 100.0;
  }
  config.Rack.TravelMs = 20;
  config.Rack.ThreadTurns = 0.2;
  config.Physics.PlateZ = 40.0;
  config.Physics.GasTimeConstantMs = 10;
  HurryNozzles(*FNozzleChangeCfg);
  FNozzleCleanCfg->CleanSpeed = 2000.0;
  FFloatCailCfg->PosZ = 38.0;
  FFloatCailCfg->AutoCailEnabled = true;
  FIxoCutCfg->ClientWork.AutoCleanHeadConfig.AutoCailAfterClean = true;
}

struct TNullSink final : ILogSink {
  void Write(const TLogRecord&) override {}
};

// One run of one procedure with one thing going wrong.
class TSweepRun {
 public:
  // The diagnostic channel is listened to only where its sink is what is tried.
  TSweepRun(const TSweepCase& what, const TSweepPoint& point, TSweepMachine& machine, bool tracing)
      : FCase(what), FPoint(point), FMachine(machine), FRun(Options(), {}, tracing ? kDiagAll : 0) {
    if (what.Prepare) what.Prepare(Machine());
    ArrangeEmission();
    FSampler.Attach(FController);
    FRun.Ready();
    FDeviceBase = Gate().Calls();
    FSinkBase = FLogGate.Calls();
    ArrangeFaults();
  }

  TSweepFacts Run() {
    FTickBase = Watch().Tick.load();
    RunProcedure();
    FFacts.Ticks = Watch().Tick.load() - FTickBase;
    FFacts.EnteredMs = FStartMs - FPoint.FirstMs;
    FFacts.LastedMs = Clock().MonotonicMs() - FStartMs;
    FFacts.DeviceCalls = Gate().Calls() - FDeviceBase;
    if (FPoint.AbortTick && FAbortedAt) FFacts.CallsAfterAbort = Gate().Calls() - FAbortBase;
    FFacts.SinkCalls = FLogGate.Calls() - FSinkBase;
    if (Ended()) {
      Clock().Sleep(kEndedMs);  // no pass any more
      FSampler.Sample();
      AskOracle();
    } else {
      Settle();
      Mend();
      AskOracle();
      Probe();
    }
    return std::move(FFacts);
  }

 private:
  TControllerOptions Options() {
    TControllerOptions options;
    options.SafeEntry = FPoint.SafeEntry;
    options.Supervisor = FPoint.Supervisor;  // the procedures and the platform must be enough
    if (FPoint.FirstTick != 0) options.FirstTick = FPoint.FirstTick;
    options.FirstMs = FPoint.FirstMs;
    options.LogCapacity = 64;
    options.Sinks = {&FGatedSink};
    options.EndFailed = [this](const TProblem&, bool) {
      Violation(Tr("not everything is off when the controller has ended"));
    };
    if (!FCase.PlainMachine) options.MachineFile = FMachine.Fresh();
    const auto adjust = [&what = FCase](TSimConfig& config) {
      config.Physics.EmissionDelayMs = 30;
      config.Physics.EmissionJitterMs = 0;
      if (!what.PlainMachine) Hurry(config);
      config.Physics.Follower = !what.DriverZ;
      config.Physics.SecondFollower = config.Physics.Follower;
      if (what.WorkArea) config.WorkArea = *what.WorkArea;
    };
    options.Machines = {SimulatedMachine({.Adjust = adjust})};
    return options;
  }

  TSimMachine& Machine() { return Simulated(FController.Machine()); }
  TCallGate& Gate() { return Machine().Gate(); }
  TNcWatch& Watch() { return FController.Framework().Watch(); }
  void Violation(std::string text) { FFacts.Violations.push_back(std::move(text)); }

  void ArrangeEmission() {
    TSimLaser& laser = *Machine().Laser();
    switch (FPoint.Emission) {
      case TSweepEmission::Configured: break;
      case TSweepEmission::AtOnce: laser.SetEmissionScript(TEmissionScript::AfterPolls(0)); break;
      case TSweepEmission::AfterOnePoll: laser.SetEmissionScript(TEmissionScript::AfterPolls(1)); break;
      case TSweepEmission::AfterEightPolls: laser.SetEmissionScript(TEmissionScript::AfterPolls(8)); break;
      case TSweepEmission::Never: laser.SetEmissionScript(TEmissionScript::Never()); break;
    }
  }

  void ArrangeFaults() {
    if (!FPoint.FromAbort) PlanDeviceFault(FDeviceBase);
    if (FPoint.SinkCall)
      FLogGate.PlanSet(
          {.Call = FSinkBase + FPoint.SinkCall, .Fault = gfThrow, .Sticky = false, .HangMs = 0, .Callback = {}});
  }

  void PlanDeviceFault(std::uint64_t base) {
    if (FPoint.DeviceCall) {
      TGatePlan plan{.Call = base + FPoint.DeviceCall,
                     .Fault = FPoint.Refused ? gfRefuse : gfThrow,
                     .Sticky = FPoint.Sticky,
                     .HangMs = 0,
                     .Callback = {}};
      if (FPoint.Callback != TSweepCall::None || FPoint.HangMs > 0) {
        plan.Fault = gfCallback;
        plan.Callback = [this] { CallBack(); };
      }
      Gate().PlanSet(std::move(plan));
    }
  }

  void CallBack() {
    switch (FPoint.Callback) {
      case TSweepCall::None: Hang(); break;
      case TSweepCall::Stop:
        NoteCause(std::string(kFromCall) + ": stop");
        FController.Framework().Stop();
        break;
      case TSweepCall::Alarm:
        NoteCause(std::string(kFromCall) + ": alarm");
        FController.RaiseAlarm(
            {.IdPrefix = "TPSweep", .Desc = "alarm out of a device call", .Id = 1, .Attrs = naForbidMove});
        break;
      case TSweepCall::SecondProcedure:
        if (FController.Running() && FController.Start(ShareRoot(MakeShot(1))))
          Violation(Tr("a second procedure was started"));
        break;
    }
  }

  void Hang() {
    FSampler.Note(kHang, Format("%u", FPoint.HangMs));
    Clock().Sleep(FPoint.HangMs);
  }

  // What ends the procedure comes now; in standby it ends nothing.
  void NoteCause(const std::string& what) {
    if (FController.Framework().CurrentState() == nsCustomMotion) FSampler.Note(kCause, what);
  }

  void RunProcedure() {
    FStartMs = Clock().MonotonicMs();
    FRun.OnPass([this] { BeforePass(); }, [this] { AfterPass(); });
    try {
      FRun.Drive(ShareRoot(FCase.MakeRoot()), kCutMs, kSettleMs);
    } catch (const EProblem& e) {
      Violation(std::string(Tr("cannot start: ")) + e.what());
    }
    FRun.OnPass({}, {});
    if (FController.Running()) Violation(Tr("the procedure does not end"));
  }

  void BeforePass() {
    if (FPoint.AbortTick && !FAbortedAt && Watch().Tick.load() - FTickBase >= *FPoint.AbortTick &&
        FController.Framework().CurrentState() == nsCustomMotion) {
      FAbortedAt = FController.Journal().Size();
      FAbortBase = Gate().Calls();
      if (FPoint.FromAbort) PlanDeviceFault(FAbortBase);
      Disturb();
    }
    FLastPass = FController.Journal().Size();
  }

  // Lost emission is a cause where light or emission was there to be lost; an alarm that forbids the laser forbids
  // nothing to a procedure that does not ask for it.
  void Disturb() {
    switch (FPoint.Event) {
      case TSweepEvent::Abort:
        NoteCause(Format("reason %d", FPoint.Reason));
        return FController.Framework().Abort(FPoint.Reason);
      case TSweepEvent::LaserAlarm:
        return FController.RaiseAlarm({.IdPrefix = "TPSweep", .Desc = "laser alarm", .Id = 2, .Attrs = naForbidLaser});
      case TSweepEvent::LostEmission: return Machine().Laser()->LoseEmission();
      case TSweepEvent::End:
        NoteCause("end");
        FController.StopThreads();  // what its destructor does first, and what SIGTERM comes to
        return FSampler.Note(kEnded);
      case TSweepEvent::PalletExchange: return Machine().Table().Exchange(kNextPallet, kExchangeMs);
    }
  }

  [[nodiscard]] bool Ended() const { return FAbortedAt && FPoint.Event == TSweepEvent::End; }

  void AfterPass() {
    const auto& framework = FController.Framework();
    if (framework.CurrentState() == nsCustomMotion && framework.Busy() == bkNone && !framework.ChangePending())
      Violation(Tr("a tick left neither a busy condition nor a change of state"));
    // The cut that comes now is an abort.
    if (Clock().MonotonicMs() - FStartMs >= kCutMs && FController.Running() && !std::exchange(FCut, true))
      NoteCause("cut");
  }

  [[nodiscard]] bool Moving() {
    const TMachineSnapshot now = FController.Machine().Snapshot();
    return now.Moving() || now.RackMoving;
  }

  void Settle() {
    FController.RunFor(200);
    for (std::uint64_t ms = 0; Moving() && ms < kSettleMs; ms += 100) FController.RunFor(100);
    if (FAbortedAt && FPoint.Event == TSweepEvent::PalletExchange) SeeExchange();
  }

  // The lift waits for whatever may stay following, and for nothing else.
  void SeeExchange() {
    FController.RunFor(TSimSwitchTable::kRestMs + kExchangeMs);
    const TMachineSnapshot now = FController.Machine().Snapshot();
    if (now.DockedTable != kNextPallet && !now.Following)
      Violation(Tr("the machine is at rest, and yet the pallets were not exchanged"));
    Machine().Table().SetDocked(kNextPallet);
  }

  // No device fails any more, and no alarm stands.
  void Mend() {
    Gate().PlanSet({});
    FLogGate.PlanSet({});
    FSampler.Note(kMended);
    FController.Alarms().ClearAll();
    Machine().Laser()->ResetLatch();
    FController.RunFor(50);
    FSampler.Sample();
  }

  void AskOracle() {
    const TMotionOutcome& outcome = FController.MotionState().Outcome();
    const auto entries = FController.Journal().Entries();
    TExpectations expected;
    // A run without light that should have had some is not reported as a success.
    const bool missed = FController.Effects().LightMissed();
    if (missed && FPoint.Undisturbed()) Violation(Tr("undisturbed, and yet there was never light"));
    expected.LightMs = missed ? 0 : FCase.LightMs;
    if (FCase.LightEnds && FPoint.Undisturbed()) expected.LightMostMs = FCase.LightMs + TEffectWatch::kLightOverMs;
    expected.Success = TCustomMotionState::GetExecOK(RootId(), false);
    expected.GasMayStayOn = FCase.Flags().LeavesGasOn;
    expected.MayFollow = FCase.Flags().LeavesFollowing;
    expected.OutputsMayStayOn = FCase.Flags().Outputs == TProcedureFlags::otStay ||
                                (FCase.Flags().Outputs == TProcedureFlags::otStayAfterAbort && !expected.Success);
    if (expected.Success != (outcome.Type == metSuccess)) Violation(Tr("the success flag contradicts the outcome"));
    if (FAbortedAt && (FPoint.Event == TSweepEvent::Abort || Ended()) && expected.Success)
      Violation(Tr("aborted, and yet it ended with success"));
    if (FPoint.Undisturbed() && !expected.Success)
      Violation(Tr("undisturbed, and yet it failed: ") + outcome.Path + outcome.Fault);
    if (!expected.Success) expected.FaultAt = FaultAt(entries);
    FFacts.Take(CheckRun(entries, FController.Journal().Samples(), expected, Machine().Config()));
  }

  [[nodiscard]] std::int32_t RootId() const { return FCase.MakeRoot()->GetID(); }

  // Where the run stopped being normal without an abort: behind the call that failed in the pass that ended it.
  [[nodiscard]] std::optional<std::size_t> FaultAt(const std::vector<TJournalEntry>& entries) const {
    if (FAbortedAt) return std::nullopt;
    const auto last = entries.begin() + static_cast<std::ptrdiff_t>(FLastPass);
    const auto threw = std::ranges::find(last, entries.end(), toThrew, &TJournalEntry::Outcome);
    if (threw == entries.end()) return std::nullopt;
    return static_cast<std::size_t>(threw - entries.begin()) + 1;
  }

  // The next procedure must run.
  void Probe() {
    if (const TResult<> ran = RunNext(FController); !ran) Violation(ran.Problem().What);
  }

  const TSweepCase& FCase;
  const TSweepPoint& FPoint;
  TSweepMachine& FMachine;
  TNullSink FSink;
  TCallGate FLogGate;
  TGatedSink FGatedSink{FSink, FLogGate};
  TSampler FSampler;
  TProcedureRun FRun;
  TController& FController = FRun.Controller();
  TSweepFacts FFacts;
  std::uint64_t FStartMs = 0;
  std::uint64_t FDeviceBase = 0;
  std::uint64_t FSinkBase = 0;
  std::uint64_t FAbortBase = 0;
  std::uint32_t FTickBase = 0;
  std::optional<std::size_t> FAbortedAt;
  bool FCut = false;
  std::size_t FLastPass = 0;  // where in the journal the last pass of the procedure begins
};

}  // namespace

bool TSweepPoint::Undisturbed() const {
  return !AbortTick && Emission == TSweepEmission::Configured && DeviceCall == 0 && SinkCall == 0 && HangMs == 0;
}

std::string TSweepPoint::Text() const {
  std::string text;
  if (AbortTick && Event == TSweepEvent::Abort) text += Format(Tr("reason %d at tick %u, "), Reason, *AbortTick);
  if (AbortTick && Event == TSweepEvent::LaserAlarm) text += Format(Tr("laser alarm at tick %u, "), *AbortTick);
  if (AbortTick && Event == TSweepEvent::End) text += Format(Tr("controller ended at tick %u, "), *AbortTick);
  if (AbortTick && Event == TSweepEvent::PalletExchange) text += Format(Tr("pallet exchange at tick %u, "), *AbortTick);
  if (AbortTick && Event == TSweepEvent::LostEmission) text += Format(Tr("emission lost at tick %u, "), *AbortTick);
  if (Emission != TSweepEmission::Configured) text += Format(Tr("emission case %d, "), static_cast<int>(Emission));
  if (DeviceCall)
    text += Format(Tr("device call %llu%s"), static_cast<unsigned long long>(DeviceCall), Sticky ? Tr(" sticky") : "") +
            (FromAbort ? Tr(" after the abort") : "");
  if (Refused) text += Tr(" refused");
  if (Callback != TSweepCall::None) text += Format(Tr(" callback %d"), static_cast<int>(Callback));
  if (SinkCall) text += Format(Tr("log line %llu"), static_cast<unsigned long long>(SinkCall));
  if (HangMs) text += Format(Tr(" hangs %u ms"), HangMs);
  if (!SafeEntry) text += Tr(" without safe entry");
  if (Supervisor) text += Tr(" with the supervisor");
  if (FirstTick || FirstMs)
    text += Format(Tr(" clock from %llu ms, tick %u"), static_cast<unsigned long long>(FirstMs), FirstTick);
  return text.empty() ? Tr("undisturbed") : text;
}

// --- TSweepMachine ---

TSweepMachine::TSweepMachine() : FBytes(ReadFile(ShareFolder() / "machines" / "machine.xml").OrThrow(pbUnusable)) {}

const std::filesystem::path& TSweepMachine::Fresh() {
  std::error_code missing;
  if (std::filesystem::last_write_time(FFile, missing) == FWritten && !missing) return FFile;
  std::ofstream(FFile, std::ios::binary) << FBytes;
  FWritten = std::filesystem::last_write_time(FFile, missing);
  if (missing) throw EProblem(pbUnusable, TProblem{.What = Tr("cannot be written"), .Where = FFile.string()});
  return FFile;
}

TSweepFacts RunSweepPoint(const TSweepCase& what, const TSweepPoint& point, TSweepMachine& machine, bool tracing) {
  return TSweepRun(what, point, machine, tracing).Run();
}

}  // namespace ixoverify
