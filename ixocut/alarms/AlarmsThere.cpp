// What the controller that runs has to be told of alarms, as a store that it writes does not tell it.
#include <ostream>

#include <nlohmann/json.hpp>

#include "ixocamglue/platform/services/UtcTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Problem.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/CommandLine.h"
#include "ixocut/Document.h"
#include "ixocut/alarms/AlarmsCommand.h"
#include "ixocut/client/Attach.h"

namespace ixocut {

int RunAlarmsAck(const TAlarmsOptions& options, std::ostream& out) {
  if (!options.Db.empty()) return AcknowledgeInStore(options, out);
  TAlarmsOptions asked = options;
  const TAttachment attachment(asked);
  TWireClient* const client = attachment.Client();
  if (!client) return AcknowledgeInStore(options, out);
  nlohmann::ordered_json seen;  // the newest one
  const auto standing = client->Get("/api/v1/alarms");
  for (const auto& alarm : standing.at("alarms"))
    if (alarm.at("identifier") == options.Id) seen = alarm.at("serial");
  if (seen.is_null()) throw NotActive(options.Id);
  const auto answer = client->Post("/api/v1/alarms/" + seen.dump() + "/acknowledge");
  TellAcknowledged(options, answer.at("byWhom"), out);
  return kExitSuccess;
}

int RunAlarmsSuppress(const TAlarmsOptions& options, std::ostream& out) {
  TAlarmsOptions asked = options;
  const TAttachment attachment(asked);
  const auto answer = attachment.Controller().Post(
      "/api/v1/alarms/suppress",
      {{"identifier", options.Id}, {"minutes", options.Minutes}, {"reason", options.Reason}});
  if (options.Json)
    PrintDocument(out, "alarms suppress", answer);
  else
    out << Format(Tr("%s is suppressed until %s\n"), options.Id.c_str(),
                  ShownTime(answer.at("until").get<std::string>()).c_str());
  return kExitSuccess;
}

}  // namespace ixocut
