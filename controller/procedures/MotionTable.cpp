#include "controller/procedures/MotionTable.h"

#include <algorithm>

#include "ixocamglue/motion/Ustatemotion.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/ValueText.h"
#include "machines/simulated/Config.h"

namespace ixocontroller {
namespace {

std::optional<double> ParseSwitch(std::string_view text) {
  for (const std::string_view yes : {"true", "yes", "on", "1"})
    if (SameFolded(text, yes)) return 1.0;
  for (const std::string_view no : {"false", "no", "off", "0"})
    if (SameFolded(text, no)) return 0.0;
  return std::nullopt;
}

}  // namespace

std::string TMotionRow::FullName() const { return *Variant ? std::string(Name) + "-" + Variant : Name; }

std::string TMotionRow::Usage() const {
  return *Variant ? std::string(Name) + (VariantIsFlag ? " --" : " ") + Variant : Name;
}

const TMotionRow* FindMotionRow(std::string_view fullName) {
  const auto rows = MotionRows();
  const auto row = std::ranges::find_if(rows, [&](const TMotionRow& r) { return r.FullName() == fullName; });
  return row == rows.end() ? nullptr : &*row;
}

const TMotionRow* FindMotionRow(std::int32_t command) {
  const auto rows = MotionRows();
  const auto row = std::ranges::find_if(rows, [&](const TMotionRow& r) { return r.Command == command && command > 0; });
  return row == rows.end() ? nullptr : &*row;
}

TMotionLimits TMotionLimits::OfMachine(const std::filesystem::path& machineFile) {
  TMachineConfig config;
  if (const std::string problem = config.Load(machineFile); !problem.empty()) throw EProblem(pbUnusable, problem);
  std::vector<std::string> problems;
  TSimConfig machine = TSimConfig::FromConfig(config, problems);
  if (!problems.empty()) throw EProblem(pbUnusable, machineFile.string() + ": " + problems.front());
  return TMotionLimits(std::move(machine));
}

TLimits TMotionLimits::Of(const TMotionParam& param) const {
  const auto bound = [&]() -> TBound {
    switch (param.Range) {
      case prFixed: break;
      case prX: return bdAxisX;
      case prY: return bdAxisY;
      case prZ: return bdAxisZ;
      case prFocus: return bdFocus;
      case prXYSpeed: return bdXYSpeed;
      case prZSpeed: return bdZSpeed;
      case prFocusSpeed: return bdFocusSpeed;
      case prOutport: return bdFittedOutport.Or(-1.0);
      case prInport: return bdFittedInport.Or(-1.0);
      case prBranch: return bdFittedBranch;
      case prPressure: return bdPressure;
      case prFollower: return bdFollower;
    }
    return bdRange(param.Lowest, param.Highest);
  };
  return FMachine.Of(bound());
}

std::string TMotionLimits::Check(const TMotionParam& param, double value) const {
  if (param.Kind == pkSwitch) return {};
  if (!std::isfinite(value)) return "is not a finite number";
  const std::string text = NumberText(value);
  if (param.Kind == pkWhole && value != std::floor(value)) return text + " is not a whole number";
  const TLimits limits = Of(param);
  if (limits.Allows(value)) return {};
  return Format("%s is not %s %s%s%s", text.c_str(), limits.IsChoice ? "one of" : "in", limits.Text().c_str(),
                *param.Unit ? " " : "", param.Unit);
}

std::string TMotionLimits::Parse(const TMotionParam& param, std::string_view text, double& value) const {
  const std::optional<double> parsed = param.Kind == pkSwitch ? ParseSwitch(text) : ParseNumber<double>(text);
  if (!parsed)
    return Format("\"%s\" is %s", std::string(text).c_str(),
                  param.Kind == pkSwitch ? "neither true nor false" : "not a number");
  value = *parsed;
  return Check(param, value);
}

std::string TMotionLimits::CheckNeeds(const TMotionRow& row, const TMotionValues& values, const char* prefix) {
  std::string together;
  bool some = false;
  bool all = true;
  for (std::size_t i = 0; i < row.Params.size(); ++i) {
    const TMotionParam& param = row.Params[i];
    if (param.Need == TMotionParam::Required && !values[i]) return prefix + std::string(param.Name) + " is missing";
    if (param.Need != TMotionParam::Together) continue;
    together += (together.empty() ? "" : ", ") + std::string(prefix) + param.Name;
    some = some || values[i];
    all = all && values[i];
  }
  return some && !all ? together + " belong together" : std::string();
}

TStepPtr TMotionCall::Make(TCustomMotionState* ctrl) const {
  if (Row->Make) return Row->Make(ctrl, Values);
  const auto commands = MotionCommands();
  const auto command = std::ranges::find(commands, Row->Command, &TMotionCommand::Command);
  TStepPtr step = command->Make(ctrl);
  Configure(*step);
  return step;
}

void TMotionCall::Configure(TStateMotion& step) const {
  for (std::size_t i = 0; i < Row->Params.size(); ++i) {
    const TMotionParam& param = Row->Params[i];
    if (const double value = Values[i].value_or(param.Default); !std::isnan(value)) param.Set(step, value);
  }
}

std::string TMotionCall::Text() const {
  std::string text = Row->Usage();
  for (std::size_t i = 0; i < Values.size(); ++i)
    if (Values[i]) text += std::string(" --") + Row->Params[i].Name + " " + ParamText(Row->Params[i], *Values[i]);
  return text;
}

std::string ParamText(const TMotionParam& param, double value) {
  return param.Kind == pkSwitch ? (value != 0.0 ? "true" : "false") : NumberText(value);
}

}  // namespace ixocontroller
