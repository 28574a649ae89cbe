#include "controller/client/WireSeat.h"

#include <chrono>
#include <pthread.h>
#include <utility>

#include "controller/alarms/RunAlarms.h"
#include "controller/panel/PanelNames.h"
#include "controller/service/HeldKeys.h"
#include "controller/service/Status.h"
#include "controller/texts/HostTexts.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kRoundMs = 10;
constexpr std::uint64_t kLookEveryMs = 1000;
constexpr std::uint64_t kStaleEveryMs = 100;
constexpr std::uint64_t kKeepEveryMs = 1000;
constexpr std::uint64_t kEmergencyWithinMs = 300;  // then everything is switched off past the panel

}  // namespace

TWireForm::TWireForm(TWireClient& client, const nlohmann::ordered_json& panel, const std::string& form)
    : FClient(client) {
  if (!form.empty() || panel.at("form").is_null()) Set(form.empty() ? FormBehind("") : form, true);
}

TWireForm::~TWireForm() {
  try {
    if (!FShown.empty()) Set(FShown, false);
  } catch (const EProblem&) {  // it has gone, or another commands
  }
}

void TWireForm::Show(const std::string& form) {
  if (!FShown.empty()) Set(FShown, false);
  Set(form, true);
}

void TWireForm::Set(const std::string& form, bool open) {
  (void)FClient.Post("/api/v1/panel/form", {{"form", form}, {"open", open}});
  FShown = open ? form : "";
}

THeldPress HoldKey(TWireClient& client, TKeyCode key, std::int32_t param, const std::string& form, std::uint64_t ms,
                   const std::function<bool()>& stops) {
  using TPressClock = std::chrono::steady_clock;
  const bool leased = THeldKeys::NeedsLease(key);
  std::optional<TClientLease> lease;
  if (leased) lease.emplace(client, true);
  TWireKeys keys(client);
  std::optional<TWireForm> shown;
  if (leased || !form.empty()) shown.emplace(client, keys.Panel(), form);
  const auto start = TPressClock::now();
  THeldPress press{.Answer = keys.Press(key, param)};
  const auto heldMs = [&] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(TPressClock::now() - start).count();
  };
  for (auto keptAt = start; keys.Held() && heldMs() < static_cast<std::int64_t>(ms) && !stops();) {
    std::this_thread::sleep_for(std::chrono::milliseconds(kRoundMs));
    try {
      keys.Beat();
      if (!lease || TPressClock::now() < keptAt + std::chrono::milliseconds(kKeepEveryMs)) continue;
      keptAt = TPressClock::now();
      if (!lease->Beat()) press.Problem = TProblem{.What = Tr("somebody else has taken over control")};
    } catch (const EProblem& e) {
      if (e.Blame == pbUnusable) throw;
      if (leased) press.Problem = e.Problem;  // a stop key has had its effect
    }
  }
  press.HeldMs = heldMs();
  keys.Release();
  return press;
}

// --- the panel's thread ---

TWireSeat::TWireSeat(TWireClient& client, const std::string& form)
    : FClient(client),
      FStops(client.Address(), client.Token(), client.Language()),
      FEvents(client, "?kinds=state,alarm,run,led,signals,log&rate=10") {
  TakeControl();
  FKeys.emplace(FClient);
  FForm.emplace(FClient, FKeys->Panel(), form);
  Look();
  Say(Format(Tr("on the controller at %s; leaving ends nothing that runs"), FClient.Address().Text().c_str()));
  FThread = std::thread([this] { Run(); });
}

TWireSeat::~TWireSeat() {
  try {
    Leave();
  } catch (const EProblem&) {  // the controller has gone
  }
  if (FThread.joinable()) FThread.join();
}

void TWireSeat::Leave() {
  FEnd = true;
  AllOff();  // what waits is not asked any more
  if (FThread.joinable()) FThread.join();
}

bool TWireSeat::ActsWhileHeld(TKeyCode key) const { return IsHeldCommand(FCommands[KeyIndex(key)]); }

void TWireSeat::Press(TKeyCode key) {
  if (key == CK_EGYSTOP) FEmergencyMs = Clock().MonotonicMs();
  Do({TAction::acPress, key});
  // At once, whatever the controller is busy with.
  if (key == CK_EGYSTOP || key == CK_STOP) (void)FStops.Post("/api/v1/stop");
}

void TWireSeat::Alive() {
  const std::uint64_t since = FEmergencyMs;
  if (since != 0 && Clock().MonotonicMs() > since + kEmergencyWithinMs) AllOff();
  TGuard guard(FLock);
  if (FFailure) std::rethrow_exception(FFailure);
}

void TWireSeat::AllOff() {
  if (FEmergencyMs.exchange(0) != 0) (void)FStops.Post("/api/v1/all-off");
}

TPanelView TWireSeat::View() {
  TGuard guard(FLock);
  TPanelView view = FView;
  view.Messages = FLog.Lines();
  return view;
}

void TWireSeat::Do(TAction action) {
  TGuard guard(FLock);
  FActions.push_back(action);
}

void TWireSeat::Say(const std::string& text) { FLog.Add(Clock().Now(), text); }

// --- the seat's thread ---

