// What a machine file says of Modbus points: addresses, ranges, stations; and which requests read them.

#include <gmock/gmock.h>

#include "fixture/OwnConfig.h"
#include "machines/modbus/Config.h"
#include "machines/modbus/Driver.h"
#include "machines/modbus/Plan.h"

namespace ixocamglue::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TModbusAddress Good(TPointKind kind, std::string_view text) {
  return TModbusAddress::Parse(kind, text).OrThrow(pbRequest);
}

TEST(ModbusAddress, NamesStationTableAddressAndBit) {
  const TModbusAddress bit = Good(pkOutput, "io:hreg:7.3");
  EXPECT_EQ(bit.Station, "io");
  EXPECT_EQ(bit.Cell, (TModbusCell{mtHolding, 7}));
  EXPECT_EQ(bit.Text(), "io:hreg:7.3");
  EXPECT_EQ(bit.Raw(pkOutput, 1.0, 0xF000), 0xF008);  // the other bits stay
  EXPECT_EQ(bit.Raw(pkOutput, 0.0, 0xFFFF), 0xFFF7);
  EXPECT_EQ(bit.Value(pkOutput, 0x0008), 1.0);
  EXPECT_EQ(Good(pkInput, "a-b:input:65535").Cell.Addr, 65535);
  EXPECT_EQ(Good(pkInput, "io:coil:3").Value(pkInput, 1), 1.0);
}

TEST(ModbusAddress, ScalesARangeOfItsUnitToARangeOfNumbersAndBack) {
  const TModbusAddress volt = Good(pkAnalogOut, " io:hreg:100   0..10 0..32767 ");
  EXPECT_EQ(volt.Raw(pkAnalogOut, 10.0, 0), 32767);
  EXPECT_EQ(volt.Raw(pkAnalogOut, 2.5, 0), 8192);
  EXPECT_EQ(volt.Raw(pkAnalogOut, 11.0, 0), 32767);  // limited
  EXPECT_EQ(volt.Raw(pkAnalogOut, -1.0, 0), 0);
  EXPECT_NEAR(volt.Value(pkAnalogOut, 8192), 2.5, 1e-3);
  EXPECT_EQ(volt.Limits(), "0..10 (0..32767)");
  const TModbusAddress current = Good(pkAnalogIn, "io:ireg:5 0..16 6400..32000");
  EXPECT_NEAR(current.Value(pkAnalogIn, 19200), 8.0, 1e-9);
  EXPECT_LT(current.Value(pkAnalogIn, 0), 0.0);  // a broken wire
  const TModbusAddress both = Good(pkAnalogIn, "io:ireg:5 -25..25 -32767..32767");
  EXPECT_NEAR(both.Value(pkAnalogIn, 0xFFFF), -25.0 / 32767, 1e-9);
  EXPECT_EQ(Good(pkAnalogIn, "io:ireg:5").Value(pkAnalogIn, 65535), 65535.0);
  EXPECT_EQ(Good(pkAnalogOut, "io:hreg:5 10..0 0..100").Raw(pkAnalogOut, 0.0, 0), 100);
}

TEST(ModbusAddress, SaysWhatIsWrong) {
  const struct {
    TPointKind Kind;
    const char* Text;
    const char* Said;
  } kRows[] = {{pkInput, "", "not like an address"},
               {pkInput, "io:3", "not like an address"},
               {pkInput, ":coil:3", "not like an address"},
               {pkInput, "io:coils:3", "did you mean coil?"},
               {pkInput, "io:relay:3", "none of the tables"},
               {pkInput, "io:coil:65536", "\"65536\" is no address"},
               {pkInput, "io:coil:-1", "\"-1\" is no address"},
               {pkInput, "io:coil:", "\"\" is no address"},
               {pkInput, "io:coil:3.1", "only a register has bits"},
               {pkInput, "io:hreg:3", "needs one bit"},
               {pkInput, "io:hreg:3.16", "\"16\" is no bit"},
               {pkInput, "io:hreg:3.1.2", "\"1.2\" is no bit"},
               {pkInput, "io:coil:3 0..1 0..1", "has no range"},
               {pkOutput, "io:input:3", "can only be read"},
               {pkOutput, "io:ireg:3.0", "can only be read"},
               {pkAnalogIn, "io:coil:3", "a whole register"},
               {pkAnalogIn, "io:ireg:3.1", "a whole register"},
               {pkAnalogIn, "io:ireg:3 0..16", "two ranges"},
               {pkAnalogIn, "io:ireg:3 0-16 0..100", "two ranges"},
               {pkAnalogIn, "io:ireg:3 0..16 5..5", "two ranges"},
               {pkAnalogIn, "io:ireg:3 0..16 -1..40000", "0 to 65535, or -32768 to 32767"},
               {pkAnalogOut, "io:ireg:3", "can only be read"}};
  for (const auto& row : kRows) {
    const auto parsed = TModbusAddress::Parse(row.Kind, row.Text);
    ASSERT_FALSE(parsed) << row.Text;
    EXPECT_THAT(parsed.Problem().What, HasSubstr(row.Said)) << row.Text;
    EXPECT_EQ(parsed.Problem().Where, row.Text);
    EXPECT_FALSE(parsed.Problem().Remedy.empty());
  }
}

