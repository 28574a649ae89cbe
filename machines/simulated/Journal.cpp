#include "machines/simulated/Journal.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {

std::string TJournalEntry::Line() const {
  std::string line = Format("%08llu %s", static_cast<unsigned long long>(Ms), Device.c_str());
  if (!Verb.empty()) line += (IsCommand() ? "." : ": ") + Verb;
  if (!Args.empty()) line += " " + Args;
  if (Outcome == toRefused) line += " -> refused";
  if (Outcome == toThrew) line += " -> failed";
  return line;
}

std::vector<std::string> TSignals::TextsFrom(std::size_t first) const {
  std::vector<std::string> texts;
  for (std::size_t i = first; i < FItems.size(); ++i) texts.push_back(FItems[i].Text);
  return texts;
}

std::vector<std::string> TSignals::After(std::string_view text) const {
  const auto it = std::ranges::find(FItems, text, &TSignal::Text);
  return it == FItems.end() ? std::vector<std::string>{} : TextsFrom(static_cast<std::size_t>(it - FItems.begin()) + 1);
}

bool TSignals::Has(std::string_view text) const {
  return std::ranges::find(FItems, text, &TSignal::Text) != FItems.end();
}

void TJournal::Add(TJournalEntry entry) {
  TGuard guard(FLock);
  FEntries.push_back(std::move(entry));
}

void TJournal::Event(std::uint64_t ms, std::string_view device, std::string_view text) {
  Add({ms, 0, std::string(device), std::string(text), {}, vkRead, toDone});
}

void TJournal::State(std::uint64_t ms, std::int32_t state) {
  Add({ms, 0, "state", {}, Format("%d", state), vkRead, toDone});
  Signal(ms, Format("state %d", state));
}

void TJournal::Signal(std::uint64_t ms, std::string text) {
  TGuard guard(FLock);
  FSignals.push_back({ms, std::move(text)});
}

void TJournal::Clear() {
  TGuard guard(FLock);
  FEntries.clear();
  FSignals.clear();
}

std::size_t TJournal::Size() const {
  TGuard guard(FLock);
  return FEntries.size();
}

std::vector<TJournalEntry> TJournal::Entries() const {
  TGuard guard(FLock);
  return FEntries;
}

std::vector<std::string> TJournal::Lines() const {
  TGuard guard(FLock);
  std::vector<std::string> lines;
  for (const TJournalEntry& entry : FEntries) lines.push_back(entry.Line());
  return lines;
}

TSignals TJournal::Signals() const {
  TGuard guard(FLock);
  return TSignals(FSignals);
}

bool TJournal::HasSignal(std::string_view text) const {
  TGuard guard(FLock);
  return std::ranges::find(FSignals, text, &TSignal::Text) != FSignals.end();
}

}  // namespace ixocamglue
