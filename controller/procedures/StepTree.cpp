#include "controller/procedures/StepTree.h"

#include <algorithm>
#include <cmath>

#include "controller/procedures/Procedures.h"

namespace ixocontroller {
namespace {

// Of a step that has a number in the table.
nlohmann::ordered_json StepParams(TStateMotion& step) {
  auto params = nlohmann::ordered_json::object();
  const TProcedure* const row = FindProcedure(step.GetID());
  if (!row) return params;
  for (const TMotionParam& param : row->Params) {
    const double value = param.At.Get ? param.At.Get(step) : kUnset;
    if (std::isnan(value)) continue;
    if (param.At.Kind == pkSwitch)
      params[param.Name] = value != 0.0;
    else if (param.At.Kind == pkWhole)
      params[param.Name] = static_cast<std::int64_t>(value);
    else
      params[param.Name] = value;
  }
  return params;
}

TStepNode StepNode(TStateMotion& step, std::string desc) {
  TStepNode node{step.GetID(), std::string(step.ClassName()), std::move(desc), StepParams(step), false, false, {}};
  auto* const composite = dynamic_cast<TSmtComposite*>(&step);
  if (!composite) return node;
  node.BuiltLate = composite->GetStep() == mstpUnbuilt;
  if (node.BuiltLate) composite->DoInitMotion();  // what its entry would do
  node.Failed = composite->GetStep() == mstpError;
  const auto& children = composite->MotionList();
  const auto& descs = composite->Descs();
  for (std::size_t i = 0; i < children.size(); ++i)
    node.Children.push_back(StepNode(*children[i], i < descs.size() ? descs[i] : children[i]->GetDesc()));
  return node;
}

}  // namespace

bool TStepNode::AnyFailed() const {
  return Failed || std::ranges::any_of(Children, [](const TStepNode& child) { return child.AnyFailed(); });
}

TStepNode StepTree(TStateMotion& root) { return StepNode(root, root.GetDesc()); }

nlohmann::ordered_json JsonOf(const TStepNode& node) {
  nlohmann::ordered_json json{
      {"command", node.Command}, {"class", node.Class}, {"description", node.Desc}, {"parameters", node.Params}};
  if (node.BuiltLate) json["builtLate"] = true;
  if (node.Failed) json["failed"] = true;
  if (!node.Children.empty()) {
    auto& children = json["children"] = nlohmann::ordered_json::array();
    for (const TStepNode& child : node.Children) children.push_back(JsonOf(child));
  }
  return json;
}

}  // namespace ixocontroller
