// Asks a running controller: HTTP/1.1 with JSON over its Unix socket, TCP or TLS, and its events as they come. Every
// failure is EProblem: what the controller refuses carries its own words (RFC 9457), with the blame that its status
// has. One thread each. Waits in real time.
//
//   TWireClient client(TWireAddress::OfUrl("http://127.0.0.1:8620").OrThrow(pbRequest), token, "en");
//   const TClientLease lease(client, false);  // ClientLease.h
//   client.Post("/api/v1/runs", {{"procedure", "shot"}, {"params", {{"ms", 300}}}, {"detach", true}});
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/process/ControllerFile.h"
#include "ixocamglue/support/Problem.h"

namespace ixocontroller {
using namespace ixocamglue;

// Where a controller listens.
struct TWireAddress {
  std::filesystem::path Socket;  // not empty: the Unix socket; its path may be longer than a socket's name
  std::string Host;
  std::uint16_t Port = 0;
  bool Secure = false;            // by TLS
  std::filesystem::path Trusted;  // then: the certificates of who is, a PEM file; empty: the system's

  // "http://127.0.0.1:8620" or "https://...".
  [[nodiscard]] static TResult<TWireAddress> OfUrl(const std::string& url);
  // Of a controller that has one; by its Unix socket where that is told.
  [[nodiscard]] static TResult<TWireAddress> OfPlace(const TControllerPlace& place);
  [[nodiscard]] std::string Text() const;  // for people
};

using TWireHeaders = std::vector<std::pair<std::string, std::string>>;

struct TWireAnswer {
  int Status = 0;
  std::string ContentType, ETag, Text;
  nlohmann::ordered_json Body;  // of application/json and application/problem+json; else null
};

struct TWireEvent {
  std::string Id, Name;
  nlohmann::ordered_json Data;

  // A line of the controller's log that is for who looks on: no account of requests, no chatter.
  [[nodiscard]] bool IsWarning() const;
};

// One connection, kept open between requests.
class TWireClient {
 public:
  // `token`: empty, none. `language`: of what is answered.
  TWireClient(TWireAddress address, std::string token, std::string language);
  ~TWireClient();
  TWireClient(const TWireClient&) = delete;
  TWireClient& operator=(const TWireClient&) = delete;

  // `body` null: none. What commands carries a key that lets it begin once, however often it is sent. Throws for a
  // status of 400 and above and for a controller that does not answer within 30 s.
  TWireAnswer Ask(std::string_view method, const std::string& path, const nlohmann::ordered_json& body = nullptr,
                  const TWireHeaders& headers = {});
  // The same, where the answer counts whatever its status is.
  TWireAnswer AskAny(std::string_view method, const std::string& path, const nlohmann::ordered_json& body = nullptr,
                     const TWireHeaders& headers = {});
  // Throws what the answer refuses with.
  void Check(const TWireAnswer& answer) const;
  nlohmann::ordered_json Get(const std::string& path) { return Ask("GET", path).Body; }
  nlohmann::ordered_json Post(const std::string& path, const nlohmann::ordered_json& body = nlohmann::json::object()) {
    return Ask("POST", path, body).Body;
  }

  // Called every 50 ms while an answer is waited for, on the same thread. It may use other clients; what it throws ends
  // the wait. Empty: nothing is.
  void WhileWaiting(std::function<void()> look) { FLook = std::move(look); }
  // Sent with every request from then on; empty: no longer.
  void SetLease(std::string id) { FLease = std::move(id); }

  [[nodiscard]] const TWireAddress& Address() const { return FAddress; }
  [[nodiscard]] const std::string& Token() const { return FToken; }
  [[nodiscard]] const std::string& Language() const { return FLanguage; }

 private:
  struct TLine;

  const TWireAddress FAddress;
  const std::string FToken, FLanguage;
  std::string FLease;
  std::function<void()> FLook;
  std::unique_ptr<TLine> FLine;  // null: not connected
  friend class TWireEvents;
};

// The events of a controller, on a connection of their own.
class TWireEvents {
 public:
  // As `client`, whose address, token and language it takes. `query` stands behind the path: "?since=12".
  explicit TWireEvents(const TWireClient& client, const std::string& query = {}, const std::string& lastId = {});
  ~TWireEvents();
  TWireEvents(const TWireEvents&) = delete;
  TWireEvents& operator=(const TWireEvents&) = delete;

  // The next one; nothing when none comes within `waitMs`, or the stream has ended.
  std::optional<TWireEvent> Next(std::uint32_t waitMs);
  [[nodiscard]] bool Ended() const;

 private:
  struct TStream;
  std::unique_ptr<TStream> FStream;
};

// A part of a path as it stands in a URL: "a b/c" as "a%20b%2Fc".
[[nodiscard]] std::string UrlPart(std::string_view text);

}  // namespace ixocontroller
