#include "controller/Controller.h"

#include <algorithm>
#include <iterator>

#include "controller/Texts.h"
#include "controller/gas/GasDescent.h"
#include "ixocamglue/alarms/Ualarmdefs.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/config/Ucamglue.h"
#include "ixocamglue/gascal/Uzemgasadjuststate.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kMachineRoundMs = 2;

}  // namespace

TController::TController(TControllerOptions options)
    : FOptions(std::move(options)),
      FVirtual(FOptions.Realtime ? std::optional<TVirtualClock>() : std::optional<TVirtualClock>(std::in_place)),
      FClockInstalled(FVirtual ? static_cast<IClock&>(*FVirtual) : FReal),
      FLocale(FOptions.LocaleFolder) {
  for (ILogSink* sink : FOptions.Sinks)
    FLogs.AddSink(*FGatedSinks.emplace_back(std::make_unique<TGatedSink>(*sink, FLogGate)));
  LoadMachine();

  FApp.Register(IID_IAlarmInterpreterSvc, std::make_shared<TAlarmDefinitionFiles>(FOptions.AlarmFolder));
  FLibrary.emplace();
  if (const std::string problem = FLocaleManager.ChangeLanguage(FOptions.Language); !problem.empty())
    FNotices.push_back(problem);
  std::ranges::move(FLibrary->LoadLocaleResources(), std::back_inserter(FNotices));
  for (const TTextList texts : kControllerTexts) std::ranges::move(FLocale.Apply(texts), std::back_inserter(FNotices));

  FFramework.emplace(TNcStateOptions{.SafeEntry = FOptions.SafeEntry});
  FMachine.emplace(FSimConfig, FOptions.Seed, *FFramework, FGate, FOptions.Parts);
  if (!FOptions.MachineFile.empty()) InitFlags();  // the driver has come after the load
  FFramework->SetObserver([this](std::int32_t from, std::int32_t to) {
    FMachine->NoteState(to);
    if (FOnState) FOnState(from, to);
  });
  if (FVirtual) FMachine->Attach(*FVirtual);
  if (FOptions.Supervisor) MakeSupervisor();
  if (!FOptions.AlarmDb.empty()) MakeAlarms();
}

TController::~TController() {
  FStateThread.reset();
  FSupervisorThread.reset();
  FMachineThread.reset();
  FMachine->Alarms().Stop();
  FreeAlarmManager();
  FApp.Unregister(IID_IAlarmSvcIntf);
  FApp.Unregister(IID_IAlarmFactory);
  FAlarmStore.reset();  // writes what waits, while the alarms can still be looked up
  if (Running() || FFramework->CurrentState() != nsStandby) {
    FFramework->Stop();
    FFramework->RunOnce();
  }
  TCustomMotionState::SetStateMotion(nullptr);
}

void TController::MakeSupervisor() {
  const auto alarm = [this](const std::string& reason) {
    FMachine->RaiseAlarm({kSupervisorAlarmPrefix, reason, 1}, TSimForbids{.Move = true});
  };
  const auto stop = [this](const std::string&) { FFramework->Stop(); };
  const auto latch = [this](const std::string&) {
    if (TSimLaser* laser = FMachine->Laser()) laser->Trip("supervisor");
  };
  FSupervisor.emplace(
      FFramework->Watch(), [this] { return FFramework->CurrentState(); }, FLimits,
      TSupervisorActions{alarm, stop, latch});
  if (FVirtual) FVirtual->Every(kSupervisorRoundMs, [this](std::uint64_t nowMs) { FSupervisor->Round(nowMs); });
}

void TController::MakeAlarms() {
  TAlarmStoreOptions options;
  options.RetentionDays = FOptions.AlarmRetentionDays;
  options.Lookup = [](std::string_view id, TAlarmRec& rec) {
    const TAlarmInterpreter* const interpreter = AlarmInterpreter();
    return interpreter && interpreter->TryGetAlarmRec(id, rec);
  };
  options.OnLost = [this](std::uint64_t) {
    FMachine->Alarms().Raise({.IdPrefix = "TPAlarmStore",
                              .Desc = "the alarm store cannot be written; the oldest alarms are lost",
                              .Id = 1,
                              .Attrs = naShownOnly});
  };
  FAlarmStore = std::make_shared<TAlarmStore>(FOptions.AlarmDb, std::move(options));
  if (const std::string problem = FAlarmStore->Open(); !problem.empty()) throw EProblem(pbUnusable, problem);
  FApp.Register(IID_IAlarmSvcIntf, std::static_pointer_cast<IAlarmSvcIntf>(FAlarmStore));
  FApp.Register(IID_IAlarmFactory, std::static_pointer_cast<IAlarmFactory>(FAlarmStore));
  (void)FMachine->Alarms().AlarmAdded().Subscribe([this](const TNcAlarmRecord& rec) { FFramework->PostAlarm(rec); });
  (void)AlarmManager();
}

