#include "controller/procedures/ProcedureJson.h"

#include <cmath>

#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

const char* KindName(TParamKind kind) {
  switch (kind) {
    case pkNumber: return "number";
    case pkWhole: return "integer";
    case pkSwitch: return "boolean";
  }
  return "";
}

}  // namespace

TLimits ParamLimits(const TProcedure& row, const TMotionParam& param, const TMachineBounds& machine) {
  return TMotionCall{&row, TMotionValues(row.Params.size()), {}}.LimitsOf(param, machine);
}

nlohmann::ordered_json ProcedureJson(const TProcedure& row, const TMachineBounds& machine) {
  auto params = nlohmann::ordered_json::array();
  for (const TMotionParam& param : row.Params) {
    nlohmann::ordered_json item{{"name", param.Name},
                                {"type", KindName(param.At.Kind)},
                                {"unit", UnitText(param.Unit)},
                                {"summary", Tr(param.Summary)},
                                {"required", param.Need == TMotionParam::Required}};
    if (param.At.Kind != pkSwitch) {
      const TLimits range = ParamLimits(row, param, machine);
      if (range.IsChoice) {
        item["numbers"] = range.Numbers;
      } else {
        item["lowest"] = range.Lowest;
        item["highest"] = range.Highest;
      }
    }
    if (param.Need != TMotionParam::Required && !std::isnan(param.Default)) {
      if (param.At.Kind == pkSwitch)
        item["default"] = param.Default != 0.0;
      else
        item["default"] = param.Default;
    }
    params.push_back(std::move(item));
  }
  nlohmann::ordered_json item{{"name", row.Name}, {"summary", Tr(row.Summary)}};
  if (row.Command > 0) item["command"] = row.Command;
  item["parameters"] = std::move(params);
  return item;
}

}  // namespace ixocontroller
