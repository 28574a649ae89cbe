#include "ixocut/config/ConfigCommand.h"

#include <algorithm>
#include <iostream>
#include <map>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "controller/StateFolder.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"

namespace ixocut {

namespace {

// One line, whatever the value holds.
std::string Quoted(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string Shown(const TPropertyView& view) { return view.Type == "string" ? Quoted(view.Value) : view.Value; }

nlohmann::ordered_json JsonOf(const TPropertyView& view, const std::string& text) {
  if (view.Type == "Boolean") return text == "True";
  if (view.Type == "string") return text;
  return nlohmann::ordered_json::parse(text, nullptr, false).is_number() ? nlohmann::ordered_json::parse(text)
                                                                         : nlohmann::ordered_json(text);
}

bool Under(const std::string& path, const std::string& section) {
  if (section.empty() || SameFolded(path, section)) return true;
  return path.size() > section.size() && SameFolded(path.substr(0, section.size()), section) &&
         (path[section.size()] == '/' || path[section.size()] == '[');
}

// A value that no record knows, as the file has it.
std::optional<std::string> ForeignValue(const TMachineConfig& config, const std::string& path) {
  TConfigSection section = config.Root();
  std::string rest = path;
  for (auto slash = rest.find('/'); slash != std::string::npos; slash = rest.find('/')) {
    std::string part = rest.substr(0, slash);
    std::size_t number = 1;
    if (const auto bracket = part.find('['); bracket != std::string::npos && part.ends_with(']')) {
      number = ParseNumber<std::uint32_t>(part.substr(bracket + 1, part.size() - bracket - 2)).value_or(0);
      part.resize(bracket);
    }
    const auto children = section.Children(part);
    if (number < 1 || number > children.size()) return std::nullopt;
    section = children[number - 1];
    rest.erase(0, slash + 1);
  }
  // Two different defaults tell a missing value from any text.
  const std::string text = section.GetText(rest, "a");
  if (text == "a" && section.GetText(rest, "b") == "b") return std::nullopt;
  return text;
}

// The supervisor's values that the file leaves to their defaults.
std::string Defaulted(const TMachineConfig& config) {
  const TConfigSection section = config.Root().Child("Supervisor");
  std::string text;
  for (const TSupervisorConfig::TRow& row : TSupervisorConfig::Rows())
    if (TrimXml(section.GetText(row.Name.Text, "")).empty())
      text += Format("%s%s %d", text.empty() ? "" : ", ", std::string(row.Name.Text).c_str(), row.Default);
  return text;
}

}  // namespace

TWholeConfig::TWholeConfig() {
  AddSubConfig("Alarms", FAlarms);
  AddSubConfig(kKeyDefinitionSection, FKeys);
}

void TWholeConfig::Publish(TPublisher& p) {
  FMachine.Publish(p);
  p.Child("Simulator", FSimulator);
  FJog.Publish(p);
}

TMachineFile::TMachineFile() { InitCamConfigs(FConfig); }
TMachineFile::~TMachineFile() { FreeAssistConfig(); }

void TMachineFile::Load(const std::filesystem::path& file, TXmlDetail detail) {
  FConfig.Load(file, mfRefused, detail).OrThrow(pbUnusable);
}

void TMachineFile::Hold(const std::filesystem::path& file) {
  if (const TLockState lock = FConfig.Hold(file); lock != lsHeld)
    throw EProblem(lock == lsBusy ? pbRefused : pbUnusable, FConfig.HoldProblem());
}

int RunConfigCheck(const std::filesystem::path& file, bool all, std::ostream& out) {
  TMachineFile machine;
  machine.Load(file, xdPlaces);
  auto findings = CheckDocument(machine.Config().Document(), machine.Config());
  std::vector<TProblem> fatal;
  std::vector<TProblem> outside;
  const TMachineBounds bounds = machine.Bounds(fatal);
  CheckRecord(machine.Config().Root(), machine.Config(), bounds, outside);
  if (FStrokeCfg->IsFinished)
    for (const auto& [range, measured, limit] : FStrokeCfg->Misfits(machine.Config()))
      outside.push_back({.What = Format(Tr("%s mm was measured, which is less than the soft limit of %s mm"),
                                        ValueText(static_cast<double>(measured)).c_str(),
                                        ValueText(static_cast<double>(limit)).c_str()),
                         .Where = std::string("StrokeMeasurement/") + range,
                         .Why = {},
                         .Remedy = {}});
  AddFindings(machine.Config().Document(), fatal, findings);
  AddFindings(machine.Config().Document(), outside, findings);
  std::size_t faults = 0;
  std::size_t foreign = 0;
  for (const TConfigFinding& finding : findings) {
    ++(finding.Foreign ? foreign : faults);
    if (!finding.Foreign || all)
      out << file.string() << ':' << finding.Place << ": " << finding.Path << ": " << finding.Text << '\n';
  }
  if (const std::string values = Defaulted(machine.Config()); !values.empty())
    out << file.string() << ": Supervisor: not given, the default is in force: " << values << '\n';
  if (faults != 0) return kExitOtherwise;
  out << file.string() << ": nothing wrong";
  if (foreign != 0)
    out << Format(" (%zu names that the library does not know%s)", foreign, all ? "" : "; --all lists them");
  out << '\n';
  return kExitSuccess;
}

int RunConfigShow(const std::filesystem::path& file, const std::string& section, bool json, std::ostream& out) {
  TMachineFile machine;
  machine.Load(file);
  auto views = ViewProperties(machine.Config(), false);
  const bool known = std::ranges::any_of(ViewProperties(machine.Config(), true),
                                         [&](const auto& view) { return Under(view.Path, section); }) ||
                     machine.Config().SubConfig(section);
  std::erase_if(views, [&](const auto& view) { return !Under(view.Path, section); });
  if (views.empty() && !known)
    throw EProblem(pbRequest, Format("\"%s\" is no section of the configuration", section.c_str()));
  if (json) {
    auto document = nlohmann::ordered_json::object();
    for (const auto& view : views) document[view.Path] = JsonOf(view, view.Value);
    out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return kExitSuccess;
  }
  for (const auto& view : views) out << view.Path << " = " << Shown(view) << '\n';
  return kExitSuccess;
}

int RunConfigGet(const std::filesystem::path& file, const std::string& path, std::ostream& out) {
  TMachineFile machine;
  machine.Load(file);
  const auto views = ViewProperties(machine.Config(), false);
  const auto view = std::ranges::find_if(views, [&](const auto& v) { return SameFolded(v.Path, path); });
  if (view != views.end()) {
    out << view->Value << '\n';
    return kExitSuccess;
  }
  const auto foreign = ForeignValue(machine.Config(), path);
  if (!foreign) throw EProblem(pbRequest, Format("\"%s\" is no property of the configuration", path.c_str()));
  out << *foreign << '\n';
  return kExitSuccess;
}

int RunConfigSet(const std::filesystem::path& file, const std::string& path, const std::string& value,
                 std::ostream& out) {
  TMachineFile machine;
  machine.Hold(file);
  machine.Load(file);
  std::vector<TProblem> wrong;  // elsewhere in the file; `check` names it
  const TMachineBounds bounds = machine.Bounds(wrong);
  SetProperty(machine.Config(), path, value, &bounds).OrThrow(pbRequest);
  machine.Config().DropDocument();
  const std::string unsure = machine.Config().Save().OrThrow(pbUnusable);
  if (!unsure.empty()) std::cerr << "ixocut config: " << unsure << std::endl;
  const auto views = ViewProperties(machine.Config(), false);
  const auto view = std::ranges::find_if(views, [&](const auto& v) { return SameFolded(v.Path, path); });
  if (view != views.end()) out << view->Path << " = " << Shown(*view) << '\n';
  return kExitSuccess;
}

int RunConfigDiff(const std::filesystem::path& a, const std::filesystem::path& b, std::ostream& out) {
  const auto read = [](const std::filesystem::path& file) {
    TMachineFile machine;
    machine.Load(file);
    return ViewProperties(machine.Config(), false);
  };
  const auto left = read(a);
  const auto right = read(b);
  std::map<std::string_view, const TPropertyView*> other;
  for (const auto& view : right) other[view.Path] = &view;
  std::size_t differences = 0;
  const auto line = [&](const std::string& path, const std::string& from, const std::string& to) {
    ++differences;
    out << path << ": " << from << " -> " << to << '\n';
  };
  for (const auto& view : left) {
    const auto it = other.find(view.Path);
    if (it == other.end()) {
      line(view.Path, Shown(view), "(missing)");
      continue;
    }
    if (it->second->Value != view.Value) line(view.Path, Shown(view), Shown(*it->second));
    other.erase(it);
  }
  for (const auto& view : right)
    if (other.contains(view.Path)) line(view.Path, "(missing)", Shown(view));
  return differences == 0 ? kExitSuccess : kExitOtherwise;
}

int RunConfigSchema(bool json, std::ostream& out) {
  TMachineFile machine;
  auto document = nlohmann::ordered_json::array();
  for (const auto& view : ViewProperties(machine.Config(), true)) {
    const std::string range = view.Range.empty() ? BoundText(view.Facts.Bound) : view.Range;
    const std::string unit = UnitText(view.Facts.Unit);
    if (json) {
      nlohmann::ordered_json row{{"path", view.Path}, {"type", view.Type}, {"default", JsonOf(view, view.Default)}};
      if (!range.empty()) row["range"] = range;
      if (!unit.empty()) row["unit"] = unit;
      if (view.Facts.Text) row["text"] = view.Facts.Text->Get();
      document.push_back(std::move(row));
    } else {
      out << Format("%-56s %-9s %s", view.Path.c_str(), view.Type.c_str(),
                    view.Type == "string" ? Quoted(view.Default).c_str() : view.Default.c_str());
      if (!unit.empty()) out << ' ' << unit;
      if (!range.empty()) out << "  " << range;
      out << '\n';
    }
  }
  if (json) out << document.dump(2) << '\n';
  return kExitSuccess;
}

int RunConfigRestore(const std::filesystem::path& file, std::ostream& out) {
  TMachineFile machine;
  machine.Hold(file);
  (void)machine.Config().Load(file);  // whether it can be read or not
  const std::string kept = machine.Config().Restore().OrThrow(pbUnusable);
  out << (kept.empty() ? Format(Tr("%s: is the previous version already; nothing was changed"), file.c_str())
                       : Format(Tr("%s: the previous version is back; what was replaced is kept as %s"), file.c_str(),
                                kept.c_str()))
      << '\n';
  return kExitSuccess;
}

namespace {

struct TConfigOptions {
  std::optional<std::filesystem::path> Machine, State;
  std::string File, Other, Path, Value;
  bool All = false;
  bool Json = false;
  [[nodiscard]] std::filesystem::path MachinePath() const { return MachineFile(Machine, State); }
};

constexpr const char* kConfigFooter =
    "Paths are names with slashes, list items numbered from 1: \"AutoCleanHead/CleanCount\",\n"
    "\"MarkPoints/MarkPoint[2]/CustomDesc\". Values are written as the file has them.\n"
    "\n"
    "Exit codes: 0 success, 1 check found something or diff found differences, 2 wrong command line, path or value,\n"
    "3 a file cannot be used.\n"
    "\n"
    "Examples:\n"
    "  ixocut config check machine.xml\n"
    "  ixocut config set AutoCleanHead/CleanCount 3\n"
    "  ixocut config show NozzleChange --json\n"
    "\n"
    "Software is not the emergency stop.";

}  // namespace

void AddConfigCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TConfigOptions>();
  CLI::App* const config = program.add_subcommand("config", "Check, show and edit the machine file");
  config->require_subcommand(1);
  config->footer(kConfigFooter);
  const auto command = [&](const char* name, const char* description, auto action) {
    CLI::App* const sub = config->add_subcommand(name, description);
    sub->footer(kConfigFooter);
    sub->callback([options, &run, action] { run = [options, action] { return action(*options); }; });
    return sub;
  };
  const auto file = [&](CLI::App* sub, const char* name, std::string& value, const char* description) {
    return sub->add_option(name, value, description)->required()->type_name("");
  };

