// `ixocut-hal`: a component of LinuxCNC's HAL that a controller talks to over a Unix socket (HalWire.h). Started by a
// HAL file: `loadusr -Wn ixocut-hal ixocut-hal --pins FILE --socket PATH`.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "ixocamglue/support/Files.h"
#include "machines/linuxcnc/hal/HalComponent.h"

namespace {

using namespace ixocamglue;

constexpr const char* kHelp =
    "ixocut-hal --pins FILE --socket PATH [--nets FILE]...\n"
    "\n"
    "A component of LinuxCNC's HAL that an ixocut controller talks to. A HAL file starts it by\n"
    "  loadusr -Wn ixocut-hal ixocut-hal --pins FILE --socket PATH\n"
    "\n"
    "  --pins FILE    its pins, one a line: bit, float or s32, then in or out (of the controller), then the name\n"
    "  --socket PATH  the Unix socket on which it waits for the controller; made for its own user only\n"
    "  --nets FILE    a HAL file of `net` lines, given to halcmd when it follows one that was killed\n"
    "\n"
    "It writes FALSE to every output before it ends, and whenever no controller commands. Ends with 0 by SIGTERM and\n"
    "SIGINT, with 1 when it cannot start, with 2 for wrong arguments.\n";

volatile sig_atomic_t GEnd = 0;

std::uint64_t NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000U + static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000U;
}

struct TArguments {
  std::string Pins, Socket;
  std::vector<std::string> Nets;
};

// False: told what is wrong.
bool Read(int argc, char** argv, TArguments& arguments) {
  for (int i = 1; i < argc; i += 2) {
    const std::string_view name = argv[i];
    std::string* const value = name == "--pins"     ? &arguments.Pins
                               : name == "--socket" ? &arguments.Socket
                               : name == "--nets"   ? &arguments.Nets.emplace_back()
                                                    : nullptr;
    if (!value || i + 1 == argc) {
      std::fprintf(stderr, "ixocut-hal: %s: %s\n\n%s", argv[i], value ? "its value is missing" : "unknown", kHelp);
      return false;
    }
    *value = argv[i + 1];
  }
  if (!arguments.Pins.empty() && !arguments.Socket.empty()) return true;
  std::fprintf(stderr, "ixocut-hal: --pins and --socket are needed\n\n%s", kHelp);
  return false;
}

// Starts it as HAL's: with its pins netted, and every output FALSE.
TResult<> Serve(const TArguments& arguments) {
  auto text = ReadFile(std::filesystem::path(arguments.Pins));
  if (!text) return text.Problem();
  auto list = ParseHalPins(*text);
  if (!list) {
    TProblem problem = list.Problem();
    problem.Where = arguments.Pins + ", " + problem.Where;
    return problem;
  }
  THalComponent component(*list);
  bool recovered = false;
  if (auto made = component.Make(recovered); !made) return made;
  if (auto ready = component.Ready(); !ready) return ready;
  if (recovered) std::fprintf(stderr, "ixocut-hal: follows one that was killed\n");
  for (const std::string& nets : arguments.Nets)
    if (recovered && system(("halcmd -f '" + nets + "'").c_str()) != 0)
      return TProblem{.What = "halcmd did not net the pins again", .Where = nets};
  THalServer server(*list, component, &NowMs);
  if (auto listens = server.Listen(arguments.Socket); !listens) return listens;
  while (!GEnd) {
    server.Wait();
    server.Round();
  }
  server.End();
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--help") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  TArguments arguments;
  if (!Read(argc, argv, arguments)) return 2;
  struct sigaction action {};
  action.sa_handler = [](int) { GEnd = 1; };
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaction(number, &action, nullptr);
  const auto served = Serve(arguments);
  if (served) return 0;
  std::fprintf(stderr, "ixocut-hal: %s\n", served.Problem().Text().c_str());
  return 1;
}
