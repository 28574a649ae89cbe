#include "ixocamglue/panel/Kbpmngr.h"

#include <algorithm>
#include <utility>

#include "ixocamglue/panel/Kbpforms.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue {

namespace {

constexpr const char* kCategory = "CtrlRemote";
constexpr std::int32_t kRefusal = 4;  // message type of the four texts
constexpr std::int32_t kNoColour = 0;
constexpr TKeyMask kAlwaysClient = KeyBit(CK_STOP) | KeyBit(CK_EGYSTOP);
// Published behind the keys' own commands when CK_RIGHT is permitted.
constexpr std::int32_t kRightCommands[] = {49, 53};

// A port that fails must not keep the next step of a press from happening.
template <class Action>
void Guarded(const char* what, std::int32_t command, Action action) noexcept {
  try {
    action();
  } catch (...) {
    try {
      LogMsg(lkError, kNoColour,
             Format("%s(%d): %s", what, command, DescribeException(std::current_exception()).c_str()));
    } catch (...) {  // no memory for the line
    }
  }
}

void PostToReturnOrg(std::int32_t command, std::int64_t down) noexcept {
  Guarded("PostMessage", command, [&] {
    TNcWindows* const windows = NcWindows();
    const TNcWindows::THandle window = windows ? windows->FindWindow(kReturnOrgWindow) : 0;
    if (window != 0) windows->PostMessage(window, {kPanelKeyMessage, command, down});
  });
}

std::unique_ptr<TKBPManager>& ManagerSlot() {
  static constinit std::unique_ptr<TKBPManager> slot;
  return slot;
}

}  // namespace

// --- the decision ---

TPressVerdict JudgePress(TKeyCode key, TKeyMask client, TKeyMask alarm, TKeyMask state, TKeyMask warning) {
  const TKeyMask bit = KeyBit(key);
  if ((bit & kStopKeys) != 0) return pvSent;
  if ((client & bit) == 0) return pvClientRefuses;
  // Kept: a press that an alarm forbids is reported and sent; the cutting system refuses by its own permissions.
  if ((alarm & bit) == 0) return pvSentUnderAlarm;
  if ((state & bit) == 0) return pvStateRefuses;
  return (warning & bit) == 0 ? pvWarningRefuses : pvSent;
}

const TText* VerdictText(TPressVerdict verdict) {
  switch (verdict) {
    case pvSent: return nullptr;
    case pvClientRefuses: return &SMsgKBPanelNotAllowKeyDown1;
    case pvSentUnderAlarm: return &SMsgKBPanelNotAllowKeyDown2;
    case pvStateRefuses: return &SMsgKBPanelNotAllowKeyDown3;
    case pvWarningRefuses: return &SMsgKBPanelNotAllowKeyDown4;
  }
  return nullptr;
}

// --- TKBPKeyItem ---

bool TKBPKeyItem::GetBit(std::int32_t i) const { return (FManager.GetMap(i) & Mask()) != 0; }

void TKBPKeyItem::SetBit(std::int32_t i, bool on) {
  if (i < 0 || i >= kMaps) return;
  auto& map = FManager.FMaps[static_cast<std::size_t>(i)];
  if (on)
    map.fetch_or(Mask(), std::memory_order_acq_rel);
  else
    map.fetch_and(~Mask(), std::memory_order_acq_rel);
}

void TKBPKeyItem::SetCommands(std::int32_t normal, std::int32_t alt) {
  FNormalCmd.store(normal, std::memory_order_release);
  FAltCmd.store(alt, std::memory_order_release);
}

std::int32_t TKBPKeyItem::GetCMD() const {
  const std::int32_t alt = FAltCmd.load(std::memory_order_acquire);
  return GetIsAlt() && alt > 0 ? alt : NormalCmd();
}

void TKBPKeyItem::SetAlt(bool isAlt, bool blink) {
  FIsAlt.store(isAlt, std::memory_order_release);
  SetBit(kMapBlink, blink);
  FManager.ChangeAllowKeys();
}

bool TKBPKeyItem::IsDown() const { return (FManager.CurKeyBits() & Mask()) != 0; }

