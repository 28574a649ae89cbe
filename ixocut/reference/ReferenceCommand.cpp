// `ixocut reference`: writes the reference pages, each made from the table that the program itself works with.
#include "commandline/OutputFile.h"
#include "controller/Controller.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocamglue/support/Files.h"
#include "ixocut/Command.h"
#include "ixocut/Machines.h"
#include "ixocut/reference/Reference.h"

namespace ixocut {
namespace {

namespace fs = std::filesystem;

struct TReferencePage {
  const char* File;
  const char* Title;  // shown through Tr
  void (*Fill)(TPage& page, const TReferenceSources& sources);
};

constexpr TReferencePage kPages[] = {
    {"configuration.md", TrMark("The machine file, property by property"), FillConfiguration},
    {"procedures.md", TrMark("Procedures and their parameters"), FillProcedures},
    {"commands.md", TrMark("Command numbers and states"), FillCommands},
    {"alarms.md", TrMark("Alarms"), FillAlarms},
    {"panel.md", TrMark("Panel: keys, states and forms"), FillPanel},
    {"api.md", TrMark("The API, route by route"), FillApi},
    {"exit-codes.md", TrMark("Exit codes"), FillExitCodes},
    {"files.md", TrMark("Files of the state folder"), FillFiles},
};
constexpr const char* kIndex = "README.md";
// The first line of a page; what begins otherwise is not overwritten.
constexpr std::string_view kMark = "<!-- Made by `ixocut reference`; a change here is lost. -->";

struct TReferenceOptions : TOutputSettings {
  std::string Folder;
};

// Of a machine whose values are all the defaults, in virtual time.
TControllerOptions OfAnyMachine(const TReferenceOptions& options) {
  return {.Machines = Machines(),
          .MachineFile = {},
          .LocaleFolder = ShareFolder() / "locale",
          .Language = options.Language,
          .AlarmFolder = ShareFolder() / "alarms"};
}

// What the controller's and the machine's sources have registered, and what a composed machine says of each driver.
std::vector<TNcAlarmRecord> AlarmsOf(TController& controller) {
  std::vector<TNcAlarmRecord> alarms = controller.Alarms().Registered();
  for (std::int32_t number = 1; number <= static_cast<std::int32_t>(Drivers().size()); ++number)
    alarms.push_back({.IdPrefix = kDriverAlarmPrefix, .Desc = {}, .Id = number, .Attrs = kDriverAwayForbids});
  return alarms;
}

TPage IndexPage() {
  TPage page(kMark, Tr("Reference"));
  page.Say(Tr("`ixocut reference --to FOLDER` makes these pages from the tables that the program itself works with."));
  std::vector<std::vector<std::string>> rows;
  for (const TReferencePage& row : kPages) rows.push_back({std::string("[") + Tr(row.Title) + "](" + row.File + ")"});
  page.Table({Tr("page")}, rows);
  return page;
}

void WritePage(const fs::path& folder, const char* name, const TPage& page, TConsole& console) {
  const std::string file = (folder / name).string();
  CheckOutputFile("--to", file, [](std::string_view head) { return head.starts_with(kMark); });
  ReplaceOrThrow(file, page.Text());
  console.Say(file);
}

int Run(const TReferenceOptions& options, TCommand program, TConsole& console) {
  const fs::path folder = options.Folder;
  MakeFolder(folder).OrThrow(pbUnusable);
  TController controller(OfAnyMachine(options));
  const TReferenceSources sources{.Program = program, .Registered = AlarmsOf(controller)};
  WritePage(folder, kIndex, IndexPage(), console);
  for (const TReferencePage& row : kPages) {
    TPage page(kMark, Tr(row.Title));
    row.Fill(page, sources);
    WritePage(folder, row.File, page, console);
  }
  return kExitSuccess;
}

}  // namespace

void AddReferenceCommand(TCommand program) {
  auto [command, options] = AddOwn<TReferenceOptions>(
      program, "reference", Tr("Write the reference: configuration, procedures, alarms, keys, API, files"),
      [program](const TReferenceOptions& own, TConsole& console) { return Run(own, program, console); });
  command.Text("--to", options.Folder, Tr("The folder that takes the pages, in Markdown"), "DIR").Required();
  AddLanguageOption(command, options.Language);
  command.Help({.Notes = Tr("The pages are made from the tables that the program works with, for any machine. "
                            "Pages that are there are\nreplaced, other files are not."),
                .Examples = {"ixocut reference --to reference", "ixocut reference --to docs/reference --lang en"}});
}

}  // namespace ixocut
