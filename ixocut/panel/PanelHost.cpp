#include "ixocut/panel/PanelHost.h"

#include <algorithm>
#include <array>

#include "controller/HostTexts.h"
#include "controller/panel/PanelTexts.h"
#include "controller/procedures/Timeline.h"
#include "ixocamglue/panel/Uknob.h"
#include "ixocamglue/platform/xml/Bounds.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/panel/TerminalKeys.h"

namespace ixocut {
namespace {

constexpr std::size_t kCellWidth = 15;
constexpr std::size_t kHintWidth = 4;

struct TCell {
  TKeyCode Key;
  const char* Label;
};

constexpr std::array<TCell, kKeys> kPicture{{
    {CK_SHUTTER, "SHUTTER"},
    {CK_AIMING, "AIMING"},
    {CK_LASER, "LASER"},
    {CK_FOLLOW, "FOLLOW"},
    {CK_GAS, "GAS"},
    {CK_KNOB, "KNOB"},
    {CK_EGYSTOP, "EGYSTOP"},
    {CK_RETURN0, "RETURN0"},
    {CK_FORWARD, "FORWARD"},
    {CK_Z_UP, "Z UP"},
    {CK_K1, "K1"},
    {CK_K2, "K2"},
    {CK_START, "START"},
    {CK_STOP, "STOP"},
    {CK_LEFT, "LEFT"},
    {CK_WALKAROUND, "WALK"},
    {CK_RIGHT, "RIGHT"},
    {CK_K3, "K3"},
    {CK_K4, "K4"},
    {CK_PAUSE, "PAUSE"},
    {CK_RESUME, "RESUME"},
    {CK_CALIBRATION, "CALIB"},
    {CK_BACK, "BACK"},
    {CK_Z_DOWN, "Z DOWN"},
    {CK_JOG_LASER, "JOG LASER"},
    {CK_DRY_CUT, "DRY CUT"},
    {CK_BREAK_LOCATE, "BREAK"},
    {CK_CUR_POS_AUTO_CALIBRATION, "CALIB HERE"},
}};

constexpr TKeyMask PictureKeys() {
  TKeyMask keys = 0;
  for (const TCell& cell : kPicture) keys |= KeyBit(cell.Key);
  return keys;
}
static_assert(PictureKeys() == Run(0, kKeys - 1));

const std::array<TDemoAlarm, 6>& Alarms() {
  static const std::array<TDemoAlarm, 6> kAlarms{{
      {101, &SAlarmLaserSource, naForbidCut | naForbidLaser},
      {102, &SAlarmGasPressure, naForbidCut},
      {103, &SAlarmFollower, naForbidCut | naForbidFollower},
      {104, &SAlarmLimitX, NcAlarmAxis(0, true)},
      {105, &SAlarmNotHomed, naForbidCut | naRequireOrg},
      {106, &SAlarmDrive, naForbidCut | naForbidLaser | naForbidHoming | naForbidMove},
  }};
  return kAlarms;
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return upper;
}

}  // namespace

std::span<const TDemoAlarm> DemoAlarms() { return Alarms(); }

const TDemoAlarm* FindDemoAlarm(std::int32_t id) {
  const auto it = std::ranges::find(Alarms(), id, &TDemoAlarm::Id);
  return it == Alarms().end() ? nullptr : &*it;
}

std::string DemoAlarmList() {
  std::string list;
  for (const TDemoAlarm& alarm : Alarms())
    list += Format("%s%d (%s)", list.empty() ? "" : ", ", alarm.Id, alarm.Name->Get());
  return list;
}

std::optional<TKeyCode> ParseKey(std::string_view text) {
  std::string name = Upper(text);
  if (!name.starts_with("CK_")) name = "CK_" + name;
  const auto it = std::ranges::find(kKeyTable, name, &TKeyRow::Name);
  if (it == kKeyTable.end()) return std::nullopt;
  return static_cast<TKeyCode>(it - kKeyTable.begin());
}

std::string KeyNames(TKeyMask keys) {
  std::string names;
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((keys & KeyBit(i)) != 0) names += (names.empty() ? "" : " ") + std::string(kKeyTable[i].Name);
  return names.empty() ? "-" : names;
}

std::optional<std::int32_t> ParseState(std::string_view text) {
  for (std::int32_t state = 0; state < kCutStates; ++state)
    if (text == CutStateName(ClassifyCutState(state))) return state;
  const auto number = ParseExactly<std::int32_t>(text);
  return number && *number >= 0 ? number : std::nullopt;
}

std::vector<std::string> DrawPanel(TKeyMask leds, bool hints, std::size_t columns) {
  const std::size_t cellWidth = kCellWidth + (hints ? kHintWidth : 0);
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < kPicture.size(); ++i) {
    if (i % columns == 0) lines.emplace_back();
    const TCell& cell = kPicture[i];
    std::string text = (leds & KeyBit(cell.Key)) != 0 ? "●" : "○";
    text += std::string(" ") + cell.Label;
    if (hints) text += std::string(" ") + TerminalKeyName(cell.Key);
    const std::size_t width = DisplayWidth(text);
    if (i % columns + 1 < columns && width < cellWidth) text.append(cellWidth - width, ' ');
    lines.back() += text;
  }
  return lines;
}

