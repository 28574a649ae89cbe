// The lines between a controller's driver and ixocut-hal, said and read by both sides.
#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "machines/linuxcnc/HalWire.h"

namespace ixocamglue::test {
namespace {

std::string Bare(std::string line) {
  EXPECT_TRUE(line.ends_with('\n'));
  line.pop_back();
  return line;
}

TEST(HalWire, WhatAClientSaysIsReadAsItWasSaid) {
  const std::vector<std::pair<const char*, THalAsk>> lines = {
      {"hello 1 command", {.Verb = hvHello, .Number = 1, .Role = hrCommand}},
      {"set 7 laser 1", {.Verb = hvSet, .Number = 7, .Name = "laser", .Value = 1.0}},
      {"set 8 gas.da-1 -0.125", {.Verb = hvSet, .Number = 8, .Name = "gas.da-1", .Value = -0.125}},
      {"beat 18446744073709551615", {.Verb = hvBeat, .Number = 18446744073709551615U}},
      {"alive 9", {.Verb = hvAlive, .Number = 9}},
      {"rearm 10", {.Verb = hvRearm, .Number = 10}},
  };
  for (const auto& [line, ask] : lines) {
    EXPECT_EQ(Bare(HalLine(ask)), line);
    const auto read = ParseHalAsk(line);
    ASSERT_TRUE(read.Ok()) << line;
    EXPECT_EQ(*read, ask) << line;
  }
}

TEST(HalWire, ALineThatIsNotWholeOrHasMoreIsRefusedByBothSides) {
  for (const char* const line : {"",
                                 " ",
                                 "set",
                                 "set 1",
                                 "set 1 laser",
                                 "set 1 laser on",
                                 "set 1 laser 1 1",
                                 "set 1 laser 1 ",
                                 "set 1 laser nan",
                                 "set 1 laser 1e999",
                                 "set 1 Laser 1",
                                 "set -1 laser 1",
                                 "set 1  laser 1",
                                 "beat",
                                 "beat x",
                                 "beat 1 2",
                                 "beat 18446744073709551616",
                                 "hello 1",
                                 "hello 1 owner",
                                 "Beat 1",
                                 "beat 1\r",
                                 "state 1 2 3"})
    EXPECT_FALSE(ParseHalAsk(line).Ok()) << line;
  for (const char* const line :
       {"", "state", "state 1 2", "state 1 2 3 ", "state 1 2 3 laser", "state 1 2 3 laser=", "state 1 2 3 =1",
        "state 1 2 3 laser=x", "state 1 2 3  laser=1", "full 1 2 x laser=1", "pin bit out", "pin bool out laser",
        "pin bit up laser", "pin bit out laser now", "hello 1 2", "hello 1 257 watch", "bye", "bye bye", "beat 1"})
    EXPECT_FALSE(ParseHalTell(line).Ok()) << line;
  EXPECT_EQ(ParseHalAsk(std::string("be\x01t ") + std::string(100, 'x')).Problem().What,
            "this line of the HAL wire is not understood: \"be?t " + std::string(55, 'x') + "...\"");
}

TEST(HalWire, WhatIxocutHalSaysIsReadAsItWasSaid) {
  const THalHello hello{.Version = 1, .Pins = 2, .Role = hrCommand};
  EXPECT_EQ(HalLine(hello), "hello 1 2 command\n");
  EXPECT_EQ(std::get<THalHello>(*ParseHalTell(Bare(HalLine(hello)))), hello);
  const THalPin pin{.Kind = hkFloat, .Output = true, .Name = "gas.da-1"};
  EXPECT_EQ(HalLine(pin), "pin float out gas.da-1\n");
  EXPECT_EQ(std::get<THalPin>(*ParseHalTell(Bare(HalLine(pin)))), pin);
  for (const THalBye bye : {hbEnds, hbStalled, hbRealtime, hbSilent, hbSlow, hbVersion, hbCrowded, hbWrong}) {
    EXPECT_EQ(std::get<THalBye>(*ParseHalTell(Bare(HalLine(bye)))), bye);
    EXPECT_STRNE(HalByeText(bye), "");
  }
  const THalFrame frame{
      .Full = true, .Seq = 1, .Ms = 20, .Done = 3, .Values = {{"laser", 1.0}, {"x.pos", 0.1}, {"gap", std::nan("")}}};
  EXPECT_EQ(HalLine(frame), "full 1 20 3 laser=1 x.pos=0.1 gap=nan\n");
  const auto read = std::get<THalFrame>(*ParseHalTell(Bare(HalLine(frame))));
  EXPECT_TRUE(read.Full && read.Seq == 1 && read.Ms == 20 && read.Done == 3);
  ASSERT_EQ(read.Values.size(), 3U);
  EXPECT_EQ(read.Values[1], (std::pair<std::string, double>("x.pos", 0.1)));
  EXPECT_TRUE(std::isnan(read.Values[2].second));
  EXPECT_EQ(HalLine(THalFrame{.Seq = 2, .Ms = 30, .Done = 3}), "state 2 30 3\n");
  EXPECT_TRUE(std::get<THalFrame>(*ParseHalTell("state 2 30 3")).Values.empty());
}

TEST(HalWire, AFrameOfAllPinsFitsInALine) {
  THalFrame frame{.Full = true, .Seq = ~0ULL, .Ms = ~0ULL, .Done = ~0ULL};
  frame.Values.assign(kHalPinsMax, {std::string(kHalNameMax, 'x'), -1.2345678901234567e-300});
  const std::string line = HalLine(frame);
  EXPECT_LE(line.size(), kHalTellMax);
  EXPECT_TRUE(ParseHalTell(Bare(line)).Ok());
  frame.Values.emplace_back("one-more", 0.0);
  EXPECT_FALSE(ParseHalTell(Bare(HalLine(frame))).Ok());
}

TEST(HalWire, LinesComeOutOfBytesHoweverTheyWereCut) {
  const std::string bytes = "beat 1\nset 2 laser 1\n\nrearm 3\n";
  for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
    THalLines lines(20);
    std::vector<std::string> got;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      lines.Add(std::string_view(bytes).substr(at, piece));
      while (const auto line = lines.Next()) got.emplace_back(*line);
    }
    EXPECT_THAT(got, testing::ElementsAre("beat 1", "set 2 laser 1", "", "rearm 3")) << piece;
    EXPECT_FALSE(lines.TooLong());
  }
  THalLines lines(4);
  lines.Add("1234\n12345");
  EXPECT_EQ(lines.Next(), "1234");
  EXPECT_EQ(lines.Next(), std::nullopt);
  EXPECT_TRUE(lines.TooLong());
}

