#include "controller/client/WireClient.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "controller/net/Listen.h"
#include "controller/net/TlsClient.h"
#include "ixocamglue/platform/comm/HostText.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/JsonText.h"
#include "ixocamglue/support/Lists.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

namespace http = boost::beast::http;
using TSteady = std::chrono::steady_clock;

constexpr auto kAnswerWithin = std::chrono::seconds(30);
constexpr auto kConnectWithin = std::chrono::seconds(5);
constexpr std::uint64_t kLargestAnswer = 256U << 20U;
constexpr std::uint32_t kHeaderLimit = 64U << 10U;
constexpr auto kLookEvery = std::chrono::milliseconds(50);
constexpr const char* kEvents = "/api/v1/events";
constexpr const char* kRequestLog = "TAccess";  // of the lines that account for requests
constexpr std::string_view kHttp = "http://";
constexpr std::string_view kHttps = "https://";

// True when `events` or an error are there in time; a signal does not shorten the wait.
bool WaitUntil(int fd, short events, TSteady::time_point end) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - TSteady::now()).count();
    pollfd entry{fd, events, 0};
    const int found = ::poll(&entry, 1, static_cast<int>(std::max<long>(left, 0)));
    if (found > 0) return true;
    if (found == 0 || errno != EINTR) return false;
  }
}

