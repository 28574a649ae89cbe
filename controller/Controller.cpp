#include "controller/Controller.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <thread>

#include "controller/AlarmPackage.h"
#include "controller/gasvalve/GasDescent.h"
#include "controller/procedures/Procedures.h"
#include "controller/process/RoundThread.h"
#include "controller/safety/LaserLatch.h"
#include "controller/safety/LeafWatch.h"
#include "controller/safety/SafeEnd.h"
#include "controller/safety/ThreadWatch.h"
#include "controller/texts/HostTexts.h"
#include "controller/texts/Texts.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/config/Ucamglue.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/services/Locale.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kMachineRoundMs = 2;
constexpr std::uint32_t kMachineRestMs = 20;  // in standby without light: each device call looks at the clock by itself
constexpr std::uint32_t kBeginMs = 800;       // for the step that stands to return
constexpr std::uint32_t kEndSlackMs = 300;    // for what the thread is at when it is asked to end
constexpr int kLogMs = 150;                   // for the log's last lines

}  // namespace

// In the order in which they are made. Each takes back what it installed, wherever the making stops.
struct TController::TParts {
  explicit TParts(const TControllerOptions& options)
      : Virtual(options.Realtime ? std::optional<TVirtualClock>()
                                 : std::optional<TVirtualClock>(std::in_place, options.FirstTick, options.FirstMs)),
        ClockInstalled(Virtual ? static_cast<IClock&>(*Virtual) : Real),
        Logs(options.LogCapacity),
        Locale(options.LocaleFolder),
        LocaleManager(options.Language) {
    EndFailed = options.EndFailed;
    for (ILogSink* const sink : options.Sinks) Logs.AddSink(*sink);
  }
  ~TParts() {
    EndSafely();
    SupervisorThread.reset();
    MachineThread.reset();
    if (const std::optional<TProblem> problem = Alarms ? Alarms->Close() : std::nullopt) {
      LogMsg(lkError, 0, problem->Text(), "TPHost");
      if (EndFailed) EndFailed(*problem, false);
    }
    TCustomMotionState::SetStateMotion(nullptr);
    if (Framework) Framework->RunOnce();  // frees the root, on this thread
  }
  TParts(const TParts&) = delete;
  TParts& operator=(const TParts&) = delete;

  void EndSafely();

  std::function<void(const TProblem&, bool)> EndFailed;
  std::vector<std::string> Notices;
  TNcStateFramework::TObserver OnState;

  std::optional<TVirtualClock> Virtual;
  TSystemClock Real;
  TInstalled<IClock> ClockInstalled;
  TLogService Logs;
  TInstalled<TLogService> LogsInstalled{Logs};
  TAppSys App;
  TInstalled<TAppSys> AppInstalled{App};
  TNcParams Params;
  TInstalled<TNcParams> ParamsInstalled{Params};
  TMachineConfig Config;
  TInstalled<TMachineConfig> ConfigInstalled{Config};
  TJogSections Jog;
  TInstalled<TJogSections> JogInstalled{Jog};
  TNcForbidTypeRegistry Forbidden;
  TInstalled<TNcForbidTypeRegistry> ForbiddenInstalled{Forbidden};
  TWindowTable Windows;
  TInstalled<TNcWindows> WindowsInstalled{Windows};
  TNcSysInts SysInts;
  TInstalled<TNcSysInts> SysIntsInstalled{SysInts};
  TLocaleReader Locale;
  TInstalled<TLocaleReader> LocaleInstalled{Locale};
  TLocaleManager LocaleManager;
  TInstalled<TLocaleManager> LocaleManagerInstalled{LocaleManager};
  TNcRegistry Registry;
  TInstalled<TNcRegistry> RegistryInstalled{Registry};
  TJournal Journal;

  std::optional<TLibrary> Library;
  std::optional<TLeafWatch> Leaf;
  std::optional<TNcStateFramework> Framework;
  std::optional<TEffectWatch> Effects;
  TLatchAlarm LatchAlarm;
  std::optional<TAlarmPackage> Alarms;
  std::optional<TKeyCommands> Keys;
  TGasDescents Descents{Registry};
  std::unique_ptr<IMachine> Machine;
  TMachineLimits Limits;
  std::string Driver;
  TCriticalSection StartLock;  // from the look until it is requested: of two starts at once one finds the other
  std::optional<TSupervisor> Supervisor;
  std::optional<TThreadWatch> Threads;
  std::optional<TRoundThread> MachineThread;
  std::optional<TRoundThread> SupervisorThread;
  std::optional<TSafeEnd> End;  // null: it has come to its end
  std::optional<TNcStateThread> StateThread;
};

