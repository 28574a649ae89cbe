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
         std::vector<double>* seen)
      : FSection(section), FMachine(machine), FProblems(problems), FSeen(seen) {
    FListener = this;
  }

  template <class T, class D>
  void Value(TPropName name, T&, const D&, const TFieldRule&) {
    FName = name.Text;
    FText = FSection.GetText(FName, "");
    FNumber.reset();
    FUnreadable = nullptr;
    if constexpr (!std::is_same_v<T, std::string>) {
      if (TrimXml(FText).empty()) return;
      if (const auto value = ParseValue<T>(FText))
        FNumber = static_cast<double>(*value);
      else
        FUnreadable = std::is_same_v<T, bool>       ? "neither true nor false"
                      : std::is_floating_point_v<T> ? "not a number"
                                                    : "not a whole number in range";
    }
  }
  void Child(TPropName name, TXmlSubConfig& child) override {
    CheckRecord(FSection.Child(name.Text), child, FMachine, FProblems);
  }
  void List(TPropName itemName, TXmlListBase& list) override {
    const auto item = list.MakeItem();
    std::vector<double> seen;
    for (const TConfigSection& section : FSection.Children(itemName.Text)) {
      TJudge judge(section, FMachine, FProblems, &seen);
      item->Publish(judge);
    }
  }

 private:
  void Said(const TFieldFacts& facts) override {
    const TBound& bound = facts.Bound;
    if (bound.Kind == bkAny) return;
    if (FUnreadable) Add(FText, FUnreadable);
    const TLimits limits = FMachine.Of(bound, bound.Branch ? FSection.GetInt(bound.Branch, 0) : 0);
    const bool allowed = FNumber && limits.Allows(*FNumber);
    if (FNumber && !allowed) Add(FText, (limits.IsChoice ? "not one of " : "outside ") + limits.Text(" to "));
    if (!facts.Missing || !FSeen) return;
    if (!allowed)
      Add("", facts.Missing);
    else if (std::ranges::find(*FSeen, *FNumber) != FSeen->end())
      Add(FText, "given twice");
    else
      FSeen->push_back(*FNumber);
  }
  void Add(const std::string& text, const std::string& why) {
    FProblems.push_back(ProblemAt(FSection, FName, text, why));
  }

  const TConfigSection& FSection;
  const TMachineBounds& FMachine;
  std::vector<TProblem>& FProblems;
  std::vector<double>* const FSeen;
  // Of the field whose line is being said.
  std::string_view FName;
  std::string FText;
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
                                 Format("not above SoftLimitNeg (%g)", stated.SoftLimitNeg)));
  if (problems.size() == first) return;
  axis = before;
  if (!ordered) return;
  axis.SoftLimitNeg = stated.SoftLimitNeg;
  axis.SoftLimitPos = stated.SoftLimitPos;
}

// A limit that is too short is not in force, which is no reason to refuse the machine.
void ReadSupervisor(const TConfigSection& section, TSupervisorConfig& limits, const TMachineBounds& machine,
                    std::vector<TProblem>& problems) {
  TSupervisorConfig read = limits;
  section.LoadOver(read);
  std::vector<TProblem> wrong;
  CheckRecord(section, read, machine, wrong);
  std::erase_if(wrong, [&](const TProblem& problem) {
    return read.TooShort(std::string_view(problem.Where).substr(problem.Where.rfind('/') + 1));
  });
  if (wrong.empty()) limits = read;
  std::ranges::move(wrong, std::back_inserter(problems));
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

void TMachineBounds::Read(const TMachineConfig& config, std::vector<TProblem>& problems) {
  const TConfigSection root = config.Root();
  TMachineRecord whole;  // with its own values only; its sections follow, each in its place
  TJudge own(root, *this, problems, nullptr);
  whole.PublishOwn(own);
  Take(root.Child("Laser"), Laser, problems);

  std::vector<std::string> seen;
  for (const TConfigSection& section : root.Child("Axes").Children("Axis")) {
    const std::string name = section.GetText("Name", "");
    TAxisConfig* const known[] = {&X, &Y, &Z, &Focus};
    const auto it = std::ranges::find(known, name, [](const TAxisConfig* axis) { return axis->Name; });
    if (it == std::end(known)) {
      problems.push_back(ProblemAt(section, "Name", name, "not one of X, Y, Z, Focus"));
    } else if (std::ranges::find(seen, name) != seen.end()) {
      problems.push_back(ProblemAt(section, "Name", name, "described twice"));
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
      problems.push_back(ProblemAt(section, "Identity", slave.Identity, "not a whole number in range"));
  }
  TSwitchTableConfig table;
  Take(root.Child("SwitchTable"), table, problems);
  DockedTable = table.DockedTable;
  ReadSupervisor(root.Child("Supervisor"), Supervisor, *this, problems);
}

void CheckRecord(const TConfigSection& section, TXmlSubConfig& record, const TMachineBounds& machine,
                 std::vector<TProblem>& problems) {
  TJudge judge(section, machine, problems, nullptr);
  record.Publish(judge);
  for (const auto& [name, sub] : record.SubConfigs()) CheckRecord(section.Child(name), *sub, machine, problems);
}

TProblem ProblemAt(const TConfigSection& section, std::string_view name, const std::string& value,
                   const std::string& why) {
  const std::string& path = section.Path();
  return {.What = "\"" + value + "\", " + why, .Where = (path.empty() ? "" : path + "/") + std::string(name)};
}

}  // namespace ixocamglue
