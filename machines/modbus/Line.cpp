#include "machines/modbus/Line.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>
#include <pthread.h>
#include <utility>

#include "ixocamglue/platform/services/AppSys.h"
#include "ixocamglue/platform/services/Log.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {
namespace {

constexpr std::uint32_t kConnectMs = 1000;
constexpr std::uint32_t kIdleMs = 50;     // between two looks at everything
constexpr std::uint64_t kBeatLookMs = 5;  // after a start what runs first finds its watchdog fed
constexpr int kConnectTries = 3;          // of a read that is not answered while connecting
constexpr std::size_t kLastTries = 2;     // a station, or a point that it refuses, when the line ends

// Of what is due then, at most kIdleMs.
std::uint32_t Within(std::uint64_t due, std::uint64_t now) {
  return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(due - std::min(due, now), 1, kIdleMs));
}

constexpr const char* kForeign = TrMark(
    "something else than Modbus TCP answers there: look at Host and Port; "
    "RtuFraming is for a gateway that takes frames as on a serial line");

}  // namespace

// The link as requests see it: it stays as it is, and is never opened by one of them.
class TModbusLine::TFixedLink final : public INcDataTransIntf, public INcStreamIntf {
 public:
  // `heard` becomes when anything came over it.
  TFixedLink(std::shared_ptr<TNcCommTransBase> link, std::uint64_t& heard) : FLink(std::move(link)), FHeard(heard) {}
  bool CheckConnection() override { return FLink->Linked(); }
  bool SendBuff(const TBytes& buf) override { return FLink->Linked() && FLink->SendBuff(buf); }
  TBytes GetReceiveBuff() override { return FLink->ReceiveWithin(0); }
  bool Linked() const override { return FLink->Linked(); }
  bool Reopen(std::uint32_t) override { return false; }
  void CloseLink() override { FLink->CloseLink(); }
  std::uint64_t LinkId() const override { return FLink->LinkId(); }
  bool ClosingForgets() const override { return FLink->ClosingForgets(); }
  std::size_t Drain(std::size_t atMost) override { return FLink->Drain(atMost); }
  TBytes ReceiveWithin(std::uint32_t ms) override {
    TBytes received = FLink->ReceiveWithin(ms);
    if (!received.empty()) FHeard = Clock().MonotonicMs();
    return received;
  }

 private:
  const std::shared_ptr<TNcCommTransBase> FLink;
  std::uint64_t& FHeard;
};

TModbusLine::TModbusLine(const TLinkAddress& link, const TNcWatch& watch, IModbusStations& listener)
    : FAddress(link), FWatch(watch), FListener(listener), FComm(new TModbusComm("modbus " + link.Text())) {
  FComm->IsTCP = link.TcpFraming;
  FComm->PreDelay = 0;
  // The line tells of failures in words of its own: a state that stands keeps the master from logging them.
  FComm->LastError = kModbusNoConnection;
}

TModbusLine::~TModbusLine() {
  FStop.Ask();
  Wake();
  if (FThread.joinable()) FThread.join();
}

std::size_t TModbusLine::AddStation(const TModbusStationConfig& config) {
  TStation& station = FStations.emplace_back();
  station.Index = FValues.AddStation(config);
  station.Config = config;
  TModbusStrictOptions& options = station.Options;
  options.TimeoutMs = options.TotalMs = static_cast<std::uint32_t>(config.TimeOutMs);
  options.LateReplyMs = static_cast<std::uint32_t>(config.LateReplyMs);
  options.TellApart = true;
  options.RetryWrites = true;  // a value, on the same connection: twice is as good as once
  if (config.ProbeRegister >= 0) options.ProbeRegister = static_cast<std::uint16_t>(config.ProbeRegister);
  return station.Index;
}

std::size_t TModbusLine::AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address) {
  FStations[station].Cells.push_back(address.Cell);
  return FValues.AddPoint(station, kind, address);
}

void TModbusLine::Use(const TStation& station) {
  FComm->SlaveAddr = static_cast<std::uint8_t>(station.Config.Unit);
  FComm->SetProfile(mpStrict, station.Options);
}

// --- connecting ---

