// The keys of the panel: their codes, their commands, and sets of them. Constants and values; any thread. Nothing
// fails: what is no key has no bit and the name "no key".
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "ixocamglue/platform/xml/XmlSubConfig.h"

namespace ixocamglue {

// A key's ordinal is its bit in every key mask.
enum class TKeyCode : std::uint8_t {
  CK_SHUTTER,
  CK_AIMING,
  CK_LASER,
  CK_FOLLOW,
  CK_GAS,
  CK_RETURN0,
  CK_WALKAROUND,
  CK_FORWARD,
  CK_Z_UP,
  CK_LEFT,
  CK_RIGHT,
  CK_BACK,
  CK_Z_DOWN,
  CK_START,
  CK_PAUSE,
  CK_RESUME,
  CK_STOP,
  CK_EGYSTOP,
  CK_KNOB,
  CK_K1,
  CK_K2,
  CK_K3,
  CK_K4,
  CK_CALIBRATION,
  CK_JOG_LASER,
  CK_DRY_CUT,
  CK_BREAK_LOCATE,
  CK_CUR_POS_AUTO_CALIBRATION
};
using enum TKeyCode;

inline constexpr std::size_t kKeys = 28;

using TKeyMask = std::uint32_t;

[[nodiscard]] constexpr std::size_t KeyIndex(TKeyCode key) { return static_cast<std::size_t>(key); }
[[nodiscard]] constexpr bool IsKey(TKeyCode key) { return KeyIndex(key) < kKeys; }
// Bit 0 to 31; no bit for what is none.
[[nodiscard]] constexpr TKeyMask KeyBit(std::size_t ordinal) { return ordinal < 32 ? TKeyMask{1} << ordinal : 0U; }
[[nodiscard]] constexpr TKeyMask KeyBit(TKeyCode key) { return KeyBit(KeyIndex(key)); }

// Sets by ordinal, 0 to 31 (another one is no key): single keys, and an inclusive run of them.
template <class... Ordinals>
[[nodiscard]] constexpr TKeyMask Keys(Ordinals... ordinals) {
  return (KeyBit(static_cast<std::size_t>(ordinals)) | ... | 0U);
}
// None where `last` is below `first`.
[[nodiscard]] constexpr TKeyMask Run(std::size_t first, std::size_t last) {
  TKeyMask keys = 0;
  for (std::size_t i = first; i <= last; ++i) keys |= KeyBit(i);
  return keys;
}

inline constexpr TKeyMask kAllKeys = 0xFFFFFFFF;
inline constexpr TKeyMask kStopKeys = KeyBit(CK_PAUSE) | KeyBit(CK_STOP) | KeyBit(CK_EGYSTOP);
inline constexpr TKeyMask kDefaultClientPermit = 0x34000;
static_assert(kStopKeys == kDefaultClientPermit);

struct TKeyRow {
  std::string_view Name;
  std::int32_t NormalCmd;
  std::int32_t AltCmd;
};

// In the order of the codes. The four K keys take theirs from the key definitions.
inline constexpr std::array<TKeyRow, kKeys> kKeyTable{{
    {"CK_SHUTTER", 88, 88},
    {"CK_AIMING", 84, 84},
    {"CK_LASER", 67, 67},
    {"CK_FOLLOW", 100, 100},
    {"CK_GAS", 148, 148},
    {"CK_RETURN0", 11, 13},
    {"CK_WALKAROUND", 5, 5},
    {"CK_FORWARD", 35, 35},
    {"CK_Z_UP", 102, 102},
    {"CK_LEFT", 33, 33},
    {"CK_RIGHT", 34, 34},
    {"CK_BACK", 36, 36},
    {"CK_Z_DOWN", 101, 101},
    {"CK_START", 1, 1},
    {"CK_PAUSE", 3, 3},
    {"CK_RESUME", 14, 65550},
    {"CK_STOP", 4, 4},
    {"CK_EGYSTOP", 15, 15},
    {"CK_KNOB", 0, 0},
    {"CK_K1", 0, 0},
    {"CK_K2", 0, 0},
    {"CK_K3", 0, 0},
    {"CK_K4", 0, 0},
    {"CK_CALIBRATION", 103, 103},
    {"CK_JOG_LASER", 51, 51},
    {"CK_DRY_CUT", 6, 6},
    {"CK_BREAK_LOCATE", 0, 65550},
    {"CK_CUR_POS_AUTO_CALIBRATION", 104, 104},
}};

[[nodiscard]] constexpr std::string_view KeyName(TKeyCode key) {
  return IsKey(key) ? kKeyTable[KeyIndex(key)].Name : std::string_view("no key");
}

// The K keys in the order of their definitions "KeyDef13", "KeyDef14", "KeyDef15" and "KeyDef22".
struct TKeyDef {
  TKeyCode Key;
  const char* Name;
  const char* Text;
};
inline constexpr std::array<TKeyDef, 4> kKeyDefs{
    {{CK_K1, "KeyDef13", TrMark("Command that the panel's key K1 sends; 0: none")},
     {CK_K2, "KeyDef14", TrMark("Command that the panel's key K2 sends; 0: none")},
     {CK_K3, "KeyDef15", TrMark("Command that the panel's key K3 sends; 0: none")},
     {CK_K4, "KeyDef22", TrMark("Command that the panel's key K4 sends; 0: none")}}};
inline constexpr const char* kKeyDefinitionSection = "KeyDefinition";
// The section as the file holds it.
class TKeyDefinitionRecord : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override {
    for (std::size_t i = 0; i < kKeyDefs.size(); ++i)
      p.Field(TPropName::Of(kKeyDefs[i].Name), Commands[i], 0, kOptional).Within(bdAtLeast(0)).Text(kKeyDefs[i].Text);
  }
  std::array<std::int32_t, kKeyDefs.size()> Commands{};  // in the order of kKeyDefs; 0: none
};

}  // namespace ixocamglue
