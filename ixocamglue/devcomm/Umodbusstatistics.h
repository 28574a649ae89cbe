// What a device keeps for a fault report: counts, and its last frames. Values, guarded by whoever has them; times in
// us. Nothing here fails.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ixocamglue/devcomm/Umodbusresult.h"
#include "ixocamglue/platform/comm/Bytes.h"

namespace ixocamglue {

struct TModbusStatistics : TModbusTraffic {
  std::array<std::uint64_t, kModbusOutcomes> Ended{};  // requests by outcome
  std::uint64_t LongestUs = 0;                         // of those that ended well
  TModbusProof Proof = mpfUnproved;

  [[nodiscard]] std::uint64_t Of(TModbusOutcome outcome) const { return Ended[static_cast<std::size_t>(outcome)]; }
  void Count(const TModbusAnswer& answer) {
    ++Ended[static_cast<std::size_t>(answer.Outcome)];
    *this += answer;
    if (answer.Ok()) LongestUs = std::max(LongestUs, answer.ElapsedUs);
  }
};

// Slots keep their capacity: recording allocates nothing in the long run.
class TModbusFrameLog {
 public:
  static constexpr std::size_t kKept = 32;
  static constexpr std::size_t kFrame = 264;  // the longest frame, and a little
  struct TEntry {
    std::uint64_t TimeUs = 0;  // monotonic
    bool Sent = false;
    TBytes Bytes;
  };

  TModbusFrameLog() {
    for (TEntry& entry : FRing) entry.Bytes.reserve(kFrame);
  }
  void Add(std::uint64_t timeUs, bool sent, const TBytes& bytes) {
    if (bytes.empty()) return;
    TEntry& entry = FRing[FAdded++ % kKept];
    entry.TimeUs = timeUs;
    entry.Sent = sent;
    entry.Bytes.assign(bytes.begin(), bytes.end());
  }
  [[nodiscard]] std::vector<TEntry> Oldest() const {  // first
    std::vector<TEntry> all;
    for (std::size_t i = FAdded < kKept ? 0 : FAdded - kKept; i < FAdded; ++i) all.push_back(FRing[i % kKept]);
    return all;
  }

 private:
  std::array<TEntry, kKept> FRing;
  std::size_t FAdded = 0;
};

}  // namespace ixocamglue
