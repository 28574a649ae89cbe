// Panel keys pressed on a terminal: turns its bytes into presses and releases.
//
// Most terminals report presses and repeats, no releases, and a repeat looks like a press: a key counts as held from
// its press until 700 ms without a repeat (150 ms once it repeats) or until another key, and what comes meanwhile is a
// repeat. Where the terminal reports releases and repeats as such (the escape codes "CSI code ; modifiers : event u"),
// each press is one; its repeats are the held key's sign of life within the same times, so that a terminal that stalls
// holds nothing, and a repeat that comes after that presses nothing. Emergency stop and stop are pressed by each of
// their bytes, whatever came before. One thread; time is an argument, in ms. Nothing here fails but Act.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/panel/PanelSeat.h"
#include "ixocamglue/panel/Kbpkeys.h"

namespace ixocontroller {
struct TTerminalEvent {
  // Repeat: of a held key, or a second press; this terminal does not tell.
  enum class TKind : std::uint8_t { Press, Repeat, Release, Command };
  TKind Kind = TKind::Press;
  TKeyCode Key = CK_STOP;  // press, repeat, release
  char Command = 0;        // 'q' quit, 'x' reset by hand, 'm' alt mode, Tab next form
  friend bool operator==(const TTerminalEvent&, const TTerminalEvent&) = default;
};

// What the operator presses for a key: "s", "Enter", "Left".
[[nodiscard]] const char* TerminalKeyName(TKeyCode key);

class TTerminalKeys {
 public:
  static constexpr std::uint64_t kFirstMs = 700;
  static constexpr std::uint64_t kRepeatMs = 150;  // of a key that acts while it is held; others as at first

  // Whether a key acts while it is held; empty: as its command in the key table says.
  explicit TTerminalKeys(std::function<bool(TKeyCode)> held = {});

  // What the bytes mean; a sequence may be cut anywhere between two calls.
  [[nodiscard]] std::vector<TTerminalEvent> Feed(std::string_view bytes, std::uint64_t nowMs);
  // What time has released.
  [[nodiscard]] std::vector<TTerminalEvent> Tick(std::uint64_t nowMs);

 private:
  using TEvents = std::vector<TTerminalEvent>;

  void Plain(char byte, std::uint64_t nowMs, TEvents& events);
  void Sequence(std::string_view parameters, char last, std::uint64_t nowMs, TEvents& events);
  // `distinct`: the terminal would have said that it is a repeat.
  void Pressed(TKeyCode key, bool distinct, std::uint64_t nowMs, TEvents& events);
  void StillHeld(std::uint64_t nowMs);
  void LetGo(TEvents& events);

  const std::function<bool(TKeyCode)> FActsWhileHeld;
  std::string FPending;  // an escape sequence that is not complete
  std::optional<TKeyCode> FHeld;
  std::uint64_t FUntilMs = 0;
  bool FReports = false;  // the terminal reports releases and repeats
};

// The keys of a terminal, held as long as the seat's commands say, and what one of their events does; false: quit.
// Throws as the seat does. The seat outlives the keys.
[[nodiscard]] TTerminalKeys KeysFor(const IPanelSeat& seat);
[[nodiscard]] bool Act(IPanelSeat& seat, const TTerminalEvent& event);

}  // namespace ixocontroller
