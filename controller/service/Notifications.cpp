#include "controller/service/Notifications.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "controller/process/JsonFile.h"
#include "controller/process/RealTime.h"
#include "controller/process/RoundThread.h"
#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::size_t kMostRules = 32;
constexpr int kPollMs = 20;

struct TTellKind {
  TTellOn On;
  const char* Word;   // in the file
  const char* Kind;   // of the ring's events
  const char* Event;  // which of them
};
constexpr TTellKind kTellKinds[] = {{toAlarm, "alarm", "alarm", "raised"},
                                    {toEnd, "end", "run", "ended"},
                                    {toQuestion, "question", "queue", "question"}};

class THandle {
 public:
  explicit THandle(int handle) : FHandle(handle) {}
  ~THandle() {
    if (FHandle >= 0) ::close(FHandle);
  }
  THandle(const THandle&) = delete;
  THandle& operator=(const THandle&) = delete;
  [[nodiscard]] int Get() const { return FHandle; }

 private:
  const int FHandle;
};

TResult<TTellRule> ReadTellRule(const TJson& row) {
  TTellRule rule;
  const auto on = row.is_object() && row.contains("on") ? row["on"] : TJson();
  for (const TJson& word : on)
    for (const TTellKind& kind : kTellKinds)
      if (word == kind.Word) rule.On.push_back(kind.On);
  if (!on.is_array() || on.empty() || rule.On.size() != on.size())
    return TProblem{.What = Tr("\"on\" is a list of \"alarm\", \"end\" and \"question\"")};
  if (row.contains("command") == row.contains("webhook"))
    return TProblem{.What = Tr("a notification has either a \"command\" or a \"webhook\"")};
  if (row.contains("webhook")) {
    const bool texts = row["webhook"].is_string() && (!row.contains("ca") || row["ca"].is_string());
    if (texts) rule.Webhook = ParseWebhook(row["webhook"].get<std::string>());
    if (!rule.Webhook)
      return TProblem{.What = Tr("a webhook is \"http://HOST:PORT/PATH\" or \"https://HOST:PORT/PATH\"; its \"ca\" "
                                 "is the path of a file")};
    rule.Webhook->Trusted = row.value("ca", "");
    return rule;
  }
  const TJson& command = row["command"];
  const auto isText = [](const TJson& part) { return part.is_string(); };
  if (!command.is_array() || command.empty() || !std::ranges::all_of(command, isText) ||
      !command[0].get<std::string>().starts_with('/'))
    return TProblem{.What = Tr("a command is a list of texts, the first one an absolute path")};
  rule.Command = command.get<std::vector<std::string>>();
  return rule;
}

TProblem SystemProblem(int error) { return {.What = SystemErrorText(error)}; }

// --- a command ---

TResult<> WaitForCommand(pid_t child, const std::function<bool()>& ending) {
  const std::uint64_t end = RealMs() + kCommandMs;
  for (;;) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child) {
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
      return TProblem{.What = WIFEXITED(status) ? Format(Tr("it ended with %d"), WEXITSTATUS(status))
                                                : Format(Tr("signal %d has ended it"), WTERMSIG(status))};
    }
    if (ending() || RealMs() >= end) break;
    ::poll(nullptr, 0, kPollMs);
  }
  ::kill(-child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  return TProblem{.What = Format(Tr("it has not ended within %d s"), static_cast<int>(kCommandMs / 1000))};
}

TResult<> RunCommand(const TTellRule& rule, const std::string& json, const std::function<bool()>& ending) {
  // In memory, so that nobody waits for a command that does not read.
  const THandle input(::memfd_create("event", MFD_CLOEXEC));
  if (input.Get() < 0 || ::write(input.Get(), json.data(), json.size()) != static_cast<::ssize_t>(json.size()) ||
      ::lseek(input.Get(), 0, SEEK_SET) != 0)
    return SystemProblem(errno);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_adddup2(&actions, input.Get(), STDIN_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  sigset_t all{};
  ::sigfillset(&all);
  ::posix_spawnattr_setsigdefault(&attributes, &all);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  std::vector<std::string> words = rule.Command;
  std::vector<char*> args;
  args.reserve(words.size() + 1);
  for (std::string& word : words) args.push_back(word.data());
  args.push_back(nullptr);
  pid_t child = 0;
  const int error = ::posix_spawn(&child, args[0], &actions, &attributes, args.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return SystemProblem(error);
  return WaitForCommand(child, ending);
}

}  // namespace

std::string TTellRule::Name() const { return Webhook ? Webhook->Text() : Command.front(); }

TResult<std::vector<TTellRule>> ReadTellRules(const std::filesystem::path& file) {
  const auto content = ReadJsonFile(file);
  if (!content) return content.Problem();
  std::vector<TTellRule> rules;
  const TJson rows = content->value("notifications", TJson::array());
  if (!rows.is_array() || rows.size() > kMostRules)
    return TProblem{.What = Format(Tr("\"notifications\" is a list of at most %zu"), kMostRules),
                    .Where = file.string()};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto rule = ReadTellRule(rows[i]);
    if (!rule) return TProblem{.What = rule.Problem().What, .Where = Format("%s: notifications[%zu]", file.c_str(), i)};
    rules.push_back(*rule);
  }
  return rules;
}

