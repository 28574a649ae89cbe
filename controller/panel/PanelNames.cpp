#include "controller/panel/PanelNames.h"

#include <algorithm>
#include <set>
#include <utility>

#include "controller/AlarmPackage.h"
#include "controller/safety/Supervisor.h"
#include "controller/texts/PanelTexts.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::string_view kKeyPrefix = "CK_";

constexpr const char* kHandPrefix = "TPHost";

// The alarms that can be raised by hand.
struct THandAlarm {
  std::int32_t Id;
  const TText* Name;
  TNcAlarmAttrs Attrs;
};
const THandAlarm kHandAlarms[] = {
    {101, &SAlarmLaserSource, naForbidCut | naForbidLaser},
    {102, &SAlarmGasPressure, naForbidCut},
    {103, &SAlarmFollower, naForbidCut | naForbidFollower},
    {104, &SAlarmLimitX, NcAlarmAxis(0, true)},
    {105, &SAlarmNotHomed, naForbidCut | naRequireOrg},
    {106, &SAlarmDrive, naForbidCut | naForbidLaser | naForbidHoming | naForbidMove},
};

// What RaisedAlarms names, and what has a definition, which nobody here raises, and may be one of the others.
std::vector<TNcAlarmRecord> AllAlarms(std::vector<TNcAlarmRecord> registered) {
  std::vector<TNcAlarmRecord> known = RaisedAlarms(std::move(registered));
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  for (const std::string& identifier : interpreter ? interpreter->Identifiers() : std::vector<std::string>()) {
    const auto hash = identifier.rfind('#');
    if (hash == std::string::npos) continue;
    const auto number = ParseExactly<std::int32_t>(std::string_view(identifier).substr(hash + 1));
    if (number)
      known.push_back({.IdPrefix = identifier.substr(0, hash), .Desc = {}, .Id = *number, .Attrs = naShownOnly});
  }
  return known;
}

TNcAlarmRecord Described(TNcAlarmRecord alarm) {
  const TAlarmInterpreter* const interpreter = AlarmInterpreter();
  TAlarmRec rec;
  if (alarm.Desc.empty() && interpreter && interpreter->TryGetAlarmRec(alarm.Identifier(), rec))
    alarm.Desc = rec.BrifDesc;
  return alarm;
}

}  // namespace

const char* ShownKey(TKeyCode key) {
  switch (key) {
    case CK_SHUTTER: return Tr("SHUTTER");
    case CK_AIMING: return Tr("AIMING");
    case CK_LASER: return Tr("LASER");
    case CK_FOLLOW: return Tr("FOLLOW");
    case CK_GAS: return Tr("GAS");
    case CK_RETURN0: return Tr("RETURN0");
    case CK_WALKAROUND: return Tr("WALK");
    case CK_FORWARD: return Tr("FORWARD");
    case CK_Z_UP: return Tr("Z UP");
    case CK_LEFT: return Tr("LEFT");
    case CK_RIGHT: return Tr("RIGHT");
    case CK_BACK: return Tr("BACK");
    case CK_Z_DOWN: return Tr("Z DOWN");
    case CK_START: return Tr("START");
    case CK_PAUSE: return Tr("PAUSE");
    case CK_RESUME: return Tr("RESUME");
    case CK_STOP: return Tr("STOP");
    case CK_EGYSTOP: return Tr("EGYSTOP");
    case CK_KNOB: return Tr("KNOB");
    case CK_K1: return "K1";
    case CK_K2: return "K2";
    case CK_K3: return "K3";
    case CK_K4: return "K4";
    case CK_CALIBRATION: return Tr("CALIB");
    case CK_JOG_LASER: return Tr("JOG LASER");
    case CK_DRY_CUT: return Tr("DRY CUT");
    case CK_BREAK_LOCATE: return Tr("BREAK");
    case CK_CUR_POS_AUTO_CALIBRATION: return Tr("CALIB HERE");
  }
  return "";
}

const char* ShownState(TCutState state) { return Tr(CutStateName(state)); }

TResult<TKeyCode> ParseKey(std::string_view text) {
  const std::string_view name =
      text.size() > kKeyPrefix.size() && SameFolded(text.substr(0, kKeyPrefix.size()), kKeyPrefix)
          ? text.substr(kKeyPrefix.size())
          : text;
  TNearestName nearest(name);
  std::string all;
  for (std::size_t i = 0; i < kKeys; ++i) {
    const std::string_view known = kKeyTable[i].Name.substr(kKeyPrefix.size());
    if (SameFolded(name, known)) return static_cast<TKeyCode>(i);
    nearest.Consider(known);
    AddToList(all, known, " ");
  }
  return TProblem{.What = Format(Tr("\"%s\" is no key of the panel"), std::string(text).c_str()),
                  .Where = {},
                  .Why = {},
                  .Remedy = nearest.DidYouMean(Format(Tr("the keys are %s"), all.c_str()))};
}

