#include "controller/wire/WireSession.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <sys/socket.h>
#include <utility>

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "controller/net/Tls.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace {

using TWireError = boost::system::error_code;
using TWireSocket = asio::basic_stream_socket<asio::generic::stream_protocol, asio::io_context::executor_type>;
using TWireTls = asio::ssl::stream<TWireSocket&>;
using TWireParser = http::request_parser<http::string_body>;

constexpr char kTlsFirst = 0x16;  // the first byte of whoever speaks TLS; no request begins with it
constexpr const char* kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
constexpr std::size_t kKeptBytes = 4096;
constexpr std::size_t kUsualHead = 300;         // bytes of an answer's header
constexpr std::size_t kReadAhead = 64U << 10U;  // bytes of further requests that are taken in

int FamilyOf(int fd) {
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  return own.ss_family;
}

std::string ValueOf(const http::fields& fields, boost::beast::string_view name) {
  const auto value = fields[name];
  return {value.data(), value.size()};
}

TWireRequest ToRequest(TWireParser& parser) {
  auto& message = parser.get();
  TWireRequest request;
  request.Method = std::string(message.method_string());
  request.Target = std::string(message.target());
  request.Body = std::move(message.body());
  request.Host = ValueOf(message, "Host");
  request.Authorization = ValueOf(message, "Authorization");
  request.Cookie = ValueOf(message, "Cookie");
  request.Origin = ValueOf(message, "Origin");
  request.FetchSite = ValueOf(message, "Sec-Fetch-Site");
  request.ContentType = ValueOf(message, "Content-Type");
  request.AcceptLanguage = ValueOf(message, "Accept-Language");
  request.IdempotencyKey = ValueOf(message, "Idempotency-Key");
  request.IfMatch = ValueOf(message, "If-Match");
  request.IfNoneMatch = ValueOf(message, "If-None-Match");
  request.Lease = ValueOf(message, "Lease");
  request.LastEventId = ValueOf(message, "Last-Event-ID");
  return request;
}

void AddHeader(std::string& head, const char* name, const std::string& value) {
  if (!value.empty()) head.append(name).append(": ").append(value).append("\r\n");
}

std::string HeadOf(const TWireReply& reply, bool keepsAlive) {
  const auto reason = http::obsolete_reason(static_cast<http::status>(reply.Status));
  std::string head;
  head.reserve(kUsualHead + reply.Body.size());
  head.append("HTTP/1.1 ").append(ValueText(reply.Status)).append(" ");
  head.append(reason.data(), reason.size()).append("\r\n");
  AddHeader(head, "Content-Type", reply.ContentType);
  if (reply.Status != 204 && reply.Status != 304) AddHeader(head, "Content-Length", ValueText(reply.Body.size()));
  AddHeader(head, "ETag", reply.ETag);
  AddHeader(head, "Allow", reply.Allow);
  AddHeader(head, "Set-Cookie", reply.SetCookie);
  if (reply.RetryAfterS != 0) AddHeader(head, "Retry-After", ValueText(reply.RetryAfterS));
  if (reply.Status == 401) head += "WWW-Authenticate: Bearer\r\n";
  AddHeader(head, "Content-Security-Policy", reply.Policy);
  head += reply.Policy.empty() ? "Cache-Control: no-store\r\n" : "Cache-Control: no-cache\r\n";
  head += "X-Content-Type-Options: nosniff\r\nReferrer-Policy: no-referrer\r\n";
  head += keepsAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
  return head;
}

// Of what the parser refuses.
TWireReply Malformed(const TWireError& error) {
  TWireReply reply = Refuse(400, {.What = Tr("the request is no HTTP/1.1")});
  if (error == http::error::body_limit)
    reply = Refuse(413, {.What = Format(Tr("the body is larger than %llu bytes"),
                                        static_cast<unsigned long long>(TWireLimits::kMostBody))});
  if (error == http::error::header_limit)
    reply = Refuse(431, {.What = Format(Tr("the request's header is larger than %u bytes"), TWireLimits::kMostHeader)});
  reply.Close = true;
  return reply;
}

}  // namespace