TResult<> TModbusLine::Open() {
  const bool opened = FLink->Reopen(kConnectMs);
  FHeardMs = Clock().MonotonicMs();
  if (opened) return {};
  return TProblem{.What = Format(Tr("%s cannot be reached"), FAddress.Text().c_str()),
                  .Why = FLink->OpenProblem().What,
                  .Remedy = Tr("\"ixocut link doctor\" finds out what is wrong with the link")};
}

TResult<> TModbusLine::Connect() {
  FLink = MakeTransport(FAddress);
  FComm->SetDataTransIntf(std::make_shared<TFixedLink>(FLink, FHeardMs));
  if (auto opened = Open(); !opened) return opened;
  for (TStation& station : FStations)
    if (auto connected = ConnectStation(station); !connected) return connected;
  FSign.emplace("modbus " + FStations.front().Config.Name, tkDevice);
  FThread = std::thread([this] { Execute(); });
  return {};
}

TResult<> TModbusLine::ConnectStation(TStation& station) {
  for (int tries = 0; tries < kConnectTries; ++tries) {
    station.Blocks.clear();
    if (auto read = PlanAndRead(station, station.Cells, kModbusGaps); !read) return read;
    if (!FValues.Stale(station.Index, Clock().MonotonicMs()))
      break;  // a reply that did not come has cost the first ones their age
  }
  return {};
}

TResult<> TModbusLine::PlanAndRead(TStation& station, const std::vector<TModbusCell>& cells,
                                   std::span<const TModbusGap> gaps) {
  for (const TModbusBlock& block : PlanReads(cells, gaps.front())) {
    TModbusResult result = ReadBlock(station, block);
    for (int tries = 1; !result.Ok() && result.Outcome != moException && tries < kConnectTries; ++tries) {
      if (!FLink->Linked())
        if (auto opened = Open(); !opened) return opened;
      Clock().Sleep(HeldMs(station, block));
      result = ReadBlock(station, block);
    }
    if (result.Ok()) {
      station.Blocks.push_back(block);
      continue;
    }
    if (result.Outcome != moException || block.Count == 1 || gaps.size() == 1) return Refusal(station, block, result);
    std::vector<TModbusCell> inside;
    std::ranges::copy_if(cells, std::back_inserter(inside), [&](const TModbusCell& cell) { return block.Has(cell); });
    if (auto read = PlanAndRead(station, inside, gaps.subspan(1)); !read) return read;
  }
  return {};
}

std::string TModbusLine::BlockText(const TStation& station, const TModbusBlock& block) {
  const std::string text = station.Config.Name + ":" + block.First.Text();
  return block.Count == 1 ? text : text + Format("..%d", block.First.Addr + block.Count - 1);
}

TProblem TModbusLine::Refusal(const TStation& station, const TModbusBlock& block, const TModbusResult& result) {
  TProblem problem{.What = OutcomeText(result),
                   .Where = Format(Tr("station %s (%s, unit %d)"), station.Config.Name.c_str(), FAddress.Text().c_str(),
                                   station.Config.Unit)};
  if (result.Outcome != moException) {
    problem.Remedy =
        IsForeign(result) ? Tr(kForeign) : Tr("\"ixocut link doctor\" finds out what is wrong with the link");
    return problem;
  }
  for (std::size_t i = 0; i < FValues.Points(); ++i) {
    const TModbusValues::TPoint& point = FValues.Point(i);
    if (point.Station != station.Index || !block.Has(point.Address.Cell)) continue;
    const TModbusResult alone = FComm->Read(point.Address.Cell.ReadFunction(), point.Address.Cell.Addr, 1);
    if (alone.Ok()) continue;
    problem.What = Format("%s: %s", point.Address.Text().c_str(), OutcomeText(alone).c_str());
    problem.Remedy = Tr("compare the address with the device's manual: some count from 1, or from 40001");
    break;
  }
  return problem;
}

// --- the thread ---

