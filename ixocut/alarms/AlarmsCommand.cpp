#include "ixocut/alarms/AlarmsCommand.h"

#include "controller/service/AlarmDesk.h"
#include "ixocut/Command.h"
#include "ixocut/client/Attach.h"

namespace ixocut {

void AddAlarmsCommand(TCommand program) {
  const TCommand alarms = program.AddGroup("alarms", Tr("Look up, raise, list and check alarms"));
  alarms.Help({.Examples = {"ixocut alarms lookup TPLaser#1", "ixocut alarms live --script alarms.txt",
                            "ixocut alarms list --active", "ixocut alarms COMMAND --help"}});
  const auto options = std::make_shared<TAlarmsOptions>();
  TAlarmsOptions& o = *options;
  const char* const empty = Tr("the text is empty");

  const auto add = [&](const char* name, const char* description, auto call, const THelp& help) {
    const TCommand command = AddWith(alarms, name, description, options, call);
    command.Help(help);
    return command;
  };
  const auto id = [&](TCommand command) {
    command.Text("ID", o.Id, Tr("The alarm's identifier, TPLaser#1 for example"), "TEXT").Required().NotEmpty(empty);
  };
  const auto json = [&](TCommand command) { return AddJsonOption(command, o.Json); };
  const auto db = [&](TCommand command) {
    command.Text("--db", o.Db, Tr("The alarm store (default alarms.db in the state folder)"), "FILE").NotEmpty(empty);
  };
  const auto since = [&](TCommand command) {
    command.Text("--since", o.Since, Tr("Only raises from this time on, \"2026-01-31 14:00\" for example"), "TIME");
  };
  const auto duration = [&](TCommand command) {
    command.Number("--for", o.ForMs, 1, 86'400'000, "ms", Tr("End by itself after this time, 1 to 86400000"));
  };

  const TCommand lookup = add("lookup", Tr("Print what is known of an identifier"), RunAlarmsLookup,
                              {.ExitCodes = Tr("0 it is known, 1 it is not, 3 a file cannot be used"),
                               .Examples = {"ixocut alarms lookup TPLaser#1 --lang en",
                                            "ixocut alarms lookup TPGas#2 --machine machine.xml --json"}});
  id(lookup);
  json(lookup);
  AddMachineSettings(lookup, o);

  const TCommand live = add(
      "live", Tr("Run the machine with its alarm store, and raise alarms by hand"), RunAlarmsLive,
      {.Notes =
           Tr("Lines from the terminal or from --script, which is read whole before its first line runs:\n"
              "  raise ID                     raise an alarm that is shown only; ID is PREFIX#NUMBER\n"
              "  clear ID                     clear the newest one that was raised by hand\n"
              "  ack ID                       acknowledge it\n"
              "  suppress ID MINUTES REASON   hide its lines for a while; never those of level 1\n"
              "  wait MS                      let time pass\n"
              "  fault DEVICE, mend DEVICE    let a simulated device fail or work: axis, gas, emission, device\n"
              "\n"
              "One program at a time writes a store. A store that cannot be written keeps the machine from nothing:\n"
              "its alarms wait, and are counted at the end."),
       .ExitCodes = Tr("0 success, 1 a line was refused or another program writes the store, 2 wrong command line or\n"
                       "script, 3 a file cannot be used or alarms are not stored"),
       .Examples = {"ixocut alarms live", "ixocut alarms live --script alarms.txt --db alarms.db",
                    "ixocut alarms live --retention 30"}});
  live.Text("--script", o.Script, Tr("Take the lines from this file"), "FILE").NotEmpty(empty);
  db(live);
  live.Number("--retention", o.RetentionDays, 0, 36'500, "", Tr("Delete closed alarms after so many days; 0 never"))
      .ShowDefault();
  AddSeedOption(live, o.Seed);
  AddMachineSettings(live, o);

  const TCommand list = add(
      "list", Tr("List the alarms of a store, oldest first"), RunAlarmsList,
      {.Notes = Tr("Lines show the time of this place with its offset, --json and --csv show UTC. A controller that "
                   "runs writes\nwhat happens into its store within moments: list, watch and stats read it there."),
       .Examples = {"ixocut alarms list --active", "ixocut alarms list --since \"2026-01-31 14:00\" --level 1",
                    "ixocut alarms list --history --csv --db alarms.db"}});
  const TOption active = list.Flag("--active", o.Active, Tr("Only those that are not cleared"));
  list.Flag("--history", o.History, Tr("Only those that are cleared")).Excludes(active);
  since(list);
  list.Text(
          "--level", [&o](const std::string& text) { o.Level = text == "1"; },
          Tr("Only this level: 1 forbids or stops something, 0 tells"), "N")
      .OneOf({"0", "1"});
  list.Text("--id", o.Id, Tr("Only this identifier"), "ID");
  list.Flag("--suppressed", o.Suppressed, Tr("Also those that are suppressed"));
  const TOption asJson = json(list);
  list.Flag("--csv", o.Csv, Tr("Print comma-separated text")).Excludes(asJson);

  const TCommand watch = add("watch", Tr("Show the active alarms of a store, then every change"), RunAlarmsWatch,
                             {.Examples = {"ixocut alarms watch", "ixocut alarms watch --for 60000 --json"}});
  duration(watch);
  json(watch);
  const TCommand stats =
      add("stats", Tr("Count: rate, floods, chattering, stale and most frequent alarms"), RunAlarmsStats,
          {.Examples = {"ixocut alarms stats", "ixocut alarms stats --since 2026-01-31"}});
  since(stats);
  json(stats);
  const TCommand ack = add(
      "ack", Tr("Acknowledge an active alarm"), RunAlarmsAck,
      {.Notes = Tr("On the controller that runs, in the name of who asks; else in the store, in the name that --who "
                   "gives."),
       .Examples = {"ixocut alarms ack TPMaint#1", "ixocut alarms ack TPMaint#1 --who Li --db alarms.db"}});
  id(ack);
  ack.Text("--who", o.Who, Tr("Who has seen it; for a store"), "NAME").NotEmpty(empty);
  json(ack);
  AddAttachOptions(ack, o.Attach, false);
  const TCommand suppress = add(
      "suppress", Tr("Let the controller that runs hide an alarm for a while; never one of level 1"), RunAlarmsSuppress,
      {.ExitCodes =
           Tr("0 done, 1 refused, ended otherwise or no controller runs, 2 wrong command line, 3 it does not answer"),
       .Examples = {"ixocut alarms suppress TPMaint#1 --minutes 60 --reason \"the filter is ordered\""}});
  id(suppress);
  suppress
      .Number("--minutes", o.Minutes, 0, ixocontroller::kMostSuppressedMinutes, "",
              Format(Tr("For so long, 0 to %u; 0 shows it again"), ixocontroller::kMostSuppressedMinutes))
      .Required();
  suppress.Text("--reason", o.Reason, Tr("Why"), "TEXT");
  AddClientOptions(suppress, o, false);
  const TCommand clear =
      add("clear", Tr("Clear an alarm that was raised by hand and that no program holds any more"), RunAlarmsClear,
          {.Notes = Tr("Refused while a program writes the store, and for what the machine has raised."),
           .ExitCodes = Tr("0 success, 1 refused, 3 the store cannot be used"),
           .Examples = {"ixocut alarms clear TPMaint#1"}});
  id(clear);
  json(clear);
  for (const TCommand command : {list, watch, stats, ack, clear}) {
    db(command);
    AddMachineSettings(command, o);
  }

  const TCommand check =
      add("check", Tr("Say what is wrong with a definition list or a machine file's alarms"), RunAlarmsCheck,
          {.ExitCodes = Tr("0 in order, 1 something is wrong, 3 the file cannot be read"),
           .Examples = {"ixocut alarms check alarms/zh.json", "ixocut alarms check machine.xml --json"}});
  check.Text("FILE", o.File, Tr("The list (JSON) or the machine file (XML)"), "TEXT").Required().NotEmpty(empty);
  json(check);
}

}  // namespace ixocut
