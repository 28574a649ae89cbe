#include "machines/simulated/PlcServer.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <list>
#include <poll.h>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

constexpr int kSliceMs = 20;
constexpr std::uint64_t kQuietMs = 20;  // no byte for this long ends an RTU request
constexpr std::uint64_t kBabbleEveryMs = 5;
constexpr std::int32_t kOwnPorts = 0x7000'0000;  // of the serial port numbers, one for each simulated device
constexpr std::size_t kMostClients = 64;

}  // namespace

struct TPlcServer::TImpl {
  struct TLink {
    TLink(TPlcBank& bank, bool tcp, bool connection, asio::io_context& context)
        : Plc(bank, tcp, connection), Socket(context) {}
    TLoadingPlc Plc;
    asio::ip::tcp::socket Socket;
    std::deque<std::pair<std::uint64_t, TPlcAnswer>> Due;  // by the time at which it is sent
    std::uint64_t LastByteMs = 0;
    std::uint64_t LastBabbleMs = 0;
    bool Ended = false;
  };

  asio::io_context Context{1};
  asio::ip::tcp::acceptor Acceptor{Context};
  std::unique_ptr<TCommCtrl> Serial;
  std::list<TLink> Links;

  void Send(TLink& link, const TBytes& bytes) {
    if (bytes.empty()) return;
    if (Serial) {
      link.Ended = Serial->Write(bytes) == -1;
      return;
    }
    boost::system::error_code error;
    (void)link.Socket.send(asio::buffer(bytes), 0, error);
    // A client that takes nothing more loses what does not fit, as on a real bus.
    if (error && error != asio::error::would_block) link.Ended = true;
  }

  std::size_t Read(TLink& link, std::span<std::uint8_t> buffer) {
    if (Serial) {
      const std::size_t got = Serial->Read(buffer);
      link.Ended = link.Ended || Serial->Lost();
      return got;
    }
    boost::system::error_code error;
    const std::size_t got = link.Socket.receive(asio::buffer(buffer.data(), buffer.size()), 0, error);
    if (error && error != asio::error::would_block) link.Ended = true;
    return error ? 0 : got;
  }

  void Accept(TPlcBank& bank, bool tcpFraming) {
    boost::system::error_code error;
    asio::ip::tcp::socket socket(Context);
    Acceptor.accept(socket, error);
    if (error || Links.size() >= kMostClients) return;
    socket.non_blocking(true, error);
    socket.set_option(asio::ip::tcp::no_delay(true), error);
    Links.emplace_back(bank, tcpFraming, true, Context).Socket = std::move(socket);
  }

  // One turn of a link.
  void Serve(TLink& link, std::uint64_t now) {
    std::uint8_t buffer[512];
    const auto queue = [&](std::vector<TPlcAnswer> answers) {
      for (TPlcAnswer& answer : answers) link.Due.emplace_back(now + answer.DelayMs, std::move(answer));
    };
    if (const std::size_t got = Read(link, buffer); got != 0) {
      link.LastByteMs = now;
      queue(link.Plc.Take(std::span(buffer).first(got)));
    } else if (now - link.LastByteMs >= kQuietMs) {
      queue(link.Plc.FallSilent());
    }
    while (!link.Ended && !link.Due.empty() && link.Due.front().first <= now) {
      Send(link, link.Due.front().second.Bytes);
      link.Ended = link.Ended || link.Due.front().second.Close;
      link.Due.pop_front();
    }
    if (now - link.LastBabbleMs >= kBabbleEveryMs) {
      link.LastBabbleMs = now;
      Send(link, link.Plc.Babble());
    }
  }

  // Until something can be read, for as long as nothing else is due.
  void Wait(bool babbles) {
    const int ms = babbles ? static_cast<int>(kBabbleEveryMs) : kSliceMs;
    if (Serial) {
      (void)Serial->WaitReadable(static_cast<std::uint32_t>(ms));
      return;
    }
    std::vector<pollfd> waits{{Acceptor.native_handle(), POLLIN, 0}};
    for (TLink& link : Links) waits.push_back({link.Socket.native_handle(), POLLIN, 0});
    (void)::poll(waits.data(), waits.size(), ms);
  }
};

TPlcServer::TPlcServer() : FImpl(std::make_unique<TImpl>()) {}
TPlcServer::~TPlcServer() = default;

TResult<std::uint16_t> TPlcServer::ListenTcp(std::uint16_t port) {
  auto& acceptor = FImpl->Acceptor;
  boost::system::error_code error;
  acceptor.open(asio::ip::tcp::v4(), error);
  if (!error) acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind({asio::ip::address_v4::loopback(), port}, error);
  if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (!error) acceptor.non_blocking(true, error);
  if (error) return TProblem{.What = SystemErrorText(error.value()), .Where = Format(Tr("port %d"), port)};
  return acceptor.local_endpoint(error).port();
}

TResult<> TPlcServer::OpenSerial(const std::string& device, const std::string& settings) {
  static std::atomic<std::int32_t> opened{0};
  const std::int32_t port = kOwnPorts + opened++;
  SetSerialPortPath(port, device);
  FImpl->Serial = CommParts().MakeSerial();
  auto result = FImpl->Serial->Open(port, settings);
  SetSerialPortPath(port, {});
  if (result) FImpl->Links.emplace_back(Bank, false, false, FImpl->Context);
  return result;
}

void TPlcServer::Run(TStop& stop) {
  while (!stop.Asked()) {
    FImpl->Wait(Bank.Fault == pfBabble);
    if (!FImpl->Serial) FImpl->Accept(Bank, !RtuOverTcp);
    if (Bank.Device) Bank.Device->CatchUp();
    const std::uint64_t now = Clock().MonotonicMs();
    for (auto& link : FImpl->Links) FImpl->Serve(link, now);
    FImpl->Links.remove_if([](const TImpl::TLink& link) { return link.Ended; });
    if (FImpl->Serial && FImpl->Links.empty()) return;  // the line was hung up
  }
}

}  // namespace ixocamglue
