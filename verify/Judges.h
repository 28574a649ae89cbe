// The oracle's judges: each reads a story and says what one rule forbids. One thread; nothing fails.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "verify/Oracle.h"

namespace ixoverify {

// What a judge is given, and where it tells its findings.
struct TJudging {
  const TStory& Story;
  const TExpectations& Expected;
  const TSimConfig& Machine;
  const char* Rule;
  std::vector<TFinding>& Findings;

  void Say(std::string text) { Findings.push_back({Rule, std::move(text)}); }
  void SayIf(bool is, const char* text) {
    if (is) Say(text);
  }
};

// The beam.
void JudgeLightAfterCause(TJudging& run);  // no light later than a pass after the cause, or than its hang
void JudgeLatch(TJudging& run);            // the state thread itself commands dark, unless it hangs
void JudgeLatchedSuccess(TJudging& run);   // no success with a latch that tripped in the procedure
void JudgeDarkAtLeave(TJudging& run);      // told dark before the leave, and dark from then on
void JudgeLightForbidden(TJudging& run);   // no light while an alarm forbids it
void JudgeLightAlone(TJudging& run);       // no light with calibration, pallet exchange or rack
void JudgeLightBeforeGas(TJudging& run);   // where the procedure has gas, it comes first
void JudgePromisedLight(TJudging& run);    // a success has had its light, and not more
void JudgeCutSpeed(TJudging& run);         // no faster in XY while light comes out
void JudgeEnded(TJudging& run);            // nothing shines when the controller has ended

// What moves.
void JudgeLowTravel(TJudging& run);   // no XY while a head is low, but 131, 133 in its brush, and following
void JudgeCollision(TJudging& run);   // nothing is struck
void JudgePallet(TJudging& run);      // nobody follows a pallet that leaves
void JudgeStops(TJudging& run);       // at rest within its own time after the cause, and staying so
void JudgeToldToStop(TJudging& run);  // what moved at the cause is told to stop
void JudgeRest(TJudging& run);        // nothing moves at the end

// What is asked and left behind.
void JudgeLimits(TJudging& run);    // every number that is asked for is within its limits
void JudgeHarmless(TJudging& run);  // after the cause nothing but reads, locks, stops and offs
void JudgeGas(TJudging& run);       // gas closed after the end, and at the latest when its device is mended
void JudgeOutputs(TJudging& run);   // outputs off after the end
void JudgeUnasked(TJudging& run);   // nothing is on that nobody asked for
void JudgeStates(TJudging& run);    // the procedure's state is left exactly once

}  // namespace ixoverify
