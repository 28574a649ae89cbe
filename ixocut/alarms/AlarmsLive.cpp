// `ixocut alarms live`: the simulated machine with its alarm manager and store, told what happens line by line.
#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
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
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Console.h"
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

// Shows what the manager queues for it: one more consumer beside the store's client.
class TLiveView {
 public:
  explicit TLiveView(std::ostream& out) : FOut(out) { AlarmManager()->RegisterClient(this, true); }
  ~TLiveView() { AlarmManager()->RemoveClient(this); }
  TLiveView(const TLiveView&) = delete;
  TLiveView& operator=(const TLiveView&) = delete;

  void Round() {
    TGuard guard(FLock);
    std::vector<TNcAlarmMsg> messages;
    for (TNcAlarmMsg msg; AlarmManager()->Pop(this, msg);) messages.push_back(msg);
    // Popped by level; shown as it happened, so that the first one is the first one.
    std::ranges::stable_sort(messages, {}, [](const TNcAlarmMsg& m) { return std::pair(m.Time.Days, m.Word); });
    for (const TNcAlarmMsg& msg : messages) Show(msg);
    FOut << std::flush;
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
  void Show(const TNcAlarmMsg& msg) IXO_REQUIRES(FLock) {
    const std::string id(msg.Id());
    FStanding += msg.Action == naaAdded ? 1 : msg.Action == naaRemoved && FStanding > 0 ? -1 : 0;
    if (const auto hidden = FHidden.find(id);
        hidden != FHidden.end() && msg.Level == 0 && Clock().Now().Days < hidden->second.Days)
      return;
    TAlarmRec rec;
    AlarmInterpreter()->TryGetAlarmRec(msg, rec);
    const char* const what = msg.Action == naaAdded ? "raised" : msg.Action == naaRemoved ? "cleared" : "acknowledged";
    std::string line = Format("%s  %-12s  %d  %s  %s", FormatDateTime(msg.Time).c_str(), what, msg.Level, id.c_str(),
                              rec.Code.c_str());
    if (msg.Action == naaAdded) {
      for (const std::string& text : {rec.Category, std::string(msg.Desc()), rec.Reason, rec.Solution})
        line += "  | " + text;
      if (FStanding == 1) line += "  | first";
    }
    FOut << line << '\n';
  }

  std::ostream& FOut;
  TCriticalSection FLock;
  std::map<std::string, TDateTime> FHidden IXO_GUARDED_BY(FLock);
  int FStanding IXO_GUARDED_BY(FLock) = 0;
};

class TLive {
 public:
  TLive(TController& session, TLiveView& view, const TSignalStop& signals)
      : FController(session), FView(view), FSignals(signals) {}

  // One line of the script.
  TResult<> Do(const std::string& line) {
    std::istringstream words(line);
    std::string verb, id;
    if (!(words >> verb) || verb.front() == '#') return {};
    if (verb == "suppress") return Suppress(words);
    if (verb == "wait") return Wait(words);
    if (verb == "fault" || verb == "mend") return Device(words, verb == "fault");
    if (verb != "raise" && verb != "clear" && verb != "ack")
      return Because("\"" + verb + "\" is unknown; there are raise, clear, ack, suppress, wait, fault, mend");
    if (!(words >> id)) return Because("the identifier is missing");
    if (verb == "raise") return Raise(id);
    if (verb == "ack") return Ack(id);
    if (!FController.Alarms().Clear(id)) return Because(id + " does not stand");
    return {};
  }

 private:
  static TProblem Because(std::string what) { return {.What = std::move(what)}; }

