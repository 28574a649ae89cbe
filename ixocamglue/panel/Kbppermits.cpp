// The four masks that the manager refreshes from the machine: alarms, machine state, functions, maintenance warning.
#include <utility>

#include "ixocamglue/panel/Kbpmngr.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/xml/JogSections.h"

namespace ixocamglue {
namespace {

constexpr std::int32_t kAxisX = 0;
constexpr std::int32_t kAxisY = 1;

constexpr TKeyMask kAllOurs = Run(0, kKeys - 1);
constexpr TKeyMask kJogKeys = Run(KeyIndex(CK_FORWARD), KeyIndex(CK_Z_DOWN));
constexpr TKeyMask kCalibrations = KeyBit(CK_CALIBRATION) | KeyBit(CK_CUR_POS_AUTO_CALIBRATION);
constexpr TKeyMask kKnobAndStops = kStopKeys | KeyBit(CK_KNOB);
constexpr TKeyMask kByHand = Run(KeyIndex(CK_SHUTTER), KeyIndex(CK_GAS)) | kJogKeys | KeyBit(CK_JOG_LASER);
constexpr TKeyMask kKKeys = Run(KeyIndex(CK_K1), KeyIndex(CK_K4));

// Keys that no alarm blocks.
constexpr TKeyMask kNoAlarmBlocks = KeyBit(CK_AIMING) | KeyBit(CK_GAS) | kKnobAndStops | kKKeys;

// What a device or a service answers; the safe value when it fails.
template <class Value, class Read>
Value Ask(Value safe, const char* what, Read read) noexcept {
  try {
    return read();
  } catch (...) {
    if (TDiag d{dlError}) d("panel: %s cannot be read", what);
    return safe;
  }
}

TKeyMask When(bool condition, TKeyMask keys) { return condition ? keys : 0; }

TCutState PresentState() {
  return Ask(csOther, "the state of the cutting system", [] {
    TNcCutSystem* const cut = CutSystem();
    return cut ? ClassifyCutState(cut->GetState()) : csOther;
  });
}

bool IsFollowing(TNcCutSystem* cut) {
  TNcMultiFollower* const followers = cut ? cut->MultiFollower() : nullptr;
  TNcFollower* follower = followers ? followers->GetFollower(0) : nullptr;
  if (!follower) follower = GFollower();
  return follower && follower->IsFollowing();
}

}  // namespace

const TKBPKeyItem* TKBPManager::SameCommand(const TKBPKeyItem& k) const {
  const std::int32_t command = k.GetCMD();
  if (command == 0) return nullptr;
  for (const auto& item : FItems)
    if ((item->Mask() & kKKeys) == 0 && item->GetCMD() == command) return item.get();
  return nullptr;
}

void TKBPManager::UpdateAlarmPermit() { SetMap(kMapAlarmPermit, AlarmPermitUnder(NcAlarms())); }

TKeyMask TKBPManager::AlarmPermitUnder(TNcAlarms* alarms) const {
  const auto allow = [&](auto permission) {
    return !alarms || Ask(false, "an alarm permission", [&] { return permission(*alarms); });
  };
  const auto moves = [&](std::int32_t axis, bool positive, TKeyCode key) {
    return When(allow([&](TNcAlarms& a) { return a.AllowMoveAxis(axis, positive); }), KeyBit(key));
  };
  const bool cut = allow([](TNcAlarms& a) { return a.AllowCut(); });
  const bool laser = allow([](TNcAlarms& a) { return a.AllowLaser(); });
  const bool follower = allow([](TNcAlarms& a) { return a.AllowFollower(); });
  const bool homing = allow([](TNcAlarms& a) { return a.AllowHoming(); });
  const bool move = allow([](TNcAlarms& a) { return a.AllowMove(); });
  const TJogSections* const jog = JogSections();
  const std::int32_t axisZ = jog ? jog->ZAxisNo() : TJogZSection{}.AxisNo;

  TKeyMask permit = kNoAlarmBlocks;
  permit |= When(laser, KeyBit(CK_SHUTTER) | KeyBit(CK_LASER));
  permit |= When(follower, KeyBit(CK_FOLLOW) | kCalibrations);
  permit |= When(homing && (move || Item(CK_RETURN0).GetIsAlt()), KeyBit(CK_RETURN0));
  permit |= When(move, KeyBit(CK_WALKAROUND) | KeyBit(CK_DRY_CUT) | KeyBit(CK_BREAK_LOCATE));
  permit |= moves(kAxisX, false, CK_LEFT) | moves(kAxisX, true, CK_RIGHT);
  permit |= moves(kAxisY, false, CK_BACK) | moves(kAxisY, true, CK_FORWARD);
  permit |= moves(axisZ, false, CK_Z_DOWN) | moves(axisZ, true, CK_Z_UP);
  permit |= When(cut, KeyBit(CK_START) | KeyBit(CK_RESUME) | KeyBit(CK_JOG_LASER));
  return permit;
}

void TKBPManager::UpdateStatePermit() { SetMap(kMapStatePermit, StatePermitIn(PresentState())); }

TKeyMask TKBPManager::StatePermitIn(TCutState state) const {
  if (state == csStandby) return kAllOurs;
  if (state == csOther) return kKnobAndStops;
  TKeyMask permit = kKnobAndStops;
  permit |= When(state == csPaused || state == csJogging, kByHand);
  permit |= When(state == csReturnOrg, KeyBit(CK_RETURN0));
  permit |= When(state == csWalkAround, KeyBit(CK_WALKAROUND));
  permit |= When(state == csWorking, KeyBit(CK_START));
  permit |= When(state == csDryRun, KeyBit(CK_DRY_CUT));
  permit |= When(state == csPaused, KeyBit(CK_RESUME) | KeyBit(CK_BREAK_LOCATE));
  permit |= When(state == csCalibration, kCalibrations);
  for (const TKeyDef& def : kKeyDefs) {
    const TKBPKeyItem& k = Item(def.Key);
    const TKBPKeyItem* const same = SameCommand(k);
    const TKeyMask decides = same ? same->Mask() : KeyBit(CK_SHUTTER);
    permit |= When(k.GetCMD() == 0 || (permit & decides) != 0, k.Mask());
  }
  return permit;
}

void TKBPManager::UpdateRepState() {
  TNcCutSystem* const cut = CutSystem();
  const auto shows = [](const char* what, TKeyCode key, auto read) {
    return When(Ask(false, what, read), KeyBit(key));
  };
  TNcLaser* const laser = Ask<TNcLaser*>(nullptr, "the laser", [&] { return cut ? cut->Laser() : nullptr; });
  const TCutState state = PresentState();
  const TKeyMask down = CurKeyBits();

  TKeyMask led = down & (kJogKeys | kCalibrations | KeyBit(CK_EGYSTOP) | KeyBit(CK_RESUME) | KeyBit(CK_STOP) |
                         KeyBit(CK_JOG_LASER) | KeyBit(CK_BREAK_LOCATE));
  led |= shows("emission", CK_SHUTTER, [&] { return laser && laser->GetEmission(); });
  led |= shows("the pilot light", CK_AIMING, [&] { return laser && laser->GetAiming(); });
  led |= shows("the beam", CK_LASER, [&] { return laser && laser->GetLaser(); });
  led |= shows("the follower", CK_FOLLOW, [&] { return IsFollowing(cut); });
  led |= shows("the gas", CK_GAS, [&] {
    TNcGas* const gas = cut ? cut->Gas() : nullptr;
    return gas && gas->GetGas();
  });
  led |= shows("the emergency stop", CK_EGYSTOP, [] { return EmergencyStop() && EmergencyStop()->IsActive(); });
  led |= shows("JogFast", CK_KNOB, [] { return NcParams() && NcParams()->GetBool("JogFast", false); });
  led |= When(state == csReturnOrg, KeyBit(CK_RETURN0)) | When(state == csWalkAround, KeyBit(CK_WALKAROUND));
  led |= When(state == csWorking, KeyBit(CK_START)) | When(state == csPaused, KeyBit(CK_PAUSE));
  led |= When(state == csDryRun, KeyBit(CK_DRY_CUT)) | When(state == csCalibration, kCalibrations);
  for (const TKeyDef& def : kKeyDefs) {
    const TKBPKeyItem* const same = SameCommand(Item(def.Key));
    led |= When(((same ? led : down) & (same ? same->Mask() : KeyBit(def.Key))) != 0, KeyBit(def.Key));
  }
  SetMap(kMapLed, led);
}

void TKBPManager::UpdateWarningPermit() {
  const bool pending = Ask(true, "the maintenance warning", [] {
    TNcAlarms* const alarms = NcAlarms();
    TNcParams* const params = NcParams();
    return alarms && alarms->RequireOrg() && params && params->GetBool("ExistMaintainWarning", false);
  });
  KeyItem(CK_RETURN0)->SetBit(kMapWarningPermit, !pending);
}

}  // namespace ixocamglue
