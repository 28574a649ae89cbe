#include <cerrno>
#include <csignal>
#include <fstream>

#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "fixture/TempDir.h"
#include "ixocamglue/support/ChildProcess.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocamglue::test {
namespace {

TEST(Formatting, KeepsSpellingWhateverTheLength) {
  EXPECT_EQ(Format("%d/%d: %s", 2, 5, "等开光闸完毕"), "2/5: 等开光闸完毕");
  for (const std::size_t length : {0u, 63u, 64u, 65u, 5000u}) {
    const std::string text(length, 'x');
    EXPECT_EQ(Format("[%s]", text.c_str()), "[" + text + "]");
  }
}

TEST(Formatting, ATranslationThatTakesOtherArgumentsIsNotTheSame) {
  const std::tuple<const char*, const char*, bool> texts[] = {{"%d/%d: ", "%d of %d: ", true},
                                                              {"100%% %s", "%s (100%%)", true},
                                                              {"%.2f bar", "%8.3f bar", true},
                                                              {"%d", "%s", false},
                                                              {"%s", "%s %s", false},
                                                              {"%s %d", "%d %s", false},
                                                              {"%d", "%ld", false},
                                                              {"%d", "%*d", false},
                                                              {"text", "50%", false},
                                                              {"text", "%n", false},
                                                              {"%u", "%d", false}};
  for (const auto& [own, translated, same] : texts)
    EXPECT_EQ(SameConversions(own, translated), same) << own << " | " << translated;
}

TEST(Numbers, OnlyAWholeTextThatFitsIsOne) {
  for (const char* bad : {"", " 1", "1 ", "+1", "-1", "1.0", "0x1F", "256", "1e1"})
    EXPECT_FALSE(ParseExactly<std::uint8_t>(bad)) << bad;
  EXPECT_EQ(ParseExactly<std::uint8_t>("0255"), 255);
  for (const char* bad : {"", "inf", "nan", "1e999", "0x10", "1,5", "."})
    EXPECT_FALSE(ParseExactly<double>(bad)) << bad;
  EXPECT_EQ(ParseExactly<double>("-1.5e3"), -1500.0);
  for (const char* bad : {"0x", "0x-1", "0x100", "x1", "1F"}) EXPECT_FALSE(ParseHexOrDecimal<std::uint8_t>(bad)) << bad;
  EXPECT_EQ(ParseHexOrDecimal<std::uint8_t>("0XfF"), 255);
  EXPECT_EQ(ParseHexOrDecimal<std::uint8_t>("10"), 10);
  for (const char* bad : {"", "+", "+-1", "++1", "1 2"}) EXPECT_FALSE(ParseNumber<int>(bad)) << bad;
  EXPECT_EQ(ParseNumber<int>(" \t+12\r\n"), 12);
}

TEST(WholeFiles, AnythingButARegularFileIsAProblemWithItsReason) {
  const TTempDir dir;
  const std::filesystem::path file = dir.Path() / "a";
  EXPECT_EQ(ReadFile(file).Problem().Text(), file.string() + ": the file cannot be read (No such file or directory)");
  EXPECT_FALSE(ReadFile(dir.Path()));
  EXPECT_FALSE(ReadFile(std::filesystem::path("/dev/zero")));
  std::ofstream(file) << "123456789";
  EXPECT_EQ(*ReadFile(file), "123456789");
  std::string bytes;
  EXPECT_EQ(ReadFile(file.string(), 9, bytes), 0);
  EXPECT_EQ(ReadFile(file.string(), 8, bytes), EFBIG);
}

TEST(Folders, AreMadeWithTheirRightsAndKeepThoseThatTheyHave) {
  const TTempDir dir;
  const auto rights = [](const std::filesystem::path& path) { return std::filesystem::status(path).permissions(); };
  const std::filesystem::path folder = dir.Path() / "above" / "folder";
  EXPECT_TRUE(MakeFolder(folder, std::filesystem::perms::owner_all));
  EXPECT_EQ(rights(folder), std::filesystem::perms::owner_all);
  EXPECT_NE(rights(folder.parent_path()), std::filesystem::perms::owner_all);
  EXPECT_TRUE(MakeFolder(folder, std::filesystem::perms::all));
  EXPECT_EQ(rights(folder), std::filesystem::perms::owner_all);
  std::ofstream(dir.Path() / "file").flush();
  EXPECT_EQ(MakeFolder(dir.Path() / "file" / "folder").Problem().Text(),
            (dir.Path() / "file/folder").string() + ": the folder cannot be created (Not a directory)");
}

TEST(ChildProcess, IsAskedToEndAlsoByAThreadThatHoldsSignalsBack) {
  const TTempDir folder;
  sigset_t term, before;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &term, &before), 0);
  TChildProcess sleep("/bin/sleep", {"sleep", "600"}, folder.Path(), folder.Path() / "said");
  EXPECT_EQ(sleep.End(std::chrono::seconds(5)), 128 + SIGTERM) << "nothing: it had to be forced";
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(Faults, EveryActionIsTriedAndTheFirstFailureIsTold) {
  std::string done;
  TTryAll tryAll;
  tryAll([&] { done += 'a'; })([&] { throw std::runtime_error("first"); })([&] { throw std::runtime_error("second"); });
  tryAll([&] { done += 'b'; });
  EXPECT_EQ(done, "ab");
  EXPECT_EQ(Thrown<std::runtime_error>([&] { tryAll.Rethrow(); }), "first");
}

TEST(Faults, AHandlerThatThrowsDoesNotDisturbTheReporter) {
  const TFaultHandler previous = SetFaultHandler([](std::string_view) { throw std::runtime_error("handler"); });
  EXPECT_EQ(FaultOr(7, "text"), 7);
  SetFaultHandler(previous);
}

}  // namespace
}  // namespace ixocamglue::test