  TResult<> Raise(const std::string& id) {
    const auto hash = id.rfind('#');
    std::int32_t number = 0;
    const char* const end = id.data() + id.size();
    const char* const digits = hash == std::string::npos ? end : id.data() + hash + 1;
    if (const auto parsed = std::from_chars(digits, end, number); digits == end || parsed.ptr != end || hash == 0)
      return Because("\"" + id + "\" is no identifier; expected PREFIX#NUMBER, TPLaser#1 for example");
    TAlarmRec rec;
    const bool known = AlarmInterpreter()->TryGetAlarmRec(id, rec);
    TNcAlarmRecord record{.IdPrefix = id.substr(0, hash), .Desc = known ? rec.BrifDesc : id, .Id = number};
    // An operator's own line forbids nothing that a real device did not forbid: it is shown only.
    record.Attrs = naShownOnly;
    FController.Alarms().Raise(std::move(record));
    return {};
  }
  TResult<> Ack(const std::string& id) {
    FController.AlarmStore()->Acknowledge(id, "live");
    AlarmManager()->Acknowledge(id, Clock().Now());
    return {};
  }
  TResult<> Suppress(std::istringstream& words) {
    std::string id, minutes, reason;
    words >> id >> minutes;
    std::getline(words >> std::ws, reason);
    std::uint32_t number = 0;
    const auto parsed = std::from_chars(minutes.data(), minutes.data() + minutes.size(), number);
    if (parsed.ec != std::errc{} || parsed.ptr != minutes.data() + minutes.size() || number == 0 || number > 10'080 ||
        reason.empty())
      return Because("expected: suppress ID MINUTES REASON, with 1 to 10080 minutes");
    if (AlarmManager()->GetAlarmFifos(1).IsActive(id))
      return Because(id + " stands with level 1, which is never suppressed");
    const TDateTime until{Clock().Now().Days + number * 60'000.0 / kMsPerDay};
    FController.AlarmStore()->Suppress({id, FormatDateTime(until), reason});
    FView.Suppress(id, until);
    return {};
  }
  TResult<> Wait(std::istringstream& words) {
    std::uint64_t ms = 0;
    if (!(words >> ms) || ms > kLongestWaitMs) return Because("expected: wait MS");
    for (const std::uint64_t end = Clock().MonotonicMs() + ms; !FSignals.Asked() && Clock().MonotonicMs() < end;)
      Clock().Sleep(static_cast<std::uint32_t>(std::min<std::uint64_t>(end - Clock().MonotonicMs(), kRoundMs)));
    return {};
  }
  // What happens to the devices themselves; their alarms are their own.
  TResult<> Device(std::istringstream& words, bool broken) {
    std::string name;
    words >> name;
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
    } else if (name == "device") {
      if (broken) machine.Gate().PlanSet({.Call = machine.Gate().Calls() + 1, .Fault = gfThrow});
      try {
        (void)machine.GasDevice().GetGas();
      } catch (const EDeviceFault&) {  // what was asked for
      }
    } else {
      return Because("there are axis, gas, emission and device");
    }
    return {};
  }

  TController& FController;
  TLiveView& FView;
  const TSignalStop& FSignals;
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

void Settle(TController& session) {
  const std::uint64_t end = Clock().MonotonicMs() + kSettleMs;
  for (int quiet = 0; quiet < 3 && Clock().MonotonicMs() < end; Clock().Sleep(kRoundMs))
    quiet = session.AlarmsSettled() ? quiet + 1 : 0;
}

}  // namespace

int RunAlarmsLive(const TAlarmsOptions& options, std::ostream& out) {
  std::ifstream script;
  if (!options.Script.empty()) {
    script.open(options.Script);
    if (!script) throw EProblem(pbUnusable, options.Script + ": the file cannot be read");
  }
  const std::filesystem::path db = AlarmDbFile(options);
  if (db.has_parent_path()) {
    std::error_code error;
    std::filesystem::create_directories(db.parent_path(), error);  // what fails here fails again when it is opened
  }
  TControllerOptions made = options.Options();
  made.AlarmDb = db;
  made.AlarmRetentionDays = static_cast<int>(options.RetentionDays);
  made.Realtime = true;
  const TSignalStop signals;
  TController session(std::move(made));
  for (const std::string& notice : session.Notices()) std::cerr << "ixocut alarms: " << notice << std::endl;

  int exitCode = kExitSuccess;
  {
    TLiveView view(out);
    const TRoundThread viewing("ixo-alarmview", kRoundMs, [&](std::uint64_t) { view.Round(); });
    session.StartThreads();
    // The laser's latch trips without a sign of life from the state thread.
    for (int ms = 0; ms < kStartMs && session.Framework().Watch().Pass.load() == 0; ++ms) Clock().Sleep(1);
    TLive live(session, view, signals);
    TTerminal terminal(signals);
    std::string line;
    for (int number = 1; !signals.Asked(); ++number) {
      const bool more = options.Script.empty() ? terminal.Next(line) : static_cast<bool>(std::getline(script, line));
      if (!more) break;
      const TResult<> done = live.Do(line);
      if (done) continue;
      exitCode = kExitOtherwise;
      view.Say(Format("line %d: %s", number, done.Problem().What.c_str()));
    }
    Settle(session);
  }
  return exitCode;
}

}  // namespace ixocut
