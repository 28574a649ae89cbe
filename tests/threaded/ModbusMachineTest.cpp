// A whole machine over Modbus: the controller in this process, its laser, gas, inputs and outputs in another one, and
// between them a line that can be cut.
#include <array>
#include <fstream>
#include <mutex>
#include <set>

#include <gmock/gmock.h>

#include "controller/gas/GasCalibration.h"
#include "controller/procedures/Procedures.h"
#include "controller/process/StateFolder.h"
#include "controller/runs/ProcedureRun.h"
#include "fixture/Program.h"
#include "fixture/Sockets.h"
#include "fixture/TempDir.h"
#include "fixture/Texts.h"
#include "fixture/Waiting.h"
#include "ixocamglue/support/Files.h"
#include "machines/composed/Machine.h"
#include "machines/modbus/Driver.h"
#include "machines/simulated/Driver.h"
#include "machines/simulated/Machine.h"
#include "tests/threaded/ModbusSlaves.h"
#include "verify/PortContracts.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

using testing::HasSubstr;

// `ixocut simulate machine`, until the end of the scope; what happened in it, by the system's monotonic clock.
class TPlantProcess {
 public:
  explicit TPlantProcess(const std::string& machine)
      : FProgram({"simulate", "machine", "--tcp", "0", "--machine", machine}) {
    const std::string link = FProgram.Next().at("link");
    Port = static_cast<std::uint16_t>(std::stoi(link.substr(link.find(':') + 1)));
    FThread = std::thread([this] {
      for (nlohmann::json next = FProgram.Next(); !next.is_null(); next = FProgram.Next())
        if (next.contains("happened")) {
          const std::lock_guard guard(FLock);
          FHappened.emplace_back(next.at("ms"), next.at("happened"));
        }
    });
  }
  ~TPlantProcess() {
    FProgram.End();
    FThread.join();
  }
  TPlantProcess(const TPlantProcess&) = delete;
  TPlantProcess& operator=(const TPlantProcess&) = delete;

  // When it happened; monotonic ms.
  std::vector<std::uint64_t> Times(const std::string& what) {
    const std::lock_guard guard(FLock);
    std::vector<std::uint64_t> times;
    for (const auto& [ms, text] : FHappened)
      if (text == what) times.push_back(ms);
    return times;
  }
  // What was switched on, lit or set since then.
  std::vector<std::string> OnAfter(std::uint64_t since) {
    const std::lock_guard guard(FLock);
    std::vector<std::string> on;
    for (const auto& [ms, text] : FHappened)
      if (ms > since && (text.find(" on") != std::string::npos || text.find(" lit") != std::string::npos ||
                         text.find(" up") != std::string::npos || text.find("da ") == 0))
        on.push_back(text);
    return on;
  }
  std::uint16_t Port = 0;

 private:
  TJsonProgram FProgram;
  std::mutex FLock;
  std::vector<std::pair<std::uint64_t, std::string>> FHappened;
  std::thread FThread;
};

enum class TCut : std::uint8_t { Whole, Silent, Closed, Late, OtherUnit, Damaged, OtherMap };

