// The wire of a controller under load. One thread asks on several connections, each with one request under way; a
// server is measured by the CPU time of its own thread, so that neither the client nor what else runs counts.
//
//   ixo_bench_wire                    the status of both servers
//   ixo_bench_wire --stops N          stop and all-off from every step of a long list, N times each
//   ixo_bench_wire --ticks S          S seconds of a procedure's ticks, without and with clients
//   ixo_bench_wire --events S         S seconds of events on their way to twenty clients
//   ixo_bench_wire --connect N PORT   N connections, one after the other, to the controller there
#include <array>
#include <cstdlib>
#include <fstream>
#include <sys/epoll.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "bench/wire/Links.h"
#include "bench/wire/Timing.h"

namespace ixocamglue::bench {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;

constexpr int kConnections = 16;
constexpr int kRequests = 100'000;

double CpuSeconds(pthread_t thread) {
  clockid_t clock{};
  timespec t{};
  if (::pthread_getcpuclockid(thread, &clock) != 0 || ::clock_gettime(clock, &t) != 0)
    throw std::runtime_error("a thread's CPU time cannot be read");
  return Seconds(t);
}

// The CPU time of a thread of this process, by its name.
double CpuSecondsOf(const std::string& name) {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string comm;
    std::getline(std::ifstream(task.path() / "comm"), comm);
    if (comm != name) continue;
    // The clock of a thread by its number, as pthread_getcpuclockid makes it.
    const auto id = static_cast<clockid_t>(~std::stoi(task.path().filename()) << 3 | 6);
    timespec t{};
    if (::clock_gettime(id, &t) == 0) return Seconds(t);
  }
  throw std::runtime_error("no thread is called " + name);
}

struct TFigure {
  double PerCpuSecond = 0;
  double PerSecond = 0;
  std::size_t Bytes = 0;
};

TFigure Load(int port, const std::function<double()>& cpu) {
  const std::string request = "GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\n\r\n";
  const int poll = ::epoll_create1(EPOLL_CLOEXEC);
  std::vector<std::unique_ptr<TLink>> links;
  int asked = 0;
  const auto ask = [&](const TLink& link) {
    if (asked++ < kRequests && ::send(link.Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
      throw std::runtime_error("not sent");
  };
  for (int i = 0; i < kConnections; ++i) {
    links.push_back(std::make_unique<TLink>(port));
    epoll_event event{.events = EPOLLIN, .data = {.ptr = links.back().get()}};
    ::epoll_ctl(poll, EPOLL_CTL_ADD, links.back()->Fd, &event);
  }
  // The server's thread is there when it has answered.
  for (const auto& link : links) {
    if (::send(link->Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("not sent");
    while (!link->Read()) {
    }
  }
  const double cpuStart = cpu();
  const double start = Now();
  for (const auto& link : links) ask(*link);
  std::array<epoll_event, kConnections> ready{};
  for (int answered = 0; answered < kRequests;) {
    const int count = ::epoll_wait(poll, ready.data(), kConnections, 5000);
    if (count <= 0) throw std::runtime_error("the server does not answer");
    for (int i = 0; i < count; ++i) {
      auto& link = *static_cast<TLink*>(ready[static_cast<std::size_t>(i)].data.ptr);
      if (!link.Read()) continue;
      ++answered;
      ask(link);
    }
  }
  const double took = Now() - start;
  const double used = cpu() - cpuStart;
  ::close(poll);
  return {kRequests / used, kRequests / took, links.front()->Bytes};
}

// What the library alone costs: it reads a request and answers 600 bytes, whatever was asked.
class TBareServer {
 public:
  TBareServer() : FAcceptor(FContext, {asio::ip::address_v4::loopback(), 0}) {
    Accept();
    FThread = std::thread([this] { FContext.run(); });
  }
  ~TBareServer() {
    FContext.stop();
    FThread.join();
  }
  TBareServer(const TBareServer&) = delete;
  TBareServer& operator=(const TBareServer&) = delete;

  [[nodiscard]] int Port() const { return FAcceptor.local_endpoint().port(); }
  [[nodiscard]] double Cpu() { return CpuSeconds(FThread.native_handle()); }

 private:
  struct TTalk : std::enable_shared_from_this<TTalk> {
    explicit TTalk(asio::ip::tcp::socket socket) : Socket(std::move(socket)) {}
    void Read() {
      Request = {};
      http::async_read(Socket, Buffer, Request,
                       [self = shared_from_this()](boost::system::error_code error, std::size_t) {
                         if (!error) self->Answer();
                       });
    }
    void Answer() {
      Reply = {http::status::ok, 11};
      Reply.set(http::field::content_type, "application/json");
      Reply.body() = std::string(600, 'x');
      Reply.prepare_payload();
      http::async_write(Socket, Reply, [self = shared_from_this()](boost::system::error_code error, std::size_t) {
        if (!error) self->Read();
      });
    }
    asio::ip::tcp::socket Socket;
    boost::beast::flat_buffer Buffer;
    http::request<http::string_body> Request;
    http::response<http::string_body> Reply;
  };

  void Accept() {
    FAcceptor.async_accept([this](boost::system::error_code error, asio::ip::tcp::socket socket) {
      if (error) return;
      socket.set_option(asio::ip::tcp::no_delay(true));
      std::make_shared<TTalk>(std::move(socket))->Read();
      Accept();
    });
  }

  asio::io_context FContext{1};
  asio::ip::tcp::acceptor FAcceptor;
  std::thread FThread;
};

TFigure LoadBare() {
  TBareServer server;
  return Load(server.Port(), [&] { return server.Cpu(); });
}

TFigure LoadController() {
  const TRunningController controller;
  return Load(controller.Server->Port(), [] { return CpuSecondsOf("ixo-wire"); });
}

// Each one asks, reads its answer and is reset, so that no port of the client stays taken.
void Connect(int count, int port) {
  for (int i = 0; i < count; ++i) {
    TLink link(port);
    const linger reset{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(link.Fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    link.Send("GET /api/v1/health HTTP/1.1\r\nHost: localhost\r\n\r\n");
    while (!link.Read()) {
    }
  }
}

int Main(const std::vector<std::string>& words) {
  if (words.size() == 2) {
    const int count = std::max(1, std::atoi(words[1].c_str()));
    if (words[0] == "--stops") return MeasureStops(count), 0;
    if (words[0] == "--ticks") return MeasureTicks(count), 0;
    if (words[0] == "--events") return MeasureEvents(count), 0;
  }
  if (words.size() == 3 && words[0] == "--connect")
    return Connect(std::atoi(words[1].c_str()), std::atoi(words[2].c_str())), 0;
  if (!words.empty()) throw std::runtime_error("it is called without arguments, or as its first lines say");
  const TFigure bare = LoadBare();
  const TFigure own = LoadController();
  const auto line = [](const char* name, const TFigure& f) {
    std::printf("%s\t%.0f per CPU second of its thread, %.0f per second, %zu bytes each\n", name, f.PerCpuSecond,
                f.PerSecond, f.Bytes);
  };
  line("status requests", own);
  line("the same of a bare server of the library", bare);
  return 0;
}

}  // namespace
}  // namespace ixocamglue::bench

int main(int argc, char** argv) {
  try {
    return ixocamglue::bench::Main({argv + 1, argv + argc});
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ixo_bench_wire: %s\n", e.what());
    return 1;
  }
}
