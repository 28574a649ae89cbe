#include "controller/alarms/AlarmScript.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/ProblemAt.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kWaitRoundMs = 20;
constexpr std::uint64_t kLongestWaitMs = 86'400'000;

constexpr std::pair<const char*, TAlarmVerb> kVerbs[] = {
    {"raise", TAlarmVerb::Raise},       {"clear", TAlarmVerb::Clear}, {"ack", TAlarmVerb::Ack},
    {"suppress", TAlarmVerb::Suppress}, {"wait", TAlarmVerb::Wait},   {"fault", TAlarmVerb::Fault},
    {"mend", TAlarmVerb::Mend}};
constexpr const char* kFaultDevices[] = {"axis", "gas", "emission", "device"};

TProblem Because(std::string what, std::string remedy = {}) {
  return {.What = std::move(what), .Where = {}, .Why = {}, .Remedy = std::move(remedy)};
}

}  // namespace

TResult<TAlarmScriptLine> ParseAlarmLine(const std::string& text) {
  std::istringstream words(text);
  std::string verb, number, more;
  TAlarmScriptLine line;
  if (!(words >> verb) || verb.front() == '#') return line;
  TNearestName nearest(verb);
  for (const auto& [name, known] : kVerbs) {
    if (verb == name) line.Verb = known;
    nearest.Consider(name);
  }
  if (line.Verb == TAlarmVerb::Nothing)
    return Because(
        Format(Tr("\"%s\" is unknown; there are raise, clear, ack, suppress, wait, fault, mend"), verb.c_str()),
        nearest.DidYouMean());
  if (line.Verb == TAlarmVerb::Wait) {
    const auto ms = words >> number ? ParseExactly<std::uint64_t>(number) : std::nullopt;
    if (!ms || *ms > kLongestWaitMs || words >> more) return Because(Tr("expected: wait MS, with 0 to 86400000 ms"));
    line.Number = *ms;
    return line;
  }
  if (!(words >> line.Name))
    return Because(line.Verb >= TAlarmVerb::Fault ? Tr("the device is missing") : Tr("the identifier is missing"));
  if (line.Verb == TAlarmVerb::Suppress) {
    words >> number;
    std::getline(words >> std::ws, line.Reason);
    const auto minutes = ParseExactly<std::uint64_t>(number);
    if (!minutes || *minutes == 0 || *minutes > kMostSuppressedMinutes || line.Reason.empty())
      return Because(Format(Tr("expected: suppress ID MINUTES REASON, with 1 to %u minutes"), kMostSuppressedMinutes));
    line.Number = *minutes;
    return line;
  }
  if (words >> more) return Because(Format(Tr("\"%s\" is too much"), more.c_str()));
  if (line.Verb >= TAlarmVerb::Fault &&
      std::ranges::none_of(kFaultDevices, [&](const char* d) { return line.Name == d; }))
    return Because(Format(Tr("\"%s\" is no device; there are axis, gas, emission and device"), line.Name.c_str()));
  if (line.Verb == TAlarmVerb::Raise) {
    const auto hash = line.Name.rfind('#');
    const auto id = hash == std::string::npos
                        ? std::nullopt
                        : ParseExactly<std::int32_t>(std::string_view(line.Name).substr(hash + 1));
    if (!id || *id < 0 || hash == 0)
      return Because(Format(Tr("\"%s\" is no identifier; expected PREFIX#NUMBER, TPLaser#1 for example, with a number "
                               "of at most 2147483647"),
                            line.Name.c_str()));
    line.Id = *id;
  }
  return line;
}

std::vector<TAlarmScriptLine> ReadAlarmScript(const std::filesystem::path& file) {
  std::istringstream text(ReadFile(file).OrThrow(pbUnusable));
  std::vector<TAlarmScriptLine> lines;
  std::string line;
  while (std::getline(text, line))
    lines.push_back(OrThrowAt(ParseAlarmLine(line), pbRequest, Format("%s:%zu", file.c_str(), lines.size() + 1)));
  return lines;
}

