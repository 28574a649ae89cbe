// ixocut panel, panel press, panel why, panel forms.
#include "controller/alarms/RunAlarms.h"
#include "controller/client/StatusLines.h"
#include "controller/client/WireSeat.h"
#include "controller/panel/PanelNames.h"
#include "controller/panel/PanelScript.h"
#include "controller/panel/PanelWhy.h"
#include "controller/process/SignalStop.h"
#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"
#include "ixocut/client/Attach.h"
#include "ixocut/panel/PanelPicture.h"
#include "ixocut/panel/PanelTerminal.h"

namespace ixocut {
namespace {

struct TPanelOptions : TControllerSettings {
  std::string Script;
  std::string Form;
  std::string Key;  // press, why
  // press
  std::uint64_t Ms = 100;
  std::uint64_t Param = 0;
  // why
  std::string AtState;
  std::vector<std::string> Alarms;
  bool Warning = false;
  // forms
  std::string Name;
};

constexpr std::uint64_t kLongestPressMs = 60'000;
constexpr std::uint64_t kAfterPressMs = 500;  // what the press has set going is seen

void PowerUp(TController& session) {
  session.RunPass();
  session.RunPass();
}

// --- panel ---

// A script's lines in virtual time; `script`: its file, for the document.
int Play(const TPanelOptions& options, const nlohmann::ordered_json& script, const std::vector<TScriptLine>& lines,
         TConsole& console) {
  if (!options.Machine) TellByItself(options.State);
  nlohmann::ordered_json events, raised;
  std::optional<TProblem> problem;
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
    if (!options.Key.empty()) {
      const TKeyCode key = *ParseKey(options.Key);
      problem = ProblemOf(JsonOf(key, Why(host, key, TPanelPicture(host))));
    }
    TPanelScript story(host, {.Line = [&](const std::string& line) { console.Say(line); },
                              .Leds =
                                  [&](TKeyMask leds) {
                                    for (const std::string& line : DrawPanel(leds, false))
                                      console.Say("             " + line);
                                  }});
    story.Run(lines);
    story.ShowLeds();
    events = story.Events();
    raised = AlarmsJson(alarms.Items(), startMs);
    console.SayLines(AlarmLines(alarms.Items(), startMs));
  }
  nlohmann::ordered_json document = script;
  document.update({{"events", events}, {"alarms", raised}, {"log", console.Log()}});
  return console.Print(document, problem);
}

int RunPanel(TPanelOptions options, TConsole& console) {
  if (!options.Form.empty()) CheckForm(options.Form).OrThrow(pbRequest);
  if (!options.Script.empty()) return Play(options, {{"script", options.Script}}, ReadScript(options.Script), console);
  if (options.Json) throw EProblem(pbRequest, Tr("--json needs --script FILE"));
  CheckTerminal();
  const TSignalStop signals;
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) {
    const TOperatorTexts texts(console);
    TWireSeat seat(*client, options.Form);
    return RunPanelTerminal(seat);
  }
  TLastLines log;
  TControllerOptions sessionOptions = options.Options(&log);
  sessionOptions.Realtime = true;
  TController session(sessionOptions);
  for (const std::string& notice : session.Notices()) LogMsg(lkWarning, 0, notice, "TPHost");
  session.StartThreads();
  TPanelHost host(session);
  host.Forms().Show(options.Form.empty() ? FormBehind("") : options.Form);
  THostSeat seat(host, log);
  return RunPanelTerminal(seat);
}

// --- panel press ---

// On the controller that runs.
int PressThere(const TPanelOptions& options, TKeyCode key, TWireClient& client, TConsole& console) {
  const TSignalStop signals;
  const THeldPress press =
      HoldKey(client, key, static_cast<std::int32_t>(options.Param), options.Form, options.Ms, &TSignalStop::Asked);
  const nlohmann::ordered_json& answer = press.Answer;
  const TOperatorTexts texts(console);
  const auto status = client.Get("/api/v1/status");
  console.Say(Format(Tr("%s: %s; held for %lld ms"), answer.at("key").get<std::string>().c_str(),
                     answer.at("conclusion").get<std::string>().c_str(), static_cast<long long>(press.HeldMs)));
  console.Say(StatusLine(status));
  if (press.Problem) console.Say(press.Problem->Text());
  return console.Print({{"key", answer.at("key")},
                        {"sent", answer.at("sent")},
                        {"conclusion", answer.at("conclusion")},
                        {"heldMs", press.HeldMs},
                        {"status", status}},
                       press.Problem);
}

