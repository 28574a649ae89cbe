#include "ixocamglue/platform/xml/Bounds.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "ixocamglue/support/Format.h"

namespace ixocamglue {
namespace {

TLimits ChoiceOf(const auto& items, auto number) {
  TLimits limits{.IsChoice = true};
  for (const auto& item : items) limits.Numbers.push_back(item.*number);
  return limits;
}

TLimits Without(const TMachineBounds& machine, const TBound& bound, std::int32_t branch) {
  const auto within = [](double low, double high) { return TLimits{.Lowest = low, .Highest = high}; };
  const auto axis = [&](const TAxisConfig& a) { return within(a.SoftLimitNeg, a.SoftLimitPos); };
  switch (bound.Kind) {
    case bkAny:
    case bkSwitch: return {};
    case bkFixed: return within(bound.Least, bound.Most);
    case bkX: return axis(machine.X);
    case bkY: return axis(machine.Y);
    case bkZ: return axis(machine.Z);
    case bkFocus: return axis(machine.Focus);
    case bkXYSpeed: return within(0.0, std::min(machine.X.MaxSpeed, machine.Y.MaxSpeed));
    case bkZSpeed: return within(0.0, machine.Z.MaxSpeed);
    case bkFocusSpeed: return within(0.0, machine.Focus.MaxSpeed);
    case bkInport: return ChoiceOf(machine.Inports, &TPortConfig::Number);
    case bkOutport: return ChoiceOf(machine.Outports, &TPortConfig::Number);
    case bkBranch: return ChoiceOf(machine.GasBranches, &TGasBranchConfig::GasType);
    case bkPressure: break;
    case bkFollower: return within(0.0, machine.Followers - 1.0);
  }
  double highest = 0.0;
  for (const TGasBranchConfig& fitted : machine.GasBranches) {
    if (fitted.GasType == branch) return within(0.0, fitted.GetMaxPressure());
    highest = std::max(highest, fitted.GetMaxPressure());
  }
  return within(0.0, highest);
}

class TJudge final : public TFieldPublisher<TJudge>, private TFieldListener {
 public:
  // `seen`: the keys of the list so far that the record is an item of.
  TJudge(const TConfigSection& section, const TMachineBounds& machine, std::vector<TProblem>& problems,
         TJudging judging, std::vector<double>* seen)
      : FSection(section), FMachine(machine), FProblems(problems), FJudging(judging), FSeen(seen) {
    FListener = this;
  }

  template <class T, class D>
  void Value(TPropName name, T&, const D& def, const TFieldRule&) {
    // A text with a bound is the text of a number.
    using TNumber = std::conditional_t<std::is_same_v<T, std::string>, std::int32_t, T>;
    FName = name.Text;
    FText = FSection.GetText(FName, "");
    FNumber.reset();
    FUnreadable = nullptr;
    FDefault = ValueText(T(def));
    if (TrimXml(FText).empty()) return;
    if (const auto value = ParseValue<TNumber>(FText))
      FNumber = static_cast<double>(*value);
    else
      FUnreadable = std::is_same_v<TNumber, bool>       ? Tr("neither true nor false")
                    : std::is_floating_point_v<TNumber> ? Tr("not a number")
                                                        : Tr("not a whole number in range");
  }
  void Child(TPropName name, TXmlSubConfig& child) override {
    CheckRecord(FSection.Child(name.Text), child, FMachine, FProblems, FJudging);
  }
  void List(TPropName itemName, TXmlListBase& list) override {
    const auto item = list.MakeItem();
    std::vector<double> seen;
    for (const TConfigSection& section : FSection.Children(itemName.Text)) {
      TJudge judge(section, FMachine, FProblems, FJudging, &seen);
      item->Publish(judge);
    }
  }

 private:
  void Said(const TFieldFacts& facts) override {
    const TBound& bound = facts.Bound;
    if (bound.Kind == bkAny || (bound.Advice && FJudging == jdRefused)) return;
    const auto add = [&](const std::string& text, const std::string& why) {
      FProblems.push_back(ProblemAt(FSection, FName, text, why));
      if (facts.Text) FProblems.back().Why = Tr(facts.Text);
    };
    if (FUnreadable) add(FText, FUnreadable);
    const TLimits limits = FMachine.Of(bound, bound.Branch ? FSection.GetInt(bound.Branch, 0) : 0);
    const bool allowed = FNumber && limits.Allows(*FNumber);
    if (FNumber && !allowed) {
      std::string why = limits.Refusal(*FNumber, facts.Unit);
      const bool defaulted = facts.DefaultBelow && *FNumber < limits.Lowest;
      if (defaulted) why += Format(Tr("; the default %s is in force"), FDefault.c_str());
      if (!defaulted || FJudging == jdAll) add(FText, why);
    }
    if (!facts.Missing || !FSeen) return;
    if (!allowed)
      add("", Tr(facts.Missing));
    else if (std::ranges::find(*FSeen, *FNumber) != FSeen->end())
      add(FText, Tr("given twice"));
    else
      FSeen->push_back(*FNumber);
  }

