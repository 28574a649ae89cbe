// `ixocut tree`: the step tree of a procedure, as it is built before it runs.
#include "controller/procedures/StepTree.h"
#include "ixocamglue/support/Lists.h"
#include "ixocut/Command.h"
#include "ixocut/procedures/Asked.h"

namespace ixocut {
namespace {

struct TTreeOptions : TControllerSettings {
  std::string Name;
  std::vector<std::string> Params;
};

std::string TextOf(const TStepNode& node) {
  std::string text = Format("%d %s  %s", node.Command, node.Class.c_str(), node.Desc.c_str());
  std::string details;
  for (const auto& [name, value] : node.Params.items()) AddToList(details, name + " " + value.dump());
  if (!details.empty()) text += "  [" + details + "]";
  if (node.BuiltLate) text += std::string("  ") + Tr("(built on entry)");
  if (node.Failed) text += std::string("  ") + Tr("(cannot be built)");
  return text;
}

void Draw(TConsole& console, const TStepNode& node, const std::string& indent) {
  for (const TStepNode& child : node.Children) {
    const bool last = &child == &node.Children.back();
    console.Say(indent + (last ? "└─ " : "├─ ") + TextOf(child));
    Draw(console, child, indent + (last ? "   " : "│  "));
  }
}

int RunTree(const TTreeOptions& options, TConsole& console) {
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
  for (const std::string& notice : controller.Notices()) console.Note(notice);

  const TStepPtr root = MakeRoot(row.Name, {&call, 1});
  root->BuildData();
  const TStepNode tree = StepTree(*root);
  const char* const summary = Tr(row.Summary);
  console.Say(std::string(row.Name) + ": " + summary);
  console.Say(TextOf(tree));
  Draw(console, tree, "");
  std::optional<TProblem> problem;
  if (tree.AnyFailed()) problem = {.What = Tr("a part of the tree cannot be built"), .Where = row.Name};
  return console.Print({{"name", row.Name}, {"summary", summary}, {"tree", JsonOf(tree)}}, problem);
}

}  // namespace

void AddTreeCommand(TCommand program) {
  auto [tree, options] = AddOwn<TTreeOptions>(program, "tree", Tr("Print the step tree of a procedure"), RunTree);
  tree.Text("NAME", options.Name, Format(Tr("The procedure: %s"), ProcedureNames().c_str()), "");
  AddJsonOption(tree, options.Json);
  AddMachineSettings(tree, options);
  std::string procedures = std::string(Tr("Procedures")) + ":\n";
  for (const TProcedure* row : Procedures()) procedures += Format("  %-20s %s\n", row->Name, Tr(row->Summary));
  tree.Help(
      {.Notes =
           procedures + "\n" +
           Tr("The parameters of `ixocut run` hold here as well; one that is needed and not given has a sample value.\n"
              "Each line: command number, class, description, parameters (mm, mm/s, ms, bar). A part that the machine "
              "builds\n"
              "only when it gets there is shown built and marked."),
       .Examples = {"ixocut tree shot --ms 100", "ixocut tree pierce --json"}});
  tree.TakeExtras(options.Params);
}

}  // namespace ixocut
