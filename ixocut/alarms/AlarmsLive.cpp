// `ixocut alarms live`: the simulated machine with its alarm manager and store, told what happens line by line.
#include <algorithm>
#include <deque>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <poll.h>
#include <sstream>
#include <unistd.h>
#include <utility>
#include <vector>

#include "controller/Controller.h"
#include "controller/SignalStop.h"
#include "controller/procedures/Procedures.h"
#include "ixocamglue/alarms/Almintprt.h"
#include "ixocamglue/alarms/Ualarmmanager.h"
#include "ixocamglue/alarms/store/AlarmStore.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Machines.h"
#include "ixocut/alarms/AlarmView.h"
#include "ixocut/alarms/AlarmsCommand.h"
#include "machines/simulated/Machine.h"

namespace ixocut {
using namespace ixocontroller;
namespace {

constexpr std::uint32_t kRoundMs = 20;
constexpr std::uint64_t kSettleMs = 5000;
constexpr int kStartMs = 2000;
constexpr std::uint64_t kLongestWaitMs = 86'400'000;
constexpr double kMsPerDay = 86'400'000.0;

// Shows what the manager queues for it: one more consumer beside the store's client. A raise or clear is shown as soon
// as it is in the store; one that is not, with a word on it, when writing it has failed or takes too long.
class TLiveView {
 public:
  TLiveView(std::ostream& out, TAlarmStore& store) : FOut(out), FStore(store) {
    FStore.OnFate([this](const TAlarmFate& fate) {
      TGuard guard(FFatesLock);
      FFates[{fate.Serial, fate.Cleared}] = fate.Stored;
    });
    AlarmManager()->RegisterClient(this, true);
  }
  ~TLiveView() {
    FStore.OnFate(nullptr);
    AlarmManager()->RemoveClient(this);
  }
  TLiveView(const TLiveView&) = delete;
  TLiveView& operator=(const TLiveView&) = delete;

  void Round(std::uint64_t nowMs) {
    TGuard guard(FLock);
    std::vector<TNcAlarmMsg> messages;
    for (TNcAlarmMsg msg; AlarmManager()->Pop(this, msg);) messages.push_back(msg);
    // Popped by level; shown as it happened, so that the first one is the first one.
    std::ranges::stable_sort(messages, {}, [](const TNcAlarmMsg& m) { return std::pair(m.Time.Days, m.Word); });
    for (TNcAlarmMsg& msg : messages) FWaiting.push_back({std::move(msg), nowMs + kFateMs});
    for (; !FWaiting.empty(); FWaiting.pop_front()) {
      const TWaiting& next = FWaiting.front();
      const std::optional<bool> stored = next.Msg.Action == naaAcknowledged ? true : TakeFate(next.Msg);
      if (!stored && nowMs < next.LatestMs) break;
      Show(next.Msg, stored.value_or(false));
    }
    FOut << std::flush;
  }
  // Everything that waits has been shown.
  [[nodiscard]] bool Settled() {
    TGuard guard(FLock);
    return FWaiting.empty();
  }
  // Hides the identifier's lines until then; level 1 stays.
  void Suppress(const std::string& id, TDateTime until) {
    TGuard guard(FLock);
    FHidden[id] = until;
  }
  void Say(const std::string& line) {
    TGuard guard(FLock);
    FOut << line << std::endl;
  }

 private:
  static constexpr std::uint64_t kFateMs = 500;
  struct TWaiting {
    TNcAlarmMsg Msg;
    std::uint64_t LatestMs = 0;
  };

  [[nodiscard]] std::optional<bool> TakeFate(const TNcAlarmMsg& msg) {
    TGuard guard(FFatesLock);
    const auto fate = FFates.extract({msg.Word, msg.Action == naaRemoved});
    return fate ? std::optional(fate.mapped()) : std::nullopt;
  }
  void Show(const TNcAlarmMsg& msg, bool stored) IXO_REQUIRES(FLock) {
    const std::string id(msg.Id());
    FStanding += msg.Action == naaAdded ? 1 : msg.Action == naaRemoved && FStanding > 0 ? -1 : 0;
    if (const auto hidden = FHidden.find(id);
        hidden != FHidden.end() && msg.Level == 0 && UtcNow().Days < hidden->second.Days)
      return;
    TAlarmRec rec;
    AlarmInterpreter()->TryGetAlarmRec(msg, rec);
    const char* const what = msg.Action == naaAdded     ? Tr("raised")
                             : msg.Action == naaRemoved ? Tr("cleared")
                                                        : Tr("acknowledged");
    std::string line =
        Format("%s  %-12s  %d  %s  %s", FormatLocal(msg.Time).c_str(), what, msg.Level, id.c_str(), rec.Code.c_str());
    if (msg.Action == naaAdded) {
      for (const std::string& text : {rec.Category, std::string(msg.Desc()), rec.Reason, rec.Solution})
        line += "  | " + text;
      if (FStanding == 1) line += std::string("  | ") + Tr("first");
    }
    if (!stored) line += std::string("  | ") + Tr("not stored yet");
    FOut << line << '\n';
  }

