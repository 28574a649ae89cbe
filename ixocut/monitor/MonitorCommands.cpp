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

CLI::App* AddOne(CLI::App& monitor, TCommandRun& run, const TOptionsPtr& options, const char* name, const char* summary,
                 int (*act)(const TMonitorOptions&)) {
  CLI::App* const command = monitor.add_subcommand(name, summary);
  AddLanguageOption(*command, options->Language);
  command->callback([options, act, &run] {
    run = [options, act] {
      const TOperatorTexts texts("monitor", options->Language);
      return act(*options);
    };
  });
  return command;
}

void AddFile(CLI::App& command, std::string& file, const char* name) {
  command.add_option(name, file, "A monitor file")->type_name("")->required();
}

void AddOut(CLI::App& command, std::string& file, const char* what) {
  command.add_option("--out", file, what)->type_name("FILE")->required();
}

}  // namespace

void AddMonitorCommand(CLI::App& program, TCommandRun& run) {
  const auto options = std::make_shared<TMonitorOptions>();
  CLI::App* const monitor = program.add_subcommand("monitor", "Look at recordings: show, plot, diff, convert, recover");
  monitor->require_subcommand(1);
  CLI::App* const show =
      AddOne(*monitor, run, options, "show", "Print what a monitor file holds and what is wrong with it",
             [](const TMonitorOptions& o) { return ShowMonitorFile(o.File, o.Json, std::cout); });
  AddFile(*show, options->File, "FILE");
  AddJsonOption(*show, options->Json);

  CLI::App* const plot = AddOne(*monitor, run, options, "plot", "Draw the signals over time (needs gnuplot)",
                                [](const TMonitorOptions& o) { return PlotMonitorFile(o.File, o.Out, std::cout); });
  AddFile(*plot, options->File, "FILE");
  AddOut(*plot, options->Out, "The picture to write: a name that ends in .svg");

  CLI::App* const diff =
      AddOne(*monitor, run, options, "diff", "Print the largest difference of two runs per signal",
             [](const TMonitorOptions& o) { return DiffMonitorFiles(o.File, o.Other, o.Align, std::cout); });
  AddFile(*diff, options->File, "A");
  AddFile(*diff, options->Other, "B");
  diff->add_option("--align", options->Align,
                   "What happens at 0 ms of both: the first beam, the first procedure's start, "
                   "the first sample; auto is the first of these that both have")
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kAlignments), std::end(kAlignments))))
      ->type_name("EVENT")
      ->capture_default_str();
  diff->footer(
      "At each sample of A within the time that both have, B holds its latest value.\n"
      "Exit codes: 0 no difference, 1 differences or nothing to compare, 2 wrong command line, 3 a file cannot be "
      "used.");

  CLI::App* const convert =
      AddOne(*monitor, run, options, "convert", "Write one row per sample time, for tools that open plain tables",
             [](const TMonitorOptions& o) { return ConvertMonitorFile(o.File, o.Out, std::cout); });
  AddFile(*convert, options->File, "FILE");
  convert->add_option("--to", options->To, "The form to write: columns")
      ->check(CLI::IsMember({"columns"}))
      ->type_name("FORM")
      ->required();
  AddOut(*convert, options->Out, "The table to write");

  CLI::App* const recover =
      AddOne(*monitor, run, options, "recover",
             "Copy a monitor file, or the .part of a killed recording, without a last line that was cut off",
             [](const TMonitorOptions& o) { return RecoverMonitorFile(o.File, o.Out, std::cout); });
  AddFile(*recover, options->File, "FILE");
  AddOut(*recover, options->Out, "The file to write");

  monitor->footer(
      "A file that is being written has .part behind its name, and keeps it when its writer is killed.\n"
      "\n"
      "Exit codes: 0 success, 1 the runs differ (diff) or the file is not whole (show), 2 wrong command line, 3 a "
      "file\n"
      "cannot be used or gnuplot is missing.\n"
      "\n"
      "Examples:\n"
      "  ixocut monitor show square.csv\n"
      "  ixocut monitor plot square.csv --out square.svg --lang en\n"
      "  ixocut monitor diff monday.csv tuesday.csv --align beam\n"
      "  ixocut monitor convert square.csv --to columns --out table.csv\n"
      "  ixocut monitor recover run.csv.part --out run.csv\n"
      "\n"
      "Software is not the emergency stop.");
}

}  // namespace ixocut
