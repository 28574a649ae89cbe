#include "machines/modbus/Line.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
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
constexpr std::uint32_t kIdleMs = 50;  // between two looks at everything
constexpr int kConnectTries = 3;       // of a read that is not answered while connecting

std::int32_t Ms(std::uint64_t ms) { return static_cast<std::int32_t>(std::min<std::uint64_t>(ms, 2'000'000'000)); }

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

std::size_t TModbusLine::TStation::OldestBlock() const {
  return static_cast<std::size_t>(std::ranges::min_element(BlockMs) - BlockMs.begin());
}

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
  station.Config = config;
  TModbusStrictOptions& options = station.Options;
  options.TimeoutMs = options.TotalMs = static_cast<std::uint32_t>(config.TimeOutMs);
  options.LateReplyMs = static_cast<std::uint32_t>(config.LateReplyMs);
  options.TellApart = true;
  options.RetryWrites = true;  // a value, on the same connection: twice is as good as once
  if (config.ProbeRegister >= 0) options.ProbeRegister = static_cast<std::uint16_t>(config.ProbeRegister);
  return FStations.size() - 1;
}

std::size_t TModbusLine::AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address) {
  TPoint& point = FPoints.emplace_back();
  point.Kind = kind;
  point.Address = address;
  point.Station = station;
  FStations[station].Cells.push_back(address.Cell);
  return FPoints.size() - 1;
}

void TModbusLine::NoteLight(std::size_t point) { FStations[FPoints[point].Station].Lights = true; }

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
    station.BlockMs.clear();
    if (auto read = PlanAndRead(station, station.Cells, kModbusGaps); !read) return read;
    if (!station.IsStale(Clock().MonotonicMs())) break;  // a reply that did not come has cost the first ones their age
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
      if (const auto held = FComm->HeldMs(block.First.ReadFunction(), block.First.Addr, block.Count))
        Clock().Sleep(held);
      result = ReadBlock(station, block);
    }
    if (result.Ok()) {
      station.Blocks.push_back(block);
      station.BlockMs.push_back(result.AskedMs);
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
    problem.Remedy = Tr("\"ixocut link doctor\" finds out what is wrong with the link");
    return problem;
  }
  for (const TPoint& point : FPoints) {
    if (&FStations[point.Station] != &station || !block.Has(point.Address.Cell)) continue;
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
    // What is to go off goes off before the line ends.
    for (TStation& station : FStations)
      while (WriteNext(station, true) && !station.Away) FSign->Beat();
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
  const auto within = [](std::uint64_t ms) {
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(ms, 1, kIdleMs));
  };
  if (!FLink->Linked()) {
    if (std::ranges::any_of(FStations, [](const TStation& station) { return !station.Away; }))
      LoseLink(Tr("the connection has ended"));
    if (now < FOpenDueMs) return within(FOpenDueMs - now);
    auto opened = Open();
    FOpenMs = std::min(FOpenMs * 2, kRetryMostMs);
    FOpenDueMs = Clock().MonotonicMs() + FOpenMs;
    if (!opened) {
      LoseLink(opened.Problem().Text());
      return 1;
    }
    TGuard guard(FLock);
    for (TStation& station : FStations) {
      station.RetryDueMs = station.ZeroDueMs = 0;
      station.RetryMs = kRetryMs;
    }
    return 1;
  }
  const auto timeOut = static_cast<std::uint64_t>(FStations.front().Config.TimeOutMs);
  if (FLink->ClosingForgets() && FStations.front().Away && now - FHeardMs > kSilentMs + timeOut) {
    LoseLink(Format(Tr("it has not answered for %d ms"), Ms(now - FHeardMs)));
    return 1;
  }
  for (TStation& station : FStations)
    if (!station.Away && station.IsStale(now)) {
      const std::size_t oldest = station.OldestBlock();
      GoAway(station, Format(Tr("%s could not be read for %d ms"), BlockText(station, station.Blocks[oldest]).c_str(),
                             Ms(now - station.BlockMs[oldest])));
    }
  if (WriteZero(now)) return 0;
  for (TStation& station : FStations)
    if (Feed(station, now)) return 0;
  for (TStation& station : FStations)
    if (!station.Away && WriteNext(station, false)) return 0;
  // The one that has waited for longest: a slow line has none that is not due.
  TStation& next = *std::ranges::min_element(FStations, {}, &TStation::ReadDueMs);
  if (next.ReadDueMs() <= now) {
    ReadNext(next, now);
    return 0;
  }
  std::uint64_t due = now + kIdleMs;
  for (const TStation& station : FStations) due = std::min(due, NextDueMs(station));
  return within(due - std::min(due, now));
}

