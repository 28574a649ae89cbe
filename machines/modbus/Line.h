// One Modbus connection or serial line with its stations, on a thread of its own: reads all values of each station at
// its rate, writes what is queued between two reads, feeds the stations' watchdogs. What is known and queued is in
// TModbusValues; here is what goes over the wire, and when.
//
// One request at a time, in this order of urgency: zeros, watchdogs, other writes, reads. So a zero waits for the
// request under way, at most that station's TimeOutMs, and for zeros that come before it (Values.h). A reply that did
// not come holds up nothing but a read whose reply would look like it. What a caller asks of a point is answered from
// what the thread has read last; nobody waits for the network.
//
// A station is away when its connection ends, when it answers a request with an exception, when a write is not
// confirmed, or when one of its values is older than StaleMs. Then what is queued but the zeros is forgotten, and zeros
// that were not read back are queued again and tried at once, then every 100 ms. It is back when the zeros are written
// and all its values have been read; tried after 100 ms, then after twice as long each time, up to 2 s. Nothing else is
// written meanwhile or repeated later: a connection is opened by the line's thread only, never within a request; every
// 100 ms while a zero is owed, else after 100 ms and twice as long each time, up to 2 s. A TCP connection whose station
// is away and has said nothing for 5 s is made anew; what the old one has not delivered then never comes.
//
// Values: any thread. The rest as each says.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
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
#include "machines/modbus/Address.h"
#include "machines/modbus/Config.h"
#include "machines/modbus/Plan.h"
#include "machines/modbus/Values.h"

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
  static constexpr std::uint32_t kRetryMs = 100, kRetryMostMs = 2000;  // of reads; of connecting, while no zero is owed
  static constexpr std::uint64_t kSilentMs = 5000;

  // `watch` and `listener` outlive the line.
  TModbusLine(const TLinkAddress& link, const TNcWatch& watch, IModbusStations& listener);
  // Writes the zeros that are queued, then ends the thread: after the request under way, connecting once where there is
  // no connection (3 s at most), and two time-outs for each station that does not answer.
  ~TModbusLine();
  TModbusLine(const TModbusLine&) = delete;
  TModbusLine& operator=(const TModbusLine&) = delete;

  // --- before Connect ---
  std::size_t AddStation(const TModbusStationConfig& config);
  std::size_t AddPoint(std::size_t station, TPointKind kind, const TModbusAddress& address);
  void NoteUse(std::size_t point, TPointUse use) { FValues.NoteUse(point, use); }  // as IMachineDriver's
  // Opens the link, reads every value once, writes nothing; then starts the thread. On the caller's thread, for as long
  // as connecting (3 s) and the time-outs last. Says which address there is not, or what does not answer.
  [[nodiscard]] TResult<> Connect();

  // --- values; as IMachinePoint's ---
  [[nodiscard]] double Read(std::size_t point) { return FValues.Read(point); }
  void Write(std::size_t point, double value);
  [[nodiscard]] bool Settled(std::size_t point) { return FValues.Settled(point); }
  [[nodiscard]] std::optional<std::uint64_t> AgeMs(std::size_t point) { return FValues.AgeMs(point); }
  [[nodiscard]] TPortFacts Facts(std::size_t point) { return FValues.Facts(point); }
  [[nodiscard]] std::vector<TPortFacts> StationFacts();  // those with points
  [[nodiscard]] TModbusStatistics Statistics() { return FComm->Statistics(); }

  [[nodiscard]] const TLinkAddress& Link() const { return FAddress; }

 private:
  class TFixedLink;
  // The line's thread's, and Connect's before; constant: what Connect has made of it.
  struct TStation {
    std::size_t Index = 0;  // in FValues
    TModbusStationConfig Config;
    TModbusStrictOptions Options;
    std::vector<TModbusCell> Cells;
    std::vector<TModbusBlock> Blocks;
    std::size_t NextBlock = 0;
    std::uint64_t CycleStartMs = 0, CycleDueMs = 0, FeedDueMs = 0;
    std::uint64_t RetryDueMs = 0;   // when reads are tried again
    std::uint64_t HeldUntilMs = 0;  // no read goes out before
    std::uint32_t RetryMs = kRetryMs;
    std::uint16_t Feeds = 0;
  };

  void Execute();
  // One request, or none; how long there is nothing to do.
  [[nodiscard]] std::uint32_t Round();
  [[nodiscard]] std::uint32_t RoundWithoutLink(std::uint64_t now);
  [[nodiscard]] std::uint64_t ReadDueMs(const TStation& station);
  [[nodiscard]] std::uint64_t NextDueMs();
  void WriteLastZeros();
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
  // What has become of a request to the station, which is counted.
  [[nodiscard]] TModbusResult Counted(const TStation& station, TModbusResult result);
  [[nodiscard]] std::uint32_t HeldMs(const TStation& station, const TModbusBlock& block);
  TModbusOutcome Write(const TModbusValues::TOrder& order);
  // The number of the register that the point is a bit of; or why it is not known.
  [[nodiscard]] TModbusResult Before(const TStation& station, std::size_t point, std::uint16_t& before);
  // False: there was nothing to do.
  [[nodiscard]] bool Feed(TStation& station, std::uint64_t now);
  void ReadNext(TStation& station, std::uint64_t now);
  void NoteBack(TStation& station);

  // Whether what failed makes the station, or all of them, be away; `what` says of what.
  void Failed(TStation& station, const std::string& what, const TModbusResult& result, bool write = false);
  void GoAway(TStation& station, const std::string& why, bool silent = false);
  void LoseLink(const std::string& why);
  // What came was no frame of this kind, so that the connection was closed.
  [[nodiscard]] bool IsForeign(const TModbusResult& result) const;

  const TLinkAddress FAddress;
  const TNcWatch& FWatch;
  IModbusStations& FListener;
  const TDevicePtr<TModbusComm> FComm;      // its own thread never starts
  std::shared_ptr<TNcCommTransBase> FLink;  // from Connect on
  TModbusValues FValues;
  std::vector<TStation> FStations;   // as FValues has them
  std::uint64_t FTriedMs = 0;        // to open the link again
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