struct TWireSession::TParts {
  IWireDesk& Desk;
  TWireSocket Socket;
  const TPeer Peer;
  const TWireLimits& Limits;
  std::optional<TWireTls> Tls;  // around the socket
  boost::beast::flat_buffer Read{kReadAhead};
  std::optional<TWireParser> Parser;
  std::string Out;
  std::shared_ptr<TEventFeed> Feed;
  std::function<bool()> MayFollow;
  TWireStage Stage = TWireStage::wsIdle;
  std::uint64_t StageMs = RealMs();  // since when
  std::uint64_t UsedMs = RealMs();
  bool Head = false;  // the request that waits is HEAD
  bool Reading = false;
  bool Writing = false;
  bool Over = false;
  char Unread[512] = {};  // of who ends or follows

  void Enter(TWireStage stage) {
    Stage = stage;
    StageMs = RealMs();
  }

  // With TLS or without.
  template <class THandler>
  void ReadInto(asio::mutable_buffer room, THandler handler) {
    if (Tls)
      Tls->async_read_some(room, std::move(handler));
    else
      Socket.async_read_some(room, std::move(handler));
  }

  void Greet(TWireSession& self);
  void Agree(TWireSession& self);
  void RefusePlain(TWireSession& self);
  void ReadSome(TWireSession& self);
  void Parse(TWireSession& self);
  void Asked(TWireSession& self);
  void Next(TWireSession& self);
  void Write(TWireSession& self, void (TParts::*then)(TWireSession&));
  void Answered(TWireSession& self);
  void Linger(TWireSession& self);
  void EndTls(TWireSession& self);
  void Discard(TWireSession& self);
  void Follow(TWireSession& self);
};

TWireSession::TWireSession(IWireDesk& desk, asio::io_context& context, TOwnFd socket, TPeer peer,
                           const TWireLimits& limits, const TServerTls* tls)
    : FParts(new TParts{desk, TWireSocket(context), std::move(peer), limits}) {
  TWireError error;
  const int family = FamilyOf(socket.Get());
  FParts->Socket.assign({family, 0}, socket.Get(), error);
  if (!error) (void)socket.Release();
  FParts->Socket.non_blocking(true, error);
  if (!tls) return;
  SSL_CTX_up_ref(tls->Context());  // Asio's context gives it back
  asio::ssl::context shown(tls->Context());
  FParts->Tls.emplace(FParts->Socket, shown);
}

TWireSession::~TWireSession() = default;

const TPeer& TWireSession::Peer() const { return FParts->Peer; }
TWireStage TWireSession::Stage() const { return FParts->Stage; }
const std::shared_ptr<TEventFeed>& TWireSession::Feed() const { return FParts->Feed; }
std::uint64_t TWireSession::UsedMs() const { return FParts->UsedMs; }

void TWireSession::Start() {
  if (!FParts->Tls) return FParts->Next(*this);
  FParts->Enter(TWireStage::wsGreeting);
  FParts->Greet(*this);
}

// --- TLS ---

