#include "controller/service/Webhook.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "controller/net/Listen.h"
#include "controller/net/TlsClient.h"
#include "controller/process/RealTime.h"
#include "ixocamglue/platform/comm/Comm.h"
#include "ixocamglue/platform/comm/HostText.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::string_view kSchemes[] = {"http://", "https://"};
constexpr const char* kSchemePorts[] = {"80", "443"};
constexpr int kWebhookPollMs = 20;

bool IsHostSign(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
}

// One connection. Each call answers 0 or an errno value.
class TWebhookLine {
 public:
  TWebhookLine(std::uint64_t end, const std::function<bool()>& ending) : FEnd(end), FEnding(ending) {}

  // The first of its addresses that takes it.
  int Connect(const TWebhook& webhook) {
    int error = EHOSTUNREACH;
    for (const std::string& address : CommParts().Resolve(webhook.Host, kWebhookNameMs))
      if ((error = ConnectTo(address, webhook.Port)) == 0) return 0;
    return error;
  }

  int Send(std::string_view bytes) {
    while (!bytes.empty()) {
      const auto now = ::send(FSocket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (now > 0)
        bytes.remove_prefix(static_cast<std::size_t>(now));
      else if (errno != EAGAIN && errno != EINTR)
        return errno;
      else if (const int waited = WaitFor(POLLOUT))
        return waited;
    }
    return 0;
  }

  int Receive(std::string& bytes) {
    for (;;) {
      if (const int waited = WaitFor(POLLIN)) return waited;
      char buffer[4096];
      const auto size = ::recv(FSocket.Get(), buffer, sizeof buffer, 0);
      if (size > 0) bytes.assign(buffer, static_cast<std::size_t>(size));
      if (size > 0) return 0;
      if (size == 0) return ECONNRESET;
      if (errno != EAGAIN && errno != EINTR) return errno;
    }
  }

 private:
  int ConnectTo(const std::string& address, const std::string& port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), port.c_str(), &hints, &found) != 0) return EINVAL;
    FSocket = TOwnFd(::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    int error = ::connect(FSocket.Get(), found->ai_addr, found->ai_addrlen) == 0 ? 0 : errno;
    ::freeaddrinfo(found);
    if (error != EINPROGRESS) return error;
    if (const int waited = WaitFor(POLLOUT)) return waited;
    socklen_t size = sizeof error;
    return ::getsockopt(FSocket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
  }

  int WaitFor(short events) {
    while (RealMs() < FEnd && !FEnding()) {
      pollfd ready{FSocket.Get(), events, 0};
      if (::poll(&ready, 1, kWebhookPollMs) > 0) return 0;
    }
    return ETIMEDOUT;
  }

  const std::uint64_t FEnd;
  const std::function<bool()>& FEnding;
  TOwnFd FSocket;
};

TProblem LineProblem(int error) { return {.What = SystemErrorText(error)}; }

// Says it by TLS; `text` is what is answered first.
TResult<> TalkSecurely(TWebhookLine& line, const TWebhook& webhook, const std::string& request, std::size_t enough,
                       std::string& text) {
  TTlsClient tls(webhook.Host, webhook.Trusted);
  std::string bytes;
  bool said = false;
  while (text.size() < enough && !tls.Ended()) {
    TResult<> done = tls.Take(bytes, text);
    if (done && tls.Agreed() && !said) {
      said = true;
      done = tls.Say(request);
    }
    const int error = line.Send(tls.Give());  // also why it is not accepted
    if (!done) return done;
    if (error != 0) return LineProblem(error);
    if (text.size() >= enough || tls.Ended()) break;
    if (const int received = line.Receive(bytes)) return LineProblem(received);
  }
  return {};
}

TResult<> TalkPlainly(TWebhookLine& line, const std::string& request, std::size_t enough, std::string& text) {
  if (const int error = line.Send(request)) return LineProblem(error);
  for (std::string bytes; text.size() < enough; text += bytes)
    if (const int error = line.Receive(bytes)) return LineProblem(error);
  return {};
}

}  // namespace

std::string TWebhook::Text() const {
  return std::string(kSchemes[Secure ? 1 : 0]) + HostText(Host) + ":" + Port + Path;
}

std::optional<TWebhook> ParseWebhook(std::string_view url) {
  TWebhook webhook;
  webhook.Secure = url.starts_with(kSchemes[1]);
  const std::string_view scheme = kSchemes[webhook.Secure ? 1 : 0];
  if (!url.starts_with(scheme)) return std::nullopt;
  url.remove_prefix(scheme.size());
  if (std::ranges::any_of(url, [](char c) { return c <= ' ' || c == 0x7F; })) return std::nullopt;
  const auto slash = std::min(url.find('/'), url.size());
  webhook.Path = slash == url.size() ? "/" : std::string(url.substr(slash));
  std::string_view host = url.substr(0, slash);
  const auto colon = host.rfind(':');
  const bool hasPort = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos;
  webhook.Port = hasPort ? std::string(host.substr(colon + 1)) : kSchemePorts[webhook.Secure ? 1 : 0];
  if (hasPort) host = host.substr(0, colon);
  const bool six = host.starts_with('[') && host.ends_with(']');
  if (six) host = host.substr(1, host.size() - 2);
  webhook.Host = std::string(host);
  in6_addr number{};
  const bool good = six ? ::inet_pton(AF_INET6, webhook.Host.c_str(), &number) == 1
                        : !host.empty() && std::ranges::all_of(host, &IsHostSign);
  const auto port = ParseExactly<std::uint16_t>(webhook.Port);
  return good && port && *port != 0 ? std::optional(webhook) : std::nullopt;
}

TResult<> Post(const TWebhook& webhook, const std::string& json, const std::function<bool()>& ending) {
  TWebhookLine line(RealMs() + kWebhookMs, ending);
  if (const int error = line.Connect(webhook)) return LineProblem(error);
  const std::string request =
      Format(
          "POST %s HTTP/1.1\r\nHost: %s:%s\r\nContent-Type: application/json\r\n"
          "Content-Length: %zu\r\nConnection: close\r\n\r\n",
          webhook.Path.c_str(), HostText(webhook.Host).c_str(), webhook.Port.c_str(), json.size()) +
      json;
  constexpr std::size_t kStatusEnd = sizeof "HTTP/1.1 200" - 1;  // its first line is all that matters
  std::string answer;
  try {
    TResult<> talked = webhook.Secure ? TalkSecurely(line, webhook, request, kStatusEnd, answer)
                                      : TalkPlainly(line, request, kStatusEnd, answer);
    if (!talked) return talked;
  } catch (const EProblem& problem) {
    return problem.Problem;
  }
  if (answer.size() >= kStatusEnd && answer.starts_with("HTTP/1.") && answer[9] == '2') return {};
  const auto shown = std::ranges::find_if(answer, [](char c) { return c < ' ' || c > '~'; });
  return TProblem{.What = Format(Tr("the answer is \"%s\""), std::string(answer.begin(), shown).c_str())};
}

}  // namespace ixocontroller
