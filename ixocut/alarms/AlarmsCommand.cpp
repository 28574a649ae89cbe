#include "ixocut/alarms/AlarmsCommand.h"

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "controller/service/AlarmDesk.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

using TRun = int (*)(const TAlarmsOptions&, std::ostream&);

CLI::Validator NotEmpty() {
  return {[](const std::string& text) { return text.empty() ? std::string(Tr("the text is empty")) : std::string(); },
          ""};
}

}  // namespace

void AddAlarmsCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const alarms = program.add_subcommand("alarms", Tr("Look up, raise, list and check alarms"));
  alarms->require_subcommand(1);
  SetHelp(*alarms, {.Notes = {},
                    .ExitCodes = {},
                    .Examples = {"ixocut alarms lookup TPLaser#1", "ixocut alarms live --script alarms.txt",
                                 "ixocut alarms list --active", "ixocut alarms COMMAND --help"}});
  const auto options = std::make_shared<TAlarmsOptions>();
  TAlarmsOptions& o = *options;

  const auto add = [&](const char* name, const char* description, TRun call, const THelp& help) {
    CLI::App* const command =
        AddCommand(*alarms, name, description, run, [options, call] { return call(*options, std::cout); });
    SetHelp(*command, help);
    return command;
  };
  const auto id = [&](CLI::App* command) {
    command->add_option("ID", o.Id, Tr("The alarm's identifier, TPLaser#1 for example"))->required()->check(NotEmpty());
  };
  const auto json = [&](CLI::App* command) { return AddJsonOption(*command, o.Json); };
  const auto db = [&](CLI::App* command) {
    command->add_option("--db", o.Db, Tr("The alarm store (default alarms.db in the state folder)"))
        ->check(NotEmpty())
        ->type_name("FILE");
  };
  const auto since = [&](CLI::App* command) {
    command->add_option("--since", o.Since, Tr("Only raises from this time on, \"2026-01-31 14:00\" for example"))
        ->type_name("TIME");
  };
  const auto duration = [&](CLI::App* command) {
    AddNumberOption(*command, "--for", o.ForMs, 1, 86'400'000, "ms",
                    Tr("End by itself after this time, 1 to 86400000"));
  };

  CLI::App* const lookup = add("lookup", Tr("Print what is known of an identifier"), RunAlarmsLookup,
                               {.Notes = {},
                                .ExitCodes = Tr("0 it is known, 1 it is not, 3 a file cannot be used"),
                                .Examples = {"ixocut alarms lookup TPLaser#1 --lang en",
                                             "ixocut alarms lookup TPGas#2 --machine machine.xml --json"}});
  id(lookup);
  json(lookup);
  AddMachineSettings(*lookup, o);

  CLI::App* const live = add(
      "live", Tr("Run the simulated machine with its alarm store"), RunAlarmsLive,
      {.Notes =
           Tr("Lines from the terminal or from --script, which is read whole before its first line runs:\n"
              "  raise ID                     raise an alarm that is shown only; ID is PREFIX#NUMBER\n"
              "  clear ID                     clear the newest one that was raised by hand\n"
              "  ack ID                       acknowledge it\n"
              "  suppress ID MINUTES REASON   hide its lines for a while; never those of level 1\n"
              "  wait MS                      let time pass\n"
              "  fault DEVICE, mend DEVICE    let a device fail or work: axis, gas, emission, device\n"
              "\n"
              "One program at a time writes a store. A store that cannot be written keeps the machine from nothing:\n"
              "its alarms wait, and are counted at the end."),
       .ExitCodes = Tr("0 success, 1 a line was refused or another program writes the store, 2 wrong command line or\n"
                       "script, 3 a file cannot be used or alarms are not stored"),
       .Examples = {"ixocut alarms live", "ixocut alarms live --script alarms.txt --db alarms.db",
                    "ixocut alarms live --retention 30"}});
  live->add_option("--script", o.Script, Tr("Take the lines from this file"))->check(NotEmpty())->type_name("FILE");
  db(live);
  AddNumberOption(*live, "--retention", o.RetentionDays, 0, 36'500, "",
                  Tr("Delete closed alarms after so many days; 0 never"))
      ->capture_default_str();
  AddSeedOption(*live, o.Seed);
  AddMachineSettings(*live, o);

  CLI::App* const list = add(
      "list", Tr("List the alarms of a store, oldest first"), RunAlarmsList,
      {.Notes = Tr("Lines show the time of this place with its offset, --json and --csv show UTC. A controller that "
                   "runs writes\nwhat happens into its store within moments: list, watch and stats read it there."),
       .ExitCodes = {},
       .Examples = {"ixocut alarms list --active", "ixocut alarms list --since \"2026-01-31 14:00\" --level 1",
                    "ixocut alarms list --history --csv --db alarms.db"}});
  CLI::Option* const active = list->add_flag("--active", o.Active, Tr("Only those that are not cleared"));
  list->add_flag("--history", o.History, Tr("Only those that are cleared"))->excludes(active);
  since(list);
  list->add_option("--level", o.Level, Tr("Only this level: 1 forbids or stops something, 0 tells"))
      ->check(CLI::IsMember({0, 1}))
      ->type_name("N");
  list->add_option("--id", o.Id, Tr("Only this identifier"))->type_name("ID");
  list->add_flag("--suppressed", o.Suppressed, Tr("Also those that are suppressed"));
  CLI::Option* const asJson = json(list);
  list->add_flag("--csv", o.Csv, Tr("Print comma-separated text"))->excludes(asJson);

  CLI::App* const watch = add(
      "watch", Tr("Show the active alarms of a store, then every change"), RunAlarmsWatch,
      {.Notes = {}, .ExitCodes = {}, .Examples = {"ixocut alarms watch", "ixocut alarms watch --for 60000 --json"}});
  duration(watch);
  json(watch);
  CLI::App* const stats = add(
      "stats", Tr("Count: rate, floods, chattering, stale and most frequent alarms"), RunAlarmsStats,
      {.Notes = {}, .ExitCodes = {}, .Examples = {"ixocut alarms stats", "ixocut alarms stats --since 2026-01-31"}});
  since(stats);
  json(stats);
  CLI::App* const ack = add(
      "ack", Tr("Acknowledge an active alarm"), RunAlarmsAck,
      {.Notes = Tr("On the controller that runs, in the name of who asks; else in the store, in the name that --who "
                   "gives."),
       .ExitCodes = {},
       .Examples = {"ixocut alarms ack TPMaint#1", "ixocut alarms ack TPMaint#1 --who Li --db alarms.db"}});
  id(ack);
  ack->add_option("--who", o.Who, Tr("Who has seen it; for a store"))->check(NotEmpty())->type_name("NAME");
  json(ack);
  AddAttachOptions(*ack, o.Attach, false);
  CLI::App* const suppress = add(
      "suppress", Tr("Let the controller that runs hide an alarm for a while; never one of level 1"), RunAlarmsSuppress,
      {.Notes = {},
       .ExitCodes =
           Tr("0 done, 1 refused, ended otherwise or no controller runs, 2 wrong command line, 3 it does not answer"),
       .Examples = {"ixocut alarms suppress TPMaint#1 --minutes 60 --reason \"the filter is ordered\""}});
  id(suppress);
  AddNumberOption(*suppress, "--minutes", o.Minutes, 0, ixocontroller::TAlarmDesk::kMostMinutes, "",
                  Tr("For so long, 0 to 10080; 0 shows it again"))
      ->required();
  suppress->add_option("--reason", o.Reason, Tr("Why"))->type_name("TEXT");
  AddClientOptions(*suppress, o, o.Json, false);
  CLI::App* const clear =
      add("clear", Tr("Clear an alarm that was raised by hand and that no program holds any more"), RunAlarmsClear,
          {.Notes = Tr("Refused while a program writes the store, and for what the machine has raised."),
           .ExitCodes = Tr("0 success, 1 refused, 3 the store cannot be used"),
           .Examples = {"ixocut alarms clear TPMaint#1"}});
  id(clear);
  json(clear);
  for (CLI::App* const command : {list, watch, stats, ack, clear}) {
    db(command);
    AddMachineSettings(*command, o);
  }

  CLI::App* const check =
      add("check", Tr("Say what is wrong with a definition list or a machine file's alarms"), RunAlarmsCheck,
          {.Notes = {},
           .ExitCodes = Tr("0 in order, 1 something is wrong, 3 the file cannot be read"),
           .Examples = {"ixocut alarms check alarms/zh.json", "ixocut alarms check machine.xml --json"}});
  check->add_option("FILE", o.File, Tr("The list (JSON) or the machine file (XML)"))->required()->check(NotEmpty());
  json(check);
}

}  // namespace ixocut
