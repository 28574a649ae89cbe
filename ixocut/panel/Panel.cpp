// ixocut panel, panel why, panel forms.
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/SignalStop.h"
#include "controller/alarms/RunAlarms.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Console.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
#include "ixocut/panel/PanelScript.h"
#include "ixocut/panel/PanelTerminal.h"

namespace ixocut {
namespace {

struct TPanelOptions : TControllerSettings {
  bool Json = false;
  std::string Script;
  std::string Form;
  // why
  std::string Key;
  std::string AtState;
  std::vector<std::string> Alarms;
  bool Warning = false;
  // forms
  std::string Name;
};

using TOptions = std::shared_ptr<TPanelOptions>;

void PowerUp(TController& session) {
  session.RunPass();
  session.RunPass();
}

// --- panel ---

int RunScript(const TPanelOptions& options, std::ostream& out) {
  const std::vector<TScriptLine> lines = ReadScript(options.Script);
  TConsole console(out, options.Json, false);
  nlohmann::ordered_json events, raised;
  {
    TController session(options.Options(&console));
    console.SetStart(Clock().MonotonicMs());
    PowerUp(session);
    TPanelHost host(session);
    const std::uint64_t startMs = Clock().MonotonicMs();
    console.SetStart(startMs);
    const TRunAlarms alarms(session.Alarms());
    if (!options.Form.empty()) host.Forms().Show(options.Form);
    TPanelScript script(host, options.Json ? nullptr : &out);
    script.Run(lines);
    script.ShowLeds();
    events = script.Events();
    raised = AlarmsJson(alarms.Items(), startMs);
    if (!options.Json)
      for (const std::string& line : AlarmLines(alarms.Items(), startMs)) out << line << '\n';
  }
  console.Print("panel", {{"script", options.Script}, {"events", events}, {"alarms", raised}, {"log", console.Log()}});
  return kExitSuccess;
}

int RunPanel(const TPanelOptions& options, std::ostream& out) {
  if (!options.Script.empty()) return RunScript(options, out);
  if (options.Json) throw EProblem(pbRequest, "--json needs --script FILE");
  TLastLines log;
  TControllerOptions sessionOptions = options.Options(&log);
  sessionOptions.Realtime = true;
  const TSignalStop signals;
  TController session(sessionOptions);
  session.StartThreads();
  TPanelTerminalOptions terminal;
  if (!options.Form.empty()) terminal.Form = options.Form;
  return RunPanelTerminal(session, log, terminal);
}

// --- panel why ---

struct TReason {
  const char* Mask;
  bool Allowed;
  std::string Because;
  std::string Change;  // what would have to change; empty where it is allowed
};

std::string FormsWith(TKeyMask key) {
  std::string names;
  for (const TFormGroup& group : FormGroups())
    if ((group.Mask & key) != 0 && group.Mask != kAllKeys) names += ", " + std::string(group.Forms.front());
  return "Work" + names;
}

std::string StatesWith(const TKBPManager& manager, TKeyMask key) {
  std::string names;
  for (std::int32_t state = 0; state < kCutStates; ++state)
    if ((manager.StatePermitIn(ClassifyCutState(state)) & key) != 0)
      names += (names.empty() ? "" : ", ") + std::string(CutStateName(ClassifyCutState(state)));
  return names;
}

// The standing alarms that alone keep the key from being permitted.
std::string Blockers(TController& session, TKeyMask key) {
  std::string names;
  for (const TNcAlarmRecord& record : session.Alarms().Standing()) {
    TNcAlarmManager alone;
    alone.Raise(record);
    const TInstalled<TNcAlarms> installed(alone);
    KBPManager()->UpdateAlarmPermit();
    if ((KBPManager()->GetMap(kMapAlarmPermit) & key) == 0)
      names += (names.empty() ? "" : ", ") + Format("%d %s", record.Id, record.Desc.c_str());
  }
  KBPManager()->UpdateAlarmPermit();
  return names.empty() ? "the alarms together" : names;
}

std::vector<TReason> Reasons(TPanelHost& host, TKeyCode key, TCutState state, std::int32_t number) {
  TKBPManager& manager = *KBPManager();
  const TKeyMask bit = KeyBit(key);
  const auto allowed = [&](std::int32_t map) { return (manager.GetMap(map) & bit) != 0; };
  const auto& open = host.Forms().Open();
  const std::string form = open.empty() ? "no form" : "form " + open.back();
  std::vector<TReason> reasons;
  reasons.push_back({"client", allowed(kMapClientPermit), form,
                     allowed(kMapClientPermit) ? "" : "a form that permits the key, for example " + FormsWith(bit)});
  const bool alarm = allowed(kMapAlarmPermit);
  const std::string blockers = alarm ? "" : Blockers(host.Controller(), bit);
  reasons.push_back({"alarm", alarm, alarm ? "no alarm blocks it" : blockers, alarm ? "" : "clear " + blockers});
  reasons.push_back({"state", allowed(kMapStatePermit), Format("state %d %s", number, CutStateName(state)),
                     allowed(kMapStatePermit) ? "" : "a state that permits the key: " + StatesWith(manager, bit)});
  const bool warning = allowed(kMapWarningPermit);
  reasons.push_back({"warning", warning,
                     warning ? "no maintenance warning blocks it" : "a maintenance warning is pending",
                     warning ? "" : "settle the maintenance warning, or clear the alarm that requires the origin"});
  return reasons;
}

int RunWhy(const TPanelOptions& options, std::ostream& out) {
  const std::optional<TKeyCode> key = ParseKey(options.Key);
  if (!key) throw EProblem(pbRequest, "\"" + options.Key + "\" is no key; the keys are: " + KeyNames(Run(0, 27)));
  std::vector<TScriptLine> lines;
  if (!options.Script.empty()) lines = ReadScript(options.Script);
  std::vector<const TDemoAlarm*> alarms;
  for (const std::string& text : options.Alarms) {
    const TDemoAlarm* const alarm =
        CheckNumber(text, 0, 0x7FFFFFFF, "").empty() ? FindDemoAlarm(std::stoi(text)) : nullptr;
    if (!alarm) throw EProblem(pbRequest, "--alarm: no alarm \"" + text + "\"; the alarms are " + DemoAlarmList());
    alarms.push_back(alarm);
  }
  std::optional<std::int32_t> asked;
  if (!options.AtState.empty()) {
    asked = ParseState(options.AtState);
    if (!asked) throw EProblem(pbRequest, "--state: \"" + options.AtState + "\" is no number or name of a state");
  }

  TController session(options.Options());
  PowerUp(session);
  TPanelHost host(session);
  TPanelScript script(host, nullptr);
  script.Run(lines);
  if (!options.Form.empty()) host.Forms().Show(options.Form);
  for (const TDemoAlarm* alarm : alarms) host.RaiseAlarm(*alarm);
  if (options.Warning) host.SetWarning(true);
  host.Guard().Refresh();
  TKBPManager& manager = *KBPManager();
  const std::int32_t number = asked.value_or(session.Framework().CurrentState());
  const TCutState state = ClassifyCutState(number);
  manager.SetMap(kMapStatePermit, manager.StatePermitIn(state));

  const TKBPKeyItem& item = *manager.KeyItem(*key);
  const TPressVerdict verdict = JudgePress(*key, manager.GetMap(kMapClientPermit), manager.GetMap(kMapAlarmPermit),
                                           manager.GetMap(kMapStatePermit), manager.GetMap(kMapWarningPermit));
  const std::vector<TReason> reasons = Reasons(host, *key, state, number);
  const TText* const text = VerdictText(verdict);
  const std::int32_t command = item.GetCMD();
  const bool sent = (verdict == pvSent || verdict == pvSentUnderAlarm) && command != 0;
  std::string conclusion = item.IsStopKey() ? "sent: a stop key is never refused"
                           : verdict == pvSentUnderAlarm
                               ? "reported and sent; the cutting system refuses what the alarm forbids"
                           : verdict != pvSent ? "refused"
                           : command == 0      ? "allowed, but the key has no command"
                                               : "sent";
  if (verdict == pvSentUnderAlarm && command == 0) conclusion = "reported; the key has no command";

  if (options.Json) {
    nlohmann::ordered_json document{{"key", KeyName(*key)},         {"keyCommand", command},
                                    {"allowed", verdict == pvSent}, {"sent", sent},
                                    {"conclusion", conclusion},     {"message", text ? text->Get() : ""}};
    auto& masks = document["masks"] = nlohmann::ordered_json::array();
    for (const TReason& reason : reasons)
      masks.push_back(
          {{"mask", reason.Mask}, {"permits", reason.Allowed}, {"because", reason.Because}, {"change", reason.Change}});
    PrintDocument(out, "panel why", document);
  } else {
    out << Format("%s, command %d: %s", KeyName(*key).data(), command, conclusion.c_str()) << '\n';
    if (text) out << "  " << text->Get() << '\n';
    for (const TReason& reason : reasons) {
      out << Format("  %-8s %-8s %s", reason.Mask, reason.Allowed ? "permits" : "REFUSES", reason.Because.c_str());
      if (!reason.Change.empty()) out << "; needed: " << reason.Change;
      out << '\n';
    }
  }
  return verdict == pvSent ? kExitSuccess : kExitOtherwise;
}

// --- panel forms ---

int RunForms(const TPanelOptions& options, std::ostream& out) {
  auto list = nlohmann::ordered_json::array();
  for (const TFormGroup& group : FormGroups()) {
    for (const std::string_view form : group.Forms) {
      if (!options.Name.empty() && form != options.Name) continue;
      const std::string mask = Format("0x%08X", group.Mask);
      if (options.Json) {
        list.push_back({{"form", form}, {"mask", mask}, {"keys", KeyNames(group.Mask)}});
      } else {
        const std::string keys = group.Mask == kAllKeys ? "all keys" : KeyNames(group.Mask);
        out << Format("%-36s %s  %s", std::string(form).c_str(), mask.c_str(), keys.c_str()) << '\n';
      }
      if (!options.Name.empty() && !options.Json) return kExitSuccess;
    }
  }
  if (options.Json && (options.Name.empty() || !list.empty())) PrintDocument(out, "panel forms", list);
  if (!options.Name.empty() && list.empty())
    throw EProblem(pbRefused, "the table has no form \"" + options.Name + "\" (case counts); showing it permits only " +
                                  KeyNames(kDefaultClientPermit));
  return kExitSuccess;
}

void AddCommon(CLI::App& command, const TOptions& options, const char* stateOption = "--state") {
  AddJsonOption(command, options->Json);
  AddMachineOptions(command, options->Machine, options->State, stateOption);
  AddLanguageOption(command, options->Language);
}

}  // namespace

void AddPanelCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TPanelOptions>();
  CLI::App* const panel = program.add_subcommand("panel", "The operator's key panel in the terminal, or from a script");
  panel->require_subcommand(0, 1);
  panel->add_option("--script", options->Script, "Run this file in virtual time instead of the terminal")
      ->type_name("FILE");
  panel->add_option("--form", options->Form, "The form on screen at the start (terminal: Work)")->type_name("FORM");
  AddSeedOption(*panel, options->Seed);
  AddCommon(*panel, options);
  panel->footer(
      std::string(kScriptHelp) +
      "\n"
      "In the terminal each key shows what to press for it. e is always the emergency stop, space always stop.\n"
      "The stop key held for 3 s in standby resets the laser's latch, unless its cause stands.\n"
      "\n"
      "Exit codes: 0 success, 1 a key is refused (why), 2 wrong command line or script, 3 a file problem.\n"
      "\n"
      "Examples:\n"
      "  ixocut panel --lang en\n"
      "  ixocut panel --script keys.txt --json\n"
      "  ixocut panel why LASER --form Work --alarm 101\n"
      "  ixocut panel forms DlgEdgeSeek\n"
      "\n"
      "Software is not the emergency stop.");
  panel->callback([options, panel, &run] {
    if (panel->get_subcommands().empty()) run = [options] { return RunPanel(*options, std::cout); };
  });

