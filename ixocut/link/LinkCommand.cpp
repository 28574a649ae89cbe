// `ixocut link doctor`: what is wrong with the link to a device.
#include <cstdlib>

#include "controller/links/LinkDoctor.h"
#include "controller/process/StopOnSignal.h"
#include "ixocut/Command.h"
#include "ixocut/link/LinkOptions.h"

namespace ixocut {
namespace {

struct TDoctorCommand : TOutputSettings {
  TLinkOptions Link;
  std::uint64_t Unit = 1;
  std::optional<std::uint64_t> Addr;
};

// For JSON, and as it is shown.
constexpr std::pair<const char*, const char*> kMarks[] = {
    {"ok", TrMark("ok    ")}, {"note", TrMark("note  ")}, {"fault", TrMark("FAULT ")}};

int RunDoctor(const TDoctorCommand& command, TConsole& console) {
  TDoctorOptions options;
  options.Link = ParseLink(command.Link);
  options.Unit = static_cast<std::uint8_t>(command.Unit);
  options.Addr = command.Addr ? static_cast<std::uint16_t>(*command.Addr) : TDoctorOptions::RegisterOf(options.Link);
  nlohmann::ordered_json result{{"link", options.Link.Text()},
                                {"framing", options.Link.TcpFraming ? "tcp" : "rtu"},
                                {"unit", command.Unit},
                                {"addr", options.Addr},
                                {"steps", nlohmann::ordered_json::array()}};
  std::optional<TProblem> problem;
  const auto tell = [&](const TDoctorStep& step) {
    const auto& [word, shown] = kMarks[static_cast<std::size_t>(step.Mark)];
    result["steps"].push_back({{"mark", word}, {"id", step.Id}, {"finding", step.Finding}, {"next", step.NextThing}});
    if (step.Mark == dmBad) problem = {.What = step.Finding, .Where = options.Link.Text(), .Remedy = step.NextThing};
    console.Say(Tr(shown) + step.Finding);
    if (!step.NextThing.empty()) console.Say("      -> " + step.NextThing);
  };
  const TSignalsBlocked blocked;
  const auto device = MakeDevice<TModbusComm>(options.Link.Text());  // only to wait for the end of what is owed
  TStop& stop = device->Stop;
  const std::uint32_t silenceMs = device->SilenceMs();
  const TProblem stopped{.What = Tr("stopped; the examination is not complete"), .Where = options.Link.Text()};
  TStopOnSignal signals(stop, [&](bool) {
    TellEnded(options.Link, stopped, silenceMs, console);
    std::_Exit(kExitOtherwise);
  });
  signals.Begin();
  std::shared_ptr<INcDataTransIntf> owing;
  const bool good = ExamineLink(options, tell, stop, &owing);
  signals.End();
  const bool whole = !stop.Asked();
  if (whole) console.Print(result, problem);
  if (owing) {
    device->SetDataTransIntf(owing);
    device->Owe();
    (void)LeaveLineSilent(*device, console, true);
  }
  if (!whole) throw EProblem(pbRefused, stopped);
  if (!good) return kExitUnusable;
  console.Say(Tr("Nothing is wrong with this link."));
  return kExitSuccess;
}

}  // namespace

void AddLinkCommand(TCommand program) {
  const TCommand link = program.AddGroup("link", Tr("Look after the link to a device"));
  auto [doctor, options] = AddOwn<TDoctorCommand>(
      link, "doctor", Tr("Find out what is wrong with a Modbus link, and what to try next"), RunDoctor);
  AddLinkOptions(doctor, options.Link);
  doctor.Number("--unit", options.Unit, 1, 255, "", Tr("The device's unit address")).ShowDefault();
  doctor.Number("--addr", options.Addr, 0, 0xFFFE, "",
                Tr("A holding register that it has; two are read from here (the link's probe register, or 0)"));
  AddJsonOption(doctor, options.Json);
  const THelp help{.Notes = Tr("It only reads."),
                   .ExitCodes = Tr("0 nothing is wrong, 1 stopped, 2 wrong command line, 3 a fault was found"),
                   .Examples = {"ixocut link doctor --tcp 192.168.0.10",
                                "ixocut link doctor --serial /dev/ttyUSB0,19200,e,8,1 --unit 3 --addr 100",
                                "ixocut link doctor --link modbus-store"}};
  link.Help(help);
  doctor.Help(help);
}

}  // namespace ixocut
