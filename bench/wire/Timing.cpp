#include "bench/wire/Timing.h"

#include <cstring>
#include <poll.h>

#include "bench/wire/Links.h"
#include "controller/process/RealTime.h"
#include "controller/runs/StepWatch.h"
#include "ixocamglue/motion/Uwaitsteps.h"

namespace ixocamglue::bench {
namespace {

// --- stop ---

// The first device call of a stop whose time is taken: the axes, which are stopped whatever runs; the beam's off comes
// right before it. Of all-off: the machine's own stop, or that, whichever is first.
class TStopEar final : public IMachineObserver {
 public:
  void Called(TDeviceCall call) override {
    if (std::strcmp(call.Verb, "EmissionOn") == 0) FEmissionAsked = true;
    if (std::strcmp(call.Verb, "StopAll") != 0 && std::strcmp(call.Verb, "StopNow") != 0) return;
    double none = 0;
    FAt.compare_exchange_strong(none, bench::Now());
  }
  void Happened(std::uint64_t, std::string_view, std::string_view) override {}
  void Signalled(const TSignal&) override {}
  void Forget() { FAt = 0; }
  [[nodiscard]] double At() const { return FAt; }  // 0: not yet
  void ForgetEmission() { FEmissionAsked = false; }
  [[nodiscard]] bool EmissionAsked() const { return FEmissionAsked; }

 private:
  std::atomic<double> FAt{0};
  std::atomic<bool> FEmissionAsked{false};
};

// Everything that a list waits in, and what it does at once.
const nlohmann::json kList = {{{"command", "safe-z"}},
                              {{"command", "move-xy"}, {"x", 200}, {"y", 100}, {"speed", 300}},
                              {{"command", "move-z"}, {"z", 50}},
                              {{"command", "calibrate-head"}},
                              {{"command", "follow"}, {"height", 1}},
                              {{"command", "gas-on"}, {"branch", 2}, {"pressure", 1.5}},
                              {{"command", "delay"}, {"ms", 300}},
                              {{"command", "output-on"}, {"port", 1}},
                              {{"command", "gas-off"}},
                              {{"command", "shot"}, {"ms", 300}},
                              {{"command", "output-off"}, {"port", 1}},
                              {{"command", "auto-calibrate"}},
                              {{"command", "safe-move"}, {"x", 100}, {"y", 50}}};

constexpr int kWaits = 4;                  // each takes as long as the step waits for emission
constexpr useconds_t kInWaitUs = 150'000;  // behind the ask for emission the step polls

struct TStopTimes {
  std::vector<double> Device, Answer, Standby;  // ms
};

class TStopBench {
 public:
  explicit TStopBench(double emissionDelayMs = 0)
      : FController({emissionDelayMs, &FEar,
                     [this](TService& service) { service.Controller().MotionState().AddObserver(FSteps); }}),
        FBusy(FController.Server->Port()),
        FCommand(FController.Socket()),
        FStop(FController.Server->Port()) {}

  // The steps of the list in the order in which they begin, by one whole run.
  std::vector<TStepSpan> WholeRun(const nlohmann::json& calls) {
    Begin(calls);
    WaitFor("the first step", [&] { return FSteps.Begun() > FBefore; });
    AtRest();
    return FSteps.Items();
  }
  // A run of these calls, ended when so many steps have begun.
  void StopAt(const nlohmann::json& calls, std::uint64_t steps, const char* path, TStopTimes& times) {
    Begin(calls);
    WaitFor("the step", [&] { return FSteps.Begun() - FBefore >= steps; });
    End(path, times);
  }
  // A run of these calls, ended while one of them waits for an emission that does not come.
  void StopInWait(const nlohmann::json& calls, const char* path, TStopTimes& times) {
    FEar.ForgetEmission();
    Begin(calls);
    WaitFor("the ask for emission", [&] { return FEar.EmissionAsked(); });
    ::usleep(kInWaitUs);
    End(path, times);
  }

