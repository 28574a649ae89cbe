#include "controller/panel/PanelSeat.h"

#include <algorithm>
#include <iterator>

#include "controller/alarms/RunAlarms.h"
#include "ixocamglue/platform/ports/CutCommands.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kTimeAt = 11;  // of "2026-01-31 14:00:00.000"
constexpr std::size_t kTimeLength = 8;
constexpr std::uint32_t kRestEveryMs = 10;
constexpr std::uint32_t kStopWithinMs = 2000;
constexpr const char* kForms[] = {"Work", "DlgReturnOrg", "DlgLaserTest", "Settings"};

}  // namespace

void TLastLines::Write(const TLogRecord& record) {
  if (!record.Diagnostic) Add(record.Stamp, record.Text);
}

void TLastLines::Add(TDateTime stamp, std::string_view text) {
  std::string line = FormatDateTime(stamp).substr(kTimeAt, kTimeLength) + " ";
  line += text;
  TGuard guard(FLock);
  if (FLines.size() == kLines) FLines.pop_front();
  FLines.push_back(std::move(line));
}

std::vector<std::string> TLastLines::Lines() const {
  TGuard guard(FLock);
  return {FLines.begin(), FLines.end()};
}

const char* FormBehind(const std::string& form) {
  const auto it = std::ranges::find(kForms, form);
  return it == std::end(kForms) || std::next(it) == std::end(kForms) ? kForms[0] : *std::next(it);
}

bool THostSeat::ActsWhileHeld(TKeyCode key) const { return IsHeldCommand(KBPManager()->KeyItem(key)->GetCMD()); }

void THostSeat::NextForm() {
  const auto& open = FHost.Forms().Open();
  const std::string top = open.empty() ? "" : open.back();
  FHost.Guard().ReleaseAll();
  if (!top.empty()) FHost.Forms().Hide(top);
  FHost.Forms().Show(FormBehind(top));
}

TPanelView THostSeat::View() {
  TController& session = FHost.Controller();
  const auto& open = FHost.Forms().Open();
  TPanelView view{.Leds = FHost.Guard().Leds(),
                  .Form = open.empty() ? "" : open.back(),
                  .Now = session.Machine().Snapshot(),
                  .Knob = Knob().GetSpeedState(),
                  .JogMmPerS = session.Params().GetDouble("JogSpeed", session.Jog().XY().LowJogSpeed),
                  .Alarms = {},
                  .Messages = FLog.Lines()};
  for (const TNcAlarmRecord& alarm : session.Alarms().Standing()) view.Alarms.push_back(TRunAlarm::Of(alarm).Words());
  return view;
}

void THostSeat::Leave() {
  TController& session = FHost.Controller();
  FHost.Guard().ReleaseAll();
  FHost.Guard().Press(CK_STOP);
  FHost.Guard().Release(CK_STOP);
  // The stop is carried out before the threads end.
  for (const std::uint64_t end = Clock().MonotonicMs() + kStopWithinMs; Clock().MonotonicMs() < end;) {
    Clock().Sleep(kRestEveryMs);
    if (session.Framework().CurrentState() == nsStandby && !session.Framework().SafePending() &&
        !session.Machine().Snapshot().Moving())
      break;
  }
}

}  // namespace ixocontroller
