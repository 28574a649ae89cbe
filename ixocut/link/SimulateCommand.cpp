// `ixocut simulate plc`: the simulated loading PLC on a real TCP port or serial device, to try a master against.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "ixocamglue/support/Problem.h"
#include "ixocut/link/LinkOptions.h"
#include "machines/simulated/PlcServer.h"

namespace ixocut {
namespace {

struct TSimulateCommand {
  std::uint64_t Tcp = 0;
  bool UseTcp = false;
  std::string Serial;
  std::uint64_t Unit = 1;
  std::string Misbehave;
};

int Run(const TSimulateCommand& command, std::ostream& out) {
  const TSignalsBlocked blocked;
  TPlcServer plc;
  plc.Bank.Unit = static_cast<std::uint8_t>(command.Unit);
  for (const TPlcFaultName& fault : kPlcFaults)
    if (fault.Name == command.Misbehave) plc.Bank.Fault = fault.Fault;
  std::string where;
  if (command.UseTcp) {
    where = "127.0.0.1:" + std::to_string(plc.ListenTcp(static_cast<std::uint16_t>(command.Tcp)).OrThrow(pbUnusable));
  } else {
    const TLinkAddress link = ParseLink({"", command.Serial, ""});
    plc.OpenSerial(link.Device, link.Settings).OrThrow(pbUnusable);
    where = link.Text();
  }
  out << "Loading PLC, unit " << command.Unit << ", on " << where;
  if (!command.Misbehave.empty()) out << ", misbehaving: " << command.Misbehave;
  out << "\nEnds with Ctrl-C." << std::endl;
  TStop stop;
  const TStopOnSignal signals(stop);
  plc.Run(stop);
  out << plc.Bank.Answered << " requests answered\n";
  if (!stop.Asked()) throw EProblem(pbUnusable, where + ": the line was hung up");
  return kExitSuccess;
}

}  // namespace

void AddSimulateCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const simulate = program.add_subcommand("simulate", "Be a device, for trying a master without hardware");
  simulate->require_subcommand(1);
  const auto options = std::make_shared<TSimulateCommand>();
  CLI::App* const plc = simulate->add_subcommand("plc", "The loading PLC: 10000 holding registers over Modbus");
  CLI::Option* const tcp = AddNumberOption(*plc, "--tcp", options->Tcp, 0, 0xFFFF, "",
                                           "Modbus TCP on this port of 127.0.0.1; 0 takes a free one");
  CLI::Option* const serial = plc->add_option("--serial", options->Serial, "Modbus RTU on this serial device")
                                  ->type_name("DEVICE[,BAUD,PARITY,DATA,STOP]")
                                  ->excludes(tcp);
  AddNumberOption(*plc, "--unit", options->Unit, 1, 247, "", "Its unit address")->capture_default_str();
  std::vector<std::string> names;
  for (const TPlcFaultName& fault : kPlcFaults) names.emplace_back(fault.Name);
  plc->add_option("--misbehave", options->Misbehave,
                  "silent, wrong-unit, wrong-crc, exception, late, stale, half, babble or close")
      ->check(CLI::IsMember(names))
      ->type_name("HOW");
  plc->callback([options, tcp, serial, &run] {
    options->UseTcp = tcp->count() != 0;
    if (!options->UseTcp && serial->count() == 0)
      throw CLI::ValidationError("simulate plc", "one of --tcp PORT and --serial DEVICE is needed");
    run = [options] { return Run(*options, std::cout); };
  });
  plc->footer(
      "  silent      says nothing          late   answers after 2.5 s\n"
      "  wrong-unit  answers as unit + 1   stale  answers with the reply before\n"
      "  wrong-crc   a CRC (TCP: protocol identifier) that is wrong\n"
      "  exception   exception 4 always    half   the first half of each reply\n"
      "  babble      noise all the time    close  closes instead of answering (serial: silent)\n"
      "\n"
      "Example, in two terminals:\n"
      "  ixocut simulate plc --tcp 1502 --misbehave late\n"
      "  ixocut link doctor --tcp 127.0.0.1:1502");
}

}  // namespace ixocut