  CLI::App* const check = command("check", "Name every problem of a machine file",
                                  [](auto& o) { return RunConfigCheck(o.File, o.All, std::cout); });
  file(check, "FILE", options->File, "The machine file");
  check->add_flag("--all", options->All, "List the names too that the library does not know");

  CLI::App* const show = command("show", "Print every property with its value",
                                 [](auto& o) { return RunConfigShow(o.MachinePath(), o.Path, o.Json, std::cout); });
  show->add_option("SECTION", options->Path, "Only this section")->type_name("");
  AddJsonOption(*show, options->Json);
  AddMachineOptions(*show, options->Machine, options->State);

  CLI::App* const get = command("get", "Print the value of one property",
                                [](auto& o) { return RunConfigGet(o.MachinePath(), o.Path, std::cout); });
  file(get, "PATH", options->Path, "The property");
  AddMachineOptions(*get, options->Machine, options->State);

  CLI::App* const set = command("set", "Set one property and save the file",
                                [](auto& o) { return RunConfigSet(o.MachinePath(), o.Path, o.Value, std::cout); });
  file(set, "PATH", options->Path, "The property");
  file(set, "VALUE", options->Value, "Its new value");
  AddMachineOptions(*set, options->Machine, options->State);

  CLI::App* const diff = command("diff", "Print the properties in which two machine files differ",
                                 [](auto& o) { return RunConfigDiff(o.File, o.Other, std::cout); });
  file(diff, "A", options->File, "The first file");
  file(diff, "B", options->Other, "The second file");

  CLI::App* const schema = command("schema", "Print every property with its type, default and range",
                                   [](auto& o) { return RunConfigSchema(o.Json, std::cout); });
  AddJsonOption(*schema, options->Json);

  CLI::App* const restore = command("restore", "Put the previous version of the machine file back",
                                    [](auto& o) { return RunConfigRestore(o.MachinePath(), std::cout); });
  AddMachineOptions(*restore, options->Machine, options->State);
}

}  // namespace ixocut
