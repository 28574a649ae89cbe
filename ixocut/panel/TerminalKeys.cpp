#include "ixocut/panel/TerminalKeys.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace ixocut {
namespace {

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
constexpr char kEscape = 27;
constexpr std::size_t kLongestSequence = 32;

struct TBinding {
  TKeyCode Key;
  const char* Name;
  char Byte;   // 0: none
  char Final;  // of "CSI Final"; '~' with Number
  int Number = 0;
};

constexpr TBinding kBindings[] = {
    {CK_EGYSTOP, "e", 'e', 0},
    {CK_STOP, "Space", ' ', 0},
    {CK_SHUTTER, "s", 's', 0},
    {CK_AIMING, "a", 'a', 0},
    {CK_LASER, "l", 'l', 0},
    {CK_FOLLOW, "f", 'f', 0},
    {CK_GAS, "g", 'g', 0},
    {CK_RETURN0, "h", 'h', 0},
    {CK_WALKAROUND, "w", 'w', 0},
    {CK_FORWARD, "Up", 0, 'A'},
    {CK_BACK, "Down", 0, 'B'},
    {CK_RIGHT, "Right", 0, 'C'},
    {CK_LEFT, "Left", 0, 'D'},
    {CK_Z_UP, "PgUp", '+', '~', 5},
    {CK_Z_DOWN, "PgDn", '-', '~', 6},
    {CK_START, "Enter", '\r', 0},
    {CK_PAUSE, "p", 'p', 0},
    {CK_RESUME, "r", 'r', 0},
    {CK_KNOB, "k", 'k', 0},
    {CK_K1, "1", '1', 0},
    {CK_K2, "2", '2', 0},
    {CK_K3, "3", '3', 0},
    {CK_K4, "4", '4', 0},
    {CK_CALIBRATION, "c", 'c', 0},
    {CK_JOG_LASER, "j", 'j', 0},
    {CK_DRY_CUT, "d", 'd', 0},
    {CK_BREAK_LOCATE, "b", 'b', 0},
    {CK_CUR_POS_AUTO_CALIBRATION, "v", 'v', 0},
};
static_assert(std::size(kBindings) == kKeys);

constexpr std::string_view kCommands = "qxm\t\x03";

const TBinding* OfByte(char byte) {
  if (byte == '\n') byte = '\r';
  const auto it = std::ranges::find(kBindings, byte, &TBinding::Byte);
  return byte == 0 || it == std::end(kBindings) ? nullptr : &*it;
}

bool IsStop(char byte) { return byte == 'e' || byte == ' '; }

// "5;1:3" to {{5}, {1, 3}}, missing numbers 1.
int Number(std::string_view parameters, std::size_t group, std::size_t part) {
  const auto piece = [](std::string_view text, char by, std::size_t i) {
    for (; i > 0; --i) {
      const auto at = text.find(by);
      if (at == std::string_view::npos) return std::string_view();
      text.remove_prefix(at + 1);
    }
    return text.substr(0, text.find(by));
  };
  const std::string_view text = piece(piece(parameters, ';', group), ':', part);
  int value = 1;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

const char* TerminalKeyName(TKeyCode key) {
  const auto it = std::ranges::find(kBindings, key, &TBinding::Key);
  return it == std::end(kBindings) ? "" : it->Name;
}

std::vector<TTerminalEvent> TTerminalKeys::Feed(std::string_view bytes, std::uint64_t nowMs) {
  TEvents events;
  for (const char byte : bytes) {
    if (FPending.empty() && byte == kEscape) {
      FPending = byte;
    } else if (FPending.empty()) {
      Plain(byte, nowMs, events);
    } else if (IsStop(byte)) {  // never part of a key's sequence
      FPending.clear();
      Plain(byte, nowMs, events);
    } else if (byte == kEscape || FPending.size() > kLongestSequence) {
      FPending = byte == kEscape ? std::string(1, byte) : std::string();
    } else if (FPending.size() == 1) {
      // "ESC [" or "ESC O"; anything else after an escape is a key with Alt, which is none of the panel's.
      FPending = byte == '[' || byte == 'O' ? FPending + byte : std::string();
    } else if (byte >= 0x40 && byte <= 0x7E) {
      const std::string sequence = std::move(FPending);
      FPending.clear();
      Sequence(std::string_view(sequence).substr(2), byte, nowMs, events);
    } else {
      FPending += byte;
    }
  }
  return events;
}

std::vector<TTerminalEvent> TTerminalKeys::Tick(std::uint64_t nowMs) {
  TEvents events;
  if (FHeld && nowMs >= FUntilMs) LetGo(events);
  return events;
}

void TTerminalKeys::Plain(char byte, std::uint64_t nowMs, TEvents& events) {
  if (kCommands.find(byte) != std::string_view::npos) {
    LetGo(events);
    events.push_back({TTerminalEvent::TKind::Command, CK_STOP, byte == '\x03' ? 'q' : byte});
  } else if (const TBinding* const binding = OfByte(byte)) {
    Pressed(binding->Key, nowMs, events);
  } else {
    LetGo(events);
  }
}

void TTerminalKeys::Sequence(std::string_view parameters, char last, std::uint64_t nowMs, TEvents& events) {
  const TBinding* binding = nullptr;
  if (last == 'u') {
    const int code = Number(parameters, 0, 0);
    if (code > 0 && code < 128 && Number(parameters, 1, 1) != 3 &&
        kCommands.find(static_cast<char>(code)) != std::string_view::npos && Number(parameters, 1, 1) == 1)
      return Plain(static_cast<char>(code), nowMs, events);
    // Ctrl-C with its modifier.
    if (code == 'c' && ((Number(parameters, 1, 0) - 1) & 4) != 0) return Plain('\x03', nowMs, events);
    binding = code > 0 && code < 128 ? OfByte(static_cast<char>(code)) : nullptr;
  } else {
    const int number = last == '~' ? Number(parameters, 0, 0) : 0;
    const auto it = std::ranges::find_if(
        kBindings, [&](const TBinding& b) { return b.Final == last && (last != '~' || b.Number == number); });
    binding = it == std::end(kBindings) ? nullptr : &*it;
  }
  if (!binding) return;
  const bool reports = last == 'u' || parameters.find(':') != std::string_view::npos;
  const int event = Number(parameters, 1, 1);
  if (event == 3) {
    if (FHeld == binding->Key) LetGo(events);
    return;
  }
  if (event == 2 && FHeld == binding->Key) return;
  Pressed(binding->Key, nowMs, events);
  if (reports && FHeld == binding->Key) {
    FByTerminal = true;
    FUntilMs = kNever;
  }
}

void TTerminalKeys::Pressed(TKeyCode key, std::uint64_t nowMs, TEvents& events) {
  const bool stop = key == CK_STOP || key == CK_EGYSTOP;
  if (FHeld == key && !stop) {
    if (!FByTerminal) FUntilMs = nowMs + kRepeatMs;
    return;
  }
  LetGo(events);
  events.push_back({TTerminalEvent::TKind::Press, key, 0});
  FHeld = key;
  FByTerminal = false;
  FUntilMs = nowMs + kFirstMs;
}

void TTerminalKeys::LetGo(TEvents& events) {
  if (!FHeld) return;
  events.push_back({TTerminalEvent::TKind::Release, *FHeld, 0});
  FHeld.reset();
  FByTerminal = false;
}

}  // namespace ixocut