 private:
  void End(const char* path, TStopTimes& times) {
    ::usleep(FDelayUs = (FDelayUs + 7919) % 10'000);  // anywhere between two passes
    FEar.Forget();
    const double sent = bench::Now();
    (void)FStop.Ask(path, "{}");
    times.Answer.push_back((bench::Now() - sent) * 1e3);
    WaitFor("the device call", [&] { return FEar.At() != 0; });
    times.Device.push_back((FEar.At() - sent) * 1e3);
    const TNcStateFramework& states = FController.Service().Controller().Framework();
    WaitFor("standby", [&] { return states.CurrentState() == nsStandby && !states.SafePending(); });
    times.Standby.push_back((bench::Now() - sent) * 1e3);
    AtRest();
    if (std::strcmp(path, "all-off") != 0) return;
    WaitFor(
        "the reset",
        [&] {
          FCommand.TakesAny = true;
          (void)FCommand.Ask("reset", "{}", FLease);
          FCommand.TakesAny = false;
          return FCommand.Status == 200;
        },
        20'000);
  }
  void Begin(const nlohmann::json& calls) {
    FLease = "Lease: " + FCommand.Ask("lease", "{}", FLease).at("lease").get<std::string>() + "\r\n";
    FBefore = FSteps.Begun();
    const nlohmann::json run{{"name", "list"}, {"calls", calls}, {"detach", true}};
    (void)FCommand.Ask("runs", run.dump(), FLease);
  }
  void AtRest() {
    const std::uint64_t from = RealMs();
    WaitFor("rest", [&] {
      const auto status = FController.Service().Status();
      return status->RealMs > from && !status->Running && status->Run == 0 && !status->SafePending &&
             !status->Machine.Moving();
    });
  }

  TStopEar FEar;
  TStepSpans FSteps;
  TRunningController FController;
  TBusyClients FBusy;
  TLink FCommand, FStop;
  std::string FLease;
  std::uint64_t FBefore = 0;
  useconds_t FDelayUs = 0;
};

void Print(const std::string& what, const TStopTimes& times) {
  PrintSpread(what + ", to the device call", times.Device);
  PrintSpread(what + ", to its answer", times.Answer);
  PrintSpread(what + ", to standby", times.Standby);
}

}  // namespace

void MeasureStops(int rounds) {
  {
    TStopBench bench;
    const std::vector<TStepSpan> steps = bench.WholeRun(kList);
    const auto leaf = [&](std::size_t i) { return i + 1 == steps.size() || steps[i + 1].Level <= steps[i].Level; };
    std::size_t leaves = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) leaves += leaf(i) ? 1U : 0U;
    for (const char* const path : {"stop", "all-off"}) {
      TStopTimes times;
      for (int round = 0; round < rounds; ++round) {
        std::size_t first = 0;  // of the step's command
        std::size_t command = 0;
        for (std::size_t i = 0; i < steps.size(); ++i) {
          if (steps[i].Level == 0 && i > 0) first = i, ++command;
          if (!leaf(i)) continue;
          nlohmann::json rest(kList.begin() + static_cast<std::ptrdiff_t>(command), kList.end());
          rest.push_back({{"command", "safe-z"}});  // one command alone would be no list
          bench.StopAt(rest, i - first + 1, path, times);
        }
      }
      Print(Format("%s from each of %zu steps", path, leaves), times);
    }
  }
  TStopBench bench(60'000);
  const nlohmann::json waits = {{{"command", "laser-on"}}, {{"command", "laser-off"}}};
  for (const char* const path : {"stop", "all-off"}) {
    TStopTimes times;
    for (int i = 0; i < kWaits; ++i) bench.StopInWait(waits, path, times);
    Print(Format("%s from 516, which waits for emission", path), times);
  }
}

// --- ticks ---

namespace {

// A delay that notes when the state thread comes by.
class TNotingDelay : public TSmtDelay {
 public:
  static constexpr std::string_view kClassName = "TNotingDelay";
  using TSmtDelay::TSmtDelay;
  void UpdateThread(std::uint32_t& loopDelay) override {
    const double now = bench::Now();
    if (Last != 0 && Late.size() < Late.capacity()) Late.push_back((now - Last) * 1e3 - kLoopDelayMs);
    Last = now;
    TSmtDelay::UpdateThread(loopDelay);
  }
  static inline std::vector<double> Late;
  static inline double Last;
};

void MeasureTicks(int seconds, bool followed) {
  const TRunningController controller;
  const TFollowers followers(controller.Server->Port(), followed ? kFollowers : 0);
  TNotingDelay::Last = 0;
  TNotingDelay::Late.clear();
  TNotingDelay::Late.reserve(static_cast<std::size_t>(seconds) * 200);
  TService& service = controller.Service();
  service.Post([&] {
    auto delay = MakeStepOf<TNotingDelay>(nullptr);
    delay->SetDelay(static_cast<std::uint32_t>(seconds) * 1000);
    service.Controller().Start(ShareRoot(std::move(delay))).OrThrow(pbRefused);
  });
  const TNcStateFramework& states = service.Controller().Framework();
  WaitFor("the procedure", [&] { return states.CurrentState() == nsCustomMotion; });
  ::usleep(static_cast<useconds_t>(seconds) * 1'000'000);
  WaitFor("its end", [&] { return states.CurrentState() == nsStandby; });
  PrintSpread(followed ? "a tick is late by, with twenty clients that follow the events" : "a tick is late by",
              TNotingDelay::Late);
}

}  // namespace

void MeasureTicks(int seconds) {
  MeasureTicks(seconds, false);
  MeasureTicks(seconds, true);
}

// --- events ---

// The event says when it happened.
void MeasureEvents(int seconds) {
  const TRunningController controller;
  std::vector<std::unique_ptr<TLink>> clients;
  std::vector<pollfd> waiting;
  for (int i = 0; i < kFollowers; ++i) {
    clients.push_back(std::make_unique<TLink>(controller.Server->Port()));
    clients.back()->Send("GET /api/v1/events?kinds=state HTTP/1.1\r\nHost: localhost\r\n\r\n");
    waiting.push_back({clients.back()->Fd, POLLIN, 0});
  }
  std::atomic<bool> done{false};
  std::thread happens([&] {
    ::usleep(500'000);
    for (useconds_t pause = 0; !done; ::usleep(5000 + (pause = (pause + 7919) % 10'000)))
      controller.Service().Events().Add(evState, [at = bench::Now()] { return nlohmann::ordered_json{{"at", at}}; });
  });
  std::vector<double> took;
  std::vector<std::string> texts(clients.size());
  for (const double end = bench::Now() + seconds; bench::Now() < end;) {
    if (::poll(waiting.data(), waiting.size(), 100) <= 0) continue;
    const double now = bench::Now();
    for (std::size_t i = 0; i < clients.size(); ++i) {
      if ((waiting[i].revents & POLLIN) == 0) continue;
      std::string& text = texts[i];
      text += clients[i]->Receive();
      constexpr std::string_view kAt = "\"at\":";
      for (std::size_t at = 0;
           (at = text.find(kAt)) != std::string::npos && text.find('\n', at) != std::string::npos;) {
        took.push_back((now - std::strtod(text.c_str() + at + kAt.size(), nullptr)) * 1e3);
        text.erase(0, text.find('\n', at));
      }
    }
  }
  done = true;
  happens.join();
  PrintSpread("an event to each of twenty clients", std::move(took), 0.99, "99");
}

}  // namespace ixocamglue::bench
