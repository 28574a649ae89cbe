#include "verify/Oracle.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "verify/Judges.h"

namespace ixoverify {
namespace {

struct TRule {
  const char* Name;
  void (*Judge)(TJudging& run);
};
constexpr TRule kRules[] = {
    {"light-after-cause", &JudgeLightAfterCause},
    {kSavedByLatch, &JudgeLatch},
    {"latched-success", &JudgeLatchedSuccess},
    {"dark-at-leave", &JudgeDarkAtLeave},
    {"light-forbidden", &JudgeLightForbidden},
    {"light-alone", &JudgeLightAlone},
    {"light-before-gas", &JudgeLightBeforeGas},
    {"promised-light", &JudgePromisedLight},
    {"cut-speed", &JudgeCutSpeed},
    {"low-travel", &JudgeLowTravel},
    {"collision", &JudgeCollision},
    {"pallet", &JudgePallet},
    {"limits", &JudgeLimits},
    {"stops", &JudgeStops},
    {"told-to-stop", &JudgeToldToStop},
    {"harmless-after-cause", &JudgeHarmless},
    {"rest", &JudgeRest},
    {"gas-after-end", &JudgeGas},
    {"outputs-after-end", &JudgeOutputs},
    {"unasked", &JudgeUnasked},
    {"states", &JudgeStates},
    {"dark-end", &JudgeEnded},
};

}  // namespace

std::vector<TFinding> CheckRun(std::span<const TJournalEntry> entries, std::span<const TJournalSample> samples,
                               const TExpectations& expected, const TSimConfig& machine) {
  const TStory story(entries, samples, expected.ProcedureState, expected.FaultAt);
  std::vector<TFinding> findings;
  if (story.Empty()) return {{"samples", Tr("nothing was sampled, so that nothing can be judged")}};
  for (const TRule& rule : kRules) {
    TJudging run{story, expected, machine, rule.Name, findings};
    rule.Judge(run);
  }
  return findings;
}

std::vector<std::string> OracleRules() {
  std::vector<std::string> names;
  for (const TRule& rule : kRules) names.emplace_back(rule.Name);
  return names;
}

}  // namespace ixoverify
