#include "controller/wire/Dispatch.h"

#include <utility>

#include "controller/process/RealTime.h"
#include "ixocamglue/platform/services/LocaleManager.h"
#include "ixocamglue/support/Files.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

// What the wire answers itself.
constexpr std::string_view kEventsPath = "/api/v1/events";
constexpr std::string_view kOpenApiPath = "/api/v1/openapi.json";
constexpr std::string_view kSessionPath = "/api/v1/session";

constexpr std::size_t kMostKey = 200;  // bytes of an Idempotency-Key

// What stops: it goes through for whoever is at this machine, and as often as it is sent.
bool StopsMachine(const TApiRequest& request) {
  return request.Method == "POST" && (request.Path == "/api/v1/stop" || request.Path == "/api/v1/all-off");
}

bool IsOwn(std::string_view path) { return path == kEventsPath || path == kOpenApiPath || TPages::Owns(path); }

// What a path has, for Allow; empty: there is no such path.
std::string MethodsOf(std::string_view path) {
  std::string methods;
  std::map<std::string, std::string> params;
  bool known = false;
  for (const char* const method : {"GET", "POST", "PUT", "DELETE"}) {
    const bool has =
        IsOwn(path) ? method == std::string_view("GET") : TApi::Find(method, path, params, known) != nullptr;
    if (!has) continue;
    AddToList(methods, method);
    if (methods == "GET") methods += ", HEAD";
  }
  return methods;
}

TWireReply WrongMethod(const TApiRequest& request, std::string allowed) {
  TWireReply reply =
      Refuse(405, {.What = Tr("the path has no such method"), .Where = request.Method + " " + request.Path});
  reply.Allow = std::move(allowed);
  return reply;
}

}  // namespace

struct TWireDispatch::TAsked {
  TPeer Peer;
  TApiRequest Request;
  const TApiRoute* Route = nullptr;  // null: the wire answers itself, or it is refused
};

TWireDispatch::TWireDispatch(TApi& api, TService& service, TDispatchOptions options)
    : FApi(api), FService(service), FOptions(std::move(options)), FPages(FOptions.Pages) {
  if (FOptions.OpenApi.empty()) return;
  if (TResult<std::string> text = ReadFile(FOptions.OpenApi)) FOpenApi = *std::move(text);
}

void TWireDispatch::Serve(const TPeer& peer, const TWireRequest& request, TReplies replies) {
  TAsked asked{.Peer = peer, .Request = {}, .Route = nullptr};
  asked.Request.Language = RequestLanguage(request.AcceptLanguage);
  const TLanguageScope scope(asked.Request.Language);
  std::optional<TWireReply> refused = Check(request, asked);
  if (IsCommand(request.Method)) {
    // Who, what and what became of it; a repeated one is logged again, as it was asked again.
    replies.Answer = [peer, who = asked.Request.Who, method = asked.Request.Method, path = asked.Request.Path,
                      answer = std::move(replies.Answer)](TWireReply reply) {
      TAccess::LogCommand(who, peer, method, path, reply.Status);
      answer(std::move(reply));
    };
  }
  if (refused) return replies.Answer(std::move(*refused));
  if (asked.Request.Path == kEventsPath && request.Method == "GET") return Follow(asked, request, replies);
  if (asked.Request.Path == kEventsPath) return replies.Answer({.Status = 200, .Body = {}, .ContentType = kEventsType});
  if (asked.Request.Path == kOpenApiPath) return replies.Answer(OpenApi());
  if (TPages::Owns(asked.Request.Path)) return replies.Answer(FPages.Answer(asked.Request.Path, request.IfNoneMatch));
  if (!request.IdempotencyKey.empty() && request.Method == "POST" && !StopsMachine(asked.Request))
    return ServeOnce(std::move(asked), request, std::move(replies.Answer));
  Ask(std::move(asked), std::move(replies.Answer));
}

// --- may it be asked ---

