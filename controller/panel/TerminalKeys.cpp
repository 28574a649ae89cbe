#include "controller/panel/TerminalKeys.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr char kEscape = 27;
constexpr std::size_t kLongestSequence = 32;
// Of "CSI code ; modifiers : event u".
constexpr int kRepeatEvent = 2;
constexpr int kReleaseEvent = 3;
constexpr int kCtrl = 4;             // among the modifiers less 1
constexpr unsigned kEventTypes = 2;  // among the flags of "CSI ? flags u"

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

constexpr std::string_view kCommandKeys = "qxm\t\x03";

// Letters also with the shift lock on.
const TBinding* OfByte(char byte) {
  byte = byte == '\n' ? '\r' : FoldAscii(byte);
  const auto it = std::ranges::find(kBindings, byte, &TBinding::Byte);
  return byte == 0 || it == std::end(kBindings) ? nullptr : &*it;
}

bool IsStop(char byte) { return byte == 'e' || byte == ' '; }
bool IsStopKey(TKeyCode key) { return key == CK_STOP || key == CK_EGYSTOP; }

std::string_view Piece(std::string_view text, char by, std::size_t i) {
  for (; i > 0; --i) {
    const auto at = text.find(by);
    if (at == std::string_view::npos) return {};
    text.remove_prefix(at + 1);
  }
  return text.substr(0, text.find(by));
}

// Of "5;1:3" the groups {5} and {1, 3}; a missing number is 1, what is none -1.
int Number(std::string_view parameters, std::size_t group, std::size_t part) {
  const std::string_view text = Piece(Piece(parameters, ';', group), ':', part);
  return text.empty() ? 1 : ParseExactly<int>(text).value_or(-1);
}

// False: quit.
bool Command(IPanelSeat& seat, char command) {
  switch (command) {
    case 'q': return false;
    case 'x': seat.ResetByHand(); break;
    case 'm': seat.SwitchAlt(); break;
    case '\t': seat.NextForm(); break;
    default: break;
  }
  return true;
}

}  // namespace

const char* TerminalKeyName(TKeyCode key) {
  const auto it = std::ranges::find(kBindings, key, &TBinding::Key);
  return it == std::end(kBindings) ? "" : it->Name;
}

TTerminalKeys::TTerminalKeys(std::function<bool(TKeyCode)> held)
    : FActsWhileHeld(held ? std::move(held)
                          : [](TKeyCode key) { return IsHeldCommand(kKeyTable[KeyIndex(key)].NormalCmd); }) {}

std::vector<TTerminalEvent> TTerminalKeys::Feed(std::string_view bytes, std::uint64_t nowMs) {
  TEvents events = Tick(nowMs);
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
  if (kCommandKeys.find(byte) != std::string_view::npos) {
    LetGo(events);
    events.push_back({TTerminalEvent::TKind::Command, CK_STOP, byte == '\x03' ? 'q' : byte});
  } else if (const TBinding* const binding = OfByte(byte)) {
    Pressed(binding->Key, false, nowMs, events);
  } else {
    LetGo(events);
  }
}

void TTerminalKeys::Sequence(std::string_view parameters, char last, std::uint64_t nowMs, TEvents& events) {
  if (last == 'u' && parameters.starts_with('?')) {  // the answer to our question
    FReports = (ParseExactly<unsigned>(parameters.substr(1)).value_or(0) & kEventTypes) != 0;
    return;
  }
  const int event = Number(parameters, 1, 1);
  if (Piece(parameters, ';', 1).find(':') != std::string_view::npos) FReports = true;
  const TBinding* binding = nullptr;
  if (last == 'u') {
    const int code = Number(parameters, 0, 0);
    const char byte = code > 0 && code < 128 ? static_cast<char>(code) : '\0';
    const bool ctrlC = byte == 'c' && ((Number(parameters, 1, 0) - 1) & kCtrl) != 0;
    if (ctrlC || (byte != '\0' && kCommandKeys.find(byte) != std::string_view::npos)) {
      if (event == 1) Plain(ctrlC ? '\x03' : byte, nowMs, events);
      return;
    }
    binding = OfByte(byte);
  } else {
    const int number = last == '~' ? Number(parameters, 0, 0) : 0;
    const auto it = std::ranges::find_if(
        kBindings, [&](const TBinding& b) { return b.Final == last && (last != '~' || b.Number == number); });
    binding = it == std::end(kBindings) ? nullptr : &*it;
  }
  if (!binding) return;
  if (event == kReleaseEvent) {
    if (FHeld == binding->Key) LetGo(events);
  } else if (event == kRepeatEvent && FHeld == binding->Key) {
    StillHeld(nowMs);
  } else if (event != kRepeatEvent || IsStopKey(binding->Key)) {
    Pressed(binding->Key, FReports, nowMs, events);
  }
}

void TTerminalKeys::Pressed(TKeyCode key, bool distinct, std::uint64_t nowMs, TEvents& events) {
  if (FHeld == key && !distinct && !IsStopKey(key)) {
    StillHeld(nowMs);
    events.push_back({TTerminalEvent::TKind::Repeat, key, 0});
    return;
  }
  LetGo(events);
  events.push_back({TTerminalEvent::TKind::Press, key, 0});
  FHeld = key;
  FUntilMs = nowMs + kFirstMs;
}

void TTerminalKeys::StillHeld(std::uint64_t nowMs) {
  FUntilMs = nowMs + (FActsWhileHeld(*FHeld) ? kRepeatMs : kFirstMs);
}

void TTerminalKeys::LetGo(TEvents& events) {
  if (FHeld) events.push_back({TTerminalEvent::TKind::Release, *FHeld, 0});
  FHeld.reset();
}

TTerminalKeys KeysFor(const IPanelSeat& seat) {
  return TTerminalKeys([&seat](TKeyCode key) { return seat.ActsWhileHeld(key); });
}

bool Act(IPanelSeat& seat, const TTerminalEvent& event) {
  switch (event.Kind) {
    case TTerminalEvent::TKind::Press: seat.Press(event.Key); break;
    case TTerminalEvent::TKind::Repeat: seat.PressAgain(event.Key); break;
    case TTerminalEvent::TKind::Release: seat.Release(event.Key); break;
    case TTerminalEvent::TKind::Command: return Command(seat, event.Command);
  }
  return true;
}

}  // namespace ixocontroller
