#include "controller/service/Events.h"

#include <random>
#include <utility>

#include "controller/process/RealTime.h"
#include "ixocamglue/support/Format.h"

namespace ixocontroller {
namespace {

std::string NewEpoch() {
  std::random_device random;
  return Format("%08x%08x", random(), random());
}

}  // namespace

const char* EventName(TEventKind kind) {
  switch (kind) {
    case evState: return "state";
    case evStep: return "step";
    case evAlarm: return "alarm";
    case evRun: return "run";
    case evLed: return "led";
    case evSignals: return "signals";
    case evLog: return "log";
    case evLease: return "lease";
    case evKey: return "key";
    case evQueue: return "queue";
  }
  return "";
}

TEventRing::TEventRing() : FEpoch(NewEpoch()) {}

void TEventRing::Add(TEventKind kind, TEventBody body) {
  TServiceEvent event{0, kind, RealUnixMs(), std::move(body)};  // what it replaces ends behind the lock
  std::shared_ptr<const std::function<void()>> told;
  {
    TGuard guard(FLock);
    told = FTold;
    event.Number = ++FLast;
    if (kind == evSignals) {
      std::swap(FSignals, event);
    } else if (FRing.size() < kEvents) {
      FRing.push_back(std::move(event));
    } else {
      FGone = FRing[FFirst].Number;
      std::swap(FRing[FFirst], event);
      FFirst = (FFirst + 1) % kEvents;
    }
  }
  if (told) (*told)();
}

void TEventRing::OnAdded(std::function<void()> told) {
  auto next = told ? std::make_shared<const std::function<void()>>(std::move(told)) : nullptr;
  TGuard guard(FLock);
  FTold.swap(next);
}

std::uint64_t TEventRing::Last() const {
  TGuard guard(FLock);
  return FLast;
}

TEventRing::TRead TEventRing::Read(std::uint64_t after, std::size_t most) const {
  TRead read;
  TGuard guard(FLock);
  if (after < FGone) {
    read.MissedFrom = after + 1;
    read.MissedTo = FGone;
  }
  // The numbers rise, so the first one to read is found from the newest backwards.
  std::size_t count = 0;
  while (count < FRing.size() && At(FRing.size() - 1 - count).Number > after) ++count;
  bool signals = FSignals.Number > after;
  for (std::size_t i = FRing.size() - count; i < FRing.size() && read.Events.size() < most; ++i) {
    if (signals && FSignals.Number < At(i).Number) {
      read.Events.push_back(FSignals);
      signals = false;
      if (read.Events.size() == most) return read;
    }
    read.Events.push_back(At(i));
  }
  if (signals && read.Events.size() < most) read.Events.push_back(FSignals);
  return read;
}

}  // namespace ixocontroller