bool TController::AlarmsSettled() {
  TAlarmManager* const manager = FAlarmStore ? AlarmManager() : nullptr;
  if (!manager) return true;
  const std::size_t queued = manager->GetAlarmFifos(0).Sizes().Queue + manager->GetAlarmFifos(1).Sizes().Queue;
  return !FMachine->Alarms().HasPending() && queued == 0 && FAlarmStore->Waiting() == 0;
}

void TController::LoadMachine() {
  if (!FOptions.MachineFile.empty()) InitCamConfigs(FConfig);
  if (!FOptions.MachineFile.empty()) {
    if (const std::string problem = FConfig.Load(FOptions.MachineFile); !problem.empty())
      throw EProblem(pbUnusable, problem);
    // Once, and only where there is something to move: a run does not write the machine file otherwise.
    if (!FConfig.Section("SwitchTable").Child("Elvt").GetText("RailStartDelay", "").empty())
      CheckSwitchTableConfig(FConfig, false);
  }
  std::vector<std::string> problems;
  FSimConfig = TSimConfig::FromConfig(FConfig, problems);
  if (!problems.empty()) {
    std::string text;
    for (const std::string& problem : problems)
      text += (text.empty() ? "" : "\n") + FOptions.MachineFile.string() + ": " + problem;
    throw EProblem(pbUnusable, text);
  }
  if (FOptions.Adjust) FOptions.Adjust(FSimConfig);
  FLimits = TSupervisorLimits::From(FSimConfig);
  FJog.Load(FConfig);
}

TCustomMotionState& TController::MotionState() {
  return dynamic_cast<TCustomMotionState&>(*FFramework->State(nsCustomMotion));
}

bool TController::Running() const {
  if (!FFramework) return false;
  const std::int32_t state = FFramework->CurrentState();
  return FFramework->ChangePending() || state == nsCustomMotion || state == nsZemGasAdjust || state == nsGasDescent;
}

bool TController::Start(std::shared_ptr<IStateMotion> root, std::string* reason) {
  const auto refuse = [&](const char* why) {
    if (reason) *reason = why;
    return false;
  };
  if (Running()) return refuse("a procedure is running");
  // A procedure returns to the state that it started from: none of these goes on where it was left.
  const TCutState state = ClassifyCutState(FFramework->CurrentState());
  if (state != csStandby && state != csOther) return refuse("the machine is busy with a key command");
  if (FFramework->SafePending()) return refuse("a device has not acknowledged switching off");
  TCustomMotionState::SetStateMotion(std::move(root));
  const TResult<> requested = FFramework->RequestState(nsCustomMotion, 0);
  return requested ? true : refuse(requested.Problem().Text().c_str());
}

void TController::RunPass() {
  const std::uint32_t delay = FFramework->RunOnce();
  FLogs.DrainOnce();
  FVirtual->Sleep(delay);
}

bool TController::RunToEnd(std::uint64_t limitMs) {
  const std::uint64_t end = FVirtual->MonotonicMs() + limitMs;
  while (Running() && FVirtual->MonotonicMs() < end) RunPass();
  return !Running();
}

void TController::RunFor(std::uint64_t ms) {
  const std::uint64_t end = FVirtual->MonotonicMs() + ms;
  while (FVirtual->MonotonicMs() < end) RunPass();
}

void TController::StartThreads() {
  FLogs.Start();
  if (FAlarmStore) FMachine->Alarms().Start();
  FMachineThread.emplace("ixo-machine", kMachineRoundMs, [this](std::uint64_t nowMs) { FMachine->CatchUp(nowMs); });
  FStateThread.emplace(*FFramework);
  if (FSupervisor) FSupervisorThread.emplace(*FSupervisor);
}

}  // namespace ixocontroller
