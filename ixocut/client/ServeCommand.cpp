// `ixocut serve`: the controller that stays up, with its wire, until a signal ends it.
#include <chrono>
#include <thread>
#include <unistd.h>

#include "commandline/Table.h"
#include "controller/client/StatusLines.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFolder.h"
#include "controller/serving/Serving.h"
#include "ixocut/Command.h"

namespace ixocut {
namespace {

constexpr auto kSignalLookEvery = std::chrono::milliseconds(50);

struct TServeOptions : TControllerSettings {
  std::uint64_t Virtual = 0;  // 0: real time
  std::uint64_t Port = kWirePort;
  std::string Listen = "127.0.0.1";
  std::vector<std::string> Hosts;
  std::string Certificate, Key;  // empty: no TLS
  bool Insecure = false;
};

void Tell(TServing& serving, TConsole& console) {
  TService& service = serving.Service();
  const std::string machine = service.Options().Controller.MachineFile.string();
  const std::string socket = serving.Socket().string();
  const std::string state = StateWord(service.Status()->State);
  TRows rows{{Tr("address"), serving.Url()},
             {Tr("socket"), socket},
             {Tr("machine"), machine},
             {Tr("state"), ShownWord(state)}};
  if (console.OnTerminal() && !console.Settings().Json)  // the link lets in whoever has it
    rows.insert(rows.begin() + 1, {Tr("console"), service.Access().Link(service.Access().MakeCode(roOperator)) +
                                                      Tr("  (good once, for 60 s)")});
  std::vector<std::string> lines = DrawTable(rows);
  lines.emplace_back(Tr("Software is not the emergency stop."));
  console.SayLines(lines);
  console.Print(
      {{"url", serving.Url()}, {"socket", socket}, {"process", ::getpid()}, {"machine", machine}, {"state", state}}, {},
      true);
}

int RunServe(TServeOptions options, TConsole& console) {
  const TSignalStop signals;
  options.Realtime = options.Virtual == 0;
  options.Saves = true;
  TServing serving({.StateFolder = StateFolder(options.State),
                    .Controller = [&options] { return options.Options(); },
                    .Speed = options.Realtime ? 1.0 : static_cast<double>(options.Virtual),
                    .Address = options.Listen,
                    .Port = static_cast<std::uint16_t>(options.Port),
                    .Hosts = options.Hosts,
                    .Certificate = options.Certificate,
                    .Key = options.Key,
                    .Insecure = options.Insecure});
  if (serving.NotFound()) console.Note(serving.NotFound()->Text());
  Tell(serving, console);
  serving.Ready();
  for (; !TSignalStop::Asked(); std::this_thread::sleep_for(kSignalLookEvery)) serving.Look();
  serving.End();
  return kExitSuccess;
}

}  // namespace

void AddServeCommand(TCommand program) {
  auto [serve, options] = AddOwn<TServeOptions>(program, "serve", Tr("Run the controller until it is ended"), RunServe);
  const TOption realtime =
      serve.Flag("--realtime", options.Realtime, Tr("Run on the real clock, as without this option"));
  serve
      .Number("--virtual", options.Virtual, 1, 100'000, "",
              Tr("Run the machine's clock so many times as fast, 1 to 100000: for demonstrations and tests"))
      .Excludes(realtime);
  serve.Number("--port", options.Port, 0, 0xFFFF, "", Tr("The port; 0 takes a free one")).ShowDefault();
  serve
      .Text("--listen", options.Listen,
            Tr("The address; another than the loopback's needs --cert and --key, or --insecure"), "ADDRESS")
      .ShowDefault();
  const TOption certificate = serve.Text("--cert", options.Certificate,
                                         Tr("TLS: a PEM file with the certificate, then those that issued it"), "FILE");
  const TOption key = serve.Text("--key", options.Key, Tr("Its key, a PEM file that nobody else can read"), "FILE");
  certificate.Needs(key);
  key.Needs(certificate);
  serve
      .Flag("--insecure", options.Insecure,
            Tr("Let other machines in without encryption; none of them has the role service"))
      .Excludes(certificate);
  serve.Texts("--host", options.Hosts, Tr("A further name that it is asked under; may be given several times"), "NAME")
      .Several();
  AddJsonOption(serve, options.Json);
  AddControllerSettings(serve, options);
  serve.Help(
      {.Notes = Tr("All other commands of this state folder then work on this controller. Ctrl-C and SIGTERM end it, "
                   "dark and in\norder. The link for the console in a browser is shown on a terminal only; "
                   "\"ixocut console\" makes a new one.\nSIGHUP of a service "
                   "manager reads the machine file, the certificate and the key again, at rest."),
       .ExitCodes = Tr("0 it was ended, 1 another controller has the state folder or the machine file, 2 wrong "
                       "command line,\n3 a file, a device or the port cannot be used"),
       .Examples = {"ixocut serve", "ixocut serve --port 0 --state /var/lib/ixocut", "ixocut serve --virtual 10",
                    "ixocut serve --listen 192.168.0.5 --cert cutter.pem --key cutter.key --host cutter.example"}});
}

}  // namespace ixocut