TResult<> Tell(const TTellRule& rule, const std::string& json, const std::function<bool()>& ending) {
  return rule.Webhook ? Post(*rule.Webhook, json, ending) : RunCommand(rule, json, ending);
}

// --- TNotifications ---

TNotifications::TNotifications(const TEventRing& events, const std::filesystem::path& stateFolder)
    : FEvents(events), FFile(stateFolder / kNotificationsFile), FSeen(events.Last()) {
  FThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "ixo-tell");
    do try {
        Look();
      } catch (...) {  // its event counts as told
        LogFault("ixo-tell", std::current_exception());
      }
    while (!FStop.WaitFor(kLookEveryMs));
  });
}

TNotifications::~TNotifications() {
  FStop.Ask();
  FThread.join();
}

void TNotifications::Look() {
  RereadRules();
  if (FRules.empty()) {
    FSeen = FEvents.Last();
    return;
  }
  std::size_t told = 0;
  std::size_t left = 0;
  const TEventRing::TRead read = FEvents.Read(FSeen);
  if (read.MissedFrom != 0)
    LogMsg(lkWarning, 0,
           Format(Tr("nobody was told of the events %llu to %llu: too much has happened meanwhile"),
                  static_cast<unsigned long long>(read.MissedFrom), static_cast<unsigned long long>(read.MissedTo)),
           "TNotifications");
  for (const TServiceEvent& event : read.Events) {
    FSeen = event.Number;
    for (const TTellKind& kind : kTellKinds) {
      if (std::string_view(EventName(event.Kind)) != kind.Kind) continue;
      if (event.Body().value("event", "") != kind.Event) continue;
      if (++told > kMostAtOnce)
        ++left;
      else
        TellAll(kind.On, event);
    }
    if (FStop.Asked()) return;
  }
  if (left > 0)
    LogMsg(lkWarning, 0, Format(Tr("too much happens at once: %zu notifications were left out"), left),
           "TNotifications");
}

void TNotifications::TellAll(TTellOn on, const TServiceEvent& event) {
  TJson body = event.Body();
  TJson json{{"on", kTellKinds[static_cast<std::size_t>(on)].Word},
             {"number", event.Number},
             {"epoch", FEvents.Epoch()},
             {"time", UtcText(event.UnixMs)}};
  json.update(body);
  const std::string text = json.dump(-1, ' ', false, TJson::error_handler_t::replace) + "\n";
  for (const TTellRule& rule : FRules) {
    if (FStop.Asked() || std::ranges::find(rule.On, on) == rule.On.end()) continue;
    const auto done = Tell(rule, text, [this] { return FStop.Asked(); });
    if (done) {
      FFailing.erase(rule.Name());
    } else if (!FStop.Asked() && FFailing.emplace(rule.Name(), done.Problem().What).second) {
      LogMsg(lkError, 0,
             Format(Tr("nobody could be told by %s: %s"), rule.Name().c_str(), done.Problem().Text().c_str()),
             "TNotifications");
    }
  }
}

void TNotifications::RereadRules() {
  struct stat status {};
  std::string stamp;
  if (::stat(FFile.c_str(), &status) == 0)
    stamp = Format("%llu %lld.%09ld %lld", static_cast<unsigned long long>(status.st_ino),
                   static_cast<long long>(status.st_mtim.tv_sec), status.st_mtim.tv_nsec,
                   static_cast<long long>(status.st_size));
  if (stamp == FStamp) return;
  FStamp = stamp;
  FFailing.clear();
  FRules.clear();
  auto rules = ReadTellRules(FFile);
  if (rules)
    FRules = std::move(*rules);
  else
    LogMsg(lkError, 0, rules.Problem().Text(), "TNotifications");
}

}  // namespace ixocontroller