void TWireSeat::Run() {
  pthread_setname_np(pthread_self(), "ixo-seat");
  try {
    while (!FEnd) {
      std::optional<TAction> action;
      {
        TGuard guard(FLock);
        if (!FActions.empty()) {
          action = FActions.front();
          FActions.pop_front();
        }
      }
      try {
        if (action) Carry(*action);
        FKeys->Beat();
        KeepControl();
      } catch (const EProblem& problem) {
        if (problem.Blame == pbUnusable) throw;
        Say(problem.Problem.Text());
      }
      if (FEvents.Ended())
        throw EProblem(pbUnusable,
                       {.What = Tr("the controller has closed the connection"), .Where = FClient.Address().Text()});
      for (auto event = FEvents.Next(action ? 0 : kRoundMs); event; event = FEvents.Next(0)) Take(*event);
      const std::uint64_t now = Clock().MonotonicMs();
      if (now >= FLookAtMs + (FStale ? kStaleEveryMs : kLookEveryMs)) Look();
    }
  } catch (...) {
    TGuard guard(FLock);
    FFailure = std::current_exception();
  }
  FKeys.reset();
  FForm.reset();
  FLease.reset();
}

void TWireSeat::Carry(const TAction& action) {
  switch (action.Kind) {
    case TAction::acAgain:
      LookAt(FKeys->Panel());
      if ((FOn & KeyBit(action.Key)) == 0) return;
      [[fallthrough]];
    case TAction::acPress:
      if (THeldKeys::NeedsLease(action.Key)) TakeControl();
      (void)FKeys->Press(action.Key);
      if (action.Key == CK_EGYSTOP) FEmergencyMs = 0;
      break;
    case TAction::acRelease: FKeys->Release(); break;
    case TAction::acReset:
      TakeControl();
      (void)FClient.Post("/api/v1/reset");
      break;
    case TAction::acAlt:
      TakeControl();
      (void)FClient.Post("/api/v1/panel/alt", {{"alt", !FKeys->Panel().at("alt").get<bool>()}});
      break;
    case TAction::acForm: {
      TakeControl();
      LookAt(FKeys->Panel());
      std::string form;
      {
        TGuard guard(FLock);
        form = FView.Form;
      }
      FForm->Show(FormBehind(form));
      break;
    }
  }
  FStale = true;
}

void TWireSeat::TakeControl() {
  if (FLease) return;
  FLease.emplace(FClient, true);
  FKeepAtMs = Clock().MonotonicMs() + kKeepEveryMs;
}

void TWireSeat::KeepControl() {
  if (!FLease || Clock().MonotonicMs() < FKeepAtMs) return;
  FKeepAtMs = Clock().MonotonicMs() + kKeepEveryMs;
  if (FLease->Beat()) return;
  FLease.reset();
  Say(Tr("somebody else has taken over control; the next key takes it back"));
}

void TWireSeat::Take(const TWireEvent& event) {
  if (event.Name == "signals") {
    TGuard guard(FLock);
    FView.Now = SnapshotFromJson(event.Data, FView.Now);
  } else if (event.Name == "log") {
    if (event.IsWarning()) Say(event.Data.value("text", ""));
  } else {
    FStale = true;
  }
}

void TWireSeat::Look() {
  FLookAtMs = Clock().MonotonicMs();
  FStale = false;
  const TJson panel = FKeys->Panel();
  const TJson status = FClient.Get("/api/v1/status");
  const TJson alarms = FClient.Get("/api/v1/alarms");
  LookAt(panel);
  TGuard guard(FLock);
  FView.Now = SnapshotFromJson(status.at("signals"), FView.Now);
  status.at("stateNumber").get_to(FView.Now.State);
  status.at("latched").get_to(FView.Now.LatchTripped);
  status.at("latchReason").get_to(FView.Now.LatchReason);
  FView.Alarms.clear();
  for (const TJson& alarm : alarms.at("alarms"))
    FView.Alarms.push_back(TRunAlarm{.Level = alarm.at("level"),
                                     .Identifier = alarm.at("identifier"),
                                     .Description = alarm.at("description"),
                                     .Lang = {},
                                     .Code = alarm.at("code"),
                                     .Text = alarm.at("text"),
                                     .Reason = alarm.at("reason"),
                                     .Solution = alarm.at("solution")}
                               .Words());
}

void TWireSeat::LookAt(const TJson& panel) {
  TKeyMask lit = 0, on = 0;
  for (const TJson& key : panel.at("keys")) {
    const auto code = ParseKey(key.at("key").get<std::string>());
    if (!code) continue;  // of a newer controller
    FCommands[KeyIndex(*code)] = key.at("keyCommand").get<std::int32_t>();
    if (key.at("lit") == true) lit |= KeyBit(*code);
    if (key.at("on") == true) on |= KeyBit(*code);
  }
  FOn = on;
  const TJson& knob = panel.at("knob");
  TGuard guard(FLock);
  FView.Leds = lit;
  FView.Form = panel.at("form").is_string() ? panel.at("form").get<std::string>() : "";
  FView.Knob = LevelOf(knob.at("state"));
  FView.JogMmPerS = knob.value("JogSpeed", knob.at("xy").at("low").get<double>());
}

}  // namespace ixocontroller