// Carries bytes between a client and a port, unless it is cut; replies as a device gives them that is late or wrong.
class TRelay {
 public:
  explicit TRelay(std::uint16_t to) : FTo(to), FListener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (!TLocalAddress(0).Bind(FListener) || ::listen(FListener, 4) != 0) throw std::runtime_error("no port");
    Port = PortOf(FListener);
    FThread = std::thread([this] { Carry(); });
  }
  ~TRelay() {
    FStop.Ask();
    FThread.join();
    ::close(FListener);
  }
  TRelay(const TRelay&) = delete;
  TRelay& operator=(const TRelay&) = delete;

  std::uint16_t Port = 0;
  std::atomic<TCut> Cut{TCut::Whole};

 private:
  void Carry() {
    std::array<int, 2> ends{-1, -1};
    const auto part = [&] {
      for (int& end : ends)
        if (end >= 0) ::close(std::exchange(end, -1));
    };
    char buffer[512];
    while (!FStop.Asked()) {
      if (Cut == TCut::Closed) part();
      if (Cut == TCut::Closed || Cut == TCut::Silent) {
        Clock().Sleep(1);
        continue;
      }
      if (ends[0] < 0) {
        if (!WaitFd(FListener, POLLIN, 5)) continue;
        ends[0] = ::accept(FListener, nullptr, nullptr);
        ends[1] = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (!TLocalAddress(FTo).Connect(ends[1])) part();
        continue;
      }
      pollfd waits[] = {{ends[0], POLLIN, 0}, {ends[1], POLLIN, 0}};
      if (::poll(waits, 2, 5) <= 0) continue;
      for (std::size_t from = 0; from < 2 && ends[0] >= 0; ++from) {
        if (waits[from].revents == 0) continue;
        auto got = ::read(ends[from], buffer, sizeof buffer);
        if (from == 1 && got > 8) got = Answer(buffer, got);
        if (got <= 0 || ::write(ends[1 - from], buffer, static_cast<std::size_t>(got)) != got) part();
      }
    }
    part();
  }
  // A reply, as the device gives it now; its length.
  ssize_t Answer(char* frame, ssize_t length) {
    const std::uint64_t until = Clock().MonotonicMs() + 2500;
    while (Cut == TCut::Late && !FStop.Asked() && Clock().MonotonicMs() < until) Clock().Sleep(1);
    if (Cut == TCut::OtherUnit) ++frame[6];
    if (Cut == TCut::Damaged) frame[2] = 1;
    if (Cut != TCut::OtherMap) return length;
    frame[5] = 3;
    frame[7] = static_cast<char>(frame[7] | 0x80);
    frame[8] = 2;
    return 9;
  }
  const std::uint16_t FTo;
  const int FListener;
  TStop FStop;
  std::thread FThread;
};

std::filesystem::path MakeFile(const TTempDir& folder, std::uint16_t port) {
  std::string text = ReadFile(ShareFolder() / "machines" / "modbus.xml").OrThrow(pbUnusable);
  const std::string from = "Port=\"1502\"";
  const auto at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error(from + " is not in modbus.xml");
  text.replace(at, from.size(), "Port=\"" + std::to_string(port) + "\"");
  std::ofstream(folder.Path() / "machine.xml") << text;
  return folder.Path() / "machine.xml";
}

struct TWorld {
  TTempDir Folder;
  TPlantProcess Plant{(ShareFolder() / "machines" / "modbus.xml").string()};
  TRelay Relay{Plant.Port};
  const std::filesystem::path File = MakeFile(Folder, Relay.Port);

  [[nodiscard]] TControllerOptions Options() const {
    return {.Machines = {ComposedMachine({SimulatedDriver(), ModbusDriver()})},
            .MachineFile = File,
            .LocaleFolder = ShareFolder() / "locale",
            .Language = "en",
            .Realtime = true};
  }
};

// On a machine that is busy with other things a thread may rest for longer than the latch of the source waits: that
// ends a run, as it should, and this may be tried once more.
std::string Twice(const std::function<std::string()>& act) {
  const std::string wrong = act();
  return wrong.empty() ? wrong : act();
}

std::string Report(const TRunReport& report) {
  return report.Success() ? "" : report.Problem ? report.Problem->Text() : report.End.Words;
}

