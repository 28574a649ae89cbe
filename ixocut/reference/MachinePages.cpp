// The pages of what a machine is set to and can do: machine file, procedures, command numbers and states.
#include <cmath>

#include "controller/config/ConfigView.h"
#include "controller/config/MachineFile.h"
#include "controller/panel/PanelNames.h"
#include "controller/procedures/Procedures.h"
#include "controller/service/Status.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Machines.h"
#include "ixocut/reference/Reference.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::int32_t kStateNumbers = 1000;  // every state has a number below

std::vector<std::string> PropertyRow(const TPropertyView& view, std::string_view name) {
  const bool text = view.Type == TypeName<std::string>();
  return {Code(name),       Tr(view.Type.c_str()), text && view.Default.empty() ? "" : Code(view.Default),
          view.RangeText(), view.Unit(),           view.Text()};
}

// What a procedure does beside its summary.
std::string FlagsText(const TProcedureFlags& flags) {
  std::string text;
  const auto add = [&](bool is, const char* words) {
    if (is) AddToList(text, words, "; ");
  };
  add(flags.MovesXY, Tr("moves XY"));
  add(flags.MovesZ, Tr("moves Z"));
  add(flags.MovesFocus, Tr("moves the focus"));
  add(flags.LightsBeam, Tr("lights the beam"));
  add(flags.LeavesBeam, Tr("in a list the beam stays on behind it"));
  add(flags.EndsBeam, Tr("in a list the beam is off behind it"));
  add(flags.NeedsEmission, Tr("needs emission"));
  add(flags.LeavesGasOn, Tr("leaves gas on"));
  add(flags.LeavesFollowing, Tr("leaves the head following"));
  add(flags.Outputs == TProcedureFlags::otStay, Tr("leaves outputs as it has set them"));
  add(flags.Outputs == TProcedureFlags::otStayAfterAbort, Tr("leaves outputs as they are when it is ended"));
  add(flags.Reentry, Tr("a list that was ended may begin again here"));
  add(flags.Once, Tr("going on never does it twice"));
  return text;
}

std::string DefaultText(const TMotionParam& param) {
  if (param.Need == TMotionParam::Required) return Tr("needed");
  std::string value = std::isnan(param.Default) ? std::string() : Code(ParamText(param, param.Default));
  if (param.Need != TMotionParam::Together) return value;
  return value.empty() ? Tr("with the others") : value + ", " + Tr("with the others");
}

std::vector<std::vector<std::string>> ParamRows(const TProcedure& row) {
  std::vector<std::vector<std::string>> rows;
  for (const TMotionParam& param : row.Params)
    rows.push_back({Code(param.Name), param.At.Kind == pkSwitch ? std::string("true, false") : BoundText(param.Bound),
                    Tr(UnitText(param.Unit)), DefaultText(param), Tr(param.Summary)});
  return rows;
}

}  // namespace

void FillConfiguration(TPage& page, const TReferenceSources&) {
  page.Say(
      Tr("Every property that a machine file may have, section by section. A path is the section's name, a slash and "
         "the property's: `ixocut config set Laser/MaxPower 3000`. `[]` stands for the number of a list's item, "
         "counted from 1, `<n>` for a number. A property that is missing has its default. Where a range names an axis, "
         "a port or a branch, it is what the machine has; `ixocut config check` compares."));
  TMachineFile machine(Machines());
  std::string section;
  std::vector<std::vector<std::string>> rows;
  const auto end = [&] {
    page.Table({Tr("property"), Tr("type"), Tr("default"), Tr("range"), Tr("unit"), Tr("what it does")}, rows);
    rows.clear();
  };
  for (const TPropertyView& view : ViewProperties(machine.Config(), true)) {
    const std::size_t slash = view.Path.rfind('/');
    const std::string in = slash == std::string::npos ? std::string() : view.Path.substr(0, slash);
    if (in != section) {
      end();
      page.Heading(Code(in));
      section = in;
    }
    rows.push_back(PropertyRow(view, std::string_view(view.Path).substr(in.empty() ? 0 : in.size() + 1)));
  }
  end();
}

void FillProcedures(TPage& page, const TReferenceSources&) {
  page.Say(
      Tr("What `ixocut run NAME`, `POST /api/v1/runs`, the queue and sequence files run. A number is that of the "
         "motion command. Ranges that name an axis, a port or a branch are those of the machine; `ixocut procedures` "
         "shows them with its values."));
  std::vector<std::vector<std::string>> rows;
  for (const TProcedure* const row : Procedures())
    rows.push_back({row->Command > 0 ? std::to_string(row->Command) : std::string(), Code(row->Name), Tr(row->Summary),
                    FlagsText(row->Flags)});
  page.Table({Tr("number"), Tr("name"), Tr("what it does"), Tr("besides")}, rows);
  for (const TProcedure* const row : Procedures()) {
    if (row->Params.empty()) continue;
    page.Heading(Code(row->Name));
    page.Table({Tr("parameter"), Tr("range"), Tr("unit"), Tr("default"), Tr("what it does")}, ParamRows(*row));
  }
}

void FillCommands(TPage& page, const TReferenceSources&) {
  page.Say(Tr("The numbers by which steps and states are known in logs, reports and recordings."));
  page.Heading(Tr("Motion commands"));
  std::vector<std::vector<std::string>> commands;
  for (const TMotionCommand& command : MotionCommands()) {
    const TProcedure* const row = FindProcedure(command.Command);
    commands.push_back({std::to_string(command.Command), command.Desc->Get(), Code(command.Class),
                        row ? Code(row->Name) : std::string()});
  }
  page.Table({Tr("number"), Tr("step"), Tr("class"), Tr("procedure")}, commands);

  page.Heading(Tr("States"));
  std::vector<std::vector<std::string>> states;
  const std::string other = StateWord(-1);
  for (std::int32_t state = 0; state < kStateNumbers; ++state)
    if (const std::string word = StateWord(state); word != other) states.push_back({std::to_string(state), Code(word)});
  page.Table({Tr("number"), Tr("state")}, states);
}

}  // namespace ixocut
