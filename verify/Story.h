// Reads what happened in a run: commands with their results, changes of state, causes, and the samples between them.
// What the machine said of itself in words is passed over. Judges (Oracle.h) look at this only. One thread; nothing
// fails.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "controller/Journal.h"

namespace ixoverify {
using namespace ixocamglue;
using namespace ixocontroller;

// Written into the journal by who disturbs a run; as the device of an entry without a command.
inline constexpr const char* kCause = "cause";           // what ends the procedure: "stop"
inline constexpr const char* kFromCall = "from a call";  // a cause's text begins so when a device call posted it
inline constexpr const char* kHang = "hang";             // a device call takes so many ms: "300"
inline constexpr const char* kMended = "mended";         // no device fails any more
inline constexpr const char* kEnded = "ended";           // the controller has ended

enum class TActKind : std::uint8_t {
  None,  // of no concern to any judge
  EmissionOn,
  EmissionOff,
  LaserOn,
  LaserOff,
  GasOn,
  GasOff,
  Branch,
  Pressure,
  Volt,
  OutputOn,
  OutputOff,
  MoveXY,
  MoveCurve,  // speed, lowest and highest X, lowest and highest Y
  MoveZ,
  MoveFocus,
  Follow,
  Turn,
  // What is no command.
  Sample,
  State,
  Cause,
  Hang,
  Mended,
  Ended
};

// One thing that happened. With each stands what the latest sample showed.
struct TFact {
  std::uint64_t Ms = 0;
  TActKind Kind = TActKind::None;
  const TJournalEntry* Entry = nullptr;  // null: a sample
  const TJournalSample* Shown = nullptr;
  std::array<double, 5> Args{};  // the numbers of a command; the number of a state; the length of a hang
  bool EmissionAsked = false;    // a command asked for it, and no command to switch it off came since
  bool LaserAsked = false;

  [[nodiscard]] bool IsCommand() const { return Entry && Entry->IsCommand(); }
  [[nodiscard]] bool Done() const { return Entry && Entry->Outcome == toDone; }
  [[nodiscard]] const TMachineSnapshot& Now() const { return Shown->Machine; }
};

class TStory {
 public:
  // `state`: the number of the procedure's machine state. `faultAt`: the entry from which on the run was no longer
  // normal, where no cause is noted. Both lists outlive the story.
  TStory(std::span<const TJournalEntry> entries, std::span<const TJournalSample> samples, std::int32_t state,
         std::optional<std::size_t> faultAt);

  [[nodiscard]] const std::vector<TFact>& Facts() const { return FFacts; }
  // Where in Facts something that ends the procedure happened; in order.
  [[nodiscard]] const std::vector<std::size_t>& Causes() const { return FCauses; }
  // Behind the last pass of the procedure; at the end of Facts when it was never left.
  [[nodiscard]] std::size_t LeftAt() const { return FLeftAt; }
  [[nodiscard]] std::size_t EnteredAt() const { return FEnteredAt; }
  [[nodiscard]] const TMachineSnapshot& First() const { return FFacts.front().Now(); }
  [[nodiscard]] const TMachineSnapshot& Last() const { return FFacts.back().Now(); }
  // This verb of this device was made to fail.
  [[nodiscard]] bool Failed(std::string_view device, std::string_view verb) const;
  // How long a hang that has begun by then still lasts, ms.
  [[nodiscard]] std::uint64_t HangsOnMs(std::uint64_t atMs) const;
  [[nodiscard]] bool Hung() const;  // some call did
  [[nodiscard]] bool Empty() const { return FFacts.empty(); }

 private:
  void Add(const TJournalEntry& entry);
  void Add(const TJournalSample& sample);

  std::vector<TFact> FFacts;
  std::vector<std::size_t> FCauses;
  std::vector<const TJournalEntry*> FFailures;
  const std::int32_t FState;
  const TJournalSample* FShown = nullptr;
  bool FEmissionAsked = false;
  bool FLaserAsked = false;
  std::size_t FEnteredAt = 0;
  std::size_t FLeftAt = 0;
};

}  // namespace ixoverify
