#include "controller/links/LinkWatch.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

#include "controller/process/RealTime.h"
#include "controller/process/RoundThread.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/JsonText.h"

namespace ixocontroller {
namespace {

constexpr std::uint32_t kTimeoutMs = 1000;
constexpr std::uint32_t kLookMs = 50;  // between two looks at what is wanted

}  // namespace

TLinkWatch::~TLinkWatch() {
  FStop.Ask();
  {
    TGuard guard(FLock);
    if (FRequest) FRequest->Ask();
  }
  if (FThread.joinable()) FThread.join();
}

void TLinkWatch::Begin(TWatched watched) {
  TGuard guard(FLock);
  FWanted = std::move(watched);
  ++FNumber;
  FSeenMs = RealMs();
  FReadings.assign(FWanted->Count, {});
  FReads = FFailures = FGoodMs = 0;
  FLast.reset();
  if (std::exchange(FRuns, true)) return;
  if (FThread.joinable()) FThread.join();  // it has nothing left to do
  FThread = std::thread([this] { Run(); });
}

void TLinkWatch::End() {
  TGuard guard(FLock);
  FWanted.reset();
}

std::string TLinkWatch::Busy() {
  TGuard guard(FLock);
  return FWanted ? FWanted->Name : FBusy;
}

nlohmann::ordered_json TLinkWatch::Json() {
  TGuard guard(FLock);
  if (!FWanted) return nullptr;
  const std::uint64_t now = FSeenMs = RealMs();
  auto values = nlohmann::ordered_json::array();
  if (FGoodMs != 0)
    for (const TReading& of : FReadings)
      values.push_back({{"value", of.Value}, {"least", of.Least}, {"most", of.Most}, {"changes", of.Changes}});
  nlohmann::ordered_json json{{"link", FWanted->Name}, {"unit", FWanted->Unit},   {"table", FWanted->Table.Word},
                              {"addr", FWanted->Addr}, {"count", FWanted->Count}, {"everyMs", FWanted->EveryMs},
                              {"reads", FReads},       {"failures", FFailures},   {"outcome", nullptr},
                              {"problem", nullptr},    {"ageMs", nullptr},        {"values", std::move(values)}};
  if (FLast) json["outcome"] = OutcomeWord(FLast->Outcome);
  if (FLast && !FLast->Ok()) json["problem"] = ProblemJson(ProblemOf(*FLast, FWanted->Link, FWanted->Unit));
  if (FGoodMs != 0) json["ageMs"] = now - FGoodMs;
  return json;
}

// --- the watch's thread ---

// The end of the watch reaches the master that asks, for as long as that lives.
class TLinkWatch::TRequest {
 public:
  TRequest(TLinkWatch& watch, TStop& stop) : FWatch(watch) { Set(&stop); }
  ~TRequest() { Set(nullptr); }
  TRequest(const TRequest&) = delete;
  TRequest& operator=(const TRequest&) = delete;

 private:
  void Set(TStop* stop) {
    TGuard guard(FWatch.FLock);
    FWatch.FRequest = stop;
  }

  TLinkWatch& FWatch;
};

void TLinkWatch::Run() {
  pthread_setname_np(pthread_self(), "ixo-watch");
  for (;;) {
    TWatched watched;
    std::uint64_t number = 0;
    {
      TGuard guard(FLock);
      FBusy.clear();
      if (!FWanted || FStop.Asked()) {
        FRuns = false;
        return;
      }
      watched = *FWanted;
      number = FNumber;
      FBusy = watched.Name;
    }
    try {
      Read(number, watched);
    } catch (...) {
      LogFault("ixo-watch", std::current_exception());
      End();
    }
  }
}

void TLinkWatch::Read(std::uint64_t number, const TWatched& watched) {
  const auto device = MakeDevice<TModbusComm>("watch " + watched.Name);
  device->SlaveAddr = watched.Unit;
  device->IsTCP = watched.Link.TcpFraming;
  device->PreDelay = 0;
  TModbusStrictOptions options;
  options.TimeoutMs = options.ConnectMs = options.TotalMs = kTimeoutMs;
  options.Retries = 0;
  options.ClearOnSuccess = true;
  device->SetProfile(mpStrict, options);
  device->SetDataTransIntf(MakeTransport(watched.Link));
  const TRequest request(*this, device->Stop);
  for (std::uint64_t next = RealMs(); Wanted(number);) {
    Take(number, device->Read(watched.Table.Func, watched.Addr, watched.Count));
    next = std::max(next + watched.EveryMs, RealMs());
    for (std::uint64_t now = RealMs(); now < next && Wanted(number); now = RealMs())
      (void)FStop.WaitFor(static_cast<std::uint32_t>(std::min<std::uint64_t>(next - now, kLookMs)));
  }
  // A late reply must not be taken for another's.
  if (device->OwedMs() != 0 && !FStop.Asked()) (void)device->AwaitSilence();
}

void TLinkWatch::Take(std::uint64_t number, const TModbusResult& result) {
  TGuard guard(FLock);
  if (number != FNumber) return;
  ++FReads;
  FLast = result;
  if (!result.Ok()) {
    ++FFailures;
    return;
  }
  for (std::size_t i = 0; i < FReadings.size() && i < result.Registers.size(); ++i) {
    TReading& of = FReadings[i];
    const std::uint16_t value = result.Registers[i];
    if (FGoodMs != 0 && of.Value != value) ++of.Changes;
    of = {value, std::min(of.Least, value), std::max(of.Most, value), of.Changes};
  }
  FGoodMs = RealMs();
}

bool TLinkWatch::Wanted(std::uint64_t number) {
  TGuard guard(FLock);
  if (FWanted && RealMs() - FSeenMs > kUnseenMs) FWanted.reset();
  return FWanted && number == FNumber && !FStop.Asked();
}

}  // namespace ixocontroller
