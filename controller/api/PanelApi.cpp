// The key panel: what it shows, why a key does nothing, and its keys, form and knob.
#include <algorithm>

#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/panel/PanelNames.h"
#include "controller/panel/PanelWhy.h"
#include "controller/service/RealTime.h"
#include "ixocamglue/panel/Kbpforms.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::size_t kMostHeld = 32;  // keys of one heartbeat
constexpr double kMostMmPerS = 1e6;    // the machine's own limit is what counts
constexpr std::int64_t kMostMs = std::int64_t{1} << 52U;

TJson PanelJson(TService& service) {
  TPanelHost& host = service.Panel().Host();
  const TKBPManager& manager = *KBPManager();
  const TKeyMask leds = host.Guard().Leds();
  const TKeyMask down = manager.CurKeyBits();
  TJson keys = TJson::array();
  for (std::size_t i = 0; i < kKeys; ++i) {
    const auto key = static_cast<TKeyCode>(i);
    const TKBPKeyItem& item = *KBPManager()->KeyItem(key);
    const TPressVerdict verdict = Judge(key);
    keys.push_back({{"key", KeyName(key)},
                    {"label", ShownKey(key)},
                    {"keyCommand", item.GetCMD()},
                    {"lit", (leds & KeyBit(key)) != 0},
                    {"on", item.GetBit(kMapLed)},
                    {"permitted", item.IsStopKey() || verdict == pvSent || verdict == pvSentUnderAlarm},
                    {"down", (down & KeyBit(key)) != 0},
                    {"stopKey", item.IsStopKey()}});
  }
  const auto& open = host.Forms().Open();
  return {{"form", open.empty() ? TJson() : TJson(open.back())},
          {"forms", open},
          {"leds", KeyList(leds)},
          {"keys", std::move(keys)},
          {"knob", KnobJson(service.Controller())},
          {"serverMs", RealMs()}};
}

TApiReply ShowPanel(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body = PanelJson(service);
  return reply;
}

TApiReply ShowWhy(TService& service, const TApiRequest& request) {
  const TKeyCode key = ParseKey(QueryOf(request, "key")).OrThrow(pbRequest);
  const std::int32_t state = service.Controller().Framework().CurrentState();
  TApiReply reply;
  reply.Body = JsonOf(key, Why(service.Panel().Host(), key, state));
  return reply;
}

TApiReply ShowForms(TService&, const TApiRequest&) {
  TJson forms = TJson::array();
  for (const TFormGroup& group : FormGroups())
    for (const std::string_view form : group.Forms)
      forms.push_back({{"form", form}, {"allKeys", group.Mask == kAllKeys}, {"keys", KeyList(group.Mask)}});
  TApiReply reply;
  reply.Body = {{"forms", std::move(forms)}};
  return reply;
}

// Stop keys are anybody's from this machine, and any role's from another; what else is pressed needs role and lease.
std::optional<TApiReply> MayPress(TService& service, const TApiRequest& request, TKeyCode key) {
  if (!THeldKeys::NeedsLease(key)) {
    if (request.Who.Local || request.Who.Role >= roViewer) return std::nullopt;
    return Fail(403, NeedsRole(roViewer, request.Who));
  }
  if (request.Who.Role < roOperator) return Fail(403, NeedsRole(roOperator, request.Who));
  const auto admitted = service.Lease().Admit(request.Lease, RealMs());
  return admitted ? std::nullopt : std::optional<TApiReply>(Fail(409, admitted.Problem()));
}

TApiReply Press(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"key", "press", "param", "atMs"});
  const TKeyCode key = ParseKey(body.Text("key")).OrThrow(pbRequest);
  TKeyPress press{.Id = body.Text("press"),
                  .Key = key,
                  .Param = body.Has("param") ? static_cast<std::int32_t>(body.Whole("param", 0, 0x7FFFFFFF)) : 0,
                  .Connection = request.Who.Connection,
                  .AtMs = static_cast<std::uint64_t>(body.Whole("atMs", 0, kMostMs))};
  if (auto refused = MayPress(service, request, key)) return *refused;
  TPanelDesk& panel = service.Panel();
  // What would come to nothing is said before the key is held; the log has its line of it from the terminal's panel.
  const TKeyWhy why = Why(panel.Host(), key, service.Controller().Framework().CurrentState());
  if (THeldKeys::NeedsLease(key) && !why.Acts)
    if (const auto problem = ProblemOf(key, why)) return Fail(409, *problem);
  panel.Keys().Press(press, RealMs()).OrThrow(pbRefused);
  TApiReply reply;
  reply.Body = {{"key", KeyName(key)},
                {"press", press.Id},
                {"sent", why.Sent || !THeldKeys::NeedsLease(key)},
                {"conclusion", why.Conclusion},
                {"serverMs", RealMs()}};
  return reply;
}