TEST(ModbusMachine, AShotIsLitForItsTime) {
  EXPECT_EQ(Twice([] {
              TWorld world;
              TProcedureRun run(world.Options());
              std::string wrong = Report(run.Run([] { return MakeShot(300); }, 20'000));
              if (!wrong.empty()) return wrong;
              if (!Comes([&] { return world.Plant.Times("laser: beam dark").size() == 1; }))
                return std::string("never dark");
              const auto ms = world.Plant.Times("laser: beam dark")[0] - world.Plant.Times("laser: beam lit")[0];
              return ms > 280 && ms < 300 + 3 * 50 ? wrong : "lit for " + std::to_string(ms) + " ms";
            }),
            "");
}

TEST(ModbusMachine, TheCoverOpens) {
  EXPECT_EQ(Twice([] {
              TWorld world;
              TProcedureRun run(world.Options());
              const TMotionCall cover{AskProcedure("cover").OrThrow(pbRequest), {}};
              const std::string wrong = Report(run.Run([&] { return cover.Make(nullptr); }, 20'000));
              EXPECT_EQ(world.Plant.Times("output 4 on").size(), 1u);
              return wrong;
            }),
            "");
}

struct TCutRow {
  TCut Cut;
  const char* Name;
  const char* Said;
};
class ModbusMachineCut : public testing::TestWithParam<TCutRow> {};
INSTANTIATE_TEST_SUITE_P(Lines, ModbusMachineCut,
                         testing::Values(TCutRow{TCut::Silent, "Silent", "station io"},
                                         TCutRow{TCut::Closed, "Closed", "station io"},
                                         TCutRow{TCut::Late, "Late", "station io"},
                                         TCutRow{TCut::OtherUnit, "OtherUnit", "the reply is another unit's"},
                                         TCutRow{TCut::Damaged, "Damaged", "this is no Modbus TCP header"},
                                         TCutRow{TCut::OtherMap, "OtherMap", "exception 2 (illegal data address)"}),
                         [](const auto& row) { return row.param.Name; });

// A shot whose line is cut while it is lit, and mended 1.5 s later. The limit is 500 ms.
TEST_P(ModbusMachineCut, EndsALitShotDarkWithItsReasonAndNothingComesBack) {
  const TCut cut = GetParam().Cut;
  EXPECT_EQ(Twice([cut]() -> std::string {
              TWorld world;
              std::optional<std::uint64_t> cutMs;
              TProcedureRun run(world.Options());
              run.OnLook([&](std::uint64_t now) {
                if (!cutMs && world.Plant.Times("laser: beam lit").size() == 1) {
                  world.Relay.Cut = cut;
                  cutMs = now;
                }
                if (cutMs && now - *cutMs > 1500) world.Relay.Cut = TCut::Whole;
              });
              const TRunReport report = run.Run([] { return MakeShot(10'000); }, 20'000, 3000);
              if (!cutMs) return "never lit: " + Report(report);
              EXPECT_STRNE(report.End.Name, "success");
              std::string said = Report(report);
              for (const TRunAlarm& alarm : report.Alarms) said += "\n" + alarm.Description;
              EXPECT_THAT(said, HasSubstr("station io"));
              EXPECT_THAT(said, HasSubstr(GetParam().Said));
              const TMachineSnapshot now = run.Controller().Machine().Snapshot();
              EXPECT_FALSE(now.Laser || now.Emission);
              EXPECT_TRUE(now.LatchTripped);
              EXPECT_EQ(now.Pos, TPoint2{});
              const auto dark = world.Plant.Times("laser: beam dark");
              EXPECT_EQ(dark.size(), 1u);
              EXPECT_EQ(world.Plant.OnAfter(*cutMs), std::vector<std::string>());
              const std::uint64_t ms = dark.empty() ? 0 : dark[0] - std::min(dark[0], *cutMs);
              testing::Test::RecordProperty("dark_ms", std::to_string(ms));
              return ms < 3 * 500 ? "" : "dark after " + std::to_string(ms) + " ms";
            }),
            "");
}

TEST(ModbusMachine, KeepsThePortsContractsWithItsLineCutAndHealed) {
  EXPECT_EQ(Twice([] {
              TWorld world;
              std::string wrong;
              for (const auto& violation : ixoverify::CheckPortContracts({.Options = world.Options(),
                                           .Cut = [&] { world.Relay.Cut = TCut::Silent; },
                                           .Heal = [&] { world.Relay.Cut = TCut::Whole; },
                                           .CutsAxes = false,
                                           .CallMs = 3 * 20,
                                           .AwayMs = 3 * 500}))
                wrong += violation.Port + ": " + violation.Text + "\n";
              return wrong;
            }),
            "");
}

// --- the same procedures on the simulated machine and on this one ---

// The same file, with its nozzle motor and slow ways faster.
std::filesystem::path MakeQuickFile(const TTempDir& folder, std::uint16_t port, bool simulated) {
  const auto file = MakeFile(folder, port);
  std::string text = ReadFile(file).OrThrow(pbUnusable);
  const auto change = [&](const std::string& from, const std::string& to) {
    ASSERT_NE(text.find(from), std::string::npos) << from;
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  };
  change("InstSpeed=\"2\" UnInstSpeed=\"2\" AlignSpeed=\"1\"", "InstSpeed=\"9\" UnInstSpeed=\"9\" AlignSpeed=\"9\"");
  change("<ZMoveLowSpeed>5<", "<ZMoveLowSpeed>40<");
  if (simulated) change("<Machine Driver=\"composed\"/>", "<Machine Driver=\"simulated\"/>");
  std::ofstream(file) << text;
  return file;
}

// An off that is told again, as it is in every pass until the device has read back, stands once: how often is a matter
// of time. What was switched on since may be switched off again.
TTexts CommandsOf(const TControllerOptions& options, const char* procedure) {
  const TProcedure* const row = FindProcedure(procedure);
  TProcedureRun run(options);
  const TRunReport report = run.Run([&] { return TMotionCall{row, row->SampleValues(), {}}.Make(nullptr); }, 120'000);
  TTexts commands;
  std::set<std::string> off;
  for (const TJournalEntry& entry : run.Controller().Journal().Entries()) {
    if (!entry.IsCommand()) continue;
    const std::string text = entry.Line().substr(entry.Line().find(' ') + 1);
    if (entry.Kind == vkStart)
      std::erase_if(off, [&](const std::string& told) { return told.starts_with(entry.Device); });
    if (entry.Kind != vkOff || off.insert(text).second) commands.push_back(text);
  }
  commands.push_back(report.Success() ? "success" : Report(report));
  return commands;
}

TEST(ModbusMachine, TheSameProceduresGiveTheSameCommandsAsOnTheSimulatedMachine) {
  const TTempDir folder;
  const TControllerOptions simulated{.Machines = {SimulatedMachine()},
                                     .MachineFile = MakeQuickFile(folder, 1, true),
                                     .LocaleFolder = ShareFolder() / "locale",
                                     .Language = "en"};
  TWorld world;
  TControllerOptions options = world.Options();
  (void)MakeQuickFile(world.Folder, world.Relay.Port, false);
  for (const char* const procedure :
       {"shot", "safe-move", "square", "change-nozzle", "clean-nozzle-manual", "auto-calibrate", "cover"}) {
    SCOPED_TRACE(procedure);
    const TTexts wanted = CommandsOf(simulated, procedure);
    EXPECT_EQ(wanted.back(), "success");
    TTexts commands = CommandsOf(options, procedure);
    if (commands != wanted) commands = CommandsOf(options, procedure);  // the machine may have been busy
    EXPECT_EQ(commands, wanted);
  }
}

// What a calibration of oxygen measures on a machine that is driven by `pass`; the points by rising voltage.
std::vector<TDot> Calibrate(TController& session, const std::function<void()>& pass) {
  TGasCalibration calibration(session, {2}, {"S", 1.5});
  while (session.Framework().SafePending()) pass();
  calibration.Start().OrThrow(pbRefused);
  while (calibration.Running()) {
    calibration.Watch(Clock().MonotonicMs());
    pass();
  }
  session.StopThreads();
  std::vector<TDot> dots;
  for (const TGasPoint& point : calibration.Results().front().Points) dots.push_back({point.Volt, point.Press});
  std::ranges::sort(dots, {}, &TDot::X);
  return dots;
}

TEST(ModbusMachine, AGasCalibrationGivesTheSimulatorsCurveWithinOnePerCent) {
  const TTempDir folder;
  std::filesystem::copy_file(ShareFolder() / "machines" / "machine.xml", folder.Path() / "machine.xml");
  std::vector<TDot> simulated;
  {
    TController session({.Machines = {SimulatedMachine()}, .MachineFile = folder.Path() / "machine.xml"});
    simulated = Calibrate(session, [&] { session.RunPass(); });
  }
  ASSERT_GE(simulated.size(), 5u);
  EXPECT_EQ(Twice([&]() -> std::string {
              TWorld world;
              TController session(world.Options());
              session.StartThreads();
              const std::vector<TDot> measured = Calibrate(session, [] { Clock().Sleep(5); });
              if (measured.size() < 5) return "only " + std::to_string(measured.size()) + " points";
              for (const TDot& dot : measured) {
                const auto above = std::ranges::find_if(simulated, [&](const TDot& d) { return d.X >= dot.X; });
                if (above == simulated.begin() || above == simulated.end()) continue;
                const TDot &a = above[-1], &b = above[0];
                const double bar = a.Y + (b.Y - a.Y) * (dot.X - a.X) / (b.X - a.X);
                EXPECT_NEAR(dot.Y, bar, 0.01 * simulated.back().Y) << dot.X << " V";
              }
              return "";
            }),
            "");
}

}  // namespace
}  // namespace ixocamglue::test