// Whoever asks without it is told so, in words that he understands: what comes first is looked at, and stays.
void TWireSession::TParts::Greet(TWireSession& self) {
  Socket.async_wait(asio::socket_base::wait_read, [this, keep = self.shared_from_this()](const TWireError& error) {
    if (Over) return;
    char first = 0;
    const auto got = ::recv(Socket.native_handle(), &first, 1, MSG_PEEK | MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return Greet(*keep);
    if (error || got <= 0) return keep->Close();
    if (first == kTlsFirst) return Agree(*keep);
    RefusePlain(*keep);
  });
}

void TWireSession::TParts::Agree(TWireSession& self) {
  Tls->async_handshake(asio::ssl::stream_base::server, [this, keep = self.shared_from_this()](const TWireError& error) {
    if (Over) return;
    if (!error) return Next(*keep);
    Desk.NotAgreed(*keep, error.message());
    keep->Close();
  });
}

void TWireSession::TParts::RefusePlain(TWireSession& self) {
  Tls.reset();
  Parser.emplace();
  Enter(TWireStage::wsAsked);
  TWireReply reply = Refuse(400, {.What = Tr("here only TLS is spoken"),
                                  .Where = {},
                                  .Why = {},
                                  .Remedy = Tr("ask for https:// instead of http://")});
  reply.Close = true;
  self.Answer(reply);
}

// --- requests ---

void TWireSession::TParts::Next(TWireSession& self) {
  // A connection that is kept for long keeps no memory of what it once took in.
  if (Read.size() == 0 && Read.capacity() > kKeptBytes) Read.shrink_to_fit();
  Parser.emplace();
  Parser->header_limit(TWireLimits::kMostHeader);
  Parser->body_limit(TWireLimits::kMostBody);
  Parser->eager(true);
  Head = false;
  Enter(TWireStage::wsIdle);
  if (Read.size() == 0) return ReadSome(self);
  Parse(self);
}

void TWireSession::TParts::ReadSome(TWireSession& self) {
  Reading = true;
  const std::size_t most = Parser->is_header_done() ? kReadAhead : kKeptBytes;
  const auto room = Read.prepare(std::min(most, Read.max_size() - Read.size()));
  ReadInto(room, [this, keep = self.shared_from_this()](const TWireError& error, std::size_t bytes) {
    Reading = false;
    if (Over) return;
    if (error) return keep->Close();
    Read.commit(bytes);
    // Else it has been answered that it takes too long.
    if (Stage == TWireStage::wsIdle || Stage == TWireStage::wsReading) Parse(*keep);
  });
}

void TWireSession::TParts::Parse(TWireSession& self) {
  if (Stage == TWireStage::wsIdle) Enter(TWireStage::wsReading);
  TWireError error;
  for (std::size_t used = 1; used != 0 && Read.size() != 0 && !error && !Parser->is_done();) {
    used = Parser->put(Read.data(), error);
    Read.consume(used);
  }
  if (error == http::error::need_more) error = {};
  // A header for which there is no room in front of its end is one that is too large.
  if (!error && Read.size() >= Read.max_size()) error = http::error::header_limit;
  if (error) {
    Enter(TWireStage::wsAsked);
    return self.Answer(Malformed(error));
  }
  if (Parser->is_done()) return Asked(self);
  if (Parser->is_header_done() && Parser->get()[http::field::expect] == "100-continue") {
    Parser->get().erase(http::field::expect);
    Out = kContinue;
    return Write(self, &TParts::ReadSome);
  }
  ReadSome(self);
}

void TWireSession::TParts::Asked(TWireSession& self) {
  UsedMs = RealMs();
  Enter(TWireStage::wsAsked);
  const auto& message = Parser->get();
  Head = message.method() == http::verb::head;
  const bool twice = message.count(http::field::host) > 1 || message.count(http::field::authorization) > 1;
  if (message.count(http::field::host) == 0 || twice) {
    TWireReply reply =
        Refuse(400, {.What = Tr("the request must have one Host header, and at most one Authorization")});
    reply.Close = true;
    return self.Answer(reply);
  }
  Desk.Serve(self, ToRequest(*Parser));
}

// --- answers ---

void TWireSession::TParts::Write(TWireSession& self, void (TParts::*then)(TWireSession&)) {
  Writing = true;
  const auto moves = [this](const TWireError& error, std::size_t done) {
    StageMs = RealMs();
    return asio::transfer_all()(error, done);
  };
  const auto done = [this, then, keep = self.shared_from_this()](const TWireError& error, std::size_t) {
    Writing = false;
    if (Over) return;
    if (error) return keep->Close();
    (this->*then)(*keep);
  };
  if (Tls)
    asio::async_write(*Tls, asio::buffer(Out), moves, done);
  else
    asio::async_write(Socket, asio::buffer(Out), moves, done);
}

void TWireSession::Answer(const TWireReply& reply) {
  TParts& my = *FParts;
  if (my.Over || my.Stage != TWireStage::wsAsked) return;
  const bool keepsAlive = !reply.Close && my.Parser->is_done() && my.Parser->get().keep_alive();
  my.Enter(TWireStage::wsAnswering);
  my.Out = HeadOf(reply, keepsAlive);
  if (!my.Head) my.Out += reply.Body;
  my.Write(*this, keepsAlive ? &TParts::Answered : &TParts::Linger);
}

void TWireSession::TParts::Answered(TWireSession& self) {
  Out.clear();
  if (Out.capacity() > TWireLimits::kMostHeader) Out.shrink_to_fit();
  Next(self);
}

// The other end has what was sent before it hears that the connection is over, also while it still sends.
void TWireSession::TParts::Linger(TWireSession& self) {
  Enter(TWireStage::wsEnding);
  if (Tls) return EndTls(self);
  TWireError ignored;
  Socket.shutdown(asio::socket_base::shutdown_send, ignored);
  if (!Reading) Discard(self);
}

// It is said that nothing follows, and waited for the same word. Who still sends instead is read without TLS, which is
// over; who is being read ends with that, or when it has taken too long.
void TWireSession::TParts::EndTls(TWireSession& self) {
  Tls->async_shutdown([this, keep = self.shared_from_this()](const TWireError&) {
    if (Over || Reading) return;
    Tls.reset();
    Linger(*keep);
  });
}

void TWireSession::TParts::Discard(TWireSession& self) {
  Reading = true;
  ReadInto(asio::buffer(Unread), [this, keep = self.shared_from_this()](const TWireError& error, std::size_t) {
    Reading = false;
    if (Over) return;
    if (error) return keep->Close();
    Discard(*keep);
  });
}

// --- events ---

void TWireSession::Follow(std::shared_ptr<TEventFeed> feed, std::function<bool()> may) {
  TParts& my = *FParts;
  if (my.Over || my.Stage != TWireStage::wsAsked) return;
  my.Enter(TWireStage::wsFollowing);
  my.Feed = std::move(feed);
  my.MayFollow = std::move(may);
  my.Out = Format(
      "HTTP/1.1 200 OK\r\nContent-Type: %s\r\nCache-Control: no-store\r\nX-Accel-Buffering: no\r\n"
      "X-Content-Type-Options: nosniff\r\nConnection: close\r\n\r\n",
      kEventsType);
  my.Write(*this, &TParts::Follow);
  // Whatever it sends is nothing; that it has gone is heard here.
  my.Discard(*this);
}

void TWireSession::TParts::Follow(TWireSession& self) {
  Out = Feed->Take();
  if (!Out.empty()) {
    StageMs = RealMs();
    return Write(self, &TParts::Follow);
  }
  if (Feed->Ending()) Linger(self);
}

void TWireSession::SendEvents() {
  if (!FParts->Over && FParts->Stage == TWireStage::wsFollowing && !FParts->Writing) FParts->Follow(*this);
}

// --- end ---

void TWireSession::Close() {
  if (FParts->Over) return;
  FParts->Over = true;
  TWireError ignored;
  FParts->Socket.close(ignored);
  FParts->Desk.Ended(*this);
}

void TWireSession::Watch(std::uint64_t nowMs) {
  TParts& my = *FParts;
  const std::uint64_t since = nowMs > my.StageMs ? nowMs - my.StageMs : 0;
  switch (my.Stage) {
    case TWireStage::wsGreeting:
      if (since < my.Limits.RequestMs) return;
      my.Desk.NotAgreed(*this, Tr("it took too long"));
      return Close();
    case TWireStage::wsIdle:
    case TWireStage::wsAsked: return;
    case TWireStage::wsReading: {
      if (since < my.Limits.RequestMs) return;
      if (my.Writing) return Close();
      my.Enter(TWireStage::wsAsked);
      TWireReply reply = Refuse(408, {.What = Tr("the request took too long to arrive")});
      reply.Close = true;
      return Answer(reply);
    }
    case TWireStage::wsAnswering:
      if (since >= my.Limits.WriteMs) Close();
      return;
    // One that is silent stays as long as little waits for it.
    case TWireStage::wsFollowing:
      if ((my.Feed->Ending() && since >= my.Limits.WriteMs) || !my.MayFollow()) Close();
      return;
    case TWireStage::wsEnding:
      if (since >= my.Limits.LingerMs) Close();
      return;
  }
}

}  // namespace ixocontroller
