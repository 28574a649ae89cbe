#include <charconv>
#include <clocale>
#include <cmath>
#include <limits>
#include <locale>
#include <random>

#include <gtest/gtest.h>

#include "fixture/Paths.h"
#include "ixocamglue/monitor/Umonitordataline.h"
#include "ixocamglue/monitor/Umonitornumbers.h"
#include "ixocamglue/support/Format.h"
#include "tests/monitor/MonitorFiles.h"

namespace ixocamglue::test {
namespace {

std::string Int(std::int32_t value) {
  char text[kLongestInt + kPutSlack];
  return {text, PutInt(text, value)};
}

std::string Float(float value) {
  char text[kLongestFloat + kPutSlack];
  return {text, PutFloat(text, value)};
}

std::string LiteralFloat(float value) {
  if (std::isnan(value)) return "nan";
  char text[64];
  return {text, std::to_chars(text, text + 64, static_cast<double>(value), std::chars_format::fixed, 8).ptr};
}

TEST(MonitorNumbers, AreWrittenAsTheLibraryWritesThem) {
  std::mt19937 random(1);
  for (int i = 0; i < 300'000; ++i) {
    const auto bits = static_cast<std::uint32_t>(random());
    const auto number = static_cast<std::int32_t>(bits >> random() % 32);
    ASSERT_EQ(Int(number), std::to_string(number));
    ASSERT_EQ(Int(-(number & 0x7FFFFFFF)), std::to_string(-(number & 0x7FFFFFFF)));
    ASSERT_EQ(Float(std::bit_cast<float>(bits)), LiteralFloat(std::bit_cast<float>(bits)));
    // The exponents of everyday values, and ties: few bits set.
    const auto everyday = std::bit_cast<float>((bits & 0x800FF000) | ((90 + bits % 90) << 23));
    ASSERT_EQ(Float(everyday), LiteralFloat(everyday));
  }
  const float max = std::numeric_limits<float>::max();
  for (const float value : {0.0F, -0.0F, 1e-45F, 5e-9F, -5e-9F, 0.99999999F, 16777216.0F, 0x1p63F, 0x1p64F, 0x1p65F,
                            max, -max, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()})
    EXPECT_EQ(Float(value), LiteralFloat(value)) << value;
  EXPECT_EQ(Int(std::numeric_limits<std::int32_t>::min()), "-2147483648");
  EXPECT_EQ(Float(-0.0F), "-0.00000000");
  EXPECT_EQ(Float(-std::numeric_limits<float>::quiet_NaN()), "nan");
}

TEST(MonitorNumbers, AFieldIsAnIntegerAsAWholeOrNothing) {
  const std::pair<const char*, std::uint32_t> whole[] = {{"0", 0},
                                                         {"  +7\t", 7},
                                                         {"-1", 0xFFFFFFFF},
                                                         {"4294967294", 0xFFFFFFFE},
                                                         {"-2147483648", 0x80000000},
                                                         {"$1f", 31},
                                                         {"-$1", 0xFFFFFFFF},
                                                         {"0X1F", 31},
                                                         {"0000000000000000000000012", 12}};
  for (const auto& [text, value] : whole) EXPECT_EQ(ParseInt(text), value) << text;
  for (const char* none : {"4294967296", "-2147483649", "", " ", "-", "$", "0x", "1 2", "--1", "0x-1", "1.0", "x1",
                           "99999999999999999999999", "$100000000"})
    EXPECT_FALSE(ParseInt(none)) << none;
}

TEST(MonitorNumbers, AFieldIsAFloatAsAWholeOrNothing) {
  const float infinity = std::numeric_limits<float>::infinity();
  const std::pair<const char*, float> whole[] = {{" +0.5\t", 0.5F},
                                                 {"-2", -2.0F},
                                                 {".5", 0.5F},
                                                 {"5.", 5.0F},
                                                 {"1e3", 1000.0F},
                                                 {"-1E-3", -0.001F},
                                                 {"InFiNiTy", infinity},
                                                 {"-INF", -infinity},
                                                 {"16777217.00000000", 16777216.0F},
                                                 {"16777219.00000000", 16777220.0F}};
  for (const auto& [text, value] : whole) EXPECT_EQ(ParseFloat(text), value) << text;
  for (const char* none : {"1e39", "1e-60", "0x1p3", "nan(1)", "in", "--1", "+-1", "1,5", "1 5", "", ".", "e5", "1e"})
    EXPECT_FALSE(ParseFloat(none)) << none;
  EXPECT_TRUE(std::isnan(ParseFloat("NaN").value_or(0.0F)));
  EXPECT_TRUE(std::signbit(ParseFloat("-0.0").value_or(1.0F)));
}

// The fast way takes a line only where it agrees with the tolerant one, which a blank behind each field forces.
TEST(MonitorNumbers, TheFastWayReadsWhatTheTolerantWayReads) {
  std::mt19937 random(2);
  std::string fast = kHead;
  std::string slow = kHead;
  int taken = 0;
  for (int i = 0; i < 4000; ++i) {
    char text[2048];
    std::string line(text, PutDataLine(text, RandomFrame(random)));
    const char* const letters = "0123456789,.-+ e\r";
    for (auto changes = random() % 3; changes > 0; --changes) line[random() % line.size()] = letters[random() % 17];
    std::string spread;
    for (const char c : line) (spread += c == ',' ? " ," : c == '\r' ? " \r" : std::string(1, c));
    fast += line + "\r\n";
    slow += spread + " \r\n";
    TMonitorDataFrame frame;
    taken += ParseExactLine((line + "\r\n" + std::string(kParseSlack, '\0')).c_str(), frame) != nullptr;
  }
  const TLoaded a = LoadText(fast);
  const TLoaded b = LoadText(slow);
  ASSERT_EQ(a.Frames.size(), b.Frames.size());
  for (std::size_t i = 0; i < a.Frames.size(); ++i) ASSERT_EQ(*a.Frames[i], *b.Frames[i]) << i;
  EXPECT_EQ(a.Report.BadFields, b.Report.BadFields);
  EXPECT_GT(taken, 500);
  EXPECT_LT(taken, 3500);
}

struct TOwnPoint final : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(MonitorNumbers, ALocaleWithADecimalCommaChangesNothing) {
  if (const std::string locales = TestLocales(); !locales.empty()) {
    setenv("LOCPATH", locales.c_str(), 1);
    ASSERT_TRUE(std::setlocale(LC_ALL, "de_DE.UTF-8"));
    ASSERT_EQ(std::string(std::localeconv()->decimal_point), ",");
    EXPECT_EQ(Format("%.1f", 0.5), "0.5") << "log lines too";
  }
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new TOwnPoint));
  EXPECT_EQ(Float(1234567.5F), "1234567.50000000");
  EXPECT_EQ(Float(1e30F), "1000000015047466219876688855040.00000000");
  EXPECT_EQ(Int(-1234567), "-1234567");
  EXPECT_EQ(ParseFloat("1234.5e0"), 1234.5F);
  EXPECT_EQ(ParseInt("1234567"), 1234567U);
  std::locale::global(previous);
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
}

}  // namespace
}  // namespace ixocamglue::test
