#include "controller/procedures/Procedures.h"

#include <algorithm>
#include <set>

#include "ixocamglue/config/Libmachinecfg.h"
#include "ixocamglue/motion/Usequence.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::int32_t kListId = 990;  // the list that holds what was asked for

std::vector<const std::vector<TProcedure>*>& Added() {
  static std::vector<const std::vector<TProcedure>*> added;
  return added;
}

template <class Fits>
const TProcedure* Find(Fits fits) {
  const auto rows = Procedures();
  const auto row = std::ranges::find_if(rows, [&](const TProcedure* r) { return fits(*r); });
  return row == rows.end() ? nullptr : *row;
}

TStepFactory FactoryOf(std::int32_t command) {
  const auto commands = MotionCommands();
  const auto found = std::ranges::find(commands, command, &TMotionCommand::Command);
  return found == commands.end() ? nullptr : found->Make;
}

void Configure(const TMotionCall& call, TStateMotion& step) {
  for (const TMotionParam& param : call.Row->Params)
    if (const double value = call.Value(param.Name); param.At.Set && !std::isnan(value)) param.At.Set(step, value);
}

std::optional<double> ParseSwitch(std::string_view text) {
  for (const std::string_view yes : {"true", "yes", "on", "1"})
    if (SameFolded(text, yes)) return 1.0;
  for (const std::string_view no : {"false", "no", "off", "0"})
    if (SameFolded(text, no)) return 0.0;
  return std::nullopt;
}

// What is wrong with a row of an application; empty: nothing.
std::string Refusal(const TProcedure& row) {
  const std::string_view name = row.Name ? row.Name : "";
  const auto allowed = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; };
  if (name.empty() || name.front() == '-' || !std::ranges::all_of(name, allowed))
    return Tr("a name has small letters, digits and hyphens");
  if (FindProcedure(name) || WasProcedure(name)) return Tr("the name is taken");
  if (row.Command != 0 && (row.Command < 0 || row.Command > 0xFFFF || FindProcedure(row.Command)))
    return Format(Tr("the command %d is taken or not in 1..65535"), row.Command);
  if (!row.Make && !FactoryOf(row.Command)) return Tr("it has neither Make nor a command that makes its step");
  std::set<std::string_view> names;
  for (const TMotionParam& param : row.Params)
    if (!names.insert(param.Name).second) return Format(Tr("it has two parameters \"%s\""), param.Name);
  return {};
}

}  // namespace

std::vector<const TProcedure*> Procedures() {
  std::vector<const TProcedure*> rows;
  for (const TProcedure& row : ProcedureTable()) rows.push_back(&row);
  for (const auto* added : Added())
    for (const TProcedure& row : *added) rows.push_back(&row);
  return rows;
}

const TProcedure* FindProcedure(std::string_view name) {
  return Find([&](const TProcedure& row) { return row.Name == name; });
}

const TProcedure* FindProcedure(std::int32_t command) {
  return Find([&](const TProcedure& row) { return row.Command == command && command > 0; });
}

bool WasProcedure(std::string_view name) {
  return Find([&](const TProcedure& row) { return std::ranges::find(row.Was, name) != row.Was.end(); }) != nullptr;
}

TResult<const TProcedure*> AskProcedure(std::string_view name) {
  if (const TProcedure* const row = FindProcedure(name)) return row;
  TProblem problem{.What = Format(Tr("\"%s\" is no procedure"), std::string(name).c_str())};
  TNearestName nearest(name);
  std::string now;
  for (const TProcedure* row : Procedures()) {
    nearest.Consider(row->Name);
    if (std::ranges::find(row->Was, name) != row->Was.end())
      now += (now.empty() ? "\"" : Tr(" or \"")) + std::string(row->Name) + "\"";
  }
  problem.Remedy = now.empty() ? nearest.DidYouMean(Format(Tr("the procedures are: %s"), ProcedureNames().c_str()))
                               : Format(Tr("it is called %s now"), now.c_str());
  return problem;
}

std::string ProcedureNames() { return Joined(Procedures(), &TProcedure::Name); }

TMotionValues TProcedure::SampleValues() const {
  TMotionValues values = Sample;
  values.resize(Params.size());
  return values;
}

TAddedProcedures::TAddedProcedures(std::vector<TProcedure> rows) {
  FRows.reserve(rows.size());
  Added().push_back(&FRows);
  for (TProcedure& row : rows) {
    if (std::string why = Refusal(row); !why.empty()) {
      Added().pop_back();
      throw EProblem(pbRequest, TProblem{.What = std::move(why), .Where = Format(Tr("procedure %s"), row.Name)});
    }
    FRows.push_back(std::move(row));
  }
}

TAddedProcedures::~TAddedProcedures() { std::erase(Added(), &FRows); }

