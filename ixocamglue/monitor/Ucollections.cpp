#include "ixocamglue/monitor/Ucollections.h"

#include <cmath>

namespace ixocamglue {
namespace {

// The comparison is also false for NaN.
double UsableInterval(double interval) { return interval > 0.01 ? interval : 1.0; }

}  // namespace

double TrimmedMeanWithNaN(std::span<const double> older, std::span<const double> newer) {
  double max = older.front();
  double min = max;
  double sum = 0.0;
  for (const auto run : {older, newer}) {
    for (const double v : run) {
      if (std::isnan(v)) continue;
      sum += v;
      if (v > max)
        max = v;
      else if (v < min)
        min = v;
    }
  }
  return (sum - max - min) / (static_cast<double>(older.size() + newer.size()) - 2.0);
}

TMAFileter::TMAFileter(std::int32_t count, double interval)
    : FCount(std::max(count, 0)), FInterval(UsableInterval(interval)), FQueue(FCount) {
  Restart();
}

void TMAFileter::Restart() {
  TGuard guard(FLock);
  for (std::int32_t i = 0; i < FCount; ++i) FQueue.Enqueue(0.0);
  FLastAverage = 0.0;
}

void TMAFileter::AddAndGet(double value, double& average, double& derivative) {
  TGuard guard(FLock);
  FQueue.Enqueue(value);
  average = GetAverage();
  derivative = (average - FLastAverage) / FInterval * 1000.0;
  FLastAverage = average;
}

double TMAFileter::AddAndGetAverage(double value) {
  double average = 0.0;
  double derivative = 0.0;
  AddAndGet(value, average, derivative);
  return average;
}

double TMAFileter::AddAndGetDerivative(double value) {
  double average = 0.0;
  double derivative = 0.0;
  AddAndGet(value, average, derivative);
  return derivative;
}

TSteadyFilter::TSteadyFilter(std::int32_t count, double interval)
    : FCount(std::max(count, 0)), FInterval(UsableInterval(interval)), FQueue(FCount) {}

void TSteadyFilter::Restart() {
  TGuard guard(FLock);
  FStarted = false;
  FResults = {};
}

TSteadyFilter::TResults TSteadyFilter::Add(double value) {
  TGuard guard(FLock);
  if (!std::isfinite(value)) return FResults;
  const bool first = !std::exchange(FStarted, true);
  for (std::int32_t i = first ? FCount : 1; i > 0; --i) FQueue.Enqueue(value);
  const double average = TrimmedMean(FQueue);
  FResults.Derivative = first ? 0.0 : (average - FResults.Average) / FInterval * 1000.0;
  FResults.Average = average;
  return FResults;
}

TSteadyFilter::TResults TSteadyFilter::Read() const {
  TGuard guard(FLock);
  return FResults;
}

}  // namespace ixocamglue
