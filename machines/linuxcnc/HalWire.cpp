#include "machines/linuxcnc/HalWire.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue {
namespace {

constexpr std::array<std::string_view, 3> kKinds = {"bit", "float", "s32"};
constexpr std::array<std::string_view, 2> kRoles = {"command", "watch"};
constexpr std::array<std::string_view, 8> kByes = {"ends", "stalled", "realtime", "silent",
                                                   "slow", "version", "crowded",  "wrong"};
constexpr std::array<std::string_view, 5> kVerbs = {"hello", "set", "beat", "alive", "rearm"};
constexpr std::array<std::string_view, 4> kOwn = {kHalHeartbeat, kHalRearm, kHalClient, kHalServo};

template <class Enum, std::size_t N>
std::string_view Word(const std::array<std::string_view, N>& words, Enum value) {
  return words[static_cast<std::size_t>(value)];
}

template <class Enum, std::size_t N>
std::optional<Enum> Find(const std::array<std::string_view, N>& words, std::string_view word) {
  const auto* const found = std::ranges::find(words, word);
  if (found == words.end()) return std::nullopt;
  return static_cast<Enum>(found - words.begin());
}

// The words of a line; exactly one blank between them.
class TWords {
 public:
  explicit TWords(std::string_view line) : FRest(line) {}

  std::string_view Next() {
    const auto end = FRest.find(' ');
    const auto word = FRest.substr(0, end);
    FRest = end == std::string_view::npos ? std::string_view{} : FRest.substr(end + 1);
    FMore = end != std::string_view::npos;
    return word;
  }
  std::optional<std::uint64_t> Number() { return ParseExactly<std::uint64_t>(Next()); }
  [[nodiscard]] bool More() const { return FMore; }

 private:
  std::string_view FRest;
  bool FMore = true;
};

bool IsName(std::string_view name) {
  return !name.empty() && name.size() <= kHalNameMax && std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
  });
}

// One blank between the words of a line, none around them, nothing from a "#" on.
std::string Squeezed(std::string_view line) {
  std::string words;
  for (const char c : TrimXml(line.substr(0, line.find('#')))) {
    const bool blank = c == ' ' || c == '\t';
    if (!blank || words.back() != ' ') words += blank ? ' ' : c;
  }
  return words;
}

// A line as a person may see it.
std::string Quoted(std::string_view line) {
  constexpr std::size_t kShown = 60;
  std::string shown(line.substr(0, kShown));
  for (char& c : shown)
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E) c = '?';
  return line.size() > kShown ? shown + "..." : shown;
}

TProblem NotUnderstood(std::string_view line) {
  return {.What = Format(Tr("this line of the HAL wire is not understood: \"%s\""), Quoted(line).c_str())};
}

void Append(std::string& line, std::string_view word) { (line += ' ') += word; }
void Append(std::string& line, std::uint64_t number) { Append(line, ValueText(number)); }

std::string Number(double value) {
  return std::isfinite(value) ? ValueText(value) : std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf";
}

std::optional<double> ParseReading(std::string_view text) {
  if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (text == "inf") return std::numeric_limits<double>::infinity();
  if (text == "-inf") return -std::numeric_limits<double>::infinity();
  return ParseExactly<double>(text);
}

std::optional<THalTell> ParseFrame(TWords& words, bool full) {
  THalFrame frame{.Full = full};
  for (std::uint64_t* const number : {&frame.Seq, &frame.Ms, &frame.Done}) {
    const auto value = words.Number();
    if (!value) return std::nullopt;
    *number = *value;
  }
  while (words.More()) {
    const auto word = words.Next();
    const auto equals = word.find('=');
    if (equals == std::string_view::npos || !IsName(word.substr(0, equals))) return std::nullopt;
    const auto value = ParseReading(word.substr(equals + 1));
    if (!value || frame.Values.size() == kHalPinsMax) return std::nullopt;
    frame.Values.emplace_back(word.substr(0, equals), *value);
  }
  return frame;
}

