#include "controller/panel/PanelScript.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "controller/panel/PanelNames.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::uint64_t kLongestWaitMs = 3'600'000;
constexpr std::uint64_t kLargest = 0x7FFFFFFF;
constexpr std::uint64_t kTapMs = 100;
constexpr const char* kIndent = "             ";  // as wide as a time

using TWords = std::vector<std::string>;

struct TVerb {
  const char* Name;
  std::size_t Least, Most;  // arguments
  TResult<> (*Check)(const TWords& words);
};

TResult<> Good(std::string problem) {
  if (problem.empty()) return {};
  return TProblem{.What = std::move(problem)};
}
TResult<> CheckNothing(const TWords&) { return {}; }
TResult<> CheckKey(const TWords& words) {
  const TResult<TKeyCode> key = ParseKey(words[1]);
  if (!key) return key.Problem();
  return {};
}
TResult<> CheckShown(const TWords& words) { return CheckForm(words[1]); }
TResult<> CheckOneOf(const std::string& word, std::initializer_list<const char*> choices) {
  std::string list;
  for (const char* choice : choices) {
    if (word == choice) return {};
    AddToList(list, choice);
  }
  return Good(Format(Tr("\"%s\" is not one of %s"), word.c_str(), list.c_str()));
}
TResult<> CheckOnOff(const TWords& words) { return CheckOneOf(words[1], {"on", "off"}); }
// A key, and a number behind it where there is one.
TResult<> CheckKeyAnd(const TWords& words, std::uint64_t highest, const char* unit) {
  if (TResult<> key = CheckKey(words); !key || words.size() < 3) return key;
  return Good(CheckNumber(words[2], 0, highest, unit));
}

const TVerb kVerbs[] = {
    {"wait", 1, 1, [](const TWords& w) { return Good(CheckNumber(w[1], 0, kLongestWaitMs, "ms")); }},
    {"press", 1, 2, [](const TWords& w) { return CheckKeyAnd(w, kLargest, ""); }},
    {"release", 1, 1, CheckKey},
    {"tap", 1, 2, [](const TWords& w) { return CheckKeyAnd(w, kLongestWaitMs, "ms"); }},
    {"show", 1, 1, CheckShown},
    {"hide", 1, 1, CheckShown},
    {"knob", 1, 1,
     [](const TWords& w) {
       return CheckOneOf(w[1], {"low", "normal", "high"});
     }},
    {"alt", 2, 3,
     [](const TWords& w) {
       TResult<> checked = CheckKey(w);
       if (checked) checked = CheckOneOf(w[2], {"on", "off"});
       return !checked || w.size() < 4 ? checked : CheckOneOf(w[3], {"blink"});
     }},
    {"window", 1, 1,
     [](const TWords& w) {
       return CheckOneOf(w[1], {"open", "close"});
     }},
    {"silent", 1, 1, CheckOnOff},
    {"alarm", 1, 1, CheckNothing},  // CheckScriptAlarms
    {"clear", 0, 0, CheckNothing},
    {"warning", 1, 1, CheckOnOff},
    {"emergency", 1, 1, CheckOnOff},
    {"leds", 0, 0, CheckNothing},
};

TResult<> CheckLine(const TWords& words) {
  const auto verb = std::ranges::find_if(kVerbs, [&](const TVerb& v) { return words[0] == v.Name; });
  if (verb == std::end(kVerbs)) {
    const std::string list = Joined(kVerbs, &TVerb::Name);
    return TProblem{.What = Format(Tr("\"%s\" is no step"), words[0].c_str()),
                    .Where = {},
                    .Why = {},
                    .Remedy = Format(Tr("the steps are %s"), list.c_str())};
  }
  const std::size_t count = words.size() - 1;
  if (count >= verb->Least && count <= verb->Most) return verb->Check(words);
  if (verb->Most > verb->Least)
    return Good(Format(Tr("%s takes %zu to %zu words, not %zu"), verb->Name, verb->Least, verb->Most, count));
  return Good(Format(Tr("%s takes this many words: %zu, not %zu"), verb->Name, verb->Least, count));
}

[[noreturn]] void Refuse(const std::filesystem::path& file, int line, TProblem problem) {
  problem.Where = Format("%s:%d", file.c_str(), line);
  throw EProblem(pbRequest, std::move(problem));
}

