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

enum class TMotionExecType : std::int8_t { metError = -1, metSuccess = -2, metStop = -3, metPause = -4, metAlarm = -5 };
using enum TMotionExecType;

// How the last procedure ended, for the application that started it.
struct TMotionOutcome {
  TMotionExecType Type = metError;
  std::string Path;   // root to leaf, as GetErrorDesc tells it
  std::string Fault;  // what an exception said, when one ended it
  std::string Cause;  // why it was ended from outside, when whoever did said so
  // Why the step failed, in the operator's language, and the text that it is made of; empty and null when it did not
  // say.
  std::string Why;
  const TText* Reason = nullptr;
  std::int32_t NextState = nsStandby;
};

// Looks on while procedures run, for example to know which step stands since when. Called on the state thread; it must
// not wait. What it throws is logged and changes nothing.
class IMotionObserver {
 public:
  virtual ~IMotionObserver() = default;
  // The procedure was built and enters; `root` stays until Ended.
  virtual void Entered(IStateMotion& root) = 0;
  // After a tick, before its answer is carried out (mstpError and mstpExit end the procedure); not after one that
  // threw.
  virtual void Ticked(IStateMotion& root, TStepType answer) = 0;
  // The state is left. Null: it was taken away from the procedure, which has no outcome.
  virtual void Ended(const TMotionOutcome* outcome) = 0;
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

  // Before the state thread runs; `observer` outlives it. They are called in the order in which they were added.
  void AddObserver(IMotionObserver& observer) { FObservers.push_back(&observer); }

  void ChangeNext(TMotionExecType type);
  // csbtEnsure never replaces a more specific wait; any other value does.
  void SetCustomBusyType(TCustomBusyType type);
  // Throws EDesignFault, for StepDone's guard, when the device to wait for is missing.
  void SetCustomStateBusy(TCustomBusyType type);
  void ErrorLeave();
  // A step that is about to fail says why, for the outcome.
  [[gnu::cold]] void NoteRefusal(const TText& reason, std::string_view why);
  [[nodiscard]] static std::int32_t GetStateID();  // the root's id, -1 without a root

  // Whether the last run of a procedure succeeded; kept in NcParams under "CustomMotionStateExecOK" and the id.
  static void SetExecOK(std::int32_t stateId, bool value);
  [[nodiscard]] static bool GetExecOK(std::int32_t stateId, bool defValue);

  [[nodiscard]] TCustomBusyType CustomBusyType() const { return FCustomBusyType; }
  [[nodiscard]] const TMotionOutcome& Outcome() const { return FOutcome; }

 private:
  template <class Call>
  void Tell(Call call);
  void Tick(const std::shared_ptr<IStateMotion>& root, std::int32_t reason);
  [[nodiscard]] std::int32_t NextState(TMotionExecType type, const std::shared_ptr<IStateMotion>& root);
  void LogOutcome(TMotionExecType type, IStateMotion& root);
  void FindExecOK(IStateMotion& root);
  [[nodiscard]] TNcParams::TBoolSlot* ExecOK(IStateMotion& root);

  bool FStateLoaded = false;
  bool FObserved = false;  // observers were told of an entry, and not yet of its end
  bool FEnded = false;     // FOutcome is that of the procedure that entered last
  TCustomBusyType FCustomBusyType = csbtInit;
  TMotionOutcome FOutcome;
  std::string FRefused;  // by the step that said so last, and its text
  const TText* FRefusedBy = nullptr;
  // The success flag's place in the parameter store, looked up once per root.
  TNcParams::TBoolSlot* FExecOK = nullptr;
  const IStateMotion* FExecOKOf = nullptr;
  std::vector<IMotionObserver*> FObservers;  // not owned
};

// The unit's start-up and finalisation, called by the library's life: registers state 204 and holds the root.
void StartMotionController();
void FreeMotionController();

}  // namespace ixocamglue
