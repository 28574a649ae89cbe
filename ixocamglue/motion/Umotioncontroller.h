// Machine state 204: runs one motion procedure. It hands every event of the state framework to the procedure's root
// step and turns the root's answers into busy conditions and into the next machine state.
//
// State thread, except StopExec (any thread) and SetStateMotion (the thread that then requests state 204, while no
// procedure runs). No exception leaves an operation, except InitState without a root (a refused entry).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ixocamglue/motion/Usteptree.h"
#include "ixocamglue/platform/states/NcParams.h"
#include "ixocamglue/platform/states/NcState.h"

namespace ixocamglue {

inline constexpr std::int32_t nsCustomMotion = 204;

enum class TMotionExecType : std::int8_t { metError = -1, metSuccess = -2, metStop = -3, metPause = -4, metAlarm = -5 };
using enum TMotionExecType;

// How the last procedure ended, for the application that started it.
struct TMotionOutcome {
  TMotionExecType Type = metError;
  std::string Path;   // root to leaf, as GetErrorDesc tells it
  std::string Fault;  // what an exception said, when one ended it
  std::int32_t NextState = nsStandby;
};

class TCustomMotionState : public TNcStateCtrl {
 public:
  using TNcStateCtrl::TNcStateCtrl;

  // Makes `motion` the root; success returns to the cutting system's present state, anything else to standby unless
  // the caller sets another error state afterwards. Null releases the root.
  static void SetStateMotion(std::shared_ptr<IStateMotion> motion);

  bool CheckEnterAlarm(std::int32_t param) override;
  bool CheckNewAlarm(const TNcAlarmRecord& alarm) override;
  bool CheckStateAlarm() override;
  void InitState(std::int32_t param) override;
  void LeaveState(std::int32_t param) override;
  void StepDone(std::int32_t reason) override;
  void StopExec() override;
  void UpdateThread(std::uint32_t& loopDelay) override;
  std::string StateName() override;

  void ChangeNext(TMotionExecType type);
  // csbtEnsure never replaces a more specific wait; any other value does.
  void SetCustomBusyType(TCustomBusyType type);
  // Throws EDesignFault, for StepDone's guard, when the device to wait for is missing.
  void SetCustomStateBusy(TCustomBusyType type);
  void ErrorLeave();
  [[nodiscard]] static std::int32_t GetStateID();  // the root's id, -1 without a root

  // Whether the last run of a procedure succeeded; kept in NcParams under "CustomMotionStateExecOK" and the id.
  static void SetExecOK(std::int32_t stateId, bool value);
  [[nodiscard]] static bool GetExecOK(std::int32_t stateId, bool defValue);

  [[nodiscard]] TCustomBusyType CustomBusyType() const { return FCustomBusyType; }
  [[nodiscard]] const TMotionOutcome& Outcome() const { return FOutcome; }

 private:
  void Tick(const std::shared_ptr<IStateMotion>& root, std::int32_t reason);
  [[nodiscard]] std::int32_t NextState(TMotionExecType type, const std::shared_ptr<IStateMotion>& root);
  void LogOutcome(TMotionExecType type, IStateMotion& root);
  void FindExecOK(IStateMotion& root);
  [[nodiscard]] TNcParams::TBoolSlot* ExecOK(IStateMotion& root);

  bool FStateLoaded = false;
  TCustomBusyType FCustomBusyType = csbtInit;
  TMotionOutcome FOutcome;
  // The success flag's place in the parameter store, looked up once per root.
  TNcParams::TBoolSlot* FExecOK = nullptr;
  const IStateMotion* FExecOKOf = nullptr;
};

// The unit's start-up and finalisation, called by the library's life: registers state 204 and holds the root.
void StartMotionController();
void FreeMotionController();

}  // namespace ixocamglue
