#include "controller/config/MachineFile.h"

#include <algorithm>
#include <map>

#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

// What a file of this document element describes, and what keeps such a machine from being made.
TMachineBounds BoundsOf(const TConfigSection& root, std::span<const TMachineFactory> machines,
                        std::vector<TProblem>& problems) {
  if (!machines.empty()) {
    const auto named = std::ranges::find(machines, root.Child("Machine").GetText("Driver", ""), &TMachineFactory::Name);
    const TMachineFactory& machine = named == machines.end() ? machines.front() : *named;
    return machine.LimitsOf(root, problems).Bounds;
  }
  TMachineBounds bounds;
  bounds.Read(root, problems);
  return bounds;
}

}  // namespace

TWholeConfig::TWholeConfig(std::span<const TMachineFactory> machines) {
  for (const TMachineFactory& machine : machines)
    for (const TMachineSection& section : machine.Sections) {
      if (std::ranges::find(FDrivers, section.Name, &TOwn::Name) != FDrivers.end()) continue;
      FDrivers.push_back({section.Name, section.Make()});
      FDrivers.back().Record->AddNothingEmpty();
    }
  AddSubConfig("Alarms", FAlarms);
  AddSubConfig(kKeyDefinitionSection, FKeys);
  AddCamSections(*this, FCam);
}

void TWholeConfig::Publish(TPublisher& p) {
  FMachine.Publish(p);
  for (const TOwn& driver : FDrivers) p.Child(TPropName::Of(driver.Name), *driver.Record);
  FJog.Publish(p);
}

void TWholeConfig::TStart::Publish(TPublisher& p) {
  FWhole.Publish(p);
  p.Child("Alarms", *FWhole.FAlarms);
  p.Child(TPropName::Of(kKeyDefinitionSection), *FWhole.FKeys);
}

void TMachineFile::Load(const std::filesystem::path& file, TXmlDetail detail) {
  FConfig.Load(file, mfRefused, detail).OrThrow(pbUnusable);
}

void TMachineFile::Hold(const std::filesystem::path& file) {
  if (const TLockState lock = FConfig.Hold(file); lock != lsHeld)
    throw EProblem(lock == lsBusy ? pbRefused : pbUnusable, FConfig.HoldProblem());
}

std::vector<TConfigFinding> TMachineFile::Findings(const TXmlDocument& document) {
  auto findings = CheckDocument(document, FConfig);
  const TConfigSection root(document.RootHandle(), "");
  std::vector<TProblem> fatal;
  std::vector<TProblem> others;
  const TMachineBounds bounds = BoundsOf(root, FMachines, fatal);
  CheckRecord(root, FConfig, bounds, others, jdAll);
  CheckRules(root, FConfig, bounds, others);
  AddFindings(document, fatal, findings);
  AddFindings(document, others, findings);
  return findings;
}

std::vector<TConfigFinding> TMachineFile::FindingsWhenSaved() {
  std::string bytes = FConfig.Document().Serialise();
  FConfig.DropDocument();  // one document at a time
  const auto parse = [this](TXmlDocument& document, std::string&& text, TXmlDetail detail) {
    auto parsed = document.Parse(std::move(text), detail);
    if (parsed) return;
    TProblem problem = parsed.Problem();
    problem.Where.insert(0, FConfig.File().string() + ":");
    throw EProblem(pbUnusable, problem);
  };
  {
    TXmlDocument document;
    parse(document, std::move(bytes), xdAll);
    TXmlContext context;
    FConfig.SaveToXmlNode(document.Root(context));
    if (!context.Problem.empty()) throw EProblem(pbRequest, context.Problem);
    bytes = document.Serialise();
  }
  TXmlDocument saved;
  parse(saved, std::move(bytes), xdPlaces);
  return Findings(saved);
}

std::vector<TConfigFinding> TMachineFile::Wrong(std::initializer_list<std::string_view> sections) {
  auto findings = Findings(FConfig.Document());
  std::erase_if(findings, [&](const TConfigFinding& finding) {
    return finding.Foreign ||
           std::ranges::none_of(sections, [&](auto section) { return IsUnder(finding.Path, section); });
  });
  return findings;
}

std::vector<TConfigFinding> TMachineFile::Set(const std::string& path, const std::string& value, bool force) {
  const auto before = Findings(FConfig.Document());
  SetProperty(FConfig, path, value).OrThrow(pbRequest);
  // What was wrong before and is elsewhere is the check's to tell.
  auto wrong = FindingsWhenSaved();
  std::erase_if(wrong, [&](const TConfigFinding& finding) {
    return finding.Foreign || (!SameFolded(finding.Path, path) &&
                               std::ranges::find(before, finding.Path, &TConfigFinding::Path) != before.end());
  });
  if (wrong.empty() || force) return wrong;
  constexpr std::size_t kMostNamed = 3;
  std::string named;
  for (std::size_t i = 0; i < std::min(wrong.size(), kMostNamed); ++i)
    named += (i == 0 ? "" : "; ") + wrong[i].Path + ": " + wrong[i].Text;
  if (wrong.size() > kMostNamed) named += Format(Tr("; and %zu more"), wrong.size() - kMostNamed);
  throw EProblem(pbRequest, {.What = named, .Remedy = Tr("nothing was set; --force sets it all the same")});
}

std::vector<TConfigDifference> Differences(const std::vector<TPropertyView>& left,
                                           const std::vector<TPropertyView>& right) {
  std::map<std::string_view, const TPropertyView*> other;
  for (const auto& view : right) other[view.Path] = &view;
  std::vector<TConfigDifference> differences;
  for (const auto& view : left) {
    const auto it = other.find(view.Path);
    const TPropertyView* const to = it == other.end() ? nullptr : it->second;
    if (!to || to->Value != view.Value) differences.push_back({&view, to});
    if (to) other.erase(it);
  }
  for (const auto& view : right)
    if (other.contains(view.Path)) differences.push_back({nullptr, &view});
  return differences;
}

std::vector<const TSupervisorConfig::TRow*> DefaultedLimits(const TMachineConfig& config) {
  const TConfigSection section = config.Root().Child("Supervisor");
  std::vector<const TSupervisorConfig::TRow*> rows;
  for (const TSupervisorConfig::TRow& row : TSupervisorConfig::Rows())
    if (TrimXml(section.GetText(row.Name.Text, "")).empty()) rows.push_back(&row);
  return rows;
}

}  // namespace ixocontroller
