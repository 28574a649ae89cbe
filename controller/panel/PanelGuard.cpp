#include "controller/panel/PanelGuard.h"

#include <algorithm>
#include <utility>

#include "controller/texts/PanelTexts.h"
#include "ixocamglue/platform/ports/CutCommands.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Faults.h"

namespace ixocontroller {

TPanelGuard::TPanelGuard(TKBPManager& manager, std::function<void()> emergency, std::function<void()> stopHeld)
    : FManager(manager), FEmergency(std::move(emergency)), FStopHeld(std::move(stopHeld)) {}

void TPanelGuard::Enable() {
  Alive();
  Refresh();
  FEnabled.store(true, std::memory_order_release);
}

bool TPanelGuard::Press(TKeyCode key, std::int32_t param) {
  TKBPKeyItem* const item = FManager.KeyItem(key);
  if (!item) return false;
  Alive();
  SetKeyBit(key, true);
  if (key == CK_EGYSTOP && FEmergency) {
    TTryAll tryAll;
    tryAll(FEmergency);
  }
  const std::uint64_t now = Clock().MonotonicMs();
  const std::uint64_t refreshed = FRefreshedMs.load(std::memory_order_acquire);
  const bool fresh = FEnabled.load(std::memory_order_acquire) && (now < refreshed || now - refreshed <= kStaleMs);
  if (!fresh && !item->IsStopKey()) {
    LogMsg(lkWarning, 0, SPanelStale.Get(), "TPHost");
    return false;
  }
  const std::int32_t command = item->GetCMD();
  const bool held = IsHeldCommand(command);
  auto& holder = FHeld[KeyIndex(key)];
  if (held) holder.store(command, std::memory_order_release);
  item->KeyDown(param);
  // The watch took it meanwhile: its release came before the press.
  if (held && holder.load(std::memory_order_acquire) != command) ReleaseCommand(command);
  return true;
}

void TPanelGuard::Release(TKeyCode key) {
  TKBPKeyItem* const item = FManager.KeyItem(key);
  if (!item) return;
  Alive();
  SetKeyBit(key, false);
  const std::int32_t held = FHeld[KeyIndex(key)].exchange(0, std::memory_order_acq_rel);
  if (held != 0 && held != item->GetCMD()) ReleaseCommand(held);
  item->KeyUp();
}

void TPanelGuard::ReleaseAll() {
  const TKeyMask down = FManager.CurKeyBits();
  for (std::size_t i = 0; i < kKeys; ++i)
    if ((down & KeyBit(i)) != 0) Release(static_cast<TKeyCode>(i));
}

void TPanelGuard::Alive() { FAliveMs.store(Clock().MonotonicMs(), std::memory_order_release); }

void TPanelGuard::Refresh() {
  // The masks are as old as the start of their refresh.
  const std::uint64_t now = Clock().MonotonicMs();
  FLeds.store(FManager.GetLEDState(), std::memory_order_release);
  FRefreshedMs.store(now, std::memory_order_release);
}

void TPanelGuard::Watch(std::uint64_t nowMs) {
  const std::uint64_t alive = FAliveMs.load(std::memory_order_acquire);
  const bool silent = nowMs > alive && nowMs - alive > kSilentMs;
  const TKeyMask down = FManager.CurKeyBits();
  for (std::size_t i = 0; i < kKeys; ++i) {
    if (FHeld[i].load(std::memory_order_acquire) == 0 || (!silent && (down & KeyBit(i)) != 0)) continue;
    if (const std::int32_t command = FHeld[i].exchange(0, std::memory_order_acq_rel); command != 0)
      ReleaseCommand(command);
  }
  WatchStop(!silent && (down & KeyBit(CK_STOP)) != 0, nowMs);
}

std::uint32_t TPanelGuard::WatchInMs() const {
  static_assert(kRestMs + kWatchMs <= kSilentMs);
  const bool held = std::ranges::any_of(FHeld, [](const auto& command) { return command.load() != 0; });
  return held || (FManager.CurKeyBits() & KeyBit(CK_STOP)) != 0 ? kWatchMs : kRestMs;
}

void TPanelGuard::WatchStop(bool down, std::uint64_t nowMs) {
  const TNcStateFramework* const states = NcStates();
  if (!down || !states || states->CurrentState() != nsStandby) {
    FStopSince.End();
    FStopTold = false;
    return;
  }
  FStopSince.Begin(nowMs);
  if (FStopSince.LastedMs(nowMs) < kStopHeldMs || std::exchange(FStopTold, true) || !FStopHeld) return;
  TTryAll tryAll;
  tryAll(FStopHeld);
}

void TPanelGuard::SetKeyBit(TKeyCode key, bool down) {
  TNcSysInts* const ints = NcSysInts();
  if (!ints) return;
  const auto bits = static_cast<TKeyMask>(ints->Get(TNcSysInts::kKeyBits));
  const TKeyMask changed = down ? bits | KeyBit(key) : bits & ~KeyBit(key);
  ints->Set(TNcSysInts::kKeyBits, static_cast<std::int32_t>(changed));
}

void TPanelGuard::ReleaseCommand(std::int32_t command) noexcept {
  TTryAll tryAll;
  tryAll([command] {
    if (TNcCutSystem* const cut = CutSystem()) cut->KeyUp(command, 0);
  });
}

// --- TFormTracker ---

void TFormTracker::Show(std::string_view form) {
  Hide(form);
  FOpen.emplace_back(form);
  FManager.SetCPMByForm(form, true);
}

void TFormTracker::Hide(std::string_view form) {
  const auto found = std::ranges::find(FOpen, form);
  if (found == FOpen.end()) return;
  const auto at = static_cast<std::size_t>(found - FOpen.begin());
  for (std::size_t i = FOpen.size(); i-- > at;) FManager.SetCPMByForm(FOpen[i], false);
  FOpen.erase(FOpen.begin() + static_cast<std::ptrdiff_t>(at));
  for (std::size_t i = at; i < FOpen.size(); ++i) FManager.SetCPMByForm(FOpen[i], true);
}

}  // namespace ixocontroller
