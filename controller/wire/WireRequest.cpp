#include "controller/wire/WireRequest.h"

#include <algorithm>
#include <utf8.h>
#include <utility>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::size_t kMostQueries = 64;

bool IsUtf8(std::string_view text) { return utf8::is_valid(text.begin(), text.end()); }

// Without the port; "[::1]:8620" is "[::1]".
std::string_view WithoutPort(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  if (colon == std::string_view::npos || host.find(']', colon) != std::string_view::npos) return host;
  const std::string_view port = host.substr(colon + 1);
  return port.empty() || ParseExactly<std::uint16_t>(port) ? host.substr(0, colon) : host;
}

// False: a sign that is no two hexadecimal digits, a control character, or no UTF-8.
bool Decode(std::string_view text, bool plusIsBlank, std::string& into) {
  into.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (text.size() - i < 3) return false;
      const auto byte = ParseExactly<std::uint8_t>(text.substr(i + 1, 2), 16);
      if (!byte) return false;
      c = static_cast<char>(*byte);
      i += 2;
    } else if (c == '+' && plusIsBlank) {
      c = ' ';
    }
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
    into += c;
  }
  return IsUtf8(into);
}

bool ReadQuery(std::string_view query, std::map<std::string, std::string>& into) {
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view item = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    if (item.empty()) continue;
    const std::size_t equals = std::min(item.find('='), item.size());
    std::string name;
    std::string value;
    if (!Decode(item.substr(0, equals), true, name) ||
        !Decode(item.substr(std::min(equals + 1, item.size())), true, value))
      return false;
    // A name that stands twice would mean one thing here and another elsewhere.
    if (into.size() >= kMostQueries || !into.emplace(std::move(name), std::move(value)).second) return false;
  }
  return true;
}

// Whether arrays and objects stand in one another deeper than kMostDepth: whoever goes through a value calls itself.
bool TooDeep(std::string_view text) {
  std::size_t depth = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') ++i;
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMostDepth) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

std::string_view NextOf(std::string_view& list, char mark) {
  const std::size_t end = std::min(list.find(mark), list.size());
  const std::string_view item = TrimXml(list.substr(0, end));
  list.remove_prefix(std::min(end + 1, list.size()));
  return item;
}

}  // namespace

TWireReply ToWire(TApiReply reply) {
  TWireReply wire;
  wire.Status = reply.Status;
  wire.ETag = std::move(reply.ETag);
  wire.SetCookie = std::move(reply.SetCookie);
  wire.RetryAfterS = reply.RetryAfterS;
  wire.Leased = reply.Leased;
  wire.ContentType = std::move(reply.ContentType);
  if (reply.Body.is_null()) {
    wire.Body = std::move(reply.Text);
    return wire;
  }
  if (wire.ContentType.empty()) wire.ContentType = kJsonType;
  wire.Body = reply.Body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return wire;
}

TWireReply Refuse(int status, const TProblem& problem) { return ToWire(Fail(status, problem)); }

TWireHosts::TWireHosts(std::vector<std::string> names) : FNames(std::move(names)) {
  FNames.insert(FNames.end(), {"127.0.0.1", "localhost", "[::1]"});
}

bool TWireHosts::Knows(std::string_view host) const {
  const std::string_view name = WithoutPort(host);
  return std::ranges::any_of(FNames, [&](const std::string& known) { return SameFolded(known, name); });
}

bool IsCommand(std::string_view method) { return method != "GET" && method != "HEAD" && method != "OPTIONS"; }

std::optional<TWireReply> CheckHost(const TWireRequest& request, const TWireHosts& hosts) {
  if (hosts.Knows(request.Host)) return std::nullopt;
  return Refuse(421, {.What = Tr("this controller is not asked under that name"),
                      .Where = "Host: " + (IsUtf8(request.Host) ? request.Host : std::string("?")),
                      .Why = {},
                      .Remedy = Tr("ask for 127.0.0.1 with its port, or start the controller with --host")});
}

std::optional<TWireReply> CheckOrigin(const TWireRequest& request) {
  if (!IsCommand(request.Method)) return std::nullopt;
  const std::string_view origin = request.Origin;
  const std::size_t scheme = origin.find("://");
  const bool ours = origin.empty() ||
                    (scheme != std::string_view::npos && SameFolded(origin.substr(scheme + 3), request.Host) &&
                     (SameFolded(origin.substr(0, scheme), "http") || SameFolded(origin.substr(0, scheme), "https")));
  const bool site = request.FetchSite.empty() || request.FetchSite == "same-origin" || request.FetchSite == "none";
  if (ours && site) return std::nullopt;
  return Refuse(403, {.What = Tr("a page of another origin may not command this controller"),
                      .Where = ours ? "Sec-Fetch-Site" : "Origin"});
}

std::optional<TWireReply> ReadTarget(std::string_view target, TApiRequest& into) {
  target = target.substr(0, target.find('#'));
  const std::size_t mark = std::min(target.find('?'), target.size());
  if (target.starts_with('/') && Decode(target.substr(0, mark), false, into.Path) &&
      ReadQuery(target.substr(std::min(mark + 1, target.size())), into.Query))
    return std::nullopt;
  return Refuse(400, {.What = Tr("the address is malformed"),
                      .Where = {},
                      .Why = {},
                      .Remedy = Tr("a path in UTF-8 that begins with \"/\", each parameter at most once")});
}

std::optional<TWireReply> ReadBody(const TWireRequest& request, TApiRequest& into) {
  if (request.Body.empty()) return std::nullopt;
  std::string_view type = request.ContentType;
  if (!SameFolded(NextOf(type, ';'), kJsonType))
    return Refuse(415, {.What = Tr("the body must be JSON"),
                        .Where = "Content-Type",
                        .Why = {},
                        .Remedy = Format("Content-Type: %s", kJsonType)});
  if (TooDeep(request.Body))
    return Refuse(400, {.What = Format(Tr("the body is nested deeper than %zu levels"), kMostDepth)});
  into.Body = nlohmann::json::parse(request.Body, nullptr, false);
  if (!into.Body.is_discarded()) return std::nullopt;
  const TProblem problem = JsonProblem(request.Body);
  return Refuse(400, {.What = Tr("the body is no valid JSON"), .Where = problem.Where, .Why = problem.What});
}

}  // namespace ixocontroller
