// `ixocut tour`: a working day of a controller in virtual time, in a few seconds: the program's own commands against a
// controller with a state folder and a port of its own, beside whatever else runs.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

#include "commandline/Table.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFiles.h"
#include "controller/process/StateFolder.h"
#include "ixocamglue/support/ChildProcess.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocut/Command.h"
#include "ixocut/client/Attach.h"

namespace ixocut {
namespace {

namespace fs = std::filesystem;
using TSteady = std::chrono::steady_clock;
using TMs = std::chrono::milliseconds;

constexpr const char* kSpeed = "60";  // how many times as fast as a real one the machine lives
constexpr TMs kReadyWithin{5000};
constexpr TMs kStopWithin{10'000};  // of one command
constexpr TMs kEndWithin{3000};
constexpr TMs kPollEvery{10};
constexpr const char* kTourMark = ".ixocut-tour";  // in a folder that a tour has made: the next one may clear it
constexpr const char* kPlc = "PLC";                // in a command: the address of the simulated one
constexpr const char* kThisProgram = "/proc/self/exe";

struct TStop {
  const char* Title;
  const char* Command;
  int ExitCode;
  std::size_t Lines;  // of the end of what it says that are shown
};

constexpr TStop kStops[] = {
    {TrMark("A timed shot"), "shot --ms 500", 0, 8},
    {TrMark("The nozzle is changed"), "run change-nozzle --from 1 --to 2 --plot nozzle.svg", 0, 4},
    {TrMark("Three gas valves are calibrated and judged"),
     "gas calibrate --gas Air,O2,N2 --nozzle S --size 1.5 --plot gas.svg", 0, 12},
    {TrMark("The loading PLC is written to over Modbus"), "modbus write --tcp PLC --unit 1 --addr 16 --values 7,8", 0,
     3},
    {TrMark("and asked"), "modbus read --tcp PLC --unit 1 --addr 16 --count 2", 0, 3},
    {TrMark("A square is driven and recorded"), "record --procedure square --out square.csv", 0, 3},
    {TrMark("and drawn"), "monitor plot square.csv --out square.svg", 0, 1},
    {TrMark("An alarm ends a shot"), "shot --ms 500 --fault laser.interlock-opens", 1, 1},
    {TrMark("What the alarm store says of it, with reason and solution"), "alarms list", 0, 4},
    {TrMark("A key is refused, and why"), "panel why START", 1, 6},
    {TrMark("What has run today"), "runs list", 0, 8},
};

struct TTourOptions : TControllerSettings {
  std::string Out;
};

struct TDone {
  std::string Title, Command;
  int ExitCode = -1;
  bool AsMeant = false;
  std::uint64_t Ms = 0;
};

// Its last lines that hold anything.
std::vector<std::string> LastLines(const fs::path& file, std::size_t most) {
  std::vector<std::string> lines;
  std::istringstream in(ReadFile(file).OrThrow(pbUnusable));
  for (std::string line; std::getline(in, line);)
    if (line.find_first_not_of(" \r") != std::string::npos) lines.push_back(line);
  if (lines.size() > most) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
  return lines;
}

std::string LastLine(const fs::path& file) {
  const auto lines = LastLines(file, 1);
  return lines.empty() ? std::string() : lines.front();
}

std::uint64_t MsSince(TSteady::time_point start) {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<TMs>(TSteady::now() - start).count());
}

class TTour {
 public:
  TTour(const TTourOptions& options, TConsole& console)
      : FOptions(options), FConsole(console), FFolder(FreshFolder(options)), FState(FFolder / "state") {}

  int Run() {
    const auto start = TSteady::now();
    FConsole.Say(Format(Tr("A working day of a controller in virtual time, in %s"), FFolder.c_str()));
    const auto controller = StartController();
    const auto plc = StartPlc();
    for (const TStop& stop : kStops) {
      if (ixocontroller::TSignalStop::Asked()) throw EProblem(pbRefused, Tr("the tour was ended"));
      Visit(stop);
    }
    EndController(*controller);
    const std::uint64_t tookMs = MsSince(start);
    return Sum(tookMs);
  }

