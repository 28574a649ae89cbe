// One Modbus connection or serial line with its stations, on a thread of its own: reads all values of each station at
// its rate, writes what is queued between two reads, feeds the stations' watchdogs.
//
// One request at a time, in this order of urgency: zeros, watchdogs, other writes, reads. A value that is on its way,
// or was read back and still is so, is not written again. What a caller asks of a point is answered from what the
// thread has read last; nobody waits for the network.
//
// A station is away when its connection ends, when it answers a request with an exception, when a write is not
// confirmed, or when it has not answered for StaleMs. Then what is queued but the zeros is forgotten, and zeros that
// were not read back are queued again and tried at once. It is back when the zeros are written and all its values have
// been read; tried after 100 ms, then after twice as long each time, up to 2 s. Nothing else is written meanwhile or
// repeated later: a connection is opened by the line's thread only, never within a request.
//
// Values: any thread. The rest as each says.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "ixocamglue/platform/Driver.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/platform/services/ThreadTable.h"
#include "ixocamglue/platform/states/NcWatch.h"
#include "ixocamglue/support/Locks.h"
#include "machines/modbus/Address.h"
#include "machines/modbus/Config.h"
#include "machines/modbus/Plan.h"

namespace ixocamglue {

// Is told on the line's thread, without a lock.
class IModbusStations {
 public:
  virtual ~IModbusStations() = default;
  virtual void StationAway(const std::string& name, const std::string& why) = 0;
  virtual void StationBack(const std::string& name) = 0;
};

class TModbusLine {
 public:
  static constexpr std::uint64_t kBeatMs = 200;  // an older beat of the state thread feeds no watchdog
  static constexpr std::uint32_t kRetryMs = 100, kRetryMostMs = 2000;

  // `watch` and `listener` outlive the line.
  TModbusLine(const TLinkAddress& link, const TNcWatch& watch, IModbusStations& listener);
  // Writes the zeros that are queued, then ends the thread: after the request or connect under way (3 s at most).
  ~TModbusLine();
  TModbusLine(const TModbusLine&) = delete;
  TModbusLine& operator=(const TModbusLine&) = delete;

  // --- before Connect ---
  std::size_t AddStation(const TModbusStationConfig& config);
  std::size_t AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address);
  // Opens the link, reads every value once, writes nothing; then starts the thread. On the caller's thread, for as long
  // as connecting (3 s) and the time-outs last. Says which address there is not, or what does not answer.
  [[nodiscard]] TResult<> Connect();

  // --- values; as IMachinePoint's ---
  [[nodiscard]] double Read(std::size_t point);
  void Write(std::size_t point, double value);
  [[nodiscard]] bool Settled(std::size_t point);
  [[nodiscard]] std::optional<std::uint64_t> AgeMs(std::size_t point);
  [[nodiscard]] TPortFacts Facts(std::size_t point);
  [[nodiscard]] std::vector<TPortFacts> StationFacts();  // those with points
  [[nodiscard]] TModbusStatistics Statistics() { return FComm->Statistics(); }

  [[nodiscard]] const TLinkAddress& Link() const { return FAddress; }

 private:
  class TFixedLink;
  struct TPoint {
    TPointKind Kind = pkInput;
    TModbusAddress Address;
    std::size_t Station = 0;
    // Guarded by FLock.
    std::uint16_t Raw = 0;
    std::optional<std::uint64_t> ReadMs;
    double Wanted = 0.0;
    bool Written = false;  // since the station was last back
    bool Sent = false;
    bool Ignored = false;  // it was sent, and another value read back
    bool Settled = true;
  };
  struct TStation {
    TModbusStationConfig Config;
    bool HasOutputs = false;
    // The line's thread's, and Connect's before.
    std::vector<TModbusCell> Cells;
    std::vector<TModbusBlock> Blocks;
    std::size_t NextBlock = 0;
    std::uint64_t CycleStartMs = 0, CycleDueMs = 0, FeedDueMs = 0;
    std::uint64_t RetryDueMs = 0, ZeroDueMs = 0;  // when reads, when zeros are tried again
    std::uint32_t RetryMs = kRetryMs;
    std::uint16_t Feeds = 0;
    // Guarded by FLock.
    bool Away = false;
    std::string AwayWhy;
    std::uint64_t GoodMs = 0;               // the last good reply
    std::deque<std::size_t> Zeros, Values;  // points whose zero, whose other value is to be written
  };
  enum class TUrgency : std::uint8_t { Zeros, Feed, Values, Read };

  void Execute();
  // One request, or none; how long there is nothing to do.
  [[nodiscard]] std::uint32_t Round();
  [[nodiscard]] bool Turn(TStation& station, TUrgency urgency, std::uint64_t now);
  [[nodiscard]] std::uint64_t NextDueMs(const TStation& station);
  void Pause(std::uint32_t ms);
  void Wake();

  [[nodiscard]] TResult<> Open();
  [[nodiscard]] TResult<> ConnectStation(TStation& station);
  // Plans the requests of these cells and tries them; what is refused is planned with the next gap.
  [[nodiscard]] TResult<> PlanAndRead(TStation& station, const std::vector<TModbusCell>& cells,
                                      std::span<const TModbusGap> gaps);
  [[nodiscard]] TProblem Refusal(const TStation& station, const TModbusBlock& block, const TModbusResult& result);
  // Takes over what it has read.
  [[nodiscard]] TModbusResult ReadBlock(TStation& station, const TModbusBlock& block);
  [[nodiscard]] bool WriteNext(TStation& station, bool zeros);
  [[nodiscard]] TModbusResult WritePoint(TStation& station, const TPoint& point, double value);
  void Feed(TStation& station);
  void ReadNext(TStation& station, std::uint64_t now);
  void NoteBack(TStation& station);

  // Whether what failed makes the station, or all of them, be away; `what` says of what.
  void Failed(TStation& station, const std::string& what, const TModbusResult& result, bool write = false);
  void GoAway(TStation& station, const std::string& why);
  void LoseLink(const std::string& why);
  [[nodiscard]] std::string AwayText(const TPoint& point) IXO_REQUIRES(FLock);
  [[nodiscard]] bool IsStale(const TStation& station, std::uint64_t now) const {
    return now - std::min(now, station.GoodMs) > static_cast<std::uint64_t>(station.Config.StaleMs);
  }

  const TLinkAddress FAddress;
  const TNcWatch& FWatch;
  IModbusStations& FListener;
  const TDevicePtr<TModbusComm> FComm;      // its own thread never starts
  std::shared_ptr<TNcCommTransBase> FLink;  // from Connect on
  std::vector<TStation> FStations;          // their number is constant after Connect, as is that of the points
  std::vector<TPoint> FPoints;
  mutable TCriticalSection FLock;  // never held over a request or a call
  std::uint64_t FOpenDueMs = 0;
  std::uint32_t FOpenMs = kRetryMs;  // the back-off
  std::vector<std::uint16_t> FReuse;

  TStop FStop;
  std::mutex FWaking;
  std::condition_variable FWork;
  bool FWoken = false;  // guarded by FWaking
  std::optional<TThreadSign> FSign;
  std::thread FThread;
};

}  // namespace ixocamglue
