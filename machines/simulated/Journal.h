// The story of a run: every command with its outcome, every physical change and every change of state, with its time.
// Any thread writes and reads; each call holds the journal's own lock for a moment and calls nobody.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// What a device call does. Reads, locks, stops and offs are harmless after an abort; sets and starts are not.
enum class TVerbKind : std::uint8_t { vkRead, vkLock, vkStop, vkOff, vkSet, vkStart };
using enum TVerbKind;

enum class TOutcome : std::uint8_t { toDone, toRefused, toThrew };
using enum TOutcome;

// A command, with its number at the gate, or what happened by itself (Call 0). Reads and locks appear when they failed.
struct TJournalEntry {
  std::uint64_t Ms = 0;  // monotonic
  std::uint64_t Call = 0;
  std::string Device;  // "laser"; "state" for a change of state
  std::string Verb;    // "EmissionOn"; the sentence of a physical change; empty for a change of state
  std::string Args;    // "2", "on"; the number of the state
  TVerbKind Kind = vkRead;
  TOutcome Outcome = toDone;

  [[nodiscard]] bool IsCommand() const { return Call != 0; }
  [[nodiscard]] bool IsState() const { return Call == 0 && Device == "state"; }
  // "00000123 laser.EmissionOn", "00000923 laser: emission up", "00000010 state 204"
  [[nodiscard]] std::string Line() const;
  friend bool operator==(const TJournalEntry&, const TJournalEntry&) = default;
};

struct TSignal {
  std::uint64_t Ms = 0;
  std::string Text;
  friend bool operator==(const TSignal&, const TSignal&) = default;
};

// The changes of what the machine shows outside, in order: "emission on", "laser on", "gas on 2 3.50", "da 2 4.50",
// "laser off", "emission off", "gas off", "output 5 on", "state 204".
class TSignals {
 public:
  explicit TSignals(std::vector<TSignal> items) : FItems(std::move(items)) {}

  [[nodiscard]] const std::vector<TSignal>& Items() const { return FItems; }
  [[nodiscard]] std::vector<std::string> Texts() const { return TextsFrom(0); }
  // What follows the first signal of this text; empty when it never came.
  [[nodiscard]] std::vector<std::string> After(std::string_view text) const;
  [[nodiscard]] bool Has(std::string_view text) const;

 private:
  [[nodiscard]] std::vector<std::string> TextsFrom(std::size_t first) const;

  std::vector<TSignal> FItems;
};

class TJournal {
 public:
  void Add(TJournalEntry entry);
  void Event(std::uint64_t ms, std::string_view device, std::string_view text);
  void State(std::uint64_t ms, std::int32_t state);  // the signal too
  void Signal(std::uint64_t ms, std::string text);
  void Clear();

  [[nodiscard]] std::size_t Size() const;
  [[nodiscard]] std::vector<TJournalEntry> Entries() const;
  [[nodiscard]] std::vector<std::string> Lines() const;
  [[nodiscard]] TSignals Signals() const;
  [[nodiscard]] bool HasSignal(std::string_view text) const;

 private:
  mutable TCriticalSection FLock;
  std::vector<TJournalEntry> FEntries IXO_GUARDED_BY(FLock);
  std::vector<TSignal> FSignals IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