  std::ostream& FOut;
  TAlarmStore& FStore;
  TCriticalSection FLock;
  std::deque<TWaiting> FWaiting IXO_GUARDED_BY(FLock);
  std::map<std::string, TDateTime> FHidden IXO_GUARDED_BY(FLock);
  int FStanding IXO_GUARDED_BY(FLock) = 0;
  // The store's thread must not wait for what is shown.
  TCriticalSection FFatesLock;
  std::map<std::pair<std::uint64_t, bool>, bool> FFates IXO_GUARDED_BY(FFatesLock);  // stored, by raise and clear
};

// --- lines ---

enum class TVerb : std::uint8_t { Nothing, Raise, Clear, Ack, Suppress, Wait, Fault, Mend };
constexpr std::pair<const char*, TVerb> kVerbs[] = {
    {"raise", TVerb::Raise}, {"clear", TVerb::Clear}, {"ack", TVerb::Ack},  {"suppress", TVerb::Suppress},
    {"wait", TVerb::Wait},   {"fault", TVerb::Fault}, {"mend", TVerb::Mend}};
constexpr const char* kDevices[] = {"axis", "gas", "emission", "device"};

struct TLiveLine {
  TVerb Verb = TVerb::Nothing;
  std::string Name;          // identifier or device
  std::int32_t Id = 0;       // raise: behind the '#'
  std::uint64_t Number = 0;  // minutes or milliseconds
  std::string Reason;
};

TProblem Because(std::string what, std::string remedy = {}) {
  return {.What = std::move(what), .Where = {}, .Why = {}, .Remedy = std::move(remedy)};
}

// What a line says, and nothing that it does.
TResult<TLiveLine> ParseLine(const std::string& text) {
  std::istringstream words(text);
  std::string verb, number, more;
  TLiveLine line;
  if (!(words >> verb) || verb.front() == '#') return line;
  TNearestName nearest(verb);
  for (const auto& [name, known] : kVerbs) {
    if (verb == name) line.Verb = known;
    nearest.Consider(name);
  }
  if (line.Verb == TVerb::Nothing)
    return Because(
        Format(Tr("\"%s\" is unknown; there are raise, clear, ack, suppress, wait, fault, mend"), verb.c_str()),
        nearest.DidYouMean());
  if (line.Verb == TVerb::Wait) {
    const auto ms = words >> number ? ParseExactly<std::uint64_t>(number) : std::nullopt;
    if (!ms || *ms > kLongestWaitMs || words >> more) return Because(Tr("expected: wait MS, with 0 to 86400000 ms"));
    line.Number = *ms;
    return line;
  }
  if (!(words >> line.Name))
    return Because(line.Verb >= TVerb::Fault ? Tr("the device is missing") : Tr("the identifier is missing"));
  if (line.Verb == TVerb::Suppress) {
    words >> number;
    std::getline(words >> std::ws, line.Reason);
    const auto minutes = ParseExactly<std::uint64_t>(number);
    if (!minutes || *minutes == 0 || *minutes > 10'080 || line.Reason.empty())
      return Because(Tr("expected: suppress ID MINUTES REASON, with 1 to 10080 minutes"));
    line.Number = *minutes;
    return line;
  }
  if (words >> more) return Because(Format(Tr("\"%s\" is too much"), more.c_str()));
  if (line.Verb >= TVerb::Fault && std::ranges::none_of(kDevices, [&](const char* d) { return line.Name == d; }))
    return Because(Format(Tr("\"%s\" is no device; there are axis, gas, emission and device"), line.Name.c_str()));
  if (line.Verb == TVerb::Raise) {
    const auto hash = line.Name.rfind('#');
    const auto id = hash == std::string::npos
                        ? std::nullopt
                        : ParseExactly<std::int32_t>(std::string_view(line.Name).substr(hash + 1));
    if (!id || *id < 0 || hash == 0)
      return Because(Format(Tr("\"%s\" is no identifier; expected PREFIX#NUMBER, TPLaser#1 for example, with a number "
                               "of at most 2147483647"),
                            line.Name.c_str()));
    line.Id = *id;
  }
  return line;
}

// Whole, before its first line runs.
std::vector<TLiveLine> ReadLiveScript(const std::string& file) {
  std::istringstream text(ReadFile(std::filesystem::path(file)).OrThrow(pbUnusable));
  std::vector<TLiveLine> lines;
  std::string line;
  while (std::getline(text, line)) {
    TResult<TLiveLine> parsed = ParseLine(line);
    if (!parsed) {
      TProblem problem = parsed.Problem();
      problem.Where = Format("%s:%zu", file.c_str(), lines.size() + 1);
      throw EProblem(pbRequest, std::move(problem));
    }
    lines.push_back(std::move(*parsed));
  }
  return lines;
}

class TLive {
 public:
  TLive(TController& session, TLiveView& view, const TSignalStop& signals)
      : FController(session), FView(view), FSignals(signals) {}

  TResult<> Do(const TLiveLine& line) {
    switch (line.Verb) {
      case TVerb::Nothing: break;
      case TVerb::Raise: Raise(line); break;
      case TVerb::Clear: return Clear(line.Name);
      case TVerb::Ack: return Ack(line.Name);
      case TVerb::Suppress: return Suppress(line);
      case TVerb::Wait: Wait(line.Number); break;
      case TVerb::Fault:
      case TVerb::Mend: Device(line.Name, line.Verb == TVerb::Fault);
    }
    return {};
  }

 private:
  [[nodiscard]] bool Stands(const std::string& id, std::uint8_t lowest = 0) const {
    return std::ranges::any_of(FController.Alarms().Standing(), [&](const TNcAlarmRecord& record) {
      return record.Level() >= lowest && record.Identifier() == id;
    });
  }
  void Raise(const TLiveLine& line) {
    TAlarmRec rec;
    const bool known = AlarmInterpreter()->TryGetAlarmRec(line.Name, rec);
    // An operator's own line forbids nothing that a real device did not forbid: it is shown only.
    const std::uint64_t serial = FController.Alarms().Raise({.IdPrefix = line.Name.substr(0, line.Name.rfind('#')),
                                                             .Desc = known ? rec.BrifDesc : line.Name,
                                                             .Id = line.Id,
                                                             .Attrs = naShownOnly});
    FController.AlarmStore()->MarkByHand(serial);
    FRaised[line.Name].push_back(serial);
  }
  // What a device reports ends with its cause.
  TResult<> Clear(const std::string& id) {
    std::vector<std::uint64_t>& raised = FRaised[id];
    if (!raised.empty()) {
      (void)FController.Alarms().ClearSerial(raised.back());
      raised.pop_back();
      return {};
    }
    if (!Stands(id)) return Because(Format(Tr("%s does not stand"), id.c_str()));
    return Because(Format(Tr("%s was raised by the machine, not by hand"), id.c_str()),
                   Tr("it ends when its cause is gone"));
  }
  TResult<> Ack(const std::string& id) {
    if (!Stands(id)) return Because(Format(Tr("%s does not stand"), id.c_str()));
    FController.AlarmStore()->Acknowledge(id, "live");
    AlarmManager()->Acknowledge(id, UtcNow());
    return {};
  }
  TResult<> Suppress(const TLiveLine& line) {
    if (Stands(line.Name, 1))
      return Because(Format(Tr("%s stands with level 1, which is never suppressed"), line.Name.c_str()));
    const TDateTime until{UtcNow().Days + static_cast<double>(line.Number) * 60'000.0 / kMsPerDay};
    FController.AlarmStore()->Suppress({line.Name, FormatUtc(until), line.Reason});
    FView.Suppress(line.Name, until);
    return {};
  }
  void Wait(std::uint64_t ms) {
    for (const std::uint64_t end = Clock().MonotonicMs() + ms; !FSignals.Asked() && Clock().MonotonicMs() < end;)
      Clock().Sleep(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - Clock().MonotonicMs(), kRoundMs)));
  }
  // What happens to the devices themselves; their alarms are their own.
  void Device(const std::string& name, bool broken) {
    TSimMachine& machine = Simulated(FController.Machine());
    if (name == "axis") {
      const double x = broken ? machine.Config().X.SoftLimitPos + 100.0 : machine.Snapshot().Pos.X;
      machine.Motion().MoveXY({x, machine.Snapshot().Pos.Y}, 0.0);
    } else if (name == "gas") {
      machine.GasDevice().SetSupply(broken ? 0.5 : 100.0);
      machine.GasDevice().SetPressure(4.0);
      machine.GasDevice().SwitchOn();
    } else if (name == "emission") {
      machine.LaserDevice().EmissionOn();
      machine.LaserDevice().SetEmissionScript({TEmissionScript::TMode::emPolls, 0});
      (void)machine.LaserDevice().GetEmission();
      if (broken) machine.LaserDevice().LoseEmission();
    } else {
      if (broken) machine.Gate().PlanSet({.Call = machine.Gate().Calls() + 1, .Fault = gfThrow});
      try {
        (void)machine.GasDevice().GetGas();
      } catch (const EDeviceFault&) {  // what was asked for
      }
    }
  }

  TController& FController;
  TLiveView& FView;
  const TSignalStop& FSignals;
  std::map<std::string, std::vector<std::uint64_t>> FRaised;  // by hand: serials by identifier, newest last
};

// The next line of the terminal or of a pipe; false at its end, or when the program is to stop.
class TTerminal {
 public:
  explicit TTerminal(const TSignalStop& signals) : FSignals(signals) {}

