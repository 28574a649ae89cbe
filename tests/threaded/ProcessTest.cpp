// A process that runs for months: its lock, its log, what its service manager is told.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <future>
#include <iterator>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "controller/process/ControllerFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/RoundThread.h"
#include "controller/process/SignalStop.h"
#include "controller/process/StateFolder.h"
#include "controller/serving/Notify.h"
#include "controller/serving/ProcessLog.h"
#include "controller/serving/ReloadSignal.h"
#include "controller/serving/ServiceProcess.h"
#include "fixture/Machine.h"
#include "fixture/TempDir.h"
#include "fixture/Waiting.h"

namespace ixocamglue::test {
using namespace ixocontroller;
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Stands in for a service manager.
class TManager {
 public:
  explicit TManager(const std::string& name) : Name(name), FHandle(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(FHandle, reinterpret_cast<const sockaddr*>(&address), size), 0);
  }
  ~TManager() { ::close(FHandle); }
  // What came since the last time.
  TTexts Told() {
    TTexts told;
    char text[512];
    for (ssize_t size = 0; (size = ::recv(FHandle, text, sizeof text, 0)) > 0;)
      told.emplace_back(text, static_cast<std::size_t>(size));
    return told;
  }
  bool IsTold() {
    return Comes([&] { return !Told().empty(); });
  }
  const std::string Name;

 private:
  const int FHandle;
};

