// What is measured: a class per item, and the rows of the table that all of them end in.
//
// An item is a class with `Run()`, one run of what is measured. With `Prepare()` too, each run is prepared first, and
// only the run itself is timed and counted; such a run lasts long compared with reading a clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Allocations.h"

namespace ixocamglue::bench {

inline constexpr double kNoLimit = std::numeric_limits<double>::infinity();

struct TRow {
  const char* Id = nullptr;    // on the command line
  const char* Name = nullptr;  // in the table; null for a peer, which stands in the row that names it
  double Parts = 1;            // a run measures that many of what the row names
  const char* Peer = nullptr;  // its Id
  const char* PeerName = nullptr;
  double MaxAllocations = kNoLimit;
  double MaxInstructions = kNoLimit;
  double MaxRatio = kNoLimit;  // own time by the peer's

  // Filled in by Measure.
  void (*Time)(benchmark::State&) = nullptr;
  bool ManualTime = false;
  // The allocations of that many runs, after a first one that is not counted.
  std::uint64_t (*Repeat)(std::uint64_t runs) = nullptr;
};

template <class Item>
inline constexpr bool kPrepared = requires(Item item) {
  item.Prepare();
};

// callgrind collects inside these two functions only and finds them by their name.
template <class Item>
[[gnu::noinline]] void CountedRun(Item& item) {
  item.Run();
}
template <class Item>
[[gnu::noinline]] void CountedRuns(Item& item, std::uint64_t runs) {
  while (runs-- > 0) item.Run();
}

template <class Item>
void TimeItem(benchmark::State& state) {
  Item item;
  for ([[maybe_unused]] auto _ : state) {
    if constexpr (kPrepared<Item>) {
      item.Prepare();
      const auto start = std::chrono::steady_clock::now();
      item.Run();
      state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    } else {
      item.Run();
    }
  }
}

template <class Item>
std::uint64_t RepeatItem(std::uint64_t runs) {
  Item item;
  if constexpr (kPrepared<Item>) item.Prepare();
  item.Run();
  std::uint64_t before = Allocations();
  if constexpr (!kPrepared<Item>) {
    CountedRuns(item, runs);
    return Allocations() - before;
  } else {
    std::uint64_t allocations = 0;
    for (; runs > 0; --runs) {
      item.Prepare();
      before = Allocations();
      CountedRun(item);
      allocations += Allocations() - before;
    }
    return allocations;
  }
}

template <class Item>
[[nodiscard]] TRow Measure(TRow row) {
  row.Time = TimeItem<Item>;
  row.ManualTime = kPrepared<Item>;
  row.Repeat = RepeatItem<Item>;
  return row;
}

[[nodiscard]] std::vector<TRow> TickRows();
[[nodiscard]] std::vector<TRow> TreeRows();
[[nodiscard]] std::vector<TRow> ShotRows();
[[nodiscard]] std::vector<TRow> LogRows();
[[nodiscard]] std::vector<TRow> FilterRows();
[[nodiscard]] std::vector<TRow> DeviceRows();
[[nodiscard]] std::vector<TRow> ConfigRows();
[[nodiscard]] std::vector<TRow> AlarmRows();

// Of the alarm history and one consumer that never pops, after a million events.
[[nodiscard]] double AlarmBytesPerEvent();
[[nodiscard]] std::vector<TRow> PanelRows();
[[nodiscard]] std::vector<TRow> GasRows();

// Runs a day of procedures in virtual time; a line with the figures. Throws when a procedure does not succeed.
[[nodiscard]] std::string MixedDay();

}  // namespace ixocamglue::bench
