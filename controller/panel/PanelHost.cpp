#include "controller/panel/PanelHost.h"

#include <algorithm>
#include <utility>

#include "controller/panel/PanelNames.h"
#include "controller/panel/PanelWhy.h"
#include "controller/texts/PanelTexts.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

constexpr const char* kHostSource = "TPHost";
constexpr TKeyCode kAltKeys[] = {CK_RETURN0, CK_RESUME, CK_BREAK_LOCATE};

void Say(const std::string& text) { LogMsg(lkWarning, 0, text, kHostSource); }

double& SpeedAt(TSpeedData& speed, TSpeedState level) {
  return level == ssLow ? speed.LowSpeed : level == ssNormal ? speed.NormalSpeed : speed.HighSpeed;
}

nlohmann::ordered_json JsonOf(const TSpeedData& speed) {
  return {{"init", speed.Init}, {"low", speed.LowSpeed}, {"normal", speed.NormalSpeed}, {"high", speed.HighSpeed}};
}

}  // namespace

TPanelHost::TPanelHost(TController& session)
    : FController(session),
      FGuard(
          *KBPManager(),
          [&session] {
            if (TSupervisor* const supervisor = session.Supervisor()) supervisor->EmergencyStop();
          },
          [&session] {
            if (const TResult<> reset = session.ResetLatch(); !reset) Say(reset.Problem().Text());
          }),
      FForms(*KBPManager()) {
  FGuard.Enable();
  // The machine file may hold the speed of another level, from an earlier run.
  if (CheckKnob().empty()) ApplyKnob(FController, Knob().GetSpeedState());
  if (TVirtualClock* const clock = session.VirtualClock()) {
    FTimers.push_back(clock->Every(TPanelGuard::kRefreshMs, [this](std::uint64_t) { FGuard.Refresh(); }));
    FTimers.push_back(clock->Every(TPanelGuard::kWatchMs, [this](std::uint64_t now) { FGuard.Watch(now); }));
  } else {
    FRefreshThread.emplace("ixo-panel", TPanelGuard::kRefreshMs, [this](std::uint64_t) { FGuard.Refresh(); });
    FWatchThread.emplace(
        "ixo-panelwatch", [this] { return FGuard.WatchInMs(); }, [this](std::uint64_t now) { FGuard.Watch(now); });
  }
}

TPanelHost::~TPanelHost() {
  for (const std::size_t timer : FTimers) FController.VirtualClock()->Remove(timer);
}

bool TPanelHost::Press(TKeyCode key, std::int32_t param) {
  const bool taken = FGuard.Press(key, param);
  if (key == CK_KNOB) TurnKnob();
  if (!taken) return false;  // the guard has said so
  if (const std::string why = WhyNothing(*this, key); !why.empty()) Say(Format("%s: %s", ShownKey(key), why.c_str()));
  return true;
}

void TPanelHost::PressAgain(TKeyCode key) {
  TTryAll tryAll;
  tryAll([&] {
    if (!FController.Keys().SwitchesOff(KBPManager()->KeyItem(key)->GetCMD())) return;
    FGuard.Release(key);
    Press(key);
  });
}

void TPanelHost::SetAlt(bool alt) {
  for (const TKeyCode key : kAltKeys) KBPManager()->KeyItem(key)->SetAlt(alt, alt);
}

bool TPanelHost::Alt() const { return KBPManager()->KeyItem(kAltKeys[0])->GetIsAlt(); }

void TPanelHost::SetWarning(bool pending) {
  FController.Params().SetBool("ExistMaintainWarning", pending);
  if (pending == (FWarning != 0)) return;
  if (pending)
    FWarning =
        FController.Alarms().Raise({.IdPrefix = kHostSource, .Desc = SAlarmNotHomed.Get(), .Attrs = naRequireOrg});
  else
    FController.Alarms().ClearSerial(std::exchange(FWarning, 0));
}

void TPanelHost::ResetEmergencyStop() {
  if (!FController.Keys().IsActive()) return Say(Tr("the emergency stop is not active"));
  FController.Keys().SetEmergencyStop(false);
}

void TPanelHost::SetKnob(TSpeedState level) {
  if (const TResult<> set = SetKnobLevel(FController, level); !set) Say(set.Problem().Text());
}

void TPanelHost::TurnKnob() {
  if (Judge(CK_KNOB) != pvSent) return;
  switch (Knob().GetSpeedState()) {
    case ssLow: return SetKnob(ssNormal);
    case ssNormal: return SetKnob(ssHigh);
    case ssHigh: return SetKnob(ssLow);
  }
}

// --- jog speeds ---