TStepPtr TMotionCall::Make(TCustomMotionState* ctrl) const {
  TStepPtr step = Row->Make ? Row->Make(ctrl, Values) : FactoryOf(Row->Command)(ctrl);
  Configure(*this, *step);
  return step;
}

double TMotionCall::Value(std::string_view param) const {
  for (std::size_t i = 0; i < Row->Params.size(); ++i)
    if (Row->Params[i].Name == param) return i < Values.size() ? Values[i].value_or(Row->Params[i].Default) : kUnset;
  return kUnset;
}

std::string TMotionCall::Text() const {
  std::string text = Row->Name;
  for (std::size_t i = 0; i < Values.size(); ++i)
    if (Values[i]) text += std::string(" --") + Row->Params[i].Name + " " + ParamText(Row->Params[i], *Values[i]);
  return text;
}

TSequenceItem ItemOf(const TMotionCall& call) {
  TSequenceItem item;
  const TStepPtr sample = call.Make(nullptr);  // throws here what cannot be made, before anything moves
  item.Desc = call.Desc.empty() ? sample->GetDesc() : call.Desc;
  item.Command = call.Row->Command;
  if (call.Row->Make)
    item.Make = [call](TCustomMotionState* ctrl) { return call.Make(ctrl); };
  else
    item.Configure = [call](TStateMotion& step) { Configure(call, step); };
  return item;
}

TLimits TMotionCall::LimitsOf(const TMotionParam& param, const TMachineBounds& machine) const {
  const double branch = param.Bound.Branch ? Value(param.Bound.Branch) : 0.0;
  return machine.Of(param.Bound, std::isnan(branch) ? 0 : static_cast<std::int32_t>(branch));
}

TResult<> TMotionCall::Check(const TMotionParam& param, const TMachineBounds& machine) const {
  const double value = Value(param.Name);
  if (param.At.Kind == pkSwitch) return {};
  const std::string text = NumberText(value);
  if (param.At.Kind == pkWhole && value != std::floor(value))
    return TProblem{.What = Format(Tr("%s is not a whole number"), text.c_str())};
  const TLimits limits = LimitsOf(param, machine);
  if (limits.Allows(value)) return {};
  const std::string unit = UnitText(param.Unit);
  const std::string range = limits.Text() + (unit.empty() ? "" : " ") + unit;
  return TProblem{
      .What = Format(limits.IsChoice ? Tr("%s is not one of %s") : Tr("%s is not in %s"), text.c_str(), range.c_str())};
}

TResult<> TMotionCall::CheckNeeds(const char* prefix) const {
  std::string together;
  bool some = false;
  bool all = true;
  for (std::size_t i = 0; i < Row->Params.size(); ++i) {
    const TMotionParam& param = Row->Params[i];
    const std::string name = std::string(prefix) + param.Name;
    if (param.Need == TMotionParam::Required && !Values[i])
      return TProblem{.What = Format(Tr("%s is missing"), name.c_str())};
    if (param.Need != TMotionParam::Together) continue;
    AddToList(together, name);
    some = some || Values[i];
    all = all && Values[i];
  }
  if (some && !all) return TProblem{.What = Format(Tr("%s belong together"), together.c_str())};
  return {};
}

TResult<double> ParseParam(const TMotionParam& param, std::string_view text) {
  if (param.Bound.Kind == bkBranch)  // a gas by its name, too
    if (const std::int32_t gas = AskedGasType(text); gas > 0) return static_cast<double>(gas);
  const bool isSwitch = param.At.Kind == pkSwitch;
  if (const auto value = isSwitch ? ParseSwitch(text) : ParseNumber<double>(text)) return *value;
  return TProblem{.What = Format(isSwitch ? Tr("\"%s\" is neither true nor false") : Tr("\"%s\" is not a number"),
                                 std::string(text).c_str())};
}

TStepPtr MakeRoot(const std::string& name, std::span<const TMotionCall> calls) {
  if (calls.size() == 1)
    if (TStepPtr step = calls.front().Make(nullptr); !step->IsAtomic()) return step;
  std::vector<TSequenceItem> items;
  for (const TMotionCall& call : calls) items.push_back(ItemOf(call));
  auto list = MakeStepOf<TSmtSequence>(nullptr);
  list->Define(kListId, name, std::move(items));
  return list;
}

std::string ParamText(const TMotionParam& param, double value) {
  return param.At.Kind == pkSwitch ? (value != 0.0 ? "true" : "false") : NumberText(value);
}

TStepPtr MakeShot(std::uint32_t ms) {
  auto shot = MakeStepOf<TSmtLaserOnTimeState>(nullptr);
  shot->SetDuration(ms);
  return shot;
}

std::shared_ptr<IStateMotion> ShareRoot(TStepPtr step) {
  return std::shared_ptr<IStateMotion>(std::shared_ptr<TStateMotion>(std::move(step)));
}

}  // namespace ixocontroller
