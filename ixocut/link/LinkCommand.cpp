// `ixocut link doctor`: what is wrong with the link to a device.
#include <cstdlib>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "controller/links/LinkDoctor.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/link/LinkOptions.h"

namespace ixocut {
namespace {

struct TDoctorCommand {
  TLinkOptions Link;
  std::uint64_t Unit = 1;
  std::uint64_t Addr = 0;
};

int Run(const TDoctorCommand& command, std::ostream& out) {
  TDoctorOptions options;
  options.Link = ParseLink(command.Link);
  options.Unit = static_cast<std::uint8_t>(command.Unit);
  options.Addr = static_cast<std::uint16_t>(command.Addr);
  const TSignalsBlocked blocked;
  TStop stop;
  const TStopOnSignal signals(stop, [] { std::_Exit(kExitOtherwise); });
  const auto tell = [&](const TDoctorStep& step) {
    out << (step.Mark == dmGood ? "ok    " : step.Mark == dmNote ? "note  " : "FAULT ") << step.Finding << '\n';
    if (!step.NextThing.empty()) out << "      -> " << step.NextThing << '\n';
    out << std::flush;
  };
  const bool good = ExamineLink(options, tell, stop);
  if (stop.Asked()) throw EProblem(pbRefused, "stopped; the examination is not complete");
  if (good) out << "Nothing is wrong with this link.\n";
  return good ? kExitSuccess : kExitUnusable;
}

}  // namespace

void AddLinkCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const link = program.add_subcommand("link", "Look after the link to a device");
  link->require_subcommand(1);
  const auto options = std::make_shared<TDoctorCommand>();
  CLI::App* const doctor =
      link->add_subcommand("doctor", "Find out what is wrong with a Modbus link, and what to try next");
  AddLinkOptions(*doctor, options->Link);
  AddNumberOption(*doctor, "--unit", options->Unit, 1, 255, "", "The device's unit address")->capture_default_str();
  AddNumberOption(*doctor, "--addr", options->Addr, 0, 0xFFFE, "", "A register that it has; two are read from here")
      ->capture_default_str();
  doctor->callback([options, &run] { run = [options] { return Run(*options, std::cout); }; });
  doctor->footer(
      "Only reads. Exit codes: 0 nothing is wrong, 2 wrong command line, 3 a fault was found.\n"
      "\n"
      "Examples:\n"
      "  ixocut link doctor --tcp 192.168.0.10\n"
      "  ixocut link doctor --serial /dev/ttyUSB0,19200,e,8,1 --unit 3 --addr 100\n"
      "\n"
      "Software is not the emergency stop.");
}

}  // namespace ixocut