  const auto whyOptions = std::make_shared<TPanelOptions>();
  CLI::App* const why = panel->add_subcommand("why", "Is a key allowed; if not, what refuses it and what would help");
  why->add_option("KEY", whyOptions->Key, "The key, with or without CK_")->required()->type_name("");
  why->add_option("--form", whyOptions->Form, "The form on screen")->type_name("FORM");
  why->add_option("--state", whyOptions->AtState, "The machine state, by number or name")->type_name("S");
  why->add_option("--alarm", whyOptions->Alarms, "An alarm that stands; may be given several times")
      ->type_name("ID")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  why->add_flag("--warning", whyOptions->Warning, "A maintenance warning is pending while the origin is required");
  why->add_option("--script", whyOptions->Script, "Run this file first")->type_name("FILE");
  AddCommon(*why, whyOptions, "--state-folder");
  why->callback([whyOptions, &run] { run = [whyOptions] { return RunWhy(*whyOptions, std::cout); }; });

  const auto formOptions = std::make_shared<TPanelOptions>();
  CLI::App* const forms = panel->add_subcommand("forms", "The forms and the keys that each permits");
  forms->add_option("NAME", formOptions->Name, "Only this form")->type_name("");
  AddJsonOption(*forms, formOptions->Json);
  forms->callback([formOptions, &run] { run = [formOptions] { return RunForms(*formOptions, std::cout); }; });
}

}  // namespace ixocut