std::string ShownKeys(TKeyMask keys) {
  std::string names;
  std::size_t count = 0;
  for (std::size_t i = 0; i < kKeys; ++i) {
    if ((keys & KeyBit(i)) == 0) continue;
    AddToList(names, ShownKey(static_cast<TKeyCode>(i)));
    ++count;
  }
  return count == kKeys ? Tr("all keys") : count == 0 ? "-" : names;
}

// Of a text that the check has let in.
template <class Number>
Number NumberOf(const std::string& text) {
  return ParseExactly<Number>(text).value_or(Number{});
}

}  // namespace

std::string ScriptHelp() {
  return std::string(Tr("A script has one step a line, its words apart by blanks; a word that begins with # begins a "
                        "comment:\n")) +
         "  wait MS                      press KEY [PARAM]       release KEY      tap KEY [MS]\n"
         "  show FORM                    hide FORM               knob low|normal|high\n"
         "  alt KEY on|off [blink]       window open|close       silent on|off\n"
         "  alarm ID                     clear                   warning on|off\n"
         "  emergency on|off             leds\n" +
         Tr("KEY is a panel key with or without CK_; ID is 101 to 106 or an identifier (TPLaser#1);\n"
            "silent stops the panel's signs of life.\n");
}

std::vector<TScriptLine> ReadScript(const std::filesystem::path& file) {
  const std::string bytes = ReadFile(file).OrThrow(pbUnusable);
  std::istringstream in(std::string(WithoutMark(bytes)));
  std::vector<TScriptLine> lines;
  std::string text;
  for (int number = 1; std::getline(in, text); ++number) {
    std::istringstream stream(text);
    TScriptLine line{number, {}};
    for (std::string word; stream >> word && word.front() != '#';) line.Words.push_back(word);  // not "TPLaser#1"
    if (line.Words.empty()) continue;
    if (TResult<> checked = CheckLine(line.Words); !checked) Refuse(file, number, checked.Problem());
    lines.push_back(std::move(line));
  }
  return lines;
}

void CheckScriptAlarms(const std::filesystem::path& file, const std::vector<TScriptLine>& lines, TController& session) {
  for (const TScriptLine& line : lines) {
    if (line.Words[0] != "alarm") continue;
    if (const auto alarm = ParseAlarm(session, line.Words[1]); !alarm) Refuse(file, line.Number, alarm.Problem());
  }
}

TPanelScript::TPanelScript(TPanelHost& host, TScriptTeller teller)
    : FHost(host),
      FTeller(std::move(teller)),
      FToldEntries(host.Controller().Journal().Size()),
      FStartMs(Clock().MonotonicMs()) {}

void TPanelScript::Run(const std::vector<TScriptLine>& lines) {
  for (const TScriptLine& line : lines) Step(line);
}

void TPanelScript::Step(const TScriptLine& line) {
  const auto& w = line.Words;
  const std::string text = Joined(w, {}, " ");
  if (w[0] != "wait" && w[0] != "leds") Tell("do", text);
  const auto on = [&](std::size_t i) { return w[i] == "on" || w[i] == "open"; };
  if (w[0] == "wait") {
    RunFor(NumberOf<std::uint64_t>(w[1]));
  } else if (w[0] == "press") {
    Press(*ParseKey(w[1]), w.size() > 2 ? NumberOf<std::int32_t>(w[2]) : 0);
  } else if (w[0] == "release") {
    FHost.Guard().Release(*ParseKey(w[1]));
  } else if (w[0] == "tap") {
    Press(*ParseKey(w[1]), 0);
    TellMachine();
    RunFor(w.size() > 2 ? NumberOf<std::uint64_t>(w[2]) : kTapMs);
    FHost.Guard().Release(*ParseKey(w[1]));
  } else if (w[0] == "show") {
    FHost.Forms().Show(w[1]);
  } else if (w[0] == "hide") {
    FHost.Forms().Hide(w[1]);
  } else if (w[0] == "knob") {
    FHost.SetKnob(LevelOf(w[1]));
  } else if (w[0] == "alt") {
    KBPManager()->KeyItem(*ParseKey(w[1]))->SetAlt(on(2), w.size() > 3);
  } else if (w[0] == "window") {
    if (on(1))
      FWindow = FHost.Controller().Windows().Open(kReturnOrgWindow, [this](const TWindowMessage& message) {
        Tell(TrMark("window"), Format("message %u wParam %lld lParam %lld", message.Message,
                                      static_cast<long long>(message.WParam), static_cast<long long>(message.LParam)));
      });
    else
      FHost.Controller().Windows().Close(FWindow);
  } else if (w[0] == "silent") {
    FSilent = on(1);
  } else if (w[0] == "alarm") {
    FHost.Controller().RaiseAlarm(*ParseAlarm(FHost.Controller(), w[1]));
  } else if (w[0] == "clear") {
    FHost.Controller().ClearAlarms();
  } else if (w[0] == "warning") {
    FHost.SetWarning(on(1));
  } else if (w[0] == "emergency") {
    FHost.Controller().Keys().SetEmergencyStop(on(1));
  } else if (w[0] == "leds") {
    ShowLeds();
  }
  TellMachine();
}