  bool Next(std::string& line) {
    for (;;) {
      if (const auto end = FBuffer.find('\n'); end != std::string::npos) {
        line = FBuffer.substr(0, end);
        FBuffer.erase(0, end + 1);
        return true;
      }
      if (FEnded || FSignals.Asked()) return false;
      pollfd waiting{STDIN_FILENO, POLLIN, 0};
      if (poll(&waiting, 1, static_cast<int>(kRoundMs)) <= 0) continue;
      char bytes[4096];
      const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
      if (count > 0)
        FBuffer.append(bytes, static_cast<std::size_t>(count));
      else
        FEnded = true;
      if (FEnded && !FBuffer.empty()) FBuffer += '\n';  // a last line without its end
    }
  }

 private:
  const TSignalStop& FSignals;
  std::string FBuffer;
  bool FEnded = false;
};

void Settle(TController& session, TLiveView& view) {
  const std::uint64_t end = Clock().MonotonicMs() + kSettleMs;
  for (int quiet = 0; quiet < 3 && Clock().MonotonicMs() < end; Clock().Sleep(kRoundMs))
    quiet = session.AlarmsSettled() && view.Settled() ? quiet + 1 : 0;
}

// A store has one writer. Another one that comes between this and the controller's start is told as a trouble.
void RefuseHeldStore(const std::filesystem::path& db) {
  TFileLock lock;
  if (lock.Take(db.string(), 0) == lsBusy) throw EProblem(pbRefused, lock.Problem());
}

}  // namespace

int RunAlarmsLive(const TAlarmsOptions& options, std::ostream& out) {
  const std::vector<TLiveLine> script =
      options.Script.empty() ? std::vector<TLiveLine>() : ReadLiveScript(options.Script);
  TControllerOptions made = options.Options();
  made.AlarmDb = AlarmDbFile(options);
  made.AlarmRetentionDays = static_cast<int>(options.RetentionDays);
  made.Realtime = true;
  RefuseHeldStore(made.AlarmDb);
  const TSignalStop signals;
  TController session(std::move(made));
  for (const std::string& notice : session.Notices()) std::cerr << "ixocut alarms: " << notice << std::endl;

  int exitCode = kExitSuccess;
  {
    TLiveView view(out, *session.AlarmStore());
    const TRoundThread viewing("ixo-alarmview", kRoundMs, [&](std::uint64_t nowMs) { view.Round(nowMs); });
    session.StartThreads();
    // The laser's latch trips without a sign of life from the state thread.
    for (int ms = 0; ms < kStartMs && session.Framework().Watch().Pass.load() == 0; ++ms) Clock().Sleep(1);
    TLive live(session, view, signals);
    const auto run = [&](std::size_t number, const TResult<TLiveLine>& line) {
      const TResult<> done = line ? live.Do(*line) : TResult<>(line.Problem());
      if (done) return;
      exitCode = kExitOtherwise;
      view.Say(Format(Tr("line %zu: %s"), number, done.Problem().Text().c_str()));
    };
    if (options.Script.empty()) {
      TTerminal terminal(signals);
      std::string line;
      for (std::size_t number = 1; !signals.Asked() && terminal.Next(line); ++number) run(number, ParseLine(line));
    } else {
      for (std::size_t i = 0; !signals.Asked() && i < script.size(); ++i) run(i + 1, script[i]);
    }
    Settle(session, view);
  }
  return exitCode;
}

}  // namespace ixocut
