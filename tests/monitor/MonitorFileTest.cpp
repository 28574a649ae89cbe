#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/LogTexts.h"
#include "fixture/OwnConfig.h"
#include "ixocamglue/platform/ports/MotionDriver.h"
#include "ixocamglue/platform/xml/MachineConfig.h"
#include "tests/monitor/MonitorFiles.h"

namespace ixocamglue::test {
namespace {

TMonitorDataFrame Frame(std::uint16_t mainType, std::uint16_t subType, std::vector<float> values) {
  TMonitorDataFrame frame;
  frame.MainType = mainType;
  frame.SubType = subType;
  frame.DataCount = static_cast<std::uint8_t>(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (frame.IsInteger())
      frame.SetInt(i, static_cast<std::int32_t>(values[i]));
    else
      frame.SetFloat(i, values[i]);
  }
  return frame;
}

struct TThreeAxes final : TNcDeviceManager {
  TNcInputGroup* InputGroup() override { return nullptr; }
  std::int32_t GetAxisCount() override { return 3; }
};

TEST(MonitorFile, HoldsTheMachinesMotorsAndTheFramesThatAreKept) {
  const TTempDir dir;
  TOwnConfig own(
      "<MachineConfig><Axes><Axis Name='X,1&#13;&#10;&#10;b'/><Axis/><Axis Name='Z'/><Axis "
      "Name='W'/></Axes></MachineConfig>");
  const TInstalled<TMachineConfig> configInstalled(own.Config);
  TThreeAxes devices;
  const TInstalled<TNcDeviceManager> devicesInstalled(devices);

  const TMonitorDataFrame integers = Frame(3, 2, {1, -5});
  TMonitorDataFrame floats = Frame(2, 1, {0.5F});
  floats.SampleTime = 0xFFFFFFFF;
  floats.ShareDw = 0x80000000;
  const TMonitorDataFrame dropped1 = Frame(1, 258, {1});
  const TMonitorDataFrame dropped2 = Frame(1, 260, {1});
  TMonitorDataFrame tooMany = Frame(2, 2, std::vector<float>(32, 0.0F));
  tooMany.DataCount = 255;
  const std::vector<const TMonitorDataFrame*> frames = {&integers, nullptr, &dropped1, &floats, &dropped2, &tooMany};

  std::string zeros;
  for (int i = 0; i < 32; ++i) zeros += ",0.00000000";
  std::string head = kHead;
  head.replace(head.find("Motor\n"), 5, "Motor,X,1  b,轴2,Z");
  EXPECT_EQ(Save(std::vector<const TMonitorDataFrame*>{}), head);
  const std::string text =
      head + "3,2,0,0,0,0,2,0,0,0,0,1,-5\n2,1,0,0,-1,0,1,0,-2147483648,0,0,0.50000000\n2,2,0,0,0,0,32,0,0,0,0" + zeros +
      "\n";
  EXPECT_EQ(Save(frames), text);

  TSystemMonitorFile file(frames);
  file.SaveExpandToFile((dir.Path() / "e.csv").string());
  EXPECT_EQ(FileText(dir.Path() / "e.csv"),
            "MainType,3,SubType,2,Param1,0,Param2,0,采样时间,0,1,-5\n"
            "MainType,2,SubType,1,Param1,0,Param2,0,采样时间,-1,0.50000000\n"
            "MainType,2,SubType,2,Param1,0,Param2,0,采样时间,0" +
                zeros + "\n");

  // The names of another machine's file stay apart from this one's.
  WriteFile(dir.Path() / "a.csv", "MonitorHead,Version,1.2.0.0\nMonitorConfig,Motor,A,,B\n");
  EXPECT_TRUE(file.LoadFromFile((dir.Path() / "a.csv").string(), nullptr));
  EXPECT_EQ(file.FileMotorNames(), (TTexts{"A", "", "B"}));
  EXPECT_EQ(file.GetMotorName(2), "Z");
  EXPECT_EQ(file.GetMotorName(3), "A4");
  EXPECT_EQ(file.GetMotorName(-1), "");
  std::vector<std::string> names;
  for (const std::int32_t high : {-7, -1, 0, 2, 99}) {
    file.GetMotorNames(names, high);
    EXPECT_EQ(names.size(), static_cast<std::size_t>(std::clamp(high + 1, 0, 3))) << high;
  }
}

TEST(MonitorFile, RandomFramesComeBackAndASecondSaveIsTheSame) {
  std::mt19937 random(3);
  TFrameList frames;
  for (int i = 0; i < 2000; ++i) frames.push_back(std::make_unique<TMonitorDataFrame>(RandomFrame(random)));
  const std::string text = Save(frames);
  const TLoaded loaded = LoadText(text);
  EXPECT_TRUE(loaded.Report.Clean());
  ASSERT_EQ(loaded.Frames.size(), frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i)
    if (frames[i]->IsInteger()) {
      ASSERT_EQ(*loaded.Frames[i], *frames[i]) << i;
    }
  EXPECT_EQ(Save(loaded.Frames), text);
}

TEST(MonitorFile, TheHeadLinesVersionDecides) {
  struct TApp {
    TApp() {
      App.SetMessageBox([this](std::string_view text) { Shown += text; });
    }
    std::string Shown;
    TAppSys App;
    TInstalled<TAppSys> Installed{App};
  } app;
  const std::string rest = "\n\n\n\n3,2,0,0,0,0,1,0,0,0,0,9\n";
  struct TCase {
    std::string Text;
    bool Result;
    std::size_t Frames;
    const char* Message = "";
  };
  for (const TCase& c : {
           TCase{"", true, 0},
           {"\xEF\xBB\xBF", true, 0},
           {"MonitorHead,Version,1.2.0.0", true, 0},
           {"x,Version,1.2.0.0,Version,1.0.0.0" + rest, true, 1},
           {"\xEF\xBB\xBFVersion,1.2.0.0" + rest, true, 1},
           {"Version,1.0.0.0" + rest, false, 0, "不支持老版本数据读取!"},
           {"Version,1.3.0.0" + rest, true, 0},
           {" Version,1.2.0.0" + rest, true, 0},
           {"MonitorHead,Version" + rest, true, 0},
           {"MonitorHead" + rest, true, 0},
       }) {
    app.Shown.clear();
    const TLoaded loaded = LoadText(c.Text);
    EXPECT_EQ(loaded.Result, c.Result) << c.Text;
    EXPECT_EQ(loaded.Frames.size(), c.Frames) << c.Text;
    EXPECT_EQ(app.Shown, c.Message) << c.Text;
  }
}

TEST(MonitorFile, BadContentIsReadAroundAndReportedWithItsPlace) {
  const std::string line11 = "3,5,1,2,100,1,0,7,8,9,10";
  for (const std::string end : {"\n", "\r\n", "\r"}) {
    const std::string text = "Version,1.2.0.0" + end + end + "this" + end + "that" + end + "3,2,0,0,0,0,1,0,0,0" + end +
                             line11 + end + end + "65539,2,x,0,0,0,3,0,0,0,0,1,y" + end +
                             "2,1,0,0,0,0,33,0,0,0,0,1.5,zzz" + end + "3,2,0,0,0,0,1,0,0,0,0, $10 ,5";
    const TLoaded loaded = LoadText(text);
    ASSERT_EQ(loaded.Frames.size(), 4U);
    EXPECT_EQ(loaded.Frames[0]->Count(), 0U);
    EXPECT_EQ(loaded.Frames[0]->Reserve2, 10);
    EXPECT_EQ(loaded.Frames[1]->MainType, 3);
    EXPECT_EQ(loaded.Frames[1]->DataCount, 3);
    EXPECT_EQ(loaded.Frames[1]->GetInt(0), 1);
    EXPECT_EQ(loaded.Frames[1]->GetInt(1), 0);
    EXPECT_EQ(loaded.Frames[2]->DataCount, 32);
    EXPECT_EQ(loaded.Frames[2]->GetFloat(0), 1.5F);
    EXPECT_EQ(loaded.Frames[3]->GetInt(0), 16);
    TTexts notes;
    for (const TMonitorNote& note : loaded.Report.Notes)
      notes.push_back(std::to_string(static_cast<int>(note.Kind)) + ":" + std::to_string(note.Line) + "." +
                      std::to_string(note.Field) + " " + note.Text);
    EXPECT_EQ(notes, (TTexts{"0:5.0 3,2,0,0,0,0,1,0,0,0", "0:7.0 ", "1:8.3 x", "1:8.13 y", "3:8.14 ", "2:9.7 33",
                             "1:9.13 zzz", "3:9.14 ", "4:10.13 5"}));
    EXPECT_EQ(loaded.Report.Lines, 10U);
    EXPECT_TRUE(loaded.Report.OpenEnd);
  }
}

TEST(MonitorFile, NoDamageDisturbsTheReader) {
  std::string big = kHead + "2,1,1,0,0,1,2,0,0,0,0,0.50000000";
  big.append(10'000'000, ',');
  big += "\n3,2,0,0,0,0,1,0,0,0,0,9\n";
  const TLoaded loaded = LoadText(big);
  ASSERT_EQ(loaded.Frames.size(), 2U);
  EXPECT_EQ(loaded.Frames[0]->GetFloat(0), 0.5F);
  EXPECT_EQ(loaded.Frames[1]->GetInt(0), 9);

  // Line ends on and around the places where the buffer ends, and a line that is longer than what is looked at.
  std::string text = "Version,1.2.0.0\r\n\r\n\r\n\r\n";
  for (std::size_t i = 0; i < 40'000; ++i)
    text += "3,2,0,0,0,0,1,0,0,0,0," + std::to_string(i) + (i % 3 == 0 ? "\r\n" : i % 3 == 1 ? "\r" : "\n");
  for (const std::size_t blanks : {0U, 1U, 2U, 3U, 64U * 1024U * 1024U}) {
    const TLoaded shifted = LoadText(text + "3,2,0,0,0,0,1,0,0,0,0,1" + std::string(blanks, ' ') + "\r\n" + text);
    EXPECT_EQ(shifted.Frames.size(), 80'001U);
    EXPECT_EQ(shifted.Report.CutLines, blanks > 10 ? 1U : 0U);
    EXPECT_EQ(shifted.Frames.back()->GetInt(0), 39'999);
  }
}

TEST(MonitorFile, ReplacesAFileAsAWholeAndLeavesNothingBehind) {
  TLogWorld log;
  const TTempDir dir;
  const auto file = dir.Path() / "a.csv";
  TSystemMonitorFile monitor;
  WriteFile(file, "old");
  ::chmod(file.c_str(), 0640);
  std::filesystem::create_symlink(file, dir.Path() / "link.csv");
  {
    TMonitorFileSink sink(file.string());
    sink.Write("cut off");
    // A new file comes into being whole as well, and no partial file is written over.
    WriteFile(dir.Path() / "new.csv.part", "of a killed run");
    TMonitorFileSink fresh((dir.Path() / "new.csv").string());
    fresh.Write("whole");
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "new.csv"));
    EXPECT_EQ(FileText(dir.Path() / "new.csv.2.part"), "whole");
    fresh.Commit();
    EXPECT_EQ(FileText(dir.Path() / "new.csv"), "whole");
    EXPECT_EQ(FileText(dir.Path() / "new.csv.part"), "of a killed run");
    std::filesystem::remove(dir.Path() / "new.csv");
    std::filesystem::remove(dir.Path() / "new.csv.part");
  }
  EXPECT_EQ(FileText(file), "old");
  monitor.SaveToFile((dir.Path() / "link.csv").string());
  EXPECT_EQ(FileText(file), kHead);
  struct stat after {};
  ::lstat(file.c_str(), &after);
  EXPECT_EQ(after.st_mode, static_cast<mode_t>(S_IFREG | 0640));
  EXPECT_TRUE(std::filesystem::is_symlink(dir.Path() / "link.csv"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 2);

  // Another user's file is replaced as well, never emptied and written over; where nothing new can be made it stays.
  if (::geteuid() == 0) {
    ::chmod(dir.Path().c_str(), 0777);
    ::chmod(file.c_str(), 0666);
    ASSERT_EQ(::seteuid(65534), 0);
    const auto other = std::make_unique<TMonitorFileSink>(file.string());
    EXPECT_EQ(FileText(file), kHead);
    ASSERT_EQ(::seteuid(0), 0);
    ::chmod(dir.Path().c_str(), 0755);
    ASSERT_EQ(::seteuid(65534), 0);
    EXPECT_THROW(TMonitorFileSink(file.string()), EProblem);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_EQ(FileText(file), kHead);
  }

  monitor.SaveToFile("/dev/null");
  for (const std::string& bad :
       {(dir.Path() / "none" / "a.csv").string(), dir.Path().string(), std::string("/dev/full")}) {
    EXPECT_TRUE(Thrown<EProblem>([&] { monitor.SaveToFile(bad); }).starts_with(bad + ": ")) << bad;
    if (bad == "/dev/full") continue;
    EXPECT_FALSE(LoadFile(bad).Result);
    const TTexts lines = log.Log();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find(bad), std::string::npos);
  }
}

}  // namespace
}  // namespace ixocamglue::test