void TModbusLine::Execute() {
  pthread_setname_np(pthread_self(), "ixo-modbus");
  try {
    while (!FStop.Asked()) {
      FSign->Beat();
      if (const std::uint32_t ms = Round(); ms != 0) Pause(ms);
    }
    WriteLastZeros();
  } catch (...) {
    LogMsg(lkException, 0, "ixo-modbus: " + DescribeException(std::current_exception()));
    FSign->Failed();
    LoseLink(Tr("the thread that talks to it has ended by a fault"));
  }
}

void TModbusLine::Wake() {
  {
    const std::lock_guard guard(FWaking);
    FWoken = true;
  }
  FWork.notify_one();
}

void TModbusLine::Pause(std::uint32_t ms) {
  std::unique_lock lock(FWaking);
  FWork.wait_for(lock, std::chrono::milliseconds(ms), [this] { return FWoken; });
  FWoken = false;
}

std::uint32_t TModbusLine::Round() {
  const std::uint64_t now = Clock().MonotonicMs();
  if (!FLink->Linked()) return RoundWithoutLink(now);
  const auto timeOut = static_cast<std::uint64_t>(FStations.front().Config.TimeOutMs);
  if (FLink->ClosingForgets() && FValues.IsAway(0) && now - FHeardMs > kSilentMs + timeOut) {
    LoseLink(Format(Tr("it has not answered for %d ms"), ShownMs(now - FHeardMs)));
    return 1;
  }
  for (TStation& station : FStations)
    if (const auto stale = FValues.Stale(station.Index, now); stale && !FValues.IsAway(station.Index))
      GoAway(station,
             Format(Tr("%s could not be read for %d ms"), FValues.Point(*stale).Address.Text().c_str(),
                    ShownMs(FValues.AgeMs(*stale).value_or(0))),
             true);
  if (const auto zero = FValues.NextZero(now)) {
    Write(*zero);
    return 0;
  }
  for (TStation& station : FStations)
    if (Feed(station, now)) return 0;
  if (const auto value = FValues.NextValue()) {
    Write(*value);
    return 0;
  }
  // The one that has waited for longest: a slow line has none that is not due.
  TStation& next = *std::ranges::min_element(FStations, {}, [this](const TStation& each) { return ReadDueMs(each); });
  if (ReadDueMs(next) <= now) {
    ReadNext(next, now);
    return 0;
  }
  return Within(NextDueMs(), now);
}

std::uint32_t TModbusLine::RoundWithoutLink(std::uint64_t now) {
  if (std::ranges::any_of(FStations, [this](const TStation& each) { return !FValues.IsAway(each.Index); }))
    LoseLink(Tr("the connection has ended"));
  const std::uint64_t due = FTriedMs + (FValues.OwesZeros() ? kRetryMs : FOpenMs);
  if (now < due) return Within(due, now);
  auto opened = Open();
  FOpenMs = std::min(FOpenMs * 2, kRetryMostMs);
  FTriedMs = Clock().MonotonicMs();
  if (!opened) {
    LoseLink(opened.Problem().Text());
    return 1;
  }
  FValues.TryZerosNow();
  for (TStation& station : FStations) {
    station.RetryDueMs = 0;
    station.RetryMs = kRetryMs;
  }
  return 1;
}

std::uint64_t TModbusLine::ReadDueMs(const TStation& station) {
  return std::max(station.HeldUntilMs, FValues.IsAway(station.Index) ? station.RetryDueMs : station.CycleDueMs);
}

std::uint64_t TModbusLine::NextDueMs() {
  std::uint64_t due = FValues.ZeroDueMs().value_or(std::numeric_limits<std::uint64_t>::max());
  for (const TStation& station : FStations) {
    due = std::min(due, ReadDueMs(station));
    if (station.Config.WatchdogRegister >= 0 && !FValues.IsAway(station.Index)) due = std::min(due, station.FeedDueMs);
  }
  return due;
}

// What is to go off goes off before the line ends.
void TModbusLine::WriteLastZeros() {
  if (FValues.OwesZeros() && !FLink->Linked()) (void)Open();
  std::size_t failed = 0, refused = 0;
  while (failed < kLastTries * FStations.size() && refused < kLastTries * FValues.Points() && FLink->Linked()) {
    const auto zero = FValues.NextZero(std::numeric_limits<std::uint64_t>::max());
    if (!zero) return;
    FSign->Beat();
    const TModbusOutcome outcome = Write(*zero);
    if (outcome != moOk) ++(outcome == moException ? refused : failed);
  }
}

