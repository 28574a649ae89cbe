#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/CrashDisk.h"
#include "fixture/TempDir.h"
#include "fixture/Texts.h"
#include "ixocamglue/platform/xml/XmlConfig.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
namespace {

namespace fs = std::filesystem;

const std::string kMachine = "/m/machine.xml";

TEST(DurableSave, EveryCrashLeavesTheLastAcknowledgedOrTheNewFileWhole) {
  for (const bool hasLinks : {true, false}) {
    TCrashDisk disk;
    disk.HasLinks = hasLinks;
    const TInstalled<IFileLayer> installed(disk);
    std::string acknowledged = std::string(1500, 'a');
    std::string previous;
    disk.Put(kMachine, acknowledged);
    std::string next;
    std::size_t images = 0;
    disk.OnCall = [&] {
      for (const auto& image : disk.CrashImages()) {
        ++images;
        ASSERT_TRUE(image.contains(kMachine)) << disk.Log.back();
        const std::string& content = image.at(kMachine);
        ASSERT_TRUE(content == acknowledged || content == next) << disk.Log.back() << ": " << content.size();
        const auto backup = image.find(kMachine + ".bak");
        ASSERT_TRUE(backup == image.end() || backup->second == acknowledged || backup->second == previous)
            << disk.Log.back();
      }
    };
    for (const char c : {'b', 'c', 'd'}) {
      next = std::string(1400, c);
      ASSERT_TRUE(ReplaceFile(kMachine, next, ".bak").Done);
      previous = std::exchange(acknowledged, next);
      disk.OnCall();  // acknowledged: nothing older may come back
    }
    EXPECT_GT(images, 100u);
    EXPECT_EQ(disk.Names(), (TCrashDisk::TImage{{kMachine, acknowledged}, {kMachine + ".bak", previous}}));
  }
}

TEST(DurableSave, AFileIsAddedWholeOrNotAtAllAndNeverOverAnother) {
  for (const bool hasLinks : {true, false}) {
    TCrashDisk disk;
    disk.HasLinks = hasLinks;
    const TInstalled<IFileLayer> installed(disk);
    const std::string first(1500, 'a');
    disk.OnCall = [&] {
      for (const auto& image : disk.CrashImages())
        ASSERT_TRUE(!image.contains(kMachine) || image.at(kMachine) == first) << disk.Log.back();
    };
    ASSERT_TRUE(AddFile(kMachine, first).Done);
    ASSERT_TRUE(AddFile(kMachine, "b").Done) << "another was first";
    EXPECT_EQ(disk.Names(), (TCrashDisk::TImage{{kMachine, first}}));
  }
}

TEST(DurableSave, AFullDiskAtAnyCallLeavesTheOldFileAndNoTemporaries) {
  int failed = 0;
  for (int call = 0;; ++call) {
    TCrashDisk disk;
    const TInstalled<IFileLayer> installed(disk);
    disk.Put(kMachine, "old");
    disk.FailAt = call;
    const TReplaced replaced = ReplaceFile(kMachine, "new", ".bak");
    if (disk.Calls <= call) break;
    const auto names = disk.Names();
    const std::string& step = disk.Log[static_cast<std::size_t>(call)];
    if (replaced.Done) {  // from the rename on
      EXPECT_EQ(names.at(kMachine), "new") << step;
      EXPECT_EQ(replaced.Problem.empty(), !step.starts_with("flush folder")) << step;
      continue;
    }
    ++failed;
    EXPECT_EQ(names.at(kMachine), "old") << step;
    EXPECT_NE(replaced.Problem.find("No space left"), std::string::npos) << replaced.Problem;
    for (const auto& [name, content] : names) EXPECT_FALSE(name.ends_with(".tmp")) << step;
  }
  EXPECT_GE(failed, 8);
}

TEST(DurableSave, KeepsModeFollowsLinksAndTakesLeftoversAway) {
  TTempDir dir;
  fs::create_directory(dir.Path() / "real");
  const fs::path real = dir.Path() / "real/machine.xml";
  const fs::path link = dir.Path() / "machine.xml";
  std::ofstream(real) << "old";
  fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  fs::create_symlink("real/machine.xml", link);
  const pid_t killed = ::fork();
  if (killed == 0) ::_exit(0);
  ::waitpid(killed, nullptr, 0);
  for (const pid_t pid : {::getpid(), killed})
    for (const char* const name : {"", ".bak"}) std::ofstream(real.string() + Format("%s.%d.tmp", name, pid)) << "left";
  std::ofstream(real.string() + ".1.tmp") << "of a process that lives";
  EXPECT_TRUE(ReplaceFile(link.string(), "new", ".bak").Done);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(FileText(real), "new");
  EXPECT_EQ(FileText(real.string() + ".bak"), "old");
  EXPECT_EQ(static_cast<unsigned>(fs::status(real).permissions()), 0640u);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path() / "real"), {}), 3);
}

class TNumberConfig : public TXmlConfig {
 public:
  TNumberConfig() : TXmlConfig("Numbers") {}
  ~TNumberConfig() override { Die(); }
  void Publish(TPublisher& p) override { p.Field("Number", Number); }
  std::int32_t Number = 0;
};

TEST(DurableSave, KilledInALoopOfSavesTheFileHoldsTheLastAcknowledgedNumberOrTheNext) {
  TTempDir dir;
  const fs::path file = dir.Path() / "numbers.xml";
  std::int32_t acknowledged = 0;
  for (int round = 0; round < 12; ++round) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      TNumberConfig config;
      if (!config.Load(file, mfDefaults)) ::_exit(1);
      for (;;) {
        ++config.Number;
        if (!config.Save() || ::write(pipe[1], &config.Number, sizeof config.Number) != sizeof config.Number)
          ::_exit(2);
      }
    }
    ::close(pipe[1]);
    std::int32_t number = 0;
    for (int i = 0; i <= round * 3; ++i)
      if (::read(pipe[0], &number, sizeof number) == sizeof number) acknowledged = number;
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the saves failed: " << WEXITSTATUS(status);
    while (::read(pipe[0], &number, sizeof number) == sizeof number) acknowledged = number;
    ::close(pipe[0]);
    TNumberConfig config;
    ASSERT_TRUE(config.Load(file));
    ASSERT_TRUE(config.Number == acknowledged || config.Number == acknowledged + 1) << config.Number;
    acknowledged = config.Number;
  }
}

}  // namespace
}  // namespace ixocamglue::test
