#include "ixocut/panel/PanelScript.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"

namespace ixocut {
namespace {

constexpr std::uint64_t kLongestWaitMs = 3'600'000;
constexpr std::uint64_t kTapMs = 100;

struct TVerb {
  const char* Name;
  std::size_t Least, Most;  // arguments
  // What is wrong with them; empty: nothing.
  std::string (*Check)(const std::vector<std::string>& words);
};

std::string CheckNothing(const std::vector<std::string>&) { return {}; }
std::string CheckKey(const std::vector<std::string>& words) {
  return ParseKey(words[1]) ? std::string() : Format("\"%s\" is no key of the panel", words[1].c_str());
}
std::string CheckForm(const std::vector<std::string>&) { return {}; }
std::string CheckOneOf(const std::string& word, std::initializer_list<const char*> choices) {
  std::string list;
  for (const char* choice : choices) {
    if (word == choice) return {};
    list += (list.empty() ? "" : ", ") + std::string(choice);
  }
  return Format("\"%s\" is not one of %s", word.c_str(), list.c_str());
}
std::string CheckOnOff(const std::vector<std::string>& words) { return CheckOneOf(words[1], {"on", "off"}); }

const TVerb kVerbs[] = {
    {"wait", 1, 1, [](const auto& w) { return CheckNumber(w[1], 0, kLongestWaitMs, "ms"); }},
    {"press", 1, 2,
     [](const auto& w) {
       const std::string problem = CheckKey(w);
       return !problem.empty() || w.size() < 3 ? problem : CheckNumber(w[2], 0, 0x7FFFFFFF, "");
     }},
    {"release", 1, 1, CheckKey},
    {"tap", 1, 2,
     [](const auto& w) {
       const std::string problem = CheckKey(w);
       return !problem.empty() || w.size() < 3 ? problem : CheckNumber(w[2], 0, kLongestWaitMs, "ms");
     }},
    {"show", 1, 1, CheckForm},
    {"hide", 1, 1, CheckForm},
    {"knob", 1, 1,
     [](const auto& w) {
       return CheckOneOf(w[1], {"low", "normal", "high"});
     }},
    {"alt", 2, 3,
     [](const auto& w) {
       std::string problem = CheckKey(w);
       if (problem.empty()) problem = CheckOneOf(w[2], {"on", "off"});
       return !problem.empty() || w.size() < 4 ? problem : CheckOneOf(w[3], {"blink"});
     }},
    {"window", 1, 1,
     [](const auto& w) {
       return CheckOneOf(w[1], {"open", "close"});
     }},
    {"silent", 1, 1, CheckOnOff},
    {"alarm", 1, 1,
     [](const auto& w) {
       const std::string problem = CheckNumber(w[1], 0, 0x7FFFFFFF, "");
       if (!problem.empty() || FindDemoAlarm(std::stoi(w[1]))) return problem;
       return Format("no alarm %s; the alarms are %s", w[1].c_str(), DemoAlarmList().c_str());
     }},
    {"clear", 0, 0, CheckNothing},
    {"warning", 1, 1, CheckOnOff},
    {"emergency", 1, 1, CheckOnOff},
    {"leds", 0, 0, CheckNothing},
};

std::string CheckLine(const std::vector<std::string>& words) {
  const auto verb = std::ranges::find_if(kVerbs, [&](const TVerb& v) { return words[0] == v.Name; });
  if (verb == std::end(kVerbs)) return Format("\"%s\" is no step", words[0].c_str());
  const std::size_t count = words.size() - 1;
  if (count < verb->Least || count > verb->Most)
    return Format("%s takes %zu%s words, not %zu", verb->Name, verb->Least,
                  verb->Most > verb->Least ? Format(" to %zu", verb->Most).c_str() : "", count);
  return verb->Check(words);
}

}  // namespace

std::vector<TScriptLine> ReadScript(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in || std::filesystem::is_directory(file))
    throw EProblem(pbUnusable, file.string() + ": the file cannot be read");
  std::vector<TScriptLine> lines;
  std::string text;
  for (int number = 1; std::getline(in, text); ++number) {
    std::istringstream stream(text.substr(0, text.find('#')));
    TScriptLine line{number, {}};
    for (std::string word; stream >> word;) line.Words.push_back(word);
    if (line.Words.empty()) continue;
    if (const std::string problem = CheckLine(line.Words); !problem.empty())
      throw EProblem(pbRequest, Format("%s:%d: %s", file.c_str(), number, problem.c_str()));
    lines.push_back(std::move(line));
  }
  if (in.bad()) throw EProblem(pbUnusable, file.string() + ": the file cannot be read to its end");
  return lines;
}

