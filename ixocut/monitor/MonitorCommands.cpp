#include "ixocut/monitor/MonitorCommands.h"

#include <iterator>

#include "ixocut/Command.h"
#include "ixocut/OperatorTexts.h"

namespace ixocut {
namespace {

struct TMonitorOptions : TOutputSettings {
  std::string File, Other, Out, To = "columns", Align = kAlignments[0];
};

using TOptionsPtr = std::shared_ptr<TMonitorOptions>;

TCommand AddMonitor(TCommand monitor, const TOptionsPtr& options, const char* name, const char* summary,
                    const THelp& help, int (*act)(const TMonitorOptions&, TConsole&)) {
  const TCommand command = AddWith(monitor, name, summary, options, [act](TMonitorOptions& own, TConsole& console) {
    const TOperatorTexts texts(console);
    return act(own, console);
  });
  AddLanguageOption(command, options->Language);
  AddJsonOption(command, options->Json);
  command.Help(help);
  return command;
}

void AddFile(TCommand command, std::string& file, const char* name) {
  command.Text(name, file, Tr("A monitor file"), "").Required();
}

void AddOut(TCommand command, std::string& file, const char* what) {
  command.Text("--out", file, what, "FILE").Required();
}

}  // namespace

void AddMonitorCommand(TCommand program) {
  const auto options = std::make_shared<TMonitorOptions>();
  const TCommand monitor = program.AddGroup("monitor", Tr("Look at recordings: show, plot, diff, convert, recover"));
  const TCommand show = AddMonitor(
      monitor, options, "show", Tr("Print what a monitor file holds and what is wrong with it"),
      {.Notes = Tr("A file that is being written has .part behind its name, and keeps it when its writer is killed."),
       .ExitCodes = Tr("0 the file is whole, 1 it is not, 2 wrong command line, 3 it cannot be used"),
       .Examples = {"ixocut monitor show square.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return ShowMonitorFile(o.File, console); });
  AddFile(show, options->File, "FILE");

  const TCommand plot =
      AddMonitor(monitor, options, "plot", Tr("Draw the signals over time (needs gnuplot)"),
                 {.ExitCodes = Tr("0 success, 2 wrong command line, 3 a file cannot be used or gnuplot is missing"),
                  .Examples = {"ixocut monitor plot square.csv --out square.svg --lang en"}},
                 [](const TMonitorOptions& o, TConsole& console) { return PlotMonitorFile(o.File, o.Out, console); });
  AddFile(plot, options->File, "FILE");
  AddOut(plot, options->Out, Tr("The picture to write: a name that ends in .svg"));

  const TCommand diff = AddMonitor(
      monitor, options, "diff", Tr("Print the largest difference of two runs per signal"),
      {.Notes = Tr("At each sample of A within the time that both have, B holds its latest value."),
       .ExitCodes =
           Tr("0 no difference, 1 differences or nothing to compare, 2 wrong command line, 3 a file cannot be used"),
       .Examples = {"ixocut monitor diff monday.csv tuesday.csv --align beam"}},
      [](const TMonitorOptions& o, TConsole& console) { return DiffMonitorFiles(o.File, o.Other, o.Align, console); });
  AddFile(diff, options->File, "A");
  AddFile(diff, options->Other, "B");
  diff.Text("--align", options->Align,
            Tr("What happens at 0 ms of both: the first beam, the first procedure's start, the first sample; "
               "auto is the first of these that both have"),
            "EVENT")
      .OneOf({std::begin(kAlignments), std::end(kAlignments)})
      .ShowDefault();

  const TCommand convert = AddMonitor(
      monitor, options, "convert", Tr("Write one row per sample time, for tools that open plain tables"),
      {.Examples = {"ixocut monitor convert square.csv --to columns --out table.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return ConvertMonitorFile(o.File, o.Out, console); });
  AddFile(convert, options->File, "FILE");
  convert.Text("--to", options->To, Tr("The form to write: columns"), "FORM").OneOf({"columns"}).Required();
  AddOut(convert, options->Out, Tr("The table to write"));

  const TCommand recover = AddMonitor(
      monitor, options, "recover",
      Tr("Copy a monitor file, or the .part of a killed recording, without a last line that was cut off"),
      {.Examples = {"ixocut monitor recover run.csv.part --out run.csv"}},
      [](const TMonitorOptions& o, TConsole& console) { return RecoverMonitorFile(o.File, o.Out, console); });
  AddFile(recover, options->File, "FILE");
  AddOut(recover, options->Out, Tr("The file to write"));

  monitor.Help({.Examples = {"ixocut monitor show square.csv", "ixocut monitor COMMAND --help"}});
}

}  // namespace ixocut
