#include "ixocut/panel/PanelPicture.h"

#include <array>
#include <utility>

#include "controller/panel/PanelNames.h"
#include "controller/panel/TerminalKeys.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Texts.h"

namespace ixocut {
using namespace ixocontroller;

namespace {

constexpr std::size_t kCellWidth = 15;
constexpr std::size_t kHintWidth = 4;

// In the order of the picture.
constexpr std::array<TKeyCode, kKeys> kPicture{
    CK_SHUTTER,     CK_AIMING,     CK_LASER,  CK_FOLLOW,    CK_GAS,     CK_KNOB,         CK_EGYSTOP,
    CK_RETURN0,     CK_FORWARD,    CK_Z_UP,   CK_K1,        CK_K2,      CK_START,        CK_STOP,
    CK_LEFT,        CK_WALKAROUND, CK_RIGHT,  CK_K3,        CK_K4,      CK_PAUSE,        CK_RESUME,
    CK_CALIBRATION, CK_BACK,       CK_Z_DOWN, CK_JOG_LASER, CK_DRY_CUT, CK_BREAK_LOCATE, CK_CUR_POS_AUTO_CALIBRATION};

constexpr TKeyMask PictureKeys() {
  TKeyMask keys = 0;
  for (const TKeyCode key : kPicture) keys |= KeyBit(key);
  return keys;
}
static_assert(PictureKeys() == Run(0, kKeys - 1));

// What to press for a key on a terminal.
std::string TerminalHint(TKeyCode key) {
  switch (key) {
    case CK_STOP: return Tr("Space");
    case CK_START: return Tr("Enter");
    case CK_FORWARD: return "↑";
    case CK_BACK: return "↓";
    case CK_LEFT: return "←";
    case CK_RIGHT: return "→";
    default: return TerminalKeyName(key);
  }
}

}  // namespace

std::vector<std::string> DrawPanel(TKeyMask leds, bool hints, std::size_t columns) {
  const std::size_t cellWidth = kCellWidth + (hints ? kHintWidth : 0);
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < kPicture.size(); ++i) {
    if (i % columns == 0) lines.emplace_back();
    const TKeyCode key = kPicture[i];
    std::string text = (leds & KeyBit(key)) != 0 ? "●" : "○";
    text += std::string(" ") + ShownKey(key);
    if (hints) text += " " + TerminalHint(key);
    lines.back() += i % columns + 1 < columns ? Padded(std::move(text), cellWidth) : text;
  }
  return lines;
}

}  // namespace ixocut
