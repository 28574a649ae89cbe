#include "machines/linuxcnc/HalClient.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ixocamglue/platform/comm/FdWait.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/SystemError.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint64_t kOpenLimitMs = 1000;

TProblem Ended(std::string why) { return {.What = std::move(why)}; }

}  // namespace

TResult<> THalClient::Open() {
  Close();
  const auto problem = [&](std::string what, std::string why) {
    Close();
    return TProblem{std::move(what), FSocket, std::move(why),
                    Tr("start LinuxCNC with ixocut-hal in its HAL, or correct HalSocket in the section Linuxcnc")};
  };
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  if (FSocket.size() >= sizeof to.sun_path)
    return problem(Tr("the path of ixocut-hal's socket is too long"),
                   Format(Tr("at most %zu bytes"), sizeof to.sun_path - 1));
  std::memcpy(to.sun_path, FSocket.c_str(), FSocket.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return problem(Tr("ixocut-hal does not answer"), SystemErrorText(errno));
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    const int error = errno;
    ::close(fd);
    return problem(Tr("ixocut-hal does not answer"), SystemErrorText(error));
  }
  FLines.emplace(kHalTellMax);
  FPinsToCome = 0;
  {
    TGuard guard(FLock);
    FPins.clear();
    FDone = 0;
    FFrameAt.reset();
    FGreeted = FCommands = false;
  }
  const std::string hello = HalLine(THalAsk{.Verb = hvHello, .Number = kHalVersion, .Role = hrCommand});
  bool greeted = false;
  {
    TGuard sending(FSending);  // nobody says anything before it
    FFd = fd;
    FNumber = 0;
    greeted = ::send(fd, hello.data(), hello.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(hello.size());
  }
  if (!greeted) return problem(Tr("ixocut-hal does not answer"), SystemErrorText(errno));
  for (const std::uint64_t end = Clock().MonotonicMs() + kOpenLimitMs; !FrameAt();) {
    const std::uint64_t now = Clock().MonotonicMs();
    if (now >= end) return problem(Tr("ixocut-hal does not answer"), Tr("nothing answered in time"));
    if (const TResult<> received = Receive(static_cast<std::uint32_t>(end - now)); !received)
      return problem(Tr("ixocut-hal does not answer"), received.Problem().What);
  }
  if (!Commands()) {
    TProblem taken =
        problem(Tr("ixocut-hal does not let this controller command"), Tr("another controller commands it"));
    taken.Remedy = Tr("end the other controller first");
    return taken;
  }
  FBeatAt = 0;
  FConnection.fetch_add(1, std::memory_order_acq_rel);
  FOpen.store(true, std::memory_order_release);
  return {};
}

void THalClient::Close() {
  FOpen.store(false, std::memory_order_release);
  TGuard sending(FSending);
  if (FFd >= 0) ::close(FFd);
  FFd = -1;
}

TResult<> THalClient::Round(std::uint32_t ms, bool beat) {
  if (!IsOpen()) return Ended(Tr("the connection has ended"));
  const std::uint64_t before = Clock().MonotonicMs();
  if (before >= FBeatAt) {
    FBeatAt = before + kHalBeatMs;
    if (Send({.Verb = beat ? hvBeat : hvAlive}) == 0) {
      Close();
      return Ended(Tr("the connection has ended"));
    }
  }
  const auto wait = static_cast<std::uint32_t>(std::min<std::uint64_t>(ms, FBeatAt - before));
  TResult<> received = Receive(wait);
  if (const auto at = FrameAt(); received && at && Clock().MonotonicMs() - *at > kHalDeviceMs)
    received = Ended(Tr("it is silent"));
  if (!received) Close();
  return received;
}

std::uint64_t THalClient::Send(THalAsk ask) {
  TGuard sending(FSending);
  if (FFd < 0) return 0;
  ask.Number = FNumber + 1;
  const std::string line = HalLine(ask);
  // A line that the system does not take whole at once is one for a device that reads no more.
  if (::send(FFd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(line.size())) {
    ::shutdown(FFd, SHUT_RDWR);
    return 0;
  }
  return ++FNumber;
}

// Only this thread closes the descriptor, so that it may be read without the lock that senders take.
TResult<> THalClient::Receive(std::uint32_t ms) {
  int fd = -1;
  {
    TGuard sending(FSending);
    fd = FFd;
  }
  if (fd < 0) return Ended(Tr("the connection has ended"));
  if (!WaitFd(fd, POLLIN, ms)) return {};
  std::array<char, 16'384> buffer;
  const ssize_t got = ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (got == 0) return Ended(Tr("the connection has ended"));
  if (got < 0 && errno != EAGAIN && errno != EINTR) return Ended(SystemErrorText(errno));
  if (got > 0) FLines->Add(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  while (const auto line = FLines->Next()) {
    const TResult<THalTell> tell = ParseHalTell(*line);
    if (!tell) return Ended(tell.Problem().Text());
    if (TResult<> taken = Take(*tell); !taken) return taken;
  }
  return FLines->TooLong() ? TResult<>(Ended(Tr("ixocut-hal has sent a line that is too long"))) : TResult<>();
}

TResult<> THalClient::Take(const THalTell& tell) {
  if (const auto* const bye = std::get_if<THalBye>(&tell)) return Ended(HalByeText(*bye));
  TGuard guard(FLock);
  if (const auto* const hello = std::get_if<THalHello>(&tell)) {
    FGreeted = true;
    FCommands = hello->Role == hrCommand;
    FPinsToCome = hello->Pins;
  } else if (const auto* const pin = std::get_if<THalPin>(&tell)) {
    if (FPinsToCome == 0) return Ended(Tr("ixocut-hal has said more pins than it announced"));
    --FPinsToCome;
    FPins[pin->Name] = {.Facts = *pin};
  } else if (const auto* const frame = std::get_if<THalFrame>(&tell)) {
    if (!FGreeted || FPinsToCome != 0) return Ended(Tr("ixocut-hal has sent values before its pins"));
    for (const auto& [name, value] : frame->Values) {
      const auto it = FPins.find(name);
      if (it == FPins.end()) continue;
      it->second.Value = value;
      it->second.Known = !std::isnan(value);
    }
    FDone = frame->Done;
    FFrameAt = Clock().MonotonicMs();
  }
  return {};
}

std::optional<double> THalClient::Value(std::string_view name) const {
  TGuard guard(FLock);
  const auto it = FPins.find(name);
  if (it == FPins.end() || !it->second.Known) return std::nullopt;
  return it->second.Value;
}

bool THalClient::Commands() const {
  TGuard guard(FLock);
  return FCommands;
}

std::uint64_t THalClient::Done() const {
  TGuard guard(FLock);
  return FDone;
}

std::optional<std::uint64_t> THalClient::FrameAt() const {
  TGuard guard(FLock);
  return FFrameAt;
}

std::optional<THalPin> THalClient::Pin(std::string_view name) const {
  TGuard guard(FLock);
  const auto it = FPins.find(name);
  if (it == FPins.end()) return std::nullopt;
  return it->second.Facts;
}

}  // namespace ixocamglue
