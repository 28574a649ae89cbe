// One Modbus connection or serial line with its stations, on a thread of its own: reads all values of each station at
// its rate, writes what is queued between two reads, feeds the stations' watchdogs.
//
// One request at a time, in this order of urgency: zeros, watchdogs, other writes, reads; zeros first to the station
// that has answered last. So a zero waits for the request under way, at most that station's TimeOutMs, and for zeros
// to stations that answer. A reply that did not come holds up nothing but a read whose reply would look like it. A
// value that is on its way, or was read back and still is so, is not written again; a zero that reads back as another
// value is, until it is one. What a caller asks of a point is answered from what the thread has read last; nobody waits
// for the network.
//
// A station is away when its connection ends, when it answers a request with an exception, when a write is not
// confirmed, or when one of its values is older than StaleMs. Then what is queued but the zeros is forgotten, and zeros
// that were not read back are queued again and tried at once, then every 100 ms. It is back when the zeros are written
// and all its values have been read; tried after 100 ms, then after twice as long each time, up to 2 s. Nothing else is
// written meanwhile or repeated later: a connection is opened by the line's thread only, never within a request. A TCP
// connection whose station is away and has said nothing for 5 s is made anew: an old one may keep what is sent for
// minutes.
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
  static constexpr std::uint64_t kSilentMs = 5000;

  // `watch` and `listener` outlive the line.
  TModbusLine(const TLinkAddress& link, const TNcWatch& watch, IModbusStations& listener);
  // Writes the zeros that are queued, to a station that is away one, then ends the thread: after the request or connect
  // under way (3 s at most).
  ~TModbusLine();
  TModbusLine(const TModbusLine&) = delete;
  TModbusLine& operator=(const TModbusLine&) = delete;

  // --- before Connect ---
  std::size_t AddStation(const TModbusStationConfig& config);
  std::size_t AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address);
  void NoteLight(std::size_t point);  // as IMachineDriver's
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
    std::optional<std::uint64_t> ReadMs;  // when the value was asked for
    double Wanted = 0.0;
    bool Written = false;                 // since the station was last back
    std::optional<std::uint64_t> SentMs;  // when that was confirmed; what was asked for before says nothing of it
    bool Ignored = false;                 // it was sent, and another value read back
    bool Settled = true;
  };
  struct TStation {
    TModbusStationConfig Config;
    TModbusStrictOptions Options;
    bool Lights = false;  // a laser
    // The line's thread's, and Connect's before.
    std::vector<TModbusCell> Cells;
    std::vector<TModbusBlock> Blocks;
    std::size_t NextBlock = 0;
    std::uint64_t CycleStartMs = 0, CycleDueMs = 0, FeedDueMs = 0;
    std::uint64_t RetryDueMs = 0;   // when reads are tried again
    std::uint64_t HeldUntilMs = 0;  // no read goes out before
    std::uint32_t RetryMs = kRetryMs;
    std::uint16_t Feeds = 0;
    // Guarded by FLock.
    bool Away = false;
    std::string AwayWhy;
    std::uint64_t GoodMs = 0;               // when the newest good reply was asked for
    std::vector<std::uint64_t> BlockMs;     // when the newest values of each block were
    std::uint64_t ZeroDueMs = 0;            // when zeros are tried again
    std::deque<std::size_t> Zeros, Values;  // points whose zero, whose other value is to be written

    [[nodiscard]] std::size_t OldestBlock() const;
    [[nodiscard]] bool IsStale(std::uint64_t ms, std::uint64_t now) const {
      return now - std::min(now, ms) > static_cast<std::uint64_t>(Config.StaleMs);
    }
    [[nodiscard]] bool IsStale(std::uint64_t now) const {
      return BlockMs.empty() || IsStale(BlockMs[OldestBlock()], now);
    }
    [[nodiscard]] std::uint64_t ReadDueMs() const { return std::max(HeldUntilMs, Away ? RetryDueMs : CycleDueMs); }
  };

  void Execute();
  // One request, or none; how long there is nothing to do.
  [[nodiscard]] std::uint32_t Round();
  [[nodiscard]] std::uint64_t NextDueMs(const TStation& station);
  void Pause(std::uint32_t ms);
  void Wake();

  [[nodiscard]] TResult<> Open();
  [[nodiscard]] TResult<> ConnectStation(TStation& station);
  // Plans the requests of these cells and tries them; what is refused is planned with the next gap.
  [[nodiscard]] TResult<> PlanAndRead(TStation& station, const std::vector<TModbusCell>& cells,
                                      std::span<const TModbusGap> gaps);
  [[nodiscard]] static std::string BlockText(const TStation& station, const TModbusBlock& block);
  [[nodiscard]] TProblem Refusal(const TStation& station, const TModbusBlock& block, const TModbusResult& result);
  // Takes over what it has read.
  [[nodiscard]] TModbusResult ReadBlock(TStation& station, const TModbusBlock& block);
  void Use(const TStation& station);  // for the requests that follow
  // False: there was nothing to do.
  [[nodiscard]] bool WriteZero(std::uint64_t now);
  [[nodiscard]] bool WriteNext(TStation& station, bool zeros);
  [[nodiscard]] TModbusResult WritePoint(TStation& station, const TPoint& point, double value);
  [[nodiscard]] bool Feed(TStation& station, std::uint64_t now);
  void ReadNext(TStation& station, std::uint64_t now);
  void NoteBack(TStation& station);

  // Whether what failed makes the station, or all of them, be away; `what` says of what.
  void Failed(TStation& station, const std::string& what, const TModbusResult& result, bool write = false);
  void GoAway(TStation& station, const std::string& why);
  void LoseLink(const std::string& why);
  [[nodiscard]] std::string AwayText(const TPoint& point) IXO_REQUIRES(FLock);

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
  std::uint64_t FHeardMs = 0;        // when the link was opened, or anything came over it
  std::vector<std::uint16_t> FReuse;

  TStop FStop;
  std::mutex FWaking;
  std::condition_variable FWork;
  bool FWoken = false;  // guarded by FWaking
  std::optional<TThreadSign> FSign;
  std::thread FThread;
};

}  // namespace ixocamglue
