// The Modbus master: CRC, frames, and requests beside libmodbus, both against the same libmodbus slave.
//
// A request is measured in the CPU time of the thread that makes it; both ends are pinned to one core, where the figure
// is stable.
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <netinet/in.h>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>

#include <modbus/modbus.h>

#include "bench/Rows.h"
#include "ixocamglue/devcomm/Udevthrdcomm.h"
#include "ixocamglue/platform/comm/Crc.h"
#include "ixocamglue/platform/comm/FdWait.h"

namespace ixocamglue::bench {
namespace {

constexpr int kRegisters = 10;
constexpr int kRuns = 8;  // requests of one run

TBytes SomeBytes(std::size_t size) {
  TBytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 37 + 11);
  return bytes;
}

class TOwnCrc {
 public:
  void Run() {
    benchmark::DoNotOptimize(FBytes.data());
    benchmark::DoNotOptimize(CalcCRC(FBytes.data(), FBytes.size(), 0xFFFF));
  }

 private:
  const TBytes FBytes = SomeBytes(256);
};

// The loop that most masters have: a byte at a time, one table per half of the CRC.
class TTwoTableCrc {
 public:
  TTwoTableCrc() {
    for (unsigned byte = 0; byte < 256; ++byte) {
      const auto one = static_cast<std::uint8_t>(byte);
      const std::uint16_t crc = CalcCRC(&one, 1, 0);
      FLow[byte] = static_cast<std::uint8_t>(crc & 0xFF);
      FHigh[byte] = static_cast<std::uint8_t>(crc >> 8);
    }
    if (Crc() != CalcCRC(FBytes.data(), FBytes.size(), 0xFFFF)) std::abort();
  }
  void Run() {
    benchmark::DoNotOptimize(FBytes.data());
    benchmark::DoNotOptimize(Crc());
  }

 private:
  [[nodiscard]] unsigned Crc() const {
    std::uint8_t low = 0xFF;
    std::uint8_t high = 0xFF;
    for (const std::uint8_t byte : FBytes) {
      const unsigned at = low ^ byte;
      low = static_cast<std::uint8_t>(high ^ FLow[at]);
      high = FHigh[at];
    }
    return static_cast<unsigned>(high << 8 | low);
  }

  std::array<std::uint8_t, 256> FLow{}, FHigh{};
  const TBytes FBytes = SomeBytes(256);
};

class TWriteFrame {
 public:
  void Run() {
    const TModbusRequest request{false, 0, 1, kModbusWriteMany, 0, 123, FValues};
    benchmark::DoNotOptimize(BuildModbusFrame(request, FFrame));
  }

 private:
  const std::vector<std::uint16_t> FValues = std::vector<std::uint16_t>(123, 0x1234);
  TBytes FFrame;
};

// Keeps the thread, and those that it starts, on one core.
class TPinned {
 public:
  TPinned() {
    ::pthread_getaffinity_np(::pthread_self(), sizeof FBefore, &FBefore);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (std::size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu)
      if (CPU_ISSET(cpu, &FBefore)) {
        CPU_SET(cpu, &one);
        break;
      }
    ::pthread_setaffinity_np(::pthread_self(), sizeof one, &one);
  }
  ~TPinned() { ::pthread_setaffinity_np(::pthread_self(), sizeof FBefore, &FBefore); }
  TPinned(const TPinned&) = delete;
  TPinned& operator=(const TPinned&) = delete;

 private:
  cpu_set_t FBefore{};
};

// A libmodbus slave behind a TCP port, or on the master's side of a pseudo-terminal.
template <bool Tcp>
class TSlave {
 public:
  TSlave() : FContext(Tcp ? modbus_new_tcp("127.0.0.1", 0) : modbus_new_rtu("/dev/null", 115200, 'N', 8, 1)) {
    FMapping = modbus_mapping_new(0, 0, 200, 0);
    modbus_set_indication_timeout(FContext, 0, 50'000);
    if constexpr (Tcp) {
      FFd = modbus_tcp_listen(FContext, 1);
      sockaddr_in own{};
      socklen_t size = sizeof own;
      ::getsockname(FFd, reinterpret_cast<sockaddr*>(&own), &size);
      Port = ntohs(own.sin_port);
    } else {
      char name[64] = "";
      FFd = ::posix_openpt(O_RDWR | O_NOCTTY);
      if (FFd < 0 || ::grantpt(FFd) != 0 || ::unlockpt(FFd) != 0 || ::ptsname_r(FFd, name, sizeof name) != 0)
        throw std::runtime_error("no pseudo-terminal");
      Device = name;
      modbus_set_slave(FContext, 1);
      modbus_set_socket(FContext, FFd);
    }
    FThread = std::thread([this] { Serve(); });
  }
  ~TSlave() {
    FEnding = true;
    FThread.join();
    if (Tcp) ::close(FFd);
    modbus_close(FContext);
    modbus_mapping_free(FMapping);
    modbus_free(FContext);
  }
  TSlave(const TSlave&) = delete;
  TSlave& operator=(const TSlave&) = delete;

  int Port = 0;
  std::string Device;

 private:
  void Serve() {
    std::uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    bool open = !Tcp;
    while (!FEnding) {
      if (!open) {
        if (!WaitFd(FFd, POLLIN, 20)) continue;
        modbus_tcp_accept(FContext, &FFd);
        open = true;
      }
      const int got = modbus_receive(FContext, query);
      if (got > 0) modbus_reply(FContext, query, got, FMapping);
      if (got == -1 && errno == ECONNRESET) open = !Tcp;
      if (got == -1 && errno == EIO) WaitFd(-1, 0, 5);  // nobody has the other end open
    }
  }

  modbus_t* const FContext;
  modbus_mapping_t* FMapping = nullptr;
  int FFd = -1;
  std::atomic<bool> FEnding{false};
  std::thread FThread;
};

template <bool Tcp>
class TOwnRequests {
 public:
  TOwnRequests() {
    FDevice->IsTCP = Tcp;
    FDevice->PreDelay = 0;
    FDevice->SetProfile(mpStrict);
    if constexpr (Tcp) {
      TCommNet net;
      net.Initialize();
      SetUtf16(net.Host, "127.0.0.1");
      net.Port = FSlave.Port;
      auto transport = std::make_shared<TNcTcpIPTrans>();
      transport->SetNetParams(net);
      FDevice->SetDataTransIntf(transport);
    } else {
      SetSerialPortPath(1, FSlave.Device);
      TCommSerial serial;
      serial.Initialize();
      SetUtf16(serial.Settings, "115200,n,8,1");
      auto transport = std::make_shared<TNcSerialCommTrans>();
      transport->SetTransType(ttBinary);
      transport->SetCommParams(serial);
      FDevice->SetDataTransIntf(transport);
    }
  }
  void Run() {
    for (int i = 0; i < kRuns; ++i) {
      FResult = FDevice->ReadRegisters(0, kRegisters, std::move(FResult.Registers));
      if (!FResult.Ok()) throw std::runtime_error(FResult.Reason);
    }
  }

