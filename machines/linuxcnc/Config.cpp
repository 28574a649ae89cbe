#include "machines/linuxcnc/Config.h"

#include <algorithm>
#include <cctype>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

// A letter that LinuxCNC has for an axis, but for X, Y and Z; empty: none.
void ReadLetter(const TConfigSection& section, const char* name, const std::string& text, TLncAxisFacts& axis,
                std::vector<TProblem>& problems) {
  if (text.empty()) return;
  const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
  if (text.size() != 1 || std::string_view("ABCUVW").find(letter) == std::string_view::npos) {
    problems.push_back(ProblemAt(section, name, text, Format(Tr("not one of %s"), "A, B, C, U, V, W")));
    return;
  }
  axis.Letter = letter;
  axis.Fitted = true;
}

}  // namespace

void TLinuxcncRecord::Publish(TPublisher& p) {
  const TRshAddress def;
  p.Field("Host", Host, "127.0.0.1", kOptional)
      .Text(TrMark("Host on which LinuxCNC's text interface linuxcncrsh listens"));
  p.Field("Port", Port, def.Port, kOptional)
      .Within(1, 0xFFFF)
      .Text(TrMark("Port on which LinuxCNC's text interface listens"));
  p.Field("Password", Password, "EMC", kOptional)
      .Text(TrMark("Password with which the controller says hello to LinuxCNC's text interface"));
  p.Field("Enable", Enable, "EMCTOO", kOptional).Text(TrMark("Password that lets a connection command LinuxCNC"));
  p.Field("HalSocket", HalSocket, "/run/ixocut-hal.sock", kOptional)
      .Text(TrMark("Unix socket of ixocut-hal, which connects the controller with LinuxCNC's HAL"));
  p.Field("ZTop", ZTop, 0.0, kOptional)
      .Unit(uMm)
      .Within(bdRange(-10'000.0, 10'000.0))
      .Text(TrMark("LinuxCNC's Z where the head stands at the top, which is Z 0 of the controller"));
  p.Field("ZUp", ZUp, true, kOptional)
      .Within(bdSwitch)
      .Text(TrMark("Whether LinuxCNC's Z grows when the head rises; the controller's falls"));
  p.Field("FocusAxis", FocusAxis, "", kOptional)
      .Text(TrMark("Letter of LinuxCNC's axis that moves the focus; empty: none"));
  p.Field("TurnAxis", TurnAxis, "", kOptional)
      .Text(TrMark("Letter of LinuxCNC's axis, in degrees, that turns the nozzle motor; empty: none"));
  p.Field("TurnAxisNo", TurnAxisNo, 2, kOptional)
      .Within(2, 7)
      .Text(TrMark("Number by which the nozzle changer asks for that axis"));
  p.Field("PlateTouch", PlateTouch, 0.1, kOptional)
      .Unit(uMm)
      .Within(0.05, 5.0)
      .Text(TrMark("Distance from the plate down to which a calibration of the height sensor goes"));
  p.Field("FollowSpeed", FollowSpeed, 80.0, kOptional)
      .Unit(uMmPerS)
      .Within(bdZSpeed)
      .Text(TrMark("Highest speed with which the loop in HAL moves Z when the height is followed"));
}

TLncConfig TLncConfig::FromRoot(const TConfigSection& root, std::vector<TProblem>& problems) {
  TMachineBounds machine;
  machine.Read(root, problems);
  const TConfigSection section = root.Child(kLinuxcncSection);
  TLinuxcncRecord record;
  machine.Take(section, record, problems);

  TLncConfig config;
  config.Rsh = {record.Host, record.Port, record.Password, record.Enable};
  config.HalSocket = record.HalSocket;
  config.ZTop = record.ZTop;
  config.ZUp = record.ZUp;
  config.TurnAxisNo = record.TurnAxisNo;
  config.PlateTouch = record.PlateTouch;
  config.FollowSpeed = record.FollowSpeed;
  config.SafeZ = machine.SafeZ;
  config.Axes[laX] = {'X', true, machine.X};
  config.Axes[laY] = {'Y', true, machine.Y};
  config.Axes[laZ] = {'Z', true, machine.Z};
  config.Axes[laFocus].Limits = machine.Focus;
  ReadLetter(section, "FocusAxis", record.FocusAxis, config.Axes[laFocus], problems);
  ReadLetter(section, "TurnAxis", record.TurnAxis, config.Axes[laTurn], problems);
  for (const auto& [name, text] : {std::pair{"Password", record.Password}, std::pair{"Enable", record.Enable}})
    if (text.empty() || std::ranges::any_of(text, [](unsigned char c) { return c <= ' '; }))
      problems.push_back(ProblemAt(section, name, text, Tr("empty, or with a blank in it")));
  return config;
}

std::string TLncConfig::Pin(TLncAxis axis, std::string_view what) const {
  const auto letter = static_cast<char>(std::tolower(static_cast<unsigned char>(Axes[axis].Letter)));
  return std::string(1, letter) + "." + std::string(what);
}

const char* AxisName(TLncAxis axis) {
  switch (axis) {
    case laX: return "X";
    case laY: return "Y";
    case laZ: return "Z";
    case laFocus: return "Focus";
    case laTurn:
    case kLncAxes: break;
  }
  return "motor";
}

}  // namespace ixocamglue
