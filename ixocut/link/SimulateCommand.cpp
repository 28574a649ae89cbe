// `ixocut simulate plc`: the simulated loading PLC on a real TCP port or serial device, to try a master against.
#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Document.h"
#include "ixocut/link/LinkOptions.h"
#include "machines/simulated/PlcServer.h"

namespace ixocut {
namespace {

struct TSimulateCommand {
  std::uint64_t Tcp = 0;
  bool UseTcp = false;
  std::string Serial;
  std::string Framing;
  std::uint64_t Unit = 1;
  std::string Misbehave;
  bool Json = false;
};

// As --misbehave lists them.
constexpr const char* kMisbehaviour = TrMark(
    "How it misbehaves:\n"
    "  silent       says nothing                close        closes instead of answering (serial: silent)\n"
    "  late         answers after 2.5 s         close-after  closes after each reply\n"
    "  deaf         not on the first request    stale        answers with the reply before\n"
    "  half         the first half of a reply   gaps         80 ms within each reply\n"
    "  double       each reply twice            babble       noise all the time\n"
    "  leading      a stray byte before it      trailing     two stray bytes behind it\n"
    "  echo         the request comes back      local-echo   the request, then the reply\n"
    "  wrong-unit   answers as unit + 1         wrong-crc    a wrong CRC (TCP: protocol identifier)\n"
    "  exception    exception 4 always");

int Run(const TSimulateCommand& command, std::ostream& out) {
  constexpr const char* kCommand = "simulate plc";
  const TSignalsBlocked blocked;
  TPlcServer plc;
  plc.Bank.Unit = static_cast<std::uint8_t>(command.Unit);
  plc.RtuOverTcp = command.Framing == "rtu";
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
  if (command.Json) {
    PrintDocument(out, kCommand, {{"link", where}, {"unit", command.Unit}}, {}, true);
  } else {
    out << Format(Tr("Loading PLC, unit %u, on %s"), static_cast<unsigned>(command.Unit), where.c_str());
    if (!command.Misbehave.empty()) out << Format(Tr(", misbehaving: %s"), command.Misbehave.c_str());
    out << Tr("\nEnds with Ctrl-C.") << std::endl;
  }
  TStop stop;
  const TStopOnSignal signals(stop);
  plc.Run(stop);
  std::optional<TProblem> problem;
  if (!stop.Asked()) problem = {.What = Tr("the line was hung up"), .Where = where};
  if (command.Json)
    PrintDocument(out, kCommand, {{"link", where}, {"answered", plc.Bank.Answered}}, problem, true);
  else
    out << Format(Tr("%llu requests answered\n"), static_cast<unsigned long long>(plc.Bank.Answered));
  if (problem) throw EProblem(pbUnusable, *std::move(problem));
  return kExitSuccess;
}

}  // namespace

void AddSimulateCommand(CLI::App& program, TCommandRun& run) {
  CLI::App* const simulate =
      program.add_subcommand("simulate", Tr("Be a device, for trying a master without hardware"));
  simulate->require_subcommand(1);
  const auto options = std::make_shared<TSimulateCommand>();
  CLI::App* const plc = simulate->add_subcommand(
      "plc", Tr("The loading PLC: 10000 holding registers and 10000 coils over Modbus, shown as inputs too"));
  CLI::Option* const tcp = AddNumberOption(*plc, "--tcp", options->Tcp, 0, 0xFFFF, "",
                                           Tr("Modbus TCP on this port of 127.0.0.1; 0 takes a free one"));
  CLI::Option* const serial = plc->add_option("--serial", options->Serial, Tr("Modbus RTU on this serial device"))
                                  ->type_name("DEVICE[,BAUD,PARITY,DATA,STOP]")
                                  ->excludes(tcp);
  plc->add_option("--framing", options->Framing, Tr("rtu: RTU behind the TCP port, as some gateways have it"))
      ->check(CLI::IsMember({"rtu", "tcp"}))
      ->type_name("FRAMING")
      ->needs(tcp);
  AddNumberOption(*plc, "--unit", options->Unit, 1, 247, "", Tr("Its unit address"))->capture_default_str();
  std::vector<std::string> names;
  for (const TPlcFaultName& fault : kPlcFaults) names.emplace_back(fault.Name);
  plc->add_option("--misbehave", options->Misbehave, Tr("How it misbehaves: see below"))
      ->check(CLI::IsMember(names))
      ->type_name("HOW");
  AddJsonOption(*plc, options->Json);
  plc->callback([options, tcp, serial, &run] {
    options->UseTcp = tcp->count() != 0;
    if (!options->UseTcp && serial->count() == 0)
      throw CLI::ValidationError("simulate plc", Tr("one of --tcp PORT and --serial DEVICE is needed"));
    run = [options] { return Run(*options, std::cout); };
  });
  SetHelp(*plc,
          {.Notes = Tr(kMisbehaviour),
           .ExitCodes = {},
           .Examples = {"ixocut simulate plc --tcp 1502 --misbehave late", "ixocut link doctor --tcp 127.0.0.1:1502"}});
  SetHelp(*simulate, {.Notes = {},
                      .ExitCodes = {},
                      .Examples = {"ixocut simulate plc --tcp 1502",
                                   "ixocut modbus read --tcp 127.0.0.1:1502 --addr 0 --count 4"}});
}

}  // namespace ixocut
