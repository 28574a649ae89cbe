// A queue of fixed length and the moving-average filter over it, which also yields the average's rate of change. One
// thread at a time; nothing fails. Values are in whatever unit they are fed in.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "ixocamglue/support/Locks.h"

namespace ixocamglue {

// First in, first out; a new element silently displaces the oldest while the queue is full. One allocation, at
// creation. No lock of its own.
template <class T>
class TFixLengthQueue {
 public:
  // A negative capacity counts as 0; such a queue never holds anything.
  explicit TFixLengthQueue(std::int32_t capacity) { SetCapacity(capacity); }
  TFixLengthQueue(const TFixLengthQueue&) = delete;
  TFixLengthQueue& operator=(const TFixLengthQueue&) = delete;

  void Enqueue(const T& value) {
    if (FCapacity == 0) return;
    if (FCount == FCapacity) {  // the oldest element's slot is the one to fill
      FItems[FHead] = value;
      FHead = FTail = Next(FHead);
    } else {
      FItems[FHead] = value;
      FHead = Next(FHead);
      ++FCount;
    }
  }
  // The oldest element, whose slot is cleared; T() when the queue is empty.
  T Dequeue() {
    if (FCount == 0) return T();
    const std::uint32_t slot = FTail;
    FTail = Next(FTail);
    --FCount;
    return std::exchange(FItems[slot], T());
  }
  // Counted from the oldest element. Kept: not checked against the count; every index is somewhere inside the ring, and
  // a slot without an element holds T(). T() where the capacity is 0.
  [[nodiscard]] T GetItem(std::int32_t index) const {
    if (FCapacity == 0) return T();
    const std::int64_t slot = (std::int64_t{FTail} + index) % std::int64_t{FCapacity};
    return FItems[static_cast<std::uint32_t>(slot < 0 ? slot + FCapacity : slot)];
  }
  [[nodiscard]] std::int32_t GetCapacity() const { return static_cast<std::int32_t>(FCapacity); }
  [[nodiscard]] std::int32_t GetCount() const { return static_cast<std::int32_t>(FCount); }

  // The elements from the oldest to the newest, in up to two runs of memory. Valid until the queue changes.
  [[nodiscard]] std::pair<std::span<const T>, std::span<const T>> Runs() const {
    const std::uint32_t first = std::min(FCount, FCapacity - FTail);
    return {{FItems.get() + FTail, first}, {FItems.get(), FCount - first}};
  }

 protected:
  // Keeps the elements in order, the newest where they do not all fit; every other slot is cleared.
  void SetCapacity(std::int32_t capacity) {
    const auto size = static_cast<std::uint32_t>(std::max(capacity, 0));
    auto items = size > 0 ? std::make_unique<T[]>(size) : nullptr;
    while (FCount > size) Dequeue();
    const std::uint32_t kept = FCount;
    for (std::uint32_t i = 0; i < kept; ++i) items[i] = Dequeue();
    FItems = std::move(items);
    FCapacity = size;
    FTail = 0;
    FCount = kept;
    FHead = kept < size ? kept : 0;
  }

 private:
  [[nodiscard]] std::uint32_t Next(std::uint32_t slot) const { return slot + 1 == FCapacity ? 0 : slot + 1; }

  std::unique_ptr<T[]> FItems;
  std::uint32_t FCapacity = 0;
  std::uint32_t FCount = 0;
  std::uint32_t FHead = 0;  // the next free slot
  std::uint32_t FTail = 0;  // the oldest element
};

// The mean of the values without one largest and one smallest; 0 with fewer than 3. Summed from the oldest to the
// newest. Kept: a NaN is left out of the sum but counted in the divisor, and a NaN as the oldest value makes it NaN.
[[nodiscard]] inline double TrimmedMean(const TFixLengthQueue<double>& values);

// The rule as it is told, for values of which one may be NaN. At least 3 of them.
[[nodiscard]] double TrimmedMeanWithNaN(std::span<const double> older, std::span<const double> newer);

inline double TrimmedMean(const TFixLengthQueue<double>& values) {
  const auto [older, newer] = values.Runs();
  const std::size_t count = older.size() + newer.size();
  if (count < 3) return 0.0;
  double max = older.front();
  double min = max;
  double sum = 0.0;
  // No branch per value: the additions, which must stay in order, are the only chain that the processor waits for. A
  // value above max is never below min, so that the two need not exclude each other. A NaN shows in the sum.
  const auto add = [&](std::span<const double> run) {
    for (const double v : run) {
      sum += v;
      max = v > max ? v : max;
      min = v < min ? v : min;
    }
  };
  add(older);
  add(newer);
  if (sum != sum) [[unlikely]]
    return TrimmedMeanWithNaN(older, newer);
  return (sum - max - min) / (static_cast<double>(count) - 2.0);
}

// Fed from one thread and read from others: AddAndGet and Restart hold the lock, which a caller may hold already.
class TMAFileter {
 public:
  // `count` values are averaged, a negative one counts as 0; `interval` is the sampling period in ms, 1.0 where it is
  // not greater than 0.01. Starts as Restart does.
  TMAFileter(std::int32_t count, double interval);

  // Fills the window with zeros, so that the average rises from there.
  void Restart();
  // `derivative` is the average's rate of change per second since the previous call. Allocates nothing.
  void AddAndGet(double value, double& average, double& derivative);
  double AddAndGetAverage(double value);
  double AddAndGetDerivative(double value);
  // Kept: does not lock; the caller does, where another thread adds values.
  [[nodiscard]] double GetAverage() const { return TrimmedMean(FQueue); }
  [[nodiscard]] double GetInterval() const { return FInterval; }  // ms

  void Lock() IXO_ACQUIRE(FLock) { FLock.lock(); }
  void Unlock() IXO_RELEASE(FLock) { FLock.unlock(); }

 private:
  const std::int32_t FCount;
  const double FInterval;  // ms
  TFixLengthQueue<double> FQueue;
  double FLastAverage IXO_GUARDED_BY(FLock) = 0.0;
  TRecursiveSection FLock;
};

// The same average and rate for a signal that drops out: a value that is not finite leaves everything as it was, and
// the window starts filled with the first value, so that nothing rises from zero. Any thread.
class TSteadyFilter {
 public:
  struct TResults {
    double Average = 0.0;
    double Derivative = 0.0;  // per second
  };

  TSteadyFilter(std::int32_t count, double interval);  // as for TMAFileter

  void Restart();  // the next value is the first again
  TResults Add(double value);
  // Both results of the latest value together.
  [[nodiscard]] TResults Read() const;

 private:
  const std::int32_t FCount;
  const double FInterval;  // ms
  mutable TCriticalSection FLock;
  TFixLengthQueue<double> FQueue IXO_GUARDED_BY(FLock);
  bool FStarted IXO_GUARDED_BY(FLock) = false;
  TResults FResults IXO_GUARDED_BY(FLock);
};

}  // namespace ixocamglue
