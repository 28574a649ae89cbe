// The pages of what an operator meets: alarms, and the keys of the panel.
#include <algorithm>
#include <set>

#include "controller/alarms/RunAlarms.h"
#include "controller/panel/PanelNames.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/reference/Reference.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

std::string ForbidsText(TNcAlarmAttrs attrs) {
  const struct {
    TNcAlarmAttr Attr;
    const char* Words;
  } kinds[] = {{naForbidCut, Tr("forbids cutting")},
               {naForbidLaser, Tr("forbids the laser")},
               {naForbidFollower, Tr("forbids following")},
               {naForbidHoming, Tr("forbids homing")},
               {naForbidMove, Tr("forbids motion, which ends what runs")},
               {naRequireStop, Tr("stops what runs")},
               {naRequireOrg, Tr("wants the origin")}};
  std::string text;
  const auto add = [&](const std::string& words) { AddToList(text, words, "; "); };
  for (const auto& kind : kinds)
    if ((attrs & kind.Attr) != 0) add(kind.Words);
  for (std::int32_t axis = 0; axis < kNcAlarmAxes; ++axis)
    for (const bool positive : {true, false})
      if ((attrs & NcAlarmAxis(axis, positive)) != 0)
        add(Format(
            positive ? Tr("forbids axis %d its positive direction") : Tr("forbids axis %d its negative direction"),
            axis + 1));
  return text.empty() ? Tr("is shown only") : text;
}

std::vector<std::string> AlarmRow(const TNcAlarmRecord& record) {
  const TRunAlarm alarm = TRunAlarm::Of(record);
  return {Code(alarm.Identifier),
          alarm.Code == alarm.Identifier ? std::string() : alarm.Code,
          alarm.Text.empty() ? Tr("says itself what it is about") : alarm.Text,
          ForbidsText(record.Attrs),
          alarm.Reason,
          alarm.Solution};
}

std::string KeysText(TKeyMask keys) {
  const TKeyMask all = ixocamglue::Run(0, kKeys - 1);
  return (keys & all) == all ? Tr("all keys") : Code(KeyNames(keys & all));
}

}  // namespace

void FillAlarms(TPage& page, const TReferenceSources& sources) {
  page.Say(Tr(
      "Every alarm by its identifier, with the code that a person is told, what it forbids while it stands, and what "
      "to do. `ixocut alarms lookup IDENTIFIER` tells the same. An alarm that forbids something or stops has level "
      "1, any other 0."));
  const std::vector<std::string> head{Tr("identifier"),          Tr("code"),   Tr("text"),
                                      Tr("while it stands, it"), Tr("reason"), Tr("what to do")};
  std::set<std::string> raised;
  for (const TNcAlarmRecord& alarm : RaisedAlarms(sources.Registered)) raised.insert(alarm.Identifier());
  std::vector<TNcAlarmRecord> alarms = KnownAlarms(sources.Registered);
  std::ranges::sort(alarms, {}, [](const TNcAlarmRecord& alarm) { return std::pair(alarm.IdPrefix, alarm.Id); });
  std::vector<std::vector<std::string>> here, defined;
  for (const TNcAlarmRecord& alarm : alarms)
    (raised.contains(alarm.Identifier()) ? here : defined).push_back(AlarmRow(alarm));
  page.Heading(Tr("Raised by the controller, its machines of software, or by hand (TPHost)"));
  page.Table(head, here);
  page.Heading(Tr("Defined, for whoever raises them"));
  page.Say(
      Tr("A driver or an application that registers one of these says itself what it forbids; else it is shown only."));
  page.Table(head, defined);
}

void FillPanel(TPage& page, const TReferenceSources&) {
  page.Say(
      Tr("A key acts when the form on screen, the machine's state and the standing alarms permit it; `ixocut panel why "
         "KEY` says which of them refuses. The keys to pause, to stop and for the emergency stop are never refused."));
  page.Heading(Tr("Keys"));
  page.Say(Tr("The commands of K1 to K4 stand in the machine file, in its section `KeyDefinition`."));
  std::vector<std::vector<std::string>> keys;
  for (std::size_t i = 0; i < kKeys; ++i) {
    const auto key = static_cast<TKeyCode>(i);
    const TKeyRow& row = kKeyTable[i];
    const auto command = [](std::int32_t number) { return number == 0 ? std::string() : std::to_string(number); };
    keys.push_back({std::to_string(i), Code(row.Name), ShownKey(key), command(row.NormalCmd),
                    row.AltCmd == row.NormalCmd ? std::string() : command(row.AltCmd)});
  }
  page.Table({Tr("bit"), Tr("key"), Tr("label"), Tr("command"), Tr("in the alt mode")}, keys);

  page.Heading(Tr("What each state permits"));
  std::vector<std::vector<std::string>> states;
  for (std::int32_t state = 0; state <= kCutStates; ++state) {
    const TCutState kind = ClassifyCutState(state);
    states.push_back({state < kCutStates ? std::to_string(state) : std::string(), ShownState(kind),
                      KeysText(KBPManager()->StatePermitIn(kind))});
  }
  page.Table({Tr("number"), Tr("state"), Tr("keys")}, states);

  page.Heading(Tr("What each form permits"));
  std::vector<std::vector<std::string>> forms;
  for (const TFormGroup& group : FormGroups()) {
    const std::string names = Joined(group.Forms, Code);
    forms.push_back({Code(Format("0x%08X", group.Mask)), KeysText(group.Keys), names});
  }
  page.Table({Tr("mask"), Tr("keys"), Tr("forms")}, forms);
}

}  // namespace ixocut
