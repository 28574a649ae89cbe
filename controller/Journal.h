// The story of a run: every command with its outcome, every physical change and every change of state, with its time.
// Any thread writes and reads; each call holds the journal's own lock for a moment and calls nobody. Nothing throws but
// for memory.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {
using namespace ixocamglue;

// A command, with its number, or what happened by itself (Call 0). Reads and locks appear when they failed.
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

// What was plainly so at one moment, taken by who wants to judge a run without believing a word that was said in it.
struct TJournalSample {
  std::size_t At = 0;  // so many entries stand before it, where all are kept
  TMachineSnapshot Machine;
  bool LaserAllowed = true;  // by the standing alarms
  std::int32_t Leaf = 0;     // the command number of the step that stands, or stood last
};

// The changes of what the machine shows outside, in order; by their texts.
class TSignals {
 public:
  explicit TSignals(std::vector<TSignal> items) : FItems(std::move(items)) {}

  [[nodiscard]] const std::vector<TSignal>& Items() const { return FItems; }
  [[nodiscard]] std::vector<std::string> Texts() const;
  // What follows the first signal of this text; empty when it never came.
  [[nodiscard]] std::vector<std::string> After(std::string_view text) const;
  [[nodiscard]] bool Has(std::string_view text) const;

 private:
  std::vector<TSignal> FItems;
};

class TJournal final : public IMachineObserver {
 public:
  void Called(TDeviceCall call) override;
  void Happened(std::uint64_t ms, std::string_view device, std::string_view text) override;
  void Signalled(const TSignal& signal) override;
  void State(std::uint64_t ms, std::int32_t state);  // the signal too
  // Keeps what differs from the sample before, and then that one's last moment too, so that quantities run straight
  // from one sample to the next.
  void Take(TJournalSample sample);
  // Called ahead of each command, on the thread that gives it. Virtual time; set while nothing runs.
  void BeforeCommand(std::function<void()> listener) { FBeforeCommand = std::move(listener); }
  void Clear();
  // From now on at most so many entries and as many signals are kept, and the oldest ones go; 0: all. Samples are
  // not bound by it.
  void Bound(std::size_t most);
  [[nodiscard]] std::size_t Gone() const;  // entries, since the last Clear

  [[nodiscard]] std::size_t Size() const;
  [[nodiscard]] std::vector<TJournalSample> Samples() const;
  [[nodiscard]] std::vector<TJournalEntry> Entries() const;
  [[nodiscard]] std::vector<std::string> Lines() const;
  [[nodiscard]] TSignals Signals() const;
  [[nodiscard]] bool HasSignal(std::string_view text) const;

 private:
  void Add(TJournalEntry entry);

  std::function<void()> FBeforeCommand;
  mutable TCriticalSection FLock;
  std::size_t FMost IXO_GUARDED_BY(FLock) = 0;
  std::size_t FGone IXO_GUARDED_BY(FLock) = 0;
  std::deque<TJournalEntry> FEntries IXO_GUARDED_BY(FLock);
  std::deque<TSignal> FSignals IXO_GUARDED_BY(FLock);
  std::vector<TJournalSample> FSamples IXO_GUARDED_BY(FLock);
  std::optional<TJournalSample> FLatest IXO_GUARDED_BY(FLock);
};

}  // namespace ixocontroller