TPanelScript::TPanelScript(TPanelHost& host, std::ostream* out)
    : FHost(host), FOut(out), FToldEntries(host.Controller().Journal().Size()), FStartMs(Clock().MonotonicMs()) {}

void TPanelScript::Run(const std::vector<TScriptLine>& lines) {
  for (const TScriptLine& line : lines) Step(line);
}

void TPanelScript::Step(const TScriptLine& line) {
  const auto& w = line.Words;
  std::string text;
  for (const std::string& word : w) text += (text.empty() ? "" : " ") + word;
  if (w[0] != "wait" && w[0] != "leds") Tell("do", text);
  const auto on = [&](std::size_t i) { return w[i] == "on" || w[i] == "open"; };
  if (w[0] == "wait") {
    RunFor(std::stoull(w[1]));
  } else if (w[0] == "press") {
    if (!FHost.Guard().Press(*ParseKey(w[1]), w.size() > 2 ? std::stoi(w[2]) : 0)) Tell("panel", "dropped");
    if (*ParseKey(w[1]) == CK_KNOB) FHost.TurnKnob();
  } else if (w[0] == "release") {
    FHost.Guard().Release(*ParseKey(w[1]));
  } else if (w[0] == "tap") {
    if (!FHost.Guard().Press(*ParseKey(w[1]))) Tell("panel", "dropped");
    if (*ParseKey(w[1]) == CK_KNOB) FHost.TurnKnob();
    TellMachine();
    RunFor(w.size() > 2 ? std::stoull(w[2]) : kTapMs);
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
        Tell("window", Format("message %u wParam %lld lParam %lld", message.Message,
                              static_cast<long long>(message.WParam), static_cast<long long>(message.LParam)));
      });
    else
      FHost.Controller().Windows().Close(FWindow);
  } else if (w[0] == "silent") {
    FSilent = on(1);
  } else if (w[0] == "alarm") {
    FHost.RaiseAlarm(*FindDemoAlarm(std::stoi(w[1])));
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

void TPanelScript::RunFor(std::uint64_t ms) {
  const std::uint64_t end = Clock().MonotonicMs() + ms;
  while (Clock().MonotonicMs() < end) {
    if (!FSilent) FHost.Guard().Alive();
    FHost.Controller().RunPass();
    TellMachine();
  }
}

// What reached the cutting system and what it made of it.
void TPanelScript::TellMachine() {
  const auto entries = FHost.Controller().Journal().Entries();
  for (; FToldEntries < entries.size(); ++FToldEntries) {
    const TJournalEntry& entry = entries[FToldEntries];
    if (entry.Device != "cut" && !entry.IsState()) continue;
    if (entry.Verb == "Lock" || entry.Verb == "Unlock") continue;
    Tell("machine", entry.IsState() ? Format("state %s (%s)", entry.Args.c_str(),
                                             CutStateName(ClassifyCutState(std::stoi(entry.Args))))
                                    : entry.Verb + (entry.Args.empty() ? "" : " " + entry.Args));
  }
}

void TPanelScript::ShowLeds() {
  FHost.Guard().Refresh();
  const TKeyMask leds = FHost.Guard().Leds();
  auto masks = nlohmann::ordered_json::object();
  for (const char* name :
       {"SofteKBPanelStatePermits", "SofteKBPanelAllowKeys", "SofteKBPanelRepKeys", "SofteKBPanelBlinkKeys"})
    masks[name] = Format("0x%08X", static_cast<std::uint32_t>(FHost.Controller().Params().GetInt(name, 0)));
  const std::uint64_t ms = Clock().MonotonicMs() - FStartMs;
  auto lit = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((leds & KeyBit(i)) != 0) lit.push_back(kKeyTable[i].Name);
  FEvents.push_back({{"ms", ms}, {"leds", std::move(lit)}, {"masks", masks}});
  if (!FOut) return;
  FHost.Controller().Logs().DrainOnce();
  for (const std::string& line : DrawPanel(leds, false)) *FOut << "             " << line << '\n';
  for (const auto& [name, mask] : masks.items())
    *FOut << "             " << Format("%-25s", name.c_str()) << mask.get<std::string>() << '\n';
}

void TPanelScript::Tell(const char* what, const std::string& text) {
  const std::uint64_t ms = Clock().MonotonicMs() - FStartMs;
  FEvents.push_back({{"ms", ms}, {what, text}});
  if (!FOut) return;
  FHost.Controller().Logs().DrainOnce();
  *FOut << Format("%8llu ms  %s%s", static_cast<unsigned long long>(ms),
                  std::string_view(what) == "do" ? "" : Format("  %s: ", what).c_str(), text.c_str())
        << '\n';
}

}  // namespace ixocut
