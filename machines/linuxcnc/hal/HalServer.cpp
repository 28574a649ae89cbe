#include "machines/linuxcnc/hal/HalServer.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"

namespace ixocamglue {
namespace {

constexpr std::size_t kUnsentMax = 4 * kHalTellMax;

// Whether a pin of this kind can show it.
bool Fits(THalKind kind, double value) {
  if (kind == hkBit) return value == 0.0 || value == 1.0;
  if (kind == hkFloat) return true;
  using TLimits = std::numeric_limits<std::int32_t>;
  return value == std::trunc(value) && value >= TLimits::min() && value <= TLimits::max();
}

bool IsAnswered(const sockaddr_un& address) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  const bool answered =
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
  close(fd);
  return answered;
}

}  // namespace

THalServer::THalServer(std::vector<THalPin> list, IHalPins& pins, std::function<std::uint64_t()> clock)
    : FList(std::move(list)),
      FPins(pins),
      FClock(std::move(clock)),
      FStartMs(FClock()),
      FSeenMs(FStartMs),
      FServoMs(FStartMs),
      FServoSeconds(FPins.ServoSeconds()),
      FShown(FList.size()) {
  OutputsOff();
}

THalServer::~THalServer() { End(); }

TResult<> THalServer::Listen(const std::string& path) {
  const auto fail = [&path](const std::string& what, std::string remedy = {}) {
    return TProblem{.What = what, .Where = path, .Remedy = std::move(remedy)};
  };
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path)
    return fail(Format("a socket's path has 1 to %d bytes", static_cast<int>(sizeof address.sun_path) - 1));
  path.copy(address.sun_path, path.size());
  struct stat facts {};
  if (lstat(path.c_str(), &facts) == 0) {
    if (!S_ISSOCK(facts.st_mode)) return fail("this is no socket", "give another path, or remove the file");
    if (IsAnswered(address)) return fail("another ixocut-hal listens here", "end it, or give another path");
    static_cast<void>(unlink(path.c_str()));
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return fail(SystemErrorText(errno));
  const mode_t mask = umask(0177);
  const bool bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = errno;
  umask(mask);
  if (!bound || listen(fd, kClientsMax) != 0) {
    const std::string why = SystemErrorText(bound ? errno : error);
    close(fd);
    return fail(why);
  }
  FListener = fd;
  FPath = path;
  return {};
}

void THalServer::Wait() const {
  std::vector<pollfd> fds;
  fds.push_back({FListener, POLLIN, 0});
  for (const TClient& client : FClients) fds.push_back({client.Fd, POLLIN, 0});
  const std::uint64_t since = std::min<std::uint64_t>(FClock() - FStartMs - FFrameMs, kHalFrameMs);
  static_cast<void>(poll(fds.data(), fds.size(), static_cast<int>(kHalFrameMs - since)));
}

void THalServer::Round() {
  NoteStall();
  NoteServo();
  Accept();
  for (TClient& client : FClients) Hear(client);
  DropEnded();
  const std::uint64_t now = FClock();
  if (FRearmMs && now - *FRearmMs >= kHalRearmMs) {
    FPins.SetRearm(false);
    FRearmMs.reset();
  }
  if (now - FStartMs - FFrameMs >= kHalFrameMs) {
    if (!FCommander) OutputsOff();  // again: a pin that is netted later takes over what its signal shows
    Tell();
  }
  DropEnded();
}

void THalServer::End() {
  OutputsOff();
  EndAll(hbEnds);
  DropEnded();
  if (FListener < 0) return;
  close(FListener);
  FListener = -1;
  static_cast<void>(unlink(FPath.c_str()));
}

void THalServer::OutputsOff() {
  for (std::size_t i = 0; i < FList.size(); ++i)
    if (FList[i].Output) FPins.Write(i, 0.0);
  FPins.SetRearm(false);
  FPins.SetClient(false);
  FRearmMs.reset();
}

// What waits in the sockets after this program was held up is as old as that, and must not be carried out.
void THalServer::NoteStall() {
  const std::uint64_t now = FClock();
  const bool stalled = now - FSeenMs > kHalStallMs;
  FSeenMs = now;
  if (!stalled) return;
  OutputsOff();
  EndAll(hbStalled);
}

// While it stands still the latch does not fall, and the beam would be back when it goes on.
void THalServer::NoteServo() {
  const double seconds = FPins.ServoSeconds();
  const std::uint64_t now = FClock();
  if (seconds != FServoSeconds) {
    FServoSeconds = seconds;
    FServoMs = now;
  } else if (FCommander && now - FServoMs > kHalStallMs) {
    EndCommand(hbRealtime);
  }
}

void THalServer::EndCommand(THalBye bye) {
  if (!FCommander->Bye) FCommander->Bye = bye;
  FCommander = nullptr;
  OutputsOff();
}

