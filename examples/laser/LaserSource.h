// A driver for a laser source that takes lines of text over TCP: "beam 1" sets an output, "status" only asks, and each
// line is answered by what is so: "emission=1 beam=0 trip=0 rearm=0 confirmed=1 lit=0 latch=1".
//
// The source is wired to the machine by points (laser.xml): the machine makes a laser of them with its latch, its
// watch over the beam and its alarms. The source must go dark by itself when no line has come for 200 ms.
#pragma once

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <ixocamglue/devcomm/Udevicelink.h>
#include <ixocamglue/platform/Driver.h>
#include <ixocamglue/platform/services/ThreadTable.h>
#include <ixocamglue/platform/states/NcState.h>
#include <ixocamglue/platform/xml/MachineConfig.h>
#include <ixocamglue/support/Locks.h>

namespace example {
using namespace ixocamglue;

inline const std::vector<std::string> kSourceOutputs{"emission", "beam", "trip", "rearm"};
inline const std::vector<std::string> kSourceInputs{"confirmed", "lit", "latch"};

class TSourceConfig : public TXmlSubConfig {
 public:
  void Publish(TPublisher& p) override {
    p.Field("Host", Host, "127.0.0.1", kOptional).Text("Host name or address of the laser source");
    p.Field("Port", Port, 8000, kOptional).Within(1, 65535).Text("TCP port of the laser source");
  }
  std::string Host;
  std::int32_t Port = 0;
};

// The connection, on a thread of its own: nobody waits for the network. Points: any thread.
class TSourceLine {
 public:
  static constexpr std::uint64_t kStaleMs = 200;  // an older answer counts for nothing
  static constexpr std::uint64_t kBeatMs = 200;   // without a sign of life of the state thread the source hears nothing
  static constexpr std::uint32_t kCycleMs = 10, kRetryMs = 200;

  TSourceLine(const TSourceConfig& config, const TDriverContext& context)
      : FContext(context), FLink(MakeTransport({.IsTcp = true, .Host = config.Host, .Port = config.Port})) {}
  ~TSourceLine() {
    FStop.Ask();
    if (FThread.joinable()) FThread.join();
  }

  TResult<> Connect() {
    if (!FLink->Reopen(1000)) return FLink->OpenProblem();
    if (!Ask("status")) return TProblem{.What = "the laser source does not answer as one"};
    FThread = std::thread([this] { Execute(); });
    return {};
  }

  double Read(const std::string& name) {
    TGuard guard(FLock);
    if (FAway || Clock().MonotonicMs() - FAnsweredMs > kStaleMs) throw EDeviceAway("the laser source does not answer");
    return FShown[name];
  }
  // 0 is safe: it is kept until it has arrived. Nothing else is sent to a source that was away meanwhile.
  void Write(const std::string& name, double value) {
    TGuard guard(FLock);
    if (value != 0.0 && FAway) throw EDeviceAway("the laser source does not answer");
    const bool queued = std::erase(FQueue, name) != 0;
    if (!queued && FWanted.contains(name) && FWanted[name] == value && FShown[name] == value) return;
    value == 0.0 ? FQueue.push_front(name) : FQueue.push_back(name);
    FWanted[name] = value;
  }
  bool Settled(const std::string& name) {
    TGuard guard(FLock);
    const auto wanted = FWanted.find(name);
    return wanted == FWanted.end() ||
           (std::ranges::find(FQueue, name) == FQueue.end() && FShown[name] == wanted->second);
  }
  std::uint64_t AgeMs() {
    TGuard guard(FLock);
    return Clock().MonotonicMs() - FAnsweredMs;
  }

 private:
  void Execute() {
    TThreadSign sign("laser source", tkDevice);
    while (!FStop.Asked()) {
      sign.Beat();
      const bool lives = Clock().MonotonicMs() - FContext.Machine.Framework.Watch().BeatMs.load() < kBeatMs;
      if (const std::string line = NextLine(lives); !line.empty()) Ask(line) ? NoteAnswer() : NoteSilence();
      (void)FStop.WaitFor(FAway ? kRetryMs : kCycleMs);
    }
    while (!NextZero().empty() && Ask(NextZero())) PopLine();
  }

  // What is to be said: an off always, anything else only while the state thread lives.
  std::string NextLine(bool lives) {
    if (const std::string zero = NextZero(); !zero.empty()) return zero;
    if (!lives) return {};
    TGuard guard(FLock);
    return FQueue.empty() || FAway ? "status" : FQueue.front() + " 1";
  }
  std::string NextZero() {
    TGuard guard(FLock);
    return FQueue.empty() || FWanted[FQueue.front()] != 0.0 ? "" : FQueue.front() + " 0";
  }
  void PopLine() {
    TGuard guard(FLock);
    // Another value may have been written meanwhile: that one is still to be sent.
    if (!FQueue.empty() && FSent == FQueue.front() + (FWanted[FQueue.front()] != 0.0 ? " 1" : " 0")) FQueue.pop_front();
  }

