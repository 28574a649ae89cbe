// Panel keys pressed on a terminal: turns its bytes into presses and releases.
//
// A terminal reports presses and repeats, no releases. A key therefore counts as held from its press until 700 ms
// without a repeat (150 ms once it repeats) or until another key. Where the terminal reports releases (the escape codes
// "CSI code ; modifiers : event u"), they are used. Emergency stop and stop are pressed by each of their bytes,
// whatever came before. One thread; time is an argument, in ms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/panel/Kbpkeys.h"

namespace ixocut {
using namespace ixocamglue;

struct TTerminalEvent {
  enum class TKind : std::uint8_t { Press, Release, Command };
  TKind Kind = TKind::Press;
  TKeyCode Key = CK_STOP;  // press, release
  char Command = 0;        // 'q' quit, 'x' reset by hand, 'm' alt mode, Tab next form
  friend bool operator==(const TTerminalEvent&, const TTerminalEvent&) = default;
};

// What the operator presses for a key: "s", "Enter", "Left".
[[nodiscard]] const char* TerminalKeyName(TKeyCode key);

class TTerminalKeys {
 public:
  static constexpr std::uint64_t kFirstMs = 700;
  static constexpr std::uint64_t kRepeatMs = 150;

  // What the bytes mean; a sequence may be cut anywhere between two calls.
  [[nodiscard]] std::vector<TTerminalEvent> Feed(std::string_view bytes, std::uint64_t nowMs);
  // What time has released.
  [[nodiscard]] std::vector<TTerminalEvent> Tick(std::uint64_t nowMs);

 private:
  using TEvents = std::vector<TTerminalEvent>;

  void Plain(char byte, std::uint64_t nowMs, TEvents& events);
  void Sequence(std::string_view parameters, char last, std::uint64_t nowMs, TEvents& events);
  void Pressed(TKeyCode key, std::uint64_t nowMs, TEvents& events);
  void LetGo(TEvents& events);

  std::string FPending;  // an escape sequence that is not complete
  std::optional<TKeyCode> FHeld;
  std::uint64_t FUntilMs = 0;
  bool FByTerminal = false;  // the terminal will report its release
};

}  // namespace ixocut
