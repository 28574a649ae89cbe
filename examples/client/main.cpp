// A program that talks to the controller that runs: a timed shot, followed to its end, stopped by Ctrl-C.
#include <cstdio>

#include <controller/client/WireRun.h>
#include <controller/process/SignalStop.h>

int main(int argc, char** argv) {
  using namespace ixocontroller;
  if (argc != 3) {
    std::printf("client http://127.0.0.1:8620 TOKEN    (ixocut token add NAME makes a token)\n");
    return 0;
  }
  const TSignalStop signals;
  try {
    TWireClient client(TWireAddress::OfUrl(argv[1]).OrThrow(pbRequest), argv[2], "en");
    TWireFollower follower;
    follower.Stops = &TSignalStop::Asked;
    follower.Look = [](std::uint64_t ms, const TMachineSnapshot& now, std::uint64_t) {
      std::printf("%6llu ms  X %.2f Y %.2f%s\n", static_cast<unsigned long long>(ms), now.Pos.X, now.Pos.Y,
                  now.Laser ? "  laser" : "");
    };
    const TWireOrder shot{.Body = {{"procedure", "shot"}, {"params", {{"ms", 500}}}}};
    const TWireRun run = RunOnController(client, shot, follower);
    std::printf("%s\n", run.Report.End.Words.c_str());
    return run.Report.Success() ? 0 : 1;
  } catch (const EProblem& problem) {
    std::printf("%s\n", problem.Problem.Text().c_str());
    return 2;
  }
}