TResult<> CheckForm(std::string_view form) {
  if (FormMask(form)) return {};
  TNearestName nearest(form);
  for (const TFormGroup& group : FormGroups())
    for (const std::string_view known : group.Forms) nearest.Consider(known);
  return TProblem{.What = Format(Tr("\"%s\" is no form of the panel"), std::string(form).c_str()),
                  .Where = {},
                  .Why = {},
                  .Remedy = nearest.DidYouMean(Tr("\"ixocut panel forms\" lists them; case counts"))};
}

TResult<std::int32_t> ParseState(const std::string& text) {
  TNearestName nearest(text);
  for (std::int32_t state = 0; state < kCutStates; ++state) {
    const std::string_view name = CutStateName(ClassifyCutState(state));
    if (text == name || text == ShownState(ClassifyCutState(state))) return state;
    nearest.Consider(name);
  }
  const auto number = ParseExactly<std::int32_t>(text);
  if (number && *number >= 0) return *number;
  return TProblem{.What = Format(Tr("\"%s\" is no number or name of a state"), text.c_str()),
                  .Where = {},
                  .Why = {},
                  .Remedy = nearest.DidYouMean()};
}

std::vector<TNcAlarmRecord> RaisedAlarms(std::vector<TNcAlarmRecord> registered) {
  std::vector<TNcAlarmRecord> raised;
  for (const THandAlarm& alarm : kHandAlarms)
    raised.push_back({.IdPrefix = kHandPrefix, .Desc = alarm.Name->Get(), .Id = alarm.Id, .Attrs = alarm.Attrs});
  std::ranges::move(registered, std::back_inserter(raised));
  raised.push_back({.IdPrefix = kSupervisorAlarmPrefix, .Desc = {}, .Id = 1, .Attrs = naForbidMove});
  raised.push_back({.IdPrefix = kAllOffAlarm, .Desc = {}, .Id = 1, .Attrs = kAllOffForbids});
  raised.push_back({.IdPrefix = "InportCtrl", .Desc = {}, .Id = 176, .Attrs = naForbidMove});
  return raised;
}

std::vector<TNcAlarmRecord> KnownAlarms(std::vector<TNcAlarmRecord> registered) {
  std::vector<TNcAlarmRecord> alarms;
  std::set<std::string> seen;
  for (TNcAlarmRecord& alarm : AllAlarms(std::move(registered)))
    if (seen.insert(alarm.Identifier()).second) alarms.push_back(Described(std::move(alarm)));
  return alarms;
}

TResult<TNcAlarmRecord> ParseAlarm(TController& session, const std::string& text) {
  return ParseAlarm(session.Alarms().Registered(), text);
}

TResult<TNcAlarmRecord> ParseAlarm(std::vector<TNcAlarmRecord> registered, const std::string& text) {
  const auto hash = text.rfind('#');
  const std::string prefix = hash == std::string::npos ? kHandPrefix : text.substr(0, hash);
  const std::string number = text.substr(hash == std::string::npos ? 0 : hash + 1);
  const std::string what = Format(Tr("no alarm \"%s\""), text.c_str());
  if (std::string problem = CheckNumber(number, 0, 0x7FFFFFFF, ""); hash != std::string::npos && !problem.empty())
    return TProblem{.What = what, .Where = {}, .Why = std::move(problem)};
  const auto id = ParseExactly<std::int32_t>(number);
  const std::vector<TNcAlarmRecord> known = AllAlarms(std::move(registered));
  std::vector<std::string> identifiers;  // outlive the search
  for (const TNcAlarmRecord& alarm : known) {
    if (id && alarm.Id == *id && alarm.IdPrefix == prefix) return Described(alarm);
    identifiers.push_back(alarm.Identifier());
  }
  TNearestName nearest(text);
  for (const std::string& identifier : identifiers) nearest.Consider(identifier);
  return TProblem{.What = what,
                  .Where = {},
                  .Why = {},
                  .Remedy = nearest.DidYouMean(
                      Format(Tr("the alarms are %s, and the identifiers of \"ixocut alarms\", TPLaser#1 for example"),
                             HandAlarmList().c_str()))};
}

std::string HandAlarmList() {
  std::string list;
  for (const THandAlarm& alarm : kHandAlarms) AddToList(list, Format("%d (%s)", alarm.Id, alarm.Name->Get()));
  return list;
}

std::string KeyNames(TKeyMask keys) {
  std::string names;
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((keys & KeyBit(i)) != 0) AddToList(names, kKeyTable[i].Name, " ");
  return names.empty() ? "-" : names;
}

}  // namespace ixocontroller
