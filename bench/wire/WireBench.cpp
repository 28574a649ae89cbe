// The wire of a controller under load. One thread asks on several connections, each with one request under way; a
// server is measured by the CPU time of its own thread, so that neither the client nor what else runs counts.
//
// A stop is measured from the moment at which it is sent to the device call that switches the laser off, while twenty
// clients follow the events and a thousand requests a second ask for the status.
//
//   ixo_bench_wire            the status of both servers
//   ixo_bench_wire --stop N   N shots that are stopped, and N that all-off ends
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "controller/StateFolder.h"
#include "controller/wire/Server.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::bench {
namespace {

using namespace ixocontroller;
namespace asio = boost::asio;
namespace http = boost::beast::http;

constexpr int kConnections = 16;
constexpr int kRequests = 100'000;

double Seconds(const timespec& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9; }

double CpuSeconds(pthread_t thread) {
  clockid_t clock{};
  timespec t{};
  if (::pthread_getcpuclockid(thread, &clock) != 0 || ::clock_gettime(clock, &t) != 0)
    throw std::runtime_error("a thread's CPU time cannot be read");
  return Seconds(t);
}

double Now() {
  timespec t{};
  ::clock_gettime(CLOCK_MONOTONIC, &t);
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

class TLink {
 public:
  explicit TLink(const std::filesystem::path& socket) : Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::ranges::copy(socket.string(), to.sun_path);
    if (::connect(Fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) throw std::runtime_error("no server");
  }
  explicit TLink(int port) : Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(Fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(Fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) throw std::runtime_error("no server");
  }
  ~TLink() { ::close(Fd); }
  TLink(const TLink&) = delete;
  TLink& operator=(const TLink&) = delete;

  // True when an answer is whole.
  bool Read() {
    std::array<char, 8192> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written below
    const auto got = ::recv(Fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) throw std::runtime_error("the server has closed the connection");
    In.append(buffer.data(), static_cast<std::size_t>(got));
    const std::size_t head = In.find("\r\n\r\n");
    if (head == std::string::npos) return false;
    const std::size_t at = In.find("Content-Length: ");
    if (at > head || In.compare(9, 1, "2") != 0) throw std::runtime_error("answered: " + In);
    Bytes = std::strtoul(In.c_str() + at + 16, nullptr, 10);
    if (In.size() < head + 4 + Bytes) return false;
    Body = In.substr(head + 4);
    In.clear();
    return true;
  }
  nlohmann::json Ask(const std::string& path, const std::string& body, const std::string& headers = "") {
    const std::string request = "POST /api/v1/" + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers +
                                "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                                "\r\n\r\n" + body;
    if (::send(Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("not sent");
    while (!Read()) {
    }
    return nlohmann::json::parse(Body);
  }

  const int Fd;
  std::string In, Body;
  std::size_t Bytes = 0;
};

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

class TRunningController {
 public:
  TRunningController() {
    std::filesystem::copy_file(ShareFolder() / "machines/machine.xml", FFolder.Path() / "machine.xml");
    TServiceOptions options;
    options.Controller.Machines = {SimulatedMachine()};
    options.Controller.MachineFile = FFolder.Path() / "machine.xml";
    options.Controller.LocaleFolder = ShareFolder() / "locale";
    options.Controller.Realtime = true;
    options.StateFolder = FFolder.Path();
    FService = std::make_unique<TService>(std::move(options));
    FApi = std::make_unique<TApi>(*FService);
    TWireOptions wire;
    wire.Port = 0;
    wire.StateFolder = FFolder.Path();
    Server = std::make_unique<TWireServer>(*FApi, *FService, std::move(wire));
    FService->Start();
    Server->Start();
  }
  [[nodiscard]] std::filesystem::path Socket() const { return FFolder.Path() / kWireSocket; }
  [[nodiscard]] TService& Service() const { return *FService; }

 private:
  TTempFolder FFolder{"ixo-bench"};
  std::unique_ptr<TService> FService;
  std::unique_ptr<TApi> FApi;

 public:
  std::unique_ptr<TWireServer> Server;
};

TFigure LoadController() {
  const TRunningController controller;
  return Load(controller.Server->Port(), [] { return CpuSecondsOf("ixo-wire"); });
}

// --- stop ---

// Twenty that follow everything, and a thousand requests a second, until it ends.
class TBusyClients {
 public:
  explicit TBusyClients(int port) {
    for (int i = 0; i < 20; ++i) {
      FFollowers.push_back(std::make_unique<TLink>(port));
      const std::string request = "GET /api/v1/events?rate=50 HTTP/1.1\r\nHost: localhost\r\n\r\n";
      if (::send(FFollowers.back()->Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0)
        throw std::runtime_error("not sent");
    }
    FReader = std::thread([this] {
      std::array<char, 65'536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): written below
      while (!FEnd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (const auto& link : FFollowers)
          if (const auto got = ::recv(link->Fd, buffer.data(), buffer.size(), MSG_DONTWAIT); got > 0) Bytes += got;
      }
    });
    FAsker = std::thread([this, port] {
      TLink link(port);
      const std::string request = "GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\n\r\n";
      for (auto next = std::chrono::steady_clock::now(); !FEnd; next += std::chrono::milliseconds(1)) {
        std::this_thread::sleep_until(next);
        if (::send(link.Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) return;
        while (!link.Read()) {
        }
      }
    });
  }
  ~TBusyClients() {
    FEnd = true;
    FReader.join();
    FAsker.join();
  }
  TBusyClients(const TBusyClients&) = delete;
  TBusyClients& operator=(const TBusyClients&) = delete;

  std::atomic<std::int64_t> Bytes{0};

 private:
  std::vector<std::unique_ptr<TLink>> FFollowers;
  std::atomic<bool> FEnd{false};
  std::thread FReader, FAsker;
};

void WaitFor(const char* what, const std::function<bool()>& there) {
  for (const double end = Now() + 10; !there(); ::usleep(1000))
    if (Now() > end) throw std::runtime_error(std::string("it does not come to this: ") + what);
}

// When the laser was switched off after `fromMs`; 0: not yet. The journal counts whole milliseconds.
std::uint64_t OffMs(TJournal& journal, std::uint64_t fromMs) {
  for (const TJournalEntry& entry : journal.Entries())
    if (entry.IsCommand() && entry.Ms >= fromMs &&
        (entry.Verb == "EmissionOff" || entry.Verb == "SwitchLaser" || entry.Verb == "StopNow"))
      return entry.Ms;
  return 0;
}

void MeasureStops(const char* path, int count) {
  const TRunningController controller;
  TJournal& journal = controller.Service().Controller().Journal();
  const TBusyClients busy(controller.Server->Port());
  TLink command(controller.Socket());
  TLink stop(controller.Server->Port());
  const std::string lease = "Lease: " + command.Ask("lease", "{}").at("lease").get<std::string>() + "\r\n";
  std::vector<double> device;
  std::vector<double> answer;
  for (int i = 0; i < count; ++i) {
    journal.Clear();
    (void)command.Ask("runs", R"({"procedure":"shot","params":{"ms":5000},"detach":true})", lease);
    WaitFor("the laser is on", [&] { return journal.HasSignal("laser on"); });
    ::usleep(static_cast<useconds_t>(1000 + i * 7919 % 10'000));  // anywhere between two passes
    const std::uint64_t fromMs = Clock().MonotonicMs();
    const double start = Now();
    (void)stop.Ask(path, "{}");
    answer.push_back((Now() - start) * 1e3);
    WaitFor("the laser is switched off", [&] { return OffMs(journal, fromMs) != 0; });
    device.push_back(static_cast<double>(OffMs(journal, fromMs) - fromMs));
    ::usleep(100'000);  // the status is at most as old
    WaitFor("standby", [&] {
      const auto status = controller.Service().Status();
      return !status->Running && status->Run == 0;
    });
    if (std::string(path) == "all-off") (void)command.Ask("reset", "{}", lease);
  }
  std::ranges::sort(device);
  std::ranges::sort(answer);
  const auto at = [&](const std::vector<double>& all, double part) {
    return all[std::min(all.size() - 1, static_cast<std::size_t>(part * static_cast<double>(all.size())))];
  };
  std::printf(
      "%-8s sent to device call, ms: median %.0f, 99.9 %% %.0f, worst %.0f; answered, ms: median %.2f, worst %.2f"
      " (%d times, %lld kB of events read)\n",
      path, at(device, 0.5), at(device, 0.999), device.back(), at(answer, 0.5), answer.back(), count,
      static_cast<long long>(busy.Bytes / 1000));
}

int Main(const std::vector<std::string>& words) {
  if (words.size() == 2 && words[0] == "--stop") {
    for (const char* const path : {"stop", "all-off"}) MeasureStops(path, std::max(1, std::atoi(words[1].c_str())));
    return 0;
  }
  if (!words.empty()) throw std::runtime_error("it is called without arguments, or with --stop N");
  const TFigure bare = LoadBare();
  const TFigure own = LoadController();
  std::printf("%-34s %14s %14s %8s\n", "status requests", "per CPU second", "per second", "bytes");
  const auto line = [](const char* name, const TFigure& f) {
    std::printf("%-34s %14.0f %14.0f %8zu\n", name, f.PerCpuSecond, f.PerSecond, f.Bytes);
  };
  line("bare Beast server, 600 bytes", bare);
  line("controller (target 30000)", own);
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