// Once; in virtual time, and before the threads have started, on this thread.
void TController::TParts::EndSafely() {
  if (!End) return;
  bool hangs = false;
  // A step that does not return gets no more time than it takes to see that.
  if (StateThread)
    hangs = !StateThread->End(kBeginMs) && !(End->Begun() && StateThread->End(kSafeEndMs + kEndSlackMs - kBeginMs));
  else
    End->Run();
  if (const char* const device = End->Missing()) {
    hangs = !TSafeEnd::TripLatch(StateThread.has_value()) || hangs;
    const std::string what = End->Begun() ? Show(SEndNotOff, Tr(device)) : SEndStepRuns.Get();
    LogMsg(lkError, 0, what, "TPHost");
    if (EndFailed)
      EndFailed({.What = what,
                 .Where = {},
                 .Why = hangs ? Tr("its call has not returned") : Tr("it was told for 2 s and does not acknowledge"),
                 .Remedy = Tr("look at the machine before anything else is started")},
                hangs);
    // Nothing of this process can be taken down under a thread that may come back from its call at any time.
    if (hangs) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kLogMs));  // the log's thread writes what it has
      std::_Exit(kExitHangs);
    }
  }
  StateThread.reset();
  End.reset();
}

TController::TController(TControllerOptions options)
    : FOptions(std::move(options)), FParts(std::make_unique<TParts>(FOptions)) {
  TParts& p = *FParts;
  LoadConfig();
  p.App.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(FOptions.AlarmFolder));
  p.Library.emplace();
  LoadTexts();
  p.Framework.emplace(TNcStateOptions{.SafeEntry = FOptions.SafeEntry});
  p.Alarms.emplace(*p.Framework, p.Journal, VirtualClock());
  p.Alarms->Manager().AddSource(p.LatchAlarm);
  p.Keys.emplace(*p.Framework, p.Registry, p.Journal);
  MotionState().AddObserver(p.Effects.emplace(*p.Framework));
  MakeMachine();
  p.Framework->SetObserver([&p](std::int32_t from, std::int32_t to) {
    const std::uint64_t nowMs = Clock().MonotonicMs();
    p.Machine->CatchUp(nowMs);
    p.Journal.State(nowMs, to);
    p.Machine->NoteState(to);
    if (p.OnState) p.OnState(from, to);
  });
  MakeSupervisor();
  p.End.emplace(*p.Framework);
  if (!FOptions.AlarmDb.empty())
    p.Alarms->OpenStore(FOptions.AlarmDb, FOptions.AlarmRetentionDays, FOptions.AlarmsTold);
}

TController::~TController() = default;

void TController::LoadConfig() {
  TMachineConfig& config = FParts->Config;
  if (!FOptions.MachineFile.empty()) {
    InitCamConfigs(config);
    if (FOptions.Realtime || FOptions.SavesMachineFile) {
      if (config.Hold(FOptions.MachineFile) == lsBusy) throw EProblem(pbRefused, config.HoldProblem());
    }
    if (const auto lock = TXmlConfig::CanHold(FOptions.MachineFile); !lock)
      FParts->Notices.push_back(lock.Problem().Text());
    config.Load(FOptions.MachineFile).OrThrow(pbUnusable);
    // Once, and only where there is something to move: a run does not write the machine file otherwise.
    if (!config.Section("SwitchTable").Child("Elvt").GetText("RailStartDelay", "").empty())
      CheckSwitchTableConfig(config, false);
  }
  FParts->Jog.Load(config);
}

void TController::NoteAddress(const std::string& url) { FParts->Config.NoteHold(url); }

void TController::LoadTexts() {
  TParts& p = *FParts;
  if (const std::string problem = p.LocaleManager.ChangeLanguage(FOptions.Language); !problem.empty())
    p.Notices.push_back(problem);
  std::ranges::move(p.Library->LoadLocaleResources(), std::back_inserter(p.Notices));
  for (const TTextList texts : kControllerTexts)
    std::ranges::move(p.Locale.Apply(texts), std::back_inserter(p.Notices));
}