// --- TPanelHost ---

TPanelHost::TPanelHost(TController& session)
    : FController(session),
      FGuard(
          *KBPManager(),
          [&session] {
            if (TSupervisor* const supervisor = session.Supervisor()) supervisor->EmergencyStop();
          },
          [&session] {
            if (const TResult<> reset = session.ResetLatch(); !reset)
              LogMsg(lkWarning, 0, reset.Problem().Text(), "TPHost");
          }),
      FForms(*KBPManager()) {
  FGuard.Enable();
  if (TVirtualClock* const clock = session.VirtualClock()) {
    FTimers.push_back(clock->Every(TPanelGuard::kRefreshMs, [this](std::uint64_t) { FGuard.Refresh(); }));
    FTimers.push_back(clock->Every(TPanelGuard::kWatchMs, [this](std::uint64_t now) { FGuard.Watch(now); }));
  } else {
    FRefreshThread.emplace("ixo-panel", TPanelGuard::kRefreshMs, [this](std::uint64_t) { FGuard.Refresh(); });
    FWatchThread.emplace("ixo-panelwatch", TPanelGuard::kWatchMs, [this](std::uint64_t now) { FGuard.Watch(now); });
  }
}

TPanelHost::~TPanelHost() {
  for (const std::size_t timer : FTimers) FController.VirtualClock()->Remove(timer);
}

void TPanelHost::RaiseAlarm(const TDemoAlarm& alarm) {
  FController.RaiseAlarm({.IdPrefix = "TPHost", .Desc = alarm.Name->Get(), .Id = alarm.Id, .Attrs = alarm.Attrs});
}

void TPanelHost::SetWarning(bool pending) {
  FController.Params().SetBool("ExistMaintainWarning", pending);
  if (pending) FController.Alarms().Raise({.IdPrefix = "TPHost", .Desc = SAlarmNotHomed.Get(), .Attrs = naRequireOrg});
}

void TPanelHost::SetKnob(TSpeedState level) {
  if (const std::string problem = CheckKnob(); !problem.empty()) return LogMsg(lkWarning, 0, problem, "TPHost");
  try {
    Knob().SetSpeedState(level);
  } catch (const EDesignFault& fault) {
    LogMsg(lkError, 0, fault.what(), fault.Unit());
  }
}

void TPanelHost::TurnKnob() {
  const TKBPManager& manager = *KBPManager();
  if (JudgePress(CK_KNOB, manager.GetMap(kMapClientPermit), manager.GetMap(kMapAlarmPermit),
                 manager.GetMap(kMapStatePermit), manager.GetMap(kMapWarningPermit)) != pvSent)
    return;
  switch (Knob().GetSpeedState()) {
    case ssLow: return SetKnob(ssNormal);
    case ssNormal: return SetKnob(ssHigh);
    case ssHigh: return SetKnob(ssLow);
  }
}

// --- jog speeds ---

std::string CheckJogSpeeds(double low, double normal, double high, double most) {
  const auto text = [](double value) { return Format("%.10g", value); };
  for (const double speed : {low, normal, high})
    if (!(speed > TKnob::kLowestJogSpeed)) return Show(SJogTooLow, text(speed).c_str());
  if (!(low <= normal && normal <= high))
    return Show(SJogOrder, text(low).c_str(), text(normal).c_str(), text(high).c_str());
  if (!(high <= most)) return Show(SJogTooHigh, text(high).c_str(), text(most).c_str());
  return {};
}

std::string CheckKnob() {
  TMachineBounds config;
  std::vector<TProblem> wrong;  // the machine was made all the same
  config.Read(*MachineConfig(), wrong);
  const TSpeedData& xy = Knob().XYSpeed.ShowSpeed;
  const TSpeedData& z = Knob().ZSpeed.ShowSpeed;
  if (std::string problem =
          CheckJogSpeeds(xy.LowSpeed, xy.NormalSpeed, xy.HighSpeed, std::min(config.X.MaxSpeed, config.Y.MaxSpeed));
      !problem.empty())
    return "XY: " + problem;
  if (std::string problem = CheckJogSpeeds(z.LowSpeed, z.NormalSpeed, z.HighSpeed, config.Z.MaxSpeed); !problem.empty())
    return "Z: " + problem;
  return {};
}

}  // namespace ixocut
