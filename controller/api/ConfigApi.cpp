// The machine file of the running controller: shown, checked, compared, changed and put back. What only reads it is
// answered from the disk on the thread for files: a large file keeps no held key waiting.
#include <algorithm>
#include <memory>

#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/config/ConfigHistory.h"
#include "controller/config/ConfigJson.h"
#include "controller/config/LiveConfig.h"
#include "controller/process/StateFiles.h"
#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kUsualChanges = 100;

// Any thread.
const std::filesystem::path& FileOf(TService& service) {
  const std::filesystem::path& file = service.Options().Controller.MachineFile;
  if (file.empty()) throw EProblem(pbRefused, Tr("this controller runs without a machine file"));
  return file;
}

TLiveConfig Live(TService& service) {
  (void)FileOf(service);
  return {*MachineConfig(), service.Options().Controller.Machines};
}

// The file as it is on the disk, beside the values that the machine runs with; any thread.
std::unique_ptr<TMachineFile> FileOnDisk(TService& service) {
  auto file = std::make_unique<TMachineFile>(service.Options().Controller.Machines);
  file->Load(FileOf(service), xdPlaces);
  return file;
}

std::string Quoted(const std::string& version) { return '"' + version + '"'; }

TConfigHistory ConfigHistoryOf(TService& service) {
  return TConfigHistory(service.Options().StateFolder / kConfigHistoryFile);
}

// The other way round, also where somebody has made it a weak one.
std::string Bare(std::string tag) {
  if (tag.starts_with("W/")) tag.erase(0, 2);
  std::erase(tag, '"');
  return tag;
}

void AddVersion(TApiReply& reply, const TLiveConfig& live) {
  const std::string version = live.Version().OrThrow(pbUnusable);
  reply.Body["version"] = version;
  reply.ETag = Quoted(version);
}

void RefuseConfigWhileRunning(TService& service) { service.AtRest().OrThrow(pbRefused); }

TApiReply ShowConfig(TService& service, const TApiRequest& request) {
  // Before the values: saved in between, they are newer than it, and a change by it is refused.
  const std::string version = TLiveConfig::VersionOf(FileOf(service)).OrThrow(pbUnusable);
  const auto file = FileOnDisk(service);
  const std::string section = QueryOf(request, "section");
  const auto views = FindSection(file->Config(), section);
  if (!views) return Fail(404, views.Problem());
  TApiReply reply;
  reply.ETag = Quoted(version);
  reply.Body = {
      {"file", FileOf(service).string()}, {"version", version}, {"properties", nlohmann::ordered_json::object()}};
  for (const TPropertyView& view : *views) reply.Body["properties"][view.Path] = JsonOf(view, view.Value);
  reply.Body["wrong"] = JsonOf(file->Wrong({section}));
  return reply;
}

TApiReply ConfigSchema(TService& service, const TApiRequest&) {
  TMachineFile file(service.Options().Controller.Machines);
  TApiReply reply;
  reply.Body = {{"properties", nlohmann::ordered_json::array()}};
  for (const TPropertyView& view : ViewProperties(file.Config(), true))
    reply.Body["properties"].push_back(JsonFacts(view));
  return reply;
}

TApiReply CheckConfig(TService& service, const TApiRequest& request) {
  const auto file = FileOnDisk(service);
  auto findings = file->Findings(file->Config().Document());
  const auto foreign = static_cast<std::size_t>(std::ranges::count_if(findings, &TConfigFinding::Foreign));
  const std::size_t faults = findings.size() - foreign;
  if (QueryOf(request, "all") != "true") std::erase_if(findings, &TConfigFinding::Foreign);
  TApiReply reply;
  reply.Body = {{"file", FileOf(service).string()},
                {"inOrder", faults == 0},
                {"findings", JsonOf(findings)},
                {"unknown", foreign},
                {"defaults", JsonOf(DefaultedLimits(file->Config()))}};
  return reply;
}

TApiReply ConfigChanges(TService& service, const TApiRequest& request) {
  const std::string limit = QueryOf(request, "limit");
  const std::size_t most = limit.empty() ? kUsualChanges : WholeNumber(limit, "limit", 1, 10 * TConfigHistory::kKept);
  TApiReply reply;
  reply.Body = {{"changes", ConfigHistoryOf(service).Read(most)}};
  return reply;
}

TApiReply DiffConfig(TService& service, const TApiRequest& request) {
  const std::string against = QueryOf(request, "against");
  if (!against.empty() && against != "backup" && against != "defaults")
    throw EProblem(pbRequest, {.What = Format(Tr("\"%s\" is neither \"backup\" nor \"defaults\""), against.c_str()),
                               .Where = "against"});
  const auto file = FileOnDisk(service);
  const auto views = ViewProperties(file->Config(), false);
  std::vector<TPropertyView> others;
  std::string other = "defaults";
  if (against == "defaults") {
    others = views;
    for (TPropertyView& view : others) view.Value = view.Default;
  } else {
    other = FileOf(service).string() + std::string(TXmlConfig::kBackupSuffix);
    std::error_code error;
    if (!std::filesystem::exists(other, error))
      return Fail(404, {.What = Tr("there is no previous version"), .Where = other});
    TMachineFile backup(service.Options().Controller.Machines);
    backup.Load(other, xdPlaces);
    others = ViewProperties(backup.Config(), false);
  }
  TApiReply reply;
  reply.Body = {{"from", other}, {"to", FileOf(service).string()}, {"differences", JsonOf(Differences(others, views))}};
  return reply;
}

