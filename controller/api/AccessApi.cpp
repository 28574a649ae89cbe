// Tokens, the console's links and sessions, and the lease of control.
#include "controller/api/Api.h"
#include "controller/api/Body.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::uint32_t kTokenWaitMs = 100;  // for a command that changes the tokens at this moment

TApiReply Refused(const TProblem& problem) { return Fail(409, problem); }

std::optional<TApiReply> MayManageTokens(const TAsker& who) {
  if (who.By == kbUser || who.Role >= roService) return std::nullopt;
  return Fail(403, {.What = Tr("tokens are managed by the controller's own user, or with the role service"),
                    .Why = Format(Tr("%s has the role %s"), who.Name.c_str(), RoleWord(who.Role)),
                    .Remedy = Tr("use \"ixocut token\" on the controller's machine")});
}

TApiReply ListTokens(TService& service, const TApiRequest& request) {
  if (auto refused = MayManageTokens(request.Who)) return *refused;
  const auto tokens = service.Access().Tokens().List();
  if (!tokens) return Fail(503, tokens.Problem());
  TApiReply reply;
  reply.Body["tokens"] = TJson::array();
  for (const TToken& token : *tokens)
    reply.Body["tokens"].push_back({{"name", token.Name}, {"role", RoleWord(token.Role)}, {"created", token.Created}});
  return reply;
}

TApiReply AddToken(TService& service, const TApiRequest& request) {
  if (auto refused = MayManageTokens(request.Who)) return *refused;
  const TAskedBody body(request, {"name", "role"});
  const std::string name = body.Text("name");
  const TRole role = RoleOf(body.Text("role")).OrThrow(pbRequest);
  const auto token = service.Access().Tokens().Add(name, role, kTokenWaitMs);
  if (!token) return Refused(token.Problem());
  TApiReply reply;
  reply.Status = 201;
  reply.Body = {{"name", name}, {"role", RoleWord(role)}, {"token", *token}};
  return reply;
}

TApiReply RevokeToken(TService& service, const TApiRequest& request) {
  if (auto refused = MayManageTokens(request.Who)) return *refused;
  const std::string& name = request.Params.at("name");
  if (const auto revoked = service.Access().Tokens().Revoke(name, kTokenWaitMs); !revoked)
    return Refused(revoked.Problem());
  TApiReply reply;
  reply.Body["name"] = name;
  return reply;
}

TApiReply MakeCode(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"role"});
  const TRole role =
      body.Has("role") ? RoleOf(body.Text("role")).OrThrow(pbRequest) : std::min(request.Who.Role, roOperator);
  if (role > request.Who.Role && request.Who.By != kbUser)
    return Fail(403, {.What = Format(Tr("a link has at most the role %s"), RoleWord(request.Who.Role))});
  const std::string code = service.Access().MakeCode(role);
  TApiReply reply;
  reply.Status = 201;
  reply.Body = {{"code", code},
                {"role", RoleWord(role)},
                {"seconds", TConsoleCodes::kCodeMs / 1000},
                {"link", service.Access().Link(code)}};
  return reply;
}

TApiReply OpenSession(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"code"});
  TAccess::TLogin login = service.Access().Exchange(request.Who, body.Text("code"));
  TApiReply reply = login.Status == 200 ? TApiReply() : Fail(login.Status, login.Problem);
  reply.RetryAfterS = login.RetryAfterS;
  if (login.Status != 200) return reply;
  reply.SetCookie = std::move(login.SetCookie);
  reply.Body = {{"name", "console " + std::to_string(login.Session.Number)}, {"role", RoleWord(login.Session.Role)}};
  return reply;
}

const char* KnownByWord(TKnownBy by) {
  switch (by) {
    case kbNothing: return "nothing";
    case kbUser: return "user";
    case kbToken: return "token";
    case kbSession: return "session";
  }
  return "";
}

TApiReply ShowSession(TService&, const TApiRequest& request) {
  const TAsker& who = request.Who;
  TApiReply reply;
  reply.Body = {{"name", who.Name}, {"role", RoleWord(who.Role)}, {"by", KnownByWord(who.By)}, {"local", who.Local}};
  return reply;
}

TApiReply EndSession(TService& service, const TApiRequest& request) {
  TAccess::TLogout logout = service.Access().EndSession(request.Who);
  TApiReply reply;
  reply.SetCookie = std::move(logout.SetCookie);
  reply.Body = {{"ended", logout.Ended}};
  return reply;
}

// --- the lease ---

TApiReply LeaseReply(TLease& lease, const std::string& id) {
  const std::uint64_t now = RealMs();
  TApiReply reply;
  reply.Leased = !id.empty();
  reply.Body = {{"lease", id},
                {"holder", lease.Holder() ? TJson(lease.Holder()->Name) : TJson()},
                {"leftMs", lease.LeftMs(now)},
                {"serverMs", now}};
  return reply;
}

// Asking renews nothing.
TApiReply ShowLease(TService& service, const TApiRequest& request) {
  TLease& lease = service.Lease();
  lease.Watch(RealMs());
  return LeaseReply(lease, lease.Has(request.Lease) ? request.Lease : std::string());
}

TApiReply TakeLease(TService& service, const TApiRequest& request) {
  const bool takeOver = TAskedBody(request, {"takeOver"}).Flag("takeOver", false);
  const auto id = service.Lease().Take(request.Who, request.Lease, takeOver, RealMs());
  return id ? LeaseReply(service.Lease(), *id) : Refused(id.Problem());
}

TApiReply RenewLease(TService& service, const TApiRequest& request) {
  return LeaseReply(service.Lease(), request.Lease);
}

TApiReply GiveLeaseBack(TService& service, const TApiRequest& request) {
  if (const auto given = service.Lease().GiveBack(request.Lease, RealMs()); !given) return Refused(given.Problem());
  return LeaseReply(service.Lease(), {});
}

constexpr TApiRoute kAccessRoutes[] = {
    {"GET", "/api/v1/tokens", roOperator, false, false, &ListTokens, "The tokens' names and roles", true},
    {"POST", "/api/v1/tokens", roOperator, false, false, &AddToken, "Make a token, which is shown once", true},
    {"DELETE", "/api/v1/tokens/{name}", roOperator, false, false, &RevokeToken, "End a token", true},
    {"POST", "/api/v1/session/code", roOperator, false, false, &MakeCode, "Make a link to the console, good once"},
    {"POST", "/api/v1/session", roNone, false, false, &OpenSession, "Exchange a link's code for a session"},
    {"GET", "/api/v1/session", roNone, false, false, &ShowSession, "Who asks: name and role, and what he is known by"},
    {"DELETE", "/api/v1/session", roNone, false, false, &EndSession, "End the session that asks"},
    {"GET", "/api/v1/lease", roNone, false, true, &ShowLease, "Who has the lease of control"},
    {"POST", "/api/v1/lease", roOperator, false, true, &TakeLease, "Take the lease of control, or take it over"},
    {"POST", "/api/v1/lease/heartbeat", roOperator, true, true, &RenewLease, "Renew the lease"},
    {"DELETE", "/api/v1/lease", roOperator, true, true, &GiveLeaseBack, "Give the lease back"},
};

}  // namespace

std::span<const TApiRoute> AccessRoutes() { return kAccessRoutes; }

}  // namespace ixocontroller
