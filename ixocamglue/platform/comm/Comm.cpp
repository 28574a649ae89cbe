#include "ixocamglue/platform/comm/Comm.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <condition_variable>
#include <ifaddrs.h>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "ixocamglue/platform/comm/RealComm.h"

namespace ixocamglue {
namespace asio = boost::asio;
namespace {

// What a thread that resolves a name shares with the one that asked. The resolver of the system cannot be ended, so a
// thread that is given up lives on until the system answers it; it touches nothing but this.
struct TResolving {
  std::mutex Lock;
  std::condition_variable Answered;
  bool Done = false;
  std::vector<std::string> Addresses;
};

class TRealParts final : public TCommParts {
 public:
  std::unique_ptr<TCommCtrl> MakeSerial() override { return MakeRealSerial(); }
  std::unique_ptr<TVkTcpClient> MakeTcp() override { return MakeRealTcp(); }
  std::unique_ptr<TIcmpClient> MakeIcmp() override { return MakeRealIcmp(); }
  std::unique_ptr<TUDPClient> MakeUdp() override { return MakeRealUdp(); }

  std::vector<std::string> Resolve(const std::string& host, std::uint32_t timeoutMs) override {
    if (host.empty()) return {};
    boost::system::error_code error;
    const auto numeric = asio::ip::make_address(host, error);
    if (!error) return {numeric.to_string()};

    const auto shared = std::make_shared<TResolving>();
    std::thread([shared, host] {
      pthread_setname_np(pthread_self(), "ixo-resolve");
      asio::io_context context{1};
      boost::system::error_code problem;
      std::vector<std::string> found;
      for (const auto& entry : asio::ip::tcp::resolver(context).resolve(host, "", problem)) {
        auto text = entry.endpoint().address().to_string();
        if (std::ranges::find(found, text) == found.end()) found.push_back(std::move(text));
      }
      const std::lock_guard guard(shared->Lock);
      shared->Addresses = std::move(found);
      shared->Done = true;
      shared->Answered.notify_all();
    }).detach();
    std::unique_lock lock(shared->Lock);
    shared->Answered.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return shared->Done; });
    return shared->Addresses;
  }

  std::vector<std::string> LocalAddresses(std::size_t atMost) override {
    std::vector<std::string> found;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return found;
    for (const ifaddrs* entry = list; entry && found.size() < atMost; entry = entry->ifa_next) {
      if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET || (entry->ifa_flags & IFF_UP) == 0) continue;
      std::array<char, INET_ADDRSTRLEN> text{};
      const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
      if (::inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size())) found.emplace_back(text.data());
    }
    ::freeifaddrs(list);
    return found;
  }
};

}  // namespace

IXO_DEFINE_SERVICE(TCommParts, InstalledCommParts)

TCommParts& CommParts() {
  static TRealParts real;
  TCommParts* const installed = InstalledCommParts();
  return installed ? *installed : real;
}

}  // namespace ixocamglue
