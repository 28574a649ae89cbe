// Registers of one link, read again and again for as long as somebody looks, on a thread and over a connection of their
// own. Interface thread; Busy any thread.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "controller/links/DeviceLink.h"
#include "ixocamglue/platform/services/Clock.h"
#include "ixocamglue/support/Locks.h"

namespace ixocontroller {

struct TWatchTable {
  const char* Word;  // on the wire
  std::uint8_t Func;
};
inline constexpr std::array kWatchTables{TWatchTable{"holding", kModbusRead}, TWatchTable{"input", kModbusReadInput},
                                         TWatchTable{"coils", kModbusReadCoils},
                                         TWatchTable{"discrete", kModbusReadDiscrete}};

struct TWatched {
  std::string Name;  // of the link
  TLinkAddress Link;
  TWatchTable Table = kWatchTables[0];
  std::uint8_t Unit = 1;
  std::uint16_t Addr = 0;
  std::uint16_t Count = 1;
  // From the beginning of one reading to that of the next one, if the device answers by then.
  std::uint32_t EveryMs = 1000;
};

// A reading that fails is counted and shown, and the next one is tried.
class TLinkWatch {
 public:
  static constexpr std::uint32_t kLeastMs = 100;
  static constexpr std::uint32_t kMostMs = 60'000;
  static constexpr std::uint16_t kMostCount = 64;
  static constexpr std::uint64_t kUnseenMs = 5000;  // real time without a look that ends it

  TLinkWatch() = default;
  ~TLinkWatch();  // ends a request under way within 50 ms
  TLinkWatch(const TLinkWatch&) = delete;
  TLinkWatch& operator=(const TLinkWatch&) = delete;

  // In the place of what was watched before. Waits for nothing.
  void Begin(TWatched watched);
  void End();
  // The link on which something is read, or was a moment ago; empty: none.
  [[nodiscard]] std::string Busy();
  // A look at the readings; null: nothing is watched.
  [[nodiscard]] nlohmann::ordered_json Json();

 private:
  struct TReading {
    std::uint16_t Value = 0;
    std::uint16_t Least = std::numeric_limits<std::uint16_t>::max();
    std::uint16_t Most = 0;
    std::uint64_t Changes = 0;
  };

  class TRequest;

  // The watch's thread.
  void Run();
  void Read(std::uint64_t number, const TWatched& watched);
  void Take(std::uint64_t number, const TModbusResult& result);
  [[nodiscard]] bool Wanted(std::uint64_t number);

  TStop FStop;
  TCriticalSection FLock;
  std::optional<TWatched> FWanted IXO_GUARDED_BY(FLock);
  std::uint64_t FNumber IXO_GUARDED_BY(FLock) = 0;  // counts what was wanted
  std::uint64_t FSeenMs IXO_GUARDED_BY(FLock) = 0;
  bool FRuns IXO_GUARDED_BY(FLock) = false;  // the thread takes what is wanted
  std::string FBusy IXO_GUARDED_BY(FLock);
  TStop* FRequest IXO_GUARDED_BY(FLock) = nullptr;  // of the master that asks
  std::vector<TReading> FReadings IXO_GUARDED_BY(FLock);
  std::uint64_t FReads IXO_GUARDED_BY(FLock) = 0;
  std::uint64_t FFailures IXO_GUARDED_BY(FLock) = 0;
  std::optional<TModbusResult> FLast IXO_GUARDED_BY(FLock);
  std::uint64_t FGoodMs IXO_GUARDED_BY(FLock) = 0;  // when the last good one came; 0: none has
  std::thread FThread;
};

}  // namespace ixocontroller
