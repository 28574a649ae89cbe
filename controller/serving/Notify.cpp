#include "controller/serving/Notify.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "controller/process/RealTime.h"
#include "controller/process/RoundThread.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/ValueText.h"

namespace ixocontroller {
namespace {

constexpr std::string_view kSupervisorThread = "ixo-supervisor";

std::uint64_t BeatOfThread(std::string_view name) {
  TThreadSeen seen;
  for (std::size_t row = 0; row < TThreadTable::kRows; ++row)
    if (ThreadTable().Read(row, seen) && seen.Name == name) return seen.BeatMs;
  return 0;
}

}  // namespace

std::vector<TBeat> BeatsOf(TController& controller) {
  const TNcWatch& watch = controller.Framework().Watch();
  // Passes count where the clock is virtual and stands still for a thread that hangs. Both only rise.
  std::vector<TBeat> beats{
      [&watch] { return watch.BeatMs.load(std::memory_order_acquire) + watch.Pass.load(std::memory_order_acquire); }};
  if (!controller.VirtualClock()) beats.emplace_back([] { return BeatOfThread(kSupervisorThread); });
  return beats;
}

TNotifyOptions TNotifyOptions::FromEnvironment() {
  const auto text = [](const char* name) {
    const char* const value = std::getenv(name);
    return std::string_view(value ? value : "");
  };
  TNotifyOptions options;
  options.Socket = text("NOTIFY_SOCKET");
  const auto pid = ParseNumber<std::int64_t>(text("WATCHDOG_PID"));
  if (!pid || *pid == ::getpid()) options.WatchdogUs = ParseNumber<std::uint64_t>(text("WATCHDOG_USEC")).value_or(0);
  return options;
}

TNotify::TNotify(TNotifyOptions options, std::vector<TBeat> beats, std::function<std::string()> status)
    : FOptions(std::move(options)), FBeats(std::move(beats)), FStatus(std::move(status)), FSeen(FBeats.size()) {}

void TNotify::Ready() {
  Send("READY=1");
  if (!Listened() || FThread.joinable() || FStopped) return;
  FThread = std::thread([this] {
    pthread_setname_np(pthread_self(), "ixo-notify");
    do try {
        Round(RealMs());
      } catch (...) {
        LogFault("ixo-notify", std::current_exception());
      }
    while (!FStop.WaitFor(kRoundMs));
  });
}

void TNotify::Reloading() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  Send(Format("RELOADING=1\nMONOTONIC_USEC=%lld", now.tv_sec * 1'000'000LL + now.tv_nsec / 1000));
}

void TNotify::Stopping() {
  if (std::exchange(FStopped, true)) return;
  FStop.Ask();
  if (FThread.joinable()) FThread.join();
  Send("STOPPING=1");
}

void TNotify::Round(std::uint64_t nowMs) {
  const bool live = AllLive(nowMs);
  // Twice in its time, and a round early rather than late.
  if (const std::uint64_t halfMs = FOptions.WatchdogUs / 2000; halfMs > 0 && live && nowMs >= FFeedAtMs) {
    Send("WATCHDOG=1");
    FFeedAtMs = nowMs + halfMs - std::min<std::uint64_t>(kRoundMs, halfMs / 2);
  }
  if (nowMs < FStatusAtMs || !FStatus) return;
  FStatusAtMs = nowMs + kStatusEveryMs;
  std::string status = FStatus();
  std::ranges::replace(status, '\n', ' ');
  if (status == FTold) return;
  Send("STATUS=" + status);
  FTold = std::move(status);
}

bool TNotify::AllLive(std::uint64_t nowMs) {
  bool live = true;
  for (std::size_t i = 0; i < FBeats.size(); ++i) {
    TSeen& seen = FSeen[i];
    if (const std::uint64_t value = FBeats[i](); !seen.Any || value != seen.Value) seen = {value, nowMs, true};
    live = live && nowMs - seen.AtMs <= kSilentMs;
  }
  return live;
}

void TNotify::Send(std::string_view lines) const {
  sockaddr_un address{};
  const std::string& name = FOptions.Socket;
  if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@')) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.data(), name.size());
  if (name[0] == '@') address.sun_path[0] = '\0';
  // Without the zero at its end: an abstract name would have it as a part of it.
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  const int handle = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (handle < 0) return;
  // A manager that does not read must hold up nobody: what it missed it is told again.
  (void)!::sendto(handle, lines.data(), lines.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address), size);
  ::close(handle);
}

}  // namespace ixocontroller