std::uint64_t TModbusLine::NextDueMs(const TStation& station) {
  std::uint64_t due = station.ReadDueMs();
  if (!station.Away && station.Config.WatchdogRegister >= 0) due = std::min(due, station.FeedDueMs);
  TGuard guard(FLock);
  return station.Zeros.empty() ? due : std::min(due, station.ZeroDueMs);
}

bool TModbusLine::WriteZero(std::uint64_t now) {
  TStation* next = nullptr;
  {
    TGuard guard(FLock);
    for (TStation& station : FStations)
      if (!station.Zeros.empty() && station.ZeroDueMs <= now && (!next || station.GoodMs > next->GoodMs))
        next = &station;
  }
  return next && WriteNext(*next, true);
}

TModbusResult TModbusLine::ReadBlock(TStation& station, const TModbusBlock& block) {
  Use(station);
  TModbusResult result = FComm->Read(block.First.ReadFunction(), block.First.Addr, block.Count, std::move(FReuse));
  if (result.Ok()) {
    TGuard guard(FLock);
    station.GoodMs = std::max(station.GoodMs, result.AskedMs);
    for (TPoint& point : FPoints) {
      if (&FStations[point.Station] != &station || !block.Has(point.Address.Cell)) continue;
      point.Raw = result.Registers[point.Address.Cell.Addr - block.First.Addr];
      point.ReadMs = result.AskedMs;
      if (!point.SentMs || result.AskedMs < *point.SentMs) continue;
      const bool taken = point.Address.Raw(point.Kind, point.Wanted, point.Raw) == point.Raw;
      (taken ? point.Settled : point.Ignored) = true;
      if (point.Settled || point.Wanted != 0.0) continue;
      const auto index = static_cast<std::size_t>(&point - FPoints.data());
      if (std::ranges::find(station.Zeros, index) == station.Zeros.end()) station.Zeros.push_back(index);
    }
  }
  FReuse = std::move(result.Registers);
  result.Registers.clear();
  return result;
}

void TModbusLine::ReadNext(TStation& station, std::uint64_t now) {
  if (station.NextBlock == 0) station.CycleStartMs = now;
  const TModbusBlock block = station.Blocks[station.NextBlock];
  Use(station);
  if (const auto held = FComm->HeldMs(block.First.ReadFunction(), block.First.Addr, block.Count)) {
    station.HeldUntilMs = now + held;
    station.NextBlock = 0;  // the others' values are old by then
    return;
  }
  const TModbusResult result = ReadBlock(station, block);
  if (!result.Ok()) return Failed(station, BlockText(station, block), result);
  {
    TGuard guard(FLock);
    station.BlockMs[station.NextBlock] = result.AskedMs;
  }
  if (station.Away && station.IsStale(result.AskedMs, Clock().MonotonicMs())) {
    station.RetryDueMs = now;  // it was late: the reply to an earlier request, or a slow one
    return;
  }
  if (++station.NextBlock < station.Blocks.size()) return;
  station.NextBlock = 0;
  station.CycleDueMs = station.CycleStartMs + static_cast<std::uint64_t>(station.Config.CycleMs);
  if (station.Away) NoteBack(station);
}

void TModbusLine::NoteBack(TStation& station) {
  {
    TGuard guard(FLock);
    if (!station.Zeros.empty()) return;  // one came meanwhile: it goes first
    station.Away = false;
    station.AwayWhy.clear();
    station.FeedDueMs = 0;
    station.RetryMs = kRetryMs;
  }
  FOpenMs = kRetryMs;
  FListener.StationBack(station.Config.Name);
}

