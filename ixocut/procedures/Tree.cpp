#include "ixocut/procedures/Tree.h"

#include <iostream>
#include <memory>
#include <ostream>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/Controller.h"
#include "controller/StateFolder.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Machines.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

struct TNode {
  std::int32_t Command = 0;
  std::string Class;
  std::string Desc;
  nlohmann::ordered_json Params = nlohmann::ordered_json::object();
  bool BuiltLate = false;
  bool Failed = false;
  std::vector<TNode> Children;
};

nlohmann::ordered_json ParamsOf(const TStateMotion& step) {
  if (const auto* delay = dynamic_cast<const TSmtDelay*>(&step)) return {{"delayMs", delay->GetDelay()}};
  if (const auto* gas = dynamic_cast<const TSmtGasOnState*>(&step))
    return {{"branch", gas->FGasBranch}, {"pressureBar", gas->FGasPressure}};
  if (const auto* wait = dynamic_cast<const TSmtWaitInport*>(&step))
    return {{"outport", wait->FOutport},   {"switchOutport", wait->FNeedOutport},
            {"inport", wait->FWaitInport}, {"level", wait->FInportLogic},
            {"limitMs", wait->FWaitTime},  {"timeOutAlarm", wait->FTimeOutAlarm}};
  return nlohmann::ordered_json::object();
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
  if (node.BuiltLate) text += "  (built on entry)";
  if (node.Failed) text += "  (cannot be built)";
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

std::string Names() {
  std::string names;
  for (const TProcedure& procedure : Procedures()) names += (names.empty() ? "" : ", ") + std::string(procedure.Name);
  return names;
}

}  // namespace

int RunTree(const TTreeOptions& options, std::ostream& out) {
  const TProcedure* const procedure = FindProcedure(options.Name);
  if (!procedure) {
    const std::string why = options.Name.empty() ? "NAME is missing" : "\"" + options.Name + "\" is no procedure";
    throw EProblem(pbRequest, why + "; the procedures are: " + Names());
  }
  // A machine and its configuration: parts that are built late ask both.
  TControllerOptions settings;
  settings.Machines = Machines();
  settings.MachineFile = options.Machine ? *options.Machine : ShareFolder() / "machines" / "machine.xml";
  settings.LocaleFolder = ShareFolder() / "locale";
  settings.Language = options.Language;
  TController session(settings);
  for (const std::string& notice : session.Notices()) std::cerr << "ixocut tree: " << notice << std::endl;

  const TStepPtr root = procedure->Make();
  root->BuildData();
  const TNode tree = NodeOf(*root, root->GetDesc());
  if (options.Json) {
    const nlohmann::ordered_json document{
        {"name", procedure->Name}, {"summary", procedure->Summary}, {"tree", JsonOf(tree)}};
    out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  } else {
    out << procedure->Name << ": " << procedure->Summary << '\n' << TextOf(tree) << '\n';
    Draw(out, tree, "");
  }
  return AnyFailed(tree) ? kExitOtherwise : kExitSuccess;
}

void AddTreeCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TTreeOptions>();
  CLI::App* const tree = program.add_subcommand("tree", "Print the step tree of a procedure");
  tree->add_option("NAME", options->Name, "The procedure: " + Names())->type_name("");
  tree->add_flag("--json", options->Json, "Print one JSON document instead of text");
  tree->add_option_function<std::string>(
          "--machine", [options](const std::string& file) { options->Machine = file; },
          "The machine file whose values are shown (default: the example)")
      ->type_name("FILE");
  AddLanguageOption(*tree, options->Language);
  std::string procedures = "Procedures:\n";
  for (const TProcedure& procedure : Procedures())
    procedures += Format("  %-12s %s\n", procedure.Name, procedure.Summary);
  tree->footer(
      procedures +
      "\n"
      "Each line: command number, class, description, parameters (ms, bar). A part that the machine builds only\n"
      "when it gets there is shown built and marked.\n"
      "\n"
      "Exit codes: 0 success, 1 the tree cannot be built, 2 wrong command line or unknown name, 3 a file problem.\n"
      "\n"
      "Examples:\n"
      "  ixocut tree shot\n"
      "  ixocut tree pierce --json\n"
      "\n"
      "Software is not the emergency stop.");
  tree->callback([options, &run] { run = [options] { return RunTree(*options, std::cout); }; });
}

}  // namespace ixocut
