#include "controller/Journal.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

bool SameAtAnotherTime(const TJournalSample& a, TJournalSample& b) {
  const std::uint64_t ms = std::exchange(b.Machine.Ms, a.Machine.Ms);
  const bool same = a.LaserAllowed == b.LaserAllowed && a.Leaf == b.Leaf && a.Machine == b.Machine;
  b.Machine.Ms = ms;
  return same;
}

auto OfText(const auto& signals, std::string_view text) { return std::ranges::find(signals, text, &TSignal::Text); }

}  // namespace

std::string TJournalEntry::Line() const {
  std::string line = Format("%08llu %s", static_cast<unsigned long long>(Ms), Device.c_str());
  if (!Verb.empty()) line += (IsCommand() ? "." : ": ") + Verb;
  if (!Args.empty()) line += " " + Args;
  if (Outcome == toRefused) line += " -> refused";
  if (Outcome == toThrew) line += " -> failed";
  return line;
}

std::vector<std::string> TSignals::Texts() const {
  std::vector<std::string> texts;
  for (const TSignal& signal : FItems) texts.push_back(signal.Text());
  return texts;
}

std::vector<std::string> TSignals::After(std::string_view text) const {
  const auto it = OfText(FItems, text);
  return it == FItems.end() ? std::vector<std::string>{} : TSignals({it + 1, FItems.end()}).Texts();
}

bool TSignals::Has(std::string_view text) const { return OfText(FItems, text) != FItems.end(); }

void TJournal::Add(TJournalEntry entry) {
  TGuard guard(FLock);
  FEntries.push_back(std::move(entry));
  if (FMost == 0 || FEntries.size() <= FMost) return;
  FEntries.pop_front();
  ++FGone;
}

void TJournal::Called(TDeviceCall call) {
  if (FBeforeCommand) FBeforeCommand();
  Add({call.Ms, call.Call, call.Device, call.Verb, std::move(call.Args), call.Kind, call.Outcome});
}

void TJournal::Happened(std::uint64_t ms, std::string_view device, std::string_view text) {
  Add({ms, 0, std::string(device), std::string(text), {}, vkRead, toDone});
}

void TJournal::State(std::uint64_t ms, std::int32_t state) {
  Add({ms, 0, "state", {}, Format("%d", state), vkRead, toDone});
  Signalled({ms, sgState, state != nsStandby, state});
}

void TJournal::Signalled(const TSignal& signal) {
  TGuard guard(FLock);
  FSignals.push_back(signal);
  if (FMost > 0 && FSignals.size() > FMost) FSignals.pop_front();
}

void TJournal::Take(TJournalSample sample) {
  TGuard guard(FLock);
  sample.At = FEntries.size();
  if (!FLatest || !SameAtAnotherTime(*FLatest, sample)) {
    if (FLatest && !FSamples.empty() && FLatest->Machine.Ms > FSamples.back().Machine.Ms)
      FSamples.push_back(*std::move(FLatest));
    FSamples.push_back(sample);
  }
  FLatest = std::move(sample);
}

void TJournal::Clear() {
  TGuard guard(FLock);
  FEntries.clear();
  FGone = 0;
  FSignals.clear();
  FSamples.clear();
  FLatest.reset();
}

void TJournal::Bound(std::size_t most) {
  TGuard guard(FLock);
  FMost = most;
}

std::size_t TJournal::Gone() const {
  TGuard guard(FLock);
  return FGone;
}

std::vector<TJournalSample> TJournal::Samples() const {
  TGuard guard(FLock);
  std::vector<TJournalSample> samples = FSamples;
  if (FLatest && !samples.empty() && FLatest->Machine.Ms > samples.back().Machine.Ms) samples.push_back(*FLatest);
  return samples;
}

std::size_t TJournal::Size() const {
  TGuard guard(FLock);
  return FEntries.size();
}

std::vector<TJournalEntry> TJournal::Entries() const {
  TGuard guard(FLock);
  return {FEntries.begin(), FEntries.end()};
}

std::vector<std::string> TJournal::Lines() const {
  TGuard guard(FLock);
  std::vector<std::string> lines;
  for (const TJournalEntry& entry : FEntries) lines.push_back(entry.Line());
  return lines;
}

TSignals TJournal::Signals() const {
  TGuard guard(FLock);
  return TSignals({FSignals.begin(), FSignals.end()});
}

bool TJournal::HasSignal(std::string_view text) const {
  TGuard guard(FLock);
  return OfText(FSignals, text) != FSignals.end();
}

}  // namespace ixocontroller
