// The points of one line: what is known of them, what they are still to be told, and which stations are away. It sends
// nothing and calls nobody; its one lock is held over nothing else.
//
// Zeros have a queue of their own, and outlast a station's absence; other values do not. A value that is on its way, or
// was read back and still is so, is not queued again; a zero that reads back as another value is, until it is one.
//
// Which zero goes first: what lights, then gas, then the rest, within a station and between stations that answer, and
// of what is as dangerous that of the station that has answered last. A station that is away and silent comes behind
// them all. Then it, and whoever else is silent, is tried again every kRetryMs, one after the other: in between there
// is time for those that live. A zero that is new is tried at once. One that the device refuses keeps no other from
// being told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/support/Locks.h"
#include "machines/modbus/Address.h"
#include "machines/modbus/Config.h"
#include "machines/modbus/Plan.h"

namespace ixocamglue {

[[nodiscard]] std::int32_t ShownMs(std::uint64_t ms);  // for a text

class TModbusValues {
 public:
  static constexpr std::uint32_t kRetryMs = 100;

  // Constant from the line's Connect on.
  struct TPoint {
    TPointKind Kind = pkInput;
    TModbusAddress Address;
    std::size_t Station = 0;
    TPointUse Use = puOther;
  };
  // What a station is to be told next; whoever takes it says what has become of it.
  struct TOrder {
    std::size_t Point = 0;
    double Value = 0.0;
    bool Zero = false;  // of that queue
  };
  struct TStationNow {
    bool Away = false;
    std::string AwayWhy;                 // while it is
    bool Lights = false;                 // one of its points does
    std::optional<std::uint64_t> AgeMs;  // of its oldest value; nothing: one has not come yet
    std::uint64_t Sent = 0, Failed = 0;  // requests; without a good reply
    std::uint64_t LongestUs = 0;         // of those with one
  };

  // --- before the line's thread starts ---
  std::size_t AddStation(const TModbusStationConfig& config);
  std::size_t AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address);
  void NoteUse(std::size_t point, TPointUse use);

  // --- any thread ---
  [[nodiscard]] const TPoint& Point(std::size_t point) const { return FPoints[point]; }
  [[nodiscard]] std::size_t Points() const { return FPoints.size(); }
  // As IMachinePoint's. Write: true where something is to be sent.
  [[nodiscard]] double Read(std::size_t point);
  [[nodiscard]] bool Write(std::size_t point, double value);
  [[nodiscard]] bool Settled(std::size_t point);
  [[nodiscard]] std::optional<std::uint64_t> AgeMs(std::size_t point);
  [[nodiscard]] TPortFacts Facts(std::size_t point);
  [[nodiscard]] TStationNow Station(std::size_t station);

  // --- the line's thread; monotonic ms ---
  [[nodiscard]] bool IsAway(std::size_t station);
  void Count(std::size_t station, bool good, std::uint64_t elapsedUs);  // a request that has ended
  // The point whose value is the oldest, where that is older than the station's StaleMs.
  [[nodiscard]] std::optional<std::size_t> Stale(std::size_t station, std::uint64_t now);
  [[nodiscard]] bool OwesZeros();
  [[nodiscard]] std::optional<std::uint64_t> ZeroDueMs();  // when one is to be tried next; nothing: there is none
  [[nodiscard]] std::optional<TOrder> NextZero(std::uint64_t now);
  [[nodiscard]] std::optional<TOrder> NextValue();  // of stations that are not away
  // The device has confirmed it; `number` is what was sent, `askedMs` when.
  void Told(const TOrder& order, std::uint16_t number, std::uint64_t askedMs);
  void NotTold(const TOrder& order, bool refused);  // `refused`: by the device; before GoAway
  // What was read of these cells; `askedMs` is when it was asked for.
  void Take(std::size_t station, const TModbusBlock& block, std::span<const std::uint16_t> numbers,
            std::uint64_t askedMs);
  // Of the register that the point is a bit of, as it was read or told last; nothing: that is too old.
  [[nodiscard]] std::optional<std::uint16_t> Register(std::size_t point);
  // `silent`: it does not answer at all. False: it has been away before. What is queued but the zeros is forgotten.
  [[nodiscard]] bool GoAway(std::size_t station, const std::string& why, bool silent);
  [[nodiscard]] bool ComeBack(std::size_t station);  // false: a zero goes first
  void TryZerosNow();                                // the link was opened

 private:
  struct TValue {
    std::uint16_t Number = 0;
    std::optional<std::uint64_t> ReadMs;  // when the number was asked for
    std::uint16_t Newest = 0;             // the register's number, read or told; the latter at NewestMs
    std::uint64_t NewestMs = 0;
    double Wanted = 0.0;
    bool Written = false;                 // since the station was last back
    std::optional<std::uint64_t> SentMs;  // when that was confirmed; what was asked for before says nothing of it
    bool Ignored = false;                 // it was sent, and another value read back
    bool Settled = true;
    bool Refused = false;  // its zero was
  };
  struct TStation {
    std::string Name;
    std::uint64_t StaleMs = 0;
    bool Away = false;
    bool Silent = false;  // while it is away
    std::string AwayWhy;
    std::uint64_t GoodMs = 0;                           // when the newest good reply was asked for
    std::uint64_t ZeroDueMs = 0;                        // when zeros are tried again; 0: one is new
    std::uint64_t Sent = 0, Failed = 0, LongestUs = 0;  // as TStationNow's
    std::deque<std::size_t> Zeros, Values;              // points whose zero, whose other value is to be sent
  };
  using TQueue = std::deque<std::size_t>;

  [[nodiscard]] static bool Waits(const TQueue& queue, std::size_t point);
  [[nodiscard]] int Danger(std::size_t point) const IXO_REQUIRES(FLock);
  [[nodiscard]] TQueue::const_iterator MostDangerous(const TQueue& zeros) const IXO_REQUIRES(FLock);
  [[nodiscard]] bool ComesBefore(const TStation& one, const TStation& other) const IXO_REQUIRES(FLock);
  [[nodiscard]] std::uint64_t DueMs(const TStation& station) const IXO_REQUIRES(FLock);
  [[nodiscard]] std::optional<std::size_t> Oldest(std::size_t station) const IXO_REQUIRES(FLock);
  [[nodiscard]] bool IsOld(std::size_t point, std::uint64_t now) const IXO_REQUIRES(FLock);
  [[nodiscard]] std::string AwayText(std::size_t point) const IXO_REQUIRES(FLock);

  std::vector<TPoint> FPoints;
  TCriticalSection FLock;
  std::vector<TValue> FValues IXO_GUARDED_BY(FLock);  // as FPoints
  std::vector<TStation> FStations IXO_GUARDED_BY(FLock);
  std::uint64_t FSilentDueMs IXO_GUARDED_BY(FLock) = 0;  // no silent station is tried again before
};

}  // namespace ixocamglue
