// What can be asked of a controller, and what is answered: one table of routes, JSON in and out. It knows no socket.
// Which thread runs what stands at each route; what a route throws is its answer.
#pragma once

#include <exception>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/service/Service.h"

namespace ixocontroller {

struct TApiRequest {
  std::string Method, Path;                   // "POST", "/api/v1/runs"
  std::map<std::string, std::string> Query;   // decoded
  std::map<std::string, std::string> Params;  // what "{id}" in the route stood for; filled in by TApi
  nlohmann::json Body;                        // null: none
  TAsker Who;
  std::string Language;  // "zh" or "en"
  std::string IdempotencyKey, IfMatch;
  std::string Lease;  // the id that the request shows
};

struct TApiReply;
using TApiAnswer = std::function<void(TApiReply)>;

struct TApiReply {
  int Status = 200;
  nlohmann::ordered_json Body;    // of Fail a problem by RFC 9457, application/problem+json
  std::string Text, ContentType;  // Text: where Body is null; ContentType: empty for a Body of application/json
  std::string ETag;               // with its quotation marks
  std::string SetCookie;
  std::uint32_t RetryAfterS = 0;  // with 429
  bool Leased = false;            // the asker has the lease of control
  // Instead of all that: begins what waits for a disk, and answers behind it. What it throws is the answer. Of routes
  // on the interface thread, and called there.
  std::function<void(TApiAnswer)> Later;
};

struct TApiRoute {
  const char* Method;
  const char* Path;  // "/api/v1/runs/{id}"; "{path...}" takes the rest of the path
  TRole Role;        // the least; roNone: free for reading from this machine
  bool Lease;        // only who has the lease
  bool OnInterface;  // on the interface thread; else on the caller's, where it reads the status and posts
  TApiReply (*Run)(TService& service, const TApiRequest& request);
  const char* Summary;  // one line of the OpenAPI document; English
  // On the thread for what waits for a disk, where it calls what any thread may call; not with OnInterface or Lease.
  bool OnFiles = false;
};

class TApi {
 public:
  explicit TApi(TService& service) : FService(service) {}

  // Any thread. `answer` is called once, on the caller's thread or one of the service's; it must not wait. Who
  // has not the role that the route needs is refused with 403, and who shows no lease where it is needed with 409.
  void Handle(TApiRequest request, TApiAnswer answer);
  // The same where Find has found the route, and filled in the request's Params.
  void Handle(const TApiRoute& route, TApiRequest request, TApiAnswer answer);
  // The route of a request; null: none. `known`: another method has this path.
  [[nodiscard]] static const TApiRoute* Find(std::string_view method, std::string_view path,
                                             std::map<std::string, std::string>& params, bool& known);
  [[nodiscard]] static std::span<const TApiRoute> Routes();

 private:
  TService& FService;
};

// {"type","title","status","detail","what","where","why","remedy"}
[[nodiscard]] TApiReply Fail(int status, const TProblem& problem);
// 400, 409 or 503, as it is to be blamed; what is no EProblem: 500.
[[nodiscard]] TApiReply Fail(const std::exception_ptr& failed);

// What somebody without the role is told; for Fail(403).
[[nodiscard]] TProblem NeedsRole(TRole role, const TAsker& who);

// Of each subject, in its own file.
[[nodiscard]] std::span<const TApiRoute> StatusRoutes();
[[nodiscard]] std::span<const TApiRoute> ControlRoutes();
[[nodiscard]] std::span<const TApiRoute> RunsRoutes();
[[nodiscard]] std::span<const TApiRoute> AccessRoutes();
[[nodiscard]] std::span<const TApiRoute> HistoryRoutes();
[[nodiscard]] std::span<const TApiRoute> QueueRoutes();
[[nodiscard]] std::span<const TApiRoute> AlarmsRoutes();
[[nodiscard]] std::span<const TApiRoute> ConfigRoutes();
[[nodiscard]] std::span<const TApiRoute> PanelRoutes();
[[nodiscard]] std::span<const TApiRoute> GasRoutes();
[[nodiscard]] std::span<const TApiRoute> RecordingsRoutes();
[[nodiscard]] std::span<const TApiRoute> LinksRoutes();
[[nodiscard]] std::span<const TApiRoute> LogRoutes();

}  // namespace ixocontroller
