#include "ixocut/config/ConfigCommand.h"

#include <algorithm>

#include "controller/client/StatusLines.h"
#include "controller/config/ConfigHistory.h"
#include "controller/config/ConfigJson.h"
#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Lists.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/client/Attach.h"

namespace ixocut {

namespace {

// One line, whatever the value holds.
std::string InQuotes(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string Shown(const TPropertyView& view) { return view.Type == "string" ? InQuotes(view.Value) : view.Value; }

// "3", "2.5 bar"; texts in quotation marks.
std::string WithUnit(const TPropertyView& view, const std::string& shown) {
  return view.Unit().empty() ? shown : shown + " " + view.Unit();
}

std::string Sentence(const TPropertyView& view) { return view.Text().empty() ? "" : "  # " + view.Text(); }

// "Laser/MaxPower = 3000 W  # ..."
std::string Line(const TPropertyView& view) { return view.Path + " = " + WithUnit(view, Shown(view)) + Sentence(view); }

std::string LineOf(const std::filesystem::path& file, const TConfigFinding& finding) {
  return file.string() + ':' + finding.Place + ": " + finding.Path + ": " + finding.Text;
}

}  // namespace

void TellWrong(const std::filesystem::path& file, const std::vector<TConfigFinding>& wrong) {
  for (const TConfigFinding& finding : wrong) std::cerr << LineOf(file, finding) << std::endl;
}

int RunConfigCheck(const std::filesystem::path& file, bool all, TConsole& console) {
  TMachineFile machine(Machines());
  machine.Load(file, xdPlaces);
  auto findings = machine.Findings(machine.Config().Document());
  const auto foreign = static_cast<std::size_t>(std::ranges::count_if(findings, &TConfigFinding::Foreign));
  const std::size_t faults = findings.size() - foreign;
  if (!all) std::erase_if(findings, &TConfigFinding::Foreign);
  const auto defaulted = DefaultedLimits(machine.Config());
  const std::string name = file.string();
  for (const TConfigFinding& finding : findings) console.Say(LineOf(file, finding));
  std::string values;
  for (const auto* const row : defaulted)
    AddToList(values, Format("%s %d", std::string(row->Name.Text).c_str(), row->Default));
  if (!values.empty())
    console.Say(name + ": " + Format(Tr("Supervisor: not given, the default is in force: %s"), values.c_str()));
  std::optional<TProblem> problem;
  if (faults != 0)
    problem = {.What = Format(Tr("%zu values or names are wrong"), faults), .Where = name};
  else if (foreign == 0)
    console.Say(name + ": " + Tr("nothing wrong"));
  else
    console.Say(name + ": " + Tr("nothing wrong") +
                Format(all ? Tr(" (%zu names that the library does not know)")
                           : Tr(" (%zu names that the library does not know; --all lists them)"),
                       foreign));
  return console.Print({{"file", name},
                        {"findings", JsonOf(findings)},
                        {"unknown", foreign},
                        {"defaults", ixocontroller::JsonOf(defaulted)}},
                       problem);
}

int RunConfigShow(const std::filesystem::path& file, const std::string& section, TConsole& console) {
  TMachineFile machine(Machines());
  machine.Load(file, xdPlaces);
  const auto views = FindSection(machine.Config(), section).OrThrow(pbRequest);
  const auto wrong = machine.Wrong({section});
  TellWrong(file, wrong);
  auto document = nlohmann::ordered_json::object();
  for (const auto& view : views) {
    document[view.Path] = JsonOf(view, view.Value);
    console.Say(Line(view));
  }
  return console.Print({{"properties", document}, {"wrong", JsonOf(wrong)}});
}

int RunConfigGet(const std::filesystem::path& file, const std::string& path, TConsole& console) {
  TMachineFile machine(Machines());
  machine.Load(file, xdPlaces);
  const auto view = FindProperty(machine.Config(), path);
  const bool isSection = !view && FindSection(machine.Config(), path);
  const auto foreign = view || isSection ? std::nullopt : ForeignValue(machine.Config().Root(), path);
  if (!view && !foreign) throw EProblem(pbRequest, view.Problem());
  const auto wrong = view ? machine.Wrong({view->Path}) : std::vector<TConfigFinding>();
  TellWrong(file, wrong);
  console.Say(view ? view->Value : *foreign);
  nlohmann::ordered_json row{{"path", path}};
  if (view) row = JsonFacts(*view);
  row["value"] = view ? JsonOf(*view, view->Value) : nlohmann::ordered_json(*foreign);
  row["wrong"] = JsonOf(wrong);
  return console.Print(row);
}

namespace {

// "wrong" of a row that was set.
void TellForced(const nlohmann::ordered_json& row, const TConsole& console) {
  if (console.Settings().Json) return;
  for (const auto& finding : row.at("wrong"))
    std::cerr << Format(Tr("set by force: %s: %s"), finding.value("path", "").c_str(),
                        finding.value("text", "").c_str())
              << std::endl;
}

// {"file", "restored", "kept"}: nothing is kept of a file that was gone, nor of one that was not replaced.
int TellRestored(const nlohmann::ordered_json& done, TConsole& console) {
  const std::string file = done.at("file"), kept = done.at("kept");
  console.Say(done.at("restored") == false
                  ? Format(Tr("%s: is the previous version already; nothing was changed"), file.c_str())
              : kept.empty() ? Format(Tr("%s: was gone; the previous version is back"), file.c_str())
                             : Format(Tr("%s: the previous version is back; what was replaced is kept as %s"),
                                      file.c_str(), kept.c_str()));
  return console.Print(done);
}

}  // namespace

int RunConfigSet(const std::filesystem::path& file, const std::string& path, const std::string& value, bool force,
                 TConsole& console) {
  TMachineFile machine(Machines());
  machine.Hold(file);
  machine.Load(file, xdPlaces);
  const auto wrong = machine.Set(path, value, force);
  const std::string unsure = machine.Config().Save().OrThrow(pbUnusable);
  if (!unsure.empty()) console.Note(unsure);
  const auto view = FindProperty(machine.Config(), path).OrThrow(pbRequest);
  auto row = JsonFacts(view);
  row["value"] = JsonOf(view, view.Value);
  row["wrong"] = JsonOf(wrong);
  TellForced(row, console);
  console.Say(Line(view));
  return console.Print(row);
}

int RunConfigDiff(const std::filesystem::path& a, const std::filesystem::path& b, TConsole& console) {
  const auto read = [](const std::filesystem::path& file) {
    TMachineFile machine(Machines());
    machine.Load(file, xdPlaces);
    return ViewProperties(machine.Config(), false);
  };
  const auto left = read(a);
  const auto right = read(b);
  const auto differences = Differences(left, right);
  const auto shown = [](const TPropertyView* at) {
    return at ? WithUnit(*at, Shown(*at)) : std::string(Tr("(missing)"));
  };
  for (const TConfigDifference& difference : differences)
    console.Say(difference.Path() + ": " + shown(difference.From) + " -> " + shown(difference.To));
  std::optional<TProblem> problem;
  if (!differences.empty()) problem = {.What = Format(Tr("the files differ in %zu properties"), differences.size())};
  return console.Print({{"differences", JsonOf(differences)}}, problem);
}

int RunConfigSchema(TConsole& console) {
  TMachineFile machine(Machines());
  auto document = nlohmann::ordered_json::array();
  for (const auto& view : ViewProperties(machine.Config(), true)) {
    document.push_back(JsonFacts(view));
    const std::string range = view.RangeText();
    console.Say(Format("%-56s %-9s ", view.Path.c_str(), view.Type.c_str()) +
                WithUnit(view, view.Type == TypeName<std::string>() ? InQuotes(view.Default) : view.Default) +
                (range.empty() ? "" : "  " + range) + Sentence(view));
  }
  return console.Print(document);
}

int RunConfigRestore(const std::filesystem::path& file, TConsole& console) {
  TMachineFile machine(Machines());
  machine.Hold(file);
  (void)machine.Config().Load(file);  // whether it can be read, or is there, or not
  std::error_code error;
  const bool wasThere = std::filesystem::exists(file, error);
  const std::string kept = machine.Config().Restore().OrThrow(pbUnusable);
  return TellRestored({{"file", file.string()}, {"restored", !wasThere || !kept.empty()}, {"kept", kept}}, console);
}

namespace {

struct TConfigOptions : TControllerSettings {
  std::string File, Other, Path, Value;
  std::uint64_t Limit = 20;
  bool All = false;
  bool Force = false;
  // The file itself may be gone.
  [[nodiscard]] std::filesystem::path RestorePath() const {
    const std::filesystem::path file = Machine ? *Machine : StateFolder(State) / kMachineFile;
    std::error_code error;
    return std::filesystem::exists(file.string() + std::string(TXmlConfig::kBackupSuffix), error) ? file
                                                                                                  : MachineFile();
  }
};

// --- on the controller that runs, which has the file to itself ---

std::string WirePath(const std::string& path) {
  std::string text = "/api/v1/config";
  for (const std::string& part : SplitAt(path, '/')) text += "/" + UrlPart(part);
  return text;
}

int SetThere(const TConfigOptions& options, TWireClient& client, TConsole& console) {
  const nlohmann::ordered_json row =
      client.Ask("PUT", WirePath(options.Path), {{"value", options.Value}, {"version", "*"}, {"force", options.Force}})
          .Body;
  TellForced(row, console);
  std::string line = row.at("path").get<std::string>() + " = " + row.at("value").dump();
  if (const std::string unit = row.value("unit", ""); !unit.empty()) line += ' ' + unit;
  if (const std::string text = row.value("text", ""); !text.empty()) line += "  # " + text;
  if (row.value("inForce", "") == "next start") line += std::string("  ") + Tr("(in force from the next start on)");
  console.Say(line);
  return console.Print(row);
}

int Set(TConfigOptions options, TConsole& console) {
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client()) return SetThere(options, *client, console);
  return RunConfigSet(options.MachineFile(), options.Path, options.Value, options.Force, console);
}

int Restore(TConfigOptions options, TConsole& console) {
  const TAttached attachment(options);
  if (TWireClient* const client = attachment.Client())
    return TellRestored(client->Post("/api/v1/config/restore"), console);
  return RunConfigRestore(options.RestorePath(), console);
}

// Who has changed what: the controller's own list, which it keeps in the state folder.
int History(TConfigOptions options, TConsole& console) {
  const TAttached attachment(options);
  TWireClient* const client = attachment.Client();
  const nlohmann::ordered_json changes =
      client ? client->Get("/api/v1/config/history?limit=" + std::to_string(options.Limit)).at("changes")
             : TConfigHistory(StateFolder(options.State) / kConfigHistoryFile).Read(options.Limit);
  const auto text = [](const nlohmann::ordered_json& change, const char* name) { return change.value(name, ""); };
  for (const auto& change : changes)
    console.Say(Format("%s  %s  %s  %s: %s -> %s", ShownTime(text(change, "at")).c_str(), text(change, "who").c_str(),
                       ShownWord(text(change, "what")).c_str(), text(change, "path").c_str(),
                       text(change, "from").c_str(), text(change, "to").c_str()));
  return console.Print({{"changes", changes}});
}

void SetConfigHelp(TCommand command, std::vector<const char*> examples) {
  command.Help(
      {.Notes = Tr("Paths are names with slashes, items of lists counted from 1: \"AutoCleanHead/CleanCount\",\n"
                   "\"MarkPoints/MarkPoint[2]/CustomDesc\". Values are written as the file has them. A controller that "
                   "runs saves "
                   "what is\nset at once: get, show, check and diff read its file."),
       .ExitCodes = Tr("0 success, 1 check found something or diff found differences, 2 wrong command line, path or\n"
                       "value, 3 a file cannot be used"),
       .Examples = std::move(examples)});
}

}  // namespace

void AddConfigCommand(TCommand program) {
  const auto options = std::make_shared<TConfigOptions>();
  const TCommand config = program.AddGroup("config", Tr("Check, show and edit the machine file"));
  const auto command = [&](const char* name, const char* description, std::vector<const char*> examples, auto action) {
    const TCommand sub = AddWith(config, name, description, options, action);
    SetConfigHelp(sub, std::move(examples));
    AddJsonOption(sub, options->Json);
    return sub;
  };
  const auto file = [&](TCommand sub, const char* name, std::string& value, const char* description) {
    return sub.Text(name, value, description, "").Required();
  };

  const TCommand check = command("check", Tr("Name every problem of a machine file"),
                                 {"ixocut config check machine.xml", "ixocut config check machine.xml --all"},
                                 [](auto& o, auto& console) { return RunConfigCheck(o.File, o.All, console); });
  file(check, "FILE", options->File, Tr("The machine file"));
  check.Flag("--all", options->All, Tr("List the names too that the library does not know"));

  const TCommand show =
      command("show", Tr("Print every property with its value, its unit and what it does"),
              {"ixocut config show AutoCleanHead", "ixocut config show NozzleChange/NozzlePosItems/PosItem[1]",
               "ixocut config show --json"},
              [](auto& o, auto& console) { return RunConfigShow(o.MachineFile(), o.Path, console); });
  show.Text("SECTION", options->Path, Tr("Only this section"), "");
  AddMachineOptions(show, options->Machine, options->State);

  const TCommand get =
      command("get", Tr("Print the value of one property"),
              {"ixocut config get AutoCleanHead/CleanCount", "ixocut config get Laser/MaxPower --json"},
              [](auto& o, auto& console) { return RunConfigGet(o.MachineFile(), o.Path, console); });
  file(get, "PATH", options->Path, Tr("The property"));
  AddMachineOptions(get, options->Machine, options->State);

  const TCommand set = command("set", Tr("Set one property and save the file"),
                               {"ixocut config set AutoCleanHead/CleanCount 3",
                                "ixocut config set \"MarkPoints/MarkPoint[2]/CustomDesc\" Loading",
                                "ixocut config set Axes/Axis[1]/SoftLimitPos 3000 --force"},
                               Set);
  file(set, "PATH", options->Path, Tr("The property"));
  file(set, "VALUE", options->Value, Tr("Its new value"));
  set.Flag("--force", options->Force, Tr("Also a value that check would name"));
  AddMachineSettings(set, *options);
  AddAttachOptions(set, options->Attach, true);

  const TCommand diff = command("diff", Tr("Print the properties in which two machine files differ"),
                                {"ixocut config diff machine.xml machine.xml.bak"},
                                [](auto& o, auto& console) { return RunConfigDiff(o.File, o.Other, console); });
  file(diff, "A", options->File, Tr("The first file"));
  file(diff, "B", options->Other, Tr("The second file"));

  const TCommand history = command("history", Tr("Who has changed what on a controller, the newest last"),
                                   {"ixocut config history", "ixocut config history --limit 5 --json"}, History);
  history.Number("--limit", options->Limit, 1, 10 * TConfigHistory::kKept, "", Tr("At most so many")).ShowDefault();
  AddMachineSettings(history, *options);
  AddAttachOptions(history, options->Attach, false);

  command("schema", Tr("Print every property with its type, default, unit, range and what it does"),
          {"ixocut config schema", "ixocut config schema --json"},
          [](auto&, auto& console) { return RunConfigSchema(console); });

  const TCommand restore = command("restore", Tr("Put the previous version of the machine file back"),
                                   {"ixocut config restore", "ixocut config restore --machine machine.xml"}, Restore);
  AddMachineSettings(restore, *options);
  AddAttachOptions(restore, options->Attach, true);
  SetConfigHelp(config, {"ixocut config check machine.xml", "ixocut config set AutoCleanHead/CleanCount 3",
                         "ixocut config show NozzleChange --json"});
}

}  // namespace ixocut
