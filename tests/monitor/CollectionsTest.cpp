#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "ixocamglue/monitor/Ucollections.h"

namespace ixocamglue::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct TResizable : TFixLengthQueue<double> {
  using TFixLengthQueue::SetCapacity;
  using TFixLengthQueue::TFixLengthQueue;
};

std::vector<double> Slots(const TFixLengthQueue<double>& queue) {
  std::vector<double> out;
  for (std::int32_t i = 0; i < queue.GetCapacity(); ++i) out.push_back(queue.GetItem(i));
  return out;
}

using TSamples = std::vector<double>;

TEST(FixLengthQueue, DropsTheOldestAndStaysInside) {
  TResizable queue(3);
  for (const double v : {1.0, 2.0, 3.0, 4.0}) queue.Enqueue(v);
  EXPECT_EQ(Slots(queue), (TSamples{2, 3, 4}));
  const std::int32_t limit = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(queue.GetItem(3), 2);
  EXPECT_EQ(queue.GetItem(-1), 4);
  EXPECT_EQ(queue.GetItem(limit), queue.GetItem(limit % 3));
  EXPECT_EQ(queue.GetItem(-limit), queue.GetItem(3 - limit % 3));
  EXPECT_EQ(queue.Dequeue(), 2);
  EXPECT_EQ(Slots(queue), (TSamples{3, 4, 0}));
  queue.SetCapacity(5);
  EXPECT_EQ(Slots(queue), (TSamples{3, 4, 0, 0, 0}));
  queue.Enqueue(5);
  queue.SetCapacity(2);
  EXPECT_EQ(Slots(queue), (TSamples{4, 5}));
  queue.Dequeue();
  queue.Dequeue();
  EXPECT_EQ(queue.Dequeue(), 0);
  EXPECT_EQ(queue.GetCount(), 0);

  TFixLengthQueue<double> none(-4);
  none.Enqueue(1);
  EXPECT_EQ(none.GetItem(0), 0);
  EXPECT_EQ(none.Dequeue(), 0);
  EXPECT_EQ(none.GetCapacity(), 0);
}

TEST(MAFileter, AveragesWithoutOneLargestAndOneSmallest) {
  TMAFileter filter(5, 0);
  EXPECT_EQ(filter.GetInterval(), 1.0);
  EXPECT_EQ(TMAFileter(5, kNaN).GetInterval(), 1.0);
  EXPECT_EQ(TMAFileter(5, 0.01).GetInterval(), 1.0);
  EXPECT_EQ(TMAFileter(5, 0.02).GetInterval(), 0.02);
  double average = -1;
  double derivative = -1;
  filter.AddAndGet(10, average, derivative);
  EXPECT_EQ(average, 0);
  EXPECT_EQ(derivative, 0);
  filter.Restart();
  for (const double v : {1.0, 2.0, 3.0, 4.0, 100.0}) average = filter.AddAndGetAverage(v);
  EXPECT_EQ(average, 3);
  EXPECT_EQ(TMAFileter(2, 1).AddAndGetAverage(9), 0);
  EXPECT_EQ(TMAFileter(-2, 1).AddAndGetDerivative(9), 0);

  // 2 ms, one mm per value: 500 mm/s once the window has filled.
  TMAFileter speed(4, 2);
  for (int i = 0; i < 9; ++i) derivative = speed.AddAndGetDerivative(i);
  EXPECT_EQ(derivative, 500);
  // A caller that holds the lock may add.
  speed.Lock();
  speed.Restart();
  EXPECT_EQ(speed.AddAndGetAverage(0), speed.GetAverage());
  speed.Unlock();
}

TEST(MAFileter, ANaNCountsInTheDivisorAndSpoilsTheAverageOnlyAsTheOldest) {
  TMAFileter filter(4, 1);
  for (const double v : {3.0, 3.0, 3.0}) filter.AddAndGetAverage(v);
  EXPECT_EQ(filter.AddAndGetAverage(kNaN), 1.5);
  EXPECT_EQ(filter.AddAndGetAverage(3), 1.5);
  EXPECT_EQ(filter.AddAndGetAverage(3), 1.5);
  double average = 0;
  double derivative = 0;
  filter.AddAndGet(3, average, derivative);
  EXPECT_TRUE(std::isnan(average) && std::isnan(derivative));
  filter.AddAndGet(3, average, derivative);
  EXPECT_EQ(average, 3);
  EXPECT_TRUE(std::isnan(derivative));
  EXPECT_EQ(filter.AddAndGetDerivative(3), 0);
}

// As stated, step by step: index, NaN test, greater or else less.
double Literal(const TFixLengthQueue<double>& queue) {
  if (queue.GetCount() < 3) return 0;
  double max = queue.GetItem(0);
  double min = max;
  double sum = 0;
  for (std::int32_t i = 0; i < queue.GetCount(); ++i) {
    const double v = queue.GetItem(i);
    if (std::isnan(v)) continue;
    sum = sum + v;
    if (v > max)
      max = v;
    else if (v < min)
      min = v;
  }
  return (sum - max - min) / (queue.GetCount() - 2);
}

TEST(MAFileter, EveryBitIsThatOfTheStatedOrder) {
  std::mt19937_64 random(4);
  for (const std::int32_t capacity : {3, 5, 8, 50}) {
    TFixLengthQueue<double> queue(capacity);
    for (int i = 0; i < 20'000; ++i) {
      const auto pick = random() % 16;
      queue.Enqueue(pick == 0   ? kNaN
                    : pick == 1 ? -0.0
                    : pick == 2 ? std::numeric_limits<double>::infinity()
                    : pick < 8  ? std::bit_cast<double>(random())
                                : static_cast<double>(random() % 1000) * 0.001);
      const double a = TrimmedMean(queue);
      const double b = Literal(queue);
      ASSERT_TRUE(std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) ||
                  (std::isnan(a) && std::isnan(b)));
    }
  }
}

TEST(SteadyFilter, StartsWithTheFirstValueAndHoldsThroughADropout) {
  TSteadyFilter filter(4, 1);
  EXPECT_EQ(filter.Add(kNaN).Average, 0);
  EXPECT_EQ(filter.Add(10).Average, 10);
  EXPECT_EQ(filter.Read().Derivative, 0);
  for (int i = 11; i < 20; ++i) filter.Add(i);
  EXPECT_EQ(filter.Read().Derivative, 1000);
  filter.Add(kNaN);
  EXPECT_EQ(filter.Read().Average, 17.5);
  filter.Restart();
  EXPECT_EQ(filter.Add(-3).Average, -3);
}

}  // namespace
}  // namespace ixocamglue::test