void TPanelScript::Press(TKeyCode key, std::int32_t param) {
  if (!FHost.Press(key, param)) Tell(TrMark("panel"), Tr("dropped"));
}

void TPanelScript::RunFor(std::uint64_t ms) {
  const std::uint64_t end = Clock().MonotonicMs() + ms;
  while (Clock().MonotonicMs() < end) {
    if (!FSilent) FHost.Guard().Alive();
    FHost.Controller().RunPass();
    TellMachine();
  }
}

// What reached the cutting system and what it made of it. Its own notes are for the document; a person has the log's
// line of each.
void TPanelScript::TellMachine() {
  const auto entries = FHost.Controller().Journal().Entries();
  for (; FToldEntries < entries.size(); ++FToldEntries) {
    const TJournalEntry& entry = entries[FToldEntries];
    if (entry.Device != "cut" && !entry.IsState()) continue;
    if (entry.Verb == "Lock" || entry.Verb == "Unlock") continue;
    if (entry.IsState())
      Tell(TrMark("machine"), Format(Tr("state %s (%s)"), entry.Args.c_str(),
                                     ShownState(ClassifyCutState(NumberOf<std::int32_t>(entry.Args)))));
    else
      Tell("machine", entry.Verb + (entry.Args.empty() ? "" : " " + entry.Args), entry.Call != 0);
  }
}

void TPanelScript::ShowLeds() {
  FHost.Guard().Refresh();
  const TKeyMask leds = FHost.Guard().Leds();
  auto masks = nlohmann::ordered_json::object();
  std::vector<std::string> lines;
  for (const auto& [name, text] : {std::pair{"SofteKBPanelStatePermits", Tr("permitted by the machine's state: %s")},
                                   std::pair{"SofteKBPanelAllowKeys", Tr("permitted by everything: %s")},
                                   std::pair{"SofteKBPanelRepKeys", Tr("switched on: %s")},
                                   std::pair{"SofteKBPanelBlinkKeys", Tr("lit now: %s")}}) {
    const auto keys = static_cast<std::uint32_t>(FHost.Controller().Params().GetInt(name, 0));
    masks[name] = Format("0x%08X", keys);
    lines.push_back(Format(text, ShownKeys(keys).c_str()));
  }
  const std::uint64_t ms = Clock().MonotonicMs() - FStartMs;
  auto lit = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((leds & KeyBit(i)) != 0) lit.push_back(kKeyTable[i].Name);
  FEvents.push_back({{"ms", ms}, {"leds", std::move(lit)}, {"masks", masks}});
  if (!FTeller.Line) return;
  FHost.Controller().Logs().DrainOnce();
  if (FTeller.Leds) FTeller.Leds(leds);
  for (const std::string& line : lines) FTeller.Line(kIndent + line);
}

void TPanelScript::Tell(const char* what, const std::string& text, bool shown) {
  const std::uint64_t ms = Clock().MonotonicMs() - FStartMs;
  FEvents.push_back({{"ms", ms}, {what, text}});
  if (!FTeller.Line || !shown) return;
  FHost.Controller().Logs().DrainOnce();
  FTeller.Line(Format("%8llu ms  %s%s", static_cast<unsigned long long>(ms),
                      std::string_view(what) == "do" ? "" : Format("  %s: ", Tr(what)).c_str(), text.c_str()));
}

}  // namespace ixocontroller