void TController::MakeMachine() {
  TParts& p = *FParts;
  const TMachineFactory* const factory = FindMachine(p.Config, FOptions.Machines).OrThrow(pbUnusable);
  p.Driver = factory->Name;
  const TMachineContext context{*p.Framework, p.Config, p.Alarms->Manager(), p.Journal, VirtualClock(), FOptions.Seed};
  p.Machine = factory->Make(context).OrThrow(pbUnusable);
  p.Machine->Connect().OrThrow(pbUnusable);
  if (auto limits = LimitsOf(p.Config, FOptions.Machines)) p.Limits = *std::move(limits);
  if (!FOptions.MachineFile.empty()) InitFlags();  // the driver has come after the load
}

void TController::MakeSupervisor() {
  TParts& p = *FParts;
  TMachineBounds machine;
  std::vector<TProblem> wrong;  // the machine was made all the same, and a wrong section keeps its defaults
  machine.Read(p.Config.Root(), wrong);
  MotionState().AddObserver(p.Leaf.emplace(p.Framework->Watch(), machine));
  if (!FOptions.Supervisor) return;
  const auto fail = [&p](const std::string& reason) { p.Framework->Abort(srError, reason); };
  const auto alarm = [this](const std::string& reason) {
    RaiseAlarm({.IdPrefix = kSupervisorAlarmPrefix, .Desc = reason, .Id = 1, .Attrs = naForbidMove});
  };
  const auto stop = [&p](const std::string& reason) { p.Framework->Stop(reason); };
  const auto trip = [](const char* reason) {
    return [reason](const std::string&) {
      if (TNcLaser* const laser = FittedLaser()) laser->Trip(reason);
    };
  };
  p.Supervisor.emplace(
      p.Framework->Watch(), [&p] { return p.Framework->CurrentState(); }, machine,
      TSupervisorActions{fail, alarm, stop, trip(TrMark("supervisor")), trip(kEmergencyTrip)});
  p.Threads.emplace(ThreadTable(), machine.Supervisor, p.Alarms->Manager());
  if (p.Virtual) p.Virtual->Every(kSupervisorRoundMs, [&p](std::uint64_t nowMs) { p.Supervisor->Round(nowMs); });
}

// --- what it has ---

TVirtualClock* TController::VirtualClock() { return FParts->Virtual ? &*FParts->Virtual : nullptr; }
TNcStateFramework& TController::Framework() { return *FParts->Framework; }
IMachine& TController::Machine() { return *FParts->Machine; }
const std::string& TController::Driver() const { return FParts->Driver; }
const TMachineLimits& TController::Limits() const { return FParts->Limits; }
TJournal& TController::Journal() { return FParts->Journal; }
TKeyCommands& TController::Keys() { return *FParts->Keys; }
TNcAlarmManager& TController::Alarms() { return FParts->Alarms->Manager(); }
TLogService& TController::Logs() { return FParts->Logs; }
TNcParams& TController::Params() { return FParts->Params; }
TNcForbidTypeRegistry& TController::Forbidden() { return FParts->Forbidden; }
TWindowTable& TController::Windows() { return FParts->Windows; }
TNcSysInts& TController::SysInts() { return FParts->SysInts; }
TJogSections& TController::Jog() { return FParts->Jog; }
TLibrary& TController::Library() { return *FParts->Library; }
TGasDescents& TController::Descents() { return FParts->Descents; }
TAlarmStore* TController::AlarmStore() { return FParts->Alarms->Store(); }
bool TController::AlarmsSettled() { return FParts->Alarms->Settled(); }
TSupervisor* TController::Supervisor() { return FParts->Supervisor ? &*FParts->Supervisor : nullptr; }
const std::vector<std::string>& TController::Notices() const { return FParts->Notices; }
void TController::OnState(TNcStateFramework::TObserver observer) { FParts->OnState = std::move(observer); }

TCustomMotionState& TController::MotionState() {
  return dynamic_cast<TCustomMotionState&>(*FParts->Framework->State(nsCustomMotion));
}

// --- alarms ---

void TController::RaiseAlarm(TNcAlarmRecord record) {
  FParts->Alarms->Raise(std::move(record));
  FParts->Machine->CatchUp(Clock().MonotonicMs());
}

void TController::ClearAlarms() { FParts->Alarms->ClearRaised(); }

// --- procedures ---

