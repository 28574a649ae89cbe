// Tells somebody who does not watch: a command or a webhook on an alarm, the end of a run and a question to the
// operator. What is told where stands in "notifications.json" of the state folder, which is read again when it changes:
//
//   {"notifications": [{"on": ["alarm", "question"], "command": ["/usr/local/bin/tell-shift", "--loud"]},
//                      {"on": ["end"], "webhook": "http://192.168.0.20:8080/ixocut"},
//                      {"on": ["end"], "webhook": "https://plan.example/ixocut", "ca": "/etc/ixocut/plan.pem"}]}
//
// A command gets the event as one JSON object on its standard input, without a shell, and is ended after kCommandMs. A
// webhook gets it by a POST (Webhook.h). Both run on the thread `ixo-tell`, one after the other: nothing of the machine
// waits for them. What fails is logged once, until it works again.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/service/Events.h"
#include "controller/service/Webhook.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {

enum class TTellOn : std::uint8_t { toAlarm, toEnd, toQuestion };
using enum TTellOn;

struct TTellRule {
  std::vector<TTellOn> On;
  std::vector<std::string> Command;        // either this
  std::optional<TWebhook> Webhook;         // or this
  [[nodiscard]] std::string Name() const;  // for messages
};

// The rules in the file; none where there is no file. A problem names the row that is wrong.
[[nodiscard]] TResult<std::vector<TTellRule>> ReadTellRules(const std::filesystem::path& file);

// Does what the rule says, within kCommandMs or kWebhookMs; `ending` is asked meanwhile, and ends it.
inline constexpr std::uint32_t kCommandMs = 10'000;
[[nodiscard]] TResult<> Tell(const TTellRule& rule, const std::string& json, const std::function<bool()>& ending);

class TNotifications {
 public:
  static constexpr std::uint32_t kLookEveryMs = 200;
  static constexpr std::size_t kMostAtOnce = 100;  // events of one look; what is beyond them is left out, and logged

  // Tells of what is added from now on. Ring and log outlive it.
  TNotifications(const TEventRing& events, const std::filesystem::path& stateFolder);
  // Does not wait for somebody who does not answer, and for a name that is looked up kWebhookNameMs at most.
  ~TNotifications();
  TNotifications(const TNotifications&) = delete;
  TNotifications& operator=(const TNotifications&) = delete;

 private:
  void Look();
  void TellAll(TTellOn on, const TServiceEvent& event);
  void RereadRules();

  const TEventRing& FEvents;
  const std::filesystem::path FFile;
  // the own thread's
  std::uint64_t FSeen;
  std::string FStamp;  // of the file that was read
  std::vector<TTellRule> FRules;
  std::map<std::string, std::string> FFailing;  // rules and what they failed with
  TStop FStop;
  std::thread FThread;
};

}  // namespace ixocontroller
