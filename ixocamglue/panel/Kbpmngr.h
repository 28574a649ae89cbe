// The keyboard panel manager: may a press of a panel key reach the cutting system, which command does it send, is the
// key's LED lit. Permission is what four masks have in common: the client's (the form on screen), the alarms', the
// machine state's and the maintenance warning's.
//
// GetLEDState may be called by any thread; it holds the manager's lock while it reads devices, alarms and parameters,
// because two refreshes must not mix their blink phases. Presses, releases, SetAlt, SetClientPermit, SetCPMByForm and
// SafeExec belong to the user-interface thread and take no lock: a device that hangs in a refresh never holds up a stop
// key. Masks, commands and alt flags are atomics, so both sides always see whole values.
//
// No operation throws but SafeExec, and that only what its procedure throws.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "ixocamglue/panel/Kbpkeys.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

class TNcForbidTypeRegistry;

// What each of the manager's masks means; their numbers are given.
inline constexpr std::int32_t kMapAlarmPermit = 1;
inline constexpr std::int32_t kMapBlink = 2;
inline constexpr std::int32_t kMapClientPermit = 3;
inline constexpr std::int32_t kMapLed = 4;  // the key's function is active
inline constexpr std::int32_t kMapAlwaysLit = 5;
inline constexpr std::int32_t kMapStatePermit = 6;
inline constexpr std::int32_t kMapWarningPermit = 7;
inline constexpr std::int32_t kMaps = 8;

inline constexpr TKeyMask kNoChange = 0xF0000000;  // Kept: SetClientPermit then changes nothing
inline constexpr std::string_view kReturnOrgWindow = "DlgAppInitReturnOrg";
inline constexpr std::uint32_t kPanelKeyMessage = 1275;
inline constexpr std::string_view kNoForbidden = "NoForbidden";
inline constexpr std::string_view kAllowKeys = "KBPManagerAllowKeys";

inline constinit TText SMsgKBPanelNotAllowKeyDown1{"CamGlue", "SMsgKBPanelNotAllowKeyDown1",
                                                   "当前界面不允许使用该按键"};
inline constinit TText SMsgKBPanelNotAllowKeyDown2{"CamGlue", "SMsgKBPanelNotAllowKeyDown2",
                                                   "当前存在报警，该按键的操作可能无法执行"};
inline constinit TText SMsgKBPanelNotAllowKeyDown3{"CamGlue", "SMsgKBPanelNotAllowKeyDown3",
                                                   "当前机床状态不允许使用该按键"};
inline constinit TText SMsgKBPanelNotAllowKeyDown4{"CamGlue", "SMsgKBPanelNotAllowKeyDown4",
                                                   "存在未处理的维护警告，不允许使用该按键"};
inline constexpr auto kKBPTexts = TextList(SMsgKBPanelNotAllowKeyDown1, SMsgKBPanelNotAllowKeyDown2,
                                           SMsgKBPanelNotAllowKeyDown3, SMsgKBPanelNotAllowKeyDown4);

// What becomes of a press.
//
//   stop key | client (3) | alarm (1) | state (6) | warning (7) | verdict
//   ---------+------------+-----------+-----------+-------------+---------------------
//   yes      | -          | -         | -         | -           | pvSent
//   no       | 0          | -         | -         | -           | pvClientRefuses
//   no       | 1          | 0         | -         | -           | pvSentUnderAlarm: reported, and sent all the same
//   no       | 1          | 1         | 0         | -           | pvStateRefuses
//   no       | 1          | 1         | 1         | 0           | pvWarningRefuses
//   no       | 1          | 1         | 1         | 1           | pvSent
enum class TPressVerdict : std::uint8_t { pvSent, pvSentUnderAlarm, pvClientRefuses, pvStateRefuses, pvWarningRefuses };
using enum TPressVerdict;

[[nodiscard]] TPressVerdict JudgePress(TKeyCode key, TKeyMask client, TKeyMask alarm, TKeyMask state, TKeyMask warning);
// The text that a verdict shows the operator; null for pvSent.
[[nodiscard]] const TText* VerdictText(TPressVerdict verdict);

class TKBPManager;

// One key. Owned by the manager, for its life.
class TKBPKeyItem {
 public:
  TKBPKeyItem(TKBPManager& manager, TKeyCode key) : FManager(manager), FKeyCode(key) {}
  TKBPKeyItem(const TKBPKeyItem&) = delete;
  TKBPKeyItem& operator=(const TKBPKeyItem&) = delete;

  [[nodiscard]] TKeyCode KeyCode() const { return FKeyCode; }
  [[nodiscard]] TKeyMask Mask() const { return KeyBit(FKeyCode); }
  // The key's bit in mask i, 0 to 7; another one has none.
  [[nodiscard]] bool GetBit(std::int32_t i) const;
  void SetBit(std::int32_t i, bool on);  // nothing for another i

