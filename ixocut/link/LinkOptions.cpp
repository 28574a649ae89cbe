#include "ixocut/link/LinkOptions.h"

#include <atomic>
#include <iostream>
#include <pthread.h>
#include <thread>

#include "controller/StateFolder.h"
#include "controller/config/MachineFile.h"
#include "controller/links/ConfiguredLinks.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"
#include "ixocut/Machines.h"

namespace ixocut {
namespace {

TLinkAddress LinkAt(const TResult<TLinkAddress>& link, const std::string& where) {
  if (link) return *link;
  TProblem problem = link.Problem();
  problem.Where = where;
  throw EProblem(pbRequest, std::move(problem));
}

TLinkAddress LinkOfFile(const TLinkOptions& options) {
  TMachineFile file(Machines());
  file.Load(MachineFile(options.Machine, options.State));
  const auto* const store = dynamic_cast<const TModbusStoreConfig*>(file.Config().SubConfig("ModbusStore"));
  return FindLink(ConfiguredLinks(store), options.Name).OrThrow(pbRequest).Address;
}

sigset_t StopSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&signals, signal);
  return signals;
}

}  // namespace

void AddLinkOptions(TCommand command, TLinkOptions& options) {
  const TOption tcp =
      command.Text("--tcp", options.Tcp, Tr("The device's host and port (502 unless given)"), "HOST[:PORT]");
  const TOption serial =
      command
          .Text("--serial", options.Serial, Tr("The serial device and its settings (9600,n,8,1 unless given)"),
                "DEVICE[,BAUD,PARITY,DATA,STOP]")
          .Excludes(tcp);
  const TOption link =
      command
          .Text("--link", options.Name,
                Tr("A link of the machine file instead, with its settings and its probe register"), "NAME")
          .Excludes(tcp)
          .Excludes(serial);
  for (const TOption option : AddMachineOptions(command, options.Machine, options.State)) option.Needs(link);
  command.Text("--framing", options.Framing, Tr("rtu or tcp (by the link unless given)"), "FRAMING")
      .OneOf({"rtu", "tcp"});
}

TLinkAddress ParseLink(const TLinkOptions& options) {
  TLinkAddress link;
  if (!options.Name.empty())
    link = LinkOfFile(options);
  else if (!options.Tcp.empty())
    link = LinkAt(ParseTcpLink(options.Tcp), "--tcp " + options.Tcp);
  else if (!options.Serial.empty())
    link = LinkAt(ParseSerialLink(options.Serial), "--serial");
  else
    throw EProblem(pbRequest, Tr("one of --tcp HOST[:PORT], --serial DEVICE and --link NAME is needed"));
  if (!options.Framing.empty()) link.TcpFraming = options.Framing == "tcp";
  return link;
}

std::string LateReplyText(const char* command, std::uint32_t silenceMs) {
  return Format(Tr("ixocut %s: a late reply may still come; wait %u s before the next command\n"), command,
                (silenceMs + 999) / 1000);
}

bool LeaveLineSilent(TModbusComm& device, const char* command, bool tell) {
  const std::uint32_t ms = device.OwedMs();
  if (ms == 0) return false;
  if (tell && !device.Stop.Asked())
    std::cerr << Format(Tr("ixocut %s: a late reply would be taken for the next request's: waiting until the line has "
                           "been silent for %.1f s (Ctrl-C ends the wait)\n"),
                        command, ms / 1000.0)
              << std::flush;
  if (device.Stop.Asked() || !device.AwaitSilence().Ok())
    std::cerr << LateReplyText(command, device.SilenceMs()) << std::flush;
  return true;
}

TSignalsBlocked::TSignalsBlocked() {
  const sigset_t signals = StopSignals();
  ::pthread_sigmask(SIG_BLOCK, &signals, &FBefore);
}

TSignalsBlocked::~TSignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &FBefore, nullptr); }

// The signals are taken by a thread of their own, which may lock what it likes.
struct TStopOnSignal::TImpl {
  enum TState : std::uint8_t { siIdle, siBegun, siGivenUp };

  void Watch(TStop& stop) {
    pthread_setname_np(pthread_self(), "ixo-signals");
    constexpr timespec kSlice{0, 20'000'000};
    const sigset_t signals = StopSignals();
    std::uint64_t askedMs = 0;
    while (!Ending) {
      const bool signal = ::sigtimedwait(&signals, nullptr, &kSlice) > 0;
      const std::uint64_t now = Clock().MonotonicMs();
      if (signal) stop.Ask();
      if (signal && askedMs == 0) askedMs = now;
      const std::uint64_t deadline = DeadlineMs;
      const bool overdue = askedMs == 0 && deadline != 0 && now >= deadline + kGiveUpMs;
      if (!overdue && (askedMs == 0 || now < askedMs + kGiveUpMs)) continue;
      TState begun = siBegun;
      if (GiveUp && State.compare_exchange_strong(begun, siGivenUp)) GiveUp(overdue);
    }
  }

  std::function<void(bool)> GiveUp;
  std::atomic<bool> Ending{false};
  std::atomic<std::uint64_t> DeadlineMs{0};
  std::atomic<TState> State{siIdle};
  std::thread Thread;
};

TStopOnSignal::TStopOnSignal(TStop& stop, std::function<void(bool overdue)> giveUp) : FImpl(std::make_unique<TImpl>()) {
  FImpl->GiveUp = std::move(giveUp);
  FImpl->Thread = std::thread([&stop, impl = FImpl.get()] { impl->Watch(stop); });
}

TStopOnSignal::~TStopOnSignal() {
  FImpl->Ending = true;
  FImpl->Thread.join();
}

void TStopOnSignal::Begin(std::uint64_t deadlineMs) {
  FImpl->DeadlineMs = deadlineMs;
  FImpl->State = TImpl::siBegun;
}

void TStopOnSignal::End() {
  TImpl::TState begun = TImpl::siBegun;
  if (FImpl->State.compare_exchange_strong(begun, TImpl::siIdle)) return;
  if (begun == TImpl::siGivenUp) FImpl->Thread.join();  // which ends the process
}

}  // namespace ixocut