int RunPress(TPanelOptions options, TConsole& console) {
  const TKeyCode key = ParseKey(options.Key).OrThrow(pbRequest);
  if (!options.Form.empty()) CheckForm(options.Form).OrThrow(pbRequest);
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return PressThere(options, key, *client, console);
  if (options.Form.empty()) options.Form = FormBehind("");
  return Play(options, {{"key", KeyName(key)}},
              {{1, {"press", options.Key, std::to_string(options.Param)}},
               {2, {"wait", std::to_string(options.Ms)}},
               {3, {"release", options.Key}},
               {4, {"wait", std::to_string(kAfterPressMs)}}},
              console);
}

// --- panel why ---

const char* WhoWord(const nlohmann::ordered_json& mask) {
  return mask.at("permits") == true ? Tr("permits") : mask.at("blocks") == true ? Tr("REFUSES") : Tr("against it");
}

// What JsonOf has made of it, here or in the controller that runs.
int TellWhy(const nlohmann::ordered_json& why, TConsole& console) {
  const auto text = [](const nlohmann::ordered_json& from, const char* name) {
    return from.at(name).get<std::string>();
  };
  console.Say(Format(Tr("%s, command %d: %s"), text(why, "key").c_str(), why.at("keyCommand").get<int>(),
                     text(why, "conclusion").c_str()));
  if (const std::string message = text(why, "message"); !message.empty()) console.Say("  " + message);
  for (const auto& mask : why.at("masks")) {
    const std::string change = text(mask, "change");
    console.Say("  " + Padded(Tr(text(mask, "mask").c_str()), 8) + ' ' + Padded(WhoWord(mask), 10) + ' ' +
                text(mask, "because") + (change.empty() ? "" : Format(Tr("; needed: %s"), change.c_str())));
  }
  return console.Print(why, ProblemOf(why));
}

int RunWhy(TPanelOptions options, TConsole& console) {
  const TKeyCode key = ParseKey(options.Key).OrThrow(pbRequest);
  // What is only supposed is not the running machine's.
  const bool supposed = !options.Form.empty() || !options.AtState.empty() || !options.Alarms.empty() ||
                        options.Warning || !options.Script.empty();
  std::optional<TAttached> attachment;
  if (!supposed) {
    attachment.emplace(options);
    if (TWireClient* const client = attachment->Client())  // as its machine is now
      return TellWhy(client->Get("/api/v1/panel/why?key=" + UrlPart(options.Key)), console);
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
  TPanelScript script(host);
  script.Run(lines);
  for (const TNcAlarmRecord& alarm : alarms) session.RaiseAlarm(alarm);
  if (options.Warning) host.SetWarning(true);
  host.Guard().Refresh();

  return TellWhy(JsonOf(key, Why(host, key, TPanelPicture(host, suppose))), console);
}

// --- panel forms ---

int RunForms(const TPanelOptions& options, TConsole& console) {
  if (!options.Name.empty()) CheckForm(options.Name).OrThrow(pbRequest);
  const TController session(options.Options());
  auto list = nlohmann::ordered_json::array();
  for (const TFormGroup& group : FormGroups()) {
    for (const std::string_view form : group.Forms) {
      if (!options.Name.empty() && form != options.Name) continue;
      KBPManager()->SetCPMByForm(form, true);
      const TKeyMask inForce = KBPManager()->GetMap(kMapClientPermit);
      const std::string mask = Format("0x%08X", inForce);
      const std::string names = KeyNames(inForce);
      list.push_back({{"form", form}, {"table", Format("0x%08X", group.Mask)}, {"mask", mask}, {"keys", names}});
      console.Say(Format("%-36s %s  %s", std::string(form).c_str(), mask.c_str(),
                         inForce == kAllKeys ? Tr("all keys") : names.c_str()));
    }
  }
  return console.Print(list);
}

}  // namespace

