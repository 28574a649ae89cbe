// The links to devices, what the doctor finds on one of them, and the registers that somebody watches.
#include "controller/api/Api.h"
#include "controller/api/Body.h"
#include "controller/links/LinkDesk.h"
#include "ixocamglue/config/Uassistconfig.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Nearest.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

TApiReply ShowLinks(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body = service.Links().Json();
  reply.Body["ports"] = PortsJson(service.Controller().Machine().PortFacts());
  return reply;
}

TApiReply Examine(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"unit", "addr"});
  const auto unit = body.Has("unit") ? body.Whole("unit", 1, 255) : 1;
  std::optional<std::uint16_t> addr;
  if (body.Has("addr")) addr = static_cast<std::uint16_t>(body.Whole("addr", 0, 0xFFFE));
  service.Links()
      .Examine(request.Params.at("name"), static_cast<std::uint8_t>(unit), addr, request.Language)
      .OrThrow(pbRefused);
  TApiReply reply;
  reply.Status = 202;
  reply.Body = service.Links().ExaminationJson();
  return reply;
}

TWatchTable TableOf(const std::string& word) {
  TNearestName nearest(word);
  std::string all;
  for (const TWatchTable& table : kWatchTables) {
    if (word == table.Word) return table;
    nearest.Consider(table.Word);
    AddToList(all, table.Word);
  }
  throw EProblem(pbRequest, TProblem{.What = Format(Tr("\"%s\" is no table of a device"), word.c_str()),
                                     .Where = "table",
                                     .Remedy = nearest.DidYouMean(Format(Tr("the tables are %s"), all.c_str()))});
}

// What is watched of this link; "watched" is null where nothing is.
TApiReply ShowWatch(TService& service, const TApiRequest& request) {
  const std::string name =
      FindLink(ConfiguredLinks(FModbusStoreCfg), request.Params.at("name")).OrThrow(pbRefused).Name;
  TLinkWatch& watch = service.Links().Watched();
  TApiReply reply;
  reply.Body["watched"] = nullptr;
  if (watch.Busy() == name) reply.Body["watched"] = watch.Json();
  return reply;
}

TApiReply Watch(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"unit", "table", "addr", "count", "everyMs"});
  TWatched watched;
  if (body.Has("unit")) watched.Unit = static_cast<std::uint8_t>(body.Whole("unit", 1, 255));
  if (body.Has("table")) watched.Table = TableOf(body.Text("table"));
  if (body.Has("addr")) watched.Addr = static_cast<std::uint16_t>(body.Whole("addr", 0, 0xFFFF));
  if (body.Has("count")) watched.Count = static_cast<std::uint16_t>(body.Whole("count", 1, TLinkWatch::kMostCount));
  if (body.Has("everyMs"))
    watched.EveryMs = static_cast<std::uint32_t>(body.Whole("everyMs", TLinkWatch::kLeastMs, TLinkWatch::kMostMs));
  if (watched.Addr + std::uint32_t{watched.Count} > kModbusAddresses)
    throw EProblem(pbRequest, TProblem{.What = Tr("the range goes beyond address 65535"), .Where = "count"});
  service.Links().Watch(request.Params.at("name"), std::move(watched)).OrThrow(pbRefused);
  return ShowWatch(service, request);
}

TApiReply EndWatch(TService& service, const TApiRequest& request) {
  if (service.Links().Watched().Busy() == request.Params.at("name")) service.Links().Watched().End();
  return ShowWatch(service, request);
}

constexpr TApiRoute kLinksRoutes[] = {
    {"GET", "/api/v1/links", roNone, false, true, &ShowLinks, "The links to devices, and the last examination of one"},
    {"POST", "/api/v1/links/{name}/doctor", roOperator, true, true, &Examine, "Examine a link; its findings follow"},
    {"GET", "/api/v1/links/{name}/watch", roOperator, false, true, &ShowWatch,
     "The registers of a link that are watched; looking keeps that up"},
    {"POST", "/api/v1/links/{name}/watch", roOperator, false, true, &Watch,
     "Read registers of a link again and again while somebody looks"},
    {"DELETE", "/api/v1/links/{name}/watch", roOperator, false, true, &EndWatch, "Watch no register any more"},
};

}  // namespace

std::span<const TApiRoute> LinksRoutes() { return kLinksRoutes; }

}  // namespace ixocontroller
