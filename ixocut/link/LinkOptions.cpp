#include "ixocut/link/LinkOptions.h"

#include "controller/config/MachineFile.h"
#include "controller/links/ConfiguredLinks.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ProblemAt.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Commands.h"
#include "ixocut/Console.h"
#include "ixocut/Machines.h"

namespace ixocut {
namespace {

TLinkAddress LinkOfFile(const TLinkOptions& options) {
  TMachineFile file(Machines());
  file.Load(MachineFile(options.Machine, options.State));
  const auto* const store = dynamic_cast<const TModbusStoreConfig*>(file.Config().SubConfig("ModbusStore"));
  return FindLink(ConfiguredLinks(store), options.Name).OrThrow(pbRequest).Address;
}

void TellLateReply(std::uint32_t silenceMs, const TConsole& console) {
  console.Note(Format(Tr("a late reply may still come; wait %u s before the next command"), (silenceMs + 999) / 1000));
}

}  // namespace

void AddLinkOptions(TCommand command, TLinkOptions& options) {
  const TOption tcp =
      command.Text("--tcp", options.Tcp, Tr("The device's host and port (502 unless given)"), "HOST[:PORT]");
  const TOption serial =
      command
          .Text("--serial", options.Serial, Tr("The serial device and its settings (9600,n,8,1 unless given)"),
                "DEVICE[,BAUD,PARITY,DATA,STOP]")
          .Excludes(tcp);
  const TOption link =
      command
          .Text("--link", options.Name,
                Tr("A link of the machine file instead, with its settings and its probe register"), "NAME")
          .Excludes(tcp)
          .Excludes(serial);
  for (const TOption option : AddMachineOptions(command, options.Machine, options.State)) option.Needs(link);
  command.Text("--framing", options.Framing, Tr("rtu or tcp (by the link unless given)"), "FRAMING")
      .OneOf({"rtu", "tcp"});
}

TLinkAddress ParseLink(const TLinkOptions& options) {
  TLinkAddress link;
  if (!options.Name.empty())
    link = LinkOfFile(options);
  else if (!options.Tcp.empty())
    link = OrThrowAt(ParseTcpLink(options.Tcp), pbRequest, "--tcp " + options.Tcp);
  else if (!options.Serial.empty())
    link = OrThrowAt(ParseSerialLink(options.Serial), pbRequest, "--serial");
  else
    throw EProblem(pbRequest, Tr("one of --tcp HOST[:PORT], --serial DEVICE and --link NAME is needed"));
  if (!options.Framing.empty()) link.TcpFraming = options.Framing == "tcp";
  return link;
}

void TellEnded(const TLinkAddress& link, const TProblem& problem, std::uint32_t silenceMs, TConsole& console,
               bool lines) {
  console.Print(nullptr, problem, lines);
  console.Note(problem.Text());
  if (!link.IsTcp && !link.TcpFraming) TellLateReply(silenceMs, console);
}

bool LeaveLineSilent(TModbusComm& device, TConsole& console, bool tell) {
  const std::uint32_t ms = device.OwedMs();
  if (ms == 0) return false;
  if (tell && !device.Stop.Asked())
    console.Note(Format(Tr("a late reply would be taken for the next request's: waiting until the line has been silent "
                           "for %.1f s (Ctrl-C ends the wait)"),
                        ms / 1000.0));
  if (device.Stop.Asked() || !device.AwaitSilence().Ok()) TellLateReply(device.SilenceMs(), console);
  return true;
}

}  // namespace ixocut