 private:
  static fs::path FreshFolder(const TTourOptions& options) {
    fs::path folder =
        fs::absolute(options.Out.empty() ? ixocontroller::StateFolder(options.State) / ixocontroller::kTourFolder
                                         : fs::path(options.Out));
    std::error_code error;
    if (fs::exists(folder, error) && !fs::is_empty(folder, error)) {
      if (!fs::exists(folder / kTourMark, error))
        throw EProblem(pbRequest, TProblem{.What = Tr("the folder holds something else"), .Where = folder.string()});
      fs::remove_all(folder, error);
      if (error)
        throw EProblem(pbUnusable, TProblem{.What = Tr("the folder cannot be cleared"),
                                            .Where = folder.string(),
                                            .Why = SystemErrorText(error.value())});
    }
    MakeFolder(folder / "state").OrThrow(pbUnusable);
    if (!std::ofstream(folder / kTourMark))
      throw EProblem(pbUnusable, TProblem{.What = Tr("the folder cannot be written to"), .Where = folder.string()});
    return folder;
  }

  void Begin(const char* title, const std::string& command) {
    FConsole.Say("");
    FConsole.Say(Format("%2zu  %s", FDone.size() + 1, Tr(title)));
    FConsole.Say("    $ ixocut " + command);
  }
  fs::path SaidFile() const { return FFolder / Format("%02zu.txt", FDone.size() + 1); }

  // A command of this program.
  std::unique_ptr<TChildProcess> Child(const std::string& command, const fs::path& said) {
    std::istringstream in("ixocut " + command + " --lang " + FOptions.Language);
    return std::make_unique<TChildProcess>(
        kThisProgram, std::vector<std::string>{std::istream_iterator<std::string>(in), {}}, FFolder, said);
  }

  std::unique_ptr<TChildProcess> StartController() {
    const auto start = TSteady::now();
    const std::string command = Format("serve --virtual %s --port 0 --state state", kSpeed);
    Begin(TrMark("The controller starts"), command);
    auto child = Child(command, SaidFile());
    TControllerSettings settings;
    settings.State = FState;
    settings.Language = FOptions.Language;
    for (const auto end = start + kReadyWithin;;) {
      const std::optional<int> ended = child->Wait(kPollEvery);
      // It can be found a moment before it has said so.
      if (const TAttached attachment(settings); !ended && attachment.Client() && !LastLine(SaidFile()).empty()) break;
      if (ended || TSteady::now() >= end)
        throw EProblem(pbUnusable, TProblem{.What = Tr("the controller has not started"),
                                            .Where = SaidFile().string(),
                                            .Why = LastLine(SaidFile())});
    }
    Done(TrMark("The controller starts"), command, 0, true, MsSince(start), 6);
    return child;
  }

  std::unique_ptr<TChildProcess> StartPlc() {
    const fs::path said = FFolder / "plc.txt";
    auto child = Child("simulate plc --tcp 0 --json", said);
    for (const auto end = TSteady::now() + kReadyWithin; FPlc.empty() && TSteady::now() < end;) {
      if (child->Wait(kPollEvery)) break;
      const TResult<std::string> text = ReadFile(said);  // there in a moment
      const auto document = nlohmann::json::parse(text ? *text : std::string(), nullptr, false);
      if (document.is_object()) FPlc = document.at("result").at("link");
    }
    if (FPlc.empty()) throw EProblem(pbUnusable, Tr("the simulated PLC has not started"));
    return child;
  }

  void Visit(const TStop& stop) {
    const auto start = TSteady::now();
    std::string command = stop.Command;
    if (const std::size_t at = command.find(kPlc); at != std::string::npos)
      command.replace(at, std::char_traits<char>::length(kPlc), FPlc);
    Begin(stop.Title, command);
    const bool stateless = command.starts_with("modbus") || command.starts_with("monitor");
    const int exitCode =
        Child(command + (stateless ? "" : " --state state"), SaidFile())->Wait(kStopWithin).value_or(-1);
    Done(stop.Title, command, exitCode, exitCode == stop.ExitCode, MsSince(start), stop.Lines);
  }