std::uint32_t TModbusLine::HeldMs(const TStation& station, const TModbusBlock& block) {
  Use(station);
  return FComm->HeldMs(block.First.ReadFunction(), block.First.Addr, block.Count);
}

TModbusResult TModbusLine::Counted(const TStation& station, TModbusResult result) {
  if (result.Outcome != moStopped) FValues.Count(station.Index, result.Ok(), result.ElapsedUs);
  return result;
}

TModbusResult TModbusLine::ReadBlock(TStation& station, const TModbusBlock& block) {
  Use(station);
  TModbusResult result =
      Counted(station, FComm->Read(block.First.ReadFunction(), block.First.Addr, block.Count, std::move(FReuse)));
  if (result.Ok()) FValues.Take(station.Index, block, result.Registers, result.AskedMs);
  FReuse = std::move(result.Registers);
  result.Registers.clear();
  return result;
}

void TModbusLine::ReadNext(TStation& station, std::uint64_t now) {
  if (station.NextBlock == 0) station.CycleStartMs = now;
  const TModbusBlock block = station.Blocks[station.NextBlock];
  if (const auto held = HeldMs(station, block)) {
    station.HeldUntilMs = now + held;
    station.NextBlock = 0;  // the others' values are old by then
    return;
  }
  const TModbusResult result = ReadBlock(station, block);
  if (!result.Ok()) {
    station.CycleDueMs = Clock().MonotonicMs();  // behind those that wait as well
    return Failed(station, BlockText(station, block), result);
  }
  const bool away = FValues.IsAway(station.Index);
  if (away && Clock().MonotonicMs() - result.AskedMs > static_cast<std::uint64_t>(station.Config.StaleMs)) {
    station.RetryDueMs = now;  // it was late: the reply to an earlier request, or a slow one
    return;
  }
  if (++station.NextBlock < station.Blocks.size()) return;
  station.NextBlock = 0;
  station.CycleDueMs = station.CycleStartMs + static_cast<std::uint64_t>(station.Config.CycleMs);
  if (away) NoteBack(station);
}

void TModbusLine::NoteBack(TStation& station) {
  if (!FValues.ComeBack(station.Index)) return;  // a zero came meanwhile: it goes first
  station.FeedDueMs = 0;
  station.RetryMs = kRetryMs;
  FOpenMs = kRetryMs;
  FListener.StationBack(station.Config.Name);
}

TModbusOutcome TModbusLine::Write(const TModbusValues::TOrder& order) {
  const TModbusValues::TPoint& point = FValues.Point(order.Point);
  TStation& station = FStations[point.Station];
  std::uint16_t number = 0;
  TModbusResult result;
  if (point.Address.Bit) result = Before(station, order.Point, number);
  if (result.Ok()) {
    Use(station);
    const TModbusCell& cell = point.Address.Cell;
    number = point.Address.Raw(point.Kind, order.Value, number);
    result = Counted(station, FComm->Write(cell.IsBit() ? kModbusWriteCoil : kModbusWriteOne, cell.Addr, {&number, 1}));
  }
  if (result.Ok()) {
    FValues.Told(order, number, result.AskedMs);
    station.HeldUntilMs = 0;  // that may have settled what is owed
    return result.Outcome;
  }
  FValues.NotTold(order, result.Outcome == moException);
  Failed(station, point.Address.Text(), result, true);
  return result.Outcome;
}

// Its other bits are not ours. Where the reply to a read could be taken for another's, an off does not wait for it.
TModbusResult TModbusLine::Before(const TStation& station, std::size_t point, std::uint16_t& before) {
  const TModbusCell& cell = FValues.Point(point).Address.Cell;
  if (HeldMs(station, {cell, 1}) != 0)
    if (const auto known = FValues.Register(point)) {
      before = *known;
      return {};
    }
  TModbusResult result = Counted(station, FComm->Read(cell.ReadFunction(), cell.Addr, 1));
  if (result.Ok()) before = result.Registers[0];
  return result;
}

