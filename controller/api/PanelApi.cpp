// The key panel: what it shows, why a key does nothing, and its keys, form and knob.
#include <algorithm>
#include <sstream>

#include "controller/alarms/RunAlarms.h"
#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/panel/PanelNames.h"
#include "controller/panel/PanelWhy.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/panel/Kbpforms.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::size_t kMostHeld = 32;  // keys of one heartbeat
constexpr double kMostMmPerS = 1e6;    // the machine's own limit is what counts
constexpr std::int64_t kLatestMs = std::int64_t{1} << 52U;

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
          {"alt", host.Alt()},
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

// A state's number, its word on the wire or its name.
std::int32_t StateOf(const std::string& text) {
  for (std::int32_t state = 0; state <= kCutStates; ++state)
    if (text == StateWord(state)) return state;
  return ParseState(text).OrThrow(pbRequest);
}

// What a query supposes: form, state, alarms, warning. "alarms" is a list with commas; an empty one and an empty form
// are none.
TPanelSupposed SupposedOf(TService& service, const TApiRequest& request) {
  TPanelSupposed supposed;
  const auto given = [&request](const char* name) -> std::optional<std::string> {
    const auto found = request.Query.find(name);
    return found == request.Query.end() ? std::nullopt : std::optional(found->second);
  };
  if ((supposed.Form = given("form")) && !supposed.Form->empty()) CheckForm(*supposed.Form).OrThrow(pbRequest);
  if (const auto state = given("state")) supposed.State = StateOf(*state);
  if (const auto alarms = given("alarms")) {
    supposed.Alarms.emplace();
    std::istringstream list(*alarms);
    for (std::string text; std::getline(list, text, ',');)
      supposed.Alarms->push_back(ParseAlarm(service.Panel().RegisteredAlarms(), text).OrThrow(pbRequest));
  }
  if (const auto warning = given("warning")) {
    if (*warning != "true" && *warning != "false")
      throw EProblem(pbRequest, TProblem{.What = Tr("neither true nor false"), .Where = "warning"});
    supposed.Warning = *warning == "true";
  }
  return supposed;
}

TApiReply ShowWhy(TService& service, const TApiRequest& request) {
  const TKeyCode key = ParseKey(QueryOf(request, "key")).OrThrow(pbRequest);
  TPanelHost& host = service.Panel().Host();
  TApiReply reply;
  reply.Body = JsonOf(key, Why(host, key, TPanelPicture(host, SupposedOf(service, request))));
  return reply;
}

TApiReply ShowKeys(TService& service, const TApiRequest& request) {
  TPanelHost& host = service.Panel().Host();
  const TPanelPicture picture(host, SupposedOf(service, request));
  TApiReply reply;
  reply.Body = {{"form", picture.Form.empty() ? TJson() : TJson(picture.Form)},
                {"state", StateWord(picture.Met.State)},
                {"stateNumber", picture.Met.State},
                {"alarms", TJson::array()},
                {"keys", TJson::array()}};
  for (const TNcAlarmRecord& alarm : picture.Alarms) reply.Body["alarms"].push_back(alarm.Identifier());
  for (std::size_t i = 0; i < kKeys; ++i) {
    const auto key = static_cast<TKeyCode>(i);
    reply.Body["keys"].push_back(JsonOf(key, Why(host, key, picture)));
  }
  return reply;
}

TApiReply ShowForms(TService& service, const TApiRequest&) {
  TJson forms = TJson::array(), states = TJson::array(), alarms = TJson::array();
  for (const TFormGroup& group : FormGroups())
    for (const std::string_view form : group.Forms)
      forms.push_back({{"form", form}, {"allKeys", group.Mask == kAllKeys}, {"keys", KeyList(group.Mask)}});
  for (std::int32_t state = 0; state <= kCutStates; ++state)
    states.push_back({{"number", state}, {"state", StateWord(state)}, {"text", ShownState(ClassifyCutState(state))}});
  for (const TNcAlarmRecord& alarm : KnownAlarms(service.Panel().RegisteredAlarms()))
    alarms.push_back(
        {{"identifier", alarm.Identifier()}, {"level", alarm.Level()}, {"text", TRunAlarm::Of(alarm).Text}});
  TApiReply reply;
  reply.Body = {{"forms", std::move(forms)}, {"states", std::move(states)}, {"alarms", std::move(alarms)}};
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
                  .AtMs = static_cast<std::uint64_t>(body.Whole("atMs", 0, kLatestMs))};
  if (auto refused = MayPress(service, request, key)) return *refused;
  TPanelDesk& panel = service.Panel();
  // What would come to nothing is said before the key is held; the log has its line of it from the terminal's panel.
  const TKeyWhy why = Why(panel.Host(), key, TPanelPicture(panel.Host()));
  if (THeldKeys::NeedsLease(key) && !why.Acts)
    if (const auto problem = ProblemOf(JsonOf(key, why))) return Fail(409, *problem);
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
  const auto at = static_cast<std::uint64_t>(body.Whole("atMs", 0, kLatestMs));
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

TApiReply SetAlt(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"alt"});
  TPanelHost& host = service.Panel().Host();
  host.SetAlt(body.Flag("alt", true));
  host.Guard().Refresh();
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
    {"GET", "/api/v1/panel/why", roNone, false, true, &ShowWhy, "Why a key does what it does, now or in another state"},
    {"GET", "/api/v1/panel/keys", roNone, false, true, &ShowKeys, "What each key would do, now or in another state"},
    {"GET", "/api/v1/panel/forms", roNone, false, true, &ShowForms,
     "The forms and the keys that each permits; states and alarms that may be supposed"},
    {"POST", "/api/v1/panel/press", roNone, false, true, &Press, "Press a key, which is held until it is released"},
    {"POST", "/api/v1/panel/release", roNone, false, true, &Release, "Release a key by its press"},
    {"POST", "/api/v1/panel/heartbeat", roOperator, false, true, &Heartbeat, "Hold keys down for another 200 ms"},
    {"POST", "/api/v1/panel/form", roOperator, true, true, &SetForm, "Show a form, or hide it"},
    {"POST", "/api/v1/panel/alt", roOperator, true, true, &SetAlt,
     "Give the keys their other commands, or take them back"},
    {"POST", "/api/v1/panel/knob", roOperator, true, true, &SetKnob, "Turn the knob, or set a level's speeds"},
};

}  // namespace

std::span<const TApiRoute> PanelRoutes() { return kPanelRoutes; }

}  // namespace ixocontroller