TEST(HalWire, AListOfPinsSaysWhereItIsWrong) {
  const auto pins = ParseHalPins("# laser\nbit out laser  # the beam\r\n\n  float \t in  gap \ns32 in tool");
  ASSERT_TRUE(pins.Ok());
  EXPECT_THAT(*pins, testing::ElementsAre(THalPin{hkBit, true, "laser"}, THalPin{hkFloat, false, "gap"},
                                          THalPin{hkS32, false, "tool"}));
  const std::vector<std::pair<std::string, const char*>> wrong = {
      {"bit out laser\nbit in laser", "line 2: the pin \"laser\" stands twice"},
      {"bit laser",
       "line 1: this is no pin of ixocut-hal: \"bit laser\"; write bit, float or s32, then in or out, then "
       "its name"},
      {"\nbit in Gap",
       "line 2: this is no name for a pin of ixocut-hal: \"Gap\"; write up to 36 small letters, digits, "
       "\"-\" and \".\""},
      {"bit out heartbeat", "line 1: ixocut-hal has the pin \"heartbeat\" by itself; leave it out of the list"},
  };
  for (const auto& [file, text] : wrong) {
    const auto read = ParseHalPins(file);
    ASSERT_FALSE(read.Ok()) << file;
    EXPECT_EQ(read.Problem().Text(), text);
  }
}

}  // namespace
}  // namespace ixocamglue::test