TEST(ModbusPlan, JoinsWhatLiesTogetherWithinAGapAndOneRequest) {
  using TBlocks = std::vector<TModbusBlock>;
  const std::vector<TModbusCell> cells{{mtHolding, 120}, {mtCoil, 3},  {mtHolding, 100},       {mtCoil, 131},
                                       {mtCoil, 3},      {mtInput, 0}, {mtInputRegister, 100}, {mtHolding, 117}};
  EXPECT_EQ(PlanReads(cells, kModbusGaps[0]),
            (TBlocks{{{mtCoil, 3}, 129}, {{mtInput, 0}, 1}, {{mtHolding, 100}, 21}, {{mtInputRegister, 100}, 1}}));
  EXPECT_EQ(PlanReads({{mtHolding, 100}, {mtHolding, 118}}, kModbusGaps[0]),
            (TBlocks{{{mtHolding, 100}, 1}, {{mtHolding, 118}, 1}}));
  EXPECT_EQ(PlanReads({{mtHolding, 1}, {mtHolding, 2}, {mtHolding, 4}}, kModbusGaps[2]),
            (TBlocks{{{mtHolding, 1}, 2}, {{mtHolding, 4}, 1}}));
  std::vector<TModbusCell> many;
  for (std::uint16_t i = 0; i < 126; ++i) many.push_back({mtHolding, i});
  EXPECT_EQ(PlanReads(many, kModbusGaps[0]), (TBlocks{{{mtHolding, 0}, 125}, {{mtHolding, 125}, 1}}));
}

class ModbusConfig : public testing::Test {
 protected:
  std::string Check(const std::string& stations, TPointKind kind, const std::string& address) {
    const TOwnConfig own("<MachineConfig><Modbus>" + stations + "</Modbus></MachineConfig>");
    const auto good = ModbusDriver().CheckPoint(own.Config.Root(), kind, address);
    if (good) return "";
    EXPECT_EQ(good.Problem().Where, address);
    return good.Problem().Text();
  }
};

TEST_F(ModbusConfig, FindsWhatIsWrongWithAStation) {
  const std::string io = R"(<Station Name="io" Host="h"/>)";
  const std::string line = R"(<Station Name="a" Device="/dev/x"/><Station Name="io" Device="/dev/x" )";
  EXPECT_EQ(Check(io, pkInput, "io:coil:3"), "");
  EXPECT_THAT(Check(io, pkInput, "oi:coil:3"), HasSubstr("no station \"oi\""));
  EXPECT_THAT(Check(R"(<Station Name="valves" Host="h"/>)", pkInput, "valvs:coil:3"),
              HasSubstr("did you mean valves?"));
  EXPECT_THAT(Check(io + io, pkInput, "io:coil:3"), HasSubstr("two stations"));
  EXPECT_THAT(Check(R"(<Station Name="io"/>)", pkInput, "io:coil:3"), HasSubstr("one of the two"));
  EXPECT_THAT(Check(R"(<Station Name="io" Host="h" Device="/dev/x"/>)", pkInput, "io:coil:3"),
              HasSubstr("one of the two"));
  EXPECT_THAT(Check(R"(<Station Name="io" Host="h" RtuFraming="True" Unit="0"/>)", pkInput, "io:coil:3"),
              HasSubstr("all units at once"));
  EXPECT_EQ(Check(R"(<Station Name="io" Host="h" Unit="0"/>)", pkInput, "io:coil:3"), "");
  EXPECT_THAT(Check(R"(<Station Name="io" Device="/dev/x" Parity="q"/>)", pkInput, "io:coil:3"), HasSubstr("arity"));
  EXPECT_THAT(Check(R"(<Station Name="io" Host="h" StaleMs="100" TimeOutMs="90"/>)", pkInput, "io:coil:3"),
              HasSubstr("below CycleMs + TimeOutMs (110)"));
  EXPECT_THAT(Check(R"(<Station Name="io" Host="h" WatchdogRegister="7"/>)", pkAnalogOut, "io:hreg:7"),
              HasSubstr("watchdog"));
  EXPECT_THAT(Check(line + R"(Baud="19200" Unit="2"/>)", pkInput, "io:coil:3"), HasSubstr("differently"));
  EXPECT_THAT(Check(line + "/>", pkInput, "io:coil:3"), HasSubstr("same unit 1"));
  EXPECT_EQ(Check(line + R"(Unit="2"/>)", pkInput, "io:coil:3"), "");
  const std::string tcp = R"(<Station Name="a" Host="PLC" Port="502" Unit="3"/><Station Name="io" Host="plc" )";
  EXPECT_THAT(Check(tcp + R"(Unit="3"/>)", pkOutput, "io:coil:3"),
              AllOf(HasSubstr("io and a have the same unit 3 on plc:502"), HasSubstr("Modbus/Station a"),
                    HasSubstr("one device"), HasSubstr("name the device once")));
  EXPECT_THAT(Check(tcp + R"(Unit="3" RtuFraming="True"/>)", pkOutput, "a:coil:3"), HasSubstr("same unit 3"));
  EXPECT_EQ(Check(tcp + R"(Unit="4"/>)", pkOutput, "io:coil:3"), "");
  EXPECT_EQ(Check(tcp + R"(Unit="3" Port="503"/>)", pkOutput, "io:coil:3"), "");
}

}  // namespace
}  // namespace ixocamglue::test
