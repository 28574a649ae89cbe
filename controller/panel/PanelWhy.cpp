#include "controller/panel/PanelWhy.h"

#include "controller/alarms/RunAlarms.h"
#include "controller/panel/PanelNames.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"

namespace ixocontroller {
namespace {

std::string FormsWith(TKeyMask key) {
  std::string names = "Work";
  for (const TFormGroup& group : FormGroups())
    if ((group.Mask & key) != 0 && group.Mask != kAllKeys) AddToList(names, group.Forms.front());
  return names;
}

std::string StatesWith(TKeyMask key) {
  std::string names;
  for (std::int32_t state = 0; state < kCutStates; ++state)
    if ((KBPManager()->StatePermitIn(ClassifyCutState(state)) & key) != 0)
      AddToList(names, ShownState(ClassifyCutState(state)));
  return names;
}

// Those of the alarms that alone keep the key from being permitted.
std::string AlarmsAgainst(const std::vector<TNcAlarmRecord>& alarms, TKeyMask key) {
  std::string names;
  for (const TNcAlarmRecord& record : alarms) {
    TNcAlarmManager alone;
    alone.Raise(record);
    if ((KBPManager()->AlarmPermitUnder(&alone) & key) != 0) continue;
    const TRunAlarm alarm = TRunAlarm::Of(record);
    AddToList(names, alarm.Identifier + " " + alarm.Text);
  }
  return names.empty() ? Tr("the alarms together") : names;
}

std::string FormShown(TPanelHost& host) {
  const auto& open = host.Forms().Open();
  return open.empty() ? std::string() : open.back();
}

std::string FormOnScreen(const std::string& form) {
  return form.empty() ? std::string(Tr("no form is on screen")) : Format(Tr("form %s"), form.c_str());
}

std::string ShownNumberedState(std::int32_t state) {
  return Format(Tr("state %d %s"), state, ShownState(ClassifyCutState(state)));
}

}  // namespace

TPressVerdict Judge(TKeyCode key) {
  const TKBPManager& manager = *KBPManager();
  return JudgePress(key, manager.GetMap(kMapClientPermit), manager.GetMap(kMapAlarmPermit),
                    manager.GetMap(kMapStatePermit), manager.GetMap(kMapWarningPermit));
}

TPanelPicture::TPanelPicture(TPanelHost& host, const TPanelSupposed& supposed)
    : Client(KBPManager()->GetMap(kMapClientPermit)),
      Alarm(KBPManager()->GetMap(kMapAlarmPermit)),
      State(KBPManager()->GetMap(kMapStatePermit)),
      Warning(KBPManager()->GetMap(kMapWarningPermit)),
      Form(supposed.Form.value_or(FormShown(host))),
      Alarms(supposed.Alarms ? *supposed.Alarms : host.Controller().Alarms().Standing()),
      Met{.State = supposed.State.value_or(host.Controller().Framework().CurrentState())} {
  const TKBPManager& manager = *KBPManager();
  if (supposed.Form) {
    Client = manager.ClientPermitUnder(FormMask(Form).value_or(kDefaultClientPermit), FForbidden);
    Met.Forbidden = &FForbidden;
  }
  if (supposed.Alarms) {
    for (const TNcAlarmRecord& alarm : Alarms) FAlarms.Raise(alarm);
    Alarm = manager.AlarmPermitUnder(&FAlarms);
    Met.Alarms = &FAlarms;
  }
  if (supposed.State) State = manager.StatePermitIn(ClassifyCutState(Met.State));
  if (supposed.Warning) Warning = *supposed.Warning ? kAllKeys & ~KeyBit(CK_RETURN0) : kAllKeys;
}

TKeyWhy Why(TPanelHost& host, TKeyCode key, const TPanelPicture& picture) {
  const TKBPKeyItem& item = *KBPManager()->KeyItem(key);
  const TKeyMask bit = KeyBit(key);
  TKeyWhy why;
  why.Verdict = JudgePress(key, picture.Client, picture.Alarm, picture.State, picture.Warning);
  why.Command = item.GetCMD();
  const bool passes = why.Verdict == pvSent || why.Verdict == pvSentUnderAlarm;
  why.Sent = why.Command != 0 && passes;
  const auto refused = why.Sent ? host.Controller().Keys().WhyNot(why.Command, picture.Met) : TKeyCommands::TWhyNot();
  why.Acts = (why.Sent && !refused.Refused()) || (key == CK_KNOB && passes);

  const auto add = [&](const char* who, TKeyMask mask, TPressVerdict blocked, std::string because, auto change) {
    const bool permits = (mask & bit) != 0;
    auto& reason = why.Reasons.emplace_back(TKeyReason{who, permits, why.Verdict == blocked, std::move(because)});
    if (!permits) reason.Change = change();
  };
  add(TrMark("client"), picture.Client, pvClientRefuses, FormOnScreen(picture.Form),
      [&] { return Format(Tr("a form that permits the key, for example %s"), FormsWith(bit).c_str()); });
  const bool alarmed = (picture.Alarm & bit) == 0;
  const std::string against = alarmed ? AlarmsAgainst(picture.Alarms, bit) : Tr("no alarm is against it");
  add(TrMark("alarm"), picture.Alarm, pvSentUnderAlarm, against,
      [&] { return Format(Tr("clear %s"), against.c_str()); });
  why.Reasons.back().Blocks = alarmed && refused.ByAlarm;  // else the press has its effect, or fails of something else
  add(TrMark("state"), picture.State, pvStateRefuses, ShownNumberedState(picture.Met.State),
      [&] { return Format(Tr("a state that permits the key: %s"), StatesWith(bit).c_str()); });
  const bool warned = (picture.Warning & bit) == 0;
  add(TrMark("warning"), picture.Warning, pvWarningRefuses,
      warned ? Tr("a maintenance warning is pending") : Tr("no maintenance warning is against it"),
      [] { return Tr("settle the maintenance warning, or clear the alarm that requires the origin"); });
  if (why.Sent)
    why.Reasons.push_back(
        {TrMark("machine"), why.Acts, !why.Acts, why.Acts ? Tr("the cutting system carries it out") : refused.Shown});

  if (item.IsStopKey())
    why.Conclusion = Tr("sent: a stop key is never refused");
  else if (!passes)
    why.Conclusion = Tr("refused");
  else if (why.Command == 0)
    why.Conclusion = key == CK_KNOB ? Tr("turns the knob") : Tr("nothing: the key has no command");
  else if (!why.Acts)
    why.Conclusion = Tr("sent, and refused by the cutting system");
  else
    why.Conclusion = alarmed ? Tr("sent and carried out, with the message that an alarm stands") : Tr("sent");
  return why;
}

nlohmann::ordered_json JsonOf(TKeyCode key, const TKeyWhy& why) {
  const TText* const text = VerdictText(why.Verdict);
  nlohmann::ordered_json json{
      {"key", KeyName(key)}, {"keyCommand", why.Command},    {"allowed", why.Verdict == pvSent},  {"sent", why.Sent},
      {"acts", why.Acts},    {"conclusion", why.Conclusion}, {"message", text ? text->Get() : ""}};
  auto& masks = json["masks"] = nlohmann::ordered_json::array();
  for (const TKeyReason& reason : why.Reasons)
    masks.push_back({{"mask", reason.Who},
                     {"permits", reason.Permits},
                     {"blocks", reason.Blocks},
                     {"because", reason.Because},
                     {"change", reason.Change}});
  return json;
}

std::optional<TProblem> ProblemOf(const nlohmann::ordered_json& why) {
  for (const auto& mask : why.at("masks"))
    if (mask.at("blocks") == true)
      return TProblem{
          .What = why.at("conclusion"), .Where = why.at("key"), .Why = mask.at("because"), .Remedy = mask.at("change")};
  return {};
}

std::string WhyNothing(TPanelHost& host, TKeyCode key) {
  const TKeyMask bit = KeyBit(key);
  switch (Judge(key)) {
    case pvClientRefuses: return FormOnScreen(FormShown(host));
    case pvSentUnderAlarm: return AlarmsAgainst(host.Controller().Alarms().Standing(), bit);
    case pvStateRefuses: return ShownNumberedState(host.Controller().Framework().CurrentState());
    case pvWarningRefuses: return Tr("a maintenance warning is pending");
    case pvSent: break;
  }
  return key == CK_KNOB || KBPManager()->KeyItem(key)->GetCMD() != 0 ? "" : Tr("the key has no command");
}

}  // namespace ixocontroller