  void EndController(TChildProcess& controller) {
    const auto start = TSteady::now();
    FConsole.Say("");
    const std::string title = Tr("The controller ends, dark and in order");
    FConsole.Say(Format("%2zu  %s", FDone.size() + 1, title.c_str()));
    const int exitCode = controller.End(kEndWithin).value_or(-1);
    FDone.push_back({title, "", exitCode, exitCode == 0, MsSince(start)});
  }

  void Done(const char* title, const std::string& command, int exitCode, bool asMeant, std::uint64_t ms,
            std::size_t lines) {
    for (const std::string& line : LastLines(SaidFile(), asMeant ? lines : 10)) FConsole.Say("    " + line);
    FDone.push_back({Tr(title), command, exitCode, asMeant, ms});
  }

  int Sum(std::uint64_t tookMs) {
    auto stops = nlohmann::ordered_json::array();
    TRows rows{{"", Tr("time"), Tr("as meant")}};
    std::size_t wrong = 0;
    for (const TDone& done : FDone) {
      stops.push_back({{"title", done.Title},
                       {"command", done.Command},
                       {"exitCode", done.ExitCode},
                       {"asMeant", done.AsMeant},
                       {"ms", done.Ms}});
      rows.push_back({done.Title, Format("%.2f s", static_cast<double>(done.Ms) / 1000),
                      done.AsMeant ? Tr("yes") : Format(Tr("NO: exit code %d"), done.ExitCode)});
      if (!done.AsMeant) ++wrong;
    }
    auto files = nlohmann::ordered_json::array();
    std::string names;
    for (const auto& file : fs::recursive_directory_iterator(FFolder)) {
      if (!file.is_regular_file() || file.path().filename() == kTourMark) continue;
      files.push_back(fs::relative(file.path(), FFolder).string());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files)
      if (!file.get<std::string>().ends_with(".txt") && !file.get<std::string>().ends_with(".lock"))
        AddToList(names, file.get<std::string>());
    FConsole.Say("");
    FConsole.SayTable(rows);
    FConsole.Say("");
    FConsole.Say(Format(Tr("%.1f s in all. What it made is in %s: %s; what each command said is in its numbered text."),
                        static_cast<double>(tookMs) / 1000, FFolder.c_str(), names.c_str()));
    std::optional<TProblem> problem;
    if (wrong != 0)
      problem = {.What = Format(Tr("%zu stops of the tour have not gone as they are meant"), wrong),
                 .Where = FFolder.string()};
    if (problem && !FOptions.Json) throw EProblem(pbRefused, *problem);
    return FConsole.Print({{"folder", FFolder.string()}, {"ms", tookMs}, {"stops", stops}, {"files", files}}, problem);
  }

  const TTourOptions& FOptions;
  TConsole& FConsole;
  const fs::path FFolder, FState;
  std::string FPlc;
  std::vector<TDone> FDone;
};

}  // namespace

void AddTourCommand(TCommand program) {
  auto [tour, options] = AddOwn<TTourOptions>(program, "tour", Tr("Show what there is: a working day in a few seconds"),
                                              [](const TTourOptions& own, TConsole& console) {
                                                const ixocontroller::TSignalStop signals;
                                                return TTour(own, console).Run();
                                              });
  tour.Text("--out", options.Out, Tr("The folder for what it makes (default: tour in the state folder)"), "DIR");
  AddJsonOption(tour, options.Json);
  AddStateOption(tour, options.State);
  AddLanguageOption(tour, options.Language);
  tour.Help(
      {.Notes = Tr("Starts a controller of its own in virtual time, with a state folder and a port of its own, and "
                   "runs this\nprogram's commands against it. It runs beside a controller that works."),
       .ExitCodes = Tr("0 all went as it is meant, 1 something did not, 2 wrong command line, 3 a file or program "
                       "cannot be used"),
       .Examples = {"ixocut tour", "ixocut tour --out /tmp/tour --lang en"}});
}

}  // namespace ixocut