bool TController::Running() const {
  const TNcStateFramework& framework = *FParts->Framework;
  if (framework.ChangePending()) return true;  // first: it ends when the new state is current
  const std::int32_t state = framework.CurrentState();
  return state == nsCustomMotion || state == nsZemGasAdjust || state == nsGasDescent;
}

TResult<> TController::MayStart(IStateMotion& root) const {
  const TNcStateFramework& framework = *FParts->Framework;
  if (Running())
    return TProblem{.What = Tr("a procedure is running"), .Remedy = Tr("stop it, or wait until it has ended")};
  // A procedure returns to the state that it started from: none of these goes on where it was left.
  const TCutState state = ClassifyCutState(framework.CurrentState());
  if (state != csStandby && state != csOther)
    return TProblem{.What = Tr("the machine is busy with a key command"), .Remedy = Tr("stop what runs")};
  if (framework.SafePending())
    return TProblem{.What = Tr("a device has not acknowledged switching off"),
                    .Remedy = Tr("wait until it has, or repair it")};
  if (FParts->Framework->Watch().LaserAsked.Runs())
    return TProblem{.What = Tr("the beam is on by hand"), .Remedy = Tr("release its key first")};
  // A step of an application that builds its own on entry is known by its row.
  const TProcedure* const row = FindProcedure(root.GetID());
  const bool lights = row && (row->Flags.LightsBeam || row->Flags.NeedsEmission);
  return lights || root.NeedsLaser() ? LaserUsable() : TResult<>();
}

TResult<> TController::Start(std::shared_ptr<IStateMotion> root) {
  if (!root) return TProblem{.What = Tr("there is no procedure")};
  const TGuard guard(FParts->StartLock);
  const std::int32_t id = root->GetID();
  TResult<> started = MayStart(*root);
  if (started) {
    TCustomMotionState::SetStateMotion(std::move(root));
    started = Framework().RequestState(nsCustomMotion, 0);
    if (started) return started;
    TCustomMotionState::SetStateMotion(nullptr);
  }
  // The flag of the procedure that runs, or is just ending, is its own.
  if (TCustomMotionState::GetStateID() != id) TCustomMotionState::SetExecOK(id, false);
  return started;
}

const TEffectWatch& TController::Effects() const { return *FParts->Effects; }

TResult<> TController::ResetLatch() {
  const TSupervisor* const supervisor = Supervisor();
  return ixocontroller::ResetLatch(Framework(), supervisor ? supervisor->Broken(Clock().MonotonicMs()) : std::nullopt);
}

// --- the loop ---

void TController::RunPass() {
  const std::uint32_t delay = FParts->Framework->RunOnce();
  FParts->Logs.DrainOnce();
  FParts->Virtual->Sleep(delay);
}

bool TController::RunToEnd(std::uint64_t limitMs) {
  const std::uint64_t end = FParts->Virtual->MonotonicMs() + limitMs;
  while (Running() && FParts->Virtual->MonotonicMs() < end) RunPass();
  return !Running();
}

void TController::RunFor(std::uint64_t ms) {
  const std::uint64_t end = FParts->Virtual->MonotonicMs() + ms;
  while (FParts->Virtual->MonotonicMs() < end) RunPass();
}

void TController::StartThreads() {
  TParts& p = *FParts;
  p.Logs.Start();
  p.Alarms->Start();
  const auto periodMs = [&p] {
    TNcStateFramework& states = *p.Framework;
    const TNcWatch& watch = states.Watch();
    const bool rests = !states.ChangePending() && states.CurrentState() == nsStandby && !states.SafePending() &&
                       !watch.LaserAsked.Runs() && !watch.EmissionAsked.Runs();
    return rests ? kMachineRestMs : kMachineRoundMs;
  };
  p.MachineThread.emplace("ixo-machine", periodMs, [&p](std::uint64_t nowMs) { p.Machine->CatchUp(nowMs); });
  p.StateThread.emplace(*p.Framework, [&p] { p.End->Run(); });
  if (p.Supervisor)
    p.SupervisorThread.emplace("ixo-supervisor", kSupervisorRoundMs, [&p](std::uint64_t nowMs) {
      p.Supervisor->Round(nowMs);
      p.Threads->Round(nowMs);
    });
}

void TController::StopThreads() { FParts->EndSafely(); }

}  // namespace ixocontroller
