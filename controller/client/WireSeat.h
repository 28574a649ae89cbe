// A panel of keys on the controller that runs. What is asked of it, is asked on a thread of this seat, so that a
// controller that is slow holds up neither the panel nor its stop keys: those go out on a connection of their own.
// Whoever presses takes over control. Leaving stops nothing that runs: held keys come up, and an emergency stop that
// the panel has not taken yet switches everything off.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "controller/client/ClientLease.h"
#include "controller/client/WireKeys.h"
#include "controller/panel/PanelSeat.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {

// A form on screen for the life of this object: `form`, or, where it is empty, Work if there is none. With the lease.
// Throws EProblem as the client does; its end throws nothing.
class TWireForm {
 public:
  TWireForm(TWireClient& client, const nlohmann::ordered_json& panel, const std::string& form);
  ~TWireForm();
  TWireForm(const TWireForm&) = delete;
  TWireForm& operator=(const TWireForm&) = delete;

  // In the place of the one that this has shown.
  void Show(const std::string& form);

 private:
  void Set(const std::string& form, bool open);

  TWireClient& FClient;
  std::string FShown;  // empty: nothing
};

// What came of a key that was held.
struct THeldPress {
  nlohmann::ordered_json Answer;  // of the press
  std::int64_t HeldMs = 0;
  std::optional<TProblem> Problem = {};  // it has come up by itself
};
// Holds a key for `ms`, or until `stops`; `form`: empty, as TWireForm. Keys that need the lease take it over. Throws
// EProblem as the client does.
[[nodiscard]] THeldPress HoldKey(TWireClient& client, TKeyCode key, std::int32_t param, const std::string& form,
                                 std::uint64_t ms, const std::function<bool()>& stops);

class TWireSeat final : public IPanelSeat {
 public:
  // Throws EProblem when the controller does not answer or lets nobody press. The client outlives the seat, and is the
  // seat's alone meanwhile.
  TWireSeat(TWireClient& client, const std::string& form);
  ~TWireSeat() override;
  TWireSeat(const TWireSeat&) = delete;
  TWireSeat& operator=(const TWireSeat&) = delete;

  [[nodiscard]] bool ActsWhileHeld(TKeyCode key) const override;
  void Press(TKeyCode key) override;
  void PressAgain(TKeyCode key) override { Do({TAction::acAgain, key}); }
  void Release(TKeyCode key) override { Do({TAction::acRelease, key}); }
  void ResetByHand() override { Do({TAction::acReset, {}}); }
  void SwitchAlt() override { Do({TAction::acAlt, {}}); }
  void NextForm() override { Do({TAction::acForm, {}}); }
  void Alive() override;
  [[nodiscard]] TPanelView View() override;
  void Leave() override;

 private:
  struct TAction {
    enum TKind : std::uint8_t { acPress, acAgain, acRelease, acReset, acAlt, acForm } Kind = acPress;
    TKeyCode Key{};
  };
  using TJson = nlohmann::ordered_json;

  void Do(TAction action);
  void AllOff();  // where an emergency stop waits, past the panel; throws EProblem
  void Say(const std::string& text);

  // The seat's thread.
  void Run();
  void Carry(const TAction& action);
  void TakeControl();
  void KeepControl();
  void Take(const TWireEvent& event);
  void Look();
  void LookAt(const TJson& panel);

  TWireClient& FClient;
  TWireClient FStops;
  TWireEvents FEvents;
  std::optional<TClientLease> FLease;
  std::optional<TWireKeys> FKeys;
  std::optional<TWireForm> FForm;
  std::array<std::atomic<std::int32_t>, kKeys> FCommands{};  // as the panel says
  TKeyMask FOn = 0;                                          // keys whose thing is switched on
  std::uint64_t FLookAtMs = 0;
  std::uint64_t FKeepAtMs = 0;
  bool FStale = false;
  TLastLines FLog;
  std::atomic<std::uint64_t> FEmergencyMs{0};  // since when an emergency stop waits to be taken; 0: none does
  std::atomic<bool> FEnd{false};
  TCriticalSection FLock;
  TPanelView FView IXO_GUARDED_BY(FLock);
  std::deque<TAction> FActions IXO_GUARDED_BY(FLock);
  std::exception_ptr FFailure IXO_GUARDED_BY(FLock);
  std::thread FThread;  // last: what it uses is there
};

}  // namespace ixocontroller