bool TModbusLine::WriteNext(TStation& station, bool zeros) {
  std::size_t index = 0;
  double value = 0.0;
  {
    TGuard guard(FLock);
    auto& queue = zeros ? station.Zeros : station.Values;
    if (queue.empty()) return false;
    index = queue.front();
    queue.pop_front();
    if (!zeros) value = FPoints[index].Wanted;
  }
  const TPoint& point = FPoints[index];
  const TModbusResult result = WritePoint(station, point, value);
  {
    TGuard guard(FLock);
    const auto waits = [&](const std::deque<std::size_t>& queue) {
      return std::ranges::find(queue, index) != queue.end();
    };
    const std::uint64_t now = Clock().MonotonicMs();
    if (result.Ok()) station.GoodMs = std::max(station.GoodMs, result.AskedMs);
    if (result.Ok() && !waits(station.Zeros) && !waits(station.Values)) FPoints[index].SentMs = now;
    if (!result.Ok() && zeros) {
      if (!waits(station.Zeros)) station.Zeros.push_front(index);
      station.ZeroDueMs = station.Away ? now + kRetryMs : now;
    }
  }
  if (result.Ok()) return true;
  Failed(station, point.Address.Text(), result, true);
  return true;
}

TModbusResult TModbusLine::WritePoint(TStation& station, const TPoint& point, double value) {
  Use(station);
  const TModbusCell& cell = point.Address.Cell;
  std::uint16_t before = 0;
  if (point.Address.Bit) {  // of a register whose other bits are not ours
    TModbusResult read = FComm->Read(cell.ReadFunction(), cell.Addr, 1);
    if (!read.Ok()) return read;
    before = read.Registers[0];
  }
  const std::uint16_t raw = point.Address.Raw(point.Kind, value, before);
  return FComm->Write(cell.IsBit() ? kModbusWriteCoil : kModbusWriteOne, cell.Addr, {&raw, 1});
}

bool TModbusLine::Feed(TStation& station, std::uint64_t now) {
  if (station.Away || station.Config.WatchdogRegister < 0 || now < station.FeedDueMs) return false;
  station.FeedDueMs = now + static_cast<std::uint64_t>(station.Config.WatchdogPeriodMs);
  if (const std::uint64_t beat = FWatch.BeatMs.load(std::memory_order_acquire); now > beat && now - beat >= kBeatMs)
    return false;
  Use(station);
  if (++station.Feeds == 0) station.Feeds = 1;
  const TModbusResult result =
      FComm->Write(kModbusWriteOne, static_cast<std::uint16_t>(station.Config.WatchdogRegister), {&station.Feeds, 1});
  if (!result.Ok()) Failed(station, Format(Tr("watchdog register %d"), station.Config.WatchdogRegister), result);
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
      // Another reply that is waited for in vain would be too late.
      const std::uint64_t until = Clock().MonotonicMs() + static_cast<std::uint64_t>(station.Config.TimeOutMs);
      if (write || station.Away || station.IsStale(until)) GoAway(station, why);
    }
  }
}

void TModbusLine::GoAway(TStation& station, const std::string& why) {
  const std::uint64_t now = Clock().MonotonicMs();
  bool first = false;
  {
    TGuard guard(FLock);
    first = !std::exchange(station.Away, true);
    station.AwayWhy = why;
    station.Values.clear();
    for (std::size_t i = 0; first && i < FPoints.size(); ++i) {
      TPoint& point = FPoints[i];
      if (&FStations[point.Station] != &station) continue;
      const bool zero = point.Written && !point.Settled && point.Wanted == 0.0;
      if (zero && std::ranges::find(station.Zeros, i) == station.Zeros.end()) station.Zeros.push_back(i);
      point.Written = zero;
      point.SentMs.reset();
      point.Settled = !zero;
    }
    // A zero before a value that is forgotten now is still owed.
    for (const std::size_t i : station.Zeros) {
      FPoints[i].Wanted = 0.0;
      FPoints[i].Written = true;
      FPoints[i].Settled = false;
    }
  }
  station.NextBlock = 0;
  station.RetryMs = first ? kRetryMs : std::min(station.RetryMs * 2, kRetryMostMs);
  station.RetryDueMs = now + station.RetryMs;
  if (first) FListener.StationAway(station.Config.Name, why);
}

void TModbusLine::LoseLink(const std::string& why) {
  FLink->CloseLink();
  for (TStation& station : FStations) GoAway(station, why);
}

