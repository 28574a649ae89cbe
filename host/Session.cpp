#include "host/Session.h"

#include <algorithm>
#include <iterator>

#include "host/HostTexts.h"
#include "host/PanelTexts.h"
#include "platform/CutStates.h"
#include "support/Faults.h"
#include "support/Format.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kMachineRoundMs = 2;

}  // namespace

TSession::TSession(TSessionOptions options)
    : FOptions(std::move(options)),
      FVirtual(FOptions.Realtime ? std::optional<TVirtualClock>() : std::optional<TVirtualClock>(std::in_place)),
      FClockInstalled(FVirtual ? static_cast<IClock&>(*FVirtual) : FReal),
      FLocale(FOptions.LocaleFolder) {
  for (ILogSink* sink : FOptions.Sinks)
    FLogs.AddSink(*FGatedSinks.emplace_back(std::make_unique<TGatedSink>(*sink, FLogGate)));
  LoadMachine();

  FLibrary.emplace();
  if (const std::string problem = FLocale.SelectLanguage(FOptions.Language); !problem.empty())
    FNotices.push_back(problem);
  std::ranges::move(FLibrary->LoadLocaleResources(), std::back_inserter(FNotices));
  for (const auto& texts : {HostTexts(), PanelTexts()})
    std::ranges::move(FLocale.Apply(texts), std::back_inserter(FNotices));

  FFramework.emplace(TNcStateOptions{.SafeEntry = FOptions.SafeEntry});
  FMachine.emplace(FSimConfig, FOptions.Seed, *FFramework, FGate, FOptions.Parts);
  FFramework->SetObserver([this](std::int32_t from, std::int32_t to) {
    FMachine->NoteState(to);
    if (FOnState) FOnState(from, to);
  });
  if (FVirtual) FMachine->Attach(*FVirtual);
  if (FOptions.Supervisor) MakeSupervisor();
}

TSession::~TSession() {
  FStateThread.reset();
  FSupervisorThread.reset();
  FMachineThread.reset();
  if (Running() || FFramework->CurrentState() != nsStandby) {
    FFramework->Stop();
    FFramework->RunOnce();
  }
  TCustomMotionState::SetStateMotion(nullptr);
  // The locale reader owns the texts that are installed.
  for (const auto& texts : {HostTexts(), PanelTexts()})
    for (TText* text : texts) text->Set(nullptr);
}

void TSession::MakeSupervisor() {
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

void TSession::LoadMachine() {
  if (!FOptions.MachineFile.empty())
    if (const std::string problem = FConfig.Load(FOptions.MachineFile); !problem.empty())
      throw THostError(kExitDevice, problem);
  std::vector<std::string> problems;
  FSimConfig = TSimConfig::FromConfig(FConfig, problems);
  if (!problems.empty()) {
    std::string text;
    for (const std::string& problem : problems)
      text += (text.empty() ? "" : "\n") + FOptions.MachineFile.string() + ": " + problem;
    throw THostError(kExitDevice, text);
  }
  if (FOptions.Adjust) FOptions.Adjust(FSimConfig);
  FLimits = TSupervisorLimits::From(FSimConfig);
  FJog.Load(FConfig);
}

TCustomMotionState& TSession::Controller() {
  return dynamic_cast<TCustomMotionState&>(*FFramework->State(nsCustomMotion));
}

bool TSession::Running() const {
  return FFramework && (FFramework->CurrentState() == nsCustomMotion || FFramework->ChangePending());
}

bool TSession::Start(std::shared_ptr<IStateMotion> root, std::string* reason) {
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
  FFramework->RequestState(nsCustomMotion, 0);
  return true;
}

void TSession::RunPass() {
  const std::uint32_t delay = FFramework->RunOnce();
  FLogs.DrainOnce();
  FVirtual->Sleep(delay);
}

bool TSession::RunToEnd(std::uint64_t limitMs) {
  const std::uint64_t end = FVirtual->MonotonicMs() + limitMs;
  while (Running() && FVirtual->MonotonicMs() < end) RunPass();
  return !Running();
}

void TSession::RunFor(std::uint64_t ms) {
  const std::uint64_t end = FVirtual->MonotonicMs() + ms;
  while (FVirtual->MonotonicMs() < end) RunPass();
}

void TSession::StartThreads() {
  FLogs.Start();
  FMachineThread.emplace("ixo-machine", kMachineRoundMs, [this](std::uint64_t nowMs) { FMachine->CatchUp(nowMs); });
  FStateThread.emplace(*FFramework);
  if (FSupervisor) FSupervisorThread.emplace(*FSupervisor);
}

}  // namespace ixocamglue