// 0, or the errno value that says why not.
int ConnectTo(int fd, const sockaddr* address, socklen_t length) {
  if (::connect(fd, address, length) == 0) return 0;
  if (errno != EINPROGRESS && errno != EAGAIN) return errno;
  if (!WaitUntil(fd, POLLOUT, TSteady::now() + kConnectWithin)) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

TOwnFd ConnectUnix(const std::filesystem::path& path, int& error) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // A name that is too long is reached through its folder.
  std::string name = path.string();
  TOwnFd folder;
  if (name.size() >= sizeof address.sun_path) {
    folder = TOwnFd(::open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    name = Format("/proc/self/fd/%d/%s", folder.Get(), path.filename().c_str());
  }
  if (name.size() >= sizeof address.sun_path) {
    error = ENAMETOOLONG;
    return TOwnFd();
  }
  std::ranges::copy(name, address.sun_path);
  TOwnFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  error = fd.Get() < 0 ? errno : ConnectTo(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return fd;
}

TOwnFd ConnectTcp(const TWireAddress& to, int& error) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  error = EHOSTUNREACH;
  if (::getaddrinfo(to.Host.c_str(), std::to_string(to.Port).c_str(), &hints, &found) != 0) return TOwnFd();
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, ::freeaddrinfo);
  for (const addrinfo* at = found; at; at = at->ai_next) {
    TOwnFd fd(::socket(at->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    error = fd.Get() < 0 ? errno : ConnectTo(fd.Get(), at->ai_addr, at->ai_addrlen);
    if (error != 0) continue;
    const int on = 1;
    ::setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
  }
  return TOwnFd();
}

TProblem NotReached(const TWireAddress& address, std::string why) {
  return {.What = Tr("the controller does not answer"),
          .Where = address.Text(),
          .Why = std::move(why),
          .Remedy = Tr("\"ixocut status\" says whether one runs; \"ixocut serve\" starts one")};
}

TBlame BlameOf(int status) {
  if (status >= 500) return pbUnusable;
  return status == 400 || status == 404 || status == 405 || status == 413 || status == 415 || status == 422 ? pbRequest
                                                                                                            : pbRefused;
}

[[noreturn]] void ThrowProblem(const TWireAddress& address, const TWireAnswer& answer) {
  TProblem problem = ProblemFromJson(answer.Body);
  if (problem.What.empty()) problem.What = TextMember(answer.Body, "title");
  if (problem.What.empty())
    problem = {.What = Format(Tr("the controller answers with status %d"), answer.Status), .Where = address.Text()};
  throw EProblem(BlameOf(answer.Status), std::move(problem));
}

std::string HostOf(const TWireAddress& address) {
  if (!address.Socket.empty()) return "localhost";
  return HostText(address.Host) + ":" + std::to_string(address.Port);
}

std::string RandomKey() {
  std::random_device random;
  return Format("%08x%08x%08x%08x", random(), random(), random(), random());
}

std::string LowerType(boost::beast::string_view type) {
  std::string text(type.substr(0, type.find(';')));
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

std::string UrlPart(std::string_view text) {
  std::string part;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '-' || c == '.' || c == '_' || c == '~')
      part += c;
    else
      part += Format("%%%02X", byte);
  }
  return part;
}

TResult<TWireAddress> TWireAddress::OfUrl(const std::string& url) {
  const bool secure = url.starts_with(kHttps);
  std::string rest = secure                   ? url.substr(kHttps.size())
                     : url.starts_with(kHttp) ? url.substr(kHttp.size())
                                              : std::string();
  while (rest.ends_with('/')) rest.pop_back();
  const std::size_t colon = rest.rfind(':');
  const bool hasPort = colon != std::string::npos && rest.find(']', colon) == std::string::npos;
  const auto port = hasPort ? ParseExactly<std::uint16_t>(rest.substr(colon + 1)) : kWirePort;
  if (hasPort) rest.resize(colon);
  if (rest.starts_with('[') && rest.ends_with(']')) rest = rest.substr(1, rest.size() - 2);
  if (rest.empty() || !port || *port == 0 || rest.find_first_of("/?#@ ") != std::string::npos)
    return TProblem{.What = Format(Tr("\"%s\" is no address of a controller"), url.c_str()),
                    .Remedy = Tr("http://127.0.0.1:8620 is one")};
  return TWireAddress{.Socket = {}, .Host = rest, .Port = *port, .Secure = secure, .Trusted = {}};
}

TResult<TWireAddress> TWireAddress::OfPlace(const TControllerPlace& place) {
  if (!place.Socket.empty()) return TWireAddress{.Socket = place.Socket, .Host = {}};
  if (!place.Url.empty()) return OfUrl(place.Url);
  return TProblem{.What = Tr("the controller is starting, or has no address")};
}

std::string TWireAddress::Text() const {
  return Socket.empty() ? std::string(Secure ? kHttps : kHttp) + HostOf(*this) : Socket.string();
}

bool TWireEvent::IsWarning() const {
  return Name == "log" && Data.value("kind", 0) >= lkWarning && Data.value("source", "") != kRequestLog;
}

// --- one connection ---

struct TWireClient::TLine {
  using TParser = http::response_parser<http::string_body>;

  explicit TLine(const TWireAddress& address) : Address(address) {
    int error = 0;
    Fd = address.Socket.empty() ? ConnectTcp(address, error) : ConnectUnix(address.Socket, error);
    if (error != 0) throw EProblem(pbUnusable, NotReached(address, SystemErrorText(error)));
    if (address.Secure) Agree();
  }

  void Agree() {
    Tls = std::make_unique<TTlsClient>(Address.Host, Address.Trusted);
    TakeTls({});
    for (const auto end = TSteady::now() + kConnectWithin; !Tls->Agreed();)
      if (!Receive(end) && (Ended || TSteady::now() >= end))
        throw EProblem(pbUnusable, NotReached(Address, Tr("TLS was not agreed in time, or the connection ended")));
  }

  // Throws for a certificate that is not accepted, and for what is no TLS.
  void TakeTls(std::string_view bytes) {
    TResult<> taken = Tls->Take(bytes, In);
    (void)SendBytes(Tls->Give());  // also why it is not accepted
    if (taken) return;
    TProblem problem = taken.Problem();
    problem.Where = Address.Text();
    throw EProblem(pbUnusable, std::move(problem));
  }

  bool Send(std::string_view text) {
    if (!Tls) return SendBytes(text);
    return Tls->Say(text) && SendBytes(Tls->Give());
  }

  // False when the other end has closed.
  bool SendBytes(std::string_view bytes) {
    const auto end = TSteady::now() + kAnswerWithin;
    while (!bytes.empty()) {
      const auto sent = ::send(Fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent > 0)
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      else if ((errno != EAGAIN && errno != EINTR) || !WaitUntil(Fd.Get(), POLLOUT, end))
        return false;
    }
    return true;
  }

  // Reads what is there by then; false: nothing has been said. `Ended` when the other end has closed.
  bool Receive(TSteady::time_point end) {
    if (Ended || !WaitUntil(Fd.Get(), POLLIN, end)) return false;
    std::array<char, 16'384> buffer;  // written below
    const auto got = ::recv(Fd.Get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    Ended = got <= 0;
    if (Ended) return false;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(got));
    if (Tls)
      TakeTls(bytes);
    else
      In.append(bytes);
    Ended = Tls && Tls->Ended();
    return !In.empty();
  }

  // Throws for what is no answer.
  void Parse(TParser& parser) {
    while (!In.empty() && !parser.is_done()) {
      boost::system::error_code error;
      const std::size_t used = parser.put(boost::asio::buffer(In), error);
      In.erase(0, used);
      if (error == http::error::need_more) return;
      if (error) throw EProblem(pbUnusable, NotReached(Address, Tr("what it sends is no HTTP answer")));
      if (used == 0) return;
    }
  }

  const TWireAddress Address;
  TOwnFd Fd;
  std::unique_ptr<TTlsClient> Tls;  // null: none
  std::string In;
  bool Ended = false;
};

TWireClient::TWireClient(TWireAddress address, std::string token, std::string language)
    : FAddress(std::move(address)), FToken(std::move(token)), FLanguage(std::move(language)) {}
TWireClient::~TWireClient() = default;

namespace {

std::string RequestText(const TWireClient& client, std::string_view method, const std::string& path,
                        const std::string& accept, const std::string* body, const TWireHeaders& headers) {
  std::string text = std::string(method) + " " + path + " HTTP/1.1\r\nHost: " + HostOf(client.Address()) +
                     "\r\nAccept: " + accept + "\r\nAccept-Language: " + client.Language() + "\r\n";
  if (!client.Token().empty()) text += "Authorization: Bearer " + client.Token() + "\r\n";
  for (const auto& [name, value] : headers) text.append(name).append(": ").append(value).append("\r\n");
  if (body) text += Format("Content-Type: application/json\r\nContent-Length: %zu\r\n", body->size());
  return text + "\r\n" + (body ? *body : std::string());
}

}  // namespace

TWireAnswer TWireClient::Ask(std::string_view method, const std::string& path, const nlohmann::ordered_json& body,
                             const TWireHeaders& headers) {
  TWireAnswer answer = AskAny(method, path, body, headers);
  Check(answer);
  return answer;
}

void TWireClient::Check(const TWireAnswer& answer) const {
  if (answer.Status >= 400) ThrowProblem(FAddress, answer);
}

TWireAnswer TWireClient::AskAny(std::string_view method, const std::string& path, const nlohmann::ordered_json& body,
                                const TWireHeaders& headers) {
  const bool commands = method != "GET";
  const std::string bytes = body.is_null() ? "" : body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  TWireHeaders all = headers;
  if (commands) all.emplace_back("Idempotency-Key", RandomKey());
  if (!FLease.empty()) all.emplace_back("Lease", FLease);
  const std::string request = RequestText(*this, method, path, "application/json, application/problem+json",
                                          body.is_null() ? nullptr : &bytes, all);
  for (;;) {
    // A connection that was kept may have been closed meanwhile: then once more, on a new one.
    const bool kept = FLine != nullptr;
    if (!kept) FLine = std::make_unique<TLine>(FAddress);
    TLine::TParser parser;
    parser.eager(true);
    parser.body_limit(kLargestAnswer);
    parser.header_limit(kHeaderLimit);
    bool begun = false;
    try {
      bool sent = FLine->Send(request);
      for (const auto end = TSteady::now() + kAnswerWithin; sent && !parser.is_done();) {
        if (FLine->Receive(FLook ? std::min(end, TSteady::now() + kLookEvery) : end)) {
          begun = true;
          FLine->Parse(parser);
        } else if (FLine->Ended || TSteady::now() >= end) {
          boost::system::error_code error;
          if (FLine->Ended && begun) parser.put_eof(error);
          sent = FLine->Ended && begun && !error && parser.is_done();
        } else if (FLook) {
          FLook();
        }
      }
      if (!sent) {
        const bool ended = FLine->Ended || !begun;
        FLine.reset();
        if (kept && !begun && ended) continue;
        throw EProblem(pbUnusable, NotReached(FAddress, ended ? Tr("the connection ended before the reply")
                                                              : Tr("it has not answered within 30 s")));
      }
    } catch (...) {
      FLine.reset();
      throw;
    }
    const auto& message = parser.get();
    TWireAnswer answer{.Status = static_cast<int>(message.result_int()),
                       .ContentType = LowerType(message[http::field::content_type]),
                       .ETag = std::string(message[http::field::etag]),
                       .Text = message.body(),
                       .Body = {}};
    if (!message.keep_alive() || FLine->Ended) FLine.reset();
    if (answer.ContentType.ends_with("json") && !answer.Text.empty()) {
      answer.Body = nlohmann::ordered_json::parse(answer.Text, nullptr, false);
      if (answer.Body.is_discarded()) throw EProblem(pbUnusable, NotReached(FAddress, JsonProblem(answer.Text).Text()));
    }
    return answer;
  }
}

// --- events ---

struct TWireEvents::TStream {
  explicit TStream(const TWireClient& client) : Client(client), Line(client.Address()) {
    Parser.eager(true);
    Parser.body_limit(boost::none);
    Parser.header_limit(kHeaderLimit);
  }

  // What stands before the next empty line; nothing: it has not come yet.
  std::optional<TWireEvent> Take() {
    for (std::size_t end = 0; (end = Text.find("\n\n")) != std::string::npos;) {
      TWireEvent event;
      std::string data;
      std::size_t from = 0;
      while (from < end) {
        const std::size_t to = Text.find('\n', from);
        const std::string_view line = std::string_view(Text).substr(from, to - from);
        const std::size_t colon = std::min(line.find(':'), line.size());
        std::string_view value = line.substr(std::min(colon + 1, line.size()));
        if (value.starts_with(' ')) value.remove_prefix(1);
        const std::string_view name = line.substr(0, colon);
        if (name == "id") event.Id = value;
        if (name == "event") event.Name = value;
        if (name == "data") AddToList(data, value, "\n");
        from = to + 1;
      }
      Text.erase(0, end + 2);
      if (data.empty() && event.Name.empty()) continue;  // a comment that keeps the connection alive
      event.Data = nlohmann::ordered_json::parse(data, nullptr, false);
      if (event.Data.is_discarded()) event.Data = data;
      return event;
    }
    return std::nullopt;
  }

  void Read(TSteady::time_point end) {
    if (Line.Receive(end) || !Line.In.empty()) Line.Parse(Parser);
    for (const char c : Parser.get().body())
      if (c != '\r') Text += c;
    Parser.get().body().clear();
  }

  const TWireClient& Client;
  TWireClient::TLine Line;
  TWireClient::TLine::TParser Parser;
  std::string Text;
};

TWireEvents::TWireEvents(const TWireClient& client, const std::string& query, const std::string& lastId)
    : FStream(std::make_unique<TStream>(client)) {
  TStream& s = *FStream;
  TWireHeaders headers;
  if (!lastId.empty()) headers.emplace_back("Last-Event-ID", lastId);
  (void)s.Line.Send(RequestText(client, "GET", kEvents + query, "text/event-stream", nullptr, headers));
  for (const auto end = TSteady::now() + kAnswerWithin; !s.Parser.is_header_done();) {
    s.Read(end);
    if (s.Line.Ended || TSteady::now() >= end)
      throw EProblem(pbUnusable, NotReached(client.Address(), Tr("the connection ended before the reply")));
  }
  const int status = static_cast<int>(s.Parser.get().result_int());
  if (status < 400) return;
  for (const auto end = TSteady::now() + kConnectWithin; !s.Parser.is_done() && !s.Line.Ended && TSteady::now() < end;)
    s.Read(end);
  ThrowProblem(client.Address(), {.Status = status,
                                  .ContentType = {},
                                  .ETag = {},
                                  .Text = s.Text,
                                  .Body = nlohmann::ordered_json::parse(s.Text, nullptr, false)});
}
TWireEvents::~TWireEvents() = default;

std::optional<TWireEvent> TWireEvents::Next(std::uint32_t waitMs) {
  const auto end = TSteady::now() + std::chrono::milliseconds(waitMs);
  for (;;) {
    if (auto event = FStream->Take()) return event;
    if (Ended() || TSteady::now() > end) return std::nullopt;
    FStream->Read(end);
  }
}

bool TWireEvents::Ended() const { return FStream->Line.Ended || FStream->Parser.is_done(); }

}  // namespace ixocontroller