std::optional<THalTell> ParseTell(TWords& words) {
  const auto verb = words.Next();
  if (verb == "full" || verb == "state") return ParseFrame(words, verb == "full");
  if (verb == "hello") {
    const auto version = words.Number(), pins = words.Number();
    const auto role = Find<THalRole>(kRoles, words.Next());
    if (!version || !pins || *pins > kHalPinsMax || !role) return std::nullopt;
    return THalHello{*version, *pins, *role};
  }
  if (verb == "bye") {
    const auto bye = Find<THalBye>(kByes, words.Next());
    return bye ? std::optional<THalTell>(*bye) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<THalAsk> ParseAsk(TWords& words) {
  const auto verb = Find<THalVerb>(kVerbs, words.Next());
  if (!verb) return std::nullopt;
  const auto number = words.Number();
  if (!number) return std::nullopt;
  THalAsk ask{.Verb = *verb, .Number = *number};
  if (*verb == hvHello) {
    const auto role = Find<THalRole>(kRoles, words.Next());
    if (!role) return std::nullopt;
    ask.Role = *role;
  } else if (*verb == hvSet) {
    ask.Name = words.Next();
    const auto value = ParseExactly<double>(words.Next());
    if (!IsName(ask.Name) || !value) return std::nullopt;
    ask.Value = *value;
  }
  return ask;
}

}  // namespace

std::string HalLine(const THalAsk& ask) {
  std::string line(Word(kVerbs, ask.Verb));
  Append(line, ask.Number);
  if (ask.Verb == hvHello) Append(line, Word(kRoles, ask.Role));
  if (ask.Verb == hvSet) {
    Append(line, ask.Name);
    Append(line, Number(ask.Value));
  }
  return line + '\n';
}

std::string HalLine(const THalHello& hello) {
  std::string line = "hello";
  Append(line, hello.Version);
  Append(line, hello.Pins);
  Append(line, Word(kRoles, hello.Role));
  return line + '\n';
}

std::string HalLine(const THalPin& pin) {
  std::string line = "pin";
  Append(line, Word(kKinds, pin.Kind));
  Append(line, pin.Output ? "out" : "in");
  Append(line, pin.Name);
  return line + '\n';
}

std::string HalLine(const THalFrame& frame) {
  std::string line = frame.Full ? "full" : "state";
  for (const std::uint64_t number : {frame.Seq, frame.Ms, frame.Done}) Append(line, number);
  for (const auto& value : frame.Values) {
    Append(line, value.first);
    (line += '=') += Number(value.second);
  }
  return line + '\n';
}

std::string HalLine(THalBye bye) { return "bye " + std::string(Word(kByes, bye)) + '\n'; }

TResult<THalAsk> ParseHalAsk(std::string_view line) {
  TWords words(line);
  auto ask = ParseAsk(words);
  if (!ask || words.More()) return NotUnderstood(line);
  return *std::move(ask);
}

TResult<THalTell> ParseHalTell(std::string_view line) {
  if (line.starts_with("pin ")) {
    auto pin = ParseHalPin(line.substr(4));
    if (!pin) return NotUnderstood(line);
    return THalTell(*std::move(pin));
  }
  TWords words(line);
  auto tell = ParseTell(words);
  if (!tell || words.More()) return NotUnderstood(line);
  return *std::move(tell);
}

TResult<THalPin> ParseHalPin(std::string_view text) {
  TWords words(text);
  const auto kind = Find<THalKind>(kKinds, words.Next());
  const auto direction = words.Next();
  const auto name = words.Next();
  if (!kind || (direction != "in" && direction != "out") || words.More())
    return TProblem{.What = Format(Tr("this is no pin of ixocut-hal: \"%s\""), Quoted(text).c_str()),
                    .Remedy = Tr("write bit, float or s32, then in or out, then its name")};
  if (!IsName(name))
    return TProblem{
        .What = Format(Tr("this is no name for a pin of ixocut-hal: \"%s\""), Quoted(name).c_str()),
        .Remedy = Format(Tr("write up to %d small letters, digits, \"-\" and \".\""), static_cast<int>(kHalNameMax))};
  if (std::ranges::find(kOwn, name) != kOwn.end())
    return TProblem{.What = Format(Tr("ixocut-hal has the pin \"%s\" by itself"), Quoted(name).c_str()),
                    .Remedy = Tr("leave it out of the list")};
  return THalPin{*kind, direction == "out", std::string(name)};
}

TResult<std::vector<THalPin>> ParseHalPins(std::string_view file) {
  std::vector<THalPin> pins;
  const auto fail = [](int line, TProblem problem) {
    problem.Where = Format(Tr("line %d"), line);
    return problem;
  };
  for (int line = 1; !file.empty(); ++line) {
    const auto end = file.find('\n');
    const std::string text = Squeezed(file.substr(0, end));
    file = end == std::string_view::npos ? std::string_view{} : file.substr(end + 1);
    if (text.empty()) continue;
    auto pin = ParseHalPin(text);
    if (!pin) return fail(line, pin.Problem());
    if (std::ranges::find(pins, pin->Name, &THalPin::Name) != pins.end())
      return fail(line, {.What = Format(Tr("the pin \"%s\" stands twice"), pin->Name.c_str())});
    if (pins.size() == kHalPinsMax)
      return fail(line, {.What = Format(Tr("there are more than %d pins"), static_cast<int>(kHalPinsMax))});
    pins.push_back(*std::move(pin));
  }
  return pins;
}

const char* HalByeText(THalBye bye) {
  switch (bye) {
    case hbEnds: return Tr("ixocut-hal has ended");
    case hbStalled: return Tr("ixocut-hal was held up");
    case hbRealtime: return Tr("the realtime process of LinuxCNC stands still");
    case hbSilent: return Tr("ixocut-hal has heard nothing of the controller");
    case hbSlow: return Tr("the controller has not read what ixocut-hal sent");
    case hbVersion: return Tr("ixocut-hal and the controller are of different versions");
    case hbCrowded: return Tr("ixocut-hal has too many clients");
    case hbWrong: return Tr("ixocut-hal has not understood the controller");
  }
  return "";
}

std::optional<std::string_view> THalLines::Next() {
  const auto end = FBytes.find('\n', FBegin);
  const auto length = (end == std::string::npos ? FBytes.size() : end) - FBegin;
  FTooLong = FTooLong || length > FLongest;
  if (FTooLong) return std::nullopt;
  if (end == std::string::npos) {
    FBytes.erase(0, FBegin);
    FBegin = 0;
    return std::nullopt;
  }
  const std::string_view line(FBytes.data() + FBegin, length);
  FBegin = end + 1;
  return line;
}

}  // namespace ixocamglue