TApiReply SetConfig(TService& service, const TApiRequest& request) {
  const auto text = [&](const char* name) {
    const auto found = request.Body.is_object() ? request.Body.find(name) : request.Body.end();
    return found != request.Body.end() && found->is_string() ? found->get<std::string>() : std::string();
  };
  const auto value =
      request.Body.is_object() && request.Body.contains("value") ? ValueOf(request.Body["value"]) : std::nullopt;
  const std::string version = Bare(request.IfMatch.empty() ? text("version") : request.IfMatch);
  if (!value || version.empty())
    throw EProblem(
        pbRequest,
        TProblem{.What = Tr("expected {\"value\": a number, a text or a Boolean, \"version\": \"...\"}"),
                 .Remedy = Tr("the version is that of the answer that the value was read from; \"*\": any")});
  const bool force = request.Body.contains("force") && request.Body["force"] == true;
  RefuseConfigWhileRunning(service);
  TLiveConfig live = Live(service);
  if (const std::string present = live.Version().OrThrow(pbUnusable); version != "*" && version != present) {
    TApiReply reply = Fail(412, {.What = Tr("the machine file has changed since it was read"),
                                 .Where = live.File().string(),
                                 .Why = {},
                                 .Remedy = Tr("read it again and repeat what was done")});
    reply.ETag = Quoted(present);
    return reply;
  }
  const std::string& path = request.Params.at("path");
  const TLiveConfig::TSet done = live.Set(path, *value, force);
  {
    const TLanguageScope own("");
    LogMsg(lkInfo, 0,
           Format(Tr("%s sets %s from %s to %s"), request.Who.Name.c_str(), done.View.Path.c_str(), done.Before.c_str(),
                  done.View.Value.c_str()),
           "TPHost");
  }
  ConfigHistoryOf(service).Add({.Who = request.Who.Name,
                                .What = done.Wrong.empty() ? "set" : "forced",
                                .Path = done.View.Path,
                                .From = done.Before,
                                .To = done.View.Value});
  TApiReply reply;
  reply.Body = JsonFacts(done.View);
  reply.Body["value"] = JsonOf(done.View, done.View.Value);
  reply.Body["before"] = JsonOf(done.View, done.Before);
  reply.Body["wrong"] = JsonOf(done.Wrong);
  reply.Body["inForce"] = done.Now ? "now" : "next start";
  if (!done.Unsure.empty()) reply.Body["unsure"] = done.Unsure;
  AddVersion(reply, live);
  return reply;
}

TApiReply RestoreConfig(TService& service, const TApiRequest& request) {
  RefuseConfigWhileRunning(service);
  TLiveConfig live = Live(service);
  const std::string kept = live.Restore();
  if (!kept.empty()) {
    const TLanguageScope own("");
    LogMsg(lkInfo, 0, Format(Tr("%s puts the previous version of the machine file back"), request.Who.Name.c_str()),
           "TPHost");
    ConfigHistoryOf(service).Add({.Who = request.Who.Name,
                                  .What = "restored",
                                  .Path = live.File().string(),
                                  .From = kept,
                                  .To = live.File().string() + std::string(TXmlConfig::kBackupSuffix)});
  }
  TApiReply reply;
  reply.Body = {{"file", live.File().string()}, {"restored", !kept.empty()}, {"kept", kept}};
  AddVersion(reply, live);
  return reply;
}

constexpr TApiRoute kConfigRoutes[] = {
    {"GET", "/api/v1/config", roNone, false, false, &ShowConfig, "The values of the machine file", true},
    {"GET", "/api/v1/config/schema", roNone, false, false, &ConfigSchema, "What the machine file may hold", true},
    {"GET", "/api/v1/config/check", roNone, false, false, &CheckConfig, "What is wrong in the machine file", true},
    {"GET", "/api/v1/config/history", roNone, false, false, &ConfigChanges, "Who has changed what in the machine file",
     true},
    {"GET", "/api/v1/config/diff", roNone, false, false, &DiffConfig,
     "What differs from the previous version or the defaults", true},
    {"PUT", "/api/v1/config/{path...}", roOperator, false, true, &SetConfig,
     "Set one property and save the machine file"},
    {"POST", "/api/v1/config/restore", roOperator, false, true, &RestoreConfig,
     "Put the previous version of the machine file back"},
};

}  // namespace

std::span<const TApiRoute> ConfigRoutes() { return kConfigRoutes; }

}  // namespace ixocontroller