void TKBPKeyItem::KeyDown(std::int32_t param) {
  if (TDiag d{dlMessage, kCategory}) d("TKBPKeyItem.KeyDown");
  const TPressVerdict verdict =
      JudgePress(FKeyCode, FManager.GetMap(kMapClientPermit), FManager.GetMap(kMapAlarmPermit),
                 FManager.GetMap(kMapStatePermit), FManager.GetMap(kMapWarningPermit));
  if (const TText* const text = VerdictText(verdict)) LogMsg(kRefusal, kNoColour, text->Get());
  if (verdict != pvSent && verdict != pvSentUnderAlarm) return;
  const std::int32_t command = GetCMD();
  if (command == 0) return;
  PostToReturnOrg(command, 1);
  if (TDiag d{dlEntry, kCategory}) d("CutSystem.KeyDown");
  Guarded("CutSystem.KeyDown", command, [&] {
    if (TNcCutSystem* const cut = CutSystem()) cut->KeyDown(command, param, true);
  });
  if (TDiag d{dlExit, kCategory}) d("CutSystem.KeyDown");
}

// Kept: the command at the time of the release. A key whose alt mode changed while it was held releases another command
// than it pressed; whoever drives the panel sees to what is held (controller/panel/PanelGuard.h).
void TKBPKeyItem::KeyUp() {
  const std::int32_t command = GetCMD();
  if (command == 0) return;
  PostToReturnOrg(command, 0);
  Guarded("CutSystem.KeyUp", command, [&] {
    if (TNcCutSystem* const cut = CutSystem()) cut->KeyUp(command, 0);
  });
}

// --- TKBPManager ---

TKBPManager::TKBPManager() {
  for (std::size_t i = 0; i < kKeys; ++i) {
    FItems[i] = std::make_unique<TKBPKeyItem>(*this, static_cast<TKeyCode>(i));
    FItems[i]->SetCommands(kKeyTable[i].NormalCmd, kKeyTable[i].AltCmd);
  }
  SetMap(kMapWarningPermit, kAllKeys);
  SetClientPermit(kMapClientPermit, kDefaultClientPermit);
  SetMap(kMapAlwaysLit, Run(KeyIndex(CK_SHUTTER), KeyIndex(CK_GAS)));
}

TKBPKeyItem* TKBPManager::KeyItem(TKeyCode key) { return IsKey(key) ? FItems[KeyIndex(key)].get() : nullptr; }

void TKBPManager::KBKeyDown(TKeyCode key, std::int32_t param) {
  if (TKBPKeyItem* const item = KeyItem(key)) item->KeyDown(param);
}

void TKBPManager::KBKeyUp(TKeyCode key) {
  if (TKBPKeyItem* const item = KeyItem(key)) item->KeyUp();
}

TKeyMask TKBPManager::GetMap(std::int32_t i) const {
  return i >= 0 && i < kMaps ? FMaps[static_cast<std::size_t>(i)].load(std::memory_order_acquire) : 0;
}

void TKBPManager::SetMap(std::int32_t i, TKeyMask value) {
  if (i >= 0 && i < kMaps) FMaps[static_cast<std::size_t>(i)].store(value, std::memory_order_release);
}

void TKBPManager::SetClientPermit(std::int32_t i, TKeyMask mask) {
  if (mask == kNoChange || i < 0 || i >= kMaps) return;
  TKeyMask permit = mask | kAlwaysClient;
  SetMap(i, permit);
  // Kept: what is published here is without the K keys' bits, which are added below.
  ChangeAllowKeys();
  if (const TMachineConfig* const config = MachineConfig(); config && config->Root().Exists()) {
    Guarded("KeyDef", 0, [&] {
      TKeyDefinitionRecord record;
      config->Section(kKeyDefinitionSection).Load(record);
      for (std::size_t k = 0; k < kKeyDefs.size(); ++k)
        if (TKBPKeyItem* const item = KeyItem(kKeyDefs[k].Key)) item->SetNormalCmd(std::max(record.Commands[k], 0));
    });
    permit |= PermittedKKeys(NcForbidTypeRegistry());
  }
  SetMap(i, permit);
}

TKeyMask TKBPManager::PermittedKKeys(const TNcForbidTypeRegistry* registry) const {
  TKeyMask permit = 0;
  for (const TKeyDef& def : kKeyDefs) {
    const std::int32_t command = Item(def.Key).NormalCmd();
    if (registry ? !registry->IsForbidden(command) : command != 0) permit |= KeyBit(def.Key);
  }
  return permit;
}