std::string TModbusLine::AwayText(const TPoint& point) {
  const TStation& station = FStations[point.Station];
  const std::string name = point.Address.Text();
  if (!point.ReadMs) return Format(Tr("%s: no value has come yet"), name.c_str());
  const std::uint64_t age = Clock().MonotonicMs() - *point.ReadMs;
  if (!station.Away) return Format(Tr("%s: the newest value is %d ms old"), name.c_str(), Ms(age));
  return Format(Tr("%s: station %s has been away for %d ms: %s"), name.c_str(), station.Config.Name.c_str(), Ms(age),
                station.AwayWhy.c_str());
}

// --- values ---

double TModbusLine::Read(std::size_t index) {
  TGuard guard(FLock);
  const TPoint& point = FPoints[index];
  const TStation& station = FStations[point.Station];
  if (station.Away || !point.ReadMs ||
      Clock().MonotonicMs() - *point.ReadMs > static_cast<std::uint64_t>(station.Config.StaleMs))
    throw EDeviceAway(AwayText(point));
  return point.Address.Value(point.Kind, point.Raw);
}

void TModbusLine::Write(std::size_t index, double value) {
  {
    TGuard guard(FLock);
    TPoint& point = FPoints[index];
    TStation& station = FStations[point.Station];
    if (point.Kind == pkInput || point.Kind == pkAnalogIn)
      throw EDesignFault("a point that is an input is written", "TModbusLine");
    if (!std::isfinite(value))
      throw std::invalid_argument(
          Format(Tr("%s: a value that is no number is not written"), point.Address.Text().c_str()));
    const bool zero = value == 0.0;
    if (!zero && (station.Away || station.IsStale(Clock().MonotonicMs()))) throw EDeviceAway(AwayText(point));
    // Who says it again with each pass must not put off that it settles.
    const bool same = point.Written && point.Wanted == value && !station.Away;
    if (same && point.Settled && point.Address.Raw(point.Kind, value, point.Raw) == point.Raw) return;
    if (same && !point.Settled && !point.Ignored) return;
    std::erase(station.Values, index);
    if (!zero)
      station.Values.push_back(index);
    else if (std::ranges::find(station.Zeros, index) == station.Zeros.end()) {
      station.Zeros.push_back(index);
      station.ZeroDueMs = 0;
    }
    point.Wanted = value;
    point.Written = true;
    point.Settled = point.Ignored = false;
    point.SentMs.reset();
  }
  Wake();
}

bool TModbusLine::Settled(std::size_t index) {
  TGuard guard(FLock);
  return FPoints[index].Settled;
}

std::optional<std::uint64_t> TModbusLine::AgeMs(std::size_t index) {
  TGuard guard(FLock);
  const auto read = FPoints[index].ReadMs;
  return read ? std::optional(Clock().MonotonicMs() - *read) : std::nullopt;
}

TPortFacts TModbusLine::Facts(std::size_t index) {
  TPortFacts facts;
  facts.AgeMs = AgeMs(index);
  TGuard guard(FLock);
  const TPoint& point = FPoints[index];
  const TStation& station = FStations[point.Station];
  facts.Port = point.Address.Text();
  if (point.ReadMs) facts.Value = Format("%.6g", point.Address.Value(point.Kind, point.Raw));
  facts.Limits = point.Address.Limits();
  facts.Readable = !station.Away && facts.AgeMs && *facts.AgeMs <= static_cast<std::uint64_t>(station.Config.StaleMs);
  return facts;
}

std::vector<TPortFacts> TModbusLine::StationFacts() {
  const std::uint64_t now = Clock().MonotonicMs();
  std::vector<TPortFacts> all;
  TGuard guard(FLock);
  for (const TStation& station : FStations) {
    TPortFacts& facts = all.emplace_back();
    facts.Port = station.Config.Name;
    facts.Value = Format(Tr("%s, unit %d: %d requests every %d ms"), FAddress.Text().c_str(), station.Config.Unit,
                         static_cast<std::int32_t>(station.Blocks.size()), station.Config.CycleMs);
    if (!station.BlockMs.empty()) facts.AgeMs = now - station.BlockMs[station.OldestBlock()];
    facts.Readable = !station.Away && facts.AgeMs;
    if (station.Lights && station.Config.WatchdogRegister < 0)
      facts.Warning = Tr("no watchdog: the laser stays on when the controller or the connection ends");
  }
  return all;
}

}  // namespace ixocamglue