TEST(Notify, TellsWhatItDoesAndFeedsTheWatchdogTwiceInItsTimeWhileAllLive) {
  TManager manager("@ixo-test-" + std::to_string(::getpid()));
  std::uint64_t state = 1, supervisor = 1;
  std::string doing = "standby";
  {
    TNotify notify({manager.Name, 10'000'000}, {[&] { return state; }, [&] { return supervisor; }},
                   [&] { return doing; });
    std::uint64_t now = 1'000'000, fed = 0;
    const auto run = [&](std::uint64_t ms, bool stateLives, bool supervisorLives) {
      TTexts told;
      for (const std::uint64_t end = now + ms; now < end; now += TNotify::kRoundMs) {
        state += stateLives;
        supervisor += supervisorLives;
        notify.Round(now);
        for (std::string& line : manager.Told()) {
          fed += line == "WATCHDOG=1";
          told.push_back(std::move(line));
        }
      }
      return told;
    };
    EXPECT_THAT(run(500, true, true), ElementsAre("WATCHDOG=1", "STATUS=standby"));
    doing = "shot\nREADY=1";
    EXPECT_THAT(run(1000, true, true), ElementsAre("STATUS=shot READY=1")) << "one line, when it has changed";
    run(60'000, true, true);
    EXPECT_THAT(fed, testing::AllOf(testing::Ge(12U), testing::Le(15U)));
    run(1200, false, true);
    EXPECT_THAT(run(60'000, false, true), Not(Contains("WATCHDOG=1"))) << "the state thread hangs";
    EXPECT_THAT(run(200, true, true), Contains("WATCHDOG=1")) << "it lives again";
    run(1200, true, false);
    EXPECT_THAT(run(60'000, true, false), Not(Contains("WATCHDOG=1"))) << "the supervisor hangs";
  }
  EXPECT_THAT(manager.Told(), ElementsAre("STOPPING=1"));
}

TEST(Notify, AStateThreadOrASupervisorThatHangsStarvesTheWatchdog) {
  const TTempDir dir;
  TManager manager((dir.Path() / "notify").string());
  // Its supervisor stands aside for one that can be stopped.
  TController controller({.Machines = {SimulatedMachine()}, .Realtime = true, .Supervisor = false});
  controller.StartThreads();
  std::atomic<bool> hangs{false};
  TRoundThread supervisor("ixo-supervisor", 20, [&](std::uint64_t) {
    while (hangs) Clock().Sleep(5);
  });
  TNotify notify({manager.Name, 200'000}, BeatsOf(controller), {});
  notify.Ready();
  EXPECT_THAT(manager.Told(), Contains("READY=1"));
  const auto starves = [&] {
    Clock().Sleep(static_cast<std::uint32_t>(TNotify::kSilentMs) + 300);
    manager.Told();
    Clock().Sleep(300);
    return manager.Told().empty();
  };
  EXPECT_TRUE(manager.IsTold()) << "fed";
  hangs = true;
  EXPECT_TRUE(starves());
  hangs = false;
  EXPECT_TRUE(manager.IsTold());
  controller.StopThreads();
  EXPECT_TRUE(starves());
}

TEST(ControllerLock, TheFirstOneHasTheFolderAndIsFoundWhileItLives) {
  const TTempDir dir;
  const auto folder = dir.Path() / "state";
  EXPECT_FALSE(FindController(folder));
  {
    TControllerLock first;
    ASSERT_TRUE(first.Take(folder));
    ASSERT_TRUE(FindController(folder));
    EXPECT_EQ(FindController(folder)->Url, "") << "it is starting";
    ASSERT_TRUE(first.Describe("http://127.0.0.1:4711", "/x/controller.sock"));
    const auto found = FindController(folder);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->Process, ::getpid());
    EXPECT_EQ(found->Url, "http://127.0.0.1:4711");
    EXPECT_EQ(found->Socket, "/x/controller.sock");
    TControllerLock second;
    const auto refused = second.Take(folder);
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.Problem().Why,
                testing::AllOf(HasSubstr(std::to_string(::getpid())), HasSubstr("http://127.0.0.1:4711")));
  }
  EXPECT_FALSE(FindController(folder));
  EXPECT_FALSE(std::filesystem::exists(folder / "controller.json"));
  // Left by one that was killed: nobody holds the lock, or somebody else does.
  std::ofstream(folder / "controller.json") << R"({"process": 1, "url": "http://127.0.0.1:1"})";
  EXPECT_FALSE(FindController(folder));
  TFileLock other;
  ASSERT_EQ(other.Take((folder / "controller.json").string(), 0), lsHeld);
  EXPECT_EQ(FindController(folder)->Url, "");
}

TLogRecord Line(std::string text, std::int32_t kind = lkInfo) {
  TLogRecord record;
  record.Kind = kind;
  record.Text = std::move(text);
  record.Source = "T";
  record.Stamp = {45000.5};
  return record;
}

TEST(ProcessLog, FilesAreBoundedAndAFullDiskIsToldOnce) {
  const TTempDir dir;
  const auto file = dir.Path() / "controller.log";
  {
    TProcessLog log(MakeFileOutput(file, 3, 2000), {});
    for (int i = 0; i < 200; ++i) log.Write(Line(std::to_string(i) + "\nsecond \x1b line", lkWarning));
  }
  std::string all;
  for (const char* const name : {"controller.log.2", "controller.log.1", "controller.log"}) {
    EXPECT_LE(std::filesystem::file_size(dir.Path() / name), 2000U);
    all += ReadFile(dir.Path() / name).OrThrow(pbUnusable);
  }
  EXPECT_THAT(all, HasSubstr("2023-03-15 12:00:00.000 warning T: 199\n    second ? line\n"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 3);

  TTexts told;
  TProcessLog log(MakeFileOutput("/dev/full"), [&](const TProblem& problem) { told.push_back(problem.Why); });
  const auto lose = [&] {
    log.Write(Line("lost"));
    return !told.empty();
  };
  EXPECT_TRUE(Comes(lose));
  for (int i = 0; i < 100; ++i, Clock().Sleep(1)) lose();
  EXPECT_EQ(told.size(), 1U);
}

// Written to only when it is let.
struct TStuck final : ILogOutput {
  TStuck(std::atomic<bool>& stuck, std::atomic<std::size_t>& begun, std::vector<std::string>& lines)
      : Stuck(stuck), Begun(begun), Lines(lines) {}
  int Write(const TLogRecord& record) override {
    for (++Begun; Stuck;) Clock().Sleep(1);
    Lines.push_back(record.Text);
    return 0;
  }
  std::atomic<bool>& Stuck;
  std::atomic<std::size_t>& Begun;  // how many
  std::vector<std::string>& Lines;
};

TEST(ProcessLog, AJournalThatHangsHoldsUpNobodyAndWhatIsMissingIsSaid) {
  constexpr std::size_t kLines = 2 * TProcessLog::kMostLines + 1000;
  std::atomic<bool> stuck{true};
  std::atomic<std::size_t> begun{0};
  std::vector<std::string> lines;
  {
    TProcessLog log(std::make_unique<TStuck>(stuck, begun, lines), {});
    log.Write(Line("x"));
    ASSERT_TRUE(Comes([&] { return begun == 1; }));
    const std::uint64_t start = RealMs();
    for (std::size_t i = 1; i < kLines; ++i) log.Write(Line("x"));
    EXPECT_LT(RealMs() - start, 3000U);
    stuck = false;
    // There is room again.
    ASSERT_TRUE(Comes([&] { return begun == 1 + TProcessLog::kMostLines; }));
    log.Write(Line("last"));
  }
  EXPECT_EQ(lines.back(), "last");
  std::size_t written = 0, missing = 0;
  for (const std::string& line : lines)
    if (line == "x")
      ++written;
    else if (line != "last")
      missing += std::stoul(line);
  EXPECT_GT(missing, 0U);
  EXPECT_EQ(written + missing, kLines);

  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  EXPECT_EQ(MakeJournalOutput(pipe[1])->Write(Line("a\nb", lkError)), 0);
  char text[64] = {};
  EXPECT_GT(::read(pipe[0], text, sizeof text - 1), 0);
  EXPECT_STREQ(text, "<3>T: a\n<3>b\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(ReloadSignal, HangsUpUnderAServiceManagerMeansReadAgainElsewhereTheEnd) {
  const TSignalStop stop;
  {
    const TReloadSignal reload(true);
    std::raise(SIGHUP);
    EXPECT_FALSE(TSignalStop::Asked());
    EXPECT_TRUE(TReloadSignal::Take());
    EXPECT_FALSE(TReloadSignal::Take()) << "once";
  }
  const TReloadSignal none(false);
  std::raise(SIGHUP);
  EXPECT_TRUE(TSignalStop::Asked());
  EXPECT_FALSE(TReloadSignal::Take());
}

TEST(ServiceProcess, SighupReadsTheMachineFileAgainAtRestAndTheManagerIsToldOfAll) {
  const TTempDir dir;
  TManager manager((dir.Path() / "notify").string());
  ::setenv("NOTIFY_SOCKET", manager.Name.c_str(), 1);
  const auto file = MachineFile({}, dir.Path());
  const TSignalStop stop;
  TServiceOptions options{.StateFolder = dir.Path()};
  options.Controller.Machines = {SimulatedMachine({})};
  options.Controller.MachineFile = file;
  TService service(options);
  service.Start();
  const auto logged = [&](const char* text) {
    return Comes([&] {
      return std::ranges::any_of(service.Events().Read(0).Events, [&](const TServiceEvent& event) {
        return event.Kind == evLog && event.Body()["text"].get<std::string>().find(text) != std::string::npos;
      });
    });
  };
  {
    TServiceProcess process(service);
    process.Ready();
    TTexts told;
    const auto hear = [&] { std::ranges::move(manager.Told(), std::back_inserter(told)); };
    EXPECT_TRUE(Comes([&] {
      hear();
      return std::ranges::count(told, "STATUS=standby") > 0;
    }));
    EXPECT_EQ(std::erase(told, "READY=1"), 1U);
    const auto ready = [&] {
      return Comes([&] {
        process.Look();
        hear();
        return std::erase(told, "READY=1") > 0;
      });
    };
    std::raise(SIGHUP);
    EXPECT_TRUE(ready());
    EXPECT_TRUE(logged("the machine file was read again"));
    std::ofstream(file) << "<broken";
    std::raise(SIGHUP);
    EXPECT_TRUE(ready());
    EXPECT_TRUE(logged("machine.xml")) << "it goes on with what it has";
    EXPECT_THAT(told, Contains(HasSubstr("RELOADING=1")));
    EXPECT_FALSE(TSignalStop::Asked());

    std::promise<void> rest;
    service.Post([&] { rest.get_future().wait(); });
    std::raise(SIGHUP);
    process.Look();
    process.Look();
    EXPECT_THAT(manager.Told(), Not(Contains("READY=1"))) << "the machine file was not read yet";
    rest.set_value();
    EXPECT_TRUE(ready());
  }
  EXPECT_THAT(manager.Told(), Contains("STOPPING=1"));
  ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
}  // namespace ixocamglue::test