TKeyMask TKBPManager::ClientPermitUnder(TKeyMask mask, TNcForbidTypeRegistry& registry) const {
  const TKeyMask permit = mask | kAlwaysClient;
  AllowKeys(permit, registry);
  return permit | PermittedKKeys(&registry);
}

void TKBPManager::SetCPMByForm(std::string_view formName, bool isFormShow) {
  Guarded("SetCPMByForm", isFormShow ? 1 : 0, [&] {
    const auto opened = FOpened.find(formName);
    TKeyMask mask = kDefaultClientPermit;
    if (isFormShow) {
      // Kept: a second show of a form that is open replaces what was remembered.
      const TKeyMask present = GetMap(kMapClientPermit);
      if (opened != FOpened.end())
        opened->second = present;
      else
        FOpened.emplace(formName, present);
      mask = FormMask(formName).value_or(kDefaultClientPermit);
    } else if (opened != FOpened.end()) {
      mask = opened->second;
    }
    SetClientPermit(kMapClientPermit, mask);
  });
}

void TKBPManager::SafeExec(const std::function<void()>& proc) {
  const TKeyMask saved = GetMap(kMapClientPermit);
  SetClientPermit(kMapClientPermit, kDefaultClientPermit);
  proc();
  SetClientPermit(kMapClientPermit, saved);
}

void TKBPManager::ChangeAllowKeys() {
  TNcForbidTypeRegistry* const registry = NcForbidTypeRegistry();
  if (!registry) return;
  Guarded("ChangeAllowKeys", 0, [&] { AllowKeys(GetMap(kMapClientPermit), *registry); });
}

void TKBPManager::AllowKeys(TKeyMask permit, TNcForbidTypeRegistry& registry) const {
  if (permit == kAllKeys) {
    registry.RegistForbidKey(kNoForbidden, {});
    registry.SetForbiddenKey(kNoForbidden);
    return;
  }
  std::array<std::int32_t, kKeys + 2> commands{};
  std::size_t count = 0;
  for (const auto& item : FItems)
    if ((permit & item->Mask()) != 0) commands[count++] = item->GetCMD();
  for (const std::int32_t command : kRightCommands) commands[count++] = (permit & KeyBit(CK_RIGHT)) != 0 ? command : 0;
  registry.RegistAllowKey(kAllowKeys, std::span(commands.data(), count));
  registry.SetForbiddenKey(kAllowKeys);
}

TKeyMask TKBPManager::CurKeyBits() const {
  const TNcSysInts* const ints = NcSysInts();
  return ints ? static_cast<TKeyMask>(ints->Get(TNcSysInts::kKeyBits)) : 0;
}

TKeyMask TKBPManager::GetLEDState() {
  TGuard guard(FLock);
  UpdateAlarmPermit();
  UpdateStatePermit();
  UpdateRepState();
  UpdateWarningPermit();

  const std::uint64_t now = Clock().MonotonicMs();
  const std::uint64_t lasted = now - FBlinkAt;
  const TKeyMask phase = lasted < kBlinkHalfMs ? kAllKeys : 0;
  if (lasted >= 2 * kBlinkHalfMs) FBlinkAt = now;

  const TKeyMask state = GetMap(kMapStatePermit);
  const TKeyMask led = GetMap(kMapLed);
  const TKeyMask allowed = GetMap(kMapAlarmPermit) & GetMap(kMapClientPermit) & state & GetMap(kMapWarningPermit);
  const TKeyMask leds = led & (allowed | GetMap(kMapAlwaysLit)) & (~GetMap(kMapBlink) | phase);
  if (TNcParams* const params = NcParams()) {
    Guarded("SofteKBPanel", 0, [&] {
      const auto publish = [params](const char* name, TKeyMask mask) {
        params->SetInt(name, static_cast<std::int32_t>(mask));
      };
      publish("SofteKBPanelStatePermits", state);
      publish("SofteKBPanelAllowKeys", allowed);
      publish("SofteKBPanelRepKeys", led);
      publish("SofteKBPanelBlinkKeys", leds);
    });
  }
  return leds;
}

// --- the one manager ---

TKBPManager* KBPManager() { return ManagerSlot().get(); }
void StartKBPManager() { ManagerSlot() = std::make_unique<TKBPManager>(); }
void FreeKBPManager() { ManagerSlot().reset(); }

}  // namespace ixocamglue