void THalServer::Accept() {
  const int fd = accept4(FListener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) return;
  TClient& client = FClients.emplace_back();
  client.Fd = fd;
  client.HeardMs = FClock();
  if (FClients.size() > kClientsMax) client.Bye = hbCrowded;
}

void THalServer::Hear(TClient& client) {
  char bytes[4096];
  const auto count = recv(client.Fd, bytes, sizeof bytes, 0);
  const bool failed = count < 0 && errno != EAGAIN && errno != EINTR;
  NoteStall();  // held up in front of or in this very call
  if (count == 0 || failed) client.Gone = true;
  if (count > 0) client.Lines.Add({bytes, static_cast<std::size_t>(count)});
  while (!client.Bye && !client.Gone) {
    const auto line = client.Lines.Next();
    if (client.Lines.TooLong()) client.Bye = hbWrong;
    if (!line || client.Bye) break;
    Take(client, *line);
  }
  const bool waited = &client == FCommander || !client.Greeted;
  if (waited && FClock() - client.HeardMs > kHalClientMs && !client.Bye) client.Bye = hbSilent;
  if (&client == FCommander && (client.Bye || client.Gone)) EndCommand(hbWrong);
}

void THalServer::Take(TClient& client, std::string_view line) {
  const auto ask = ParseHalAsk(line);
  client.HeardMs = FClock();
  if (ask && ask->Verb == hvHello && !client.Greeted) return Greet(client, *ask);
  client.Bye = hbWrong;
  if (!ask || &client != FCommander || ask->Number <= client.Number) return;
  switch (ask->Verb) {
    case hvHello: return;
    case hvSet:
      if (!Set(*ask)) return;
      break;
    case hvBeat:
      FHeartbeat = !FHeartbeat;
      FPins.SetHeartbeat(FHeartbeat);
      break;
    case hvAlive: break;
    case hvRearm:
      FPins.SetRearm(true);
      FRearmMs = client.HeardMs;
      break;
  }
  client.Number = ask->Number;
  client.Bye.reset();
}

void THalServer::Greet(TClient& client, const THalAsk& ask) {
  if (ask.Number != kHalVersion) {
    client.Bye = hbVersion;
    return;
  }
  if (ask.Role == hrCommand && FClock() - FServoMs > kHalStallMs) {
    client.Bye = hbRealtime;
    return;
  }
  client.Greeted = true;
  if (ask.Role == hrCommand && !FCommander) {
    FCommander = &client;
    FPins.SetClient(true);
  }
  std::string text = HalLine(THalHello{.Pins = FList.size(), .Role = &client == FCommander ? hrCommand : hrWatch});
  for (const THalPin& pin : FList) text += HalLine(pin);
  Say(client, text);
}

bool THalServer::Set(const THalAsk& ask) {
  const auto pin = std::ranges::find(FList, ask.Name, &THalPin::Name);
  if (pin == FList.end() || !pin->Output || !Fits(pin->Kind, ask.Value)) return false;
  FPins.Write(static_cast<std::size_t>(pin - FList.begin()), ask.Value);
  return true;
}

void THalServer::Tell() {
  const std::uint64_t now = FClock() - FStartMs;
  THalFrame full{.Full = true, .Ms = now}, changed{.Ms = now};
  for (std::size_t i = 0; i < FList.size(); ++i) {
    const double value = FPins.Read(i);
    full.Values.emplace_back(FList[i].Name, value);
    if (std::bit_cast<std::uint64_t>(value) != std::bit_cast<std::uint64_t>(FShown[i]))
      changed.Values.emplace_back(FList[i].Name, value);
    FShown[i] = value;
  }
  const bool all = now - FFullMs >= kHalFullMs;
  if (all) FFullMs = now;
  FFrameMs = now;
  for (TClient& client : FClients) {
    if (!client.Greeted || client.Bye) continue;
    THalFrame& frame = all || client.Fresh ? full : changed;
    frame.Seq = ++client.Seq;
    frame.Done = client.Number;
    client.Fresh = false;
    Say(client, HalLine(frame));
  }
}

void THalServer::Say(TClient& client, const std::string& text) {
  client.Unsent += text;
  const auto sent = send(client.Fd, client.Unsent.data(), client.Unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent > 0) client.Unsent.erase(0, static_cast<std::size_t>(sent));
  if (sent < 0 && errno != EAGAIN && errno != EINTR) client.Gone = true;
  if (client.Unsent.size() > kUnsentMax && !client.Bye) client.Bye = hbSlow;
}

void THalServer::DropEnded() {
  for (auto client = FClients.begin(); client != FClients.end();) {
    if (!client->Bye && !client->Gone) {
      ++client;
      continue;
    }
    if (&*client == FCommander) EndCommand(hbWrong);
    if (client->Bye && !client->Gone) Say(*client, HalLine(*client->Bye));
    close(client->Fd);
    client = FClients.erase(client);
  }
}

void THalServer::EndAll(THalBye bye) {
  for (TClient& client : FClients)
    if (!client.Bye) client.Bye = bye;
}

}  // namespace ixocamglue
