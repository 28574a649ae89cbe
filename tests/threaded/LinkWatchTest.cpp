// Registers of a device that are watched, over a real line.
#include <gtest/gtest.h>

#include "controller/links/LinkWatch.h"
#include "controller/process/RealTime.h"
#include "fixture/ServingPlc.h"
#include "fixture/Waiting.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"

namespace ixocamglue::test {
namespace {

TWatched WatchOf(const TLinkAddress& link, std::uint16_t addr) {
  return {.Name = "plc", .Link = link, .Addr = addr, .Count = 2, .EveryMs = TLinkWatch::kLeastMs};
}

TEST(LinkWatch, ReadsWhileSomebodyLooksAndTellsWhatHasChanged) {
  TServing plc;
  const TLinkAddress link = TcpLink(plc.Tcp());
  const auto writer = MakeDevice<TModbusComm>("writer");
  writer->IsTCP = true;
  writer->SetProfile(mpStrict);
  writer->SetDataTransIntf(MakeTransport(link));
  TLinkWatch watch;
  EXPECT_TRUE(watch.Json().is_null());
  for (const std::uint16_t addr : {std::uint16_t{20}, std::uint16_t{40}}) {  // one in the place of the other
    ASSERT_TRUE(writer->WriteRegisters(addr, std::vector<std::uint16_t>{7, 1000}).Ok());
    watch.Begin(WatchOf(link, addr));
    nlohmann::ordered_json now;
    const auto value = [&](std::size_t i) {
      now = watch.Json();
      return now["values"].size() == 2 ? now["values"][i]["value"].get<int>() : -1;
    };
    EXPECT_TRUE(Comes([&] { return value(0) == 7; })) << now.dump();
    ASSERT_TRUE(writer->WriteRegisters(addr, std::vector<std::uint16_t>{9}).Ok());
    EXPECT_TRUE(Comes([&] { return value(0) == 9; })) << now.dump();
    EXPECT_EQ(now["addr"], addr);
    EXPECT_EQ(now["values"][0].dump(), R"({"value":9,"least":7,"most":9,"changes":1})");
    EXPECT_EQ(now["values"][1]["changes"], 0);
    EXPECT_EQ(now["outcome"], "ok");
    EXPECT_EQ(now["failures"], 0);
  }
  EXPECT_EQ(watch.Busy(), "plc");
  SkipRealTime(TLinkWatch::kUnseenMs + 1);
  EXPECT_TRUE(Comes([&] { return watch.Busy().empty(); }));
  EXPECT_TRUE(watch.Json().is_null());
}

TEST(LinkWatch, SaysWhyNothingComesAndEndsInTheMiddleOfARequest) {
  TServing silent(pfSilent);
  nlohmann::ordered_json now;
  TLinkWatch watch;
  watch.Begin(WatchOf(TcpLink(silent.Tcp()), 0));
  EXPECT_TRUE(Comes([&] {
    now = watch.Json();
    return now["failures"] != 0;
  }));
  EXPECT_EQ(now["outcome"], "time-out");
  EXPECT_FALSE(now["problem"]["what"].get<std::string>().empty());
  EXPECT_TRUE(now["ageMs"].is_null());
}

}  // namespace
}  // namespace ixocamglue::test
