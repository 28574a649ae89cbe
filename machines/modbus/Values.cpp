#include "machines/modbus/Values.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Faults.h"
#include "ixocamglue/support/Format.h"
#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

std::int32_t ShownMs(std::uint64_t ms) { return static_cast<std::int32_t>(std::min<std::uint64_t>(ms, 2'000'000'000)); }

// --- before the line's thread starts ---

std::size_t TModbusValues::AddStation(const TModbusStationConfig& config) {
  TGuard guard(FLock);
  TStation& station = FStations.emplace_back();
  station.Name = config.Name;
  station.StaleMs = static_cast<std::uint64_t>(config.StaleMs);
  return FStations.size() - 1;
}

std::size_t TModbusValues::AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address) {
  TGuard guard(FLock);
  FPoints.push_back({kind, address, station, puOther});
  FValues.emplace_back();
  return FPoints.size() - 1;
}

void TModbusValues::NoteUse(std::size_t point, TPointUse use) {
  FPoints[point].Use = std::max(FPoints[point].Use, use);
}

// --- any thread ---

bool TModbusValues::IsOld(std::size_t point, std::uint64_t now) const {
  const auto read = FValues[point].ReadMs;
  return !read || now - std::min(now, *read) > FStations[FPoints[point].Station].StaleMs;
}

std::string TModbusValues::AwayText(std::size_t index) const {
  const TStation& station = FStations[FPoints[index].Station];
  const std::string name = FPoints[index].Address.Text();
  if (!FValues[index].ReadMs) return Format(Tr("%s: no value has come yet"), name.c_str());
  const std::uint64_t age = Clock().MonotonicMs() - *FValues[index].ReadMs;
  if (!station.Away) return Format(Tr("%s: the newest value is %d ms old"), name.c_str(), ShownMs(age));
  return Format(Tr("%s: station %s has been away for %d ms: %s"), name.c_str(), station.Name.c_str(), ShownMs(age),
                station.AwayWhy.c_str());
}

double TModbusValues::Read(std::size_t index) {
  TGuard guard(FLock);
  const TPoint& point = FPoints[index];
  if (FStations[point.Station].Away || IsOld(index, Clock().MonotonicMs())) throw EDeviceAway(AwayText(index));
  return point.Address.Value(point.Kind, FValues[index].Number);
}

bool TModbusValues::Write(std::size_t index, double wanted) {
  TGuard guard(FLock);
  const TPoint& point = FPoints[index];
  TValue& value = FValues[index];
  TStation& station = FStations[point.Station];
  if (point.Kind == pkInput || point.Kind == pkAnalogIn)
    throw EDesignFault("a point that is an input is written", "TModbusValues");
  if (!std::isfinite(wanted))
    throw std::invalid_argument(
        Format(Tr("%s: a value that is no number is not written"), point.Address.Text().c_str()));
  const bool zero = wanted == 0.0;
  if (!zero && (station.Away || IsOld(*Oldest(point.Station), Clock().MonotonicMs())))
    throw EDeviceAway(AwayText(index));
  // Who says it again with each pass must not put off that it settles.
  const bool same = value.Written && value.Wanted == wanted && !station.Away;
  if (same && value.Settled && point.Address.Raw(point.Kind, wanted, value.Number) == value.Number) return false;
  if (same && !value.Settled && !value.Ignored) return false;
  std::erase(station.Values, index);
  if (!zero)
    station.Values.push_back(index);
  else if (!Waits(station.Zeros, index)) {
    station.Zeros.push_back(index);
    station.ZeroDueMs = 0;
  }
  value.Wanted = wanted;
  value.Written = true;
  value.Settled = value.Ignored = value.Refused = false;
  value.SentMs.reset();
  return true;
}

bool TModbusValues::Settled(std::size_t point) {
  TGuard guard(FLock);
  return FValues[point].Settled;
}

std::optional<std::uint64_t> TModbusValues::AgeMs(std::size_t point) {
  TGuard guard(FLock);
  const auto read = FValues[point].ReadMs;
  return read ? std::optional(Clock().MonotonicMs() - *read) : std::nullopt;
}

TPortFacts TModbusValues::Facts(std::size_t index) {
  TPortFacts facts;
  facts.AgeMs = AgeMs(index);
  TGuard guard(FLock);
  const TPoint& point = FPoints[index];
  facts.Port = point.Address.Text();
  if (FValues[index].ReadMs) facts.Value = Format("%.6g", point.Address.Value(point.Kind, FValues[index].Number));
  facts.Limits = point.Address.Limits();
  facts.Readable = !FStations[point.Station].Away && !IsOld(index, Clock().MonotonicMs());
  return facts;
}

TModbusValues::TStationNow TModbusValues::Station(std::size_t station) {
  TGuard guard(FLock);
  const TStation& of = FStations[station];
  TStationNow now{.Away = of.Away,
                  .AwayWhy = of.AwayWhy,
                  .Lights = false,
                  .AgeMs = {},
                  .Sent = of.Sent,
                  .Failed = of.Failed,
                  .LongestUs = of.LongestUs};
  for (const TPoint& point : FPoints) now.Lights = now.Lights || (point.Station == station && point.Use == puLight);
  if (const auto oldest = Oldest(station); oldest && FValues[*oldest].ReadMs)
    now.AgeMs = Clock().MonotonicMs() - *FValues[*oldest].ReadMs;
  return now;
}

// --- the line's thread ---

bool TModbusValues::IsAway(std::size_t station) {
  TGuard guard(FLock);
  return FStations[station].Away;
}

void TModbusValues::Count(std::size_t station, bool good, std::uint64_t elapsedUs) {
  TGuard guard(FLock);
  TStation& of = FStations[station];
  ++of.Sent;
  if (good)
    of.LongestUs = std::max(of.LongestUs, elapsedUs);
  else
    ++of.Failed;
}

// One without a value is the oldest of all.
std::optional<std::size_t> TModbusValues::Oldest(std::size_t station) const {
  std::optional<std::size_t> oldest;
  for (std::size_t i = 0; i < FPoints.size(); ++i)
    if (FPoints[i].Station == station && (!oldest || FValues[i].ReadMs < FValues[*oldest].ReadMs)) oldest = i;
  return oldest;
}

std::optional<std::size_t> TModbusValues::Stale(std::size_t station, std::uint64_t now) {
  TGuard guard(FLock);
  const auto oldest = Oldest(station);
  return oldest && IsOld(*oldest, now) ? oldest : std::nullopt;
}

bool TModbusValues::Waits(const TQueue& queue, std::size_t point) {
  return std::ranges::find(queue, point) != queue.end();
}

// Those that were refused take turns behind the others.
int TModbusValues::Danger(std::size_t point) const {
  return FValues[point].Refused ? -1 : static_cast<int>(FPoints[point].Use);
}

// The first of them.
TModbusValues::TQueue::const_iterator TModbusValues::MostDangerous(const TQueue& zeros) const {
  auto most = zeros.begin();
  for (auto zero = most; zero != zeros.end(); ++zero)
    if (Danger(*zero) > Danger(*most)) most = zero;
  return most;
}

bool TModbusValues::ComesBefore(const TStation& one, const TStation& other) const {
  if (one.Silent != other.Silent) return other.Silent;
  if (one.Silent && one.ZeroDueMs != other.ZeroDueMs) return one.ZeroDueMs < other.ZeroDueMs;
  const int danger = Danger(*MostDangerous(one.Zeros));
  const int others = Danger(*MostDangerous(other.Zeros));
  return danger != others ? danger > others : one.GoodMs > other.GoodMs;
}

std::uint64_t TModbusValues::DueMs(const TStation& station) const {
  return station.Silent && station.ZeroDueMs != 0 ? std::max(station.ZeroDueMs, FSilentDueMs) : station.ZeroDueMs;
}

bool TModbusValues::OwesZeros() { return ZeroDueMs().has_value(); }

std::optional<std::uint64_t> TModbusValues::ZeroDueMs() {
  TGuard guard(FLock);
  std::optional<std::uint64_t> due;
  for (const TStation& station : FStations)
    if (!station.Zeros.empty()) due = std::min(due.value_or(DueMs(station)), DueMs(station));
  return due;
}

std::optional<TModbusValues::TOrder> TModbusValues::NextZero(std::uint64_t now) {
  TGuard guard(FLock);
  TStation* next = nullptr;
  for (TStation& station : FStations)
    if (!station.Zeros.empty() && DueMs(station) <= now && (!next || ComesBefore(station, *next))) next = &station;
  if (!next) return std::nullopt;
  const auto zero = MostDangerous(next->Zeros);
  const TOrder order{*zero, 0.0, true};
  next->Zeros.erase(zero);
  return order;
}

std::optional<TModbusValues::TOrder> TModbusValues::NextValue() {
  TGuard guard(FLock);
  for (TStation& station : FStations) {
    if (station.Away || station.Values.empty()) continue;
    const std::size_t point = station.Values.front();
    station.Values.pop_front();
    return TOrder{point, FValues[point].Wanted, false};
  }
  return std::nullopt;
}

void TModbusValues::Told(const TOrder& order, std::uint16_t number, std::uint64_t askedMs) {
  TGuard guard(FLock);
  const TPoint& point = FPoints[order.Point];
  TStation& station = FStations[point.Station];
  const std::uint64_t now = Clock().MonotonicMs();
  station.GoodMs = std::max(station.GoodMs, askedMs);
  station.Silent = false;
  FValues[order.Point].Refused = false;
  if (!Waits(station.Zeros, order.Point) && !Waits(station.Values, order.Point)) FValues[order.Point].SentMs = now;
  for (std::size_t i = 0; i < FPoints.size(); ++i) {
    if (FPoints[i].Station != point.Station || FPoints[i].Address.Cell != point.Address.Cell) continue;
    FValues[i].Newest = number;
    FValues[i].NewestMs = now;
  }
}

void TModbusValues::NotTold(const TOrder& order, bool refused) {
  if (!order.Zero) return;
  TGuard guard(FLock);
  TStation& station = FStations[FPoints[order.Point].Station];
  FValues[order.Point].Refused = refused;
  if (!Waits(station.Zeros, order.Point))
    refused ? station.Zeros.push_back(order.Point) : station.Zeros.push_front(order.Point);
  // Once more at once, and then the others, where it was the device's word about this one.
  bool waits = station.Away;
  for (const std::size_t i : station.Zeros) waits = waits && (!refused || FValues[i].Refused);
  station.ZeroDueMs = Clock().MonotonicMs() + (waits ? kRetryMs : 0);
  if (waits && station.Silent) FSilentDueMs = station.ZeroDueMs;
}

void TModbusValues::Take(std::size_t station, const TModbusBlock& block, std::span<const std::uint16_t> numbers,
                         std::uint64_t askedMs) {
  TGuard guard(FLock);
  TStation& from = FStations[station];
  from.GoodMs = std::max(from.GoodMs, askedMs);
  from.Silent = false;
  for (std::size_t i = 0; i < FPoints.size(); ++i) {
    const TPoint& point = FPoints[i];
    if (point.Station != station || !block.Has(point.Address.Cell)) continue;
    TValue& value = FValues[i];
    value.Number = numbers[point.Address.Cell.Addr - block.First.Addr];
    value.ReadMs = askedMs;
    if (askedMs >= value.NewestMs) value.Newest = value.Number;
    if (!value.SentMs || askedMs < *value.SentMs) continue;
    const bool taken = point.Address.Raw(point.Kind, value.Wanted, value.Number) == value.Number;
    (taken ? value.Settled : value.Ignored) = true;
    if (!value.Settled && value.Wanted == 0.0 && !Waits(from.Zeros, i)) from.Zeros.push_back(i);
  }
}

std::optional<std::uint16_t> TModbusValues::Register(std::size_t point) {
  TGuard guard(FLock);
  const bool known = !FStations[FPoints[point].Station].Away && !IsOld(point, Clock().MonotonicMs());
  return known ? std::optional(FValues[point].Newest) : std::nullopt;
}

bool TModbusValues::GoAway(std::size_t index, const std::string& why, bool silent) {
  TGuard guard(FLock);
  TStation& station = FStations[index];
  const bool first = !std::exchange(station.Away, true);
  station.Silent = silent;
  station.AwayWhy = why;
  station.Values.clear();
  for (std::size_t i = 0; first && i < FPoints.size(); ++i) {
    if (FPoints[i].Station != index) continue;
    TValue& value = FValues[i];
    const bool zero = value.Written && !value.Settled && value.Wanted == 0.0;
    if (zero && !Waits(station.Zeros, i)) station.Zeros.push_back(i);
    value.Written = zero;
    value.SentMs.reset();
    value.Settled = !zero;
  }
  // A zero before a value that is forgotten now is still owed.
  for (const std::size_t i : station.Zeros) {
    FValues[i].Wanted = 0.0;
    FValues[i].Written = true;
    FValues[i].Settled = false;
  }
  return first;
}

bool TModbusValues::ComeBack(std::size_t index) {
  TGuard guard(FLock);
  TStation& station = FStations[index];
  if (!station.Zeros.empty()) return false;
  station.Away = station.Silent = false;
  station.AwayWhy.clear();
  return true;
}

void TModbusValues::TryZerosNow() {
  TGuard guard(FLock);
  for (TStation& station : FStations) station.ZeroDueMs = 0;
}

}  // namespace ixocamglue
