#include "verify/Story.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace ixoverify {
namespace {

struct TVerbRow {
  std::string_view Device;  // "follower" stands for each of them
  std::string_view Verb;
  TActKind Kind;
};
constexpr TVerbRow kVerbs[] = {
    {"laser", "EmissionOn", TActKind::EmissionOn},  {"laser", "EmissionOff", TActKind::EmissionOff},
    {"laser", "SwitchLaser", TActKind::LaserOn},    {"gas", "SwitchOn", TActKind::GasOn},
    {"gas", "SwitchOff", TActKind::GasOff},         {"gas", "SelectBranch", TActKind::Branch},
    {"gas", "SetPressure", TActKind::Pressure},     {"gas", "OutputDA", TActKind::Volt},
    {"ports", "SwitchOutport", TActKind::OutputOn}, {"axes", "MoveXY", TActKind::MoveXY},
    {"axes", "MoveCurve", TActKind::MoveCurve},     {"axes", "MoveZ", TActKind::MoveZ},
    {"axes", "TurnAxis", TActKind::Turn},           {"follower", "MoveZ", TActKind::MoveZ},
    {"follower", "Follow", TActKind::Follow},       {"head", "MoveFocus", TActKind::MoveFocus},
};

TActKind KindOf(const TJournalEntry& entry) {
  if (!entry.IsCommand()) {
    if (entry.IsState()) return TActKind::State;
    if (entry.Device == kCause) return TActKind::Cause;
    if (entry.Device == kHang) return TActKind::Hang;
    if (entry.Device == kMended) return TActKind::Mended;
    return entry.Device == kEnded ? TActKind::Ended : TActKind::None;
  }
  const std::string_view device =
      entry.Device.starts_with("follower") ? std::string_view("follower") : std::string_view(entry.Device);
  const auto* const row = std::ranges::find_if(
      kVerbs, [&](const TVerbRow& each) { return each.Verb == entry.Verb && each.Device == device; });
  if (row == std::end(kVerbs)) return TActKind::None;
  const bool off = entry.Args.ends_with("off");
  if (off && row->Kind == TActKind::LaserOn) return TActKind::LaserOff;
  return off && row->Kind == TActKind::OutputOn ? TActKind::OutputOff : row->Kind;
}

// As many numbers as the text begins with.
std::array<double, 5> NumbersOf(const std::string& text) {
  std::array<double, 5> numbers{};
  const char* at = text.data();
  const char* const end = at + text.size();
  for (double& number : numbers) {
    while (at != end && *at == ' ') ++at;
    const std::from_chars_result read = std::from_chars(at, end, number);  // also what is not finite, to be judged
    if (read.ec != std::errc{}) break;
    at = read.ptr;
  }
  return numbers;
}

}  // namespace

TStory::TStory(std::span<const TJournalEntry> entries, std::span<const TJournalSample> samples, std::int32_t state,
               std::optional<std::size_t> faultAt)
    : FState(state) {
  FFacts.reserve(entries.size() + samples.size());
  if (samples.empty()) return;  // nothing can be judged
  FShown = &samples.front();
  FEnteredAt = FLeftAt = entries.size() + samples.size();
  std::size_t sample = 0;
  for (std::size_t i = 0; i <= entries.size(); ++i) {
    for (; sample < samples.size() && samples[sample].At <= i; ++sample) Add(samples[sample]);
    if (faultAt == i) FCauses.push_back(FFacts.size());
    if (i < entries.size()) Add(entries[i]);
  }
  FEnteredAt = std::min(FEnteredAt, FFacts.size());
  FLeftAt = std::min(FLeftAt, FFacts.size());
  for (std::size_t& cause : FCauses) cause = std::min(cause, FFacts.size() - 1);
}

void TStory::Add(const TJournalSample& sample) {
  FShown = &sample;
  FFacts.push_back({sample.Machine.Ms, TActKind::Sample, nullptr, FShown, {}, FEmissionAsked, FLaserAsked});
}

void TStory::Add(const TJournalEntry& entry) {
  const std::size_t index = FFacts.size();
  TFact fact{entry.Ms, KindOf(entry), &entry, FShown, {}, FEmissionAsked, FLaserAsked};
  if (entry.Outcome != toDone) FFailures.push_back(&entry);
  // An ask counts when the device took it; a command to switch off counts whatever the device made of it.
  const bool done = entry.Outcome == toDone;
  switch (fact.Kind) {
    case TActKind::None:
    case TActKind::Sample: break;
    case TActKind::EmissionOn: FEmissionAsked = FEmissionAsked || done; break;
    case TActKind::EmissionOff: FEmissionAsked = false; break;
    case TActKind::LaserOn: FLaserAsked = FLaserAsked || done; break;
    case TActKind::LaserOff: FLaserAsked = false; break;
    case TActKind::Cause: FCauses.push_back(index); break;
    case TActKind::Hang: fact.Args = NumbersOf(entry.Verb); break;
    case TActKind::State:
      fact.Args = NumbersOf(entry.Args);
      if (fact.Args[0] == FState)
        FEnteredAt = std::min(FEnteredAt, index);
      else if (FEnteredAt < index)
        FLeftAt = std::min(FLeftAt, index);
      break;
    default: fact.Args = NumbersOf(entry.Args); break;
  }
  fact.EmissionAsked = FEmissionAsked;
  fact.LaserAsked = FLaserAsked;
  FFacts.push_back(fact);
}

bool TStory::Failed(std::string_view device, std::string_view verb) const {
  return std::ranges::any_of(
      FFailures, [&](const TJournalEntry* entry) { return entry->Device == device && entry->Verb == verb; });
}

std::uint64_t TStory::HangsOnMs(std::uint64_t atMs) const {
  std::uint64_t until = atMs;
  for (const TFact& fact : FFacts)
    if (fact.Kind == TActKind::Hang && fact.Ms <= atMs)
      until = std::max(until, fact.Ms + static_cast<std::uint64_t>(fact.Args[0]));
  return until - atMs;
}

bool TStory::Hung() const {
  return std::ranges::any_of(FFacts, [](const TFact& fact) { return fact.Kind == TActKind::Hang; });
}

}  // namespace ixoverify
