#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/serial_port.hpp>

#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/comm/RealComm.h"
#include "ixocamglue/platform/comm/SerialSettings.h"
#include "ixocamglue/platform/comm/Termios.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Locks.h"
#include "ixocamglue/support/SystemError.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

class TRealSerial final : public TCommCtrl {
 public:
  TResult<> Open(std::int32_t port, const std::string& settings) override {
    Close();
    const auto parsed = ParseSerialSettings(settings);
    if (!parsed) return parsed.Problem();
    FSettings = *parsed;
    const std::string path = SerialPortPath(port);
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return TProblem{.What = SystemErrorText(errno), .Where = path};
    boost::system::error_code error;
    FPort.assign(fd, error);
    if (error) {
      ::close(fd);
      return TProblem{.What = SystemErrorText(error.value()), .Where = path};
    }
    if (auto ready = SetUpLine(fd, FSettings); !ready) {
      Close();
      TProblem refused = ready.Problem();
      refused.Where = path;
      return refused;
    }
    FLost = false;
    return {};
  }

  void Close() override {
    boost::system::error_code ignored;
    if (FPort.is_open()) FPort.close(ignored);
  }

  bool Active() const override { return FPort.is_open(); }

  // The handle is non-blocking, which Asio's serial port cannot express: its own write would wait without a limit.
  int Write(std::span<const std::uint8_t> bytes) override {
    if (!FPort.is_open()) return -1;
    const auto size = bytes.size();
    const auto written = ::write(FPort.native_handle(), bytes.data(), size);
    if (written == static_cast<ssize_t>(size)) return static_cast<int>(size);
    return WriteRest(bytes, written);
  }

  std::size_t Read(std::span<std::uint8_t> buffer) override {
    if (!FPort.is_open()) return 0;
    const auto got = ::read(FPort.native_handle(), buffer.data(), buffer.size());
    if (got > 0) return static_cast<std::size_t>(got);
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) FLost = true;
    return 0;
  }

  bool WaitReadable(std::uint32_t ms) override { return FPort.is_open() && WaitFd(FPort.native_handle(), POLLIN, ms); }

  bool Lost() const override { return FLost; }

 private:
  int WriteRest(std::span<const std::uint8_t> bytes, ssize_t written) {
    const std::uint64_t end = Clock().MonotonicMs() + kSendLimitMs + FSettings.WireMs(bytes.size());
    std::size_t done = 0;
    for (;;) {
      if (written < 0 && errno != EAGAIN && errno != EINTR) {
        FLost = true;
        return -1;
      }
      if (written > 0) done += static_cast<std::size_t>(written);
      if (done == bytes.size()) return static_cast<int>(done);
      const std::uint64_t now = Clock().MonotonicMs();
      if (now >= end) return -1;
      (void)WaitFd(FPort.native_handle(), POLLOUT, static_cast<std::uint32_t>(end - now));
      written = ::write(FPort.native_handle(), bytes.data() + done, bytes.size() - done);
    }
  }

  asio::io_context FContext{1};
  asio::serial_port FPort{FContext};
  TSerialSettings FSettings;
  bool FLost = false;
};

// The settable part of the mapping, for the whole process.
struct TPortPaths {
  TCriticalSection Lock;
  std::map<std::int32_t, std::string> Paths IXO_GUARDED_BY(Lock);
};
TPortPaths& PortPaths() {
  static TPortPaths paths;
  return paths;
}

}  // namespace

std::unique_ptr<TCommCtrl> MakeRealSerial() { return std::make_unique<TRealSerial>(); }

std::string SerialPortPath(std::int32_t port) {
  TPortPaths& ports = PortPaths();
  TGuard guard(ports.Lock);
  const auto it = ports.Paths.find(port);
  return it == ports.Paths.end() ? Format("/dev/ttyS%d", port - 1) : it->second;
}

void SetSerialPortPath(std::int32_t port, std::string path) {
  TPortPaths& ports = PortPaths();
  TGuard guard(ports.Lock);
  if (path.empty())
    ports.Paths.erase(port);
  else
    ports.Paths[port] = std::move(path);
}

}  // namespace ixocamglue
