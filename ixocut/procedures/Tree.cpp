// `ixocut tree`: the step tree of a procedure, as it is built before it runs.
#include <algorithm>
#include <iostream>
#include <memory>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
#include "ixocut/procedures/Asked.h"

namespace ixocut {
namespace {

struct TTreeOptions : TControllerSettings {
  std::string Name;
  std::vector<std::string> Params;
  bool Json = false;
};

struct TNode {
  std::int32_t Command = 0;
  std::string Class;
  std::string Desc;
  nlohmann::ordered_json Params = nlohmann::ordered_json::object();
  bool BuiltLate = false;
  bool Failed = false;
  std::vector<TNode> Children;
};

// Of a step that has a number in the table.
nlohmann::ordered_json ParamsOf(TStateMotion& step) {
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

TNode NodeOf(TStateMotion& step, std::string desc) {
  TNode node{step.GetID(), std::string(step.ClassName()), std::move(desc), ParamsOf(step), false, false, {}};
  auto* const composite = dynamic_cast<TSmtComposite*>(&step);
  if (!composite) return node;
  node.BuiltLate = composite->GetStep() == mstpUnbuilt;
  if (node.BuiltLate) composite->DoInitMotion();  // what its entry would do
  node.Failed = composite->GetStep() == mstpError;
  const auto& children = composite->MotionList();
  const auto& descs = composite->Descs();
  for (std::size_t i = 0; i < children.size(); ++i)
    node.Children.push_back(NodeOf(*children[i], i < descs.size() ? descs[i] : children[i]->GetDesc()));
  return node;
}

std::string TextOf(const TNode& node) {
  std::string text = Format("%d %s  %s", node.Command, node.Class.c_str(), node.Desc.c_str());
  std::string details;
  for (const auto& [name, value] : node.Params.items())
    details += (details.empty() ? "" : ", ") + name + " " + value.dump();
  if (!details.empty()) text += "  [" + details + "]";
  if (node.BuiltLate) text += std::string("  ") + Tr("(built on entry)");
  if (node.Failed) text += std::string("  ") + Tr("(cannot be built)");
  return text;
}

void Draw(std::ostream& out, const TNode& node, const std::string& indent) {
  for (const TNode& child : node.Children) {
    const bool last = &child == &node.Children.back();
    out << indent << (last ? "└─ " : "├─ ") << TextOf(child) << '\n';
    Draw(out, child, indent + (last ? "   " : "│  "));
  }
}

nlohmann::ordered_json JsonOf(const TNode& node) {
  nlohmann::ordered_json json{
      {"command", node.Command}, {"class", node.Class}, {"description", node.Desc}, {"parameters", node.Params}};
  if (node.BuiltLate) json["builtLate"] = true;
  if (node.Failed) json["failed"] = true;
  if (!node.Children.empty()) {
    auto& children = json["children"] = nlohmann::ordered_json::array();
    for (const TNode& child : node.Children) children.push_back(JsonOf(child));
  }
  return json;
}

bool AnyFailed(const TNode& node) {
  return node.Failed || std::any_of(node.Children.begin(), node.Children.end(), AnyFailed);
}

int Run(const TTreeOptions& options, std::ostream& out) {
  if (options.Name.empty())
    throw EProblem(pbRequest, Format(Tr("NAME is missing; the procedures are: %s"), ProcedureNames().c_str()));
  const TProcedure& row = *AskProcedure(options.Name).OrThrow(pbRequest);
  const auto machine = options.Limits();
  TMotionCall call = CallOf(row, ReadParams(row, options.Params), machine.Bounds, false);
  const TMotionValues sample = row.SampleValues();
  for (std::size_t i = 0; i < sample.size(); ++i)
    if (row.Params[i].Need == TMotionParam::Required && !call.Values[i]) call.Values[i] = sample[i];
  call.CheckNeeds("--").OrThrow(pbRequest);
  // A machine and its configuration: parts that are built late ask both.
  TController controller(options.Options());
  for (const std::string& notice : controller.Notices()) std::cerr << "ixocut tree: " << notice << std::endl;

  const TStepPtr root = MakeRoot(row.Name, {&call, 1});
  root->BuildData();
  const TNode tree = NodeOf(*root, root->GetDesc());
  const char* const summary = Tr(row.Summary);
  if (options.Json) {
    std::optional<TProblem> problem;
    if (AnyFailed(tree)) problem = {.What = Tr("a part of the tree cannot be built"), .Where = row.Name};
    PrintDocument(out, "tree", {{"name", row.Name}, {"summary", summary}, {"tree", JsonOf(tree)}}, problem);
  } else {
    out << row.Name << ": " << summary << '\n' << TextOf(tree) << '\n';
    Draw(out, tree, "");
  }
  return AnyFailed(tree) ? kExitOtherwise : kExitSuccess;
}

}  // namespace

void AddTreeCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TTreeOptions>();
  CLI::App* const tree = program.add_subcommand("tree", Tr("Print the step tree of a procedure"));
  tree->add_option("NAME", options->Name, Format(Tr("The procedure: %s"), ProcedureNames().c_str()))->type_name("");
  AddJsonOption(*tree, options->Json);
  AddMachineOptions(*tree, options->Machine, options->State);
  AddLanguageOption(*tree, options->Language);
  std::string procedures = std::string(Tr("Procedures")) + ":\n";
  for (const TProcedure* row : Procedures()) procedures += Format("  %-20s %s\n", row->Name, Tr(row->Summary));
  SetHelp(
      *tree,
      {.Notes =
           procedures + "\n" +
           Tr("The parameters of `ixocut run` hold here as well; one that is needed and not given has a sample value.\n"
              "Each line: command number, class, description, parameters (mm, mm/s, ms, bar). A part that the machine "
              "builds\n"
              "only when it gets there is shown built and marked."),
       .ExitCodes = {},
       .Examples = {"ixocut tree shot --ms 100", "ixocut tree pierce --json"}});
  tree->allow_extras();
  tree->callback([options, tree, &run] {
    options->Params = tree->remaining();
    run = [options] { return Run(*options, std::cout); };
  });
}

}  // namespace ixocut