  void SetCommands(std::int32_t normal, std::int32_t alt);
  void SetNormalCmd(std::int32_t command) { FNormalCmd.store(command, std::memory_order_release); }
  [[nodiscard]] std::int32_t NormalCmd() const { return FNormalCmd.load(std::memory_order_acquire); }
  // The alt command in alt mode where there is one, else the normal command; 0: none.
  [[nodiscard]] std::int32_t GetCMD() const;
  [[nodiscard]] bool GetIsAlt() const { return FIsAlt.load(std::memory_order_acquire); }
  void SetAlt(bool isAlt, bool blink);

  [[nodiscard]] bool IsDown() const;
  [[nodiscard]] bool IsStopKey() const { return (Mask() & kStopKeys) != 0; }

  void KeyDown(std::int32_t param);
  void KeyUp();  // sends the present command, unchecked

 private:
  TKBPManager& FManager;
  const TKeyCode FKeyCode;
  std::atomic<std::int32_t> FAltCmd{0};
  std::atomic<std::int32_t> FNormalCmd{0};
  std::atomic<bool> FIsAlt{false};
};

class TKBPManager {
 public:
  static constexpr std::uint64_t kBlinkHalfMs = 500;

  TKBPManager();
  TKBPManager(const TKBPManager&) = delete;
  TKBPManager& operator=(const TKBPManager&) = delete;

  // Null for what is no key; then nothing else does anything either.
  [[nodiscard]] TKBPKeyItem* KeyItem(TKeyCode key);
  void KBKeyDown(TKeyCode key, std::int32_t param);
  void KBKeyUp(TKeyCode key);

  // Mask i, 0 to 7; another i reads 0 and cannot be written.
  [[nodiscard]] TKeyMask GetMap(std::int32_t i) const;
  void SetMap(std::int32_t i, TKeyMask value);  // nothing for another i

  // The client's mask (i = 3; another one as of SetMap) with stop and emergency stop added, published, then with the K
  // keys whose command is not forbidden added. kNoChange changes nothing.
  void SetClientPermit(std::int32_t i, TKeyMask mask);
  // A form is shown: its mask, and the one before is remembered under its name. It is hidden: the remembered one.
  void SetCPMByForm(std::string_view formName, bool isFormShow);
  // Only the stop keys while `proc` runs.
  // Kept: what `proc` throws passes, and the client mask is then not restored.
  void SafeExec(const std::function<void()>& proc);

  // Refreshes masks 1, 6, 4 and 7, publishes them as NC parameters, and returns the keys that are lit at this moment.
  TKeyMask GetLEDState();
  // Hands the forbidden-key registry the commands that the client mask permits.
  void ChangeAllowKeys();
  [[nodiscard]] TKeyMask CurKeyBits() const;

  // The refreshes one by one; part of GetLEDState.
  void UpdateAlarmPermit();
  void UpdateStatePermit();
  void UpdateRepState();
  void UpdateWarningPermit();
  // What UpdateAlarmPermit would store under these alarms; null: none stand.
  [[nodiscard]] TKeyMask AlarmPermitUnder(TNcAlarms* alarms) const;
  // What SetClientPermit would store for this mask; `registry` has the commands in force then.
  [[nodiscard]] TKeyMask ClientPermitUnder(TKeyMask mask, TNcForbidTypeRegistry& registry) const;
  // What UpdateStatePermit would store in this state.
  [[nodiscard]] TKeyMask StatePermitIn(TCutState state) const;

 private:
  friend class TKBPKeyItem;

  void AllowKeys(TKeyMask permit, TNcForbidTypeRegistry& registry) const;
  // The K keys whose command is not forbidden.
  [[nodiscard]] TKeyMask PermittedKKeys(const TNcForbidTypeRegistry* registry) const;
  // The first key outside K1 to K4 with the command of this one; null: none, or no command.
  [[nodiscard]] const TKBPKeyItem* SameCommand(const TKBPKeyItem& k) const;
  [[nodiscard]] const TKBPKeyItem& Item(TKeyCode key) const { return *FItems[KeyIndex(key)]; }

  // constant after construction
  std::array<std::unique_ptr<TKBPKeyItem>, kKeys> FItems;

  std::array<std::atomic<TKeyMask>, kMaps> FMaps{};

  // user-interface thread
  std::map<std::string, TKeyMask, std::less<>> FOpened;  // the client mask from before each form

  TCriticalSection FLock;
  std::uint64_t FBlinkAt IXO_GUARDED_BY(FLock) = 0;  // monotonic ms of the last restart of the phase
};

// The manager of this process; null outside the library's life.
[[nodiscard]] TKBPManager* KBPManager();

// The library's life makes and frees it.
void StartKBPManager();
void FreeKBPManager();

}  // namespace ixocamglue