TApiReply PressReply(const std::string& press) {
  TApiReply reply;
  reply.Body = {{"press", press}, {"serverMs", RealMs()}};
  return reply;
}

TApiReply Release(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"press"});
  const std::string press = body.Text("press");
  service.Panel().Keys().Release(press, RealMs()).OrThrow(pbRequest);
  return PressReply(press);
}

TApiReply Heartbeat(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"presses", "atMs"});
  const std::vector<std::string> presses = body.Texts("presses");
  if (presses.size() > kMostHeld) throw EProblem(pbRequest, TProblem{.What = Tr("too many keys"), .Where = "presses"});
  const auto at = static_cast<std::uint64_t>(body.Whole("atMs", 0, kMostMs));
  const std::uint64_t now = RealMs();
  service.Panel().Keys().Heartbeat(presses, request.Who.Connection, at, now).OrThrow(pbRefused);
  TApiReply reply;
  reply.Body = {{"presses", presses}, {"serverMs", now}};
  return reply;
}

TApiReply SetForm(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"form", "open"});
  const std::string form = body.Text("form");
  CheckForm(form).OrThrow(pbRequest);
  service.Panel().SetForm(form, body.Flag("open", true), RealMs());
  return ShowPanel(service, request);
}

// The knob turned by so many counts: one level each. Where nothing is moved by hand they are dropped.
bool TurnKnob(TController& controller, std::int64_t counts) {
  const TCutState state = ClassifyCutState(controller.Framework().CurrentState());
  if (controller.Running() || (state != csStandby && state != csJogging)) return false;
  const auto level = std::clamp<std::int64_t>(static_cast<std::int64_t>(Knob().GetSpeedState()) + counts, 0, 2);
  SetKnobLevel(controller, static_cast<TSpeedState>(level)).OrThrow(pbRefused);
  return true;
}

TApiReply SetKnob(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"level", "counts", "xy", "z"});
  TController& controller = service.Controller();
  bool dropped = false;
  if (body.Has("counts")) {
    if (body.Has("level") || body.Has("xy") || body.Has("z"))
      throw EProblem(pbRequest, TProblem{.What = Tr("either counts or a level"), .Where = "counts"});
    dropped = !TurnKnob(controller, body.Whole("counts", -1000, 1000));
  } else {
    const TSpeedState level = LevelOf(body.Text("level"));
    const auto speed = [&](const char* name) {
      return body.Has(name) ? std::optional(body.Number(name, 0.0, kMostMmPerS)) : std::nullopt;
    };
    const auto xy = speed("xy"), z = speed("z");
    service.AtRest().OrThrow(pbRefused);
    if (xy || z)
      SetKnobSpeeds(level, xy, z);
    else
      SetKnobLevel(controller, level).OrThrow(pbRefused);
    controller.Jog().Save().OrThrow(pbUnusable);
  }
  TApiReply reply;
  reply.Body = KnobJson(controller);
  reply.Body["dropped"] = dropped;
  return reply;
}

constexpr TApiRoute kPanelRoutes[] = {
    {"GET", "/api/v1/panel", roNone, false, true, &ShowPanel, "The panel: keys, LEDs, form and knob"},
    {"GET", "/api/v1/panel/why", roNone, false, true, &ShowWhy, "Why a key does what it does now"},
    {"GET", "/api/v1/panel/forms", roNone, false, false, &ShowForms, "The forms, and the keys that each permits"},
    {"POST", "/api/v1/panel/press", roNone, false, true, &Press, "Press a key, which is held until it is released"},
    {"POST", "/api/v1/panel/release", roNone, false, true, &Release, "Release a key by its press"},
    {"POST", "/api/v1/panel/heartbeat", roOperator, false, true, &Heartbeat, "Hold keys down for another 200 ms"},
    {"POST", "/api/v1/panel/form", roOperator, true, true, &SetForm, "Show a form, or hide it"},
    {"POST", "/api/v1/panel/knob", roOperator, true, true, &SetKnob, "Turn the knob, or set a level's speeds"},
};

}  // namespace

std::span<const TApiRoute> PanelRoutes() { return kPanelRoutes; }

}  // namespace ixocontroller
