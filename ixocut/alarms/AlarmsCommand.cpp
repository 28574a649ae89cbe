#include "ixocut/alarms/AlarmsCommand.h"

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"

namespace ixocut {
namespace {

using TRun = int (*)(const TAlarmsOptions&, std::ostream&);

constexpr const char* kFooter =
    "\"live\" takes these lines from the terminal or from --script, one each:\n"
    "  raise ID                     raise an alarm that is shown only; ID is PREFIX#NUMBER\n"
    "  clear ID                     clear the newest one\n"
    "  ack ID                       acknowledge it\n"
    "  suppress ID MINUTES REASON   hide its lines for a while; never those of level 1\n"
    "  wait MS                      let time pass\n"
    "  fault DEVICE, mend DEVICE    let a device fail or work: axis, gas, emission, device\n"
    "\n"
    "Exit codes: 0 success, 1 unknown, wrong or not there, 2 wrong command line, 3 a file cannot be used.\n"
    "\n"
    "Examples:\n"
    "  ixocut alarms lookup TPLaser#1 --lang en\n"
    "  ixocut alarms live --script alarms.txt --db /tmp/alarms.db\n"
    "  ixocut alarms list --active --db /tmp/alarms.db --json\n"
    "  ixocut alarms check data/alarms/zh.json\n"
    "\n"
    "Software is not the emergency stop.";

CLI::Validator NotEmpty() {
  return {[](const std::string& text) { return text.empty() ? std::string("the text is empty") : std::string(); }, ""};
}

}  // namespace

void AddAlarmsCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const alarms = program.add_subcommand("alarms", "Look up, raise, list and check alarms");
  alarms->require_subcommand(1);
  alarms->footer(kFooter);
  const auto options = std::make_shared<TAlarmsOptions>();
  TAlarmsOptions& o = *options;

  const auto add = [&](const char* name, const char* description, TRun call) {
    CLI::App* const command = alarms->add_subcommand(name, description);
    command->callback([options, call, &run] { run = [options, call] { return call(*options, std::cout); }; });
    return command;
  };
  const auto id = [&](CLI::App* command) {
    command->add_option("ID", o.Id, "The alarm's identifier, TPLaser#1 for example")->required()->check(NotEmpty());
  };
  const auto json = [&](CLI::App* command) { return AddJsonOption(*command, o.Json); };
  const auto db = [&](CLI::App* command) {
    command->add_option("--db", o.Db, "The alarm store (default alarms.db in the state folder)")
        ->check(NotEmpty())
        ->type_name("FILE");
  };
  const auto since = [&](CLI::App* command) {
    command->add_option("--since", o.Since, "Only raises from this time on, \"2026-01-31 14:00\" for example")
        ->type_name("TIME");
  };
  const auto duration = [&](CLI::App* command) {
    AddNumberOption(*command, "--for", o.ForMs, 1, 86'400'000, "ms", "End by itself after this time, 1 to 86400000");
  };

  CLI::App* const lookup = add("lookup", "Print what is known of an identifier", RunAlarmsLookup);
  id(lookup);
  json(lookup);
  AddMachineOptions(*lookup, o.Machine, o.State);
  AddLanguageOption(*lookup, o.Language);

  CLI::App* const live = add("live", "Run the simulated machine with its alarm store", RunAlarmsLive);
  live->add_option("--script", o.Script, "Take the lines from this file")->check(NotEmpty())->type_name("FILE");
  db(live);
  AddNumberOption(*live, "--retention", o.RetentionDays, 0, 36'500, "",
                  "Delete closed alarms after so many days; 0 never")
      ->capture_default_str();
  AddSeedOption(*live, o.Seed);
  AddMachineOptions(*live, o.Machine, o.State);
  AddLanguageOption(*live, o.Language);
  live->footer(kFooter);

  CLI::App* const list = add("list", "List the alarms of a store, oldest first", RunAlarmsList);
  CLI::Option* const active = list->add_flag("--active", o.Active, "Only those that are not cleared");
  list->add_flag("--history", o.History, "Only those that are cleared")->excludes(active);
  since(list);
  list->add_option("--level", o.Level, "Only this level: 1 forbids or stops something, 0 tells")
      ->check(CLI::IsMember({0, 1}))
      ->type_name("N");
  list->add_option("--id", o.Id, "Only this identifier")->type_name("ID");
  list->add_flag("--suppressed", o.Suppressed, "Also those that are suppressed");
  CLI::Option* const asJson = json(list);
  list->add_flag("--csv", o.Csv, "Print comma-separated text")->excludes(asJson);

  CLI::App* const watch = add("watch", "Show the active alarms of a store, then every change", RunAlarmsWatch);
  duration(watch);
  CLI::App* const stats =
      add("stats", "Count: rate, floods, chattering, stale and most frequent alarms", RunAlarmsStats);
  since(stats);
  json(stats);
  CLI::App* const ack = add("ack", "Acknowledge an active alarm", RunAlarmsAck);
  id(ack);
  ack->add_option("--who", o.Who, "Who has seen it")->required()->check(NotEmpty())->type_name("NAME");
  for (CLI::App* const command : {list, watch, stats, ack}) {
    db(command);
    AddMachineOptions(*command, o.Machine, o.State);
    AddLanguageOption(*command, o.Language);
  }

  CLI::App* const check =
      add("check", "Say what is wrong with a definition list or a machine file's alarms", RunAlarmsCheck);
  check->add_option("FILE", o.File, "The list (JSON) or the machine file (XML)")->required()->check(NotEmpty());
}

}  // namespace ixocut
