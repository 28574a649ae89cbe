#include "ixocamglue/platform/services/ThreadTable.h"

#include <algorithm>
#include <cstring>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constinit TThreadTable GThreads;

// At most `atMost` bytes, and no half of a character.
std::string_view Cut(std::string_view text, std::size_t atMost) {
  if (text.size() <= atMost) return text;
  while (atMost > 0 && (static_cast<unsigned char>(text[atMost]) & 0xC0) == 0x80) --atMost;
  return text.substr(0, atMost);
}

}  // namespace

TThreadTable& ThreadTable() { return GThreads; }

TThreadTable::TRow* TThreadTable::Take(std::string_view name, TThreadKind kind) {
  std::array<TWord, kNameBytes / sizeof(TWord)> words{};
  const std::string_view shown = Cut(name, kNameBytes);
  std::memcpy(words.data(), shown.data(), shown.size());
  for (TRow& row : FRows) {
    if (row.Taken.exchange(true, std::memory_order_acq_rel)) continue;
    for (std::size_t i = 0; i < words.size(); ++i) row.Name[i].store(words[i], std::memory_order_release);
    row.Kind.store(kind, std::memory_order_release);
    row.Life.store(tlRuns, std::memory_order_release);
    row.BeatMs.store(Clock().MonotonicMs(), std::memory_order_release);
    row.Beats.store(0, std::memory_order_release);
    row.LongestMs.store(0, std::memory_order_release);
    row.Serial.fetch_add(1, std::memory_order_acq_rel);
    return &row;
  }
  return nullptr;
}

// What was read holds when the row was the same thread's before and after.
bool TThreadTable::Read(std::size_t index, TThreadSeen& seen) const {
  const TRow& row = FRows.at(index);
  seen.Serial = row.Serial.load(std::memory_order_acquire);
  if (seen.Serial % 2 == 0) return false;
  std::array<TWord, kNameBytes / sizeof(TWord)> words{};
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = row.Name[i].load(std::memory_order_acquire);
  seen.Kind = row.Kind.load(std::memory_order_acquire);
  seen.Life = row.Life.load(std::memory_order_acquire);
  seen.BeatMs = row.BeatMs.load(std::memory_order_acquire);
  seen.Beats = row.Beats.load(std::memory_order_acquire);
  seen.LongestMs = row.LongestMs.load(std::memory_order_acquire);
  if (row.Serial.load(std::memory_order_acquire) != seen.Serial) return false;
  const char* const text = reinterpret_cast<const char*>(words.data());
  seen.Name.assign(text, ::strnlen(text, kNameBytes));
  return true;
}

TThreadSign::TThreadSign(std::string_view name, TThreadKind kind) : FRow(GThreads.Take(name, kind)) {
  if (!FRow)
    LogMsg(lkWarning, 0, Format(Tr("thread \"%s\" is not watched: too many threads"), std::string(name).c_str()));
}

TThreadSign::~TThreadSign() {
  if (!FRow) return;
  FRow->Serial.fetch_add(1, std::memory_order_acq_rel);
  FRow->Taken.store(false, std::memory_order_release);
}

void TThreadSign::Beat() {
  if (!FRow) return;
  const std::uint64_t now = Clock().MonotonicMs();
  const std::uint64_t before = FRow->BeatMs.exchange(now, std::memory_order_acq_rel);
  if (FRow->Life.load(std::memory_order_acquire) == tlRuns && now - std::min(now, before) > FRow->LongestMs.load())
    FRow->LongestMs.store(now - before, std::memory_order_release);
  FRow->Beats.fetch_add(1, std::memory_order_acq_rel);
  FRow->Life.store(tlRuns, std::memory_order_release);
}

void TThreadSign::Say(TThreadLife life) {
  if (FRow) FRow->Life.store(life, std::memory_order_release);
}

}  // namespace ixocamglue
