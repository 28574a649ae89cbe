// A request as it came and an answer as it goes, and everything that is looked at before the controller is asked. It
// knows no socket and no time; any thread. Problems are in the language of the thread's TLanguageScope.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/api/Api.h"

namespace ixocontroller {

inline constexpr const char* kJsonType = "application/json";
inline constexpr const char* kEventsType = "text/event-stream";
inline constexpr std::size_t kMostDepth = 64;  // of a body's arrays and objects

struct TWireRequest {
  std::string Method, Target, Body;
  // Values of headers; empty: there is none.
  std::string Host, Authorization, Cookie, Origin, FetchSite, ContentType, AcceptLanguage, IdempotencyKey, IfMatch,
      IfNoneMatch, Lease, LastEventId;
};

struct TWireReply {
  int Status = 200;
  std::string Body, ContentType, ETag, Allow, SetCookie;
  std::string Policy;  // of a page: Content-Security-Policy; the browser may keep it, and asks whether it is the same
  std::uint32_t RetryAfterS = 0;
  bool Close = false;   // the connection ends behind it
  bool Leased = false;  // to who has the lease of control
};
[[nodiscard]] TWireReply ToWire(TApiReply reply);
[[nodiscard]] TWireReply Refuse(int status, const TProblem& problem);

// Names that this controller is asked under; a page of another name must not reach it through a name server's help.
class TWireHosts {
 public:
  // Beside 127.0.0.1, localhost and [::1].
  explicit TWireHosts(std::vector<std::string> names = {});
  [[nodiscard]] bool Knows(std::string_view host) const;  // with or without a port

 private:
  std::vector<std::string> FNames;
};

// What changes something, or may: whatever only reads is GET or HEAD.
[[nodiscard]] bool IsCommand(std::string_view method);

// Each answers why the request is refused, or nothing.
[[nodiscard]] std::optional<TWireReply> CheckHost(const TWireRequest& request, const TWireHosts& hosts);
// That a page which commands is this controller's own.
[[nodiscard]] std::optional<TWireReply> CheckOrigin(const TWireRequest& request);
// Path and query of `into`, decoded.
[[nodiscard]] std::optional<TWireReply> ReadTarget(std::string_view target, TApiRequest& into);
[[nodiscard]] std::optional<TWireReply> ReadBody(const TWireRequest& request, TApiRequest& into);

}  // namespace ixocontroller
