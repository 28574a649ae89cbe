// The moving-average filter: one value enqueued and averaged, beside a plain loop over a ring.
#include <array>
#include <cmath>
#include <memory>
#include <random>

#include "bench/Rows.h"
#include "ixocamglue/monitor/Ucollections.h"

namespace ixocamglue::bench {
namespace {

constexpr std::size_t kValues = 4096;

const std::array<double, kValues>& Values() {
  static const std::array<double, kValues> values = [] {
    std::array<double, kValues> out{};
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> mm(-1500.0, 1500.0);
    for (double& value : out) value = mm(random);
    return out;
  }();
  return values;
}

template <int Window>
class TOwnFilter {
 public:
  void Run() {
    FQueue.Enqueue(Values()[FNext++ % kValues]);
    benchmark::DoNotOptimize(TrimmedMean(FQueue));
  }

 private:
  TFixLengthQueue<double> FQueue{Window};
  std::size_t FNext = 0;
};

// As the rule is told: the ring's index by modulo, a test for NaN, greater or else less.
class TPlainRing {
 public:
  explicit TPlainRing(std::size_t capacity) : FItems(std::make_unique<double[]>(capacity)), FCapacity(capacity) {}

  [[gnu::noinline]] void Enqueue(double value) {
    if (FCount == FCapacity) {
      FTail = (FTail + 1) % FCapacity;
      --FCount;
    }
    FItems[(FTail + FCount) % FCapacity] = value;
    ++FCount;
  }
  [[gnu::noinline]] double Average() const {
    if (FCount < 3) return 0.0;
    double max = FItems[FTail];
    double min = max;
    double sum = 0.0;
    for (std::size_t i = 0; i < FCount; ++i) {
      const double v = FItems[(FTail + i) % FCapacity];
      if (std::isnan(v)) continue;
      sum += v;
      if (v > max)
        max = v;
      else if (v < min)
        min = v;
    }
    return (sum - max - min) / (static_cast<double>(FCount) - 2.0);
  }

 private:
  std::unique_ptr<double[]> FItems;
  std::size_t FCapacity;
  std::size_t FTail = 0;
  std::size_t FCount = 0;
};

template <int Window>
class TPlainFilter {
 public:
  void Run() {
    FRing.Enqueue(Values()[FNext++ % kValues]);
    benchmark::DoNotOptimize(FRing.Average());
  }

 private:
  TPlainRing FRing{Window};
  std::size_t FNext = 0;
};

}  // namespace

std::vector<TRow> FilterRows() {
  std::vector<TRow> rows;
  const auto add = [&]<int Window>(const char* id, const char* name, const char* peer, double maxRatio) {
    rows.push_back(Measure<TOwnFilter<Window>>(
        {.Id = id, .Name = name, .Peer = peer, .PeerName = "plain loop", .MaxAllocations = 0, .MaxRatio = maxRatio}));
    rows.push_back(Measure<TPlainFilter<Window>>({.Id = peer}));
  };
  add.operator()<5>("filter_5", "filter, window of 5", "filter_5_plain", 0.40);
  add.operator()<50>("filter_50", "filter, window of 50", "filter_50_plain", 0.40);
  add.operator()<500>("filter_500", "filter, window of 500", "filter_500_plain", 0.65);
  return rows;
}

}  // namespace ixocamglue::bench