std::optional<TWireReply> TWireDispatch::Check(const TWireRequest& request, TAsked& asked) {
  TApiRequest& api = asked.Request;
  api.Method = request.Method == "HEAD" ? "GET" : request.Method;
  api.IdempotencyKey = request.IdempotencyKey;
  api.IfMatch = request.IfMatch;
  api.Lease = request.Lease;
  api.Who = TAccess::Stranger(asked.Peer);
  if (auto refused = CheckHost(request, FOptions.Hosts)) return refused;
  if (auto refused = ReadTarget(request.Target, api)) return refused;
  // Who exchanges a link's code is nobody yet, and so is who reads the page that does it.
  const bool exchanges = api.Path == kSessionPath && api.Method == "POST";
  if (!exchanges && !TPages::Owns(api.Path))
    if (auto refused = CheckWho(request, asked)) return refused;
  bool known = false;
  const bool own = IsOwn(api.Path) && api.Method == "GET";
  const TApiRoute* const route = own ? nullptr : TApi::Find(api.Method, api.Path, api.Params, known);
  asked.Route = route;
  if (!own && !route) {
    std::string methods = MethodsOf(api.Path);
    if (methods.empty()) return Refuse(404, {.What = Tr("there is no such path"), .Where = api.Path});
    if (api.Method != "OPTIONS") return WrongMethod(api, std::move(methods));
    TWireReply reply;
    reply.Status = 204;
    reply.Allow = std::move(methods);
    return reply;
  }
  if (auto refused = CheckOrigin(request)) return refused;
  if (route && api.Who.Role < route->Role && api.Who.By == kbNothing)
    return Refuse(401, {.What = Format(Tr("this needs a token of the role %s"), RoleWord(route->Role)),
                        .Where = api.Method + " " + api.Path,
                        .Why = {},
                        .Remedy = Tr("send one as \"Authorization: Bearer TOKEN\", or ask on the Unix socket")});
  if (request.IdempotencyKey.size() > kMostKey)
    return Refuse(400, {.What = Format(Tr("the key is longer than %zu bytes"), kMostKey), .Where = "Idempotency-Key"});
  return ReadBody(request, api);
}

std::optional<TWireReply> TWireDispatch::CheckWho(const TWireRequest& request, TAsked& asked) {
  TJudged judged = FService.Access().Judge(asked.Peer, request.Authorization, request.Cookie);
  if (judged.Ok()) {
    asked.Request.Who = std::move(judged.Who);
    return std::nullopt;
  }
  if (asked.Peer.IsLocal() && StopsMachine(asked.Request)) {
    asked.Request.Who.Role = roViewer;
    return std::nullopt;
  }
  TWireReply refused = Refuse(judged.Status, judged.Problem);
  refused.RetryAfterS = judged.RetryAfterS;
  return refused;
}

// --- who answers ---

void TWireDispatch::Follow(const TAsked& asked, const TWireRequest& request, const TReplies& replies) {
  TResult<TFeedWish> wish = ReadFeedWish(asked.Request.Query);
  if (!wish) return replies.Answer(Refuse(400, wish.Problem()));
  wish->Language = asked.Request.Language;
  replies.Follow(std::move(*wish), [this, peer = asked.Peer, by = asked.Request.Who.By,
                                    authorization = request.Authorization, cookie = request.Cookie] {
    const TJudged now = FService.Access().Judge(peer, authorization, cookie);
    return now.Ok() && now.Who.By == by;
  });
}

void TWireDispatch::ServeOnce(TAsked asked, const TWireRequest& request, TAnswer answer) {
  const std::string key = asked.Request.Who.Name + "\n" + request.IdempotencyKey;
  switch (FOnce.Ask(key, request.Target + "\n" + request.Body, RealMs(), answer)) {
    case TAnsweredOnce::TFound::aoAgain: return;
    case TAnsweredOnce::TFound::aoOther:
      return answer(Refuse(422, {.What = Tr("this key was sent with another request before"),
                                 .Where = "Idempotency-Key",
                                 .Why = {},
                                 .Remedy = Tr("each request has a key of its own")}));
    case TAnsweredOnce::TFound::aoNew: break;
  }
  Ask(std::move(asked), [this, key, answer = std::move(answer)](TWireReply reply) {
    FOnce.Answer(key, reply);
    answer(std::move(reply));
  });
}

void TWireDispatch::Ask(TAsked asked, TAnswer answer) {
  // Answered on whatever thread, perhaps when this is no more.
  FApi.Handle(*asked.Route, std::move(asked.Request),
              [answer = std::move(answer), back = FOptions.OnWireThread](TApiReply reply) {
                back([answer, wire = ToWire(std::move(reply))]() mutable { answer(std::move(wire)); });
              });
}

TWireReply TWireDispatch::OpenApi() const {
  if (FOpenApi.empty())
    return Refuse(404, {.What = Tr("the description is not installed"), .Where = FOptions.OpenApi.string()});
  TWireReply reply;
  reply.ContentType = kJsonType;
  reply.Body = FOpenApi;
  return reply;
}

}  // namespace ixocontroller
