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
#include "controller/panel/PanelNames.h"
#include "controller/panel/PanelWhy.h"
#include "controller/procedures/Timeline.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Console.h"
#include "ixocut/ControllerSettings.h"
#include "ixocut/Document.h"
#include "ixocut/client/Attach.h"
#include "ixocut/panel/PanelScript.h"
#include "ixocut/panel/PanelTerminal.h"

namespace ixocut {
using namespace ixocontroller;
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
  if (!options.Machine) TellByItself(options.State);
  TConsole console(out, options.Json, false);
  nlohmann::ordered_json events, raised;
  {
    TController session(options.Options(&console));
    CheckScriptAlarms(options.Script, lines, session);
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
  if (!options.Form.empty()) CheckForm(options.Form).OrThrow(pbRequest);
  if (!options.Script.empty()) return RunScript(options, out);
  if (options.Json) throw EProblem(pbRequest, Tr("--json needs --script FILE"));
  CheckTerminal();
  TLastLines log;
  TControllerOptions sessionOptions = options.Options(&log);
  sessionOptions.Realtime = true;
  const TSignalStop signals;
  TController session(sessionOptions);
  for (const std::string& notice : session.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  session.StartThreads();
  TPanelTerminalOptions terminal;
  if (!options.Form.empty()) terminal.Form = options.Form;
  return RunPanelTerminal(session, log, terminal);
}

// --- panel why ---

const char* WhoWord(const nlohmann::ordered_json& mask) {
  return mask.at("permits") == true ? Tr("permits") : mask.at("blocks") == true ? Tr("REFUSES") : Tr("against it");
}

// What JsonOf has made of it, here or in the controller that runs.
void PrintWhy(const nlohmann::ordered_json& why, std::ostream& out) {
  const auto text = [](const nlohmann::ordered_json& json, const char* name) {
    return json.at(name).get<std::string>();
  };
  out << Format(Tr("%s, command %d: %s"), text(why, "key").c_str(), why.at("keyCommand").get<int>(),
                text(why, "conclusion").c_str())
      << '\n';
  if (const std::string message = text(why, "message"); !message.empty()) out << "  " << message << '\n';
  for (const auto& mask : why.at("masks")) {
    out << "  " << Padded(Tr(text(mask, "mask").c_str()), 8) << ' ' << Padded(WhoWord(mask), 10) << ' '
        << text(mask, "because");
    if (const std::string change = text(mask, "change"); !change.empty())
      out << Format(Tr("; needed: %s"), change.c_str());
    out << '\n';
  }
}

// On the controller that runs, as its machine is now.
int WhyThere(const TPanelOptions& options, TWireClient& client, std::ostream& out) {
  const auto why = client.Get("/api/v1/panel/why?key=" + UrlPart(options.Key));
  std::optional<TProblem> problem;
  for (const auto& mask : why.at("masks"))
    if (!problem && mask.at("blocks") == true)
      problem = TProblem{
          .What = why.at("conclusion"), .Where = why.at("key"), .Why = mask.at("because"), .Remedy = mask.at("change")};
  if (options.Json)
    PrintDocument(out, "panel why", why, problem);
  else
    PrintWhy(why, out);
  return problem ? kExitOtherwise : kExitSuccess;
}

int RunWhy(TPanelOptions options, std::ostream& out) {
  const TKeyCode key = ParseKey(options.Key).OrThrow(pbRequest);
  // What is only supposed is not the running machine's.
  const bool supposed = !options.Form.empty() || !options.AtState.empty() || !options.Alarms.empty() ||
                        options.Warning || !options.Script.empty();
  std::optional<TAttachment> attachment;
  if (!supposed) {
    attachment.emplace(options);
    if (TWireClient* const client = attachment->Client()) return WhyThere(options, *client, out);
  }
  if (!options.Form.empty()) CheckForm(options.Form).OrThrow(pbRequest);
  TPanelSupposed suppose;
  if (!options.Form.empty()) suppose.Form = options.Form;
  if (!options.AtState.empty()) suppose.State = ParseState(options.AtState).OrThrow(pbRequest);
  std::vector<TScriptLine> lines;
  if (!options.Script.empty()) lines = ReadScript(options.Script);

  if (!options.Machine) TellByItself(options.State);
  TController session(options.Options());
  CheckScriptAlarms(options.Script, lines, session);
  std::vector<TNcAlarmRecord> alarms;
  for (const std::string& text : options.Alarms) alarms.push_back(ParseAlarm(session, text).OrThrow(pbRequest));
  PowerUp(session);
  TPanelHost host(session);
  TPanelScript script(host, nullptr);
  script.Run(lines);
  for (const TNcAlarmRecord& alarm : alarms) session.RaiseAlarm(alarm);
  if (options.Warning) host.SetWarning(true);
  host.Guard().Refresh();

  const TKeyWhy why = Why(host, key, TPanelPicture(host, suppose));
  const std::optional<TProblem> problem = ProblemOf(key, why);
  if (options.Json)
    PrintDocument(out, "panel why", JsonOf(key, why), problem);
  else
    PrintWhy(JsonOf(key, why), out);
  return problem ? kExitOtherwise : kExitSuccess;
}

// --- panel forms ---

int RunForms(const TPanelOptions& options, std::ostream& out) {
  if (!options.Name.empty()) CheckForm(options.Name).OrThrow(pbRequest);
  const TController session(options.Options());
  auto list = nlohmann::ordered_json::array();
  for (const TFormGroup& group : FormGroups()) {
    for (const std::string_view form : group.Forms) {
      if (!options.Name.empty() && form != options.Name) continue;
      KBPManager()->SetCPMByForm(form, true);
      const TKeyMask inForce = KBPManager()->GetMap(kMapClientPermit);
      const std::string mask = Format("0x%08X", inForce);
      if (options.Json) {
        list.push_back(
            {{"form", form}, {"table", Format("0x%08X", group.Mask)}, {"mask", mask}, {"keys", KeyNames(inForce)}});
      } else {
        const std::string keys = inForce == kAllKeys ? Tr("all keys") : KeyNames(inForce);
        out << Format("%-36s %s  %s", std::string(form).c_str(), mask.c_str(), keys.c_str()) << '\n';
      }
    }
  }
  if (options.Json) PrintDocument(out, "panel forms", list);
  return kExitSuccess;
}

void AddCommon(CLI::App& command, const TOptions& options) {
  AddJsonOption(command, options->Json);
  AddMachineOptions(command, options->Machine, options->State);
  AddLanguageOption(command, options->Language);
}

}  // namespace

void AddPanelCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TPanelOptions>();
  CLI::App* const panel =
      program.add_subcommand("panel", Tr("The operator's key panel in the terminal, or from a script"));
  panel->require_subcommand(0, 1);
  panel->add_option("--script", options->Script, Tr("Run this file in virtual time instead of the terminal"))
      ->type_name("FILE");
  panel->add_option("--form", options->Form, Tr("The form on screen at the start (terminal: Work)"))->type_name("FORM");
  AddSeedOption(*panel, options->Seed);
  AddCommon(*panel, options);
  SetHelp(*panel, {ScriptHelp() + Tr("\n"
                                     "In the terminal each key shows what to press for it. e is always the emergency "
                                     "stop, space always stop.\n"
                                     "The stop key held for 3 s in standby resets the laser's latch, unless its cause "
                                     "stands."),
                   {},
                   {"ixocut panel --lang en", "ixocut panel --script keys.txt --json"}});
  panel->callback([options, panel, &run] {
    if (panel->get_subcommands().empty()) run = [options] { return RunPanel(*options, std::cout); };
  });