  const TConfigSection& FSection;
  const TMachineBounds& FMachine;
  std::vector<TProblem>& FProblems;
  const TJudging FJudging;
  std::vector<double>* const FSeen;
  // Of the field whose line is being said.
  std::string_view FName;
  std::string FText;
  std::string FDefault;
  std::optional<double> FNumber;
  const char* FUnreadable = nullptr;
};

void ReadAxis(const TConfigSection& section, TAxisConfig& axis, const TMachineBounds& machine,
              std::vector<TProblem>& problems) {
  const TAxisConfig before = axis;
  section.LoadOver(axis);
  const TAxisConfig stated = axis;
  const bool ordered = stated.SoftLimitNeg < stated.SoftLimitPos;
  const std::size_t first = problems.size();
  if (!ordered) axis = before;
  CheckRecord(section, axis, machine, problems);  // the safe height by the limits that it stands with
  if (!ordered)
    problems.push_back(ProblemAt(section, "SoftLimitPos", Format("%g", stated.SoftLimitPos),
                                 Format(Tr("not above SoftLimitNeg (%g)"), stated.SoftLimitNeg)));
  if (problems.size() == first) return;
  axis = before;
  if (!ordered) return;
  axis.SoftLimitNeg = stated.SoftLimitNeg;
  axis.SoftLimitPos = stated.SoftLimitPos;
}

template <class Item>
void Replace(std::vector<Item>& items, const TXmlList<Item>& read) {
  if (read.Count() > 0) items.clear();
  for (const auto& item : read) items.push_back(*item);
}

}  // namespace

TLimits TMachineBounds::Of(const TBound& bound, std::int32_t branch) const {
  TLimits limits = Without(*this, bound, branch);
  if (!std::isnan(bound.Also) && !limits.Allows(bound.Also)) limits.Numbers.push_back(bound.Also);
  std::ranges::sort(limits.Numbers);
  return limits;
}

void TMachineBounds::Read(const TConfigSection& root, std::vector<TProblem>& problems) {
  TMachineRecord whole;  // with its own values only; its sections follow, each in its place
  TJudge own(root, *this, problems, jdRefused, nullptr);
  whole.PublishOwn(own);
  Take(root.Child("Laser"), Laser, problems);

  std::vector<std::string> seen;
  for (const TConfigSection& section : root.Child("Axes").Children("Axis")) {
    const std::string name = section.GetText("Name", "");
    TAxisConfig* const known[] = {&X, &Y, &Z, &Focus};
    const auto it = std::ranges::find(known, name, [](const TAxisConfig* axis) { return axis->Name; });
    if (it == std::end(known)) {
      problems.push_back(ProblemAt(section, "Name", name, Format(Tr("not one of %s"), "X, Y, Z, Focus")));
    } else if (std::ranges::find(seen, name) != seen.end()) {
      problems.push_back(ProblemAt(section, "Name", name, Tr("described twice")));
    } else {
      seen.push_back(name);
      ReadAxis(section, **it, *this, problems);
    }
  }
  SafeZ = std::clamp(Z.SafeZ, Z.SoftLimitNeg, Z.SoftLimitPos);

  // Items stand whatever is wrong with them, so that one fault is not told of as another.
  const auto list = [&](const char* name, auto record) {
    root.Child(name).LoadOver(record);
    CheckRecord(root.Child(name), record, *this, problems);
    return record;
  };
  Replace(GasBranches, list("GasBranches", TGasBranchesConfig()).Items);
  for (TGasBranchConfig& branch : GasBranches) branch.MaxPressure = branch.GetMaxPressure();
  const TPortsConfig ports = list("Ports", TPortsConfig());
  Replace(Inports, ports.Inports);
  Replace(Outports, ports.Outports);
  Replace(Slaves, list("Slaves", TSlavesConfig()).Items);
  for (const TConfigSection& section : root.Child("Slaves").Children("Slave")) {
    TSlaveConfig slave;
    section.LoadOver(slave);
    if (!TrimXml(slave.Identity).empty() && !slave.ParseIdentity())
      problems.push_back(ProblemAt(section, "Identity", slave.Identity, Tr("not a whole number in range")));
  }
  TSwitchTableConfig table;
  Take(root.Child("SwitchTable"), table, problems);
  DockedTable = table.DockedTable;
  Take(root.Child("Supervisor"), Supervisor, problems);
}

void CheckRecord(const TConfigSection& section, TXmlSubConfig& record, const TMachineBounds& machine,
                 std::vector<TProblem>& problems, TJudging judging) {
  TJudge judge(section, machine, problems, judging, nullptr);
  record.Publish(judge);
  for (const auto& [name, sub] : record.SubConfigs())
    CheckRecord(section.Child(name), *sub, machine, problems, judging);
}

TProblem ProblemAt(const TConfigSection& section, std::string_view name, const std::string& value,
                   const std::string& why) {
  const std::string& path = section.Path();
  return {.What = (value.empty() ? "" : "\"" + value + "\", ") + why,
          .Where = (path.empty() ? "" : path + "/") + std::string(name)};
}

}  // namespace ixocamglue