TAlarmScript::TAlarmScript(TController& controller, TAlarmFeed& feed, std::function<bool()> stops)
    : FController(controller), FFeed(feed), FStops(std::move(stops)) {}

TResult<> TAlarmScript::Do(const TAlarmScriptLine& line) {
  switch (line.Verb) {
    case TAlarmVerb::Nothing: break;
    case TAlarmVerb::Raise: Raise(line); break;
    case TAlarmVerb::Clear: return Clear(line.Name);
    case TAlarmVerb::Ack: return Ack(line.Name);
    case TAlarmVerb::Suppress: return Suppress(line);
    case TAlarmVerb::Wait: Wait(line.Number); break;
    case TAlarmVerb::Fault:
    case TAlarmVerb::Mend: return SetTrouble(line.Name, line.Verb == TAlarmVerb::Fault);
  }
  return {};
}

bool TAlarmScript::Stands(const std::string& id, std::uint8_t lowest) const {
  return std::ranges::any_of(FController.Alarms().Standing(), [&](const TNcAlarmRecord& record) {
    return record.Level() >= lowest && record.Identifier() == id;
  });
}

void TAlarmScript::Raise(const TAlarmScriptLine& line) {
  TAlarmRec rec;
  const bool known = AlarmInterpreter()->TryGetAlarmRec(line.Name, rec);
  // An operator's own line forbids nothing that a real device did not forbid: it is shown only.
  const std::uint64_t serial = FController.Alarms().Raise({.IdPrefix = line.Name.substr(0, line.Name.rfind('#')),
                                                           .Desc = known ? rec.BrifDesc : line.Name,
                                                           .Id = line.Id,
                                                           .Attrs = naShownOnly});
  FController.AlarmStore()->MarkByHand(serial);
  FRaised[line.Name].push_back(serial);
}

// What a device reports ends with its cause.
TResult<> TAlarmScript::Clear(const std::string& id) {
  std::vector<std::uint64_t>& raised = FRaised[id];
  if (!raised.empty()) {
    (void)FController.Alarms().ClearSerial(raised.back());
    raised.pop_back();
    return {};
  }
  if (!Stands(id)) return Because(Format(Tr("%s does not stand"), id.c_str()));
  return Because(Format(Tr("%s was raised by the machine, not by hand"), id.c_str()),
                 Tr("it ends when its cause is gone"));
}

TResult<> TAlarmScript::Ack(const std::string& id) {
  if (!Stands(id)) return Because(Format(Tr("%s does not stand"), id.c_str()));
  FController.AlarmStore()->Acknowledge(id, "live");
  AlarmManager()->Acknowledge(id, UtcNow());
  return {};
}

TResult<> TAlarmScript::Suppress(const TAlarmScriptLine& line) {
  if (Stands(line.Name, 1))
    return Because(Format(Tr("%s stands with level 1, which is never suppressed"), line.Name.c_str()));
  const TDateTime until = MinutesLater(UtcNow(), static_cast<std::int64_t>(line.Number));
  FController.AlarmStore()->Suppress({line.Name, FormatUtc(until), line.Reason});
  FFeed.Suppress(line.Name, until);
  return {};
}

TResult<> TAlarmScript::SetTrouble(const std::string& device, bool fails) {
  if (FController.Machine().SetTrouble(device, fails)) return {};
  return Because(Format(Tr("nothing fails on request on this machine: %s"), device.c_str()),
                 Tr("take a machine file of the simulated machine"));
}

void TAlarmScript::Wait(std::uint64_t ms) const {
  for (const std::uint64_t end = Clock().MonotonicMs() + ms; !FStops() && Clock().MonotonicMs() < end;)
    Clock().Sleep(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - Clock().MonotonicMs(), kWaitRoundMs)));
}

}  // namespace ixocontroller