bool TModbusLine::Feed(TStation& station, std::uint64_t now) {
  if (station.Config.WatchdogRegister < 0 || now < station.FeedDueMs || FValues.IsAway(station.Index)) return false;
  if (const std::uint64_t beat = FWatch.BeatMs.load(std::memory_order_acquire); now > beat && now - beat >= kBeatMs) {
    station.FeedDueMs = now + kBeatLookMs;
    return false;
  }
  station.FeedDueMs = now + static_cast<std::uint64_t>(station.Config.WatchdogPeriodMs);
  Use(station);
  if (++station.Feeds == 0) station.Feeds = 1;
  const TModbusResult result = Counted(
      station,
      FComm->Write(kModbusWriteOne, static_cast<std::uint16_t>(station.Config.WatchdogRegister), {&station.Feeds, 1}));
  if (result.Ok())
    station.HeldUntilMs = 0;  // that may have settled what is owed
  else
    Failed(station, Format(Tr("watchdog register %d"), station.Config.WatchdogRegister), result);
  return true;
}

// --- away and back ---

void TModbusLine::Failed(TStation& station, const std::string& what, const TModbusResult& result, bool write) {
  const std::string why = what + ": " + OutcomeText(result);
  switch (result.Outcome) {
    case moOk:
    case moStopped: return;
    case moNoConnection: return LoseLink(what + ": " + Tr("the connection has ended"));  // no request opens one
    case moException:
    case moBadRequest: return GoAway(station, why);
    case moTimeout:
    case moInvalid: {
      if (IsForeign(result)) return LoseLink(why + "; " + Tr(kForeign));
      // Another reply that is waited for in vain would be too late.
      const std::uint64_t until = Clock().MonotonicMs() + static_cast<std::uint64_t>(station.Config.TimeOutMs);
      if (write || FValues.IsAway(station.Index) || FValues.Stale(station.Index, until))
        GoAway(station, why, result.Outcome == moTimeout);
    }
  }
}

bool TModbusLine::IsForeign(const TModbusResult& result) const {
  return result.Outcome == moInvalid && FAddress.TcpFraming && !FLink->Linked();
}

void TModbusLine::GoAway(TStation& station, const std::string& why, bool silent) {
  const bool first = FValues.GoAway(station.Index, why, silent);
  station.NextBlock = 0;
  station.RetryMs = first ? kRetryMs : std::min(station.RetryMs * 2, kRetryMostMs);
  station.RetryDueMs = Clock().MonotonicMs() + station.RetryMs;
  if (first) FListener.StationAway(station.Config.Name, why);
}

void TModbusLine::LoseLink(const std::string& why) {
  FLink->CloseLink();
  for (TStation& station : FStations) GoAway(station, why);
}

// --- values ---

void TModbusLine::Write(std::size_t point, double value) {
  if (FValues.Write(point, value)) Wake();
}

std::vector<TPortFacts> TModbusLine::StationFacts() {
  std::vector<TPortFacts> all;
  for (const TStation& station : FStations) {
    const TModbusValues::TStationNow now = FValues.Station(station.Index);
    TPortFacts& facts = all.emplace_back();
    facts.Port = station.Config.Name;
    facts.Value =
        Format(Tr("%s, unit %d: %d requests every %d ms; %llu sent, %llu of them failed, the longest took %.1f ms"),
               FAddress.Text().c_str(), station.Config.Unit, static_cast<std::int32_t>(station.Blocks.size()),
               station.Config.CycleMs, static_cast<unsigned long long>(now.Sent),
               static_cast<unsigned long long>(now.Failed), static_cast<double>(now.LongestUs) / 1000.0);
    facts.AgeMs = now.AgeMs;
    facts.Readable = !now.Away && facts.AgeMs;
    if (now.Away)
      facts.Warning = now.AwayWhy;
    else if (now.Lights && station.Config.WatchdogRegister < 0)
      facts.Warning = Tr("no watchdog: the laser stays on when the controller or the connection ends");
  }
  return all;
}

}  // namespace ixocamglue
