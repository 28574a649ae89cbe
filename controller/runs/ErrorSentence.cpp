#include "controller/runs/ErrorSentence.h"

#include <string_view>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
using namespace ixocamglue;
namespace {

// The first row whose parts stand in the line; the sentence's argument is what is between them, up to the line's end
// where there is no second part.
constexpr struct {
  std::string_view Before, Behind;
  const char* Sentence;
} kFixedLines[] = {
    {"", ": TStateMotion.Motion Result = mstpError, 将退出", TrMark("the step \"%s\" does not go on and is left")},
    {"Exec error(", "", TrMark("the procedure ends with an error")},
    {"Exec Stop(", "", TrMark("the procedure ends because it was stopped")},
    {"Exec Pause(", "", TrMark("the procedure ends because it was paused")},
    {"Exec Alarm(", "", TrMark("the procedure ends because of an alarm")},
    {"TCustomMotionState.CheckEnterAlarm", "", TrMark("an alarm keeps the procedure from starting")},
    {"TCustomMotionState.CheckStateAlarm", "", TrMark("an alarm stands that the procedure does not ignore")},
    {"; AlarmDesc = ", "; AlarmID", TrMark("a new alarm came that the procedure does not ignore: %s")},
    {"busy condition ", ": time limit exceeded", TrMark("what the machine waits for has not come in time")},
    {"被执行了强制退出操作: ", "", TrMark("a step was left by force: %s")},
    {"被执行了强制退出操作", "", TrMark("a step was left by force")},
    {"TCustomMotionState.StepDone", "", TrMark("a step failed with an exception; the procedure ends")},
    {"TCustomMotionState.ChangeNext", "", TrMark("ending the procedure failed; the machine goes to standby")},
    {"ChangeState 函数报错，无法处理", "", TrMark("changing the machine's state failed")},
    {"motion observer: ", "", TrMark("what looks on at the procedure failed: %s")},
    {"panel: ", " cannot be read", TrMark("panel: %s cannot be read")},
    {"JogSpeed too low", "", TrMark("the jog speed is too low")},
    {", end: ", "", TrMark("switching off at the controller's end failed: %s")},
};

// "Move XY(131): X is out of range" without the step's number; empty: the line is none of a step.
std::string StepSentence(std::string_view line) {
  const std::size_t end = line.find("): ");
  if (end == std::string_view::npos) return {};
  const std::size_t begin = line.rfind('(', end);
  if (begin == std::string_view::npos || begin + 1 == end ||
      line.substr(begin + 1, end - begin - 1).find_first_not_of("0123456789") != std::string_view::npos)
    return {};
  return Format(Tr("step \"%s\": %s"), std::string(line.substr(0, begin)).c_str(),
                std::string(line.substr(end + 3)).c_str());
}

}  // namespace

std::string ErrorSentence(const std::string& line) {
  for (const auto& fixed : kFixedLines) {
    const std::size_t before = line.find(fixed.Before);
    if (before == std::string::npos) continue;
    const std::size_t begin = before + fixed.Before.size();
    const std::size_t end = fixed.Behind.empty() ? line.size() : line.find(fixed.Behind, begin);
    if (end != std::string::npos) return Format(Tr(fixed.Sentence), line.substr(begin, end - begin).c_str());
  }
  const std::string step = StepSentence(line);
  return step.empty() ? line : step;
}

}  // namespace ixocontroller