  const auto whyOptions = std::make_shared<TPanelOptions>();
  CLI::App* const why =
      panel->add_subcommand("why", Tr("Is a key allowed; if not, what refuses it and what would help"));
  why->add_option("KEY", whyOptions->Key, Tr("The key, with or without CK_"))->required()->type_name("");
  why->add_option("--form", whyOptions->Form, Tr("The form on screen"))->type_name("FORM");
  why->add_option("--at", whyOptions->AtState, Tr("The machine state, by number or name"))->type_name("S");
  why->add_option("--alarm", whyOptions->Alarms,
                  Tr("An alarm that stands, 101 to 106 or an identifier (TPLaser#1); may be given several times"))
      ->type_name("ID")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  why->add_flag("--warning", whyOptions->Warning, Tr("A maintenance warning is pending while the origin is required"));
  why->add_option("--script", whyOptions->Script, Tr("Run this file first"))->type_name("FILE");
  AddCommon(*why, whyOptions);
  AddAttachOptions(*why, whyOptions->Attach, true);
  SetHelp(
      *why,
      {Tr("Each mask of the panel permits the key or is against it; \"machine\" is what the cutting system makes "
          "of the command."),
       Tr("0 the press has its effect, 1 it has none, 2 wrong command line or script, 3 a file cannot be used"),
       {"ixocut panel why LASER --form Work", "ixocut panel why START --form Work --alarm TPGas#2 --alarm 104",
        "ixocut panel why RIGHT --form DlgEdgeSeek --at jogging", "ixocut panel why GAS --script keys.txt --json"}});
  why->callback([whyOptions, &run] { run = [whyOptions] { return RunWhy(*whyOptions, std::cout); }; });

  const auto formOptions = std::make_shared<TPanelOptions>();
  CLI::App* const forms =
      panel->add_subcommand("forms", Tr("The forms and the keys that are permitted while each is shown"));
  forms->add_option("NAME", formOptions->Name, Tr("Only this form"))->type_name("");
  AddCommon(*forms, formOptions);
  SetHelp(*forms,
          {Tr("The keys are those in force on this machine: with stop and emergency stop, which every form permits,\n"
              "and with K1 to K4 where their command is not forbidden."),
           {},
           {"ixocut panel forms", "ixocut panel forms DlgManualLubr --json"}});
  forms->callback([formOptions, &run] { run = [formOptions] { return RunForms(*formOptions, std::cout); }; });
}

}  // namespace ixocut
