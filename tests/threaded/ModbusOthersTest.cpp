// A line of Modbus stations on devices that are not ours: while they do what they should, and while they do not.
#include <gmock/gmock.h>

#include "tests/threaded/ModbusLineWorld.h"
#include "tests/threaded/ModbusSlaves.h"

namespace ixocamglue::test {
namespace {

using testing::HasSubstr;

constexpr std::uint32_t kLateMs = 700;  // beyond StaleMs

class ModbusOthers : public ModbusLine {
 protected:
  ModbusOthers() {
    Station.TimeOutMs = 150;
    Station.StaleMs = 400;
    Station.LateReplyMs = 1500;
  }
  void OnLine() {
    Station.Host.clear();
    Station.Device = Cable.A.Device;
  }
  // Works, fails in each way in turn and works again; `turn` goes on to the next way, every other one is the right one.
  void Try(const std::function<void()>& turn, const std::vector<const char*>& said) {
    Line = std::make_unique<TModbusLine>(Station.Link(), Watch, *this);
    Line->AddStation(Station);
    const auto volt = Point(pkAnalogOut, "io:hreg:20"), bar = Point(pkAnalogOut, "io:hreg:60");
    ASSERT_TRUE(Comes([&] { return Connect().empty(); }, kPymodbusStartsMs)) << Connect();
    Line->Write(volt, 1234.0);
    for (std::size_t i = 0; i < said.size(); ++i) {
      SCOPED_TRACE(said[i]);
      Line->Write(bar, 5.0);
      ASSERT_TRUE(Comes([&] { return Line->Settled(volt) && Line->Settled(bar); }));
      turn();
      ASSERT_TRUE(Comes([&] { return Events().size() == 2 * i + 1; }));
      EXPECT_THAT(Events().back(), HasSubstr("away io: "));
      EXPECT_THAT(Events().back(), HasSubstr(said[i]));
      EXPECT_THROW((void)Line->Read(volt), EDeviceAway);
      EXPECT_THROW(Line->Write(volt, 9.0), EDeviceAway);
      Line->Write(bar, 0.0);
      turn();
      ASSERT_TRUE(Comes([&] { return Events().size() == 2 * i + 2; }));
      EXPECT_EQ(Events().back(), "back io");
      EXPECT_TRUE(Line->Settled(bar));
      EXPECT_EQ(Read(volt) + " " + Read(bar), "1234 0");
    }
    Line.reset();
  }
  TCable Cable;
};

const std::vector<const char*> kSaid = {"time-out", "the reply is another unit's", "the reply is to another function",
                                        "exception 2 (illegal data address)"};

TEST_F(ModbusOthers, LibmodbusOverTcpIsAwayWhileItIsLateOrWrong) {
  TLibmodbusSlave slave(kLateMs);
  Station.Port = slave.Tcp();
  Try([&] { slave.Turn(); }, kSaid);
}

TEST_F(ModbusOthers, LibmodbusOnASerialLineIsAwayWhileItIsLateOrWrong) {
  TLibmodbusSlave slave(kLateMs);
  slave.Serial(Cable.B.Device);
  OnLine();
  Try([&] { slave.Turn(); }, kSaid);
}

// As kSaid, of a device that refuses other units.
const std::string kPymodbusTurns = R"(
import signal, time
from pymodbus.exceptions import NoSuchSlaveException
turns = 0
def turn(*_):
    global turns
    turns += 1
signal.signal(signal.SIGUSR1, turn)
class Slave(ModbusSlaveContext):
    def validate(self, function, address, count=1):
        return turns != 7 and super().validate(function, address, count)
    def getValues(self, function, address, count=1):
        if turns == 1: time.sleep(0.7)
        return super().getValues(function, address, count + (turns == 5))
class Server(ModbusServerContext):
    def __getitem__(self, unit):
        if turns == 3: raise NoSuchSlaveException("")
        return super().__getitem__(unit)
c = Server(slaves=Slave(hr=ModbusSequentialDataBlock(1, [0]*200)), single=True)
)";
const std::vector<const char*> kPymodbusSaid = {"time-out", "exception 11", "the reply has another number of bytes",
                                                "exception 2 (illegal data address)"};

TEST_F(ModbusOthers, PymodbusIsAwayWhileItIsLateOrWrong) {
  if (!HasPymodbus()) GTEST_SKIP() << "python3-pymodbus is not installed";
  const TReservedPort own;
  Station.Port = own.Port;
  TPymodbusSlave slave(kPymodbusTurns + TPymodbusSlave::Tcp(own));
  Try([&] { slave.Turn(); }, kPymodbusSaid);
}

TEST_F(ModbusOthers, PymodbusOnASerialLineIsAwayWhileItIsLateOrWrong) {
  if (!HasPymodbus()) GTEST_SKIP() << "python3-pymodbus is not installed";
  TPymodbusSlave slave(kPymodbusTurns + "StartSerialServer(context=c, framer=ModbusRtuFramer, port='" + Cable.B.Device +
                       "', baudrate=9600, timeout=0.01)\n");
  OnLine();
  Try([&] { slave.Turn(); }, kPymodbusSaid);
}

}  // namespace
}  // namespace ixocamglue::test
