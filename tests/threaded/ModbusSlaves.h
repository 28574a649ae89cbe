// Modbus slaves for tests that are not ours, and the lines between: libmodbus and pymodbus on real sockets and
// pseudo-terminals.
#pragma once

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <modbus/modbus.h>

#include "fixture/ServingPlc.h"
#include "fixture/Sockets.h"
#include "ixocamglue/devcomm/Udevicelink.h"
#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/services/Clock.h"

namespace ixocamglue::test {

// A pseudo-terminal; whoever holds the master's side is the other end of the wire.
class TPty {
 public:
  TPty() : Master(::posix_openpt(O_RDWR | O_NOCTTY)) {
    char name[64] = "";
    if (Master < 0 || ::grantpt(Master) != 0 || ::unlockpt(Master) != 0 || ::ptsname_r(Master, name, sizeof name) != 0)
      throw std::runtime_error("no pseudo-terminal");
    Device = name;
  }
  ~TPty() { ::close(Master); }
  TPty(const TPty&) = delete;
  TPty& operator=(const TPty&) = delete;
  const int Master;
  std::string Device;
};

// Carries bytes between two pseudo-terminals' masters: a wire with a device at each end.
class TCable {
 public:
  TCable() : FThread([this] { Carry(); }) {}
  ~TCable() {
    FStop.Ask();
    FThread.join();
  }
  TPty A, B;

 private:
  void Carry() {
    char buffer[512];
    while (!FStop.Asked()) {
      pollfd ends[] = {{A.Master, POLLIN, 0}, {B.Master, POLLIN, 0}};
      if (::poll(ends, 2, 10) <= 0) continue;
      for (int from = 0; from < 2; ++from) {
        if ((ends[from].revents & POLLIN) == 0) {
          if (ends[from].revents != 0) Clock().Sleep(1);  // nobody has that end open yet
          continue;
        }
        const auto got = ::read(ends[from].fd, buffer, sizeof buffer);
        if (got > 0 && ::write(ends[1 - from].fd, buffer, static_cast<std::size_t>(got)) < 0) return;
      }
    }
  }
  TStop FStop;
  std::thread FThread;
};

inline TLinkAddress SerialLink(const std::string& device) {
  TLinkAddress link;
  link.Device = device;
  return link;
}

// libmodbus as the slave; its end comes with the peer's hang-up or the next poll. With each turn it answers right or in
// another wrong way: late, as another unit, to another function, of another map.
class TLibmodbusSlave {
 public:
  explicit TLibmodbusSlave(std::uint32_t lateMs = 0) : FLateMs(lateMs) {}
  void Turn() { ++FTurns; }
  ~TLibmodbusSlave() {
    FStop.Ask();
    FThread.join();
    modbus_mapping_free(FMapping);
    modbus_mapping_free(FOtherMapping);
    if (FListener >= 0) ::close(FListener);
    modbus_close(FContext);
    modbus_free(FContext);
  }
  std::uint16_t Tcp() {
    FContext = modbus_new_tcp("127.0.0.1", 0);
    FListener = modbus_tcp_listen(FContext, 1);
    Start();
    return PortOf(FListener);
  }
  void Serial(const std::string& device) {
    FContext = modbus_new_rtu(device.c_str(), 9600, 'N', 8, 1);
    modbus_set_slave(FContext, 1);
    EXPECT_EQ(modbus_connect(FContext), 0);
    Start();
  }

 private:
  void Start() {
    FMapping = modbus_mapping_new(2200, 10, 200, 3);
    FOtherMapping = modbus_mapping_new(10, 10, 10, 10);
    FMapping->tab_input_bits[3] = FMapping->tab_input_bits[9] = 1;
    FMapping->tab_input_registers[2] = 0xBEEF;
    modbus_set_indication_timeout(FContext, 0, 50'000);
    FThread = std::thread([this] { Serve(); });
  }
  void Serve() {
    std::uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    bool open = FListener < 0;
    while (!FStop.Asked()) {
      if (!open) {
        if (!WaitFd(FListener, POLLIN, 20)) continue;
        modbus_tcp_accept(FContext, &FListener);
        open = true;
      }
      const int got = modbus_receive(FContext, query);
      const std::size_t unit = FListener < 0 ? 0 : 6;
      if (got > 0 && FTurns == 1) Clock().Sleep(FLateMs);
      if (got > 0 && FTurns == 3) ++query[unit];
      if (got > 0 && FTurns == 5) query[unit + 1] = query[unit + 1] == 3 ? 1 : 15;
      if (got > 0) modbus_reply(FContext, query, got, FTurns == 7 ? FOtherMapping : FMapping);
      if (got == -1 && errno == ECONNRESET && FListener >= 0) open = false;
    }
  }
  modbus_t* FContext = nullptr;
  modbus_mapping_t* FMapping = nullptr;
  modbus_mapping_t* FOtherMapping = nullptr;
  const std::uint32_t FLateMs;
  std::atomic<int> FTurns{0};
  int FListener = -1;
  TStop FStop;
  std::thread FThread;
};

constexpr std::uint64_t kPymodbusStartsMs = 30'000;  // on a busy machine

// pymodbus as the slave, in the system's interpreter.
class TPymodbusSlave {
 public:
  explicit TPymodbusSlave(const std::string& server) {
    const std::string script =
        "from pymodbus.datastore import *\n"
        "from pymodbus.server import StartTcpServer, StartSerialServer\n"
        "from pymodbus.transaction import ModbusRtuFramer\n"
        "c = ModbusServerContext(slaves=ModbusSlaveContext(hr=ModbusSequentialDataBlock(1, [0]*200)), single=True)\n" +
        server;
    const char* const words[] = {"/usr/bin/python3", "-c", script.c_str(), nullptr};
    if (::posix_spawn(&FChild, words[0], nullptr, nullptr, const_cast<char* const*>(words), environ) != 0) FChild = 0;
  }
  ~TPymodbusSlave() {
    if (FChild == 0) return;
    ::kill(FChild, SIGKILL);
    ::waitpid(FChild, nullptr, 0);
  }
  // The server on a port that is reserved.
  static std::string Tcp(const TReservedPort& own) {
    return "StartTcpServer(context=c, address=('127.0.0.1', " + std::to_string(own.Port) +
           "), allow_reuse_address=True)\n";
  }
  void Turn() { ::kill(FChild, SIGUSR1); }
  TPymodbusSlave(const TPymodbusSlave&) = delete;
  TPymodbusSlave& operator=(const TPymodbusSlave&) = delete;

 private:
  pid_t FChild = 0;
};

inline bool HasPymodbus() {
  return std::system("/usr/bin/python3 -c 'import pymodbus.server, serial' >/dev/null 2>&1") == 0;
}

}  // namespace ixocamglue::test
