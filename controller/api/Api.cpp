#include "controller/api/Api.h"

#include <exception>
#include <optional>
#include <unordered_map>
#include <utility>

#include "controller/process/RealTime.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocontroller {
namespace {

const char* TitleOf(int status) {
  switch (status) {
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 409: return "Conflict";
    case 412: return "Precondition Failed";
    case 413: return "Content Too Large";
    case 415: return "Unsupported Media Type";
    case 421: return "Misdirected Request";
    case 429: return "Too Many Requests";
    case 503: return "Service Unavailable";
    default: return "Error";
  }
}

std::string_view Head(std::string_view& path) {
  const std::size_t slash = path.find('/');
  const std::string_view head = path.substr(0, slash);
  path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  return head;
}

bool Fits(std::string_view pattern, std::string_view path, std::map<std::string, std::string>& params) {
  params.clear();
  while (!pattern.empty() && !path.empty()) {
    const std::string_view all = path;
    const std::string_view part = Head(pattern);
    const std::string_view text = Head(path);
    if (!part.starts_with('{')) {
      if (part != text) return false;
    } else if (part.ends_with("...}")) {
      return params.emplace(part.substr(1, part.size() - 5), all), true;
    } else {
      params.emplace(part.substr(1, part.size() - 2), text);
    }
  }
  return pattern.empty() && path.empty();
}

// Null: it is answered later.
std::optional<TApiReply> ReplyOf(const TApiRoute& route, TService& service, const TApiRequest& request,
                                 const TApiAnswer& answer) {
  if (route.Lease)
    if (const auto admitted = service.Lease().Admit(request.Lease, RealMs()); !admitted)
      return Fail(409, admitted.Problem());
  TApiReply reply = route.Run(service, request);
  reply.Leased = reply.Leased || route.Lease;
  if (!reply.Later) return reply;
  reply.Later([answer, leased = route.Lease](TApiReply later) {
    later.Leased = leased && later.Status < 400;
    answer(std::move(later));
  });
  return std::nullopt;
}

void RunRoute(const TApiRoute& route, TService& service, const TApiRequest& request, const TApiAnswer& answer) {
  const TLanguageScope language(request.Language);
  std::optional<TApiReply> reply;
  try {
    reply = ReplyOf(route, service, request, answer);
  } catch (...) {
    reply = Fail(std::current_exception());
  }
  if (reply) answer(*std::move(reply));
}

}  // namespace

TProblem NeedsRole(TRole role, const TAsker& who) {
  return {.What = Format(Tr("this needs the role %s"), RoleWord(role)),
          .Why = Format(Tr("%s has the role %s"), who.Name.c_str(), RoleWord(who.Role)),
          .Remedy = Tr("send a token of that role, or open the console by a new link: \"ixocut console\"")};
}

TApiReply Fail(int status, const TProblem& problem) {
  TApiReply reply;
  reply.Status = status;
  reply.ContentType = "application/problem+json";
  reply.Body = {{"type", "about:blank"}, {"title", TitleOf(status)}, {"status", status},   {"detail", problem.Text()},
                {"what", problem.What},  {"where", problem.Where},   {"why", problem.Why}, {"remedy", problem.Remedy}};
  return reply;
}

TApiReply Fail(const std::exception_ptr& failed) try {
  std::rethrow_exception(failed);
} catch (const EProblem& problem) {
  switch (problem.Blame) {
    case pbRequest: return Fail(400, problem.Problem);
    case pbRefused: return Fail(409, problem.Problem);
    case pbUnusable: break;
  }
  return Fail(503, problem.Problem);
} catch (...) {
  return Fail(500, {.What = DescribeException(failed)});
}

std::span<const TApiRoute> TApi::Routes() {
  static const std::vector<TApiRoute> routes = [] {
    std::vector<TApiRoute> all;
    for (const auto of :
         {&StatusRoutes, &ControlRoutes, &RunsRoutes, &AccessRoutes, &AlarmsRoutes, &ConfigRoutes, &HistoryRoutes,
          &QueueRoutes, &PanelRoutes, &GasRoutes, &RecordingsRoutes, &LinksRoutes, &LogRoutes})
      for (const TApiRoute& route : of()) all.push_back(route);
    return all;
  }();
  return routes;
}

// A path that is spelled out goes before one with a place for a name.
const TApiRoute* TApi::Find(std::string_view method, std::string_view path, std::map<std::string, std::string>& params,
                            bool& known) {
  static const std::unordered_multimap<std::string_view, const TApiRoute*> spelled = [] {
    std::unordered_multimap<std::string_view, const TApiRoute*> all;
    for (const TApiRoute& route : Routes())
      if (std::string_view(route.Path).find('{') == std::string_view::npos) all.emplace(route.Path, &route);
    return all;
  }();
  const auto [first, last] = spelled.equal_range(path);
  for (auto it = first; it != last; ++it) {
    if (method != it->second->Method) continue;
    params.clear();
    known = true;
    return it->second;
  }
  const TApiRoute* found = nullptr;
  known = false;
  for (const TApiRoute& route : Routes()) {
    std::map<std::string, std::string> named;
    if (!Fits(route.Path, path, named)) continue;
    known = true;
    if (method != route.Method || (found && named.size() >= params.size())) continue;
    found = &route;
    params = std::move(named);
  }
  return found;
}

void TApi::Handle(TApiRequest request, TApiAnswer answer) {
  const TLanguageScope language(request.Language);
  bool known = false;
  const TApiRoute* const route = Find(request.Method, request.Path, request.Params, known);
  if (!route)
    return answer(
        known ? Fail(405, {.What = Tr("the path has no such method"), .Where = request.Method + " " + request.Path})
              : Fail(404, {.What = Tr("there is no such path"), .Where = request.Path}));
  Handle(*route, std::move(request), std::move(answer));
}

void TApi::Handle(const TApiRoute& route, TApiRequest request, TApiAnswer answer) {
  const TLanguageScope language(request.Language);
  if (request.Who.Role < route.Role) return answer(Fail(403, NeedsRole(route.Role, request.Who)));
  if (!route.OnInterface && !route.OnFiles) return RunRoute(route, FService, request, answer);
  const auto asked = std::make_shared<TApiRequest>(std::move(request));
  const auto told = std::make_shared<TApiAnswer>(std::move(answer));
  const auto run = [&service = FService, &route, asked, told] { RunRoute(route, service, *asked, *told); };
  if (!(route.OnFiles ? FService.PostFiles(run) : FService.Post(run)))
    (*told)(Fail(503, {.What = Tr("the controller is ending")}));
}

}  // namespace ixocontroller
