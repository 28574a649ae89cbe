// `ixocut simulate`: simulated Modbus devices on a real TCP port or serial device, to try a master against.
#include <algorithm>
#include <filesystem>

#include "controller/process/StateFolder.h"
#include "controller/process/StopOnSignal.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "ixocut/Command.h"
#include "ixocut/link/LinkOptions.h"
#include "machines/simulated/ModbusPlant.h"
#include "machines/simulated/PlcServer.h"

namespace ixocut {
namespace {

struct TSimulateCommand : TOutputSettings {
  std::optional<std::uint64_t> Tcp;
  std::string Serial;
  std::string Framing;
  std::uint64_t Unit = 1;
  std::string Misbehave;
  std::optional<std::filesystem::path> Machine;  // of a plant
  std::uint64_t Seed = 1;
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

// Carries the device's bytes until Ctrl-C. `device` is what it is called on the first line.
int Serve(const TSimulateCommand& command, TPlcServer& plc, const char* device, TConsole& console) {
  plc.Bank.Unit = static_cast<std::uint8_t>(command.Unit);
  plc.RtuOverTcp = command.Framing == "rtu";
  for (const TPlcFaultName& fault : kPlcFaults)
    if (fault.Name == command.Misbehave) plc.Bank.Fault = fault.Fault;
  std::string where;
  if (command.Tcp) {
    where = "127.0.0.1:" + std::to_string(plc.ListenTcp(static_cast<std::uint16_t>(*command.Tcp)).OrThrow(pbUnusable));
  } else {
    const TLinkAddress link = ParseLink({"", command.Serial, ""});
    plc.OpenSerial(link.Device, link.Settings).OrThrow(pbUnusable);
    where = link.Text();
  }
  console.Print({{"link", where}, {"unit", command.Unit}}, {}, true);
  console.Say(Format(Tr("%s, unit %u, on %s"), device, static_cast<unsigned>(command.Unit), where.c_str()) +
              (command.Misbehave.empty() ? "" : Format(Tr(", misbehaving: %s"), command.Misbehave.c_str())));
  console.Say(Tr("Ends with Ctrl-C."));
  TStop stop;
  const TStopOnSignal signals(stop);
  plc.Run(stop);
  std::optional<TProblem> problem;
  if (!stop.Asked()) problem = {.What = Tr("the line was hung up"), .Where = where};
  console.Say(Format(Tr("%llu requests answered"), static_cast<unsigned long long>(plc.Bank.Answered)));
  console.Print({{"link", where}, {"answered", plc.Bank.Answered}}, problem, true);
  if (problem) throw EProblem(pbUnusable, *std::move(problem));
  return kExitSuccess;
}

int RunPlc(const TSimulateCommand& command, TConsole& console) {
  const TSignalsBlocked blocked;
  TPlcServer plc;
  return Serve(command, plc, Tr("Loading PLC"), console);
}

// What happens in it goes out as it happens: "18250327 laser: beam lit", or a document each.
int RunMachine(const TSimulateCommand& command, TConsole& console) {
  const TSignalsBlocked blocked;
  const std::filesystem::path file = command.Machine.value_or(ShareFolder() / "machines" / "modbus.xml");
  TMachineConfig config;
  config.Load(file).OrThrow(pbUnusable);
  std::vector<TProblem> problems;
  const TSimConfig sim = TSimConfig::FromRoot(config.Root(), problems);
  if (!problems.empty()) {
    problems.front().Where = file.string() + ": " + problems.front().Where;
    throw EProblem(pbUnusable, problems.front());
  }
  TModbusPlant plant(sim, command.Seed, [&](std::uint64_t ms, std::string_view text) {
    console.Say(std::to_string(ms).append(" ").append(text));
    console.Print({{"ms", ms}, {"happened", text}}, {}, true);
  });
  TPlcServer server;
  server.Bank.Device = &plant;
  return Serve(command, server, Tr("Machine without axes"), console);
}

// A subcommand with the options that name the link.
TCommand AddDevice(TCommand simulate, const char* name, const std::string& description,
                   const std::shared_ptr<TSimulateCommand>& options,
                   int (*device)(const TSimulateCommand&, TConsole&)) {
  const TCommand app =
      AddWith(simulate, name, description, options, [device](const TSimulateCommand& own, TConsole& console) {
        if (!own.Tcp && own.Serial.empty())
          throw EProblem(pbRequest, Tr("one of --tcp PORT and --serial DEVICE is needed"));
        return device(own, console);
      });
  const TOption tcp =
      app.Number("--tcp", options->Tcp, 0, 0xFFFF, "", Tr("Modbus TCP on this port of 127.0.0.1; 0 takes a free one"));
  app.Text("--serial", options->Serial, Tr("Modbus RTU on this serial device"), "DEVICE[,BAUD,PARITY,DATA,STOP]")
      .Excludes(tcp);
  app.Text("--framing", options->Framing, Tr("rtu: RTU behind the TCP port, as some gateways have it"), "FRAMING")
      .OneOf({"rtu", "tcp"})
      .Needs(tcp);
  app.Number("--unit", options->Unit, 1, 247, "", Tr("Its unit address")).ShowDefault();
  std::vector<std::string> names;
  for (const TPlcFaultName& fault : kPlcFaults) names.emplace_back(fault.Name);
  app.Text("--misbehave", options->Misbehave, Tr("How it misbehaves: see below"), "HOW").OneOf(names);
  AddJsonOption(app, options->Json);
  return app;
}

}  // namespace

void AddSimulateCommand(TCommand program) {
  const TCommand simulate = program.AddGroup("simulate", Tr("Be a device, for trying a master without hardware"));
  TCommand plc = AddDevice(
      simulate, "plc", Tr("The loading PLC: 10000 holding registers and 10000 coils over Modbus, shown as inputs too"),
      std::make_shared<TSimulateCommand>(), RunPlc);
  plc.Help(
      {.Notes = Tr(kMisbehaviour),
       .Examples = {"ixocut simulate plc --tcp 1502 --misbehave late", "ixocut link doctor --tcp 127.0.0.1:1502"}});
  const auto options = std::make_shared<TSimulateCommand>();
  TCommand machine =
      AddDevice(simulate, "machine",
                Tr("A cutting machine without its axes over Modbus: laser, gas valves, inputs, outputs, pallets"),
                options, RunMachine);
  machine.Path("--machine", options->Machine,
               Tr("Machine file that says what is fitted, and how it behaves; without it, the example modbus.xml"),
               "FILE");
  AddSeedOption(machine, options->Seed);
  machine.Help(
      {.Notes =
           std::string(Tr("Its addresses stand in docs/drivers.md. What happens in it is written as it happens, with "
                          "the milliseconds of\nthe system's monotonic clock.\n\n")) +
           Tr(kMisbehaviour),
       .Examples = {"ixocut simulate machine --tcp 1502", "ixocut serve --machine share/machines/modbus.xml"}});
  simulate.Help({.Examples = {"ixocut simulate plc --tcp 1502", "ixocut simulate machine --tcp 1502",
                              "ixocut modbus read --tcp 127.0.0.1:1502 --addr 0 --count 4"}});
}

}  // namespace ixocut
