// What stands, what stood, what it means; who has seen it, and what is hidden for a while.
#include "controller/alarms/AlarmRows.h"
#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/service/AlarmDesk.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kUsualRows = 200;
constexpr std::size_t kMostRows = 10'000;
constexpr std::size_t kMostText = 1000;  // of an identifier or a reason

TApiReply ShowAlarms(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body = {{"alarms", service.Alarms().Standing()}};
  return reply;
}

TApiReply AlarmsHistory(TService& service, const TApiRequest& request) {
  const TAlarmStore* const store = service.Controller().AlarmStore();
  if (!store) return Fail(404, {.What = Tr("this controller keeps no alarm store")});
  const std::string level = QueryOf(request, "level");
  const std::string limit = QueryOf(request, "limit");
  TAlarmAsked asked;
  asked.Since = QueryOf(request, "since");
  asked.Active = QueryOf(request, "active") == "true";
  asked.History = QueryOf(request, "active") == "false";
  if (!level.empty()) asked.Level = static_cast<std::int64_t>(WholeNumber(level, "level", 0, 1));
  asked.Identifier = QueryOf(request, "identifier");
  TAlarmFilter filter = FilterOf(asked, "since");
  filter.Newest = kMostRows;
  const std::size_t most = limit.empty() ? kUsualRows : WholeNumber(limit, "limit", 1, kMostRows);

  TAlarmHistory history(store->File());
  const std::vector<TAlarmRow> rows = history.Rows(filter);
  const std::vector<TAlarmSuppression> suppressions = history.Suppressions(UtcNow());
  const std::size_t left = rows.size() > most ? rows.size() - most : 0;
  TApiReply reply;
  reply.Body = {{"lang", OwnLanguage()}, {"leftOut", left}, {"alarms", nlohmann::ordered_json::array()}};
  for (std::size_t i = left; i < rows.size(); ++i) {
    auto json = AlarmJson(Translated(rows[i]));
    json["message"] = rows[i].Description;
    json["suppressed"] = IsSuppressed(rows[i], suppressions);
    reply.Body["alarms"].push_back(std::move(json));
  }
  return reply;
}

TApiReply AlarmDefinitions(TService&, const TApiRequest& request) {
  const std::string identifier = QueryOf(request, "identifier");
  TApiReply reply;
  reply.Body = {{"definitions", DefinitionsJson(identifier)}};
  if (identifier.empty() || !reply.Body["definitions"].empty()) return reply;
  return Fail(404, {.What = Tr("no definition has this identifier"), .Where = identifier});
}

std::string ShortText(const TAskedBody& body, const char* name) {
  std::string value = body.Text(name);
  if (value.size() > kMostText)
    throw EProblem(pbRequest, TProblem{.What = Format(Tr("it is longer than %zu bytes"), kMostText), .Where = name});
  return value;
}

// Many people share a page or a token: who has seen it may say his name.
TApiReply AcknowledgeAlarm(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"name"});
  TAsker who = request.Who;
  if (body.Has("name")) who.Name = ShortText(body, "name") + " (" + who.Name + ")";
  const std::string& serial = request.Params.at("serial");
  const auto number = ParseExactly<std::uint64_t>(serial);
  if (!number || !service.Alarms().Acknowledge(*number, who))
    return Fail(404, {.What = Tr("no alarm with this serial number stands"), .Where = serial});
  TApiReply reply;
  reply.Body = {{"serial", *number}, {"byWhom", who.Name}};
  return reply;
}

TApiReply SuppressAlarm(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"identifier", "minutes", "reason"});
  const std::string identifier = ShortText(body, "identifier");
  const std::string reason =
      body.Has("reason") && request.Body["reason"] != "" ? ShortText(body, "reason") : std::string();
  const auto minutes = static_cast<std::uint64_t>(body.Whole("minutes", 0, kMostSuppressedMinutes));
  TApiReply reply;
  reply.Body = {{"identifier", identifier},
                {"until", service.Alarms().Suppress(identifier, minutes, reason, request.Who).OrThrow(pbRefused)}};
  return reply;
}

constexpr TApiRoute kAlarmsRoutes[] = {
    {"GET", "/api/v1/alarms", roNone, false, true, &ShowAlarms, "The alarms that stand"},
    {"GET", "/api/v1/alarms/history", roNone, false, false, &AlarmsHistory, "Alarms of the store", true},
    {"GET", "/api/v1/alarms/definitions", roNone, false, false, &AlarmDefinitions, "What alarms mean", true},
    {"POST", "/api/v1/alarms/suppress", roOperator, false, true, &SuppressAlarm,
     "Mark an alarm as suppressed for a while"},
    {"POST", "/api/v1/alarms/{serial}/acknowledge", roOperator, false, true, &AcknowledgeAlarm,
     "Tell that somebody has seen an alarm"},
};

}  // namespace

std::span<const TApiRoute> AlarmsRoutes() { return kAlarmsRoutes; }

}  // namespace ixocontroller
