#include "ixocut/panel/PanelScreen.h"

#include <algorithm>
#include <iterator>

#include "controller/panel/PanelNames.h"
#include "ixocamglue/support/DisplayWidth.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/panel/PanelPicture.h"

namespace ixocut {
namespace {

constexpr std::size_t kWideColumns = 133;  // seven keys in a row
constexpr std::size_t kNarrow = 4;

std::size_t CharacterLength(std::string_view text, std::size_t at) {
  std::size_t end = at + 1;
  while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) ++end;
  return end - at;
}

std::vector<std::string> MachineLines(const TPanelView& view) {
  const TMachineSnapshot& now = view.Now;
  std::vector<std::string> lines;
  lines.push_back(Format(Tr("form %s   state %d %s   knob %s %.1f mm/s"), view.Form.empty() ? "-" : view.Form.c_str(),
                         now.State, ShownState(ClassifyCutState(now.State)), ShownLevel(view.Knob), view.JogMmPerS));
  lines.push_back(Format("X %8.2f  Y %8.2f  Z %7.2f  %s", now.Pos.X, now.Pos.Y, now.Z,
                         now.Moving() ? Tr("moving") : Tr("at rest")));
  std::string devices =
      Format(Tr("shutter %s  laser %s  gas %s"), now.Emission ? Tr("open") : Tr("closed"),
             now.Laser ? Tr("ON") : Tr("off"), now.Gas ? Format("%.1f bar", now.GasBar).c_str() : Tr("off"));
  if (now.Following) devices += std::string("  ") + Tr("following");
  if (now.LatchTripped) devices += "  " + Format(Tr("LATCHED: %s"), Tr(now.LatchReason.c_str()));
  lines.push_back(std::move(devices));
  return lines;
}

void Append(std::vector<std::string>& lines, const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

}  // namespace

std::vector<std::string> Wrapped(std::string_view text, std::size_t columns) {
  std::vector<std::string> lines(1);
  std::size_t width = 0, blank = 0;  // of the last line; where it could be broken, 0: nowhere
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = CharacterLength(text, at);
    const auto byte = static_cast<unsigned char>(text[at]);
    const std::string character = byte < 0x20 || byte == 0x7F ? " " : std::string(text.substr(at, length));
    const std::size_t wide = DisplayWidth(character);
    at += length;
    if (width + wide > columns && width > 0) {
      std::string rest;
      if (blank > 0 && character != " ") {
        rest = lines.back().substr(blank + 1);
        lines.back().resize(blank);
      }
      width = DisplayWidth(rest);
      lines.push_back(std::move(rest));
      blank = 0;
      if (character == " ") continue;
    }
    if (character == " " && width > 0) blank = lines.back().size();
    lines.back() += character;
    width += wide;
  }
  return lines;
}

std::vector<std::string> PanelScreen(const TPanelView& view, std::size_t columns, std::size_t rows) {
  std::vector<std::string> lines =
      Wrapped(Tr("ixocut panel   q quit  x reset emergency stop  Tab form  m alt mode"), columns);
  if (columns < kScreenColumns)
    Append(lines,
           Wrapped(Format(Tr("The keys are shown from 80 columns on; this terminal has %zu. They work all the same: e "
                             "is the emergency stop, space is stop."),
                          columns),
                   columns));
  else
    Append(lines, DrawPanel(view.Leds, true, columns >= kWideColumns ? kPanelColumns : kNarrow));
  for (const std::string& line : MachineLines(view)) Append(lines, Wrapped(line, columns));

  const std::vector<std::string> notice = Wrapped(Tr("Software is not the emergency stop."), columns);
  const auto room = [&] { return rows - std::min(rows, lines.size() + notice.size()); };
  std::vector<std::string> alarms;
  for (const std::string& alarm : view.Alarms) Append(alarms, Wrapped(alarm, columns));
  std::vector<std::string> messages;
  for (const std::string& line : view.Messages) Append(messages, Wrapped(line, columns));

  // Half of the room is the messages', where they need it.
  const std::size_t forAlarms = room() - std::min(messages.size(), room() / 2);
  if (alarms.size() > forAlarms) {
    alarms.resize(forAlarms);
    if (!alarms.empty()) alarms.back() = Tr("... more alarms stand");
  }
  Append(lines, alarms);
  const std::size_t shown = std::min(messages.size(), room());
  Append(lines, {messages.end() - static_cast<std::ptrdiff_t>(shown), messages.end()});
  // A screen that is too low loses its lowest lines, never the notice.
  lines.resize(std::min(lines.size(), rows - std::min(rows, notice.size())));
  Append(lines, notice);
  lines.resize(std::min(lines.size(), rows));
  return lines;
}

}  // namespace ixocut