void AddPanelCommand(TCommand program) {
  auto [panel, options] = AddOwn<TPanelOptions>(
      program, "panel", Tr("The operator's key panel in the terminal, or from a script"), RunPanel);
  panel.Text("--script", options.Script, Tr("Run this file in virtual time instead of the terminal"), "FILE");
  panel.Text("--form", options.Form, Tr("The form on screen at the start (terminal: Work)"), "FORM");
  AddSeedOption(panel, options.Seed);
  AddClientOptions(panel, options, true);
  panel.Help({ScriptHelp() + Tr("\n"
                                "In the terminal each key shows what to press for it. e is always the emergency "
                                "stop, space always stop.\n"
                                "The stop key held for 3 s in standby resets the laser's latch, unless its cause "
                                "stands.\n"
                                "On a controller that runs it takes over control from whoever has it; leaving it "
                                "releases what is held, and ends\nnothing that runs. A controller of its own ends "
                                "with it. A script never runs on a controller that runs."),
              {},
              {"ixocut panel --lang en", "ixocut panel --local", "ixocut panel --script keys.txt --json"}});

  auto [press, pressOptions] =
      AddOwn<TPanelOptions>(panel, "press", Tr("Press a key, hold it and release it"), RunPress);
  press.Text("KEY", pressOptions.Key, Tr("The key, with or without CK_"), "").Required();
  press.Number("--ms", pressOptions.Ms, 1, kLongestPressMs, "ms", Tr("How long it is held, 1 to 60000")).ShowDefault();
  press.Number("--param", pressOptions.Param, 0, 0x7FFFFFFF, "", Tr("The parameter of its command"));
  press.Text("--form", pressOptions.Form, Tr("The form on screen meanwhile (where there is none: Work)"), "FORM");
  AddSeedOption(press, pressOptions.Seed);
  AddClientOptions(press, pressOptions, true);
  press.Help({Tr("On the controller that runs; it takes over control from whoever has it, except for stop, pause "
                 "and emergency stop,\nwhich need none. Without one the machine of this command is told of it, in "
                 "virtual time."),
              Tr("0 the press has its effect, 1 it is refused or has come up by itself, 2 wrong command line, 3 a "
                 "file cannot be\nused or the controller does not answer"),
              {"ixocut panel press RIGHT --ms 500", "ixocut panel press stop",
               "ixocut panel press LASER --form Work --json"}});

  auto [why, whyOptions] =
      AddOwn<TPanelOptions>(panel, "why", Tr("Is a key allowed; if not, what refuses it and what would help"), RunWhy);
  why.Text("KEY", whyOptions.Key, Tr("The key, with or without CK_"), "").Required();
  why.Text("--form", whyOptions.Form, Tr("The form on screen"), "FORM");
  why.Text("--at", whyOptions.AtState, Tr("The machine state, by number or name"), "S");
  why.Texts("--alarm", whyOptions.Alarms,
            Tr("An alarm that stands, 101 to 106 or an identifier (TPLaser#1); may be given several times"), "ID")
      .Several();
  why.Flag("--warning", whyOptions.Warning, Tr("A maintenance warning is pending while the origin is required"));
  why.Text("--script", whyOptions.Script, Tr("Run this file first"), "FILE");
  AddClientOptions(why, whyOptions, true);
  why.Help(
      {Tr("Each mask of the panel permits the key or is against it; \"machine\" is what the cutting system makes "
          "of the command."),
       Tr("0 the press has its effect, 1 it has none, 2 wrong command line or script, 3 a file cannot be used"),
       {"ixocut panel why LASER --form Work", "ixocut panel why START --form Work --alarm TPGas#2 --alarm 104",
        "ixocut panel why RIGHT --form DlgEdgeSeek --at jogging", "ixocut panel why GAS --script keys.txt --json"}});

  auto [forms, formOptions] = AddOwn<TPanelOptions>(
      panel, "forms", Tr("The forms and the keys that are permitted while each is shown"), RunForms);
  forms.Text("NAME", formOptions.Name, Tr("Only this form"), "");
  AddJsonOption(forms, formOptions.Json);
  AddMachineSettings(forms, formOptions);
  forms.Help(
      {Tr("The keys are those in force on this machine: with stop and emergency stop, which every form permits,\n"
          "and with K1 to K4 where their command is not forbidden."),
       {},
       {"ixocut panel forms", "ixocut panel forms DlgManualLubr --json"}});
}

}  // namespace ixocut
