// Any bytes to a controller's wire, as they are or as the body of one of its routes: every answer is a whole one of
// HTTP, and the controller answers the next one who asks. An input's first byte 0: the bytes as they are; else the
// number of a route, with what stands before the first line's end for the names in its path and the rest as its body.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

#include "controller/process/StateFolder.h"
#include "controller/wire/Server.h"
#include "ixocamglue/support/Files.h"
#include "machines/simulated/Machine.h"

namespace ixocamglue::fuzz {
namespace {

using namespace ixocontroller;

constexpr int kMostWaitMs = 20'000;

class TController {
 public:
  TController() {
    std::filesystem::copy_file(ShareFolder() / "machines/machine.xml", FFolder.Path() / "machine.xml");
    TServiceOptions options;
    options.Controller.Machines = {SimulatedMachine()};
    options.Controller.MachineFile = FFolder.Path() / "machine.xml";
    options.Controller.SavesMachineFile = true;
    options.Controller.LocaleFolder = ShareFolder() / "locale";
    options.StateFolder = FFolder.Path();
    options.Speed = 100;
    FService = std::make_unique<TService>(std::move(options));
    FApi = std::make_unique<TApi>(*FService);
    TWireOptions wire;
    wire.Port = 0;
    wire.StateFolder = FFolder.Path();
    wire.Limits.RequestMs = 50;
    FServer = std::make_unique<TWireServer>(*FApi, *FService, std::move(wire));
    FService->Start();
    FServer->Start();
  }

  // All that is answered until the controller closes the connection, or sends nothing more to who follows its events.
  std::string Ask(std::string_view bytes) {
    const TOwnFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::ranges::copy((FFolder.Path() / kWireSocket).string(), to.sun_path);
    if (::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) std::abort();
    std::string answer;
    for (bool open = true; open;) {
      pollfd wait{fd.Get(), static_cast<short>(bytes.empty() ? POLLIN : POLLIN | POLLOUT), 0};
      if (::poll(&wait, 1, kMostWaitMs) <= 0) std::abort();
      if ((wait.revents & POLLOUT) != 0 && !bytes.empty()) {
        const auto sent = ::send(fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        bytes.remove_prefix(sent > 0 ? static_cast<std::size_t>(sent) : bytes.size());
        if (bytes.empty()) ::shutdown(fd.Get(), SHUT_WR);
      }
      if ((wait.revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      char buffer[16'384];
      const auto got = ::recv(fd.Get(), buffer, sizeof buffer, 0);
      open = got > 0;
      if (open) answer.append(buffer, static_cast<std::size_t>(got));
    }
    return answer;
  }

 private:
  TTempFolder FFolder{"ixofuzz"};
  std::unique_ptr<TService> FService;
  std::unique_ptr<TApi> FApi;
  std::unique_ptr<TWireServer> FServer;
};

std::string RouteRequest(const TApiRoute& route, std::string_view input) {
  const std::size_t line = std::min(input.find('\n'), input.size());
  const std::string_view names = input.substr(0, line);
  const std::string body(input.substr(std::min(line + 1, input.size())));
  std::string path = route.Path;
  for (std::size_t open = 0; (open = path.find('{', open)) != std::string::npos; open += names.size())
    path.replace(open, path.find('}', open) - open + 1, names);
  return std::string(route.Method) + " " + path +
         " HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

void Request(std::span<const std::uint8_t> input) {
  static TController controller;
  const std::string_view rest(reinterpret_cast<const char*>(input.data()) + 1, input.size() - 1);
  const auto routes = TApi::Routes();
  const std::string sent =
      input[0] == 0 ? std::string(rest) : RouteRequest(routes[(input[0] - 1U) % routes.size()], rest);
  const std::string answer = controller.Ask(sent);
  if (!answer.empty() && !answer.starts_with("HTTP/1.1 ")) std::abort();
  if (input[0] != 0 && answer.empty()) std::abort();
  if (!controller.Ask("GET /api/v1/openapi.json HTTP/1.0\r\nHost: localhost\r\n\r\n").starts_with("HTTP/1.1 "))
    std::abort();
}

}  // namespace
}  // namespace ixocamglue::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size != 0) ixocamglue::fuzz::Request({data, size});
  return 0;
}
