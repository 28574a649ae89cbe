// The links to devices, and what the doctor finds on one of them.
#include "controller/api/Api.h"
#include "controller/api/Body.h"
#include "controller/links/LinkDesk.h"

namespace ixocontroller {
namespace {

TApiReply ShowLinks(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Body = service.Links().Json();
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

constexpr TApiRoute kLinksRoutes[] = {
    {"GET", "/api/v1/links", roNone, false, true, &ShowLinks, "The links to devices, and the last examination of one"},
    {"POST", "/api/v1/links/{name}/doctor", roOperator, true, true, &Examine, "Examine a link; its findings follow"},
};

}  // namespace

std::span<const TApiRoute> LinksRoutes() { return kLinksRoutes; }

}  // namespace ixocontroller
