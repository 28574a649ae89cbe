#include <cerrno>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>

#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/comm/RealComm.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

class TRealUdp final : public TUDPClient {
 public:
  TResult<> Bind(const std::string& address) override {
    boost::system::error_code error;
    const auto own = asio::ip::make_address(address, error);
    if (!error && !OpenFor(own)) return TProblem{.What = Tr("no socket"), .Where = address};
    if (!error) FSocket.bind({own, 0}, error);
    if (error) return TProblem{.What = SystemErrorText(error.value()), .Where = address};
    return {};
  }

  void SendTo(std::span<const std::uint8_t> bytes, const std::string& address, std::int32_t port) override {
    boost::system::error_code error;
    const auto peer = asio::ip::make_address(address, error);
    if (error || port < 1 || port > 0xFFFF) return;
    if (!FSocket.is_open() && !OpenFor(peer)) return;
    FSocket.send_to(asio::buffer(bytes.data(), bytes.size()), {peer, static_cast<std::uint16_t>(port)}, 0, error);
  }

  bool WaitReadable(std::uint32_t ms) override {
    if (FSocket.is_open()) return WaitFd(FSocket.native_handle(), POLLIN, ms);
    Clock().Sleep(ms);  // an absent socket is as silent as an absent peer
    return false;
  }

  std::size_t Receive(std::span<std::uint8_t> buffer) override {
    if (!FSocket.is_open()) return 0;
    boost::system::error_code error;
    asio::ip::udp::endpoint sender;
    return FSocket.receive_from(asio::buffer(buffer.data(), buffer.size()), sender, 0, error);
  }

 private:
  bool OpenFor(const asio::ip::address& address) {
    boost::system::error_code error;
    if (FSocket.is_open()) FSocket.close(error);
    FSocket.open(address.is_v6() ? asio::ip::udp::v6() : asio::ip::udp::v4(), error);
    if (error) return false;
    CloseOnExec(FSocket.native_handle());
    FSocket.non_blocking(true, error);
    return true;
  }

  asio::io_context FContext{1};
  asio::ip::udp::socket FSocket{FContext};
};

}  // namespace

std::unique_ptr<TUDPClient> MakeRealUdp() { return std::make_unique<TRealUdp>(); }

}  // namespace ixocamglue