 private:
  const TPinned FPinned;
  TSlave<Tcp> FSlave;
  const std::unique_ptr<TModbusComm> FDevice = std::make_unique<TModbusComm>("bench");  // its update gate stays shut
  TModbusResult FResult;
};

template <bool Tcp>
class TLibmodbusRequests {
 public:
  TLibmodbusRequests()
      : FContext(Tcp ? modbus_new_tcp("127.0.0.1", FSlave.Port)
                     : modbus_new_rtu(FSlave.Device.c_str(), 115200, 'N', 8, 1)) {
    modbus_set_slave(FContext, 1);
    if (modbus_connect(FContext) != 0) throw std::runtime_error("libmodbus does not connect");
  }
  ~TLibmodbusRequests() {
    modbus_close(FContext);
    modbus_free(FContext);
  }
  TLibmodbusRequests(const TLibmodbusRequests&) = delete;
  TLibmodbusRequests& operator=(const TLibmodbusRequests&) = delete;

  void Run() {
    std::uint16_t registers[kRegisters];
    for (int i = 0; i < kRuns; ++i)
      if (modbus_read_registers(FContext, 0, kRegisters, registers) != kRegisters)
        throw std::runtime_error(modbus_strerror(errno));
  }

 private:
  const TPinned FPinned;
  TSlave<Tcp> FSlave;
  modbus_t* const FContext;
};

double ThreadSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// In the CPU time of this thread.
template <class Item>
TRow MeasureCpu(TRow row) {
  row = Measure<Item>(row);
  row.ManualTime = true;
  row.Time = [](benchmark::State& state) {
    Item item;
    item.Run();
    for ([[maybe_unused]] auto _ : state) {
      const double start = ThreadSeconds();
      item.Run();
      state.SetIterationTime(ThreadSeconds() - start);
    }
  };
  return row;
}

}  // namespace

std::vector<TRow> DeviceRows() {
  return {
      Measure<TOwnCrc>({.Id = "crc",
                        .Name = "CRC of 256 bytes",
                        .Peer = "crc_two_tables",
                        .PeerName = "two-table loop",
                        .MaxAllocations = 0,
                        .MaxRatio = 0.35}),
      Measure<TTwoTableCrc>({.Id = "crc_two_tables"}),
      Measure<TWriteFrame>({.Id = "frame_16", .Name = "frame of 123 registers", .MaxAllocations = 0}),
      // One byte array a request is the transport's own.
      MeasureCpu<TOwnRequests<true>>({.Id = "modbus_tcp",
                                      .Name = "Modbus request, TCP, CPU",
                                      .Parts = kRuns,
                                      .Peer = "libmodbus_tcp",
                                      .PeerName = "libmodbus",
                                      .MaxAllocations = 1,
                                      .MaxRatio = 0.9}),
      MeasureCpu<TLibmodbusRequests<true>>({.Id = "libmodbus_tcp", .Parts = kRuns}),
      MeasureCpu<TOwnRequests<false>>({.Id = "modbus_rtu",
                                       .Name = "Modbus request, line, CPU",
                                       .Parts = kRuns,
                                       .Peer = "libmodbus_rtu",
                                       .PeerName = "libmodbus",
                                       .MaxAllocations = 1,
                                       .MaxRatio = 0.8}),
      MeasureCpu<TLibmodbusRequests<false>>({.Id = "libmodbus_rtu", .Parts = kRuns}),
  };
}

}  // namespace ixocamglue::bench
