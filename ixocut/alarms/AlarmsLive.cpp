// `ixocut alarms live`: the machine with its alarm manager and store, told what happens line by line.
#include "commandline/InputLines.h"
#include "controller/Controller.h"
#include "controller/alarms/AlarmScript.h"
#include "controller/process/RoundThread.h"
#include "controller/process/SignalStop.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/FileLock.h"
#include "ixocut/Command.h"
#include "ixocut/alarms/AlarmsCommand.h"

namespace ixocut {
namespace {

constexpr std::uint32_t kRoundMs = 20;
constexpr std::uint64_t kSettleMs = 5000;
constexpr int kStartMs = 2000;

std::string LineOf(const TToldAlarm& alarm) {
  const auto& [msg, rec, first, stored] = alarm;
  const char* const what = msg.Action == naaAdded     ? Tr("raised")
                           : msg.Action == naaRemoved ? Tr("cleared")
                                                      : Tr("acknowledged");
  std::string line = Format("%s  %-12s  %d  %s  %s", FormatLocal(msg.Time).c_str(), what, msg.Level,
                            std::string(msg.Id()).c_str(), rec.Code.c_str());
  if (msg.Action == naaAdded)
    for (const std::string& text : {rec.Category, std::string(msg.Desc()), rec.Reason, rec.Solution})
      line += "  | " + text;
  if (first) line += std::string("  | ") + Tr("first");
  if (!stored) line += std::string("  | ") + Tr("not stored yet");
  return line;
}

void Settle(TController& session, const TAlarmFeed& feed) {
  const std::uint64_t end = Clock().MonotonicMs() + kSettleMs;
  for (int quiet = 0; quiet < 3 && Clock().MonotonicMs() < end; Clock().Sleep(kRoundMs))
    quiet = session.AlarmsSettled() && feed.Settled() ? quiet + 1 : 0;
}

// A store has one writer. Another one that comes between this and the controller's start is told as a trouble.
void RefuseHeldStore(const std::filesystem::path& db) {
  TFileLock lock;
  if (lock.Take(db.string(), 0) == lsBusy) throw EProblem(pbRefused, lock.Problem());
}

}  // namespace

int RunAlarmsLive(const TAlarmsOptions& options, TConsole& console) {
  const std::vector<TAlarmScriptLine> script =
      options.Script.empty() ? std::vector<TAlarmScriptLine>() : ReadAlarmScript(options.Script);
  TControllerOptions made = options.Options();
  made.AlarmDb = AlarmDbFile(options);
  made.AlarmRetentionDays = static_cast<int>(options.RetentionDays);
  made.Realtime = true;
  RefuseHeldStore(made.AlarmDb);
  const TSignalStop signals;
  TController session(std::move(made));
  for (const std::string& notice : session.Notices()) console.Note(notice);

  int exitCode = kExitSuccess;
  TAlarmFeed feed(*session.AlarmStore(), [&](const TToldAlarm& alarm) { console.Say(LineOf(alarm)); });
  const TRoundThread viewing("ixo-alarmview", kRoundMs, [&](std::uint64_t nowMs) { feed.Round(nowMs); });
  session.StartThreads();
  // The laser's latch trips without a sign of life from the state thread.
  for (int ms = 0; ms < kStartMs && session.Framework().Watch().Pass.load() == 0; ++ms) Clock().Sleep(1);
  TAlarmScript live(session, feed, &TSignalStop::Asked);
  const auto run = [&](std::size_t number, const TResult<TAlarmScriptLine>& line) {
    const TResult<> done = line ? live.Do(*line) : TResult<>(line.Problem());
    if (done) return;
    exitCode = kExitOtherwise;
    console.Say(Format(Tr("line %zu: %s"), number, done.Problem().Text().c_str()));
  };
  if (options.Script.empty()) {
    TInputLines input(&TSignalStop::Asked);
    std::string line;
    for (std::size_t number = 1; !TSignalStop::Asked() && input.Next(line); ++number) run(number, ParseAlarmLine(line));
  } else {
    for (std::size_t i = 0; !TSignalStop::Asked() && i < script.size(); ++i) run(i + 1, script[i]);
  }
  Settle(session, feed);
  return exitCode;
}

}  // namespace ixocut