std::string CheckJogSpeeds(double low, double normal, double high, double most) {
  const auto text = [](double value) { return Format("%.10g", value); };
  for (const double speed : {low, normal, high})
    if (!(speed > TKnob::kLowestJogSpeed)) return Show(SJogTooLow, text(speed).c_str());
  if (!(low <= normal && normal <= high))
    return Show(SJogOrder, text(low).c_str(), text(normal).c_str(), text(high).c_str());
  if (!(high <= most)) return Show(SJogTooHigh, text(high).c_str(), text(most).c_str());
  return {};
}

std::string CheckKnob() {
  TMachineBounds config;
  std::vector<TProblem> wrong;  // the machine was made all the same
  config.Read(MachineConfig()->Root(), wrong);
  const TSpeedData& xy = Knob().XYSpeed.ShowSpeed;
  const TSpeedData& z = Knob().ZSpeed.ShowSpeed;
  if (std::string problem =
          CheckJogSpeeds(xy.LowSpeed, xy.NormalSpeed, xy.HighSpeed, std::min(config.X.MaxSpeed, config.Y.MaxSpeed));
      !problem.empty())
    return "XY: " + problem;
  if (std::string problem = CheckJogSpeeds(z.LowSpeed, z.NormalSpeed, z.HighSpeed, config.Z.MaxSpeed); !problem.empty())
    return "Z: " + problem;
  return {};
}

void ApplyKnob(TController& session, TSpeedState level) {
  TKnob& knob = Knob();
  if (level != knob.GetSpeedState()) return knob.SetSpeedState(level);
  TJogSections& jog = session.Jog();
  if (!jog.Loaded()) return;
  const auto speed = [level](const TSpeedData& data) {
    return level == ssLow ? data.LowSpeed : level == ssNormal ? data.NormalSpeed : data.HighSpeed;
  };
  session.Params().SetBool("JogFast", level == ssHigh);
  session.Params().SetBool("JogSlow", level == ssLow);
  session.Params().SetDouble("JogSpeed", speed(knob.XYSpeed.UsedSpeed));
  for (std::size_t head = 0; head < (knob.GetDHEnabled() ? TJogSections::kHeads : 1); ++head) {
    TJogZSection z = jog.Z(head);
    (level == ssHigh ? z.HighJogSpeed : z.JogSpeed) = static_cast<float>(speed(knob.ZSpeed.UsedSpeed));
    jog.SetZ(head, z);
  }
}

TResult<> SetKnobLevel(TController& session, TSpeedState level) {
  if (std::string problem = CheckKnob(); !problem.empty()) return TProblem{.What = std::move(problem)};
  try {
    ApplyKnob(session, level);
  } catch (const EDesignFault& fault) {
    return TProblem{.What = Format("%s: %s", fault.Unit(), fault.what())};
  }
  return {};
}

void SetKnobSpeeds(TSpeedState level, std::optional<double> xy, std::optional<double> z) {
  TKnob& knob = Knob();
  const TSpeedData xyBefore = knob.XYSpeed.ShowSpeed;
  const TSpeedData zBefore = knob.ZSpeed.ShowSpeed;
  if (xy) SpeedAt(knob.XYSpeed.ShowSpeed, level) = *xy;
  if (z) SpeedAt(knob.ZSpeed.ShowSpeed, level) = *z;
  if (std::string problem = CheckKnob(); !problem.empty()) {
    knob.XYSpeed.ShowSpeed = xyBefore;
    knob.ZSpeed.ShowSpeed = zBefore;
    throw EProblem(pbRefused, std::move(problem));
  }
  knob.SaveConfig();
  knob.LoadConfig();
}

nlohmann::ordered_json KnobJson(TController& session) {
  const TKnob& knob = Knob();
  const TNcParams& params = session.Params();
  nlohmann::ordered_json json{
      {"state", LevelName(knob.GetSpeedState())},    {"twoHeads", knob.GetDHEnabled()},
      {"xy", JsonOf(knob.XYSpeed.UsedSpeed)},        {"z", JsonOf(knob.ZSpeed.UsedSpeed)},
      {"JogFast", params.GetBool("JogFast", false)}, {"JogSlow", params.GetBool("JogSlow", false)},
      {"zJogSpeed", session.Jog().Z(0).JogSpeed}};
  if (const double speed = params.GetDouble("JogSpeed", -1.0); speed >= 0.0) json["JogSpeed"] = speed;
  return json;
}

const char* LevelName(TSpeedState level) { return level == ssLow ? "low" : level == ssNormal ? "normal" : "high"; }

const char* ShownLevel(TSpeedState level) {
  return level == ssLow ? Tr("low") : level == ssNormal ? Tr("normal") : Tr("high");
}

TSpeedState LevelOf(const std::string& word) {
  for (const TSpeedState level : {ssLow, ssNormal, ssHigh})
    if (word == LevelName(level)) return level;
  throw EProblem(pbRequest, Format(Tr("\"%s\" is not one of %s"), word.c_str(), "low, normal, high"));
}

}  // namespace ixocontroller
