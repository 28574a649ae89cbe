#include "ixocut/monitor/MonitorCommands.h"

#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
#include "ixocut/OperatorTexts.h"

namespace ixocut {
namespace {

struct TMonitorOptions {
  std::string File, Other, Out, To = "columns", Align = kAlignments[0], Language = "zh";
  bool Json = false;
};

using TOptionsPtr = std::shared_ptr<TMonitorOptions>;

CLI::App* AddMonitor(CLI::App& monitor, TCommandRun& run, const TOptionsPtr& options, const char* name,
                     const char* summary, const THelp& help, int (*act)(const TMonitorOptions&, TConsole&)) {
  CLI::App* const command = AddCommand(monitor, name, summary, run, [options, act] {
    const TOperatorTexts texts("monitor", options->Language);
    TConsole console(std::cout, options->Json, false);
    return act(*options, console);
  });
  AddLanguageOption(*command, options->Language);
  AddJsonOption(*command, options->Json);
  SetHelp(*command, help);
  return command;
}

void AddFile(CLI::App& command, std::string& file, const char* name) {
  command.add_option(name, file, Tr("A monitor file"))->type_name("")->required();
}

void AddOut(CLI::App& command, std::string& file, const char* what) {
  command.add_option("--out", file, what)->type_name("FILE")->required();
}

}  // namespace

void AddMonitorCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TMonitorOptions>();
  CLI::App* const monitor =
      program.add_subcommand("monitor", Tr("Look at recordings: show, plot, diff, convert, recover"));
  monitor->require_subcommand(1);
  CLI::App* const show = AddMonitor(
      *monitor, run, options, "show", Tr("Print what a monitor file holds and what is wrong with it"),
      {.Notes = Tr("A file that is being written has .part behind its name, and keeps it when its writer is killed."),
       .ExitCodes = Tr("0 the file is whole, 1 it is not, 2 wrong command line, 3 it cannot be used"),
       .Examples = {"ixocut monitor show square.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return ShowMonitorFile(o.File, console); });
  AddFile(*show, options->File, "FILE");

  CLI::App* const plot =
      AddMonitor(*monitor, run, options, "plot", Tr("Draw the signals over time (needs gnuplot)"),
                 {.Notes = {},
                  .ExitCodes = Tr("0 success, 2 wrong command line, 3 a file cannot be used or gnuplot is missing"),
                  .Examples = {"ixocut monitor plot square.csv --out square.svg --lang en"}},
                 [](const TMonitorOptions& o, TConsole& console) { return PlotMonitorFile(o.File, o.Out, console); });
  AddFile(*plot, options->File, "FILE");
  AddOut(*plot, options->Out, Tr("The picture to write: a name that ends in .svg"));

  CLI::App* const diff = AddMonitor(
      *monitor, run, options, "diff", Tr("Print the largest difference of two runs per signal"),
      {.Notes = Tr("At each sample of A within the time that both have, B holds its latest value."),
       .ExitCodes =
           Tr("0 no difference, 1 differences or nothing to compare, 2 wrong command line, 3 a file cannot be used"),
       .Examples = {"ixocut monitor diff monday.csv tuesday.csv --align beam"}},
      [](const TMonitorOptions& o, TConsole& console) { return DiffMonitorFiles(o.File, o.Other, o.Align, console); });
  AddFile(*diff, options->File, "A");
  AddFile(*diff, options->Other, "B");
  diff->add_option("--align", options->Align,
                   Tr("What happens at 0 ms of both: the first beam, the first procedure's start, the first sample; "
                      "auto is the first of these that both have"))
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kAlignments), std::end(kAlignments))))
      ->type_name("EVENT")
      ->capture_default_str();

  CLI::App* const convert = AddMonitor(
      *monitor, run, options, "convert", Tr("Write one row per sample time, for tools that open plain tables"),
      {.Notes = {}, .ExitCodes = {}, .Examples = {"ixocut monitor convert square.csv --to columns --out table.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return ConvertMonitorFile(o.File, o.Out, console); });
  AddFile(*convert, options->File, "FILE");
  convert->add_option("--to", options->To, Tr("The form to write: columns"))
      ->check(CLI::IsMember({"columns"}))
      ->type_name("FORM")
      ->required();
  AddOut(*convert, options->Out, Tr("The table to write"));

  CLI::App* const recover = AddMonitor(
      *monitor, run, options, "recover",
      Tr("Copy a monitor file, or the .part of a killed recording, without a last line that was cut off"),
      {.Notes = {}, .ExitCodes = {}, .Examples = {"ixocut monitor recover run.csv.part --out run.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return RecoverMonitorFile(o.File, o.Out, console); });
  AddFile(*recover, options->File, "FILE");
  AddOut(*recover, options->Out, Tr("The file to write"));

  SetHelp(
      *monitor,
      {.Notes = {}, .ExitCodes = {}, .Examples = {"ixocut monitor show square.csv", "ixocut monitor COMMAND --help"}});
}

}  // namespace ixocut