  // One line and its answer, on the line's thread. False: none came in time.
  bool Ask(const std::string& line) {
    if (!FLink->Linked() && !FLink->Reopen(kRetryMs)) return false;
    FSent = line;
    const std::string bytes = line + "\n";
    if (!FLink->SendBuff(TBytes(bytes.begin(), bytes.end()))) return Lost();
    std::string answer;
    const std::uint64_t limitMs = Clock().MonotonicMs() + kStaleMs;
    while (!answer.ends_with('\n')) {
      const std::uint64_t nowMs = Clock().MonotonicMs();
      const TBytes came =
          nowMs < limitMs ? FLink->ReceiveWithin(static_cast<std::uint32_t>(limitMs - nowMs)) : TBytes{};
      if (came.empty()) return Lost();
      answer.append(came.begin(), came.end());
    }
    return Take(answer) || Lost();
  }
  // A late answer must not be taken for the next line's.
  bool Lost() {
    FLink->CloseLink();
    return false;
  }
  bool Take(const std::string& answer) {
    std::map<std::string, double> shown;
    std::istringstream words(answer);
    for (std::string word; words >> word;)
      if (const auto at = word.find('='); at != std::string::npos)
        shown[word.substr(0, at)] = word.substr(at + 1) == "1";
    for (const auto* names : {&kSourceOutputs, &kSourceInputs})
      for (const std::string& name : *names)
        if (!shown.contains(name)) return false;
    TGuard guard(FLock);
    FShown = std::move(shown);
    FAnsweredMs = Clock().MonotonicMs();
    return true;
  }

  void NoteAnswer() {
    PopLine();
    TGuard guard(FLock);
    // It is back when every off has arrived.
    if (!FAway || !FQueue.empty()) return;
    FAway = false;
    FContext.Events.Back();
  }
  void NoteSilence() {
    {
      TGuard guard(FLock);
      if (FAway) return;
      FAway = true;
      FQueue.assign(kSourceOutputs.begin(), kSourceOutputs.end());
      for (const std::string& name : kSourceOutputs) FWanted[name] = 0.0;
    }
    FContext.Events.Away("the laser source does not answer");
  }

  const TDriverContext FContext;
  const std::shared_ptr<TNcCommTransBase> FLink;  // the line's thread's, and Connect's before
  std::string FSent;                              // the same
  TCriticalSection FLock;
  std::map<std::string, double> FShown IXO_GUARDED_BY(FLock), FWanted IXO_GUARDED_BY(FLock);
  std::deque<std::string> FQueue IXO_GUARDED_BY(FLock);  // outputs to be sent, those to be switched off first
  std::uint64_t FAnsweredMs IXO_GUARDED_BY(FLock) = 0;
  std::atomic<bool> FAway{false};  // written with the lock
  TStop FStop;
  std::thread FThread;
};

class TSourcePoint final : public IMachinePoint {
 public:
  TSourcePoint(TSourceLine& line, std::string name) : FLine(line), FName(std::move(name)) {}
  double Read() override { return FLine.Read(FName); }
  void Write(double value) override { FLine.Write(FName, value); }
  bool Settled() override { return FLine.Settled(FName); }
  std::optional<std::uint64_t> AgeMs() override { return FLine.AgeMs(); }

 private:
  TSourceLine& FLine;
  const std::string FName;
};

class TSourceDriver final : public IMachineDriver {
 public:
  explicit TSourceDriver(const TDriverContext& context) : FLine(Config(context), context) {}

  static TResult<> CheckPoint(const TConfigSection&, TPointKind kind, std::string_view address) {
    const auto& names = kind == pkOutput ? kSourceOutputs : kSourceInputs;
    if ((kind == pkInput || kind == pkOutput) && std::ranges::find(names, address) != names.end()) return {};
    return TProblem{.What = "the laser source has no such point",
                    .Where = std::string(address),
                    .Remedy = "outputs: emission, beam, trip, rearm; inputs: confirmed, lit, latch"};
  }
  TResult<IMachinePoint*> Point(TPointKind kind, std::string_view address) override {
    if (auto good = CheckPoint({}, kind, address); !good) return good.Problem();
    return &FPoints.try_emplace(std::string(address), FLine, std::string(address)).first->second;
  }
  TResult<> Connect() override { return FLine.Connect(); }
  std::vector<TPortFacts> Ports() override {
    std::vector<TPortFacts> facts;
    for (auto& [name, point] : FPoints) {
      const std::uint64_t ageMs = FLine.AgeMs();
      const bool fresh = ageMs < TSourceLine::kStaleMs;
      facts.push_back({.Port = name, .Value = fresh && point.IsOn() ? "1" : "0", .AgeMs = ageMs, .Readable = fresh});
    }
    return facts;
  }

 private:
  static TSourceConfig Config(const TDriverContext& context) {
    TSourceConfig config;
    context.Machine.Config.Section("Source").Load(config);
    return config;
  }

  std::map<std::string, TSourcePoint> FPoints;
  TSourceLine FLine;  // freed first: its thread ends
};

inline TDriverFactory SourceDriver() {
  using TMade = TResult<std::unique_ptr<IMachineDriver>>;
  return {
      .Name = "source",
      .Make = [](const TDriverContext& context) -> TMade { return TMade(std::make_unique<TSourceDriver>(context)); },
      .Sections = {{"Source", [] { return std::make_unique<TSourceConfig>(); }}},
      .CheckPoint = &TSourceDriver::CheckPoint};
}

}  // namespace example
