// What becomes of the panel's key commands, and a demonstration part: a square of 200 mm that is cut, run dry or walked
// around, paused, resumed and stopped.
//
// Key commands come from any thread and take effect at once where that is safe: devices are switched, and everything
// that stops is stopped, on the caller's thread, so that neither needs a state thread that still runs. What moves is a
// machine state of the framework (KeyStates.h), entered in its next pass. A command is refused, with a line in the
// journal and one in the log, by the forbidden-key set in force, the emergency stop, the machine's state, or the
// standing alarms.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "ixocamglue/platform/Machine.h"
#include "ixocamglue/platform/ports/CutStates.h"
#include "ixocamglue/platform/ports/CutSystem.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/ports/NcAlarms.h"
#include "ixocamglue/platform/ports/PanelPorts.h"
#include "ixocamglue/platform/states/ForbidTypes.h"
#include "ixocamglue/platform/states/NcState.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;

// How a run of the part begins; the parameter of its states.
enum TPartRun : std::int32_t { srFresh = 0, srResumed = 1, srLocate = 2 };

class TKeyCommands final : public TNcKeyCommands, public TNcEmergencyStop {
 public:
  // Installs both services and registers the states for its own life.
  TKeyCommands(TNcStateFramework& framework, TNcRegistry& registry, IMachineObserver& journal);
  ~TKeyCommands() override;
  TKeyCommands(const TKeyCommands&) = delete;
  TKeyCommands& operator=(const TKeyCommands&) = delete;

  // --- any thread ---
  void KeyDown(std::int32_t command) override;
  void KeyUp(std::int32_t command) override;
  // Pressed now, it switches something off that is on or asked for. Throws what the device throws.
  [[nodiscard]] bool SwitchesOff(std::int32_t command) const;
  // Why a command is refused: in the words of the journal and in the operator's language. Empty: it is not.
  struct TWhyNot {
    std::string Journal, Shown;
    bool ByAlarm = false;  // a standing alarm is the reason
    TWhyNot() = default;
    TWhyNot(const char* english, bool byAlarm = false) : Journal(english), Shown(Tr(english)), ByAlarm(byAlarm) {}
    TWhyNot(std::string journal, std::string shown) : Journal(std::move(journal)), Shown(std::move(shown)) {}
    [[nodiscard]] bool Refused() const { return !Journal.empty(); }
  };
  // What a command meets: as it is, or as somebody supposes it.
  struct TMet {
    std::int32_t State = 0;
    TNcAlarms* Alarms = NcAlarms();                                   // null: none stand
    const TNcForbidTypeRegistry* Forbidden = NcForbidTypeRegistry();  // null: nothing is forbidden
  };
  // A stop key never is, and no device is asked for it. What only shows when it is tried (a state that is just
  // changing, a shutter that is closed) does not count. Throws what the device throws.
  [[nodiscard]] TWhyNot WhyNot(std::int32_t command, const TMet& met) const;
  bool IsActive() override { return FEmergency.load(std::memory_order_acquire); }
  // The emergency-stop input. Active stops everything and trips the laser's latch; it stays so until it is reset by
  // hand, which resets its own trip of the latch too, and no other.
  void SetEmergencyStop(bool active);

  // --- state thread, for the states ---
  // The jog key that is held, with a number that each press changes; 0: none.
  [[nodiscard]] std::uint64_t Held() const { return FHeld.load(std::memory_order_acquire); }
  [[nodiscard]] static std::int32_t HeldCommand(std::uint64_t held) { return static_cast<std::int32_t>(held); }

  struct TProgress {
    TCutState Mode = csStandby;  // csStandby: nothing was interrupted
    std::size_t Edge = 0;        // of the square, 0 to 3
    TPoint2 Point;               // where it goes on
  };
  [[nodiscard]] const TProgress& Progress() const { return FProgress; }
  void SetProgress(const TProgress& progress);

 private:
  [[nodiscard]] TWhyNot WhyNot(std::int32_t command, const TMet& met, bool off) const;
  void Refuse(std::int32_t command, const TWhyNot& why);
  void Note(std::string_view text);
  void Request(std::int32_t command, TCutState state, std::int32_t param);
  void Carry(std::int32_t command, bool off);
  void StartJog(std::int32_t command);
  void Resume(std::int32_t command, std::int32_t run);
  void SwitchDevice(std::int32_t command, bool off);
  void LightByHand(std::int32_t command);
  [[nodiscard]] bool StaysByHand() const;
  void StopMotion() noexcept;
  void StopAll() noexcept;
  void EndHeld() noexcept;

  TNcStateFramework& FFramework;
  TNcRegistry& FRegistry;
  IMachineObserver& FJournal;
  std::atomic<bool> FEmergency{false};
  std::atomic<std::uint64_t> FHeld{0};
  std::atomic<std::uint32_t> FPresses{0};
  std::atomic<bool> FJogLaser{false};              // its key is held
  std::atomic<std::uint32_t> FJogBeam{0};          // which span of LaserAsked is its beam
  std::atomic<TCutState> FInterrupted{csStandby};  // FProgress.Mode, for any thread
  TProgress FProgress;                             // state thread
  const TInstalled<TNcKeyCommands> FKeysInstalled{*this};
  const TInstalled<TNcEmergencyStop> FEmergencyInstalled{*this};
};

}  // namespace ixocontroller
