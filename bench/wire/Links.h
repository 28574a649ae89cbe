// What the programs that measure the wire have in common: a client, a controller in real time that one can look into,
// and clients that keep it busy.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/process/StateFolder.h"
#include "controller/wire/Server.h"
#include "ixocamglue/support/Files.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::bench {
using namespace ixocontroller;

inline double Seconds(const timespec& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Monotonic seconds, for every thread and process the same.
inline double Now() {
  timespec t{};
  ::clock_gettime(CLOCK_MONOTONIC, &t);
  return Seconds(t);
}

inline void WaitFor(const char* what, const std::function<bool()>& there, useconds_t everyUs = 200) {
  for (const double end = Now() + 20; !there(); ::usleep(everyUs))
    if (Now() > end) throw std::runtime_error(std::string("it does not come to this: ") + what);
}

// The value that this part of all lie below, by the nearest rank.
inline double Part(const std::vector<double>& sorted, double part) {
  return sorted[std::min(sorted.size() - 1, static_cast<std::size_t>(part * static_cast<double>(sorted.size())))];
}

// One line of the table: "name<tab>median 1.00, 99.9 % 2.00, worst 3.00 ms (100 times)".
inline void PrintSpread(const std::string& name, std::vector<double> ms, double part = 0.999,
                        const char* partName = "99.9") {
  if (ms.empty()) throw std::runtime_error("nothing was measured of: " + name);
  std::ranges::sort(ms);
  std::printf("%s\tmedian %.2f, %s %% %.2f, worst %.2f ms (%zu times)\n", name.c_str(), Part(ms, 0.5), partName,
              Part(ms, part), ms.back(), ms.size());
  std::fflush(stdout);
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

  void Send(const std::string& request) const {
    if (::send(Fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("not sent");
  }
  // What is there, or comes first.
  [[nodiscard]] std::string Receive() const {
    std::array<char, 8192> buffer;  // written below
    const auto got = ::recv(Fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) throw std::runtime_error("the server has closed the connection");
    return {buffer.data(), static_cast<std::size_t>(got)};
  }
  // True when an answer is whole.
  bool Read() {
    In += Receive();
    const std::size_t head = In.find("\r\n\r\n");
    if (head == std::string::npos) return false;
    const std::size_t at = In.find("Content-Length: ");
    Status = std::atoi(In.c_str() + 9);
    if (at > head || (Status >= 300 && !TakesAny)) throw std::runtime_error("answered: " + In);
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
    Send(request);
    while (!Read()) {
    }
    return nlohmann::json::parse(Body);
  }

  const int Fd;
  std::string In, Body;
  std::size_t Bytes = 0;
  int Status = 0;         // of the last answer
  bool TakesAny = false;  // refusals too
};

struct TRunOptions {
  double EmissionDelayMs = 0;              // how long the source takes; 0: as the machine has it
  IMachineObserver* Ear = nullptr;         // is told of every device call, before the controller is
  std::function<void(TService&)> Prepare;  // before it starts
};

class TRunningController {
 public:
  explicit TRunningController(const TRunOptions& run = {}) {
    std::filesystem::copy_file(ShareFolder() / "machines/machine.xml", FFolder.Path() / "machine.xml");
    TServiceOptions options;
    options.Controller.Machines = {MachineOf(run)};
    options.Controller.MachineFile = FFolder.Path() / "machine.xml";
    options.Controller.LocaleFolder = ShareFolder() / "locale";
    options.Controller.Realtime = true;
    options.StateFolder = FFolder.Path();
    FService = std::make_unique<TService>(std::move(options));
    if (run.Prepare) run.Prepare(*FService);
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
  // Between the machine and the controller's journal.
  struct TEar final : IMachineObserver {
    TEar(IMachineObserver& first, IMachineObserver& then) : First(first), Then(then) {}
    void Called(TDeviceCall call) override {
      First.Called(call);
      Then.Called(std::move(call));
    }
    void Happened(std::uint64_t ms, std::string_view device, std::string_view text) override {
      First.Happened(ms, device, text);
      Then.Happened(ms, device, text);
    }
    void Signalled(const TSignal& signal) override {
      First.Signalled(signal);
      Then.Signalled(signal);
    }
    IMachineObserver& First;
    IMachineObserver& Then;
  };
  TMachineFactory MachineOf(const TRunOptions& run) {
    TMachineFactory machine = SimulatedMachine({.Adjust = [delay = run.EmissionDelayMs](TSimConfig& config) {
      if (delay > 0) config.Physics.EmissionDelayMs = static_cast<decltype(config.Physics.EmissionDelayMs)>(delay);
    }});
    if (!run.Ear) return machine;
    machine.Make = [this, ear = run.Ear, make = machine.Make](const TMachineContext& its) {
      FEar = std::make_unique<TEar>(*ear, its.Observer);
      return make({its.Framework, its.Config, its.Alarms, *FEar, its.Clock, its.Seed});
    };
    return machine;
  }

  TTempFolder FFolder{"ixo-bench"};
  std::unique_ptr<TEar> FEar;
  std::unique_ptr<TService> FService;
  std::unique_ptr<TApi> FApi;

 public:
  std::unique_ptr<TWireServer> Server;
};

constexpr int kFollowers = 20;

// Clients that follow all events, and read them.
class TFollowers {
 public:
  TFollowers(int port, int count) {
    for (int i = 0; i < count; ++i) {
      FLinks.push_back(std::make_unique<TLink>(port));
      FLinks.back()->Send("GET /api/v1/events?rate=50 HTTP/1.1\r\nHost: localhost\r\n\r\n");
    }
    FReader = std::thread([this] {
      std::array<char, 65'536> buffer;  // written below
      while (!FEnd) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (const auto& link : FLinks) (void)!::recv(link->Fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
      }
    });
  }
  ~TFollowers() {
    FEnd = true;
    FReader.join();
  }
  TFollowers(const TFollowers&) = delete;
  TFollowers& operator=(const TFollowers&) = delete;

 private:
  std::vector<std::unique_ptr<TLink>> FLinks;
  std::atomic<bool> FEnd{false};
  std::thread FReader;
};

// Twenty of them, and a thousand requests a second for the status.
class TBusyClients {
 public:
  explicit TBusyClients(int port) : FFollowers(port, kFollowers) {
    FAsker = std::thread([this, port] {
      TLink link(port);
      for (auto next = std::chrono::steady_clock::now(); !FEnd; next += std::chrono::milliseconds(1)) {
        std::this_thread::sleep_until(next);
        link.Send("GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\n\r\n");
        while (!link.Read()) {
        }
      }
    });
  }
  ~TBusyClients() {
    FEnd = true;
    FAsker.join();
  }
  TBusyClients(const TBusyClients&) = delete;
  TBusyClients& operator=(const TBusyClients&) = delete;

 private:
  TFollowers FFollowers;
  std::atomic<bool> FEnd{false};
  std::thread FAsker;
};

}  // namespace ixocamglue::bench
