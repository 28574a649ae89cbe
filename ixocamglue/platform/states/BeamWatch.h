// The watch over the beam: what forbids that laser or emission stays asked for, from the facts in TNcWatch, the alarms'
// permissions and the latch. It reads atomics, calls no device but the latch's LatchReason, and allocates only a text.
//
//   laser or emission asked for, and  | cause       | ends the state with
//   ----------------------------------+-------------+---------------------
//   AllowLaser is false               | bcForbidden | srAlarm
//   the latch has tripped             | bcLatched   | srError
//   emission lost, the laser asked for| bcLost      | srError
//   an ask of either was refused      | bcRefused   | srError
//
// The first that applies. Without TNcAlarms nothing is forbidden. Emission that was asked for and never came is not
// lost. The aiming light is nobody's business here. What only judges facts is for any thread.
#pragma once

#include <cstdint>
#include <string>

#include "ixocamglue/platform/states/NcWatch.h"

namespace ixocamglue {

enum class TBeamCause : std::uint8_t { bcNone, bcForbidden, bcLatched, bcLost, bcRefused };
using enum TBeamCause;

struct TBeamFacts {
  bool LaserAsked = false;
  bool EmissionAsked = false;
  bool Allowed = true;
  bool Latched = false;
  bool EmissionLost = false;
  bool Refused = false;

  // As they are now. Any thread.
  [[nodiscard]] static TBeamFacts Read(const TNcWatch& watch);
};

[[nodiscard]] TBeamCause JudgeBeam(const TBeamFacts& facts);
[[nodiscard]] std::int32_t BeamReason(TBeamCause cause);    // srDone for bcNone
[[nodiscard]] std::string BeamCauseText(TBeamCause cause);  // for operators; empty for bcNone

// What the state framework remembers between its looks, so that a cause counts also where its beam was switched off
// within the same tick. State thread.
class TBeamWatch {
 public:
  explicit TBeamWatch(TNcWatch& watch) : FWatch(watch) {}

  // What is asked for now counts in the next look.
  void Remember();
  // What ends the beam that is asked for, or was at the last look. `forbidden`: an alarm forbade the laser meanwhile,
  // whether it stands still or not.
  [[nodiscard]] TBeamCause Look(bool forbidden = false);
  // A state is entered that knows nothing of what was before.
  void Restart();

 private:
  TNcWatch& FWatch;
  bool FLaserAsked = false;
  bool FEmissionAsked = false;
};

// No alarm forbids the laser; without alarms nothing does. Any thread, at once.
[[nodiscard]] bool LaserAllowed();

// For a laser's adapter, within EmissionOn and SwitchLaser(true), as late as it can: why they must do nothing and be
// noted as refused, a literal; null where they may go on. Any thread, at once.
[[nodiscard]] const char* LaserForbidden();

}  // namespace ixocamglue
